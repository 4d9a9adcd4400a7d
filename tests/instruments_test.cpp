// The serial instrument drivers against scripted replies and the instrument models.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "console_bench.h"
#include "factory_board.h"
#include "inst_models.h"

#include "board/uart3.h"
#include "board/uart4.h"
#include "instruments/ctd_aand5860.h"
#include "instruments/ctd_base.h"
#include "instruments/ctd_sbe37.h"
#include "instruments/nanofet.h"
#include "instruments/ocr.h"
#include "instruments/optode.h"
#include "instruments/picoph.h"

namespace {

// A test instrument that answers exact bytes: each step waits until the line
// has heard its trigger since the port came up (an empty trigger: at once),
// then sends its reply `delay_ms` later. The port coming up starts it again.
class ScriptedLine : public sim::SerialInstrument {
  public:
    struct Step {
        std::string trigger, reply;
        double delay_ms;
    };
    ScriptedLine(uint32_t baud, std::vector<Step> steps)
        : SerialInstrument(baud), steps_(std::move(steps)) {}

  protected:
    void port_up(uint64_t at) override {
        heard_.clear();
        next_ = 0;
        fire(at);
    }
    void byte_in(uint8_t byte, uint64_t at) override {
        heard_ += char(byte);
        fire(at);
    }
    void fire(uint64_t at) {
        for (; next_ < steps_.size() && heard_.find(steps_[next_].trigger) != std::string::npos;
             next_++) {
            say(steps_[next_].reply, at + ms(steps_[next_].delay_ms));
        }
    }

  private:
    std::vector<Step> steps_;
    size_t next_ = 0;
    std::string heard_;
};
using Script = std::vector<ScriptedLine::Step>;

// Each instrument on its port: rate, dispatcher value and the driver's state.
struct Rig {
    const char *name;
    uint32_t uart, baud;
    uint8_t code;
    const int32_t *state;
};
const Rig kRigs[] = {
    {"sbe37", UART4_BASE, 9600, 6, &ctd.state},
    {"aand5860", UART4_BASE, 9600, 7, &ctd.state},
    {"optode", UART3_BASE, 9600, 1, &optode.state},
    {"ocr", UART3_BASE, 57600, 2, &ocr.state},
    {"nanofet", UART3_BASE, 115200, 3, &nanofet.state},
    {"picoph", UART3_BASE, 19200, 4, &picoph.state},
};
const Rig &rig(const std::string &name) {
    return *std::find_if(std::begin(kRigs), std::end(kRigs),
                         [&](const Rig &g) { return name == g.name; });
}

// What a poll left; `runs`: the returned states, each run once ("2 3 0").
struct Outcome {
    std::string column, console, runs;
    int32_t state;
    float sal, temp, salt;
    double seconds;
};

class InstrumentsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        sim::Environment e;
        e.ph = 7.9;
        e.temp_c = 12.0;
        e.salinity = 34.0;
        e.seed = 7;
        sim::set_environment(e);
        bench::power_up();
        uart3_tx_bufr_flush(1);
        uart3_rx_bufr_flush();
        uart4_tx_bufr_flush(1);
        uart4_rx_bufr_flush();
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        sys_data.diag = 0;
        sys_data.data_cfg[CFG_UART3_INST] = sys_data.data_cfg[CFG_UART4_INST] = 0;
        sys_samp.sensor_sal = 30.0f;
        ctd = ctdDriver{};
        memset(uart3_prn_buf, 0, sizeof uart3_prn_buf);
        memset(uart4_prn_buf, 0, sizeof uart4_prn_buf);
    }
    void TearDown() override { sim::set_environment(sim::Environment()); }

    // A fresh board with `dev` on the rig's port; its dispatcher stepped from
    // 1 until it returns 0 (at most a minute of simulated time).
    Outcome poll(const Rig &r, std::shared_ptr<sim::SerialDevice> dev, bool diag) {
        SetUp();
        const bool p4 = r.uart == UART4_BASE;
        sys_data.diag = diag;
        sys_data.data_cfg[p4 ? CFG_UART4_INST : CFG_UART3_INST] = r.code;
        sim::attach_serial(r.uart, dev);
        Outcome o{};
        double t0 = sim::now_seconds();
        for (int st = 1, last = -99; st != 0 && sim::now_seconds() - t0 < 60.0; last = st) {
            st = p4 ? uart4_stateMachine(st) : uart3_stateMachine(st);
            if (st != last) {
                o.runs += (o.runs.empty() ? "" : " ") + std::to_string(st);
            }
        }
        o.seconds = sim::now_seconds() - t0;
        o.column = (const char *)(p4 ? uart4_prn_buf : uart3_prn_buf);
        o.console = bench::take();
        o.state = *r.state;
        o.sal = sys_samp.sensor_sal;
        o.temp = ctd.tempC;
        o.salt = ctd.salt;
        return o;
    }
};

