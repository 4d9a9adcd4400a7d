// Card files: the data file's header block written by a deployment, "gdata"
// paging, the error log, the card command line, and the header printers,
// presets and toggle menu seen byte for byte. Scenarios run the fenwa-sim
// program on a state folder; the printers are also called in-process.
#include <fcntl.h>
#include <sys/stat.h>

#include <ctime>
#include <fstream>

#include "console_bench.h"
#include "eeprom.h"
#include "factory_board.h"
#include "ff.h"
#include "files/config.h"
#include "typist.h"

using scenario::Board;
using scenario::count;

namespace fs = std::filesystem;

namespace {

using bench::card;

constexpr uint32_t kNewYear = 1735689600; // 2025/01/01 00:00:00 UTC
const std::vector<std::string> kAtNewYear = {"--rtc", "1735689600"};

// The metadata block of a factory record (with the duty counts set), as the
// file (upper-case labels, off count) or the console (lower case, on count
// twice) has it.
std::string metadata(bool file, uint32_t deployTime) {
    std::string s = "\r\n\r\n//++************** Deployment Settings ***************\r\n"
                    "// Firmware version: \tFenwa v5.0.3 ZEP3 123g revB\r\n"
                    "// Sampling period (s)\t20\r\n// Samples hour align:\tNo\r\n"
                    "// Vrsi sps,trials: \t20, 10\r\n// Vrse sps,trials: \t20, 10\r\n"
                    "// Vtherm sps,trials\t20, 5\r\n// Ik sps, trials:   \t20, 1\r\n"
                    "// Vk sps, trials:   \t20, 5\r\n// Ib sps, trials:   \t20, 1\r\n"
                    "// Vb sps, trials:   \t20, 5\r\n// Vbias sps,trials: \t40, 1\r\n"
                    "// Pump on time (s):\t0\r\n// Exp Duty Cycle On \t3\r\n";
    s += file ? "// Exp Duty Cycle Off\t7\r\n" : "// Exp Duty Cycle Off\t3\r\n";
    s += "// Low battery voltage:\t9.2\r\n"
         "// Output mode:        \tNormal\r\n";
    time_t t = deployTime;
    char when[64];
    strftime(when, sizeof when, "// Deploy time:   \t%Y/%m/%d %H:%M:%S\r\n", gmtime(&t));
    s += when;
    s += "// Time zone:       \tLocal\r\n"
         "// TCOffset:     \t0.000000\r\n// k0int:        \t-0.400000\r\n"
         "// k0ext:        \t-1.300000\r\n// k2int:        \t-0.001455\r\n"
         "// k2ext:        \t-0.001081\r\n// Def Sal (ppt):\t35.000000\r\n"
         "// Offset Ik:    \t0.000000\r\n// Offset Ib:    \t0.000000\r\n";
    const char *sh = file ? "S-H" : "s-h";
    const char *quad[] = {"340.981986", "-0.000091", "-95.088067", "0.965370"};
    for (int i = 0; i < 4; i++) {
        s += std::string("// ") + sh + " c" + std::to_string(i) + "        \t" + quad[i] + "\r\n";
    }
    s += "// Cal filename  \t \r\n"
         "// PT_Cal_date   \t \r\n";
    for (int i = 0; i < 4; i++) {
        s += "// k2_C" + std::to_string(i) + "         \t0.000000e+00\r\n";
    }
    for (int i = 0; i < 7; i++) {
        s += "// fP_" + std::to_string(i) + "          \t0.000000e+00\r\n";
    }
    s += "// k0_Cal_date   \t \r\n"
         "// k0_HCl        \t0.000000e+00\r\n// k0_SW         \t0.000000e+00\r\n"
         "// k0std_SW      \t0.000000e+00\r\n// service_date  \t \r\n"
         "// Version Info: \tFenwa v5.0.3 ZEP3 123g revB\r\n// File name:     \tnoname.txt\r\n"
         "// User initials: \tabc\r\n";
    for (std::string n :
         {"Board SN:", "KORB SN:", "Sensor SN:", "ISFET SN:", "ISE SN:", "Optode SN:", "CTD SN:",
          "Pump1 SN:", "Pump2 SN:", "Package name:", "Fab Note:", "Deploy note:"}) {
        s += "// " + n + std::string(15 - n.size(), ' ') + "\t \r\n";
    }
    s += "// MicroSD Logging:  \t1\r\n"
         "// Uart Echo:     \t1\r\n// App Exec:      \t0\r\n"
         "// A -- Sample Num               = 1\r\n// B -- MM/DD/YYYY HH:MM:SS      = 1\r\n"
         "// D -- Bias Battery Pos         = 1\r\n// F -- Board Temperature        = 1\r\n"
         "// G -- Board Humidity           = 1\r\n// H -- Vthermistor              = 1\r\n"
         "//      Vtermistor Std           = 1\r\n// I -- Temperature Calc         = 1\r\n"
         "// L -- Vrse (Ext Ref pH volt)   = 1\r\n//      Vrse Std                 = 1\r\n"
         "// M -- pH Vrse Calc             = 0\r\n// R -- Counter Electrode Vk     = 1\r\n"
         "//      Counter Electrode Vk Std = 1\r\n// T -- Counter Electrode Cur Ik = 1\r\n"
         "// U -- Substrate Current        = 1\r\n"
         "//--**************************************************\r\n\r\n\r\n";
    return s;
}

// The factory record with the duty counts set.
void withDuty(systemData &d) {
    d.sampleCnt_duty_on = 3;
    d.sampleCnt_duty_off = 7;
}

const std::string kDefaultTitles =
    " SampNum\t     MM/DD/YYYY HH:MM:SS\tVbatMain\tVbiasPos\tVbiasNeg\t TC_cont\tHumidity\t"
    "  Vtherm\tVthrmStd\t TC_Dfet\t    Vrsi\tVrsi_std\tpHintEst\t    Vrse\tVrse_std\t"
    "  Vrsi_B\t      Vk\t  Vk_std\t      Ik\t      Ib\r\n";

} // namespace

