// Answers typed into the configuration menu: the sampling period takes only
// what the schedule can keep, the newline question follows the Y/N rules.
#include <gtest/gtest.h>

#include "scenario.h"

using scenario::Board;

namespace {

// Opens the configuration menu and types one line a second after it.
std::string configure(const std::vector<std::string> &lines) {
    std::string s = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 1\\r\n";
    int t = 4;
    for (const auto &l : lines) {
        s += std::to_string(t++) + " " + l + "\\r\n";
    }
    return s;
}

const size_t kPeriod = 1024 + 0, kNewline = 1024 + 232 + 7;

} // namespace

TEST(MenuAnswers, SamplingPeriodOnlyWhatTheHostAccepts) {
    const struct {
        bool aligned;
        const char *typed;
        uint32_t stored;
    } kRows[] = {
        {false, "3600", 3600}, {false, "3601", 45}, {false, "604800", 45}, {false, "7200", 45},
        {false, "0", 0},       {false, "7", 7},     {true, "7", 45},       {true, "1200", 1200},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(std::string(row.typed) + (row.aligned ? " aligned" : ""));
        Board b;
        ASSERT_EQ(b.run("1 period 45\\r\n", 3).status, 0);
        std::vector<std::string> keys;
        if (row.aligned) {
            keys = {"2", "1"};
        }
        keys.push_back("1");
        keys.push_back(row.typed);
        auto r = b.run(configure(keys), 12);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(scenario::u32(b.eeprom(), kPeriod), row.stored);
        EXPECT_EQ(scenario::count(r.out, "Invalid entry, value kept"), row.stored == 45 ? 1u : 0u);
    }
}

TEST(MenuAnswers, NewlineModeAskedAsYesOrNo) {
    const struct {
        const char *typed;
        uint8_t mode;
    } kRows[] = {{"n", 0}, {"No", 0}, {"y", 1}, {"Yes", 1}, {"", 1}, {"x", 1}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.typed);
        Board b;
        auto r = b.run(configure({"D", "", row.typed}), 10);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_EQ(scenario::count(r.out, "Enable cr (not cr-lf) newline mode? (Y/N) [Y]? "), 1u);
        EXPECT_EQ(b.eeprom().at(kNewline), row.mode);
    }
}