const char *const kSbeTimeout =
    "CTD not responding with SBE37 data, check connection, make sure data config is SBE37";
const char *const kSbeOverflow = "ST7: error in ctd driver bufIndx exceeds buf size, ctd";
const std::string kSbeParse = "\r\nError:  sscanf for parsing MicroCat does not return 5 args.  "
                              "ctd.state = 3.  TempC and salt are 0.0\r\n";
const char *const kAanParse =
    "\r\nError:  sscanf for parsing Aanderaa 5860 does not return 7 args.  ctd.type = 7.  TempC "
    "and salt are 0.0\r\n\r\nCheck setup of Aanderaa 5860, enable derived, raw, etc.   To Fix, "
    "use Test Menu, Communicate with Instrument\r\n";

} // namespace

// Replies byte for byte: the parse cases, the handshakes and the timeouts.
TEST_F(InstrumentsTest, ScriptedReplies) {
    const std::string x63(63, 'x');
    const Script aan = {{"", "%", 300}, {"\r\n", "!", 2}};
    const Script opt = {{"", "%", 100}, {"\r\n", "!", 2}};
    auto then = [](Script s, const ScriptedLine::Step &last) {
        s.push_back(last);
        return s;
    };
    struct Case {
        const char *inst;
        bool diag;
        Script script;
        std::string column, console;
        int32_t state;
        float sal, temp, salt;
        const char *runs;
        double seconds;
    } cases[] = {
        {"sbe37", 0, Script{{"ts\r", "1.5,3,34.9,d,t\n", 500}}, "1.5\t3\t34.9\td\tt", "", 0, 34.9f,
         1.5f, 34.9f, "2 3 0", 1.44},
        {"sbe37", 0, Script{{"ts\r", "1.5,3,34.9,d,t<more", 500}}, "1.5\t3\t34.9\td\tt", "", 0,
         34.9f, 1.5f, 34.9f, "2 3 0", 1.43},
        {"sbe37", 0, Script{{"ts\r", "1.5,3.2\n", 500}}, "1.5\t3.2", kSbeParse + "1.5\t3.2\r\n", 0,
         0, 0, 0, "2 3 0", 1.43},
        {"aand5860", 0, then(aan, {"do sample", "1 2 3 4 5 6 7#", 100}), "1 2 3 4 5 6 7", "", 0, 5,
         4, 5, "4 5 0", 0.43},
        // a CR inside the reply ends the text there
        {"aand5860", 0, then(aan, {"do sample", "1 2\r3 4 5 6 7#", 100}), "1 2", kAanParse, 0, 0, 0,
         0, "4 5 0", 0.43},
        // "%" and then anything but "!": no second chance (the console only with diag)
        {"aand5860", 0, Script{{"", "%", 300}, {"\r\n", "?", 2}}, "", "", -1, 30, 0, 0, "4 0",
         0.31},
        {"aand5860", 1, Script{{"", "%", 300}, {"\r\n", "x", 2}}, "",
         "CTD Err: did not receive ! after crlf following %\r\n", -1, 30, 0, 0, "4 0", 0.31},
        // "%" and then nothing: given up after 2 s rather than waiting forever
        {"aand5860", 0, Script{{"", "%", 300}}, "", "", -1, 30, 0, 0, "4 0", 2.29},
        // a pause inside the reply
        {"aand5860", 0, then(aan, {"do sample", "1 2 3", 100}),
         "CTD driver Err: inter-character delay exceeded 50msec receiving do_sample string", "", -1,
         30, 0, 0, "4 5 0", 0.47},
        // a "%" followed by anything but "!" restarts the 1.6 s wait: 1 s to the "%", 1.6 s on
        {"optode", 0, Script{{"", "%", 1000}, {"\r\n", "?", 2}},
         "Optode not responding with % char after power up", "", -1, 30, 0, 0, "2 0", 2.6},
        {"optode", 0, then(opt, {"do sample", x63 + "#", 50}), x63, "", 0, 30, 0, 0, "2 4 0", 0.23},
        {"optode", 0, then(opt, {"do sample", x63 + "y#", 50}), x63 + "y",
         "\r\nDEBUG: error in optode driver bufIndx exceeds buf size, optode\r\n", -1, 30, 0, 0,
         "2 4 0", 0.24},
        {"picoph", 0, Script{{"MEA 1 47\r", "xyMEA 1 47", 50}},
         "pico-pH did not finish transmit data", "", 0, 30, 0, 0, "2 3 4 5 0", 1.85},
        {"nanofet", 0, Script{{"ts\r\n", "4831\t856\t286.196\r\n", 100}}, "4831\t856\t286.196", "",
         3, 30, 0, 0, "2 3 0", 0.65},
        // a LF before the CR stays in the column
        {"nanofet", 0, Script{{"ts\r\n", "48\n31\r", 100}}, "48\n31", "", 3, 30, 0, 0, "2 3 0",
         0.65},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(std::string(c.inst) + " " + (c.script.empty() ? "" : c.script.back().reply));
        const Rig &r = rig(c.inst);
        Outcome o = poll(r, std::make_shared<ScriptedLine>(r.baud, c.script), c.diag);
        EXPECT_EQ(o.column, c.column);
        EXPECT_EQ(o.console, c.console);
        EXPECT_EQ(row(o.state, o.sal, o.temp, o.salt), row(c.state, c.sal, c.temp, c.salt));
        EXPECT_EQ(o.runs, c.runs);
        EXPECT_NEAR(o.seconds, c.seconds, 0.01);
    }
}

