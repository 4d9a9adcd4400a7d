// The serial instrument drivers stepped by hand against the instrument models
// of the simulated board: for each driver a good reply, silence, a late reply,
// an over-long reply and line noise give the column text, the returned states
// and the driver state they must. A scripted line covers the parse cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "devices.h"
#include "inst_models.h"
#include "scenario.h"
#include "sim.h"

#include "board/board_util.h"
#include "board/uart3.h"
#include "board/uart4.h"
#include "board/uartstdio.h"
#include "core/system.h"
#include "instruments/ctd_aand5860.h"
#include "instruments/ctd_base.h"
#include "instruments/ctd_sbe37.h"
#include "instruments/nanofet.h"
#include "instruments/ocr.h"
#include "instruments/optode.h"
#include "instruments/picoph.h"
#include "interrupt.h"
#include "sysctl.h"

namespace {

// A line that answers exact bytes: after it has heard `trigger` (or, with an
// empty trigger, when the port comes up at its rate) it sends `reply`
// `delayMs` later, paced at its rate.
class ScriptedLine : public sim::SerialDevice {
  public:
    struct Step {
        std::string trigger;
        std::string reply;
        double delayMs;
    };
    ScriptedLine(uint32_t baud, std::vector<Step> steps) : baud_(baud), steps_(std::move(steps)) {}

    uint64_t next_byte_at() override {
        return q_.empty() ? sim::kNever : std::max(q_.front().first, free_) + byteCycles();
    }
    uint8_t take_byte() override {
        free_ = next_byte_at();
        uint8_t b = q_.front().second;
        q_.pop_front();
        return b;
    }
    void receive(uint8_t byte, uint64_t at) override {
        heard += char(byte);
        fire(at);
    }
    void line_rate(uint32_t baud) override {
        if (baud == baud_) {
            heard.clear();
            next_ = 0;
            q_.clear();
            fire(sim::now_cycles());
        }
    }
    std::string heard;

  private:
    uint64_t byteCycles() const { return 10 * sim::kCpuHz / baud_; }
    void fire(uint64_t at) {
        while (next_ < steps_.size()) {
            const Step &s = steps_[next_];
            if (!s.trigger.empty() && heard.find(s.trigger) == std::string::npos) {
                return;
            }
            uint64_t when = at + uint64_t(s.delayMs * double(sim::kCyclesPerMs));
            for (char c : s.reply) {
                q_.emplace_back(when, uint8_t(c));
            }
            next_++;
        }
    }
    uint32_t baud_;
    std::vector<Step> steps_;
    size_t next_ = 0;
    std::deque<std::pair<uint64_t, uint8_t>> q_;
    uint64_t free_ = 0;
};

struct Steps {
    std::vector<int> returns;
    double seconds = 0;
};

class InstrumentsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        UARTFlushTx(true);
        UARTFlushRx();
        uart3_tx_bufr_flush(1);
        uart3_rx_bufr_flush();
        uart4_tx_bufr_flush(1);
        uart4_rx_bufr_flush();
        sim::Environment e;
        e.ph = 7.9;
        e.temp_c = 12.0;
        e.salinity = 34.0;
        e.seed = 7;
        sim::set_environment(e);
        sim::reset_board();
        IntMasterEnable();
        SysTickPeriodSet(50000);
        SysTickEnable();
        SysTickIntEnable();
        UARTStdioConfig(0, 115200, 16000000);
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        sys_data.diag = 0;
        sys_data.data_cfg[CFG_UART3_INST] = 0;
        sys_data.data_cfg[CFG_UART4_INST] = 0;
        sys_samp.sensor_sal = 30.0f;
        ctd = ctdDriver{};
        std::fill(std::begin(uart3_prn_buf), std::end(uart3_prn_buf), 0);
        std::fill(std::begin(uart4_prn_buf), std::end(uart4_prn_buf), 0);
        sim::console_take();
    }
    void TearDown() override { sim::set_environment(sim::Environment()); }

    // Steps a dispatcher from 1 until it returns 0 (at most a minute of
    // simulated time).
    static Steps drive(int (*dispatch)(int)) {
        Steps s;
        double t0 = sim::now_seconds();
        int state = 1;
        while (state != 0 && sim::now_seconds() - t0 < 60.0) {
            state = dispatch(state);
            s.returns.push_back(state);
        }
        s.seconds = sim::now_seconds() - t0;
        wait_consoleTx();
        return s;
    }
    static std::string console() {
        wait_consoleTx();
        return sim::console_take();
    }
    static std::string column3() { return std::string((const char *)uart3_prn_buf); }
    static std::string column4() { return std::string((const char *)uart4_prn_buf); }

    // The returned states with runs of one value shown once: "2 3 0".
    static std::string runs(const std::vector<int> &r) {
        std::string s;
        for (size_t i = 0; i < r.size(); i++) {
            if (i == 0 || r[i] != r[i - 1]) {
                s += (s.empty() ? "" : " ") + std::to_string(r[i]);
            }
        }
        return s;
    }
};

