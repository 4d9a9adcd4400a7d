// Host command line: the keyword table row by row, the receiver's line
// discipline, the handlers' exact replies, and the float-controller record's
// defaults and error log. Runs the firmware in-process on the simulated board;
// the menu paths run through the simulator program (scenario harness).
#include <gtest/gtest.h>

#include "sim.h"

#include <cstring>
#include <string>
#include <vector>

#include "board/board_util.h"
#include "board/i2c0.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "core/main.h"
#include "core/system.h"
#include "eeprom.h"
#include "ff.h"
#include "files/config.h"
#include "files/microsd.h"
#include "files/ymodem.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "host/serial_cmd_fxn.h"
#include "interrupt.h"
#include "scenario.h"
#include "sysctl.h"

namespace {

constexpr uint32_t kNewYearsEve = 1735689599; // 12/31/24 23:59:59 UTC
const std::string kPrompt = "\r\n>";

class Host : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        i2c0_init();
        fresh();
    }

    // Firmware RAM as after a start with a plain record.
    void fresh() {
        memset(&sys_data, 0, sizeof(sys_data));
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        sys_data.sampling_period = 10;
        strcpy(sys_data.fileName, "noname.txt");
        memset(&sys_samp, 0, sizeof(sys_samp));
        sys_samp.initNum = SYS_SAMP_INIT_NUM;
        memset(&apf, 0, sizeof(apf));
        memset(&rx0, 0, sizeof(rx0));
        apf_set_m2m_timeout();
        databarFlg = 0;
        barfSampleTime = 5;
        calFileFlg = 0;
        mmsDbgFlg = 0;
        HibernateRTCSet(kNewYearsEve);
        UARTEchoSet(0);
        take();
    }

    // Everything the console has sent so far.
    std::string take() { return bench::take(); }

    // Puts a line into the receive buffer as the receiver would (lower case)
    // and dispatches it; returns the dispatcher's result.
    uint32_t dispatch(const std::string &line) {
        memset(rx0.buf, 0, sizeof(rx0.buf));
        size_t n = std::min(line.size(), sizeof(rx0.buf) - 1);
        for (size_t i = 0; i < n; i++) {
            char c = line[i];
            rx0.buf[i] = (uint8_t)((c >= 'A' && c <= 'Z') ? c + 32 : c);
        }
        rx0.indx = (uint32_t)n;
        return parse_rx0_buf();
    }

    // Steps the receiver for `ms` of simulated time; returns -1 as soon as a
    // command ends the awake period, else the last non-zero result.
    int32_t pump(uint32_t ms) {
        uint32_t t0 = Timer_1ms(0);
        int32_t last = 0;
        while (Timer_1ms(0) - t0 < ms) {
            int32_t r = handle_m2m_comm();
            if (r < 0) {
                return r;
            }
            if (r != 0) {
                last = r;
            } else {
                SysCtlSleep();
            }
        }
        return last;
    }

    // Types bytes at the console and runs the receiver well inside the term time.
    std::string type(const std::string &bytes, int32_t *result = nullptr, uint32_t ms = 60) {
        sim::console_feed(bytes);
        int32_t r = pump(ms);
        if (result != nullptr) {
            *result = r;
        }
        return take();
    }

    uint8_t stored_cfg(uint32_t idx) {
        uint32_t words[sizeof(systemData) / 4];
        EEPROMRead(words, SYS_DATA_EEPROM_ADDR, sizeof(systemData));
        return reinterpret_cast<const uint8_t *>(words)[offsetof(systemData, data_cfg) + idx];
    }
};

// ---- the keyword table, row by row ------------------------------------------
// Rows whose reply another table checks byte for byte (the float-controller
// dialect, period, term time, version) are not repeated here.

struct Row {
    std::string line;
    uint32_t code;   // dispatcher's result
    const char *out; // exact reply (nullptr: the handler's own suite checks it)
};