// The CTD drivers refuse the other CTD's type; states outside the machine end it.
// The CTD's buffer keeps 15 characters; its wait is in 10 ms steps.
TEST_F(InstrumentsTest, CtdGuardsBufferAndWait) {
    struct {
        int (*machine)(int);
        uint8_t type;
    } wrong[] = {{ctd_sbe37_stateMachine, 7}, {ctd_aand5860_stateMachine, 6}};
    for (const auto &w : wrong) {
        SetUp();
        sys_data.data_cfg[CFG_UART4_INST] = w.type;
        EXPECT_EQ(w.machine(1), 0);
        EXPECT_EQ(row(ctd.type, sys_samp.sensor_sal), "0,30");
        EXPECT_EQ(bench::take(),
                  "Error: sys_data.data_cfg[CFG_UART4_INST] = " + std::to_string(w.type) +
                      ", no driver for this CTD type, Config -> Data Fields\r\n");
    }
    SetUp();
    EXPECT_EQ(ctd_sbe37_stateMachine(9), 0);
    EXPECT_EQ(ctd.state, -1);
    EXPECT_EQ(ctd_sbe37_stateMachine(0), 0);
    EXPECT_EQ(ctd.state, 0);
    // The optode's state 3 is reached only when asked for.
    optode_init();
    optode.old_tick10ms = Timer_10ms(0);
    EXPECT_EQ(optode_stateMachine(3), 3);
    EXPECT_EQ(optode_tx_buf_size(), 64u);
    SetUp();
    EXPECT_EQ(ctd_tx_buf_size(), 16u);
    EXPECT_EQ(ctd_rx_buf_size(), 16u);
    ctd_open();
    for (int i = 0; i < 15; i++) {
        EXPECT_EQ(ctd_buf_putc('a'), 1);
    }
    EXPECT_EQ(ctd_buf_putc('b'), 0);
    EXPECT_EQ(ctd.bufIndx, 15u);
    const std::string full = "\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n";
    EXPECT_EQ(bench::take(), full);
    sys_data.diag = 1;
    ctd.bufIndx = 15;
    EXPECT_EQ(ctd_buf_putc('c'), 0);
    EXPECT_EQ(bench::take(), full + full);
    ctd_init();
    double t0 = sim::now_seconds();
    EXPECT_EQ(ctd_waitRx(7), 7u);
    EXPECT_NEAR(sim::now_seconds() - t0, 0.07, 0.011);
}

// An instrument at another rate than the port: it understands nothing.
TEST_F(InstrumentsTest, ModelsAnswerOnlyAtTheirRate) {
    auto m = std::make_shared<sim::OptodeModel>();
    EXPECT_EQ(poll(rig("picoph"), m, false).column, "Pico-pH not responding to MEAS command");
    EXPECT_EQ(m->heard, "");
    EXPECT_FALSE(m->rate_ok());
}

