// The serial instrument drivers stepped by hand against the instrument models
// of the simulated board: for each driver a good reply, silence, a late reply,
// an over-long reply and line noise give the column text, the returned states
// and the driver state they must. A scripted line covers the parse cases.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <deque>
#include <fstream>
#include <memory>
#include <sstream>
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

const char *const kSbeTimeout =
    "CTD not responding with SBE37 data, check connection, make sure data config is SBE37";
const char *const kSbeOverflow = "ST7: error in ctd driver bufIndx exceeds buf size, ctd";

} // namespace

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

TEST_F(InstrumentsTest, PicophLineTimeOut) {
    using Step = ScriptedLine::Step;
    sys_data.data_cfg[CFG_UART3_INST] = 4;
    sim::attach_serial(UART3_BASE, std::make_shared<ScriptedLine>(
                                       19200, std::vector<Step>{{"MEA 1 47\r", "xyMEA 1 47", 50}}));
    Steps s = drive(uart3_stateMachine);
    EXPECT_EQ(column3(), "pico-pH did not finish transmit data");
    EXPECT_EQ(runs(s.returns), "2 3 4 5 0");
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
         "\t12000\t12850\t41872\t12\t1013\t35000\t104690\t0\t\tCTD not responding with Aanderaa % "
         "then ! after powerup"},
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

