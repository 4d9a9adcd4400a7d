// YMODEM over the console line, byte for byte: the board's sender against a
// receiver answering as a table says, the board's receiver fed whole batches.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "scenario.h"
#include "sim.h"
#include "typist.h"
#include "ymodem_bytes.h"

#include "board/uartstdio.h"
#include "core/main.h"
#include "core/system.h"
#include "ff.h"
#include "files/ymodem.h"
#include "interrupt.h"

namespace fs = std::filesystem;

namespace {

using namespace ymbytes;
using Steps = std::vector<sim::Typist::Step>;

const std::string kAck = "\x06", kNak = "\x15", kCan = "\x18", kEot = "\x04";

// Bytes that are not text, so nothing looks like a protocol byte by accident.
std::string pattern(size_t n, uint32_t seed) {
    std::string s(n, '\0');
    for (size_t i = 0; i < n; i++) {
        seed = seed * 1103515245u + 12345u;
        s[i] = char(seed >> 16);
    }
    return s;
}

class YmodemTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        card_ = sim::card_dir(); // emptied by the board's reset
        ASSERT_EQ(f_mount(&fs_, "", 0), FR_OK);
        memset(&sys_data, 0, sizeof sys_data);
        strcpy(sys_data.fileName, "noname.txt");
        calFileFlg = 0;
        dbg_flag = 0;
        sim::console_take();
    }
    void TearDown() override { sim::reset_board(); }
    // The far end of the console: each step waits for the bytes the board
    // ends on, then answers.
    std::shared_ptr<sim::Typist> far_end(const Steps &steps) {
        auto p = std::make_shared<sim::Typist>(steps);
        sim::attach_serial(UART0_BASE, p);
        return p;
    }
    static std::string out() { return bench::take(); }
    fs::path card_;
    FATFS fs_{};
};

TEST_F(YmodemTest, Crc16AndSizeTexts) {
    const char *check = "123456789";
    EXPECT_EQ(crc16(reinterpret_cast<const uint8_t *>(check), 9), 0x31C3);
    EXPECT_EQ(crc16(nullptr, 0), 0);
    char buf[12];
    EXPECT_EQ(u32_to_str(0, buf), 1u);
    EXPECT_STREQ(buf, "0");
    EXPECT_EQ(u32_to_str(4294967295u, buf), 10u);
    EXPECT_STREQ(buf, "4294967295");
    EXPECT_EQ(str_to_u32("1500 13000 100644"), 1500u);
    EXPECT_EQ(str_to_u32("1024000001"), 1024000001u);
    EXPECT_EQ(str_to_u32("99999999999"), 0xFFFFFFFFu);
    EXPECT_EQ(str_to_u32("x1"), 0u);
}

// 1500 bytes: the second 1024-byte block repeats the first's tail behind the last 476
// bytes. A bare "ys" sends the data file; a NAK repeats a block, a CAN ends at once.
TEST_F(YmodemTest, SenderAnswersAsTheReceiverSays) {
    const std::string file = pattern(1500, 7), p1 = packet(1, file.substr(0, 1024));
    const Steps tail = {{packet(2, file.substr(1024) + file.substr(476, 548)), kAck},
                        {kEot, kAck + "C"},
                        {packet(0, ""), kAck}};
    struct {
        const char *line; // the card command line's words, or the host's one text
        Steps blocks;     // how the receiver answers block 1 (none: no such file)
        int result;
    } cases[] = {{"ys data.txt", {{p1, kAck}}, 0},
                 {"ys", {{p1, kNak}, {p1, kNak}, {p1, kAck}}, 0},
                 {"ys", {{p1, kCan}}, -1},
                 {"ys absent.txt", {}, -1}};
    for (auto &c : cases) {
        SCOPED_TRACE(c.line);
        SetUp();
        std::ofstream(card_ / "data.txt", std::ios::binary) << file;
        std::ofstream(card_ / "noname.txt", std::ios::binary) << file;
        std::string name = c.line[2] != 0 ? c.line + 3 : "noname.txt", want;
        Steps steps;
        if (!c.blocks.empty()) {
            want = "Ymodem sending " + name + ", 1500 bytes...\r\n";
            steps = {{"C", "C"}, {packet(0, nul(name, "1500")), kAck + "C"}};
            steps.insert(steps.end(), c.blocks.begin(), c.blocks.end());
        }
        if (c.result == 0) {
            steps.insert(steps.end(), tail.begin(), tail.end());
        }
        auto far = far_end(steps);
        char a0[] = "ys", a1[] = "data.txt";
        char *argv[] = {a0, a1};
        EXPECT_EQ(name == "data.txt" ? ymodem_send(2, argv) : ymodem_send(1, c.line), c.result);
        wait_consoleTx();
        for (const auto &s : steps) {
            want += s.first;
        }
        want +=
            c.result == 0 ? "\r\nSent: " + name + "\r\n" : kCan + kCan + "\r\nYmodem aborted\r\n";
        EXPECT_EQ(far->seen, want);
        EXPECT_TRUE(far->all_answered());
    }
}

