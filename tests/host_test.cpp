// Host command line: keywords, replies, line discipline, the float-controller record.
#include "console_bench.h"

#include <vector>

#include "eeprom.h"
#include "files/config.h"

namespace {

using Host = ConsoleBench;

// Replies other tables check byte for byte are not repeated here.

struct Row {
    std::string line;
    uint32_t code;   // dispatcher's result
    const char *out; // exact reply (nullptr: the handler's own suite checks it)
};

const Row kRows[] = {
    {"config help", 77, "not available\r\n"},
    {"config h", 77, "not available\r\n"},
    {"config test", 82, "not available\r\n"},
    {"config bogus", 82, "NAK\r\n"},
    {"e", 107, "NAK,E,InvalidModeValue: 0\r\n"},
    {"filename", 18, "noname.txt"},
    {"filesystem", 18, "noname.txt"}, // "file" comes first
    {"getfilename", 19, ""},          // 11 characters: the set form
    {"getperiod", 14, "10"},
    {"microsd", 84, "0"},
    {"m2m", 133, "term time = 250 msec"},
    {"period", 14, "10"},
    {"per 5", 14, "10"},
    {"sampnum", 90, "#0000000\r\n"},
    {"sampnum 7", 90, "#0000000\r\n"},
    {"setfilename log.dat", 19, ""},
    {"settime 12/31/24 23:59:59", 12, ""},
    {"store", 84, "0"},
    {"time", 11, "12/31/24 23:59:59"},
    {"tint,?", 126, "TINT,?,0\r\n"},
    {"ver", 80, "Fenwa v5.0.3 ZEP3 123g revB\r\n"},
    {"ys", 143,
     "ymodem send not parsing filename yet, serial_cmd_fxn\r\n\x18\x18\r\nYmodem aborted\r\n"},
    {"yr", 144, "Ymodem rcv:\r\nC\x18\x18\r\nYmodem aborted: Packet timeout error\r\n"},
    {"biasneg set 1", 28, nullptr}, // kept: runs the test
    {"biasneg get", 28, nullptr},
    {"biaspos get", 31, nullptr}, // get is looked for at 5
    {"config glider", 82, nullptr},
    {"rtc,1727464426", 116, nullptr},
    {"spectra,210,221", 122, nullptr},
};

// Lines that answer nothing ("m" alone is the menu: "ma" and "mz" are not).
struct Code {
    const char *line;
    uint32_t code;
};
const Code kQuiet[] = {
    {"microsd 1", 85}, {"sample 3", 93},  {"sex", 0},   {"sleep", 10}, {"nap", 10}, {"zz", 10},
    {"zzz", 10},       {"quit", 10},      {"stop", 10}, {"exit", 10},  {"slp", 10}, {"store 1", 85},
    {"xyz", 0},        {"timestamp", 89}, {"ma", 0},    {"mz", 0},
};

// The dispatcher's result only (replies checked elsewhere); "gettime" is the set form.
const Code kCodes[] = {
    {"bake,10", 100}, {"biasneg", 28}, {"c", 101},         {"c1", 103},     {"c2", 102},
    {"cal", 104},     {"config", 81},  {"ctd,?", 106},     {"dev", 148},    {"ec", 7},
    {"fit,?", 109},   {"fit", 108},    {"gc", 6},          {"gh1", 154},    {"gh2", 155},
    {"gh", 8},        {"gm", 9},       {"help", 13},       {"hh", 149},     {"h", 132},
    {"init", 110},    {"ls", 136},     {"mode,?", 112},    {"mode,1", 111}, {"off", 113},
    {"p", 114},       {"rtc,?", 117},  {"s", 118},         {"se,?", 120},   {"se", 119},
    {"sl", 5},        {"stat", 148},   {"ss", 4},          {"s1", 152},     {"s2", 153},
    {"sys", 134},     {"t", 124},      {"gettime", 12},    {"ts", 3},       {"type,3", 150},
    {"t0", 145},      {"t1", 128},     {"t2", 129},        {"w", 127},      {"wdog", 146},
    {"TS", 3},        {"Ts", 3},       {"spectra,?", 123},
};

// The column switches: the word runs its live test, "set 1" and "get" follow.
struct Column {
    const char *word;
    uint32_t run, set, get;
};
const Column kColumns[] = {
    {"biaspos", 31, 30, 31},  {"ik", 37, 36, 35},         {"ib", 34, 33, 32},
    {"tempc", 52, 51, 50},    {"timestamp", 89, 25, 24},  {"sampnum", 90, 23, 22},
    {"vbat", 71, 70, 69},     {"vk_std", 91, 44, 43},     {"vk", 42, 41, 40},
    {"vrsi_std", 87, 57, 56}, {"vrse_std", 88, 65, 64},   {"vrsi", 55, 54, 53},
    {"vrse", 63, 62, 61},     {"vtherm_std", 92, 49, 48}, {"vtherm", 47, 46, 45},
};

TEST_F(Host, EveryKeywordRowDispatchesToItsHandler) {
    std::vector<Row> rows(std::begin(kRows), std::end(kRows));
    for (const Code &c : kQuiet) {
        rows.push_back({c.line, c.code, ""});
    }
    for (const Code &c : kCodes) {
        rows.push_back({c.line, c.code, nullptr});
    }
    for (const Column &c : kColumns) {
        rows.push_back({c.word, c.run, nullptr});
        rows.push_back({std::string(c.word) + " set 1", c.set, ""});
        if (c.get != c.run) {
            rows.push_back({std::string(c.word) + " get", c.get, "0"});
        }
    }
    for (const Row &row : rows) {
        SCOPED_TRACE("line \"" + row.line + "\"");
        fresh();
        databarFlg = 1;
        rx0.cmd = 42;
        if (row.line == "yr") {
            sim::console_feed("\x03"); // the receiver waits for a sender until a byte comes
        }
        uint32_t code = dispatch(row.line);
        std::string out = take();
        EXPECT_EQ(code, row.code);
        // An unknown line (or the menu) leaves the stored code alone.
        EXPECT_EQ(rx0.cmd, row.code != 0 ? row.code : 42u);
        if (row.out != nullptr) {
            EXPECT_EQ(out, row.out);
        }
        // Only the sleep family ends continuous sampling ("slp" only ends the session).
        bool clears = row.code == 10 && row.line != "slp";
        EXPECT_EQ(databarFlg, clears ? 0u : 1u);
    }
}

// Sampling entries follow the sensor mode; "s1".."t2" switch it; help sets the term time.
TEST_F(Host, SensorModeAndTermTimeEntries) {
    struct Case {
        const char *line;
        uint32_t mode;     // beforehand (the term time is 7 s)
        std::string reply; // exact ("..." ends a start only: a sample line follows)
        const char *after; // "sensor mode/term time"
    };
    const Case cases[] = {
        {"ts", 0, "...", "0/7000"},
        {"ts", 2, "...", "2/7000"}, // the pH record
        {"ts", 5, "NAK,MODE=5\r\n", "5/7000"},
        {"ss", 0, "...", "0/7000"},
        {"ss", 1, "", "1/7000"}, // "ss" announces nothing
        {"ss", 2, "...", "2/7000"},
        {"ss", 7, "NAK,MODE=7\r\n", "7/7000"},
        {"sl", 0, "serial sl apf_send_last_sample\r\n...", "0/7000"},
        {"sl", 3, "", "3/7000"},
        {"s1", 9, "...", "1/7000"},
        {"s2", 9, "...", "2/7000"},
        {"t0", 9, "...", "0/7000"},
        {"t1", 9, "...", "1/7000"},
        {"t2", 9, "...", "2/7000"},
        {"hh", 0, "...", "0/2000"},
        {"hhh", 0, "...", "0/2000"},
        {"hhhh", 0, "...", "0/3000"},
        {"hhhhh", 0, "...", "0/4000"},
        {"help", 0, "...", "0/1000"},
        {"h", 0, "...", "0/1000"},
        {"m2m", 0, "...", "0/250"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.line) + " in mode " + std::to_string(c.mode));
        fresh();
        apf.sys_sensor_mode = c.mode;
        apf_set_h2m_timeout(7);
        dispatch(c.line);
        size_t dots = c.reply.find("...");
        EXPECT_EQ(take().substr(0, dots), c.reply.substr(0, dots));
        EXPECT_EQ(std::to_string(apf.sys_sensor_mode) + "/" + std::to_string(apf_get_h2m_timeout()),
                  c.after);
    }
    // "h2m" climbs one second at a time up to four.
    fresh();
    for (int was : {250, 1000, 2000, 3000, 4000}) {
        EXPECT_EQ(dispatch("h2m"), 132u);
        EXPECT_EQ(take(), "was term time = " + std::to_string(was) + " msec\r\nnow term time = " +
                              std::to_string(was == 250 ? 1000 : std::min(was + 1000, 4000)) +
                              " msec\r\n");
    }
}

