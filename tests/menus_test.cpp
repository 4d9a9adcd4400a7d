// The instrument through the simulator program: menus, help, limits, presets, schedule.
#include "console_bench.h"

#include <filesystem>
#include <fstream>
#include <regex>

#include "core/decimal.h"
#include "ymodem_bytes.h"

using scenario::Board;
using scenario::count;

namespace {

// Four Enters and a key open the main menu (at 2 s); "1" the configuration menu.
const std::string kOpenMenu = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n";
const std::string kConfigure = kOpenMenu + "3 1\\r\n";
const char *const kBanner = "ERROR: EEPROM data check failed (firmware upgrade)";
const char *const kVersion = "Fenwa v5.0.3 ZEP3 123g revB";
const size_t kRecord = 1024, kRecordSize = 1352; // the record in EEPROM
const size_t kPeriod = kRecord + 0, kFileName = kRecord + 632;

double f64(const std::vector<uint8_t> &img, size_t off) {
    double d;
    std::memcpy(&d, img.data() + off, sizeof d);
    return d;
}

std::vector<uint8_t> record(const Board &b) {
    auto e = b.eeprom();
    return std::vector<uint8_t>(e.begin() + kRecord, e.begin() + kRecord + kRecordSize);
}

} // namespace

TEST(Menus, ConfigurationChangesSurviveAPowerCycle) {
    Board b;
    auto r = b.run(
        kConfigure + each_second(4, "1|120|4|mydata.txt|A||123.5|") + "30 x\\r\n31 3\\r\n", 40);
    scenario::expect_in(r.out, {"Configuration Menu -- Fenwa v5.0.3 ZEP3 123g revB",
                                "[0]: ", // the period shown before the change
                                "1 -- Sampling period [120 s]"});
    scenario::expect_in(b.run("1 getperiod\\r\n2 filename\\r\n", 5).out, {"120", "mydata.txt"});
    auto e = b.eeprom();
    EXPECT_EQ(scenario::u32(e, kPeriod), 120u);
    EXPECT_EQ(scenario::cstr(e, kFileName, 16), "mydata.txt");
    EXPECT_EQ(f64(e, kRecord + 40), 123.5);
    // The coefficient after it kept its default on Enter.
    EXPECT_NEAR(f64(e, kRecord + 48), -9.10257e-05, 1e-12);
}

TEST(Menus, AdvancedPageCopiesOrResetsTheRecord) {
    Board b;
    b.run("1 period 45\\r\n2 filename keep.txt\\r\n", 5);
    auto img = b.eeprom();
    img[kRecord + 600 + 10] = 'X'; // written by another firmware release
    b.writeEeprom(img);
    // "E" copies the record under this release's banner and keeps the settings.
    auto r = b.run(kConfigure + "4 Y\\r\n5 E\\r\n6 \\r\n7 \\r\n8 x\\r\n", 12);
    EXPECT_EQ(count(r.out, kBanner), 1u); // before the copy only
    scenario::expect_in(
        r.out, {"E -- Edit/Copy EEPROM sys_data", "D -- assign Defaults to sys_data and sys_samp"});
    auto e = b.eeprom();
    EXPECT_EQ(scenario::cstr(e, kRecord + 600, 32), kVersion);
    EXPECT_EQ(scenario::u32(e, kPeriod), 45u);
    EXPECT_EQ(scenario::cstr(e, kFileName, 16), "keep.txt");
    EXPECT_EQ(count(b.run(kOpenMenu, 5).out, kBanner), 0u);
    // "D" assigns the defaults.
    r = b.run(kConfigure + "4 Y\\r\n5 D\\r\n6 y\\r\n7 x\\r\n8 x\\r\n", 12);
    EXPECT_NE(r.out.find("Defaults assigned"), std::string::npos);
    EXPECT_EQ(scenario::u32(b.eeprom(), kPeriod), 0u);
}