std::string map(std::string s, char from, char to) {
    std::replace(s.begin(), s.end(), from, to);
    return s;
}
std::string upto(const std::string &s, char end) {
    return s.substr(0, s.find(end));
}

const char *const kSbeTimeout =
    "CTD not responding with SBE37 data, check connection, make sure data config is SBE37";
const char *const kSbeOverflow = "ST7: error in ctd driver bufIndx exceeds buf size, ctd";

} // namespace

TEST_F(InstrumentsTest, Sbe37RepliesFaultsAndColumn) {
    struct Case {
        const char *fault;
        std::string column; // "" = the model's reply as the driver keeps it
        int state;
        float sal;
        const char *runs;
    } cases[] = {
        {"", "", 0, 34.0f, "2 3 0"},
        {"silent", kSbeTimeout, -1, 30.0f, "2 3 0"},
        {"late", kSbeTimeout, -1, 30.0f, "2 3 0"},
        {"long", kSbeOverflow, -1, 30.0f, "2 3 0"},
        {"garbage", kSbeOverflow, -1, 30.0f, "2 3 0"},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART4_INST] = 6;
        auto m = std::make_shared<sim::Sbe37Model>();
        m->fault = c.fault;
        sim::attach_serial(UART4_BASE, m);
        Steps s = drive(uart4_stateMachine);
        std::string want = c.column.empty() ? map(upto(m->reply(), '\r'), ',', '\t') : c.column;
        EXPECT_EQ(column4(), want) << c.fault;
        EXPECT_EQ(ctd.state, c.state) << c.fault;
        EXPECT_EQ(ctd.type, c.state == 0 ? 6u : 0u) << c.fault;
        EXPECT_EQ(sys_samp.sensor_sal, c.sal) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), "") << c.fault;
        if (std::string(c.fault) != "silent") {
            EXPECT_EQ(m->heard, "\rts\r") << c.fault;
        }
        if (*c.fault == 0) {
            EXPECT_EQ(want, "12\t4\t34.00\td\tt") << "15 characters with the CR";
            EXPECT_EQ(ctd.tempC, 12.0f);
            EXPECT_EQ(ctd.salt, 34.0f);
        }
        if (std::string(c.fault) == "silent") {
            // 0.9 s ready wait, 40 ms of command, 3.5 s for the reply
            EXPECT_NEAR(s.seconds, 4.44, 0.03);
        }
    }
}