TEST_F(Host, ColumnSwitchesPairStandardDeviationsWithTheirValues) {
    struct Case {
        const char *line;
        int preset;  // column set to 1 beforehand (-1 none)
        int preset2; // second column set beforehand
        uint32_t idx;
        uint8_t expect;
        int other; // a second column checked (-1 none)
        uint8_t otherExpect;
    };
    const Case cases[] = {
        {"vrsi set 1", -1, -1, CFG_VRSI, 1, CFG_VRSI_STD, 0},
        {"vrsi_std set 1", -1, -1, CFG_VRSI_STD, 1, CFG_VRSI, 1},
        {"vrsi_std set 0", CFG_VRSI, CFG_VRSI_STD, CFG_VRSI_STD, 0, CFG_VRSI, 1},
        {"vrse_std set 1", -1, -1, CFG_VRSE_STD, 1, CFG_VRSE, 1},
        {"vtherm_std set 1", -1, -1, CFG_V_THERMISTOR_STD, 1, CFG_V_THERMISTOR, 1},
        {"tempc set 1", -1, -1, CFG_CALC_TEMP, 1, CFG_V_THERMISTOR, 1},
        {"tempc set 0", CFG_V_THERMISTOR, CFG_CALC_TEMP, CFG_CALC_TEMP, 0, CFG_V_THERMISTOR, 1},
        {"vk_std set 1", -1, -1, CFG_V_COUNTER_ELECT_STD, 1, CFG_V_COUNTER_ELECT, 0},
        {"vrsi set x", CFG_VRSI, -1, CFG_VRSI, 0, -1, 0},
        {"ik set 1", -1, -1, CFG_I_COUNTER, 1, -1, 0},
        {"ib set 1", -1, -1, CFG_I_SUBSTRATE, 1, -1, 0},
        {"vbat set 1", -1, -1, CFG_VIN_BAT_VOLT, 1, -1, 0},
        {"biaspos set 1", -1, -1, CFG_BIAS_BAT_POS, 1, -1, 0},
        {"biasneg set 1", -1, -1, CFG_BIAS_BAT_NEG, 0, -1, 0},
        {"sampnum set 1", -1, -1, CFG_SAMPLE_NUM, 1, -1, 0},
        {"timestamp set 1", -1, -1, CFG_TIMESTAMP, 1, -1, 0},
        {"timestamp set 2", -1, -1, CFG_TIMESTAMP, 2, -1, 0},
        {"timestamp set 3", CFG_TIMESTAMP, -1, CFG_TIMESTAMP, 0, -1, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        fresh();
        for (int p : {c.preset, c.preset2}) {
            if (p >= 0) {
                sys_data.data_cfg[p] = 1;
            }
        }
        dispatch(c.line);
        EXPECT_EQ(sys_data.data_cfg[c.idx], c.expect);
        if (c.other >= 0) {
            EXPECT_EQ(sys_data.data_cfg[c.other], c.otherExpect);
        }
        systemData stored;
        EEPROMRead(reinterpret_cast<uint32_t *>(&stored), SYS_DATA_EEPROM_ADDR, sizeof stored);
        if (std::string(c.line) != "biasneg set 1") {
            EXPECT_EQ(stored.data_cfg[c.idx], c.expect) << "stored";
        }
    }
    fresh();
    sys_data.data_cfg[CFG_VRSI] = 1;
    sys_data.data_cfg[CFG_TIMESTAMP] = 2;
    dispatch("vrsi get");
    dispatch("timestamp get");
    EXPECT_EQ(take(), "12");
}

TEST_F(Host, TimeStampTestPrintsByItsColumnSwitch) {
    // The column's offset plus one second; the date; nothing.
    for (auto [cfg, t, out] : {std::tuple{2, 2208963603u, "         1000"},
                               {1, kNewYearsEve, "12/31/2024 23:59:59"},
                               {0, kNewYearsEve, ""}}) {
        sys_data.data_cfg[CFG_TIMESTAMP] = (uint8_t)cfg;
        HibernateRTCSet(t);
        cmd_test_timestamp(1);
        EXPECT_EQ(take(), out);
    }
}

// Commands with an argument: the exact reply and the setting read back after.
TEST_F(Host, CommandsWithAnArgument) {
    const auto period = +[] { return std::to_string(sys_data.sampling_period); };
    const auto clock = +[] { return std::to_string(HibernateRTCGet()); };
    const auto name = +[] { return std::string(sys_data.fileName); };
    const auto card = +[] { return std::to_string(sys_data.app_cfg[APPCFG_MICROSD_ENABLE]); };
    const auto sampling = +[] { return row(databarFlg, barfSampleTime); };
    const auto count = +[] { return std::to_string(sys_samp.current_sample); };
    const std::string range = "\r\nEnter seconds greater than or equal to 0 and less than 3600\r\n";
    const std::string most = "\r\nEnter time less than or equal to 3600 sec";
    const std::string aligned = "\r\nAligned=Y, sample period must evenly divide hour (e.g. 5, "
                                "10, 15, 20, 30 minutes)";
    struct Case {
        std::string line;
        std::string reply;
        std::string (*setting)();
        std::string want;
    };
    const Case cases[] = {
        {"period 3600", "", period, "3600"},
        {"period 3601", most, period, "10"},
        {"period 0", range, period, "10"},
        {"period 00", range, period, "10"},
        {"period 05", "", period, "5"},
        {"per 20", "", period, "20"},
        {"setperiod 30", "", period, "30"},
        {"period 99999999999", most, period, "10"},
        {"aligned period 7", aligned, period, "10"},
        {"aligned period 20", "", period, "20"},
        {"time 12/31/24 23:59:59", "", clock, "1735689599"},
        {"settime 11/05/23 01:02:03", "", clock, "1699146123"},
        {"time 12/31/24 23:59:61", "", clock, "1735689601"}, // leap second bound as written
        {"time 11/31/24 00:00:00", "", clock, "1733011200"}, // normalised to 1 December
        // Months below 10 lose their layout; out of range is silent.
        {"time 01/31/24 23:59:59", "NAK\r\n", clock, "1000000000"},
        {"time 12/31/24 24:00:00", "", clock, "1000000000"},
        {"time 13/01/24 00:00:00", "", clock, "1000000000"},
        {"time 12/00/24 10:00:00", "NAK\r\n", clock, "1000000000"},
        {"time 12-31-24", "NAK\r\n", clock, "1000000000"},
        {"time now please", "NAK\r\n", clock, "1000000000"},
        {"filename data.txt", "", name, "data.txt"},
        {"filename data.text", "", name, "data.tex"},
        {"filename 2024.txt", "", name, "txt"},
        {"setfilename LOG.DAT", "", name, "log.dat"},
        {"filename abcdefghi.txt", "filename is too long, needs to be 8.3 format\r\n", name,
         "noname.txt"},
        {"filename 12345", "", name, "noname.txt"},
        {"filename a.b.cdefg", "", name, "a.b.c"},
        // Reading the card switch turns it on in RAM.
        {"microsd", "7", card, "1"},
        {"microsd 1", "", card, "1"},
        {"microsd 0", "", card, "0"},
        {"store 1", "", card, "1"},
        {"store x", "", card, "0"},
        {"sample 3", "", sampling, "1,5"},
        {"sample 12", "", sampling, "1,1"},
        {"sample 27", "", sampling, "1,2"},
        {"sample", "", sampling, "1,5"},
        {"sampnum", "#0000041\r\n", count, "41"},
        {"sampnum restart", "#0000000\r\n", count, "0"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.line);
        fresh();
        HibernateRTCSet(1000000000u);
        sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = c.setting == card ? 7 : 0;
        sys_samp.current_sample = 41;
        bool al = c.line.rfind("aligned ", 0) == 0;
        sys_data.sample_aligned = al;
        dispatch(c.line.substr(al ? 8 : 0));
        EXPECT_EQ(take(), c.reply);
        EXPECT_EQ(c.setting(), c.want);
    }
    // The stored name is the reply's format text; a lone "%" is shown as is.
    strcpy(sys_data.fileName, "a%%b%s.txt");
    dispatch("filename");
    EXPECT_EQ(take(), "a%b%s.txt");
}

TEST_F(Host, OutputPresetsSetTheColumnsOfTheirFunction) {
    const std::pair<const char *, void (*)(int)> cases[] = {
        {"config glider", config_data_fields_glider},
        {"config wirewalker", config_data_fields_wirewalker},
        {"config vexa", config_data_fields_vexa},
        {"config quorl", config_data_fields_quorl},
        {"config m2m quorl", config_data_fields_m2m_quorl},
        {"config nanofet", config_data_fields_nanofet},
        {"config all", config_data_fields_all},
        {"config 1", config_data_fields_all},
        {"config none", config_data_fields_none},
        {"config 0", config_data_fields_none},
    };
    auto columns = [] {
        return std::string(std::begin(sys_data.data_cfg), std::end(sys_data.data_cfg));
    };
    for (auto [line, preset] : cases) {
        fresh();
        preset(0);
        std::string want = columns();
        fresh();
        dispatch(line);
        EXPECT_EQ(take(), "") << line;
        EXPECT_EQ(columns(), want) << line;
    }
}

TEST_F(Host, HelpTextsAndVersion) {
    dispatch("help");
    EXPECT_EQ(take(),
              "** datalogger setup:  0 for off, 1 for on\r\n time, gettime\r\n"
              " time MM/DD/YY HH:MM:SS, settime MM/DD/YY HH:MM:SS\r\n"
              " per, period, getperiod\r\n per 20, period 20, setperiod 20\r\n"
              " config, getconfig \r\n config, setconfig\r\n config help\r\n"
              " filename, getfilename\r\n filename filename.ext, setfilename filename.ext\r\n"
              " microsd, store align\r\n** commands:\r\n"
              " help\r\n sleep\r\n deploy\r\n ts\r\n ss \r\n sl\r\n gc\r\n ec\r\n gh\r\n"
              " eh\r\n stop, exit, quit, <ctrl-c>\r\n"
              "\r\nvrsi set 1    vrsi get    vrsi    vrsi 0   vrsi 2000");
    dispatch("hhhh");
    std::string big = take();
    EXPECT_EQ(big.substr(0, 40), "                 Ping:  W          ACK\r\n");
    scenario::expect_in(
        big, {"  Take pH Dura Sample:  T2     \r\n     Send Last sample:  SL     \r\n",
              "                 Ping:  FIT    \r\n",
              "    Get ZEP Error msg:  SE     \r\n\r\n get (Query) ZEP type:  Q          "
              "ACK,Q,4   Types: 1=NONE, 2=Isus, 3=Dura, 4=Isus+Dura\r\n"
              "term time = 3000 msec\r\n"});
    EXPECT_EQ(big.size() - big.rfind("term time = 3000 msec\r\n"), 23u);
}

// A receive ended by Ctrl-C also ends a calibration file's.
TEST_F(Host, FileReceiveClearsTheCalibrationFileFlag) {
    calFileFlg = 1;
    sim::console_feed("\x03");
    dispatch("yr");
    EXPECT_EQ(calFileFlg, 0);
}

TEST_F(Host, ReceiverLineDiscipline) {
    const std::string ver = "Fenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt;
    struct Step {
        const char *typed; // nullptr: a fresh start
        uint32_t ms;       // then run this long
        std::string out;   // exact console bytes
        const char *after; // "result/state/Enters counted/line kept"
    };
    const Step steps[] = {
        {"VERSION\r", 60, "VERSION\r\n" + ver, "2/0/0/"},
        // A host that ends its lines with CR LF gets one NAK more per line.
        {"ver\r\n", 60, "ver\r\n" + ver + "NAK\r\n" + kPrompt, "1/0/0/"},
        {"bogus\r", 60, "bogus\r\nNAK\r\n" + kPrompt, "2/0/0/"},
        {"sex\r", 60, "sex\r\nNAK\r\n" + kPrompt, "2/0/0/"},
        // Not a first letter of any command: answered at once.
        {"a", 60, "NAK\r\n" + kPrompt, "1/0/0/"},
        {"7", 60, "NAK\r\n" + kPrompt, "1/0/0/"},
        // Backspace erases on the line and in the buffer.
        {"verq\bsion\r", 60, "verq\b \bsion\r\n" + ver, "2/0/0/"},
        // A line without its carriage return runs 250 ms after its last letter.
        {"version", 100, "version", "2/2/0/version"},
        {"", 200, "\r\n" + ver, "2/0/0/"},
        // The fourth Enter in a row opens the menu with the next byte; others restart the count.
        {"\r\r\r", 60, kPrompt + kPrompt + kPrompt, "1/0/3/"},
        {"\r", 60, kPrompt, "1/1/0/"},
        {nullptr, 0, "", ""},
        {"\r\r\r1\r\r\r", 60,
         kPrompt + kPrompt + kPrompt + "NAK\r\n" + kPrompt + kPrompt + kPrompt + kPrompt, "1/0/3/"},
        // Wake bytes are swallowed; the term time or a non-letter returns to idle.
        {"<<ts", 60, "", "2/3/0/ts"},
        {"", 400, kPrompt, "2/0/0/"},
        {"<1", 60, kPrompt, "2/0/0/"},
        {"ver\r", 60, "ver\r\n" + ver, "2/0/0/"},
        {"\xAA\xAAts", 60, "", "2/3/0/ts"},
        {"", 400, kPrompt, "2/0/0/"},
        {"\xAA\x31", 60, kPrompt, "2/0/0/"}, // "1"
        {"ver\r", 60, "ver\r\n" + ver, "2/0/0/"},
    };
    for (const Step &st : steps) {
        if (st.typed == nullptr) {
            fresh();
            continue;
        }
        SCOPED_TRACE(std::string("typed \"") + st.typed + "\"");
        int32_t r = 0;
        EXPECT_EQ(type(st.typed, st.ms, &r), st.out);
        EXPECT_EQ(std::to_string(r) + "/" + std::to_string(rx0.state) + "/" +
                      std::to_string(rx0.cr_cnt) + "/" + reinterpret_cast<const char *>(rx0.buf),
                  st.after);
    }
    // A longer term time waits longer; "ts" in mode 0 ends the awake period the same way.
    apf_set_h2m_timeout(2);
    EXPECT_EQ(type("ver", 1500), "ver");
    EXPECT_EQ(type("", 600), "\r\n" + ver);
    int32_t r = 0;
    type("ts", 2400, &r);
    EXPECT_EQ(r, -1);
}

TEST_F(Host, CommandsThatEndTheAwakePeriod) {
    struct Case {
        const char *line;
        uint32_t mode;
        bool ends;
    };
    const Case cases[] = {
        {"sleep\r", 0, true}, {"stop\r", 1, true}, {"slp\r", 2, true}, {"off\r", 0, true},
        {"ts\r", 0, true},    {"sl\r", 0, true},   {"ts\r", 1, false}, {"sl\r", 2, false},
        {"ss\r", 0, false},   {"t0\r", 1, false},  {"s1\r", 0, false}, {"w\r", 0, false},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.line) + " in mode " + std::to_string(c.mode));
        fresh();
        apf.sys_sensor_mode = c.mode;
        int32_t r = 0;
        std::string out = type(c.line, 60, &r);
        // Ended: the receive state is left as it was, no prompt.
        bool prompt = out.size() >= 3 && out.substr(out.size() - 3) == kPrompt;
        EXPECT_EQ(row(r > 0 ? 1 : r, rx0.state, prompt), c.ends ? "-1,2,0" : "1,0,1");
    }
}

