// The calendar text that replaced strftime, and the fault handler's message
// that no longer goes through vsnprintf: the same bytes as before, whatever
// the time and the console's newline mode.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <ctime>
#include <random>
#include <string>
#include <vector>

#include "scenario.h"
#include "sim.h"

#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/calendar.h"
#include "core/system.h"

void faultISR_handler(void);

namespace {

std::string c_library(const char *format, int64_t t, size_t cap) {
    time_t tt = time_t(t);
    struct tm tm;
    gmtime_r(&tt, &tm);
    std::vector<char> b(cap + 1, '#');
    size_t n = strftime(b.data(), cap, format, &tm);
    return n == 0 ? "(0)" : std::string(b.data(), n);
}

std::string ours(const char *format, int64_t t, size_t cap) {
    std::vector<char> b(cap + 1, '#');
    size_t n = format_time(b.data(), cap, format, t);
    if (n == 0) {
        EXPECT_TRUE(cap == 0 || b[0] == '\0');
        return "(0)";
    }
    EXPECT_EQ(std::strlen(b.data()), n);
    return std::string(b.data(), n);
}

} // namespace

TEST(Calendar, FormatTimeWritesWhatStrftimeWrote) {
    // every format the firmware prints a time with
    const char *formats[] = {"\r\n%Y/%m/%d %H:%M:%S ",
                             "%m/%d/%Y %H:%M:%S",
                             "%m/%d/%y %H:%M:%S",
                             "// Deploy time:   \t%Y/%m/%d %H:%M:%S\r\n",
                             "// Pump delay until:\t%Y/%m/%d %H:%M:%S\r\n",
                             "100%% %d"};
    std::vector<int64_t> times = {0,          59,         86399,      86400,
                                  68169599,   68169600,   951782399,  951782400,
                                  951868800,  1735689599, 1735689600, 2147483647,
                                  2147483648, 4107542399, 4107542400, 4294967295};
    std::mt19937 rng(13);
    for (int i = 0; i < 3000; i++) {
        times.push_back(int64_t(rng()));
    }
    for (const char *f : formats) {
        for (int64_t t : times) {
            SCOPED_TRACE(std::to_string(t) + " " + f);
            ASSERT_EQ(ours(f, t, 64), c_library(f, t, 64));
        }
        // a buffer one byte short, and just long enough
        size_t len = c_library(f, 1735689600, 64).size();
        EXPECT_EQ(ours(f, 1735689600, len), "(0)");
        EXPECT_EQ(ours(f, 1735689600, len + 1), c_library(f, 1735689600, len + 1));
    }
    EXPECT_EQ(ours("%Y", 0, 0), "(0)");
}

TEST(Calendar, FaultMessageBytesAreUnchanged) {
    for (uint8_t mode : {0, 1, 2}) {
        SCOPED_TRACE(int(mode));
        bench::power_up();
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = mode;
        // the message as the formatted print made it
        prn_nl();
        prn_nl();
        uprintf("Seawick Crash!!!, entering FaultISR infinte loop.  Hit Reset and report problem");
        prn_nl();
        prn_nl();
        std::string before = bench::take();
        ASSERT_NE(before.find("Hit Reset and report problem"), std::string::npos);
        sim::knobs().time_limit = sim::state().now + 5 * sim::kCpuHz;
        try {
            faultISR_handler();
        } catch (const sim::CycleEnd &e) {
            EXPECT_EQ(e.reason, sim::EndReason::TimeUp);
        }
        sim::knobs().time_limit = 10ull * 86400 * sim::kCpuHz;
        EXPECT_EQ(sim::console_take(), before);
    }
    sim::reset_board();
}