// ---- scenarios ----------------------------------------------------------------------

TEST(FilesScenario, DeploymentWritesTheHeaderBlockThenSamplesAndAppendsTheNext) {
    Board b;
    factory_board(b, withDuty);
    auto r = b.run(scenario::deploy_script(20), 35, kAtNewYear);
    uint32_t deployTime = scenario::u32(b.eeprom(), 1024 + 260);
    std::string file = b.cardFile("NONAME.TXT");

    // The file: metadata (file copy), field list, banner, titles, samples.
    std::string head = metadata(true, deployTime) + kDefaultTitles;
    ASSERT_EQ(file.substr(0, head.size()), head);
    std::string samples = file.substr(head.size());
    EXPECT_GE(count(samples, "\r\n"), 2u);
    EXPECT_EQ(samples.rfind("\r\n"), samples.size() - 2);

    // The console: its own copy, then the start notice, then the titles.
    std::string console = metadata(false, deployTime) +
                          "Starting deployment...       Hit a key, then type 'stop' to end "
                          "deployment.\r\n\r\n\r\n" +
                          kDefaultTitles;
    EXPECT_NE(r.out.find(console), std::string::npos) << r.out;
    EXPECT_EQ(count(r.out, "// S-H"), 0u);

    // gdata starts behind the header.
    uint32_t fptr = scenario::u32(b.fram(), 64 + 8);
    EXPECT_EQ(fptr, head.size());

    // Stop it, deploy again: a second block after the first one's samples.
    size_t before = file.size();
    b.run("1 \\r\n2 stop\\r\n", 3);
    b.run(scenario::deploy_script(20), 7);
    std::string file2 = b.cardFile("NONAME.TXT");
    ASSERT_GT(file2.size(), before);
    EXPECT_EQ(file2.substr(0, before), file);
    std::string head2 = metadata(true, scenario::u32(b.eeprom(), 1024 + 260)) + kDefaultTitles;
    EXPECT_EQ(file2.substr(before, head2.size()), head2);
    EXPECT_EQ(count(file2, "//++****"), 2u);
}

TEST(FilesScenario, NoCardRefusesTheDeployment) {
    Board b;
    factory_board(b, withDuty);
    auto r = b.run(scenario::deploy_script(20), 10, {"--card-absent", "--rtc", "1735689600"});
    // The console's copy of the header block, then the deployment is given up.
    const std::string noCard = "f_open error: FR_NOT_READY\r\n";
    std::string tail = noCard + metadata(false, scenario::u32(b.eeprom(), 1024 + 260)) +
                       "File system error, check SD Card, Aborting deployment, sleeping in IDLE "
                       "state\r\n*";
    tail.insert(tail.find("// A -- Sample Num"), noCard); // the field list tries on its own
    ASSERT_NE(r.out.find(noCard), std::string::npos) << r.out;
    EXPECT_EQ(r.out.substr(r.out.find(noCard)), tail);
    EXPECT_NE(r.out.find("\r\nError: MicroSD card is not detected\r\n"), std::string::npos);
    EXPECT_EQ(scenario::u32(b.fram(), 64 + 0), 0u); // IDLE
}