TEST(Menus, NonsenseAndSilenceLeaveTheRecordAsItWas) {
    Board b;
    b.run("1 period 30\\r\n", 3);
    auto before = record(b);
    std::string junk(3000, 'Z');
    // A flood longer than the console ring loses its line end: the next
    // line ("q/q") is read instead, and nonsense it stays. ADC ("9"): no
    // defaults, 77 sps refused. At the file name prompt the operator walks away.
    auto r = b.run(kConfigure + each_second(4, "1|-7|1|99999999999999999999|1|12abc|4|" + junk +
                                                   "|q/q|4|a/b*c|9||77|" + junk +
                                                   "|q/q|\\x01\\x02\\xff|Q|4"),
                   200);
    EXPECT_GE(count(r.out, "Invalid entry, value kept"), 3u);
    // Walked away: the menus return and the main menu falls asleep.
    EXPECT_EQ(r.out.back(), '*');
    auto e = b.eeprom();
    EXPECT_EQ(scenario::u32(e, kPeriod), 30u);
    EXPECT_EQ(scenario::cstr(e, kFileName, 16), "noname.txt");
    EXPECT_EQ(scenario::u32(e, kRecord + 100), 20u); // Vrsi_sps
    EXPECT_EQ(record(b), before);
}

TEST(Menus, BoardQaDeploymentNoteAndWendZone) {
    Board b;
    auto r = b.run(kOpenMenu + "3 2\\r\n4 Q\\r\n5 Tess\\r\n20 x\\r\n21 3\\r\n", 30);
    EXPECT_NE(r.out.find("QA summary (tester Tess)"), std::string::npos);
    EXPECT_NE(r.out.find("QA PASS: 0 failed\r\n"), std::string::npos);
    auto e = b.eeprom();
    const size_t qa = kRecord + 1040;
    EXPECT_EQ(scenario::cstr(e, qa + 148, 48), "Tess");
    EXPECT_EQ(scenario::cstr(e, qa + 196, 32), kVersion);
    EXPECT_NE(scenario::u32(e, qa + 8), 0u); // test time
    // The note is kept on Enter and replaced when typed (a new board: that one sleeps).
    Board n;
    r = n.run(kConfigure + "4 G\\r\n5 buoy 7 south\\r\n6 G\\r\n7 \\r\n8 x\\r\n", 12);
    EXPECT_NE(r.out.find("Deployment note [buoy 7 south]"), std::string::npos);
    EXPECT_EQ(scenario::cstr(n.eeprom(), kRecord + 960, 80), "buoy 7 south");
    r = n.run(kOpenMenu + "3 7\\r\n", 6);
    EXPECT_NE(r.out.find("WendZone is off (APPCFG_MENU_LEVEL is not 1)"), std::string::npos);
}

// The period takes only what the host "period" accepts; Y/N rules for the newline.
TEST(Menus, AnswersTakeOnlyWhatTheHostAccepts) {
    const struct {
        std::string keys; // after the configuration menu opened, one a second
        size_t at;        // the stored byte or number looked at
        uint32_t stored;
        size_t refused; // times "Invalid entry, value kept"
    } kRows[] = {
        {"1|3600", kPeriod, 3600, 0},  {"1|3601", kPeriod, 45, 1},
        {"1|604800", kPeriod, 45, 1},  {"1|7200", kPeriod, 45, 1},
        {"1|0", kPeriod, 0, 0},        {"1|7", kPeriod, 7, 0},
        {"2|1|1|7", kPeriod, 45, 1},   {"2|1|1|1200", kPeriod, 1200, 0}, // aligned
        {"D||n", kRecord + 239, 0, 0}, {"D||No", kRecord + 239, 0, 0},
        {"D||y", kRecord + 239, 1, 0}, {"D||Yes", kRecord + 239, 1, 0},
        {"D||", kRecord + 239, 1, 0},  {"D||x", kRecord + 239, 1, 0},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.keys);
        Board b;
        b.run("1 period 45\\r\n", 3);
        auto r = b.run(kConfigure + each_second(4, row.keys), 12);
        auto e = b.eeprom();
        EXPECT_EQ(row.at == kPeriod ? scenario::u32(e, kPeriod) : e.at(row.at), row.stored);
        EXPECT_EQ(count(r.out, "Invalid entry, value kept"), row.refused);
        EXPECT_EQ(count(r.out, "Enable cr (not cr-lf) newline mode? (Y/N) [Y]? "),
                  row.keys[0] == 'D' ? 1u : 0u);
    }
}

// The help page as the operator sees it.
std::string helpPage() {
    Board b;
    auto r = b.run(kOpenMenu + "3 H\\r\n", 5);
    size_t from = r.out.find("\r\nMain menu\r\n");
    size_t to = r.out.find("Press Enter: ", from);
    return from == std::string::npos || to == std::string::npos ? ""
                                                                : r.out.substr(from, to - from);
}

