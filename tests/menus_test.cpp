// The operator menus walked at the console: settings changed through the
// configuration menu survive a power cycle, the advanced page clears the
// version banner, the board QA fills its block, and nonsense or silence
// leaves the stored record as it was.
#include <gtest/gtest.h>

#include <cstring>

#include "scenario.h"

using scenario::Board;
using scenario::count;

namespace {

// Four Enters and a key on the host link open the main menu (at 2 s).
const std::string kOpenMenu = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n";
const char *const kBanner = "ERROR: EEPROM data check failed (firmware upgrade)";

double f64(const std::vector<uint8_t> &img, size_t off) {
    double d;
    std::memcpy(&d, img.data() + off, sizeof d);
    return d;
}

} // namespace

TEST(Menus, ConfigurationChangesSurviveAPowerCycle) {
    Board b;
    auto r = b.run(kOpenMenu + "3 1\\r\n"
                               "4 1\\r\n5 120\\r\n"
                               "6 4\\r\n7 mydata.txt\\r\n"
                               "8 A\\r\n9 \\r\n10 123.5\\r\n11 \\r\n"
                               "30 x\\r\n31 3\\r\n",
                   40);
    scenario::expect_in(r.out, {"Configuration Menu -- Fenwa v5.0.3 ZEP3 123g revB",
                                "[0]: "}); // the period shown before the change
    EXPECT_NE(r.out.find("1 -- Sampling period [120 s]"), std::string::npos);

    auto r2 = b.run("1 getperiod\\r\n2 filename\\r\n", 5);
    scenario::expect_in(r2.out, {"120", "mydata.txt"});
    auto e = b.eeprom();
    EXPECT_EQ(scenario::u32(e, 1024 + 0), 120u);
    EXPECT_EQ(scenario::cstr(e, 1024 + 632, 16), "mydata.txt");
    EXPECT_EQ(f64(e, 1024 + 40), 123.5);
    // The coefficient after it kept its default on Enter.
    EXPECT_NEAR(f64(e, 1024 + 48), -9.10257e-05, 1e-12);
}

TEST(Menus, AdvancedCopyClearsTheVersionBannerAndKeepsSettings) {
    Board b;
    b.run("1 period 45\\r\n2 filename keep.txt\\r\n", 5);
    auto img = b.eeprom();
    img[1024 + 600 + 10] = 'X'; // written by another firmware release
    b.writeEeprom(img);

    auto r = b.run(kOpenMenu + "3 1\\r\n4 Y\\r\n5 E\\r\n6 \\r\n7 \\r\n8 x\\r\n", 12);
    EXPECT_EQ(count(r.out, kBanner), 1u); // before the copy only
    scenario::expect_in(
        r.out, {"E -- Edit/Copy EEPROM sys_data", "D -- assign Defaults to sys_data and sys_samp"});
    auto e = b.eeprom();
    EXPECT_EQ(scenario::cstr(e, 1024 + 600, 32), "Fenwa v5.0.3 ZEP3 123g revB");
    EXPECT_EQ(scenario::u32(e, 1024 + 0), 45u);
    EXPECT_EQ(scenario::cstr(e, 1024 + 632, 16), "keep.txt");

    auto r2 = b.run(kOpenMenu, 5);
    EXPECT_EQ(count(r2.out, kBanner), 0u);
}

TEST(Menus, AdvancedDefaultsResetTheRecord) {
    Board b;
    b.run("1 period 45\\r\n", 3);
    auto r = b.run(kOpenMenu + "3 1\\r\n4 Y\\r\n5 D\\r\n6 y\\r\n7 x\\r\n8 x\\r\n", 12);
    EXPECT_NE(r.out.find("Defaults assigned"), std::string::npos);
    EXPECT_EQ(scenario::u32(b.eeprom(), 1024 + 0), 0u);
}

TEST(Menus, NonsenseAndSilenceLeaveTheRecordAsItWas) {
    Board b;
    b.run("1 period 30\\r\n", 3);
    auto before = b.eeprom();
    std::string junk(3000, 'Z');
    // A flood longer than the console ring loses its line end: the next
    // line ("q/q") is read instead, and nonsense it stays.
    std::string s = kOpenMenu + "3 1\\r\n";
    s += "4 1\\r\n5 -7\\r\n";
    s += "6 1\\r\n7 99999999999999999999\\r\n";
    s += "8 1\\r\n9 12abc\\r\n";
    s += "10 4\\r\n11 " + junk + "\\r\n12 q/q\\r\n";
    s += "13 4\\r\n14 a/b*c\\r\n";
    s += "15 9\\r\n16 \\r\n17 77\\r\n"; // ADC: no defaults; 77 sps refused
    s += "18 " + junk + "\\r\n19 q/q\\r\n";
    s += "20 \\x01\\x02\\xff\\r\n";
    s += "21 Q\\r\n";
    s += "22 4\\r\n"; // file name prompt, then the operator walks away
    auto r = b.run(s, 200);
    EXPECT_GE(count(r.out, "Invalid entry, value kept"), 3u);
    // Walked away: the menus return and the main menu falls asleep.
    EXPECT_EQ(r.out.back(), '*');
    auto after = b.eeprom();
    EXPECT_EQ(scenario::u32(after, 1024 + 0), 30u);
    EXPECT_EQ(scenario::cstr(after, 1024 + 632, 16), "noname.txt");
    EXPECT_EQ(scenario::u32(after, 1024 + 100), 20u); // Vrsi_sps
    EXPECT_EQ(std::vector<uint8_t>(after.begin() + 1024, after.begin() + 1024 + 1352),
              std::vector<uint8_t>(before.begin() + 1024, before.begin() + 1024 + 1352));
}

TEST(Menus, BoardQaFillsTheQaBlock) {
    Board b;
    auto r = b.run(kOpenMenu + "3 2\\r\n4 Q\\r\n5 Tess\\r\n20 x\\r\n21 3\\r\n", 30);
    EXPECT_NE(r.out.find("QA summary (tester Tess)"), std::string::npos);
    EXPECT_TRUE(r.out.find("QA PASS: 0 failed") != std::string::npos ||
                r.out.find("QA FAIL: ") != std::string::npos);
    auto e = b.eeprom();
    const size_t qa = 1024 + 1040;
    EXPECT_EQ(scenario::cstr(e, qa + 148, 48), "Tess");
    EXPECT_EQ(scenario::cstr(e, qa + 196, 32), "Fenwa v5.0.3 ZEP3 123g revB");
    EXPECT_NE(scenario::u32(e, qa + 8), 0u); // test time
}

TEST(Menus, DeploymentNoteKeptOnEnterAndReplacedWhenTyped) {
    Board b;
    auto r = b.run(kOpenMenu + "3 1\\r\n4 G\\r\n5 buoy 7 south\\r\n6 G\\r\n7 \\r\n8 x\\r\n", 12);
    EXPECT_NE(r.out.find("Deployment note [buoy 7 south]"), std::string::npos);
    EXPECT_EQ(scenario::cstr(b.eeprom(), 1024 + 960, 80), "buoy 7 south");
}

TEST(Menus, WendZoneNeedsTheMenuLevel) {
    Board b;
    auto r = b.run(kOpenMenu + "3 7\\r\n", 6);
    EXPECT_NE(r.out.find("WendZone is off (APPCFG_MENU_LEVEL is not 1)"), std::string::npos);
}