TEST_F(Host, LongLinesAreCutAt63Characters) {
    type("g" + std::string(99, 'x'));
    EXPECT_EQ(
        row(rx0.state, rx0.indx, strlen(reinterpret_cast<const char *>(rx0.buf)), rx0.buf[62]),
        row(2, 63, 63, 'x'));
    // 10,000 characters and binary bytes neither overrun nor hang the receiver.
    std::string burst = "s";
    for (int i = 0; i < 10000; i++) {
        burst += (char)(i * 37 + 11);
    }
    type(burst + "\r", 2000);
    EXPECT_LE(rx0.indx, 63u);
    EXPECT_EQ(sys_data.sampling_period, 10u);
}

TEST_F(Host, StateMachineResetClearsTheLineButKeepsTheTermTime) {
    apf_set_h2m_timeout(3);
    memset(rx0.buf, 'q', sizeof(rx0.buf));
    rx0.indx = 40;
    rx0.state = 3;
    rx0.cmd = 5;
    m2m_statemachine_init();
    EXPECT_EQ(take(), kPrompt);
    EXPECT_EQ(row(rx0.state, rx0.indx, rx0.cmd, rx0.tick_ms_delim), "0,0,0,3000");
    EXPECT_EQ(std::string(rx0.buf, rx0.buf + sizeof rx0.buf), std::string(sizeof rx0.buf, '\0'));
    rx0.state = 4; // reserved: bytes are ignored
    type("x");
    EXPECT_EQ(rx0.state, 4u);
    rx0.state = 9; // anything else: back to idle
    type("x");
    EXPECT_EQ(rx0.state, 0u);
}

