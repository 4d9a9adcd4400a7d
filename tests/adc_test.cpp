// The isolated ADC as the board drives it: SPI bytes and control lines, burst
// arithmetic, the DRDY time-out, and the water read back through the chemistry.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "adc_model.h"
#include "analog_frontend.h"
#include "devices.h"
#include "scenario.h"
#include "sim.h"

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "files/microsd.h"
#include "gpio.h"
#include "interrupt.h"
#include "measure/ads1248_iso.h"
#include "measure/ph.h"
#include "ssi.h"
#include "sysctl.h"

namespace {

constexpr float kVpc = ADS1248_VOLTS_PER_COUNT;

double ms_since(uint64_t cycles) {
    return double(sim::now_cycles() - cycles) / double(sim::kCyclesPerMs);
}

// A switch setting (mux position, bias line) and the 10 ms it is given to settle.
void settle(void (*set)(uint32_t), uint32_t v) {
    set(v);
    delay_msec(10);
}

class AdcTest : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        sim::set_environment(sim::Environment());
        init_sys_data_default();
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        init_uSDCard();
        out();
    }
    void TearDown() override { sim::set_environment(sim::Environment()); }
    static std::string out() { return bench::take(); }
    // Power, GPIO set-up, and a clean log.
    static void open() {
        openADS1248_iso();
        ADS1248_gpio_init();
        sim::adc_log_clear();
        out();
    }
};

// One reading as the sample cycle takes it, byte for byte, and the lines around it.
TEST_F(AdcTest, TransactionsOfOneReading) {
    openADS1248_iso();
    ADS1248_gpio_init();
    settle(ADS1248_gpio_ADG1609_mux, 3);
    pollADS1248_iso(1, 6, 2, 1, 20);
    closeADS1248_iso();
    EXPECT_EQ(sim::adc_log_text(),
              "4C 02 0F 00 00 | 4E 00 04 | 40 03 0E 00 30 02 | FF FF FF | FF FF FF");
    int selected = 0;
    for (const sim::AdcTransaction &t : sim::adc_log()) {
        if (t.out.empty()) {
            continue;
        }
        EXPECT_TRUE(t.selected);
        EXPECT_TRUE(t.powered);
        EXPECT_GT(t.end, t.begin) << "chip select rises after the bytes";
        EXPECT_GE(t.end - t.begin, t.out.size() * 8 * 50) << "1 MHz clock";
        selected++;
    }
    EXPECT_EQ(selected, 5);

    // Supply, START and RESET up together; a 10 us reset pulse 2 ms later;
    // START and RESET stay high and the supply goes at close.
    const auto &ev = sim::adc_line_events();
    std::string edges;
    for (const sim::AdcLineEvent &e : ev) {
        edges += std::string(1, e.line) + (e.high ? "+ " : "- ");
    }
    ASSERT_EQ(edges, "P+ S+ R+ R- R+ P- ");
    EXPECT_NEAR(double(ev[3].at - ev[2].at) / sim::kCyclesPerMs, 2.0, 0.01);
    EXPECT_GE(ev[4].at - ev[3].at, 500u);
    EXPECT_LE(ev[4].at - ev[3].at, 600u);
    EXPECT_FALSE(sim::adc_status().powered);
    EXPECT_EQ(sim::gpio_levels(GPIO_PORTD_BASE) & (GPIO_PIN_0 | GPIO_PIN_1 | GPIO_PIN_3), 0)
        << "clock, chip select and data out low at close";
}

// The registers a reading leaves; a burst takes its first conversion, then one period each.
TEST_F(AdcTest, RegistersAndBurstTiming) {
    open();
    ADS1248_gpio_ADG1609_mux(0);
    uint64_t t0 = sim::now_cycles();
    pollADS1248_iso(3, 5, 10, 8, 20);
    double took = ms_since(t0);
    sim::AdcStatus st = sim::adc_status();
    char regs[40];
    snprintf(regs, sizeof regs, "%02X %02X %02X %02X | %02X %02X %02X", st.regs[0], st.regs[1],
             st.regs[2], st.regs[3], st.regs[0x0C], st.regs[0x0D], st.regs[0x0E]);
    EXPECT_STREQ(regs, "1D 00 30 32 | 0F 00 07"); // MUX0..SYS0, IDAC0..1 and GPIOCFG
    EXPECT_TRUE(st.rdatac);
    double want = double(sim::ads1248_first_cycles(2, true) + 9 * sim::ads1248_period_cycles(2)) /
                  sim::kCyclesPerMs;
    EXPECT_GE(took, want);
    EXPECT_LE(took, want + 1.5) << "each conversion is taken within a tick of DRDY";
    EXPECT_EQ(sim::adc_status().conversions_read, 10u);
    closeADS1248_iso();
}

