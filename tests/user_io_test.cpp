// The console as the operator sees it: newline conversions, keys and lines,
// timed input, date entry and the time displays.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "scenario.h"
#include "sim.h"

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/main.h"
#include "core/system.h"
#include "hibernate.h"

namespace {

class UserIoTest : public ::testing::Test {
  protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
        bench::power_up();
        UARTEchoSet(true);
        mode(0);
        dbg_flag = 0;
        // A CR LF leaves the handler's line-end memory cleared.
        sim::console_feed("\r\n");
        sim::advance_ms(5);
        UARTFlushRx();
        sim::console_take();
    }
    static void mode(uint8_t m) { sys_data.app_cfg[APPCFG_NEWLINE_MODE] = m; }
    static std::string out() { return bench::take(); }
    // Types a line and lets it arrive.
    static void type(const std::string &s) {
        sim::console_feed(s);
        sim::advance_ms(1 + s.size() / 10);
    }
};

TEST_F(UserIoTest, UprintfNewlineConversions) {
    std::string x253(253, 'x'), x254(254, 'x');
    struct {
        uint8_t mode;
        std::string text;
        std::string wire;
        uint32_t ret;
    } cases[] = {
        {0, "abc\r", "abc\r\n", 5}, // a bare CR at the end gains its LF
        {0, "\rabc", "\r\nabc", 5}, // and at the start
        {0, "\r\nabc\r\n", "\r\nabc\r\n", 7},
        {0, "abc\n", "abc\r\n", 4}, // the port puts the CR before a lone LF
        {0, "\r\n", "\r\n", 2},     // two characters are never converted
        {0, "\r", "\r", 1},
        {0, x253 + "\r", x253 + "\r\n", 255},
        {0, x254 + "\r", x254 + "\r", 255}, // no room left for the LF
        {0, std::string(300, 'q'), std::string(255, 'q'), 255},
        {1, "abc\r\n", "abc\r", 4},
        {1, "\r\nabc", "\rabc", 4},
        {1, "abc\n", "abc", 3}, // a trailing LF goes whatever precedes it
        {1, "\r\n", "\r\n", 2},
        {1, "\r\n\n", "\r", 1},
        {1, "a\nb", "a\r\nb", 3},
        {1, "\rabc\r", "\rabc\r", 5},
        {2, "abc\r", "abc\r", 4}, // other modes: no conversion
        {2, "\r\nabc\n", "\r\nabc\r\n", 6},
    };
    for (const auto &c : cases) {
        mode(c.mode);
        EXPECT_EQ(uprintf("%s", c.text.c_str()), c.ret) << (int)c.mode << " " << c.text;
        EXPECT_EQ(out(), c.wire) << (int)c.mode << " " << c.text;
    }
    EXPECT_EQ(uprintf("%d-%s", 42, "ok"), 5u);
    EXPECT_EQ(out(), "42-ok");
    // debug prints only when enabled, and unconverted
    mode(0);
    EXPECT_EQ(dbg_printf("abc\r"), 0u);
    EXPECT_EQ(out(), "");
    dbg_flag = 1;
    EXPECT_EQ(dbg_printf("abc\r"), 4u);
    EXPECT_EQ(out(), "abc\r");
}

TEST_F(UserIoTest, Newlines) {
    struct {
        uint32_t mode;
        std::string wire;
        uint32_t stored;
        std::string buf;
    } cases[] = {
        {0, "\r\n", 2, "ab\r\n"},
        {1, "\n", 1, "ab\n"},
        {7, "", 2, "ab"}, // unknown mode: stores nothing, returns the index
    };
    for (const auto &c : cases) {
        print_newline(c.mode);
        EXPECT_EQ(out(), c.wire);
        char buf[8] = "ab";
        EXPECT_EQ(sprintf_newline(buf, 2, c.mode), c.stored);
        EXPECT_EQ(std::string(buf), c.buf);
        mode((uint8_t)c.mode);
        prn_nl();
        EXPECT_EQ(out(), c.wire);
        char buf2[8] = "ab";
        EXPECT_EQ(sprn_nl(buf2, 2), c.stored);
    }
}

TEST_F(UserIoTest, NewlineTestShowsBothModes) {
    newline_test();
    EXPECT_EQ(out(), "\r\nHowdy Captain\rHowdy Captain"
                     "\r\nHowdy Captain\rHowdy Captain"
                     "Howdy Captain\r\nHowdy Captain\r"
                     "Howdy Captain\r\nHowdy Captain\r");
    EXPECT_EQ(sys_data.app_cfg[APPCFG_NEWLINE_MODE], 1);
}

TEST_F(UserIoTest, KeysCountOnlyAfterEnter) {
    struct {
        const char *typed;
        int key;
        std::string echo;
    } cases[] = {
        {"y\r", 'y', "y\r\n\r"},
        {"\r", 0, "\r\n\r"},
        {"Yes\r", 'Y', "Yes\r\n\r"},
        {"abcdefgh\r", 'a', "abcdefgh\r\n\r"}, // the whole line is consumed
        {"5\b6\r", '6', "5\b \b6\r\n\r"},
    };
    for (const auto &c : cases) {
        sim::console_feed(c.typed);
        EXPECT_EQ(get_key(), c.key) << c.typed;
        EXPECT_EQ(UARTRxBytesAvail(), 0);
        EXPECT_EQ(out(), c.echo);
    }
    sim::console_feed("q\r");
    EXPECT_EQ(rx_console_byte(), 'q');
    sim::console_feed("7\r");
    EXPECT_EQ(get_key_m2m(), '7');
}

