// The watchdog's longest gap between pets stays a real figure after samples,
// key wakes and menus: the statistics read a count that nothing restarts.
#include <gtest/gtest.h>

#include <cstdlib>

#include "board/board_util.h"
#include "scenario.h"
#include "sim.h"

using scenario::Board;

namespace {

// The number after the last `label` in `out`, or -1.
long long figure(const std::string &out, const std::string &label) {
    size_t p = out.rfind(label);
    return p == std::string::npos ? -1 : std::atoll(out.c_str() + p + label.size());
}

const std::string kOpenMenu = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n";

} // namespace

TEST(WatchdogGap, NoWrappedFigureAfterSamplesWakesAndMenus) {
    const struct {
        const char *what;
        std::string script;
        const char *label;
    } kRows[] = {
        {"host sample", "8 ts\\r\n14 wdog\\r\n", "wdog.longest = "},
        {"two host samples", "8 ts\\r\n14 ts\\r\n20 wdog\\r\n", "wdog.longest = "},
        {"after a key wake", "2 sleep\\r\n5 \\r\n8 ts\\r\n14 wdog\\r\n", "wdog.longest = "},
        {"test menu sample", kOpenMenu + "3 2\\r\n4 9\\r\n12 W\\r\n", "longest gap "},
        {"test menu timing", kOpenMenu + "3 2\\r\n4 T\\r\n20 W\\r\n", "longest gap "},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.what);
        Board b;
        auto r = b.run(row.script, 24);
        ASSERT_EQ(r.status, 0) << r.err;
        long long gap = figure(r.out, row.label);
        EXPECT_GT(gap, 0) << r.out;
        EXPECT_LT(gap, 10000) << r.out; // seconds at most, never days
    }
}

TEST(WatchdogGap, FirstGapCountsFromResetAndIgnoresTheStopwatch) {
    sim::reset_board();
    wdog = watchDog{};
    const uint32_t t0 = ms_since_reset();
    wdog_init();
    EXPECT_EQ(wdog.tickStart, t0);
    EXPECT_EQ(wdog.tickDelta, 0u);
    for (int i = 0; i < 30; ++i) {
        SysTickIntHandler();
    }
    Timer_1ms(1); // the sample cycle restarts its stopwatch
    wdog_pet();
    EXPECT_EQ(wdog.tickDelta, t0 + 30u);
    EXPECT_EQ(wdog.tickLongest, t0 + 30u); // from 0, as after a reset
    EXPECT_EQ(wdog.tickTot, 30u);
}