TEST(FilesScenario, GdataPagesNewLinesStopsAtALineEndOnAKeyAndResumes) {
    Board b;
    b.run(scenario::deploy_script(600), 20, kAtNewYear);
    ASSERT_EQ(scenario::u32(b.fram(), 64 + 0), 1u);
    // A long data file of 40-byte lines (so 80-byte pieces end on line ends),
    // paged from its start.
    auto line = [](size_t i, const char *end) {
        char l[64];
        snprintf(l, sizeof l, "line %05zu ...........................%s", i, end);
        return std::string(l);
    };
    std::string data;
    for (int i = 0; i < 1000; i++) {
        data += line(i, "\r\n");
    }
    ASSERT_EQ(data.size(), 40000u);
    std::ofstream(fs::path(b.dir()) / "card" / "NONAME.TXT", std::ios::binary) << data;
    auto fram = b.fram();
    std::memset(fram.data() + 64 + 8, 0, 4);
    b.writeFram(fram);

    // 40 kB take about 3.5 s at 115200 baud: a key after one second stops it.
    auto r = b.run("1 \\r\n2 gdata\\r\n3 k\n", 15);
    // Up to the key: whole lines from the first; then one more line, sent
    // character by character (so its CR and the LF's own CR both show).
    uint32_t fptr = scenario::u32(b.fram(), 64 + 8);
    size_t lines = fptr / 40 - 1;
    EXPECT_TRUE(fptr % 40 == 0 && lines > 10 && lines < 900) << fptr;
    std::string want =
        data.substr(0, lines * 40) + "Error.txt f_read error: FR_OK\r\n" + line(lines, "\r\r\n");
    EXPECT_EQ(r.out.substr(r.out.find("gdata\r\n\r") + 8, want.size()), want);

    // The next gdata goes on from there to the end; the one after sends nothing.
    auto r2 = b.run("1 \\r\n2 gdata\\r\n", 12);
    std::string rest = data.substr(fptr);
    EXPECT_NE(r2.out.find("gdata\r\n\r" + rest), std::string::npos);
    EXPECT_EQ(scenario::u32(b.fram(), 64 + 8), data.size());
    auto r3 = b.run("1 \\r\n2 gdata\\r\n", 6);
    EXPECT_EQ(r3.out.find("line "), std::string::npos);
}