// Each model's reply against its manual, and each fault knob into its driver's
// ending (salinity 30: kept from before).
TEST_F(InstrumentsTest, EachModelAnswersAsItsManualAndEachFaultReachesItsEnding) {
    struct {
        std::string got, manual;
    } examples[] = {
        // SBE37-SM manual, OutputFormat=1 with the pressure sensor
        {sim::Sbe37Model::factory_line(24.8339, 0.97795, -9.262, -1, 947220699),
         "24.8339,  0.97795,   -9.262, 07 Jan 2000, 04:51:39\r\n"},
        {sim::Sbe37Model::factory_line(12.0, 3.895, 0.0, 34.0, 1704110400),
         "12.0000,  3.89500,    0.000,  34.0000, 01 Jan 2024, 12:00:00\r\n"},
        // optode manual, whose sensor protocol the 5860 shares: tab-separated, CR LF
        {sim::OptodeModel::line(283.45, 98.0, 12.0), "4831\t856\t283.450\t98.000\t12.000\r\n"},
        {sim::Aand5860Model::line(38.95, 12.0, 34.0, 1026.152, 1497.68),
         "5860\t412\t38.950\t12.000\t34.000\t1026.152\t1497.680\r\n"},
        // pico-pH manual: "MEA C S" then R0 to R17, blank-separated, CR
        {sim::PicophModel::line(7.9, 12.0, 12.85),
         "MEA 1 47 0 23390 0 0 0 12000 12850 41872 12 1013 35000 104690 0 0 7900 0 0 0\r"},
        // OCR-504 manual, short frame in engineering units
        {sim::OcrModel::line(std::array<double, 4>{5.6134, 8.9193, 14.6706, 22.4710}.data(), 1),
         "SATFI40001\t5.6134\t8.9193\t14.6706\t22.4710\r\n"},
    };
    for (const auto &e : examples) {
        EXPECT_EQ(e.got, e.manual);
    }

    // The console's diagnostic lines (sys_data.diag is on), each framed in CR LF.
    auto say = [](const char *msg, int times = 1) {
        std::string s;
        while (times-- > 0) {
            s += std::string("\r\n") + msg + "\r\n";
        }
        return s;
    };
    const std::string gap = say("DEBUG: inter-character delay exceeded 50msec receiving do_sample "
                                "string"),
                      ctdBase =
                          say("DEBUG: error in ctd driver bufIndx exceeds buf size, ctd_base");
    const char *aanGap =
        "CTD driver Err: inter-character delay exceeded 50msec receiving do_sample string";
    const char *optGap = "Optode Err ST4: inter-character delay exceeded 50msec receiving "
                         "do_sample string";
    const char *ocrLine = "SATFI40278\t61.2345\t73.4561\t80.1123\t55.0987";
    const char *optNone = "Optode not responding with % char after power up";
    struct Case {
        const char *inst, *faults; // each of the faults ends the same way
        std::string column;
        int state;
        float sal;
        std::string console;
    } cases[] = {
        {"sbe37", " split", "12\t4\t34.00\td\tt", 0, 34, ""},
        {"sbe37", "silent late wake stall", kSbeTimeout, -1, 30, ""},
        {"sbe37", "garbage long", kSbeOverflow, -1, 30, say(kSbeOverflow)},
        {"sbe37", "partial early", "12\t4\t34", 0, 0, kSbeParse + "12\t4\t34\r\n"},
        {"sbe37", "unparsable", "X2\t4\t34.00\td\tt", 0, 0, kSbeParse + "X2\t4\t34.00\td\tt\r\n"},
        {"sbe37", "missing", "12\t4\t34.00", 0, 0, kSbeParse + "12\t4\t34.00\r\n"},
        {"aand5860", "", "0 0 4 12 34 0 0", 0, 34, ""},
        {"aand5860", "silent", "CTD not responding with Aanderaa % then ! after powerup", -1, 30,
         say("No CTD response in 2.5sec, statemachine pumping too slow or instrument not "
             "connected")},
        {"aand5860", "wake", "", -1, 30, "CTD Err: did not receive ! after crlf following %\r\n"},
        {"aand5860", "late", "CTD not responding with sample string after do sample", -1, 30, ""},
        {"aand5860", "long", "5860\t412\t38.970\t", -1, 30, ctdBase},
        {"aand5860", "garbage", "(noise)", -1, 30, ctdBase},
        {"aand5860", "partial", "0 0 4 1", 0, 0, kAanParse},
        {"aand5860", "unparsable", "X 0 4 12 34 0 0", 0, 0, kAanParse},
        {"aand5860", "missing", "0 0 4 12 34", 0, 0, kAanParse},
        {"aand5860", "early", "0 0 4 1<2 34 0 0", -1, 30, ctdBase},
        {"aand5860", "split stall", aanGap, -1, 30, gap},
        {"optode", "", "4831\t856\t266.516\t98.000\t12.000", 0, 30, ""},
        {"optode", "silent wake", optNone, -1, 30,
         say("Optode power on did not receive % char delimiter in 600msec - check optode "
             "connection or setup")},
        {"optode", "late", "Optode not responding with sample string after do sample", -1, 30,
         say("Optode power on did not receive sample string after do sample - check optode "
             "connection or setup")},
        {"optode", "long", "MEASUREMENT\t4831\t856\tO2Concentration[uM]\t266.516\tAirSaturation[%",
         -1, 30, say("DEBUG: error in optode driver bufIndx exceeds buf size, optode", 2)},
        {"optode", "partial", "4831\t856\t266.51", 0, 30, ""},
        {"optode", "unparsable", "X831\t856\t266.516\t98.000\t12.000", 0, 30, ""},
        {"optode", "missing", "4831\t856\t266.516", 0, 30, ""},
        {"optode", "early", "4831\t856\t266.51<6\t98.000\t12.000", 0, 30, ""},
        {"optode", "split stall garbage", optGap, 4, 30, gap},
        {"ocr", " split", ocrLine, 0, 30, ""},
        {"ocr", "silent late wake garbage", "SATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999", 0, 30,
         say("OCR power on did not receive expected response to CR-LF in 1600msec - check ocr "
             "connection or setup")},
        {"ocr", "stall", "OCR did not finish transmit data", 0, 30,
         say("ERROR: OCR did not finish transmitting data, timeout")},
        {"ocr", "long", "SATFI40278\t0000123\t12.345\t61.234512\t73.456123\t80.112345\t55.09876",
         -1, 30, say("DEBUG: error in ocr driver bufIndx exceeds buf size, ocr", 2)},
        {"ocr", "missing", "SATFI40278\t61.2345\t73.4561", 0, 30, ""},
        {"nanofet", " split", "7.9000\t12.000\t-0.894342", 3, 30, ""},
        {"nanofet", "silent late wake stall", "NanoFET not responding with sample string after ts",
         -1, 30,
         say("NanoFET power on did not receive sample string after sending ts - check nanofet "
             "connection or setup")},
        {"nanofet", "long", "       0\t01/01/1970 00:00:00\t    3.04\t   12.40\t       0\t1.446760",
         -1, 30, say("DEBUG: error in nanofet driver bufIndx exceeds buf size, nanofet", 2)},
        {"nanofet", "partial", "7.9000\t12.0", 3, 30, ""},
        {"picoph", "", // the whole reply does not fit: its first 63 characters
         "MEA\t1\t47\t0\t23390\t0\t0\t0\t12000\t12850\t41872\t12\t1013\t35000\t104690\t0\t", 0, 30,
         say("DEBUG: error in picoph driver, bufIndx exceeds buf size. picoph", 2)},
        {"picoph", "silent late wake garbage", "Pico-pH not responding to MEAS command", 0, 30,
         say("Pico-pH did not send expected response to measure command in 800 msec - check "
             "connection or setup")},
        {"picoph", "stall", "pico-pH did not finish transmit data", 0, 30,
         say("ERROR: pico-pH did not finish transmitting data, timeout")},
        {"picoph", "partial", "MEA\t1\t47\t0\t23390\t0\t0\t0\t12000\t12850\t418", 0, 30, ""},
    };
    int runs = 0;
    for (const Case &c : cases) {
        std::istringstream faults(std::string(c.faults) + (*c.faults == ' ' ? "" : " "));
        for (std::string fault; std::getline(faults, fault, ' '); runs++) {
            SCOPED_TRACE(std::string(c.inst) + " " + fault);
            const Rig &r = rig(c.inst);
            auto m =
                r.uart == UART4_BASE ? sim::make_ctd_model(r.name) : sim::make_inst_model(r.name);
            m->fault = fault;
            Outcome o = poll(r, m, true);
            // line noise after "%" and "!": kept as it came, up to the buffer's end
            EXPECT_EQ(o.column, c.column == "(noise)" ? m->said.substr(2, 16) : c.column);
            EXPECT_EQ(row(o.state, o.sal), row(c.state, c.sal));
            EXPECT_EQ(o.console, c.console);
        }
    }
    EXPECT_EQ(runs, 60);
}