const Row kRows[] = {
    {"biasneg set 1", 28, nullptr}, // kept: runs the test
    {"biasneg get", 28, nullptr},
    {"biaspos get", 31, nullptr}, // get is looked for at 5
    {"config glider", 82, nullptr},
    {"rtc,1727464426", 116, nullptr},
    {"spectra,?", 123, nullptr},
    {"spectra,210,221", 122, nullptr},
    {"config help", 77, "not available\r\n"},
    {"e", 107, "NAK,E,InvalidModeValue: 0\r\n"},
    {"filename", 18, "noname.txt"},
    {"filesystem", 18, "noname.txt"}, // "file" comes first
    {"getfilename", 19, ""},          // 11 characters: the set form
    {"getperiod", 14, "10"},
    {"microsd", 84, "0"},
    {"microsd 1", 85, ""},
    {"m2m", 133, "term time = 250 msec"},
    {"period", 14, "10"},
    {"per 5", 14, "10"},
    {"sample 3", 93, ""},
    {"sampnum", 90, "#0000000\r\n"},
    {"sampnum 7", 90, "#0000000\r\n"},
    {"setfilename log.dat", 19, ""},
    {"settime 12/31/24 23:59:59", 12, ""},
    {"sex", 0, ""},
    {"sleep", 10, ""},
    {"nap", 10, ""},
    {"zz", 10, ""},
    {"zzz", 10, ""},
    {"quit", 10, ""},
    {"stop", 10, ""},
    {"exit", 10, ""},
    {"slp", 10, ""},
    {"store", 84, "0"},
    {"store 1", 85, ""},
    {"timestamp", 89, ""},
    {"time", 11, "12/31/24 23:59:59"},
    {"tint,?", 126, "TINT,?,0\r\n"},
    {"ver", 80, "Fenwa v5.0.3 ZEP3 123g revB\r\n"},
    {"xyz", 0, ""},
};

// Keywords whose replies other tables check (the float controller's dialect
// in apf_test, each handler in its own suite): the dispatcher's result only.
// "gettime" (7 characters) is the set form.
struct Code {
    const char *line;
    uint32_t code;
};
const Code kCodes[] = {
    {"bake,10", 100}, {"biasneg", 28}, {"c", 101},      {"c1", 103},     {"c2", 102},
    {"cal", 104},     {"config", 81},  {"ctd,?", 106},  {"dev", 148},    {"ec", 7},
    {"fit,?", 109},   {"fit", 108},    {"gc", 6},       {"gh1", 154},    {"gh2", 155},
    {"gh", 8},        {"gm", 9},       {"help", 13},    {"hh", 149},     {"h", 132},
    {"init", 110},    {"ls", 136},     {"mode,?", 112}, {"mode,1", 111}, {"off", 113},
    {"p", 114},       {"rtc,?", 117},  {"s", 118},      {"se,?", 120},   {"se", 119},
    {"sl", 5},        {"stat", 148},   {"ss", 4},       {"s1", 152},     {"s2", 153},
    {"sys", 134},     {"t", 124},      {"gettime", 12}, {"ts", 3},       {"type,3", 150},
    {"t0", 145},      {"t1", 128},     {"t2", 129},     {"w", 127},      {"wdog", 146},
    {"ys", 143},      {"yr", 144},     {"TS", 3},       {"Ts", 3},
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
        fresh();
        databarFlg = 1;
        if (row.line == "yr") {
            sim::console_feed("\x03"); // the receiver waits for a sender until a byte comes
        }
        uint32_t code = dispatch(row.line);
        std::string out = take();
        EXPECT_EQ(code, row.code) << "line \"" << row.line << "\"";
        if (row.code != 0) {
            EXPECT_EQ(rx0.cmd, row.code) << "line \"" << row.line << "\"";
        }
        if (row.out != nullptr) {
            EXPECT_EQ(out, row.out) << "line \"" << row.line << "\"";
        }
        // Only the sleep family ends continuous sampling ("slp" only ends the session).
        bool clears = row.code == 10 && row.line != "slp";
        EXPECT_EQ(databarFlg, clears ? 0u : 1u) << "line \"" << row.line << "\"";
    }
}