TEST_F(InstrumentsTest, Sbe37ParseAndConfigurationCases) {
    struct Case {
        const char *reply;
        uint8_t type;
        float temp, sal, sensorSal;
        const char *console;
    } cases[] = {
        {"1.5,3,34.9,d,t\n", 6, 1.5f, 34.9f, 34.9f, ""},
        {"1.5,3,34.9,d,t<more", 6, 1.5f, 34.9f, 34.9f, ""},
        {"1.5,3.2\n", 6, 0.0f, 0.0f, 0.0f,
         "\r\nError:  sscanf for parsing MicroCat does not return 5 args.  ctd.state = 3.  TempC "
         "and salt are 0.0\r\n1.5\t3.2\r\n"},
        {"1.5,3,34.9,d,t\n", 7, 0.0f, 0.0f, 30.0f,
         "Error: sys_data.data_cfg[CFG_UART4_INST] = 7, no driver for this CTD type, Config -> "
         "Data Fields\r\n"},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART4_INST] = c.type;
        sim::attach_serial(UART4_BASE,
                           std::make_shared<ScriptedLine>(
                               9600, std::vector<ScriptedLine::Step>{{"ts\r", c.reply, 500}}));
        Steps s = drive(ctd_sbe37_stateMachine);
        EXPECT_EQ(ctd.tempC, c.temp) << c.reply;
        EXPECT_EQ(ctd.salt, c.sal) << c.reply;
        EXPECT_EQ(sys_samp.sensor_sal, c.sensorSal) << c.reply;
        EXPECT_EQ(console(), c.console) << c.reply;
        if (c.type == 7) {
            EXPECT_EQ(s.returns, std::vector<int>{0});
            EXPECT_EQ(ctd.type, 0u);
        }
    }
    // Neither type nor state outside the machine.
    SetUp();
    EXPECT_EQ(ctd_sbe37_stateMachine(9), 0);
    EXPECT_EQ(ctd.state, -1);
    EXPECT_EQ(ctd_sbe37_stateMachine(0), 0);
    EXPECT_EQ(ctd.state, 0);
}

TEST_F(InstrumentsTest, CtdLinkBufferAndWait) {
    EXPECT_EQ(ctd_tx_buf_size(), 16u);
    EXPECT_EQ(ctd_rx_buf_size(), 16u);
    ctd_open();
    for (int i = 0; i < 15; i++) {
        EXPECT_EQ(ctd_buf_putc('a'), 1);
    }
    EXPECT_EQ(ctd_buf_putc('b'), 0);
    EXPECT_EQ(ctd.bufIndx, 15u);
    EXPECT_EQ(console(), "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n");
    sys_data.diag = 1;
    ctd.bufIndx = 15;
    EXPECT_EQ(ctd_buf_putc('c'), 0);
    EXPECT_EQ(console(), "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n"
                         "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n");

    ctd_init();
    double t0 = sim::now_seconds();
    EXPECT_EQ(ctd_waitRx(7), 7u);
    EXPECT_NEAR(sim::now_seconds() - t0, 0.07, 0.011);
}

TEST_F(InstrumentsTest, Aand5860RepliesFaultsAndColumn) {
    sim::Aand5860Model probe;
    probe.fault = "long";
    const std::string longReply = probe.long_reply();
    struct Case {
        const char *fault;
        std::string column; // "" = computed below
        int state;
        float sal;
        const char *runs;
    } cases[] = {
        {"", "0 0 4 12 34 0 0", 0, 34.0f, "4 5 0"},
        {"silent", "CTD not responding with Aanderaa % then ! after powerup", -1, 30.0f, "4 0"},
        {"late", "CTD not responding with sample string after do sample", -1, 30.0f, "4 5 0"},
        {"long", longReply.substr(0, 16), -1, 30.0f, "4 5 0"},
        {"garbage", "", -1, 30.0f, "4 5 0"},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART4_INST] = 7;
        auto m = std::make_shared<sim::Aand5860Model>();
        m->fault = c.fault;
        sim::attach_serial(UART4_BASE, m);
        Steps s = drive(uart4_stateMachine);
        std::string want = c.column;
        if (std::string(c.fault) == "garbage") {
            want = m->said.substr(2, 16); // after "%" and "!"
        }
        EXPECT_EQ(column4(), want) << c.fault;
        EXPECT_EQ(ctd.state, c.state) << c.fault;
        EXPECT_EQ(sys_samp.sensor_sal, c.sal) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), "") << c.fault;
        if (*c.fault == 0) {
            EXPECT_EQ(m->heard, std::string("\r\ndo sample\r\n\0", 14));
            EXPECT_EQ(ctd.condo, 4.0f);
            EXPECT_EQ(ctd.tempC, 12.0f);
        }
    }
}