TEST(FilesScenario, CardCommandLine) {
    Board b;
    fs::path card = fs::path(b.dir()) / "card";
    fs::create_directories(card);
    // Byte 79 a CR, byte 80 its LF: the pieces show where they end.
    std::ofstream(card / "PIECES.TXT", std::ios::binary)
        << std::string(78, 'a') + "\r\n" + std::string(10, 'b');
    std::ofstream(card / "RO.TXT", std::ios::binary) << "x";
    auto stamp = [&](const char *name, uint32_t t) {
        struct timespec ts[2] = {{0, UTIME_OMIT}, {(time_t)t, 0}};
        utimensat(AT_FDCWD, (card / name).c_str(), ts, 0);
    };
    stamp("PIECES.TXT", kNewYear + 5 * 3600 + 7 * 60);
    stamp("RO.TXT", kNewYear - 86400 * 366);
    chmod((card / "RO.TXT").c_str(), 0444);

    // Each command: the folder its prompt shows, and the reply after its echo.
    struct Row {
        std::string dir, cmd, reply;
    };
    const std::string tooLong = "Resulting path name is too long\r\n",
                      err = "\r\nCommand returned error code FR_";
    std::vector<Row> rows = {
        // attribute letters, date, time, size, name; counts; free space
        {"/", "ls",
         "----A 2025/01/01 05:07        90  PIECES.TXT\r\n-R--A 2024/01/01 00:00         1  "
         "RO.TXT\r\n"
         "\r\n   2 File(s)\r\n   0 Dir(s)\r\n   2097056K bytes free\r\n"},
        // two pieces of 79 and 11 bytes; the first ends in CR and gains an LF
        {"/", "cat pieces.txt", std::string(78, 'a') + "\r\n\r\n" + std::string(10, 'b')},
        {"/", "cd ..", ""},
        {"/", "pwd", "/\r\n"},
    };
    std::string deep; // eight levels of eight letters: 72 characters
    for (int i = 0; i < 8; i++) {
        std::string d = "DIRNAME" + std::to_string(i), dir = deep.empty() ? "/" : deep;
        rows.insert(rows.end(), {{dir, "mkdir " + d, ""}, {dir, "cd " + d, ""}});
        deep += "/" + d;
    }
    const std::string deepest = deep + "/abcdef";
    ASSERT_EQ(deepest.size(), 79u);
    rows.insert(
        rows.end(),
        {{deep, "mkdir abcdefg", tooLong}, // 72 + 7 + 2 > 80
         {deep, "mkdir abcdef", ""},       // exactly 80
         {deep, "cd abcdef", ""},          // 79 characters
         {deepest, "pwd", deepest + "\r\n"},
         {deepest, "cd x", tooLong},
         {deepest, "cd /", ""},
         {"/", "cd dirname0", ""}, // relative, any case
         {"/dirname0", "cd ..", ""},
         {"/", "cd /nothere", "cd: /nothere" + err + "NO_PATH\r\n"},
         {"/", "mkdir dirname0", err + "EXIST\r\n"},
         {"/", "mkdir toolongname", err + "INVALID_NAME\r\n"},
         {"/", "rm nofile.txt", err + "NO_FILE\r\n"},
         {"/", "mv pieces.txt cut.txt", ""},
         {"/", "rm dirname0", err + "DENIED\r\n"}, // not empty
         {"/", "frobnicate", "Bad command!\r\n"},
         {"/", "a b c d e f g h i", "Too many arguments for command processor!\r\n"},
         {"/", "a b c d e f g h", "Bad command!\r\n"},
         {"/", "help",
          "\r\nAvailable commands\r\n------------------\r\n"
          "help  : Display list of commands\r\nh  : Alias for help\r\n?  : Alias for help\r\n"
          "ls  : Display list of files\r\nmkdir  : Make new directory\r\n"
          "chdir  : Change directory\r\ncd  : Alias for chdir\r\n"
          "pwd  : Display current working directory\r\ncat  : Display contents of a text file\r\n"
          "rm  : Remove a file or directory\r\nmv  : Rename or move a file or directory\r\n"
          "ys  : Send file via YMODEM\r\nyr  : Receive file via YMODEM\r\n"
          "exit  : Exit the file viewer\r\n"},
         // the renamed file and the new folder (stamped with the host's time)
         {"/", "ls",
          "----A 2025/01/01 05:07        90  CUT.TXT\r\nD---- ####/##/## ##:##         0  "
          "DIRNAME0\r\n"
          "-R--A 2024/01/01 00:00         1  RO.TXT\r\n\r\n   2 File(s)\r\n   1 Dir(s)\r\n"
          "   2096768K bytes free\r\n"},
         {"/", "exit", "\r\n\r\n\r\nMain Menu"}});                          // back to the main menu
    std::string script = "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 5\\r\n", // menu, 5
        want = "\r\n\r\nUnix-like command line. Type 'help' for list of commands\r\n";
    double t = 4;
    for (const Row &row : rows) {
        script += std::to_string(t) + " " + row.cmd + "\\r\n";
        t += 0.5;
        want += "\r\n" + row.dir + "> " + row.cmd + "\r\n\r" + row.reply;
    }
    std::string o = b.run(script, 0, kAtNewYear).out;
    size_t dir = o.find("\r\nD---- ");
    ASSERT_NE(dir, std::string::npos) << o;
    o.replace(dir + 8, 16, "####/##/## ##:##");
    size_t from = o.find("\r\n\r\nUnix-like");
    ASSERT_NE(from, std::string::npos) << o;
    EXPECT_EQ(o.substr(from, want.size()), want);
    EXPECT_TRUE(fs::is_directory(card / "DIRNAME0" / "DIRNAME1"));
}

// ---- in-process --------------------------------------------------------------------

namespace {

// data_cfg[0..25], a digit each.
std::string flags() {
    std::string s(sys_data.data_cfg, sys_data.data_cfg + 26);
    for (char &c : s) {
        c += '0';
    }
    return s;
}

class Files : public ConsoleBench {
  protected:
    void SetUp() override {
        ConsoleBench::SetUp();
        HibernateRTCSet(kNewYear);
        init_sys_data_default();
        init_uSDCard();
        take();
    }
};

} // namespace