TEST_F(Host, MenuEntryAnswers83WithoutStoringIt) {
    // The menu itself runs in the scenario below; here only the match rules.
    rx0.cmd = 42;
    EXPECT_EQ(dispatch("ma"), 0u); // "m" matches a one-letter line only
    EXPECT_EQ(rx0.cmd, 42u);
    EXPECT_EQ(dispatch("mz"), 0u);
}

TEST_F(Host, SamplingEntriesFollowTheSensorMode) {
    struct Case {
        const char *line;
        uint32_t mode;
        const char *prefix; // exact start of the reply
        bool whole;         // and all of it (else a sample line follows)
    };
    const Case cases[] = {
        {"ts", 0, "", false},
        {"ts", 1, "ACK,TS,CMD\r\nNAK,TS,CMD\r\n", true}, // no spectrometer
        {"ts", 2, "", false},                            // the pH record
        {"ts", 5, "NAK,MODE=5\r\n", true},
        {"ss", 0, "", false},
        {"ss", 1, "", true}, // "ss" announces nothing
        {"ss", 2, "", false},
        {"ss", 7, "NAK,MODE=7\r\n", true},
        {"sl", 0, "serial sl apf_send_last_sample\r\n", false},
        {"sl", 1, "apf_send_last_nitrate, byteCnt is 0\r\nNAK,SL\r\n", true},
        {"sl", 2, "serial sl apf_send_last_ph\r\nDBG: apf_send_last_pH, byteCnt is 0\r\nNAK,SL\r\n",
         true},
        {"sl", 3, "", true},
    };
    for (const Case &c : cases) {
        fresh();
        apf.sys_sensor_mode = c.mode;
        dispatch(c.line);
        std::string out = take();
        EXPECT_EQ(c.whole ? out : out.substr(0, strlen(c.prefix)), c.prefix)
            << c.line << " mode " << c.mode;
    }
    struct ModeSwitch {
        const char *line;
        uint32_t mode;
    };
    for (const ModeSwitch &m : {ModeSwitch{"s1", 1}, {"s2", 2}, {"t0", 0}, {"t1", 1}, {"t2", 2}}) {
        fresh();
        apf.sys_sensor_mode = 9;
        dispatch(m.line);
        take();
        EXPECT_EQ(apf.sys_sensor_mode, m.mode) << m.line;
    }
}