TEST_F(InstrumentsTest, Aand5860HandshakeAndParseCases) {
    using Step = ScriptedLine::Step;
    struct Case {
        std::vector<Step> steps;
        int state;
        std::string column;
        float sal;
        const char *console;
    } cases[] = {
        {{{"", "%", 300}, {"\r\n", "!", 2}, {"do sample", "1 2 3 4 5 6 7#", 100}},
         0,
         "1 2 3 4 5 6 7",
         5.0f,
         ""},
        // a CR inside the reply ends the text there
        {{{"", "%", 300}, {"\r\n", "!", 2}, {"do sample", "1 2\r3 4 5 6 7#", 100}},
         0,
         "1 2",
         0.0f,
         "\r\nError:  sscanf for parsing Aanderaa 5860 does not return 7 args.  ctd.type = 7.  "
         "TempC and salt are 0.0\r\n\r\nCheck setup of Aanderaa 5860, enable derived, raw, etc.   "
         "To Fix, use Test Menu, Communicate with Instrument\r\n"},
        // "%" and then anything but "!": no second chance
        {{{"", "%", 300}, {"\r\n", "?", 2}}, -1, "", 30.0f, ""},
        // "%" and then nothing: given up after 2 s rather than waiting forever
        {{{"", "%", 300}}, -1, "", 30.0f, ""},
        // a pause inside the reply
        {{{"", "%", 300}, {"\r\n", "!", 2}, {"do sample", "1 2 3", 100}},
         -1,
         "CTD driver Err: inter-character delay exceeded 50msec receiving do_sample string",
         30.0f,
         ""},
    };
    for (auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART4_INST] = 7;
        sim::attach_serial(UART4_BASE, std::make_shared<ScriptedLine>(9600, c.steps));
        Steps s = drive(ctd_aand5860_stateMachine);
        EXPECT_EQ(ctd.state, c.state) << c.column;
        EXPECT_EQ(column4(), c.column);
        EXPECT_EQ(sys_samp.sensor_sal, c.sal) << c.column;
        EXPECT_EQ(console(), c.console);
        EXPECT_LT(s.seconds, 8.0);
    }
    // With diag on the console gets the texts too.
    SetUp();
    sys_data.diag = 1;
    sys_data.data_cfg[CFG_UART4_INST] = 7;
    sim::attach_serial(UART4_BASE, std::make_shared<ScriptedLine>(
                                       9600, std::vector<Step>{{"", "%", 300}, {"\r\n", "x", 2}}));
    drive(ctd_aand5860_stateMachine);
    EXPECT_EQ(console(), "CTD Err: did not receive ! after crlf following %\r\n");

    SetUp();
    sys_data.data_cfg[CFG_UART4_INST] = 6;
    EXPECT_EQ(ctd_aand5860_stateMachine(1), 0);
    EXPECT_EQ(console(), "Error: sys_data.data_cfg[CFG_UART4_INST] = 6, no driver for this CTD "
                         "type, Config -> Data Fields\r\n");
}

TEST_F(InstrumentsTest, OptodeRepliesFaultsAndColumn) {
    sim::OptodeModel probe;
    const std::string good = upto(probe.reply(), '\r');
    const std::string longReply = probe.long_reply();
    const std::string overflow =
        "\r\nDEBUG: error in optode driver bufIndx exceeds buf size, optode\r\n";
    struct Case {
        const char *fault;
        std::string column;
        int state;
        const char *runs;
        std::string console;
    } cases[] = {
        {"", good, 0, "2 4 0", ""},
        {"silent", "Optode not responding with % char after power up", -1, "2 0", ""},
        {"late", "Optode not responding with sample string after do sample", -1, "2 4 0", ""},
        {"long", longReply.substr(0, 64), -1, "2 4 0", overflow},
        {"garbage",
         "Optode Err ST4: inter-character delay exceeded 50msec receiving do_sample string", 4,
         "2 4 0", ""},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 1;
        auto m = std::make_shared<sim::OptodeModel>();
        m->fault = c.fault;
        sim::attach_serial(UART3_BASE, m);
        Steps s = drive(uart3_stateMachine);
        EXPECT_EQ(column3(), c.column) << c.fault;
        EXPECT_EQ(optode.state, c.state) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), c.console) << c.fault;
    }
    EXPECT_EQ(good.substr(0, 9), "4831\t856\t");
    EXPECT_EQ(good.substr(good.size() - 14), "\t98.000\t12.000");
}

