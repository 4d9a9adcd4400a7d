// "yr" on the card command line receives into the current directory: a file
// named like one in the root leaves the root's file alone.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

#include "files/ymodem.h"
#include "scenario.h"

using scenario::Board;

namespace {

// One 128-byte YMODEM packet, block `n`.
std::string packet(uint8_t n, std::string data) {
    data.resize(128, '\0');
    std::string p = {char(YM_SOH), char(n), char(~n)};
    p += data;
    uint16_t crc = crc16(reinterpret_cast<const uint8_t *>(data.data()), 128);
    p += char(crc >> 8);
    p += char(crc & 0xFF);
    return p;
}

// The bytes as script escapes.
std::string escaped(const std::string &bytes) {
    std::string s;
    char hex[8];
    for (unsigned char c : bytes) {
        snprintf(hex, sizeof hex, "\\x%02x", c);
        s += hex;
    }
    return s;
}

// A batch of one file: name and size, one block, EOT twice (the first is
// refused), the empty block 0.
std::string batch(const std::string &name, const std::string &text) {
    std::string b0 = name + '\0' + std::to_string(text.size());
    return packet(0, b0) + packet(1, text) + char(YM_EOT) + char(YM_EOT) + packet(0, "");
}

} // namespace

TEST(CardReceive, YrStoresIntoTheCurrentDirectory) {
    const struct {
        const char *cd; // "" stays at the root
        const char *stored;
    } kRows[] = {
        {"", "DATA.TXT"}, {"cd sub", "SUB/DATA.TXT"}, {"cd /sub/deep", "SUB/DEEP/DATA.TXT"}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.stored);
        Board b;
        ASSERT_EQ(b.run("1 version\\r\n", 2).status, 0);
        std::filesystem::create_directories(b.dir() + "/card/SUB/DEEP");
        std::ofstream(b.dir() + "/card/DATA.TXT") << "root file";
        auto r = b.run("1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 5\\r\n4 " + std::string(row.cd) +
                           "\\r\n5 yr\\r\n7 " + escaped(batch("data.txt", "received")) +
                           "\n10 exit\\r\n",
                       12);
        ASSERT_EQ(r.status, 0) << r.err;
        // The end of the batch reopens the file create-always and stretches
        // it to the announced size: eight zero bytes, as at the root.
        EXPECT_EQ(b.cardFile(row.stored), std::string(8, '\0')) << r.out;
        if (row.cd[0] != 0) {
            EXPECT_EQ(b.cardFile("DATA.TXT"), "root file");
        }
    }
}