// A host's sample command: the instrument columns end the line; the card's
// faults are reported after it. All of the console after the command.
TEST(InstrumentScenario, SampleLinesCarryTheInstrumentColumnsAndCardFaults) {
    const std::string line = "#0000000\t   14.30";
    struct Case {
        uint8_t uart3, uart4; // 5: no CTD polled
        std::vector<std::string> args;
        std::string after;
    } cases[] = {
        {1,
         6,
         {"--inst", "optode", "--ctd", "sbe37"},
         line + "\t4831\t856\t266.516\t98.000\t12.000\t12\t4\t34.00\td\tt\r\n"},
        {4,
         7,
         {"--inst", "picoph", "--ctd", "aand5860", "--ctd-fault", "silent"},
         "\r\nDEBUG: error in picoph driver, bufIndx exceeds buf size. picoph\r\n" + line +
             "\tMEA\t1\t47\t0\t23390\t0\t0\t0\t12000\t12850\t41872\t12\t1013\t35000\t104690\t0\t\t"
             "CTD not responding with Aanderaa % then ! after powerup\r\n"},
        {2,
         6,
         {"--inst", "ocr", "--inst-fault", "late", "--ctd", "sbe37", "--ctd-fault", "long"},
         line + "\tSATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999\t"
                "ST7: error in ctd driver bufIndx exceeds buf size, ctd\r\n"},
        {3, 5, {"--inst", "nanofet", "--ctd", "sbe37"}, line + "\t7.9000\t12.000\t-0.894342\r\n"},
        {0, 0, {"--card-absent"}, unreadable_card(line, "FR_NOT_READY")},
        {0, 0, {"--card-error"}, unreadable_card(line, "FR_DISK_ERR")},
        {0, 0, {"--card-full"}, line + "\r\nf_write error: card full, 0 of 19 bytes written\r\n"},
    };
    for (auto &c : cases) {
        scenario::Board b;
        factory_board(b, [&](systemData &d) {
            memset(d.data_cfg, 0, CFG_UART3_INST);
            d.data_cfg[CFG_SAMPLE_NUM] = d.data_cfg[CFG_VIN_BAT_VOLT] = 1;
            d.data_cfg[CFG_UART3_INST] = c.uart3;
            d.data_cfg[CFG_UART4_INST] = c.uart4;
        });
        std::vector<std::string> args = {"--ph", "7.9", "--temp", "12", "--sal", "34"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        auto r = b.run("1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 6\\r\n4 t0\\r\n", 0, args);
        size_t t0 = r.out.find(">t0\r\n");
        ASSERT_NE(t0, std::string::npos) << r.out;
        EXPECT_EQ(r.out.substr(t0 + 5), c.after + "\r\n>*");
    }
}

// A week of hourly samples follows the water file; the SBE37's salinity reaches
// every external pH.
TEST(InstrumentScenario, AWeekOfSamplesFollowsTheWaterFile) {
    scenario::Board b;
    factory_board(b, [](systemData &d) {
        d.data_cfg[CFG_CALC_PH_VRSE] = 1;
        d.data_cfg[CFG_UART3_INST] = 0;
        d.data_cfg[CFG_UART4_INST] = 6;
    });
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
        ASSERT_GE(f.size(), 23u) << line;
        int mo, d, y, hh, mm, ss;
        ASSERT_EQ(std::sscanf(f[1].c_str(), "%d/%d/%d %d:%d:%d", &mo, &d, &y, &hh, &mm, &ss), 6);
        const sim::Water w = sim::water_at((d - 1) * 86400.0 + hh * 3600.0 + mm * 60.0 + ss);
        EXPECT_NEAR(std::stod(f[9]), w.temp_c, 0.01) << line;
        EXPECT_NEAR(std::stod(f[12]), w.ph, 0.005) << line;
        EXPECT_NEAR(std::stod(f[15]), w.ph, 0.01) << line; // external pH
        char ctdTemp[16]; // the CTD's columns: whole degrees, then the salinity
        std::snprintf(ctdTemp, sizeof ctdTemp, "%.0f", w.temp_c);
        EXPECT_EQ(f[21], ctdTemp) << line;
        EXPECT_NEAR(std::stod(f[f.size() - 3]), w.salinity, 0.006) << line;
        lines++;
    }
    EXPECT_GE(lines, 7 * 24);
    EXPECT_EQ(scenario::count(r.out, "CTD not responding"), 0u);
    sim::set_environment(sim::Environment());
}

// Water files (seconds or ISO 8601 rows) and scenes; a bad row's line is named.
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