TEST_F(Host, DefaultSetsErrorLogAndStartUp) {
    init_uSDCard();
    take();
    SetDefaultsIntoNVRAM();
    EXPECT_EQ(take(), "\r\n\r\n  System Default Values loaded into FRAM!\r\n\r\n"
                      "\r\n  ISUS Default Values loaded into FRAM!\r\n"
                      "\r\n  DuraFET Default Values loaded into FRAM!\r\n");
    // The loading itself is logged as a system error (-116).
    EXPECT_EQ(row(apf.sys_serial_num, apf.sys_sensor_type, apf.sys_sf_limit, apf.isus_spec_period,
                  apf.isus_pixel_end, apf.dura_samps_per_cal, apf.dura_led_enable,
                  apf.sys_error_ctr, apf.sys_last_error),
              "777,4,256,1000,87,250,1,1,65420");
    EXPECT_EQ(row(stored().sys_serial_num, stored().sys_error_ctr), "777,1");

    // The error log: dated lines on the card, the counters by the error's kind.
    memset(&apf, 0, sizeof(apf));
    f_unlink("ERROR.LOG");
    EXPECT_EQ(LogErrorMsg("CTD Command ACK Failure", -110, 1), 0);
    EXPECT_EQ(take(), "12/31/2024 23:59:59, -110, CTD Command ACK Failure\r\n");
    EXPECT_EQ(row(apf.sys_error_ctr, apf.sys_last_error, apf.sys_error_time),
              row(1, 65426, (uint16_t)kNewYearsEve));
    HibernateRTCSet(kNewYearsEve + 1);
    EXPECT_EQ(LogErrorMsg("lamp", -250, 0), 0);
    EXPECT_EQ(take(), "");
    EXPECT_EQ(row(apf.isus_error_ctr, apf.isus_error_time, apf.isus_last_error),
              row(1, kNewYearsEve + 1, (uint32_t)-250));
    EXPECT_EQ(LogErrorMsg("pH", -301, 0), 0);
    EXPECT_EQ(LogErrorMsg("other", -5, 0), 0);
    EXPECT_EQ(row(apf.dura_error_ctr, apf.sys_error_ctr, rtc.current_time),
              row(1, 1, kNewYearsEve + 1));
    EXPECT_EQ(bench::card("ERROR.LOG"), "E, 12/31/2024 23:59:59, -110, CTD Command ACK Failure\n"
                                        "E, 01/01/2025 00:00:00, -250, lamp\n"
                                        "E, 01/01/2025 00:00:00, -301, pH\n"
                                        "E, 01/01/2025 00:00:00, -5, other\n");

    // Start-up rebuilds the record from FRAM.
    apf.sys_reset_ctr = 4;
    apf.sys_por_ctr = 9;
    apf.sys_por_flag = apf.gotSample = 1;
    apf.isus_pixel_beg = 17;
    apf.isus_pixel_end = 87;
    apf.sys_sensor_mode = 2;
    fram_apf_vars_store();
    memset(&apf, 0, sizeof(apf));
    HibernateRTCSet(1234567u);
    init_zep();
    EXPECT_EQ(row(apf.sys_reset_ctr, apf.sys_por_ctr, apf.sys_reset_time, apf.isus_reset_flag,
                  apf.dura_reset_flag, apf.sys_sensor_mode, apf.gotSample, apf.CTD_Time,
                  apf.CTD_Temp, apf.acquire_time, apf.isus_fit_pixels, Zcoefs),
              "5,10,1234567,1,1,0,0,0,-1,-1,71,0");
    EXPECT_EQ(take(), "");
    dev_init_apf_vars();
    EXPECT_EQ(row(apf.sys_sensor_mode, sys_data.app_cfg[11]), "1,0");
}

