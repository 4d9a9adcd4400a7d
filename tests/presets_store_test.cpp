// Output presets chosen by a host outlive the next hibernation: the board
// that only got "config <preset>" stores the same record as one that was
// made to store it afterwards by another command.
#include <gtest/gtest.h>

#include "scenario.h"

using scenario::Board;

namespace {

const size_t kRecord = 1024, kRecordSize = 1352;

std::vector<uint8_t> record(const Board &b) {
    auto e = b.eeprom();
    return std::vector<uint8_t>(e.begin() + kRecord + 4, e.begin() + kRecord + kRecordSize);
}

} // namespace

TEST(PresetsStore, EveryHostPresetIsStoredByItsCommand) {
    // Column 0 off first, so that every preset changes the stored record.
    const std::string kBefore = "1 sampnum set 0\\r\n";
    const char *const kPresets[] = {"glider", "glid",      "wirewalker", "wirewa", "vexa",
                                    "quorl",  "m2m quorl", "nanofet",    "nano",   "all",
                                    "1",      "none",      "0"};
    for (const char *p : kPresets) {
        SCOPED_TRACE(p);
        Board only, stored;
        const std::string cmd = std::string("2 config ") + p + "\\r\n";
        ASSERT_EQ(only.run(kBefore + cmd, 4).status, 0);
        // "period 7" stores the whole record (and only differs in the period).
        ASSERT_EQ(stored.run(kBefore + cmd + "3 period 7\\r\n", 5).status, 0);
        EXPECT_EQ(record(only), record(stored));
        auto r = only.run("1 period\\r\n", 2);
        EXPECT_NE(r.out.find(std::string(p).rfind("wirewa", 0) == 0 ? "\r\n2" : "\r\n0"),
                  std::string::npos)
            << r.out;
    }
}

TEST(PresetsStore, TestAndUnknownPresetsStoreNothing) {
    Board b;
    ASSERT_EQ(b.run("1 sampnum set 0\\r\n", 3).status, 0);
    auto img = b.eeprom();
    auto r = b.run("1 config test\\r\n2 config blah\\r\n", 3);
    EXPECT_NE(r.out.find("not available\r\n"), std::string::npos);
    EXPECT_NE(r.out.find("NAK\r\n"), std::string::npos);
    EXPECT_EQ(b.eeprom(), img);
}