TEST_F(Files, TitleLineFollowsTheSwitches) {
    // The switches as flags() shows them: digit 1 the stamp type, 18 Ib, 19
    // Vbat, 24 and 25 the instruments on UART3 and UART4.
    struct Case {
        const char *name, *flags;
        uint32_t pumps; // pump sequence type (0: as it was)
        const char *line;
    };
    const Case cases[] = {
        {"sample number only", "10000000000000000000000005", 0, " SampNum\r\n"},
        {"nothing at all", "00000000000000000000000005", 0, "\r\n"},
        {"epoch stamps and a pump", "02000000000000000011000005", 2,
         "Epoch millisec\tVbatMain\t      Ib\t   Pump\r\n"},
        {"unknown stamp type", "03000000000000000000000006", 0,
         "TC_MCat\tCond\tPres\tpSal\tDate_MC\tTime_MC\r\n"},
        {"picoPH", "00000000000000000000000045", 0,
         "MEA  \tChan \tSensors \tErrors \tdphi \t0 \t0 \t0 \tTC_samp \tTC_case \tsigInt \t"
         "ambLight \tPres \tHum \tTO_res \t0 \t0 \tpH \t0 \t0 \t0 \t\r\n"},
        {"NanoFET and Aanderaa", "00000000000000000000000037", 0,
         " SampNum\tMM/DD/YYYY HH:MM:SS\tVbiasPos\t TC_cont\tHumidity\t  Vtherm\tVthrmStd\t"
         " TC_Dfet\t    Vrse\tVrse_std\t      Vk\t  Vk_std\t      Ik \t      Ib\t"
         "Cond_PN\tCond_SN\tCond\tTemp\tSal\tDensity \tSSpeed\r\n"},
        {"optode and OCR are one group each", "00000000000000000000000015", 0,
         "Opt_PN\tOpt_SN\tMoxy\tO2satper\tTC_opt\tDphase\tBphase\tRphase\tBamp\tBpot\tRamp\t"
         "Opt_rawtemp\r\n"},
    };
    for (const Case &c : cases) {
        init_sys_data_default();
        for (int i = 0; i < 26; i++) {
            sys_data.data_cfg[i] = uint8_t(c.flags[i] - '0');
        }
        if (c.pumps != 0) {
            sys_data.pump_seq_type = c.pumps;
        }
        take();
        EXPECT_EQ(print_write_data_header(1, 0), FALSE) << c.name;
        EXPECT_EQ(take(), std::string("\r\n\r\n") + c.line) << c.name;
    }
    // Written: the file gets the same line and "gdata" starts behind it.
    init_sys_data_default();
    EXPECT_EQ(print_write_data_header(0, 1), FALSE);
    EXPECT_EQ(take(), "\r\n\r\n");
    EXPECT_EQ(card("NONAME.TXT"), kDefaultTitles);
    EXPECT_EQ(sys_samp.next_gdata_fptr, kDefaultTitles.size());
    // Any flag value but 1 is off; a switched-off card is never written.
    EXPECT_EQ(print_write_data_header(2, 2), FALSE);
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0;
    EXPECT_EQ(print_write_data_header(0, 1), FALSE);
    EXPECT_EQ(card("NONAME.TXT"), kDefaultTitles);
    // Host "gh" is the console copy.
    take();
    get_header();
    EXPECT_EQ(take(), "\r\n\r\n" + kDefaultTitles);
}

TEST_F(Files, FieldListAndHostListFollowTheTimestampType) {
    sys_data.data_cfg[CFG_TIMESTAMP] = 2;
    print_write_config_data_fields(1, 0, 0);
    std::string out = take();
    EXPECT_EQ(out.rfind("A -- Sample Num               = 1\r\n"
                        "B -- MM/DD/YYYY HH:MM:SS      = 2,  Epoch millisec\r\n\r\n"
                        "D -- Bias Battery Pos         = 1\r\n",
                        0),
              0u);
    sys_data.data_cfg[CFG_TIMESTAMP] = 3;
    print_config_data_fields();
    out = take();
    EXPECT_EQ(out.find("B --"), std::string::npos);
    EXPECT_EQ(out.rfind("// A -- Sample Num               = 1\r\n"
                        "// D -- Bias Battery Pos         = 1\r\n",
                        0),
              0u);
    print_config();
    EXPECT_EQ(take(), "sampnum=1\r\nbiaspos=1\r\nbrdtemp=1\r\nbrdhumid=1\r\nvtherm=1\r\n"
                      "vtherm_std=1\r\ntempc=1\r\nvrse=1\r\nvrse_std=1\r\nph_vrse=0\r\nvk=1\r\n"
                      "vk_std=1\r\nik=1\r\nib=1\r\n");
    sys_data.data_cfg[CFG_TIMESTAMP] = 2;
    print_config();
    EXPECT_EQ(take().rfind("sampnum=1\r\ntimestamp=2\r\nbiaspos=1\r\n", 0), 0u);
}