TEST_F(InstrumentsTest, OptodeHandshakeCases) {
    using Step = ScriptedLine::Step;
    const std::string line63(63, 'x');
    struct Case {
        std::vector<Step> steps;
        int state;
        std::string column;
        const char *runs;
    } cases[] = {
        // a "%" followed by anything but "!" restarts the 1.6 s wait
        {{{"", "%", 1000}, {"\r\n", "?", 2}},
         -1,
         "Optode not responding with % char after power up",
         "2 0"},
        {{{"", "%", 100}, {"\r\n", "!", 2}, {"do sample", line63 + "#", 50}}, 0, line63, "2 4 0"},
        {{{"", "%", 100}, {"\r\n", "!", 2}, {"do sample", line63 + "y#", 50}},
         -1,
         line63 + "y",
         "2 4 0"},
    };
    for (auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 1;
        sim::attach_serial(UART3_BASE, std::make_shared<ScriptedLine>(9600, c.steps));
        Steps s = drive(optode_stateMachine);
        EXPECT_EQ(optode.state, c.state);
        EXPECT_EQ(column3(), c.column);
        EXPECT_EQ(runs(s.returns), c.runs);
        if (c.state == -1 && c.column.size() < 64) {
            // 1 s to the "%", then 1.6 s from it
            EXPECT_NEAR(s.seconds, 2.6, 0.03);
        }
    }
    EXPECT_EQ(optode_tx_buf_size(), 64u);
    // State 3 is reached only when asked for.
    SetUp();
    optode_init();
    optode.old_tick10ms = Timer_10ms(0);
    EXPECT_EQ(optode_stateMachine(3), 3);
}

TEST_F(InstrumentsTest, PicophRepliesFaultsAndColumn) {
    sim::PicophModel good, longer;
    longer.fault = "long";
    const std::string noReply = "Pico-pH not responding to MEAS command";
    struct Case {
        const char *fault;
        std::string column;
        const char *runs;
        std::string console;
    } cases[] = {
        {"", map(upto(good.reply(), '\r'), ' ', '\t'), "2 3 4 5 7 0", ""},
        {"silent", noReply, "2 3 4 0", ""},
        {"late", noReply, "2 3 4 0", ""},
        {"long", map(longer.reply(), ' ', '\t').substr(0, 64), "2 3 4 5 0",
         "\r\nDEBUG: error in picoph driver, bufIndx exceeds buf size. picoph\r\n"},
        {"garbage", noReply, "2 3 4 0", ""},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 4;
        auto m = std::make_shared<sim::PicophModel>();
        m->fault = c.fault;
        sim::attach_serial(UART3_BASE, m);
        Steps s = drive(uart3_stateMachine);
        EXPECT_EQ(column3(), c.column) << c.fault;
        EXPECT_EQ(picoph.state, 0) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), c.console) << c.fault;
        if (c.fault != std::string("silent")) {
            EXPECT_EQ(m->heard, "MEA 1 47\r") << c.fault;
        }
    }
    EXPECT_EQ(cases[0].column, "MEA\t1\t47\t0\t7900\t12000\t2315");
    EXPECT_GE(longer.reply().size(), 65u);
    SetUp();
    EXPECT_EQ(picoph_stateMachine(6), 0);
    EXPECT_EQ(console(), "\r\nERROR: Pico-pH statemachine error - should not get to default\r\n");
}

TEST_F(InstrumentsTest, PicophLineTimeOut) {
    using Step = ScriptedLine::Step;
    sys_data.data_cfg[CFG_UART3_INST] = 4;
    sim::attach_serial(UART3_BASE, std::make_shared<ScriptedLine>(
                                       19200, std::vector<Step>{{"MEA 1 47\r", "xyMEA 1 47", 50}}));
    Steps s = drive(uart3_stateMachine);
    EXPECT_EQ(column3(), "pico-pH did not finish transmit data");
    EXPECT_EQ(runs(s.returns), "2 3 4 5 0");
}

