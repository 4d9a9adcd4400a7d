// A deployed board woken by keys between samples goes back to the slot it
// was sleeping towards: no slot is skipped and the schedule never runs away
// into a sample every few seconds.
#include <gtest/gtest.h>

#include <sstream>

#include "scenario.h"

using scenario::Board;

namespace {

// Deploys from the menu with `period` (the board starts at about 4 s), then
// types `wakes` ("SECONDS TEXT" lines) and runs until `forSeconds`.
std::string deployAndWake(uint32_t period, const std::string &wakes, double forSeconds) {
    Board b;
    auto r = b.run("1 period " + std::to_string(period) +
                       "\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n" + wakes,
                   forSeconds);
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
}

// Seconds of the day of each sample line ("#0000001\t01/01/1970 01:00:04\t...").
std::vector<uint32_t> sampleTimes(const std::string &out) {
    std::vector<uint32_t> t;
    for (size_t p = out.find("\t01/01/1970 "); p != std::string::npos;
         p = out.find("\t01/01/1970 ", p + 1)) {
        unsigned h = 0, m = 0, s = 0;
        if (p >= 8 && out[p - 8] == '#' &&
            sscanf(out.c_str() + p + 12, "%2u:%2u:%2u", &h, &m, &s) == 3) {
            t.push_back(h * 3600u + m * 60u + s);
        }
    }
    return t;
}

} // namespace

TEST(Schedule, RepeatedKeyWakesKeepTheGrid) {
    const struct {
        uint32_t period;
        const char *wakes; // each a lone key: the command loop times out
        double forSeconds;
        uint32_t samples;
    } kRows[] = {
        {20, "15 x\n55 x\n95 x\n135 x\n", 200, 10},
        {1200, "600 x\n1800 x\n3000 x\n4200 x\n", 4900, 5},
        {3600, "1800 x\n5400 x\n9000 x\n", 14500, 5},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.period);
        auto t = sampleTimes(deployAndWake(row.period, row.wakes, row.forSeconds));
        ASSERT_EQ(t.size(), row.samples);
        // Two seconds after the start, then start + k * period.
        const uint32_t start = t[0] - 2u;
        EXPECT_EQ(start, 4u);
        for (uint32_t k = 1; k < t.size(); ++k) {
            EXPECT_EQ(t[k], start + k * row.period) << "sample " << k;
        }
    }
}

TEST(Schedule, SampleTakenOnAKeyWakeKeepsThePendingSlot) {
    auto out = deployAndWake(1200, "600 x\n601 ts\\r\n", 2500);
    auto t = sampleTimes(out);
    ASSERT_EQ(t.size(), 4u) << out;
    EXPECT_GE(t[1], 601u);
    EXPECT_LE(t[1], 610u);
    EXPECT_EQ(t[2], 4u + 1200u);
    EXPECT_EQ(t[3], 4u + 2400u);
}

TEST(Schedule, WakeAfterThePendingSlotSkipsIt) {
    // Kept awake past the slot: the missed slot is not made up.
    auto t = sampleTimes(deployAndWake(20, "15 x\n16 dump\\r\n19 dump\\r\n22 dump\\r\n", 70));
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[1], 44u);
    EXPECT_EQ(t[2], 64u);
}