TEST_F(AdcTest, GainAndRateCodes) {
    const int gains[] = {1, 2, 4, 8, 16, 32, 64, 128};
    const int rates[] = {5, 10, 20, 40, 80, 160, 320, 640, 1000, 2000};
    for (uint32_t g = 0; g < 8; g++) {
        for (uint32_t r = 0; r < 10; r++) {
            EXPECT_EQ(ADS1248_gain_sps(gains[g], rates[r]), (g << 4) | r);
        }
    }
    EXPECT_EQ(out(), "");

    const std::string gain = "\r\n\r\nUnrecognized PGA gain. Setting to 1.",
                      rate = "\r\n\r\nUnrecognized data rate. Setting to 5 sps.";
    struct {
        int gain, sps;
        uint32_t code;
        std::string console;
    } fallbacks[] = {
        {3, 7, 0x00, gain + rate}, {0, 2000, 0x09, gain}, {256, 20, 0x02, gain},
        {64, 15, 0x60, rate},      {2, -20, 0x10, rate},
    };
    for (auto &c : fallbacks) {
        EXPECT_EQ(ADS1248_gain_sps(c.gain, c.sps), c.code) << c.gain << " " << c.sps;
        EXPECT_EQ(out(), c.console);
    }

    // The SYS0 byte goes out as the fourth register of the reading's write.
    open();
    sim::adc_queue_codes({0});
    pollADS1248_iso(1, 6, 1, 2, 7);
    EXPECT_EQ(sim::adc_log_text(), "40 03 0E 00 30 10 | FF FF FF");
    EXPECT_EQ(out(), rate);
}

TEST_F(AdcTest, MuxAndBiasSwitchPatterns) {
    open();
    for (uint32_t m : {0, 1, 2, 3}) {
        ADS1248_gpio_ADG1609_mux(m);
    }
    ADS1248_gpio3(1);
    ADS1248_gpio3(0);
    ADS1248_gpio3(7);
    ADS1248_gpio2(1);
    ADS1248_gpio2(0);
    ADS1248_gpio0();
    EXPECT_EQ(out(), "");
    EXPECT_EQ(sim::adc_log_text(), "4E 00 07 | 4E 00 02 | 4E 00 01 | 4E 00 04 | 4E 00 08 | "
                                   "4E 00 00 | 4E 00 00 | 4E 00 04 | 4E 00 00");

    sim::adc_log_clear();
    ADS1248_gpio_ADG1609_mux(9);
    EXPECT_EQ(out(), "Mux channels are 0 to 3 in ADS1248_iso.c, error in arg for "
                     "ADS1248_gpio_ADG1609_mux\r\n");
    EXPECT_EQ(sim::adc_log_text(), "4E 00 04");
    EXPECT_EQ(sim::adg1609_position(sim::adc_status().regs[0x0E]), 3);
    closeADS1248_iso();
}