TEST_F(Files, MetadataPumpBlocksAndThermistorLabels) {
    sys_data.pump1_ontime = 30;
    sys_data.pump2_ontime = 40;
    sys_data.pump1_cycles = 2;
    sys_data.pump2_cycles = 3;
    sys_data.pump_seq_type = 5;
    sys_data.start_pump_time = kNewYear + 3661;
    sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] = 1;
    sys_data.output = VERBOSE;
    sys_data.GMT = 1;
    sys_data.sample_aligned = 1;
    EXPECT_EQ(print_write_metadata_header(0, 1, 1), FALSE);
    std::string out = take();
    std::string file = card("NONAME.TXT");
    const std::string pumps = "// Pump delay until:\t2025/01/01 01:01:01\r\n"
                              "// Pump seq type:   \t2PUMP_BEAMSV2\r\n"
                              "// Pump1 on time (s):\t30\r\n// Pump2 on time (s):\t40\r\n"
                              "// Pump1 cycles:     \t2\r\n// Pump2 cycles:     \t3\r\n"
                              "// Pump seq type:   \t2PUMP_SELFCAL\r\n"
                              "// Pump1 on time (s):\t30\r\n// Pump2 on time (s):\t40\r\n"
                              "// Pump1 cycles:     \t2\r\n// Pump2 cycles:     \t3\r\n"
                              "// Low battery voltage:\t9.2\r\n";
    EXPECT_NE(file.find(pumps), std::string::npos) << file;
    EXPECT_NE(out.find(pumps), std::string::npos);
    scenario::expect_in(file,
                        {"// Samples hour align:\tYes\r\n", "// Output mode:        \tVerbose\r\n",
                         "// Time zone:       \tGMT\r\n",
                         "// S-H A         \t0.002109\r\n// S-H B         \t0.000080\r\n"
                         "// S-H C         \t0.000001\r\n"});
    EXPECT_NE(out.find("// s-h A         \t0.002109\r\n"), std::string::npos);
    EXPECT_EQ(file.find("Duty"), std::string::npos);
    EXPECT_EQ(sys_samp.next_gdata_fptr, file.size());

    // Single pump in test mode; no delay; unknown algorithm: no thermistor lines.
    init_sys_data_default();
    sys_data.pump1_ontime = 12;
    sys_data.test_mode = 1;
    sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] = 2;
    sys_data.output = 0;
    print_metadata_header(0);
    out = take();
    EXPECT_NE(out.find("// Vbias sps,trials: \t40, 1\r\n// Pump start delay: \t0\r\n"
                       "// Pump seq type:   \tPUMP_SINGLE\r\n"
                       "// Pump on time (s):\t12  (TEST MODE, pump disabled)\r\n"
                       "// Low battery voltage:\t9.2\r\n// Deploy time:"),
              std::string::npos)
        << out;
    EXPECT_EQ(out.find("s-h"), std::string::npos);
    EXPECT_NE(out.find("// Offset Ib:    \t0.000000\r\n// Cal filename"), std::string::npos);

    // Zero pump time: one pump line whatever the type.
    init_sys_data_default();
    sys_data.pump_seq_type = 5;
    print_metadata_header(0);
    out = take();
    EXPECT_NE(out.find("// Vbias sps,trials: \t40, 1\r\n// Pump on time (s):\t0\r\n"
                       "// Low battery voltage:"),
              std::string::npos);
}

TEST_F(Files, FailingCardIsReportedAndTheConsoleCopyGoesOn) {
    sim::state().card_error = true;
    EXPECT_EQ(print_write_metadata_header(0, 1, 1), TRUE);
    std::string out = take();
    EXPECT_EQ(out.substr(0, 30), "f_open error: FR_DISK_ERR\r\n\r\n\r");
    EXPECT_EQ(count(out, "f_open error: FR_DISK_ERR\r\n"), 2u); // the field list tries on its own
    EXPECT_NE(out.find("//--*****"), std::string::npos);
    EXPECT_EQ(print_write_data_header(0, 1), TRUE);
    EXPECT_EQ(take(), "\r\n\r\nf_open error: FR_DISK_ERR\r\nf_write error: FR_DISK_ERR\r\n"
                      "f_close error: FR_DISK_ERR\r\n");
    appendBufferToSDCard("x\r\n");
    EXPECT_EQ(take(), "f_open error: FR_DISK_ERR\r\nf_lseek error: FR_DISK_ERR\r\n"
                      "f_write error: FR_DISK_ERR\r\nf_close error: FR_DISK_ERR\r\n");
    sim::state().card_error = false;
    appendBufferToSDCard("one\r\n");
    appendBufferToSDCard("two\r\n");
    EXPECT_EQ(card("NONAME.TXT"), "one\r\ntwo\r\n");
}