// Each instrument's good reply against its manual's example, and each fault
// knob of each model driving its driver into the specified ending: the column
// text, the driver's state, the CTD salinity (30 = kept from before) and a
// console message (sys_data.diag is on).
TEST_F(InstrumentsTest, EachModelAnswersAsItsManualAndEachFaultReachesItsEnding) {
    struct {
        std::string got, manual;
    } examples[] = {
        // SBE37-SM manual, OutputFormat=1 with the pressure sensor
        {sim::Sbe37Model::factory_line(24.8339, 0.97795, -9.262, -1, 947220699),
         "24.8339,  0.97795,   -9.262, 07 Jan 2000, 04:51:39\r\n"},
        {sim::Sbe37Model::factory_line(12.0, 3.895, 0.0, 34.0, 1704110400),
         "12.0000,  3.89500,    0.000,  34.0000, 01 Jan 2024, 12:00:00\r\n"},
        {sim::OptodeModel::line(283.45, 98.0, 12.0), "4831\t856\t283.450\t98.000\t12.000\r\n"},
        {sim::Aand5860Model::line(38.95, 12.0, 34.0, 1026.152, 1497.68),
         "5860\t412\t38.950\t12.000\t34.000\t1026.152\t1497.680\r\n"},
        {sim::PicophModel::line(7.9, 12.0, 12.85),
         "MEA 1 47 0 23390 0 0 0 12000 12850 41872 12 1013 35000 104690 0 0 7900 0 0 0\r"},
        {sim::OcrModel::line(std::array<double, 4>{61.2345, 73.4561, 80.1123, 55.0987}.data()),
         "SATFI40278\t61.2345\t73.4561\t80.1123\t55.0987\r\n"},
    };
    for (const auto &e : examples) {
        EXPECT_EQ(e.got, e.manual);
    }

    const std::string pico64 =
        "MEA\t1\t47\t0\t23390\t0\t0\t0\t12000\t12850\t41872\t12\t1013\t35000\t104690\t0\t";
    const char *sbeParse = "sscanf for parsing MicroCat does not return 5 args";
    const char *aanParse = "sscanf for parsing Aanderaa 5860 does not return 7 args";
    const char *aanGap =
        "CTD driver Err: inter-character delay exceeded 50msec receiving do_sample "
        "string";
    const char *optGap = "Optode Err ST4: inter-character delay exceeded 50msec receiving "
                         "do_sample string";
    const char *ocrErr = "SATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999";
    const char *picoNone = "Pico-pH not responding to MEAS command";
    const char *nanoNone = "NanoFET not responding with sample string after ts";
    struct Case {
        const char *inst, *fault;
        std::string column;
        int state;
        float sal;
        const char *console; // a message the console must show ("" = none looked for)
    } cases[] = {
        {"sbe37", "", "12\t4\t34.00\td\tt", 0, 34, ""},
        {"sbe37", "silent", kSbeTimeout, -1, 30, ""},
        {"sbe37", "late", kSbeTimeout, -1, 30, ""},
        {"sbe37", "wake", kSbeTimeout, -1, 30, ""},
        {"sbe37", "stall", kSbeTimeout, -1, 30, ""},
        {"sbe37", "garbage", kSbeOverflow, -1, 30, "ST7: error in ctd driver"},
        {"sbe37", "long", kSbeOverflow, -1, 30, "ST7: error in ctd driver"},
        {"sbe37", "partial", "12\t4\t34", 0, 0, sbeParse},
        {"sbe37", "unparsable", "X2\t4\t34.00\td\tt", 0, 0, sbeParse},
        {"sbe37", "missing", "12\t4\t34.00", 0, 0, sbeParse},
        {"sbe37", "early", "12\t4\t34", 0, 0, sbeParse},
        {"sbe37", "split", "12\t4\t34.00\td\tt", 0, 34, ""},
        {"aand5860", "", "0 0 4 12 34 0 0", 0, 34, ""},
        {"aand5860", "silent", "CTD not responding with Aanderaa % then ! after powerup", -1, 30,
         "No CTD response in 2.5sec"},
        {"aand5860", "wake", "", -1, 30, "CTD Err: did not receive ! after crlf following %"},
        {"aand5860", "late", "CTD not responding with sample string after do sample", -1, 30, ""},
        {"aand5860", "long", "5860\t412\t38.970\t", -1, 30, "bufIndx exceeds buf size, ctd_base"},
        {"aand5860", "partial", "0 0 4 1", 0, 0, aanParse},
        {"aand5860", "unparsable", "X 0 4 12 34 0 0", 0, 0, aanParse},
        {"aand5860", "missing", "0 0 4 12 34", 0, 0, aanParse},
        {"aand5860", "early", "0 0 4 1<2 34 0 0", -1, 30, "exceeds buf size, ctd_base"},
        {"aand5860", "split", aanGap, -1, 30, "inter-character delay exceeded 50msec"},
        {"aand5860", "stall", aanGap, -1, 30, ""},
        {"optode", "", "4831\t856\t266.516\t98.000\t12.000", 0, 30, ""},
        {"optode", "silent", "Optode not responding with % char after power up", -1, 30,
         "did not receive % char delimiter in 600msec"},
        {"optode", "wake", "Optode not responding with % char after power up", -1, 30, ""},
        {"optode", "late", "Optode not responding with sample string after do sample", -1, 30,
         "did not receive sample string after do sample"},
        {"optode", "long", "MEASUREMENT\t  4831\t   856\tO2Concentration[uM]\t   266.516\tAirSatu",
         -1, 30, "error in optode driver bufIndx exceeds buf size"},
        {"optode", "partial", "4831\t856\t266.51", 0, 30, ""},
        {"optode", "unparsable", "X831\t856\t266.516\t98.000\t12.000", 0, 30, ""},
        {"optode", "missing", "4831\t856\t266.516", 0, 30, ""},
        {"optode", "early", "4831\t856\t266.51<6\t98.000\t12.000", 0, 30, ""},
        {"optode", "split", optGap, 4, 30, "inter-character delay exceeded 50msec"},
        {"optode", "stall", optGap, 4, 30, ""},
        {"optode", "garbage", optGap, 4, 30, ""},
        {"ocr", "", "SATFI40278\t61.2345\t73.4561\t80.1123\t55.0987", 0, 30, ""},
        {"ocr", "silent", ocrErr, 0, 30, "OCR power on did not receive expected response"},
        {"ocr", "late", ocrErr, 0, 30, ""},
        {"ocr", "wake", ocrErr, 0, 30, ""},
        {"ocr", "garbage", ocrErr, 0, 30, ""},
        {"ocr", "stall", "OCR did not finish transmit data", 0, 30, "OCR did not finish"},
        {"ocr", "long", "SATFI40278\t0000123\t12.345\t61.234512\t73.456123\t80.112345\t55.09876",
         -1, 30, "error in ocr driver bufIndx exceeds buf size"},
        {"ocr", "missing", "SATFI40278\t61.2345\t73.4561", 0, 30, ""},
        {"ocr", "split", "SATFI40278\t61.2345\t73.4561\t80.1123\t55.0987", 0, 30, ""},
        {"nanofet", "", "7.9000\t12.000\t-0.894342", 3, 30, ""},
        {"nanofet", "silent", nanoNone, -1, 30, "did not receive sample string after sending ts"},
        {"nanofet", "late", nanoNone, -1, 30, ""},
        {"nanofet", "wake", nanoNone, -1, 30, ""},
        {"nanofet", "stall", nanoNone, -1, 30, ""},
        {"nanofet", "long", "       0\t01/01/1970 00:00:00\t    3.04\t   12.40\t       0\t1.446760",
         -1, 30, "error in nanofet driver bufIndx exceeds buf size"},
        {"nanofet", "partial", "7.9000\t12.0", 3, 30, ""},
        {"nanofet", "split", "7.9000\t12.000\t-0.894342", 3, 30, ""},
        {"picoph", "", pico64, 0, 30, "error in picoph driver, bufIndx exceeds buf size"},
        {"picoph", "silent", picoNone, 0, 30, "did not send expected response"},
        {"picoph", "late", picoNone, 0, 30, ""},
        {"picoph", "wake", picoNone, 0, 30, ""},
        {"picoph", "garbage", picoNone, 0, 30, ""},
        {"picoph", "stall", "pico-pH did not finish transmit data", 0, 30, "did not finish"},
        {"picoph", "partial", "MEA\t1\t47\t0\t23390\t0\t0\t0\t12000\t12850\t418", 0, 30, ""},
    };
    struct Rig {
        const char *name;
        uint32_t uart;
        uint8_t *cfg, code;
        const int32_t *state;
    } rigs[] = {
        {"sbe37", UART4_BASE, &sys_data.data_cfg[CFG_UART4_INST], 6, &ctd.state},
        {"aand5860", UART4_BASE, &sys_data.data_cfg[CFG_UART4_INST], 7, &ctd.state},
        {"optode", UART3_BASE, &sys_data.data_cfg[CFG_UART3_INST], 1, &optode.state},
        {"ocr", UART3_BASE, &sys_data.data_cfg[CFG_UART3_INST], 2, &ocr.state},
        {"nanofet", UART3_BASE, &sys_data.data_cfg[CFG_UART3_INST], 3, &nanofet.state},
        {"picoph", UART3_BASE, &sys_data.data_cfg[CFG_UART3_INST], 4, &picoph.state},
    };
    for (const Case &c : cases) {
        const Rig &r = *std::find_if(std::begin(rigs), std::end(rigs),
                                     [&](const Rig &g) { return c.inst == std::string(g.name); });
        SetUp();
        sys_data.diag = 1;
        *r.cfg = r.code;
        const bool ctdPort = r.uart == UART4_BASE;
        auto m = ctdPort ? sim::make_ctd_model(r.name) : sim::make_inst_model(r.name);
        m->fault = c.fault;
        sim::attach_serial(r.uart, m);
        drive(ctdPort ? uart4_stateMachine : uart3_stateMachine);
        std::string what = std::string(c.inst) + " " + c.fault;
        EXPECT_EQ(ctdPort ? column4() : column3(), c.column) << what;
        EXPECT_EQ(*r.state, c.state) << what;
        EXPECT_EQ(sys_samp.sensor_sal, c.sal) << what;
        EXPECT_NE(console().find(c.console), std::string::npos) << what;
    }
}