TEST_F(InstrumentsTest, OcrRepliesFaultsAndColumn) {
    sim::OcrModel good, longer;
    longer.fault = "long";
    const std::string noFrame = "SATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999";
    struct Case {
        const char *fault;
        std::string column;
        int state;
        const char *runs;
        std::string console;
    } cases[] = {
        {"", upto(good.reply(), '\r'), 0, "2 3 4 5 7 0", ""},
        {"silent", noFrame, 0, "2 3 4 0", ""},
        {"late", noFrame, 0, "2 3 4 0", ""},
        {"long", longer.reply().substr(0, 64), -1, "2 3 4 5 0",
         "\r\nDEBUG: error in ocr driver bufIndx exceeds buf size, ocr\r\n"},
        {"garbage", noFrame, 0, "2 3 4 0", ""},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 2;
        auto m = std::make_shared<sim::OcrModel>();
        m->fault = c.fault;
        sim::attach_serial(UART3_BASE, m);
        Steps s = drive(uart3_stateMachine);
        EXPECT_EQ(column3(), c.column) << c.fault;
        EXPECT_EQ(ocr.state, c.state) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), c.console) << c.fault;
    }
    // Frames ended by LF alone or CR alone are taken too.
    for (const char *end : {"\n", "\r"}) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 2;
        sim::attach_serial(UART3_BASE,
                           std::make_shared<ScriptedLine>(
                               57600, std::vector<ScriptedLine::Step>{
                                          {"\r\n", std::string("xSAT\t1") + end + "S", 10}}));
        drive(uart3_stateMachine);
        EXPECT_EQ(column3(), "SAT\t1");
    }
    // State 6 asks for another frame only while more than one is due.
    ocr.dataCnt = 2;
    EXPECT_EQ(ocr_stateMachine(6), 3);
    EXPECT_EQ(ocr_stateMachine(6), 7);
}

TEST_F(InstrumentsTest, NanofetRepliesFaultsAndColumn) {
    sim::NanofetModel good, longer;
    longer.fault = "long";
    const std::string noReply = "NanoFET not responding with sample string after ts";
    struct Case {
        const char *fault;
        std::string column;
        int state;
        const char *runs;
        std::string console;
    } cases[] = {
        {"", upto(good.reply(), '\r'), 3, "2 3 0", ""},
        {"silent", noReply, -1, "2 0", ""},
        {"late", noReply, -1, "2 0", ""},
        {"long", longer.reply().substr(0, 64), -1, "2 0",
         "\r\nDEBUG: error in nanofet driver bufIndx exceeds buf size, nanofet\r\n"},
        {"garbage", noReply, -1, "2 0", ""},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 3;
        auto m = std::make_shared<sim::NanofetModel>();
        m->fault = c.fault;
        sim::attach_serial(UART3_BASE, m);
        Steps s = drive(uart3_stateMachine);
        EXPECT_EQ(column3(), c.column) << c.fault;
        EXPECT_EQ(nanofet.state, c.state) << c.fault;
        EXPECT_EQ(runs(s.returns), c.runs) << c.fault;
        EXPECT_EQ(console(), c.console) << c.fault;
        if (c.fault != std::string("silent")) {
            EXPECT_EQ(m->heard, " \r\n\r\nts\r\n") << c.fault;
        }
    }
    EXPECT_EQ(cases[0].column.substr(0, 14), "7.9000\t12.000\t");
}

TEST_F(InstrumentsTest, NanofetLineCases) {
    using Step = ScriptedLine::Step;
    struct Case {
        std::string reply;
        std::string column;
    } cases[] = {
        {"4831\t856\t286.196\r\n", "4831\t856\t286.196"},
        {"48\n31\r", "48\n31"}, // a LF before the CR stays in the column
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = 3;
        sim::attach_serial(UART3_BASE, std::make_shared<ScriptedLine>(
                                           115200, std::vector<Step>{{"ts\r\n", c.reply, 100}}));
        Steps s = drive(nanofet_stateMachine);
        EXPECT_EQ(column3(), c.column);
        EXPECT_EQ(s.returns.back(), 0);
        EXPECT_EQ(s.returns[s.returns.size() - 2], 3);
    }
}