// The command forms ("  forms: what") under `section`, placeholders filled in.
std::vector<std::string> forms(const std::string &page, const std::string &section) {
    static const std::regex kLine(R"(  (.*?): .*\r\n)"), kForm(R"( ?([^,]+))");
    std::vector<std::string> out;
    size_t at = page.find("\r\n" + section + "\r\n");
    std::string rest = at == std::string::npos ? "" : page.substr(at + section.size() + 4);
    for (std::smatch m; std::regex_search(rest, m, kLine, std::regex_constants::match_continuous);
         rest = m.suffix().str()) {
        const std::string list = m[1];
        for (std::sregex_iterator f(list.begin(), list.end(), kForm), end; f != end; ++f) {
            std::string form = (*f)[1];
            for (auto [name, example] : {std::pair{"MM/DD/YY", "12/31/24"},
                                         {"HH:MM:SS", "23:59:00"},
                                         {"NAME", "data.txt"},
                                         {"N", "20"}}) {
                size_t p = form.find(name);
                if (p != std::string::npos) {
                    form.replace(p, strlen(name), example);
                }
            }
            out.push_back(form);
        }
    }
    return out;
}

// Every command the help offers is answered, at the prompt or in the deployed
// command loop it is listed under, by something other than NAK. The help names
// only what the instrument does: no "menu" word (a host types "m"), and
// "gdata" is the data file's new lines, not an error log.
TEST(HelpWords, EveryOfferedCommandIsAnsweredAndNoOtherNamed) {
    const std::string page = helpPage();
    ASSERT_FALSE(page.empty());
    EXPECT_EQ(page.find("menu opens"), std::string::npos);
    EXPECT_EQ(page.find("error log"), std::string::npos);
    EXPECT_NE(Board().run("1 menu\\r\n", 3).out.find("NAK"), std::string::npos);
    const auto atPrompt = forms(page, "Host commands at the > prompt");
    const auto deployed = forms(page, "Deployed, within 5 s of the key that wakes the board");
    ASSERT_GE(atPrompt.size(), 15u) << page;
    ASSERT_GE(deployed.size(), 8u) << page;
    for (const auto &f : atPrompt) {
        SCOPED_TRACE("> " + f);
        EXPECT_EQ(Board().run("1 " + f + "\\r\n", 4).out.find("NAK"), std::string::npos);
    }
    for (const auto &f : deployed) {
        SCOPED_TRACE("deployed " + f);
        Board b;
        b.run(scenario::deploy_script(3600), 10);
        ASSERT_EQ(scenario::u32(b.fram(), 64 + 0), 1u); // deployed
        EXPECT_EQ(b.run("1 x\n2 " + f + "\\r\n", 6).out.find("NAK"), std::string::npos);
    }
}