TEST_F(Files, PresetsSetTheirSwitchesAndSayWhatChanged) {
    struct Case {
        void (*fn)(int);
        const char *cfg; // flags()
        uint8_t card, echo, exec;
        const char *said;
    };
    const Case cases[] = {
        {config_data_fields_all, "11111000111000011110101105", 1, 0, 0,
         "MicroSD card enabled\r\nDeploy mode sampling enabled, sleep between samples\r\n"},
        {config_data_fields_glider, "11000000110000011110100005", 0, 0, 0,
         "Default ADS1248 sps and trial settings\r\n"
         "Deploy mode sampling enabled, sleep between samples\r\n"},
        {config_data_fields_vexa, "11111000000000011110101105", 1, 0, 0,
         "Default ADS1248 sps and trial settings\r\nMicroSD card enabled\r\n"
         "Deploy mode sampling enabled, sleep between samples\r\n"},
        {config_data_fields_quorl, "11111000111000011110101105", 1, 1, 0,
         "MicroSD data logging is enabled\r\nConsole echo of deployment commands is enabled\r\n"
         "Default ADS1248 sps and trial settings\r\n"
         "Deploy mode sampling mode enabled, sleep between samples\r\n"},
        {config_data_fields_m2m_quorl, "10111000000000011110101105", 0, 0, 0,
         "MicroSD data logging is Disabled\r\nConsole echo of deployment commands is disabled\r\n"
         "Default ADS1248 sps and trial settings\r\n"
         "Deploy mode sampling mode enabled, sleep between samples\r\n"},
        {config_data_fields_nanofet, "11111000110000011110101105", 0, 0, 0,
         "Default ADS1248 sps and trial settings\r\nData logging is Disabled\r\n"
         "Deploy mode sampling mode enabled, sleep between samples\r\n"},
        {config_data_fields_wirewalker, "02000000110000011110000105", 0, 0, 2,
         "Changes from default ADS1248 sps and trials:\r\n   Vrse_sps = 20\r\n"
         "   Vrse_trials = 5\r\n   Vk_sps = 320\r\n   Vk_trials = 3\r\n   Ik_sps = 160\r\n"
         "   Ik_trials = 1\r\n   Ib_sps = 160\r\n   Ib_trials = 1\r\n\r\n"
         "Sampling period = 2\r\nMicroSD data logging is Disabled\r\n"
         "Timestamp in Epoch millisec format\r\n"
         "Continuous sampling mode (databarf) enabled\r\n"},
    };
    for (const Case &c : cases) {
        // From all-off with the card off: "all" leaves what it does not name.
        config_data_fields_none(0);
        sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0;
        sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO] = 0;
        sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 1;
        sys_data.Vk_sps = 999;
        take();
        c.fn(1);
        EXPECT_EQ(flags(), c.cfg) << c.said;
        EXPECT_EQ(sys_data.app_cfg[APPCFG_MICROSD_ENABLE], c.card) << c.said;
        EXPECT_EQ(sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO], c.echo) << c.said;
        EXPECT_EQ(sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI], c.exec) << c.said;
        EXPECT_EQ(take(), c.said);
        c.fn(0);
        EXPECT_EQ(take(), "");
    }
    // The ADC defaults come back with the presets that say so.
    EXPECT_EQ(sys_data.Vk_sps, 320u);
    config_data_fields_glider(0);
    EXPECT_EQ(sys_data.Vk_sps, 20u);
    // "all" leaves the fields the list does not show.
    memset(sys_data.data_cfg, 1, 25);
    sys_data.data_cfg[CFG_UART3_INST] = 3;
    config_data_fields_all(0);
    EXPECT_EQ(sys_data.data_cfg[CFG_VRSI], 1);
    EXPECT_EQ(sys_data.data_cfg[CFG_BIAS_BAT_NEG], 1);
    EXPECT_EQ(sys_data.data_cfg[CFG_UART3_INST], 3);
    EXPECT_EQ(sys_data.data_cfg[CFG_UART4_INST], 5);
}