// Four Enters power down a spectrometer left on; "m" opens the menu; two prompts after.
TEST(HostScenario, MenuRequestAndMenuCommand) {
    scenario::Board b;
    b.run("1 ver\\r\n");
    auto fram = b.fram();
    ASSERT_GE(fram.size(), 300u);
    fram[FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_spec_pwr)] =
        fram[FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_lamp_pwr)] = 1;
    b.writeFram(fram);
    // The first byte wakes the board and is lost.
    auto r =
        b.run("1 \\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 6\\r\n6 m\\r\n8 6\\r\n10 ver\\r\n");
    EXPECT_NE(r.out.find("\r\n  Spectrometer Power was left ON! Powering DOWN...\r\n"
                         "\r\n  Fiberlight Power was left ON! Powering DOWN...\r\n"),
              std::string::npos);
    size_t sel = r.out.find("Enter Selection: ", r.out.find(">m\r\n"));
    ASSERT_NE(sel, std::string::npos);
    EXPECT_NE(r.out.find("\r\n>\r\n>", sel), std::string::npos);
    EXPECT_NE(r.out.find("ver\r\nFenwa v5.0.3 ZEP3 123g revB\r\n\r\n>", sel), std::string::npos);
    EXPECT_EQ(row(fram_field(b.fram(), offsetof(apfGlobals, isus_spec_pwr)),
                  fram_field(b.fram(), offsetof(apfGlobals, isus_lamp_pwr))),
              "0,0");
}

} // namespace