// In every numeric argument they saturate, as the chip's 32-bit C library reads them.
TEST(NumberLimits, OverflowingArgumentsAnswerAsOnTheChip) {
    const std::string invalid = "\r\n\rInvalid entry, value kept";
    const std::string epoch = "time\r\n01/01/70 00:00:02\r\n";
    const std::string most = "\r\nEnter time less than or equal to 3600 sec\r\n>period\r\n0\r\n";
    const std::string clock = "1 time 12/31/24 23:59:", andTime = "\\r\n2 time\\r\n";
    const struct {
        std::string script;
        std::string expect; // in the console output
        const char *absent; // nowhere in it ("" = no check)
    } kRows[] = {
        // Host commands; the second line reads the setting back.
        {clock + "4294967296" + andTime, "4294967296\r\n\r\n>" + epoch, "NAK"},
        {clock + "4294967306" + andTime, epoch, "time\r\n12/31/24"},
        {clock + "-4294967296" + andTime, "-4294967296\r\nNAK\r\n\r\n>" + epoch, ""},
        {clock + "99999999999999999999" + andTime, epoch, "NAK"},
        {"1 period 4294967316\\r\n2 period\\r\n", most, ""},
        {"1 period 99999999999999999999\\r\n2 period\\r\n", most, ""},
        {"1 sampnum 99999999999\\r\n", "sampnum 99999999999\r\n#0000000\r\n", ""},
        {"1 tint,4294967296\\r\n", "NAK,TINT,RangeErr [4,4000], 429496\r\n", ""},
        {"1 rtc,4294967296\\r\n", "ACK,4294967295,4294967295\r\n", ""},
        {"1 mode,4294967297\\r\n", "NAK,MODE,RangeErr [0,2]: 4\r\n", ""},
        {"1 ctd,4294967296,20,35,-5\\r\n", "ACK,CTD,4294967295,20.0000,35.0000,-5.00\r\n", ""},
        // Configuration menu: period, output mode, ADC rate, single-pump run time.
        {kConfigure + "4 1\\r\n5 4294967316\\r\n", "[0]: 4294967316" + invalid, ""},
        {kConfigure + "4 5\\r\n5 4294967297\\r\n", "[1]: 4294967297" + invalid, ""},
        {kConfigure + "4 9\\r\n5 n\\r\n6 4294967301\\r\n", "[20]: 4294967301" + invalid, ""},
        {kConfigure + "4 8\\r\n5 1\\r\n6 4294967396\\r\n7 \\r\n",
         "4294967396\r\n\r\r\nEnter time less than 3600 sec\r\n", "Pump on time now"},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.script);
        auto r = Board().run(row.script, 10);
        EXPECT_NE(r.out.find(row.expect), std::string::npos) << r.out;
        if (row.absent[0] != 0) {
            EXPECT_EQ(r.out.find(row.absent), std::string::npos) << r.out;
        }
    }
}

TEST(NumberLimits, DecimalReadsAsA32BitLibrary) {
    // Text: the signed value, saturated, the unsigned value, saturated, characters used.
    const std::pair<const char *, const char *> kRows[] = {
        {"0", "0,0,0,0,1"},
        {" +17x", "17,0,17,0,4"},
        {"2147483647", "2147483647,0,2147483647,0,10"},
        {"-2147483648", "-2147483648,0,2147483648,0,11"},
        {"2147483648", "2147483647,1,2147483648,0,10"},
        {"4294967295", "2147483647,1,4294967295,0,10"},
        {"-1", "-1,0,4294967295,0,2"},
        {"4294967296", "2147483647,1,4294967295,1,10"},
        {"-99999999999999999999999", "-2147483648,1,4294967295,1,24"},
        {"-", "0,0,0,0,0"},
        {"", "0,0,0,0,0"},
    };
    for (auto [text, want] : kRows) {
        const char *iEnd = nullptr, *uEnd = nullptr;
        bool iSat = false, uSat = false;
        int32_t i = dec_i32(text, &iEnd, &iSat);
        uint32_t u = dec_u32(text, &uEnd, &uSat);
        EXPECT_EQ(row(i, iSat, u, uSat, iEnd - text), want) << text;
        EXPECT_EQ(uEnd, iEnd) << text;
    }
    // Sixty-four-bit text without the library.
    const struct {
        uint64_t v;
        uint32_t width;
        const char *text;
    } kText[] = {{0u, 13, "            0"},
                 {1706745600000ull, 13, "1706745600000"},
                 {UINT64_MAX, 13, "18446744073709551615"},
                 {42u, 0, "42"}};
    for (const auto &row : kText) {
        char out[21];
        EXPECT_EQ(dec_u64_text(row.v, row.width, out), strlen(row.text));
        EXPECT_STREQ(out, row.text);
    }
}

// The board that only got "config <preset>" stores the same record as one
// that was made to store it afterwards by another command ("period 7" stores
// the whole record and only differs in the period). Column 0 goes off first,
// so that every preset changes the stored record; "test" and unknown presets
// store nothing.
TEST(PresetsStore, EveryHostPresetIsStoredByItsCommand) {
    const std::string kBefore = "1 sampnum set 0\\r\n";
    const char *const kPresets[] = {"glider", "glid",      "wirewalker", "wirewa", "vexa",
                                    "quorl",  "m2m quorl", "nanofet",    "nano",   "all",
                                    "1",      "none",      "0"};
    auto stored = [](const Board &b) {
        auto e = record(b);
        return std::vector<uint8_t>(e.begin() + 4, e.end());
    };
    for (const char *p : kPresets) {
        SCOPED_TRACE(p);
        Board only, then;
        const std::string cmd = std::string("2 config ") + p + "\\r\n";
        only.run(kBefore + cmd, 4);
        then.run(kBefore + cmd + "3 period 7\\r\n", 5);
        EXPECT_EQ(stored(only), stored(then));
        auto r = only.run("1 period\\r\n", 2);
        EXPECT_NE(r.out.find(std::string(p).rfind("wirewa", 0) == 0 ? "\r\n2" : "\r\n0"),
                  std::string::npos)
            << r.out;
    }
    Board b;
    b.run(kBefore, 3);
    auto img = b.eeprom();
    scenario::expect_in(b.run("1 config test\\r\n2 config blah\\r\n", 3).out,
                        {"not available\r\n", "NAK\r\n"});
    EXPECT_EQ(b.eeprom(), img);
}