TEST_F(Files, ToggleMenuChangesFieldsAndStoresOnExit) {
    config_data_fields_none(0);
    sys_data.fast_mode = 0;
    UARTEchoSet(1);
    // A on, B with the type prompt (x refused, then 2), M (what the external
    // pH needs), z (nothing), h (thermistor and both pH off), W, Enter leaves.
    const std::string sel = "Enter Selection [9]: ";
    std::vector<sim::Typist::Step> steps = {
        {sel, "A\r"}, {sel, "B\r"}, {"millisec ", "x\r"}, {"to exit  ", "2\r"}};
    for (const char *key : {"M\r", "z\r", "h\r", "W\r", "\r"}) {
        steps.push_back({sel, key});
    }
    auto op = std::make_shared<sim::Typist>(steps);
    sim::attach_serial(UART0_BASE, op);
    config_data_fields();
    wait_consoleTx();
    const std::string &out = op->seen;
    EXPECT_TRUE(op->all_answered());
    // sample number, epoch stamps, temperature and Vrse on; the instrument kept
    EXPECT_EQ(flags(), "12001000100000000000000005");
    EXPECT_EQ(sys_data.fast_mode, 1u);
    scenario::expect_in(
        out, {"\r\n\r\n\r\nChange Data Field - lower case turns data field off (=0), "
              "upper case turns field on (=1)\r\n\r\n\r\nA -- Sample Num               "
              "= 0\r\n",
              "U -- Substrate Current        = 0\r\n\r\n0 -- Zero (Clear) all config "
              "fields\r\n1 -- Set all config fields\r\n\r\n9 -- Exit to Main Menu\r\n"
              "Enter Selection [9]: ",
              "Select Timestamp type[1]:  1 -- MM/DD/YYYY HH:MM:SS, 2 -- Epoch millisec ",
              "Enter 1 or 2:  1 for MM/DD/YYYY HH:MM:SS, 2 for Epoch milli-seconds "
              "13digit, Ctrl-X <enter> to exit  ",
              "\r\n\r\nSystem data stored. (910) -- Press enter to bring up main menu\r\n"});
    // Stored whole.
    systemData stored;
    EEPROMRead(reinterpret_cast<uint32_t *>(&stored), SYS_DATA_EEPROM_ADDR, sizeof stored);
    EXPECT_EQ(memcmp(&stored, &sys_data, sizeof stored), 0);
}

TEST_F(Files, CalFileNameResultNamesAndLongFileLines) {
    set_cal_filename("A_VERY_LONG_CALIBRATION_FILE_NAME.cal");
    EXPECT_EQ(std::string(sys_data.cal_filename), "A_VERY_LONG_CALIBRATION_FILE_NA");
    set_cal_filename("DF384.cal");
    EXPECT_EQ(std::string(sys_data.cal_filename), "DF384.cal");

    EXPECT_STREQ(StringFromFresult(FR_INVALID_PARAMETER), "FR_INVALID_PARAMETER");
    EXPECT_STREQ(StringFromFresult((FRESULT)20), "UNKNOWN ERROR CODE");
    EXPECT_STREQ(StringFromFresult((FRESULT)0xFB), "UNKNOWN ERROR CODE");

    // sd_fprintf cuts a line at 255 characters.
    FIL f;
    ASSERT_EQ(f_open(&f, "LONG.TXT", FA_WRITE | FA_CREATE_ALWAYS), FR_OK);
    EXPECT_EQ(sd_fprintf(&f, "%s|", std::string(300, 'q').c_str()), 255u);
    EXPECT_EQ(sd_fprintf(&f, "%d\r\n", 42), 4u);
    f_close(&f);
    EXPECT_EQ(card("LONG.TXT"), std::string(255, 'q') + "42\r\n");
}

TEST_F(Files, SnapshotServiceNeedsTheCardAndReportsAShortFile) {
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0;
    sendlast_takesample();
    EXPECT_EQ(take(), "void sendlast_takesample(void) is not supported with microSD disabled\r\n");
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1;
    std::ofstream(sim::card_dir() + "/SNAPSHOT.TXT") << "abc";
    config_data_fields_none(0);
    sys_data.data_cfg[CFG_SAMPLE_NUM] = 1; // the quickest sample
    sendlast_takesample();
    std::string out = take();
    EXPECT_EQ(out.rfind("WEND TODO:  Sendlast_takesample is not done yet\r\n"
                        "bad read size (less than 5)\r\n",
                        0),
              0u);
    // A longer snapshot is shown up to 239 bytes.
    std::ofstream(sim::card_dir() + "/SNAPSHOT.TXT") << std::string(300, 's');
    sendlast_takesample();
    out = take();
    EXPECT_NE(out.find("yet\r\n" + std::string(239, 's')), std::string::npos);
    EXPECT_EQ(out.find(std::string(240, 's')), std::string::npos);
}