// Chosen raw codes: sign extension, means truncated toward zero per gain step, spread.
TEST_F(AdcTest, BurstArithmetic) {
    struct {
        std::vector<uint32_t> codes;
        int gain;
        int32_t meanCounts;
    } cases[] = {
        {{0x800000}, 1, -8388608},
        {{0x7FFFFF}, 1, 8388607},
        {{0xFFFFFF}, 1, -1},
        {{3, 3}, 2, 1},                 // 3 counts over gain 2: 1 count, not 1.5
        {{0xFFFFF9, 0xFFFFF8}, 1, -7},  // -15 / 2: toward zero
        {{0, 4}, 1, 2},                 // spread of two points
        {{100, 101, 102, 104}, 1, 101}, // 407 / 4
        {{0xFFFF00, 0x000100}, 128, 0}, // mixed signs
        {{1000, 1001, 999}, 4, 250},    // 3000 / 3 / 4
    };
    open();
    for (auto &c : cases) {
        sim::adc_queue_codes(c.codes);
        int n = int(c.codes.size());
        float v = pollADS1248_iso(1, 6, n, c.gain, 1000);
        EXPECT_EQ(v, (float)c.meanCounts * kVpc) << c.meanCounts;

        // the same spread, worked out here
        float sq = 0.0f;
        for (uint32_t raw : c.codes) {
            int32_t k = (raw & 0x800000u) ? int32_t(raw) - 0x1000000 : int32_t(raw);
            float vi = ((float)k / (float)c.gain) * kVpc;
            sq += (vi - v) * (vi - v);
        }
        float sd = n < 2 ? 0.0f : (float)std::sqrt(sq / (float)n);
        EXPECT_EQ(sys_samp.AD24_std, sd) << c.meanCounts;
    }
    EXPECT_EQ(out(), "");

    // One trial: no spread, the value truncated to whole counts per gain step.
    sim::adc_queue_codes({7});
    sys_samp.AD24_std = 1.0f;
    EXPECT_EQ(pollADS1248_iso(1, 6, 1, 2, 1000), 3.0f * kVpc);
    EXPECT_EQ(sys_samp.AD24_std, 0.0f);
    closeADS1248_iso();

    // More than 120 trials: 120 taken, and said so.
    SetUp();
    open();
    sys_samp.AD24_std = -1.0f;
    float v = pollADS1248_iso(1, 6, 121, 1, 2000);
    EXPECT_EQ(out(), "MAX TRIALS is 120 in ADS1248_iso.c, more trials (avg) than 120 was "
                     "requested, edit pollADS1248_iso() and recompile\r\n");
    EXPECT_EQ(sim::adc_status().conversions_read, 120u);
    EXPECT_EQ(scenario::count(sim::adc_log_text(), "FF FF FF"), 120u);
    EXPECT_GT(sys_samp.AD24_std, 0.0f);
    EXPECT_NEAR(v, sim::front_end(sim::environment()).vrsi, 2e-6) << "mux left at position 3";
    closeADS1248_iso();
}

// No DRDY: each reading gives up a few periods late with the error value and no
// spread; the board says so once per power cycle, on the console and in the log.
TEST_F(AdcTest, DrdyTimeOut) {
    EXPECT_EQ(ADS1248_drdy_timeout_ms(121, 5), 124u * 200u + 10u);
    EXPECT_EQ(ADS1248_drdy_timeout_ms(1, 2000), 5u * 1u + 10u);
    EXPECT_EQ(ADS1248_drdy_timeout_ms(1, 7), 5u * 200u + 10u) << "the fall-back rate";

    sim::Environment e;
    e.adc_fault = "nodrdy";
    sim::set_environment(e);
    // A power cycle of its own: the once-only notice is per power cycle.
    sim::CycleResult r = sim::run_cycle([] {
        IntMasterEnable();
        SysTickPeriodSet(50000);
        SysTickEnable();
        SysTickIntEnable();
        UARTStdioConfig(0, 115200, 16000000);
        init_uSDCard();
        openADS1248_iso();
        ADS1248_gpio_init();
        uint64_t t0 = sim::now_cycles();
        sys_samp.AD24_std = 5.0f;
        float a = pollADS1248_iso(1, 6, 10, 1, 20);
        float sa = sys_samp.AD24_std;
        double ta = ms_since(t0);
        t0 = sim::now_cycles();
        float b = pollADS1248_iso(0, 6, 5, 1, 2000);
        double tb = ms_since(t0);
        closeADS1248_iso();
        uprintf("RESULT %.1f %.1f %.1f %.0f %.0f\r\n", (double)a, (double)sa, (double)b, ta, tb);
        wait_consoleTx();
    });
    // Both readings give the error value with no spread: the first after 710
    // ms and the notice, the second after 19 ms at 2000 sps and no second notice.
    EXPECT_EQ(r.reason, sim::EndReason::Returned);
    EXPECT_EQ(r.output, "\r\nADS1248 no DRDY: AIN1/AIN6 gave no conversion in 710 ms, reading set "
                        "to -999.0\r\nRESULT -999.0 0.0 -999.0 711 19\r\n");
    // Without SysTick the RTC still bounds the wait (two seconds of slack).
    r = sim::run_cycle([] {
        IntMasterEnable();
        UARTStdioConfig(0, 115200, 16000000);
        openADS1248_iso();
        uint64_t t0 = sim::now_cycles();
        float v = pollADS1248_iso(1, 6, 1, 1, 2000);
        uprintf("NOTICK %.1f %.0f\r\n", (double)v, ms_since(t0));
        wait_consoleTx();
    });
    size_t at = r.output.find("NOTICK ");
    ASSERT_NE(at, std::string::npos) << r.output;
    float a = 0, ta = 0;
    ASSERT_EQ(sscanf(r.output.c_str() + at, "NOTICK %f %f", &a, &ta), 2);
    EXPECT_EQ(a, ADS1248_NO_DRDY_VOLTS);
    EXPECT_GE(ta, 2000.0f);
    EXPECT_LE(ta, 3100.0f);

    std::string log = bench::card("Error.txt");
    EXPECT_EQ(scenario::count(log, "ADS1248 no DRDY, readings set to -999"), 1u) << log;
}

