// Numbers beyond 32 bits, typed into every numeric argument of the host
// commands and the menus, read as the chip's 32-bit C library reads them:
// they saturate, and the simulated board answers exactly as the chip does.
#include <gtest/gtest.h>

#include <cstring>

#include "core/decimal.h"
#include "scenario.h"

using scenario::Board;

namespace {

const std::string kConfigure = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 1\\r\n";

} // namespace

TEST(NumberLimits, OverflowingArgumentsAnswerAsOnTheChip) {
    const struct {
        std::string script;
        const char *expect; // in the console output
        const char *absent; // nowhere in it ("" = no check)
    } kRows[] = {
        // Host commands; the second line reads the setting back.
        {"1 time 12/31/24 23:59:4294967296\\r\n2 time\\r\n",
         "4294967296\r\n\r\n>time\r\n01/01/70 00:00:02\r\n", "NAK"},
        {"1 time 12/31/24 23:59:4294967306\\r\n2 time\\r\n", "time\r\n01/01/70 00:00:02\r\n",
         "time\r\n12/31/24"},
        {"1 time 12/31/24 23:59:-4294967296\\r\n2 time\\r\n",
         "-4294967296\r\nNAK\r\n\r\n>time\r\n01/01/70 00:00:02\r\n", ""},
        {"1 time 12/31/24 23:59:99999999999999999999\\r\n2 time\\r\n",
         "time\r\n01/01/70 00:00:02\r\n", "NAK"},
        {"1 period 4294967316\\r\n2 period\\r\n",
         "\r\nEnter time less than or equal to 3600 sec\r\n>period\r\n0\r\n", ""},
        {"1 period 99999999999999999999\\r\n2 period\\r\n",
         "\r\nEnter time less than or equal to 3600 sec\r\n>period\r\n0\r\n", ""},
        {"1 sampnum 99999999999\\r\n", "sampnum 99999999999\r\n#0000000\r\n", ""},
        {"1 tint,4294967296\\r\n", "NAK,TINT,RangeErr [4,4000], 429496\r\n", ""},
        {"1 rtc,4294967296\\r\n", "ACK,4294967295,4294967295\r\n", ""},
        {"1 mode,4294967297\\r\n", "NAK,MODE,RangeErr [0,2]: 4\r\n", ""},
        {"1 ctd,4294967296,20,35,-5\\r\n", "ACK,CTD,4294967295,20.0000,35.0000,-5.00\r\n", ""},
        // Configuration menu: period, output mode, single-pump run time.
        {kConfigure + "4 1\\r\n5 4294967316\\r\n", "[0]: 4294967316\r\n\rInvalid entry, value kept",
         ""},
        {kConfigure + "4 5\\r\n5 4294967297\\r\n", "[1]: 4294967297\r\n\rInvalid entry, value kept",
         ""},
        {kConfigure + "4 9\\r\n5 n\\r\n6 4294967301\\r\n",
         "[20]: 4294967301\r\n\rInvalid entry, value kept", ""},
        {kConfigure + "4 8\\r\n5 1\\r\n6 4294967396\\r\n7 \\r\n",
         "4294967396\r\n\r\r\nEnter time less than 3600 sec\r\n", "Pump on time now"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.script);
        Board b;
        auto r = b.run(row.script, 10);
        ASSERT_EQ(r.status, 0) << r.err;
        EXPECT_NE(r.out.find(row.expect), std::string::npos) << r.out;
        if (row.absent[0] != 0) {
            EXPECT_EQ(r.out.find(row.absent), std::string::npos) << r.out;
        }
    }
}

TEST(NumberLimits, DecimalReadsAsA32BitLibrary) {
    const struct {
        const char *text;
        int32_t i;
        bool iSaturated;
        uint32_t u;
        bool uSaturated;
        size_t used;
    } kRows[] = {
        {"0", 0, false, 0u, false, 1},
        {" +17x", 17, false, 17u, false, 4},
        {"2147483647", INT32_MAX, false, 2147483647u, false, 10},
        {"-2147483648", INT32_MIN, false, 2147483648u, false, 11},
        {"2147483648", INT32_MAX, true, 2147483648u, false, 10},
        {"4294967295", INT32_MAX, true, UINT32_MAX, false, 10},
        {"-1", -1, false, UINT32_MAX, false, 2},
        {"4294967296", INT32_MAX, true, UINT32_MAX, true, 10},
        {"-99999999999999999999999", INT32_MIN, true, UINT32_MAX, true, 24},
        {"-", 0, false, 0u, false, 0},
        {"", 0, false, 0u, false, 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.text);
        const char *end = nullptr;
        bool sat = false;
        EXPECT_EQ(dec_i32(row.text, &end, &sat), row.i);
        EXPECT_EQ(size_t(end - row.text), row.used);
        EXPECT_EQ(sat, row.iSaturated);
        EXPECT_EQ(dec_u32(row.text, &end, &sat), row.u);
        EXPECT_EQ(size_t(end - row.text), row.used);
        EXPECT_EQ(sat, row.uSaturated);
    }
}

TEST(NumberLimits, SixtyFourBitTextWithoutTheLibrary) {
    const struct {
        uint64_t v;
        uint32_t width;
        const char *text;
    } kRows[] = {{0u, 13, "            0"},
                 {1706745600000ull, 13, "1706745600000"},
                 {UINT64_MAX, 13, "18446744073709551615"},
                 {42u, 0, "42"}};
    for (const auto &row : kRows) {
        char out[21];
        EXPECT_EQ(dec_u64_text(row.v, row.width, out), strlen(row.text));
        EXPECT_STREQ(out, row.text);
    }
}