TEST_F(UserIoTest, OverlongLineIsThrownAway) {
    sim::console_feed(std::string(10000, 'x') + "\rq\r");
    EXPECT_EQ(get_key(), 'q');
    sim::console_feed(std::string(5000, 'z') + "\rhello\r");
    char buf[16];
    EXPECT_EQ(getUserInput(buf, sizeof(buf)), 5);
    EXPECT_STREQ(buf, "hello");
}

TEST_F(UserIoTest, YesOrNo) {
    struct {
        const char *typed;
        int dflt;
        int answer;
    } cases[] = {
        {"Yes\r", 0, 1}, {"y\r", 0, 1}, {"n\r", 1, 0}, {"No\r", 1, 0},
        {"x\r", 1, 1},   {"x\r", 0, 0}, {"\r", 1, 1},  {"\r", 0, 0},
    };
    for (const auto &c : cases) {
        sim::console_feed(c.typed);
        EXPECT_EQ(yesOrNoMenuChoice("Deploy? (Y/N) [N]? ", c.dflt), c.answer) << c.typed;
        EXPECT_EQ(out().rfind("Deploy? (Y/N) [N]? ", 0), 0u);
    }
}

TEST_F(UserIoTest, KeysWithoutEnter) {
    EXPECT_EQ(kbhit(), 0);
    type("abc");
    EXPECT_EQ(kbhit(), 1);
    EXPECT_EQ(kbhit(), 0);
    EXPECT_EQ(UARTRxBytesAvail(), 0);
    // A following get_key waits for new input.
    sim::console_feed("k\r");
    EXPECT_EQ(get_key(), 'k');
    // kbhit discards what was typed; timed and single-byte reads take a key at once
    Timer_1ms(1);
    EXPECT_EQ(getchar_timed(1), -1);
    EXPECT_NEAR(Timer_1ms(0), 1010u, 10u); // more than 100 ticks of 10 ms
    sim::console_feed("k");
    EXPECT_EQ(getchar_timed(2), 'k');
    sim::console_feed("z");
    EXPECT_EQ(getChar(), 'z'); // one byte, no Enter needed
}

TEST_F(UserIoTest, LineInput) {
    char buf[8];
    type("hello\r");
    EXPECT_EQ(getUserInput(buf, sizeof(buf)), 5);
    EXPECT_STREQ(buf, "hello");
    type("much too long\r");
    EXPECT_EQ(getUserInput(buf, sizeof(buf)), 7);
    EXPECT_STREQ(buf, "much to");

    uint32_t start = HibernateRTCGet();
    EXPECT_EQ(getUserInputTimeLimit(buf, sizeof(buf), 2), -1);
    uint32_t waited = HibernateRTCGet() - start;
    EXPECT_GE(waited, 3u); // more than the limit
    EXPECT_LE(waited, 4u);
    type("ok\r");
    EXPECT_EQ(getUserInputTimeLimit(buf, sizeof(buf), 2), 2);
    EXPECT_STREQ(buf, "ok");
}

TEST_F(UserIoTest, DateAndTimeEntry) {
    const std::string msg = "Enter a valid time string as MM/DD/YY HH:MM:SS\r\n\r\n\r\n";
    struct {
        const char *typed;
        time_t result;
        int messages;
        int prompts;
    } cases[] = {
        {"01/31/24 23:59:61\r", 1706745601, 0, 1},
        {"02/31/24 00:00:00\r", 1709337600, 0, 1}, // normalised by mktime
        {"12/31/99 23:59:59\r", 4102444799, 0, 1},
        {"\r", 0, 0, 1},
        {"13/01/24 00:00:00\r01/01/24 00:00:00\r", 1704067200, 0, 2}, // silent
        {"1/31/24 23:59:59\r01/01/24 00:00:00\r", 1704067200, 1, 2},
        {"01-31-24 23:59:59\r\r", 0, 0, 2},
        {"01/31/24T23:59:59\r\r", 0, 0, 2},
        {"01/31/24\t23:59:59\r", 1706745599, 0, 1}, // any white space
        {"0a/31/24 00:00:00\r\r", 0, 0, 2},
        {"01/00/24 00:00:00\r\r", 0, 0, 2},
        {"01/31/24 24:00:00\r\r", 0, 0, 2},
        {"01/31/24 23:60:00\r\r", 0, 0, 2},
        {"01/31/24 23:00:62\r\r", 0, 0, 2},
        {"01/31/-1 23:00:00\r\r", 0, 0, 2},
        {"much longer than seventeen\r\r", 0, 1, 2},
    };
    for (const auto &c : cases) {
        HibernateRTCSet(1700000000);
        sim::console_feed(c.typed);
        EXPECT_EQ(getDateAndTime(), c.result) << c.typed;
        EXPECT_EQ(UARTRxBytesAvail(), 0) << c.typed;
        std::string o = out();
        EXPECT_EQ(scenario::count(o, "Enter time ["), (size_t)c.prompts) << c.typed;
        EXPECT_EQ(scenario::count(o, msg), (size_t)c.messages) << c.typed;
        EXPECT_EQ(o.rfind("\r\n\r\nEnter time [11/14/23 22:13:20]: ", 0), 0u) << o;
    }
}

TEST_F(UserIoTest, TimeDisplays) {
    HibernateRTCSet(1700000000);
    EXPECT_EQ(get_RTC_time(), (time_t)1700000000);
    printCurrentTime();
    EXPECT_EQ(out(), "11/14/23 22:13:20");
    print_time_t_Time(0);
    EXPECT_EQ(out(), "01/01/70 00:00:00");

    // RTC seconds x 1000 less the offset, wrapped to 32 bits: 2137376224.
    static_assert(1700000000u * 1000u - 1350541856u == 2137376224u, "");
    HibernateRTCSet(1700000000);
    printCurrentEpochTime();
    EXPECT_EQ(out(), "\r\n   2137376224   11/14/23 22:13:20\r\n");
}

} // namespace