// The number after the last `label` in `out`, or -1.
long long figure(const std::string &out, const std::string &label) {
    size_t p = out.rfind(label);
    return p == std::string::npos ? -1 : std::atoll(out.c_str() + p + label.size());
}

// A real figure after samples, wakes and menus: the count nothing restarts.
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
        auto r = Board().run(row.script, 24);
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
    EXPECT_EQ(row(wdog.tickStart, wdog.tickDelta), row(t0, 0));
    for (int i = 0; i < 30; ++i) {
        SysTickIntHandler();
    }
    Timer_1ms(1); // the sample cycle restarts its stopwatch
    wdog_pet();
    // The longest gap counts from 0, as after a reset.
    EXPECT_EQ(row(wdog.tickDelta, wdog.tickLongest, wdog.tickTot), row(t0 + 30u, t0 + 30u, 30u));
}

// The second of the day of each sample line after deploying and typing `wakes`.
std::vector<uint32_t> sampleTimes(uint32_t period, const std::string &wakes, double forSeconds) {
    std::string out = Board().run(scenario::deploy_script(period) + wakes, forSeconds).out;
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

// Key wakes between samples skip no slot and never make up one missed while awake.
TEST(Schedule, KeyWakesKeepTheGrid) {
    const struct {
        uint32_t period;
        const char *wakes; // a lone key: the command loop times out
        double forSeconds;
        std::vector<uint32_t> samples; // the start (4 s), then start + k * period
    } kRows[] = {
        {20, "15 x\n55 x\n95 x\n135 x\n", 200, {6, 24, 44, 64, 84, 104, 124, 144, 164, 184}},
        {1200, "600 x\n1800 x\n3000 x\n4200 x\n", 4900, {6, 1204, 2404, 3604, 4804}},
        {3600, "1800 x\n5400 x\n9000 x\n", 14500, {6, 3604, 7204, 10804, 14404}},
        {20, "15 x\n16 dump\\r\n19 dump\\r\n22 dump\\r\n", 70, {6, 44, 64}},
        // a host's sample on a key wake keeps the pending slot
        {1200, "600 x\n601 ts\\r\n", 2500, {6, 601, 1204, 2404}},
    };
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.wakes);
        EXPECT_EQ(sampleTimes(row.period, row.wakes, row.forSeconds), row.samples);
    }
}

// It receives into the current directory; the root's namesake stays.
TEST(CardReceive, YrStoresIntoTheCurrentDirectory) {
    const std::string batch = ymbytes::escaped(ymbytes::batch("data.txt", "received"));
    const struct {
        const char *cd; // "" stays at the root
        const char *stored;
    } kRows[] = {
        {"", "DATA.TXT"}, {"cd sub", "SUB/DATA.TXT"}, {"cd /sub/deep", "SUB/DEEP/DATA.TXT"}};
    for (const auto &row : kRows) {
        SCOPED_TRACE(row.stored);
        Board b;
        b.run("1 version\\r\n", 2);
        std::filesystem::create_directories(b.dir() + "/card/SUB/DEEP");
        std::ofstream(b.dir() + "/card/DATA.TXT") << "root file";
        auto r = b.run(
            kOpenMenu + "3 5\\r\n4 " + row.cd + "\\r\n5 yr\\r\n7 " + batch + "\n10 exit\\r\n", 12);
        // The batch's end recreates it at its announced size: eight zero bytes.
        EXPECT_EQ(b.cardFile(row.stored), std::string(8, '\0')) << r.out;
        if (row.cd[0] != 0) {
            EXPECT_EQ(b.cardFile("DATA.TXT"), "root file");
        }
    }
}
