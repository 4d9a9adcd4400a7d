// The instrument driven through its console as a host or an operator would.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>

#include "scenario.h"

using scenario::Board;
using scenario::count;

namespace {

// What a new board says on its first start, up to its first prompt.
const std::string kFirstBoot =
    "FRAM sys_samp.init, Num is not 0x55AA55AA.  Defaults assigned\r\n\r\n\r\n"
    "  System Default Values loaded into FRAM!\r\n\r\n\r\n  ISUS Default Values loaded into "
    "FRAM!\r\n\r\n  DuraFET Default Values loaded into FRAM!\r\nAPF Set Defaults Into "
    "FRAM\r\n\r\n>";

const char *const kMenu =
    "\r\n\r\n\r\nMain Menu -- Fenwa v5.0.3 ZEP3 123g revB -- Will sleep in 30 seconds\r\n"
    "1 -- Configure\r\n2 -- Test\r\n3 -- Sleep\r\n4 -- Deploy\r\n5 -- Files\r\n"
    "6 -- Commandline\r\n7 -- WendZone\r\nH -- Help\r\nEnter Selection: ";

// Text after the last occurrence of `marker` (the reply to the last command).
std::string after(const std::string &out, const std::string &marker) {
    size_t p = out.rfind(marker);
    return p == std::string::npos ? std::string() : out.substr(p + marker.size());
}

} // namespace

TEST(Scenario, NewBoardIsProvisionedBootsWithFramDefaultsAndServesMenu) {
    Board b;
    auto r = b.run("1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 6\\r\n4 version\\r\n");
    // Four carriage returns: four prompts, then the next key opens the menu; "6"
    // leaves it for the command line. 100 s without host activity: the board sleeps.
    EXPECT_EQ(r.out, kFirstBoot + "\r\n>\r\n>\r\n>\r\n>x" + kMenu +
                         "6\r\n\r\r\n>version\r\nFenwa v5.0.3 ZEP3 123g revB\r\n\r\n>*");

    // The new state folder was provisioned as a factory board (an erased
    // first kilobyte, the record, an empty card); the firmware filled the FRAM.
    auto e = b.eeprom();
    ASSERT_EQ(e.size(), 4096u);
    EXPECT_EQ(std::vector<uint8_t>(e.begin(), e.begin() + 1024), std::vector<uint8_t>(1024, 0xFF));
    EXPECT_EQ(scenario::cstr(e, 1024 + 600, 32), "Fenwa v5.0.3 ZEP3 123g revB");
    EXPECT_EQ(e[1024 + 627], 0);
    EXPECT_EQ(scenario::cstr(e, 1024 + 632, 16), "noname.txt");
    EXPECT_EQ(scenario::u32(e, 1024 + 196), 115200u);
    EXPECT_TRUE(std::filesystem::is_directory(b.dir() + "/card"));
    auto f = b.fram();
    ASSERT_EQ(f.size(), 32768u);
    EXPECT_EQ(scenario::u32(f, 64 + 40), 0x55AA55AAu);
    EXPECT_EQ(scenario::u32(f, 0), 0xAA55AA55u); // probe pattern
    EXPECT_EQ(scenario::u32(f, 64 + 0), 0u);     // IDLE
}

TEST(Scenario, MenuFallsAsleepAfterThirtySeconds) {
    // Also with a stray byte or half a selection on the line (no Enter): the
    // countdown starts again with each byte, then the board sleeps.
    const struct {
        const char *script;
        const char *tail;
    } cases[] = {
        {"1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n", "*"},
        {"2 m\\r\n14 x\n", "x*"},
        {"2 m\\r\n14 \\x18\\x18\\x18\n", "\x18\x18\x18*"},
    };
    for (const auto &c : cases) {
        Board b;
        auto r = b.run(c.script, 60);
        EXPECT_EQ(after(r.out, "Enter Selection: "), c.tail) << c.script;
    }
}

TEST(Scenario, SettingsSurviveAPowerCycle) {
    Board b;
    auto r = b.run("1 period 20\\r\n"
                   "2 filename data.txt\\r\n"
                   "3 vrsi set 0\\r\n"
                   "4 time 12/31/24 23:59:00\\r\n"
                   "5 sleep\\r\n"
                   "10 \\r\n" // wakes the board; the byte itself is lost
                   "12 getperiod\\r\n"
                   "13 filename\\r\n"
                   "14 vrsi get\\r\n"
                   "15 time\\r\n"
                   "16 sampnum\\r\n"
                   "17 microsd\\r\n");
    EXPECT_EQ(r.out,
              kFirstBoot +
                  "period 20\r\n\r\n>filename data.txt\r\n\r\n>vrsi set 0\r\n\r\n>time 12/31/24 "
                  "23:59:00\r\n\r\n>sleep\r\n*\r\n>getperiod\r\n20\r\n>filename\r\ndata.txt\r\n"
                  ">vrsi get\r\n0\r\n>time\r\n12/31/24 23:59:10\r\n>sampnum\r\n#0000000\r\n\r\n"
                  ">microsd\r\n1\r\n>*");
    auto e = b.eeprom();
    EXPECT_EQ(scenario::u32(e, 1024 + 0), 20u);
    EXPECT_EQ(scenario::cstr(e, 1024 + 632, 16), "data.txt");
    EXPECT_EQ(e[1024 + 200 + 5], 0); // CFG_VRSI
}