// An instrument at another rate than the port: it understands nothing.
TEST_F(InstrumentsTest, ModelsAnswerOnlyAtTheirRate) {
    sys_data.data_cfg[CFG_UART3_INST] = 4; // picoPH driver, 19200 baud
    auto m = std::make_shared<sim::OptodeModel>();
    sim::attach_serial(UART3_BASE, m);
    drive(uart3_stateMachine);
    EXPECT_EQ(column3(), "Pico-pH not responding to MEAS command");
    EXPECT_EQ(m->heard, "");
    EXPECT_FALSE(m->rate_ok());
}

TEST(InstrumentModels, Water) {
    // PSS-78: S = 35 at 15 degrees is the standard seawater conductivity
    EXPECT_NEAR(sim::seawater_conductivity(35.0, 15.0), 4.2914, 1e-4);
    EXPECT_GT(sim::seawater_conductivity(34.0, 12.0), 3.8);
    EXPECT_LT(sim::seawater_conductivity(34.0, 12.0), sim::seawater_conductivity(34.0, 13.0));
    // Garcia and Gordon: about 274 umol/kg at 10 degrees, S 35
    EXPECT_NEAR(sim::oxygen_solubility(35.0, 10.0), 274.6, 1.0);
}

// ---- whole samples on the simulated board ----------------------------------

namespace {

// A new board whose factory record polls the given instruments.
void board_with(const scenario::Board &b, uint8_t uart3, uint8_t uart4) {
    std::array<uint8_t, sim::kEepromBytes> img;
    std::string why;
    ASSERT_TRUE(sim::factory_eeprom(img, why)) << why;
    systemData d;
    memcpy(&d, &img[SYS_DATA_EEPROM_ADDR], sizeof d);
    d.data_cfg[CFG_UART3_INST] = uart3;
    d.data_cfg[CFG_UART4_INST] = uart4;
    memcpy(&img[SYS_DATA_EEPROM_ADDR], &d, sizeof d);
    std::filesystem::create_directories(b.dir());
    b.writeEeprom(std::vector<uint8_t>(img.begin(), img.end()));
}

// The sample line of a host's sample command.
std::string sample_line(const std::string &out) {
    size_t p = out.find("\r\n#0");
    if (p == std::string::npos) {
        return "";
    }
    return out.substr(p + 2, out.find("\r\n", p + 2) - p - 2);
}

} // namespace