// The complement byte is not looked at; a repeated block, a bad CRC and the first EOT are
// refused; the end leaves the file as the create-always reopen stretched it.
TEST_F(YmodemTest, ReceiverBatchAndItsEnd) {
    std::string a(128, 'A'), b(1024, 'B'), bad = packet(2, b);
    bad[10] ^= 1;
    sim::console_feed(packet(0, nul("data.txt", "300 1234 100644")) + packet(1, a, 0x00) +
                      packet(1, a) + bad + packet(2, b) + kEot + kEot + packet(0, ""));
    EXPECT_EQ(ymodem_receive(1, "yr"), 0);
    EXPECT_EQ(out(), "Ymodem rcv:\r\nC" + kAck + "C" + kAck + kNak + kNak + kAck + kNak + kAck +
                         "C" + kAck);
    EXPECT_EQ(bench::card("DATA.TXT"), std::string(300, '\0'));
}

TEST_F(YmodemTest, ReceiverEndings) {
    struct {
        std::string feed;
        std::string tail;
    } cases[] = {
        {packet(0, nul("big.bin", "1024000001 0")),
         "\r\nYmodem aborted: File size larger than: 1000000 kB\r\n"},
        {"q", "\r\nYmodem aborted: Packet timeout error\r\n"},
        {std::string(1, '\x01') + "\x01", "\r\nYmodem aborted: Packet timeout error\r\n"},
        {kCan + kCan + "x" + kCan + kCan, "\r\nYmodem aborted: "},
        {packet(0, nul("waytoolong.txt", "5")), "\r\nYmodem aborted: File open error\r\n"},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.tail);
        sim::console_feed(c.feed);
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        std::string o = out();
        ASSERT_GE(o.size(), c.tail.size() + 2);
        EXPECT_EQ(o.substr(o.size() - c.tail.size() - 2), kCan + kCan + c.tail);
    }
    EXPECT_FALSE(fs::exists(card_ / "BIG.BIN"));

    // Line noise, in both modes: it ends, one way or another.
    for (int mode = 0; mode < 2; mode++) {
        calFileFlg = mode;
        sim::console_feed(pattern(5000, 99 + mode));
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        EXPECT_EQ(calFileFlg, 0);
        out();
    }
    // Nobody sends: a "C" every second for as long as that lasts.
    SetUp();
    auto far = far_end({});
    far->type("Q", sim::now_cycles() + 20 * sim::kCpuHz);
    EXPECT_EQ(ymodem_receive(1, "yr"), -1);
    size_t cs = std::count(far->seen.begin(), far->seen.end(), 'C');
    EXPECT_GE(cs, 20u);
    EXPECT_LE(cs, 21u);
}

// Calibration mode: only *.cal of at most 500 bytes, parsed, not stored, the sender
// cancelled; 128-byte blocks are gathered up to the announced size first.
TEST_F(YmodemTest, ReceiverCalibrationMode) {
    const std::string cal = "Sensor_SN,S1\r\nISFET_SN,F2\r\nISE_SN,E3\r\nPT_Cal_date,01/02/2024\r\n"
                            "k2_C0,1.5e-01\r\nk2_C1,2\r\nk2_C2,3\r\nk2_C3,4\r\nfP_0,5\r\nfP_1,6\r\n"
                            "fP_2,7\r\nfP_3,8\r\nfP_4,9\r\nfP_5,10\r\nfP_6,11\r\n"
                            "k0_Cal_date,02/03/2024\r\nk0_HCl,-1.25\r\nk0_SW,-1.5\r\n"
                            "k0std_SW,0.001\r\nservice_date,03/04/2024\r\n";
    ASSERT_LE(cal.size(), 500u);
    const std::string sz = std::to_string(cal.size());
    std::string padded = cal;
    padded.resize(4 * 128, '\x1a');
    std::string small, smallAcks;
    for (size_t i = 0; i * 128 < cal.size(); i++) {
        smallAcks += i > 0 ? kAck : "";
        small += packet(uint8_t(i + 1), padded.substr(i * 128, 128));
    }
    const std::string one = packet(1, cal); // one 1024-byte block, padded with SUBs
    struct {
        std::string name, size, blocks;
        std::string acks; // none: refused, not parsed
    } cases[] = {
        {"good.cal", sz, one, kAck + "C"}, {"short.cal", sz, small, kAck + "C" + smallAcks},
        {"bad.txt", sz, one, ""},          {"nodot", sz, one, ""},
        {"big.cal", "501", one, ""},
    };
    for (auto &c : cases) {
        SCOPED_TRACE(c.name);
        memset(&sys_data, 0, sizeof sys_data);
        calFileFlg = 1;
        sim::console_feed(packet(0, nul(c.name, c.size)) + c.blocks);
        EXPECT_EQ(ymodem_receive(1, "yr"), -1);
        EXPECT_EQ(calFileFlg, 0);
        bool parsed = !c.acks.empty();
        EXPECT_EQ(out(), "Ymodem rcv:\r\nC" + c.acks + kCan + kCan +
                             (parsed ? "" : "\r\nYmodem aborted: "));
        EXPECT_EQ(std::string(sys_data.sensor_SN), parsed ? "S1" : "");
        EXPECT_EQ(std::string(sys_data.cal_filename), parsed ? c.name : "");
        EXPECT_EQ(sys_data.fP_Cal[6], parsed ? 11.0f : 0.0f);
        EXPECT_EQ(std::string(sys_data.service_date), parsed ? "03/04/2024" : "");
        EXPECT_TRUE(fs::is_empty(card_));
        // Let the sender's remaining bytes pass before the next case.
        sim::advance_ms(200);
        UARTFlushRx();
    }
}

} // namespace