TEST_F(Host, TermTimeCommands) {
    struct Case {
        const char *line;
        uint32_t ms;
    };
    for (const Case &c : {Case{"hh", 2000},
                          {"hhh", 2000},
                          {"hhhh", 3000},
                          {"hhhhh", 4000},
                          {"help", 1000},
                          {"h", 1000},
                          {"m2m", 250}}) {
        fresh();
        apf_set_h2m_timeout(7);
        dispatch(c.line);
        take();
        EXPECT_EQ(apf_get_h2m_timeout(), c.ms) << c.line;
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

// ---- column switches --------------------------------------------------------

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
        fresh();
        if (c.preset >= 0) {
            sys_data.data_cfg[c.preset] = 1;
        }
        if (c.preset2 >= 0) {
            sys_data.data_cfg[c.preset2] = 1;
        }
        dispatch(c.line);
        EXPECT_EQ(sys_data.data_cfg[c.idx], c.expect) << c.line;
        if (c.other >= 0) {
            EXPECT_EQ(sys_data.data_cfg[c.other], c.otherExpect) << c.line;
        }
        if (std::string(c.line) != "biasneg set 1") {
            EXPECT_EQ(stored_cfg(c.idx), c.expect) << c.line << " (stored)";
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
    sys_data.data_cfg[CFG_TIMESTAMP] = 2;
    HibernateRTCSet(2208963603u); // the column's offset plus one second
    cmd_test_timestamp(1);
    EXPECT_EQ(take(), "         1000");
    sys_data.data_cfg[CFG_TIMESTAMP] = 1;
    HibernateRTCSet(kNewYearsEve);
    cmd_test_timestamp(1);
    EXPECT_EQ(take(), "12/31/2024 23:59:59");
    sys_data.data_cfg[CFG_TIMESTAMP] = 0;
    cmd_test_timestamp(1);
    EXPECT_EQ(take(), "");
}

// ---- commands with an argument ---------------------------------------------

TEST_F(Host, PeriodLimits) {
    struct Case {
        const char *line;
        uint8_t aligned;
        const char *reply;
        uint32_t period;
    };
    const Case cases[] = {
        {"period 3600", 0, "", 3600},
        {"period 3601", 0, "\r\nEnter time less than or equal to 3600 sec", 10},
        {"period 0", 0, "\r\nEnter seconds greater than or equal to 0 and less than 3600\r\n", 10},
        {"period 00", 0, "\r\nEnter seconds greater than or equal to 0 and less than 3600\r\n", 10},
        {"period 05", 0, "", 5},
        {"per 20", 0, "", 20},
        {"setperiod 30", 0, "", 30},
        {"period 99999999999", 0, "\r\nEnter time less than or equal to 3600 sec", 10},
        {"period 7", 1,
         "\r\nAligned=Y, sample period must evenly divide hour (e.g. 5, 10, 15, 20, 30 minutes)",
         10},
        {"period 20", 1, "", 20},
    };
    for (const Case &c : cases) {
        fresh();
        sys_data.sample_aligned = c.aligned;
        dispatch(c.line);
        EXPECT_EQ(take(), c.reply) << c.line;
        EXPECT_EQ(sys_data.sampling_period, c.period) << c.line;
    }
}

TEST_F(Host, SettingTheClock) {
    struct Case {
        const char *line;
        const char *reply;
        uint32_t rtc;
    };
    const uint32_t before = 1000000000u;
    const Case cases[] = {
        {"time 12/31/24 23:59:59", "", kNewYearsEve},
        {"settime 11/05/23 01:02:03", "", 1699146123u},
        {"time 12/31/24 23:59:61", "", 1735689601u},   // leap second bound as written
        {"time 11/31/24 00:00:00", "", 1733011200u},   // normalised to 1 December
        {"time 01/31/24 23:59:59", "NAK\r\n", before}, // months below 10 lose their layout
        {"time 12/31/24 24:00:00", "", before},        // out of range: silent
        {"time 13/01/24 00:00:00", "", before},
        {"time 12/00/24 10:00:00", "NAK\r\n", before},
        {"time 12-31-24", "NAK\r\n", before},
        {"time now please", "NAK\r\n", before},
    };
    for (const Case &c : cases) {
        fresh();
        HibernateRTCSet(before);
        dispatch(c.line);
        EXPECT_EQ(take(), c.reply) << c.line;
        EXPECT_NEAR((double)HibernateRTCGet(), (double)c.rtc, 1.0) << c.line;
    }
}

TEST_F(Host, FileNameCases) {
    struct Case {
        const char *line;
        const char *reply;
        const char *name;
    };
    const Case cases[] = {
        {"filename data.txt", "", "data.txt"},
        {"filename data.text", "", "data.tex"},
        {"filename 2024.txt", "", "txt"},
        {"setfilename LOG.DAT", "", "log.dat"},
        {"filename abcdefghi.txt", "filename is too long, needs to be 8.3 format\r\n",
         "noname.txt"},
        {"filename 12345", "", "noname.txt"},
        {"filename a.b.cdefg", "", "a.b.c"},
    };
    for (const Case &c : cases) {
        fresh();
        dispatch(c.line);
        EXPECT_EQ(take(), c.reply) << c.line;
        EXPECT_STREQ(sys_data.fileName, c.name) << c.line;
    }
    // The stored name is the reply's format text; a lone "%" is shown as is.
    fresh();
    strcpy(sys_data.fileName, "a%%b%s.txt");
    dispatch("filename");
    EXPECT_EQ(take(), "a%b%s.txt");
}

TEST_F(Host, CardSwitchReadTurnsItOnInRam) {
    dispatch("microsd");
    EXPECT_EQ(take(), "0");
    EXPECT_EQ(sys_data.app_cfg[APPCFG_MICROSD_ENABLE], 1);
    struct Case {
        const char *line;
        uint8_t flag;
    };
    for (const Case &c : {Case{"microsd 1", 1}, {"microsd 0", 0}, {"store 1", 1}, {"store x", 0}}) {
        fresh();
        sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 7;
        dispatch(c.line);
        EXPECT_EQ(take(), "");
        EXPECT_EQ(sys_data.app_cfg[APPCFG_MICROSD_ENABLE], c.flag) << c.line;
    }
}

TEST_F(Host, SampleCounterAndContinuousSampling) {
    sys_samp.current_sample = 41;
    dispatch("sampnum");
    EXPECT_EQ(take(), "#0000041\r\n");
    dispatch("sampnum restart");
    EXPECT_EQ(take(), "#0000000\r\n");
    EXPECT_EQ(sys_samp.current_sample, 0u);

    struct Case {
        const char *line;
        uint32_t seconds;
    };
    for (const Case &c : {Case{"sample 3", 5}, {"sample 12", 1}, {"sample 27", 2}, {"sample", 5}}) {
        fresh();
        dispatch(c.line);
        EXPECT_EQ(take(), "") << c.line;
        EXPECT_EQ(databarFlg, 1u) << c.line;
        EXPECT_EQ(barfSampleTime, c.seconds) << c.line;
    }
}

TEST_F(Host, OutputPresetsSetTheColumnsOfTheirFunction) {
    struct Case {
        const char *line;
        void (*preset)(int); // nullptr: the exact reply below
        const char *reply;
    };
    const Case cases[] = {
        {"config glider", config_data_fields_glider, nullptr},
        {"config wirewalker", config_data_fields_wirewalker, nullptr},
        {"config vexa", config_data_fields_vexa, nullptr},
        {"config quorl", config_data_fields_quorl, nullptr},
        {"config m2m quorl", config_data_fields_m2m_quorl, nullptr},
        {"config nanofet", config_data_fields_nanofet, nullptr},
        {"config all", config_data_fields_all, nullptr},
        {"config 1", config_data_fields_all, nullptr},
        {"config none", config_data_fields_none, nullptr},
        {"config 0", config_data_fields_none, nullptr},
        {"config test", nullptr, "not available\r\n"},
        {"config h", nullptr, "not available\r\n"},
        {"config bogus", nullptr, "NAK\r\n"},
    };
    for (const Case &c : cases) {
        fresh();
        uint8_t want[sizeof sys_data.data_cfg];
        if (c.preset != nullptr) {
            c.preset(0);
            memcpy(want, sys_data.data_cfg, sizeof want);
            fresh();
        }
        dispatch(c.line);
        std::string out = take();
        if (c.preset != nullptr) {
            EXPECT_EQ(memcmp(sys_data.data_cfg, want, sizeof want), 0) << c.line;
        } else {
            EXPECT_EQ(out, c.reply) << c.line;
        }
    }
}

TEST_F(Host, HelpTextsAndVersion) {
    dispatch("help");
    EXPECT_EQ(take(), "** datalogger setup:  0 for off, 1 for on\r\n"
                      " time, gettime\r\n"
                      " time MM/DD/YY HH:MM:SS, settime MM/DD/YY HH:MM:SS\r\n"
                      " per, period, getperiod\r\n"
                      " per 20, period 20, setperiod 20\r\n"
                      " config, getconfig \r\n"
                      " config, setconfig\r\n"
                      " config help\r\n"
                      " filename, getfilename\r\n"
                      " filename filename.ext, setfilename filename.ext\r\n"
                      " microsd, store align\r\n"
                      "** commands:\r\n"
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

TEST_F(Host, FileTransferCommands) {
    dispatch("ys");
    std::string out = take();
    EXPECT_EQ(out.substr(0, 54), "ymodem send not parsing filename yet, serial_cmd_fxn\r\n");
    calFileFlg = 1;
    // The receiver asks for a sender until a byte comes: Ctrl-C ends it.
    sim::console_feed("\x03");
    dispatch("yr");
    EXPECT_NE(take().find("Ymodem aborted: Packet timeout error"), std::string::npos);
    EXPECT_EQ(calFileFlg, 0);
}

// ---- the receiver -------------------------------------------------------------

TEST_F(Host, ReceiverEchoesDispatchesAndPrompts) {
    int32_t r = 0;
    EXPECT_EQ(type("VERSION\r", &r), "VERSION\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt);
    EXPECT_GT(r, 0);
    EXPECT_EQ(rx0.state, 0u);
    // A host that ends its lines with CR LF gets one NAK more per line.
    EXPECT_EQ(type("ver\r\n"),
              "ver\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt + "NAK\r\n" + kPrompt);
    EXPECT_EQ(type("bogus\r"), "bogus\r\nNAK\r\n" + kPrompt);
    EXPECT_EQ(type("sex\r"), "sex\r\nNAK\r\n" + kPrompt);
    // Not a first letter of any command: answered at once.
    EXPECT_EQ(type("a"), "NAK\r\n" + kPrompt);
    EXPECT_EQ(type("7"), "NAK\r\n" + kPrompt);
    // Backspace erases on the line and in the buffer.
    EXPECT_EQ(type("verq\bsion\r"), "verq\b \bsion\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt);
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
        fresh();
        apf.sys_sensor_mode = c.mode;
        int32_t r = 0;
        std::string out = type(c.line, &r);
        if (c.ends) {
            EXPECT_EQ(r, -1) << c.line << " mode " << c.mode;
            // The receive state is left as it was: no prompt.
            EXPECT_EQ(rx0.state, 2u) << c.line;
            ASSERT_GE(out.size(), 3u) << c.line;
            EXPECT_NE(out.substr(out.size() - 3), kPrompt) << c.line;
        } else {
            EXPECT_GT(r, 0) << c.line << " mode " << c.mode;
            ASSERT_GE(out.size(), 3u) << c.line;
            EXPECT_EQ(out.substr(out.size() - 3), kPrompt) << c.line;
        }
    }
}

TEST_F(Host, LongLinesAreCutAt63Characters) {
    type("g" + std::string(99, 'x'));
    EXPECT_EQ(rx0.state, 2u);
    EXPECT_EQ(rx0.indx, 63u);
    EXPECT_EQ(strlen(reinterpret_cast<const char *>(rx0.buf)), 63u);
    EXPECT_EQ(rx0.buf[62], 'x');
    // 10,000 characters and binary bytes neither overrun nor hang the receiver.
    std::string burst = "s";
    for (int i = 0; i < 10000; i++) {
        burst += (char)(i * 37 + 11);
    }
    type(burst + "\r", nullptr, 2000);
    EXPECT_LE(rx0.indx, 63u);
    EXPECT_EQ(sys_data.sampling_period, 10u);
}

TEST_F(Host, LineEndsByItselfAfterTheTermTime) {
    // "version" without a carriage return: nothing happens within 250 ms of
    // the last character, then it runs.
    EXPECT_EQ(type("version", nullptr, 100), "version");
    EXPECT_EQ(pump(200), 2);
    EXPECT_EQ(take(), "\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt);
    // "ts" in mode 0 ends the awake period the same way.
    int32_t r = 0;
    type("ts", &r, 400);
    EXPECT_EQ(r, -1);
    // A longer term time waits longer.
    fresh();
    apf_set_h2m_timeout(2);
    EXPECT_EQ(type("ver", nullptr, 1500), "ver");
    pump(600);
    EXPECT_EQ(take(), "\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt);
}

TEST_F(Host, WakeBytesAreSwallowed) {
    for (const std::string &wake : {std::string("<"), std::string("\xAA")}) {
        fresh();
        type(wake + wake + "ts");
        EXPECT_EQ(rx0.state, 3u);
        EXPECT_EQ(std::string(reinterpret_cast<const char *>(rx0.buf)), "ts");
        EXPECT_EQ(take(), ""); // no echo
        int32_t r = pump(400); // the term time resets it to idle without dispatch
        EXPECT_GT(r, 0);
        EXPECT_EQ(rx0.state, 0u);
        EXPECT_EQ(take(), kPrompt);
        // A non-letter after the wake byte returns to idle at once.
        EXPECT_EQ(type(wake + "1"), kPrompt);
        EXPECT_EQ(rx0.state, 0u);
        EXPECT_EQ(type("ver\r"), "ver\r\nFenwa v5.0.3 ZEP3 123g revB\r\n" + kPrompt);
    }
}

TEST_F(Host, FourCarriageReturnsRequestTheMenu) {
    EXPECT_EQ(type("\r\r\r"), kPrompt + kPrompt + kPrompt);
    EXPECT_EQ(rx0.state, 0u);
    EXPECT_EQ(type("\r"), kPrompt);
    EXPECT_EQ(rx0.state, 1u); // the next byte opens the menu
    // Anything else in between starts the count again.
    fresh();
    type("\r\r\r1\r\r\r");
    EXPECT_EQ(rx0.state, 0u);
    EXPECT_EQ(rx0.cr_cnt, 3u);
}

TEST_F(Host, StateMachineResetClearsTheLineButKeepsTheTermTime) {
    apf_set_h2m_timeout(3);
    memset(rx0.buf, 'q', sizeof(rx0.buf));
    rx0.indx = 40;
    rx0.state = 3;
    rx0.cmd = 5;
    m2m_statemachine_init();
    EXPECT_EQ(take(), kPrompt);
    EXPECT_EQ(rx0.state, 0u);
    EXPECT_EQ(rx0.indx, 0u);
    EXPECT_EQ(rx0.cmd, 0u);
    EXPECT_EQ(rx0.tick_ms_delim, 3000u);
    for (uint8_t b : rx0.buf) {
        EXPECT_EQ(b, 0);
    }
    rx0.state = 4; // reserved: bytes are ignored
    type("x");
    EXPECT_EQ(rx0.state, 4u);
    rx0.state = 9; // anything else: back to idle
    type("x");
    EXPECT_EQ(rx0.state, 0u);
}

// ---- float-controller record ----------------------------------------------------

TEST_F(Host, DefaultSetsAndTheirMessages) {
    init_uSDCard();
    take();
    SetDefaultsIntoNVRAM();
    EXPECT_EQ(take(), "\r\n\r\n  System Default Values loaded into FRAM!\r\n\r\n"
                      "\r\n  ISUS Default Values loaded into FRAM!\r\n"
                      "\r\n  DuraFET Default Values loaded into FRAM!\r\n");
    EXPECT_EQ(apf.sys_serial_num, 777);
    EXPECT_EQ(apf.sys_sensor_type, 4);
    EXPECT_EQ(apf.sys_sf_limit, 256u);
    EXPECT_EQ(apf.isus_spec_period, 1000u);
    EXPECT_EQ(apf.isus_pixel_end, 87u);
    EXPECT_EQ(apf.dura_samps_per_cal, 250u);
    EXPECT_EQ(apf.dura_led_enable, 1u);
    // The loading itself is logged as a system error.
    EXPECT_EQ(apf.sys_error_ctr, 1);
    EXPECT_EQ(apf.sys_last_error, (uint16_t)-116);
    apfGlobals stored;
    fram_read(FRAM_ADDR_APF_VARS, reinterpret_cast<uint8_t *>(&stored), sizeof(stored));
    EXPECT_EQ(stored.sys_serial_num, 777);
    EXPECT_EQ(stored.sys_error_ctr, 1);
}

TEST_F(Host, ErrorLogAppendsDatedLines) {
    init_uSDCard();
    take();
    EXPECT_EQ(LogErrorMsg("CTD Command ACK Failure", -110, 1), 0);
    EXPECT_EQ(take(), "12/31/2024 23:59:59, -110, CTD Command ACK Failure\r\n");
    EXPECT_EQ(apf.sys_error_ctr, 1);
    EXPECT_EQ(apf.sys_last_error, (uint16_t)-110);
    EXPECT_EQ(apf.sys_error_time, (uint16_t)kNewYearsEve);
    HibernateRTCSet(kNewYearsEve + 1);
    EXPECT_EQ(LogErrorMsg("lamp", -250, 0), 0);
    EXPECT_EQ(take(), "");
    EXPECT_EQ(apf.isus_error_ctr, 1u);
    EXPECT_EQ(apf.isus_error_time, kNewYearsEve + 1);
    EXPECT_EQ(apf.isus_last_error, (uint32_t)-250);
    EXPECT_EQ(LogErrorMsg("pH", -301, 0), 0);
    EXPECT_EQ(apf.dura_error_ctr, 1u);
    EXPECT_EQ(LogErrorMsg("other", -5, 0), 0);
    EXPECT_EQ(apf.sys_error_ctr, 1);
    EXPECT_EQ(rtc.current_time, kNewYearsEve + 1);

    EXPECT_EQ(bench::card("ERROR.LOG"), "E, 12/31/2024 23:59:59, -110, CTD Command ACK Failure\n"
                                        "E, 01/01/2025 00:00:00, -250, lamp\n"
                                        "E, 01/01/2025 00:00:00, -301, pH\n"
                                        "E, 01/01/2025 00:00:00, -5, other\n");
}

TEST_F(Host, StartUpRebuildsTheRecordFromFram) {
    apf.sys_reset_ctr = 4;
    apf.sys_por_ctr = 9;
    apf.sys_por_flag = 1;
    apf.isus_pixel_beg = 17;
    apf.isus_pixel_end = 87;
    apf.sys_sensor_mode = 2;
    apf.gotSample = 1;
    fram_apf_vars_store();
    memset(&apf, 0, sizeof(apf));
    HibernateRTCSet(1234567u);
    init_zep();
    EXPECT_EQ(apf.sys_reset_ctr, 5u);
    EXPECT_EQ(apf.sys_por_ctr, 10u);
    EXPECT_EQ(apf.sys_reset_time, 1234567u);
    EXPECT_EQ(apf.isus_reset_flag, 1u);
    EXPECT_EQ(apf.dura_reset_flag, 1u);
    EXPECT_EQ(apf.sys_sensor_mode, 0u);
    EXPECT_EQ(apf.gotSample, 0u);
    EXPECT_EQ(apf.CTD_Time, 0u);
    EXPECT_EQ(apf.CTD_Temp, -1.0f);
    EXPECT_EQ(apf.acquire_time, -1.0f);
    EXPECT_EQ(apf.isus_fit_pixels, 71u);
    EXPECT_EQ(Zcoefs, 0);
    EXPECT_EQ(take(), "");

    dev_init_apf_vars();
    EXPECT_EQ(apf.sys_sensor_mode, 1u);
    EXPECT_EQ(sys_data.app_cfg[11], 0);
}

// ---- menu paths, through the simulator program ----------------------------------

TEST(HostScenario, MenuCommandPrintsThePromptTwiceOnReturn) {
    scenario::Board b;
    auto r = b.run("1 m\\r\n3 6\\r\n5 ver\\r\n");
    size_t menu = r.out.find(">m\r\n");
    ASSERT_NE(menu, std::string::npos);
    size_t sel = r.out.find("Enter Selection: ", menu);
    ASSERT_NE(sel, std::string::npos);
    EXPECT_NE(r.out.find("\r\n>\r\n>", sel), std::string::npos);
    EXPECT_NE(r.out.find("ver\r\nFenwa v5.0.3 ZEP3 123g revB\r\n\r\n>", sel), std::string::npos);
}

TEST(HostScenario, MenuRequestPowersDownALeftOnSpectrometer) {
    scenario::Board b;
    b.run("1 ver\\r\n");
    auto fram = b.fram();
    ASSERT_GE(fram.size(), 300u);
    fram[FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_spec_pwr)] = 1;
    fram[FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_lamp_pwr)] = 1;
    b.writeFram(fram);
    // The first byte wakes the board and is lost.
    auto r = b.run("1 \\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 6\\r\n");
    EXPECT_NE(r.out.find("\r\n  Spectrometer Power was left ON! Powering DOWN...\r\n"
                         "\r\n  Fiberlight Power was left ON! Powering DOWN...\r\n"),
              std::string::npos);
    auto after = b.fram();
    EXPECT_EQ(scenario::u32(after, FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_spec_pwr)), 0u);
    EXPECT_EQ(scenario::u32(after, FRAM_ADDR_APF_VARS + offsetof(apfGlobals, isus_lamp_pwr)), 0u);
}

} // namespace