// The model's water read back through the chemistry; the other channels at fixed values.
TEST_F(AdcTest, FrontEndRoundTrip) {
    struct Water {
        double ph, temp, sal;
    } waters[] = {{7.9, 12.0, 34.0}, {8.1, 2.0, 35.0}, {7.6, 28.0, 36.5}};
    for (const Water &w : waters) {
        sim::Environment e;
        e.ph = w.ph;
        e.temp_c = w.temp;
        e.salinity = w.sal;
        e.seed = 7;
        sim::set_environment(e);
        open();
        float vtherm = pollADS1248_iso(0, 6, 5, 1, 20);
        settle(ADS1248_gpio_ADG1609_mux, 3);
        float vrsi = pollADS1248_iso(1, 6, 10, 1, 20);
        float vrsiStd = sys_samp.AD24_std;
        settle(ADS1248_gpio_ADG1609_mux, 0);
        float vrse = pollADS1248_iso(1, 6, 10, 1, 20);
        float tc = DuraFET_temp(vtherm, sys_data.TCOffset);
        EXPECT_NEAR(tc, w.temp, 0.002);
        EXPECT_NEAR(calc_pHint(vrsi, tc), w.ph, 0.001);
        EXPECT_NEAR(calc_pHext(vrse, tc, (float)w.sal), w.ph, 0.001);
        EXPECT_GT(vrsiStd, 0.5e-6f) << "a few microvolts of noise";
        EXPECT_LT(vrsiStd, 6e-6f);
        closeADS1248_iso();
    }

    open();
    settle(ADS1248_gpio3, 0);
    EXPECT_NEAR(2.0f * pollADS1248_iso(7, 6, 1, 1, 40), -3.03, 0.0001);
    settle(ADS1248_gpio3, 1);
    EXPECT_NEAR(2.0f * pollADS1248_iso(7, 6, 1, 1, 40), 3.04, 0.0001);
    settle(ADS1248_gpio_ADG1609_mux, 2);
    EXPECT_NEAR(pollADS1248_iso(1, 6, 1, 1, 20) * 1000.0f, 0.012, 0.01);
    settle(ADS1248_gpio_ADG1609_mux, 1);
    EXPECT_NEAR(pollADS1248_iso(1, 5, 5, 1, 20) * 66666.667f, 2.5, 0.5);
    EXPECT_NEAR(pollADS1248_iso(1, 6, 5, 1, 20), -0.905, 0.0001);
    settle(ADS1248_gpio_ADG1609_mux, 3);
    float vrsiB = pollADS1248_iso(1, 5, 5, 1, 20);
    EXPECT_NEAR(vrsiB, sim::front_end(sim::environment()).vrsi + 0.30, 0.0001);
    // ph_calib's inputs, with the mux left where it is
    EXPECT_NEAR(pollADS1248_iso(4, 6, 5, 1, 5), sim::front_end(sim::environment()).vrse, 1e-5);
    closeADS1248_iso();
}

// An ADC that never signals: each sample still ends, its ADC columns read -999.
TEST(AdcScenario, SamplesWithoutDrdy) {
    scenario::Board b;
    auto r = b.run("1 \\r\n1.1 \\r\n1.2 \\r\n1.3 \\r\n2 x\n3 6\\r\n4 t0\\r\n20 t0\\r\n", 0,
                   {"--adc-fault", "nodrdy"});
    EXPECT_EQ(scenario::count(r.out, "ADS1248 no DRDY"), 1u) << r.out;
    std::vector<std::string> lines;
    for (size_t p = r.out.find("#000000"); p != std::string::npos;
         p = r.out.find("#000000", p + 1)) {
        lines.push_back(r.out.substr(p, r.out.find("\r\n", p) - p));
    }
    ASSERT_EQ(lines.size(), 2u) << r.out;
    for (const std::string &l : lines) {
        EXPECT_GE(scenario::count(l, "-999.000000"), 5u) << l; // Vtherm, Vrsi, Vrse, Vrsi_B, Vk
    }
    std::string log = b.cardFile("Error.txt") + b.cardFile("ERROR.TXT");
    EXPECT_EQ(scenario::count(log, "ADS1248 no DRDY, readings set to -999"), 1u) << log;
}

} // namespace