// A week at a mooring with hourly samples: the data file's temperature and pH
// follow the water file (ISO 8601 times, counted from its first row) within
// the sensor's noise, and the SBE37's salinity reaches the controller.
TEST(InstrumentScenario, AWeekOfSamplesFollowsTheWaterFile) {
    scenario::Board b;
    board_with(b, 0, 6);
    const std::string csv = b.dir() + "/../water.csv";
    {
        std::ofstream f(csv);
        f << "time,temperature,salinity,pH,pressure\n";
        for (int h = 0; h <= 7 * 24; h += 6) {
            char row[128];
            std::snprintf(row, sizeof row, "2026-03-%02dT%02d:00:00Z,%.3f,%.3f,%.4f,10\n",
                          1 + h / 24, h % 24, 15 + 4 * std::sin(h * M_PI / 12),
                          34.5 + 0.4 * std::cos(h / 30.0), 8 + 0.15 * std::sin(h / 40.0));
            f << row;
        }
    }
    sim::Environment e;
    std::string err;
    ASSERT_TRUE(sim::load_water(csv, -1, e.water_points, err)) << err;
    sim::set_environment(e);
    auto r = b.run("1 period 3600\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n",
                   7 * 86400 + 40, {"--water", csv, "--ctd", "sbe37"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::istringstream data(b.cardFile("NONAME.TXT"));
    int lines = 0;
    for (std::string line; std::getline(data, line);) {
        if (line.empty() || line[0] != '#') {
            continue;
        }
        std::vector<std::string> f;
        std::istringstream cols(line);
        for (std::string c; std::getline(cols, c, '\t');) {
            f.push_back(c);
        }
        ASSERT_GE(f.size(), 13u) << line;
        int mo, d, y, hh, mm, ss;
        ASSERT_EQ(std::sscanf(f[1].c_str(), "%d/%d/%d %d:%d:%d", &mo, &d, &y, &hh, &mm, &ss), 6);
        const sim::Water w = sim::water_at((d - 1) * 86400.0 + hh * 3600.0 + mm * 60.0 + ss);
        EXPECT_NEAR(std::stod(f[9]), w.temp_c, 0.01) << line;
        EXPECT_NEAR(std::stod(f[12]), w.ph, 0.005) << line;
        EXPECT_NEAR(std::stod(f[f.size() - 3]), w.salinity, 0.006) << line; // the CTD column
        lines++;
    }
    EXPECT_GE(lines, 7 * 24);
    sim::set_environment(sim::Environment());
}

// Water files and scenes: rows in seconds or ISO 8601 (from --rtc or the first
// row), interpolation, and a message naming the line of a bad row.
TEST(InstrumentModels, WaterFilesAndScenes) {
    const std::string path = std::filesystem::temp_directory_path() / "fenwa_water_test.csv";
    struct Case {
        const char *csv;
        int64_t rtc;
        double t;        // a moment of the run, seconds
        double temp_c;   // the water's temperature then (or the message)
        const char *err; // "" = loads
    } cases[] = {
        {"time,t,s,ph,p\n0,10,34,7.9,5\n100,20,35,8.1,5\n", -1, 25, 12.5, ""},
        {"# mooring\n2026-03-01T00:00:00Z,10,34,7.9,0\n2026-03-01 00:01:40,20,35,8.1,0\n", -1, 50,
         15, ""},
        {"2026-03-01T00:00:00Z,10,34,7.9,0\n2026-03-01T00:01:40Z,20,35,8.1,0\n", 1772323250, 0, 15,
         ""},
        {"0,10,34,7.9,0\n100,20,35,8.1,0\n", -1, 500, 20, ""},
        {"0,10,34,7.9\n", -1, 0, 0, ":1: expected time, temperature, salinity, pH, pressure"},
        {"0,10,34,7.9,0\n0,10,34,7.9,0\n", -1, 0, 0, ":2: times must increase"},
        {"0,10,34,15,0\n", -1, 0, 0, ":1: pH '15' is not a number (0 to 14)"},
        {"0,10,34,7.9,0\n2026-03-01T00:00:00Z,10,34,7.9,0\n", -1, 0, 0,
         ":2: times mix seconds and ISO 8601"},
        {"t,temp\n", -1, 0, 0, ":0: no water rows"},
    };
    for (const Case &c : cases) {
        std::ofstream(path) << c.csv;
        sim::Environment e;
        e.water = path;
        std::string err;
        bool ok = sim::load_water(path, c.rtc, e.water_points, err);
        EXPECT_EQ(ok, *c.err == 0) << c.csv << err;
        if (!ok) {
            EXPECT_EQ(err, path + c.err);
            continue;
        }
        sim::set_environment(e);
        EXPECT_NEAR(sim::water_at(c.t).temp_c, c.temp_c, 1e-9) << c.csv;
    }
    sim::Environment e;
    e.water = "diurnal";
    sim::set_environment(e);
    EXPECT_NEAR(sim::water_at(15 * 3600).temp_c, 16.5, 1e-9); // the afternoon's warmth
    e.water = "profile";
    sim::set_environment(e);
    EXPECT_EQ(sim::water_at(0).dbar, 2000.0);
    EXPECT_EQ(sim::water_at(20000).dbar, 0.0);
    EXPECT_NEAR(sim::water_at(20000).ph, 8.0, 1e-9);
    sim::set_environment(sim::Environment());
    std::filesystem::remove(path);
}