TEST(Scenario, DeploymentWakesOnThePlannedGrid) {
    Board b;
    // Deploy from the menu with a 20 s period, then leave it alone.
    // Each sample takes about 2.4 s: the last one ends near 106.5 s.
    auto r = b.run(scenario::deploy_script(20), 110);
    scenario::expect_in(
        r.out, {"Starting deployment...       Hit a key, then type 'stop' to end deployment."});
    // Deployed at about 4 s: samples at +2, +20, +40, +60, +80, +100 (the
    // battery column is in every default sample line).
    EXPECT_EQ(count(r.out, "\t   14.30\t"), 6u);
    auto f = b.fram();
    EXPECT_EQ(scenario::u32(f, 64 + 0), 1u); // DEPLOYED
    uint32_t next = scenario::u32(f, 64 + 4);
    auto e = b.eeprom();
    uint32_t deployTime = scenario::u32(e, 1024 + 260); // start + 1
    EXPECT_EQ(next, deployTime - 1 + 120);

    // A key wake with no command resumes the schedule without a sample, back
    // to the pending slot (+120); "dump" shows the state and "stop" ends the
    // deployment.
    auto r2 = b.run("1 \\r\n20 x\n22 dump\\r\n23 stop\\r\n", 30);
    EXPECT_EQ(count(r2.out, "\t   14.30\t"), 1u);
    scenario::expect_in(r2.out, {"DEPLOYED\r\nnow ", "sampling period 20\r\n"});
    EXPECT_EQ(scenario::u32(b.fram(), 64 + 0), 0u); // IDLE after stop
}

TEST(Scenario, PolledModeDeploymentSleepsIdle) {
    Board b;
    auto r = b.run("1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 4\\r\n3.2 \\r\n");
    EXPECT_NE(r.out.find("Deployed in polled mode, space to wake, then ts ..."), std::string::npos);
    EXPECT_EQ(r.out.back(), '*');
    EXPECT_EQ(scenario::u32(b.fram(), 64 + 0), 0u);
}

// A record from other firmware: its banner with every menu, and it is neither
// converted nor reset. An unknown stored state is reported and cleared.
TEST(Scenario, ForeignRecordAndUnknownStateAreReported) {
    Board b;
    b.run("1 version\\r\n");
    auto e = b.eeprom();
    e[1024 + 600 + 16] = '4'; // "Fenwa v5.0.3 ZEP4..."
    b.writeEeprom(e);
    auto f = b.fram();
    f[64] = 7;
    b.writeFram(f);
    // The first byte wakes the sleeping board and is lost.
    auto r =
        b.run("0.5 \\r\n1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 z\\r\n4 6\\r\n5 getperiod\\r\n");
    EXPECT_EQ(count(r.out, "************* ERROR: EEPROM data check failed (firmware upgrade) "
                           "***********************\r\n\r\n"),
              2u);
    scenario::expect_in(r.out, {"*  Version: Fenwa v5.0.3 ZEP4 123g revB, does not match firmware: "
                                "Fenwa v5.0.3 ZEP3 123g revB\r\n\r\n",
                                "ERROR in sys_samp.state = 7", "getperiod\r\n0\r\n>"});
    EXPECT_EQ(scenario::cstr(b.eeprom(), 1024 + 600, 32), "Fenwa v5.0.3 ZEP4 123g revB");
    EXPECT_EQ(scenario::u32(b.fram(), 64 + 0), 0u);
}

TEST(Scenario, GarbageOnTheConsoleNeverDamagesTheRecord) {
    Board b;
    b.run("1 period 30\\r\n");
    auto before = b.eeprom();
    // the first byte wakes the sleeping board; then every byte value, a long
    // line and a flood of line ends
    std::string script = "0.5 \\r\n2 ";
    for (int i = 0; i < 256; ++i) {
        char hex[8];
        snprintf(hex, sizeof hex, "\\x%02x", i);
        script += hex;
    }
    script += "\n4 s" + std::string(10000, 'x') + "\\r\n40 ";
    for (int i = 0; i < 200; ++i) {
        script += "\\r\\n";
    }
    script += "\n60 getperiod\\r\n";
    auto r = b.run(script);
    EXPECT_NE(r.out.find("getperiod\r\n30\r\n>"), std::string::npos);
    EXPECT_EQ(b.eeprom(), before);
}

TEST(Scenario, FailedHibernationIsReportedAndResetsTheBoard) {
    Board b;
    auto r = b.run("1 sleep\\r\n", 3, {"--hib-fail"});
    // the board starts again and serves the host link
    EXPECT_EQ(r.out, kFirstBoot +
                         "sleep\r\n*\r\nconsole enable is not ported on ZEP3, board_util.c, "
                         "line 118\r\n\r\n\r\n\r\nHibernation error!  Possible cause: remove "
                         "JP1 on VEXA board \r\n\r\n\r\n\r\n\r\n\r\nCalling SysCtrlReset..."
                         "\r\n\r\n\r\n\r\n>");
    scenario::expect_in(b.cardFile("ERROR.TXT"),
                        {" Hibernation error.  Possible cause: remove JP1 on VEXA board.  \r\n"});
}