TEST(InstrumentScenario, SampleLinesCarryTheInstrumentColumns) {
    const char *script =
        "1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 6\\r\n4 t0\\r\n"; // "t0": a pH sample
    struct Case {
        uint8_t uart3, uart4;
        std::vector<std::string> args;
        std::string tail; // the end of the sample line
    } cases[] = {
        {1, 6, {"--inst", "optode", "--ctd", "sbe37"}, "\t4831\t856\t"},
        {4,
         7,
         {"--inst", "picoph", "--ctd", "aand5860", "--ctd-fault", "silent"},
         "\tMEA\t1\t47\t0\t7900\t12000\t2315\tCTD not responding with Aanderaa % then ! after "
         "powerup"},
        {2,
         6,
         {"--inst", "ocr", "--inst-fault", "late", "--ctd", "sbe37", "--ctd-fault", "long"},
         "\tSATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999\t"
         "ST7: error in ctd driver bufIndx exceeds buf size, ctd"},
        {3,
         5, // no CTD polled
         {"--inst", "nanofet", "--ctd", "sbe37"},
         "\t7.9000\t12.000\t-0.894"},
    };
    for (auto &c : cases) {
        scenario::Board b;
        board_with(b, c.uart3, c.uart4);
        std::vector<std::string> args = {"--ph", "7.9", "--temp", "12", "--sal", "34"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        auto r = b.run(script, 0, args);
        ASSERT_EQ(r.status, 0) << r.err;
        std::string line = sample_line(r.out);
        ASSERT_FALSE(line.empty()) << r.out;
        if (c.uart3 == 1) {
            EXPECT_NE(line.find(c.tail), std::string::npos) << line;
            EXPECT_NE(line.find("\t98.000\t12.000\t12\t4\t34.00\td\tt"), std::string::npos) << line;
        } else if (c.uart3 == 3) {
            EXPECT_NE(line.find(c.tail), std::string::npos) << line;
            EXPECT_EQ(line.find("\t34.00\td\tt"), std::string::npos) << line;
        } else {
            EXPECT_EQ(line.substr(line.size() - c.tail.size()), c.tail) << line;
        }
    }
}

// Each dispatcher value reaches its driver: the first step of each.
TEST_F(InstrumentsTest, PortDispatchersReachEachDriver) {
    struct {
        int port;
        uint8_t inst;
        int first;
        const int32_t *state;
    } cases[] = {
        {3, 1, 2, &optode.state}, {3, 2, 2, &ocr.state}, {3, 3, 2, &nanofet.state},
        {3, 4, 2, &picoph.state}, {4, 6, 2, &ctd.state}, {4, 7, 4, &ctd.state},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.data_cfg[CFG_UART3_INST] = c.port == 3 ? c.inst : 0;
        sys_data.data_cfg[CFG_UART4_INST] = c.port == 4 ? c.inst : 0;
        int r = c.port == 3 ? uart3_stateMachine(1) : uart4_stateMachine(1);
        EXPECT_EQ(r, c.first) << int(c.inst);
        EXPECT_EQ(*c.state, c.first) << int(c.inst);
        EXPECT_EQ(console(), "");
    }
}

// With sys_data.diag set, each failure also tells the console.
TEST_F(InstrumentsTest, DiagnosticCopiesOnTheConsole) {
    struct {
        int port;
        uint8_t inst;
        const char *model, *fault, *console;
    } cases[] = {
        {4, 6, "sbe37", "long", "\r\nST7: error in ctd driver bufIndx exceeds buf size, ctd\r\n"},
        {4, 6, "sbe37", "silent", ""},
        {4, 7, "aand5860", "silent",
         "\r\nNo CTD response in 2.5sec, statemachine pumping too slow or instrument not "
         "connected\r\n"},
        {4, 7, "aand5860", "long",
         "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd_base\r\n"},
        {4, 7, "aand5860", "garbage",
         "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd_base\r\n"},
        {3, 1, "optode", "silent",
         "\r\nOptode power on did not receive % char delimiter in 600msec - check optode "
         "connection or setup\r\n"},
        {3, 1, "optode", "late",
         "\r\nOptode power on did not receive sample string after do sample - check optode "
         "connection or setup\r\n"},
        {3, 1, "optode", "garbage",
         "\r\nDEBUG: inter-character delay exceeded 50msec receiving do_sample string\r\n"},
        {3, 4, "picoph", "silent",
         "\r\nPico-pH did not send expected response to measure command in 800 msec - check "
         "connection or setup\r\n"},
        {3, 2, "ocr", "silent",
         "\r\nOCR power on did not receive expected response to CR-LF in 1600msec - check ocr "
         "connection or setup\r\n"},
        {3, 3, "nanofet", "silent",
         "\r\nNanoFET power on did not receive sample string after sending ts - check nanofet "
         "connection or setup\r\n"},
    };
    for (const auto &c : cases) {
        SetUp();
        sys_data.diag = 1;
        sys_data.data_cfg[CFG_UART3_INST] = c.port == 3 ? c.inst : 0;
        sys_data.data_cfg[CFG_UART4_INST] = c.port == 4 ? c.inst : 0;
        auto m = c.port == 3 ? sim::make_inst_model(c.model) : sim::make_ctd_model(c.model);
        ASSERT_TRUE(m);
        m->fault = c.fault;
        sim::attach_serial(c.port == 3 ? UART3_BASE : UART4_BASE, m);
        drive(c.port == 3 ? uart3_stateMachine : uart4_stateMachine);
        EXPECT_EQ(console(), c.console) << c.model << " " << c.fault;
    }
}
