// The I2C parts seen from the bus: the scan, the BME280 against the datasheet's
// worked example and the climate model, the expander, the INA260.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "devices.h"
#include "i2c_sensors.h"
#include "scenario.h"
#include "sim.h"

#include "board/i2c0.h"
#include "board/i2c_bme280.h"
#include "board/i2c_ina260.h"
#include "board/i2c_pcal64xx.h"
#include "board/uartstdio.h"
#include "core/system.h"
#include "i2c.h"
#include "interrupt.h"
#include "sysctl.h"

namespace {

using bench::take;

class I2cParts : public ::testing::Test {
  protected:
    void SetUp() override {
        bench::power_up();
        UARTEchoSet(false);
        sys_data.app_cfg[APPCFG_NEWLINE_MODE] = 0;
        i2c0_init();
        bme280_dev = bme280_data{};
        sim::console_take();
        sim::i2c_log_clear();
    }
};

// The datasheet's worked example, as the climate-sensor model holds it.
bme280_data example_calib() {
    const sim::Bme280Calib c = sim::bme280_example_calib();
    return {c.t1, c.t2, c.t3, c.p1, c.p2, c.p3, c.p4,           c.p5, c.p6, c.p7, c.p8, c.p9,
            c.h1, c.h2, c.h3, c.h4, c.h5, c.h6, BME280_CHIP_ID, 0,    0,    0,    0};
}

// dig_T1..dig_H6 in the datasheet's order
std::vector<int> words(const bme280_data &d) {
    return {d.dig_t1, d.dig_t2, d.dig_t3, d.dig_p1, d.dig_p2, d.dig_p3,
            d.dig_p4, d.dig_p5, d.dig_p6, d.dig_p7, d.dig_p8, d.dig_p9,
            d.dig_h1, d.dig_h2, d.dig_h3, d.dig_h4, d.dig_h5, d.dig_h6};
}

} // namespace

TEST_F(I2cParts, BusScanNamesEveryPartThatAnswers) {
    sim::attach_i2c(0x05, std::make_shared<sim::I2cDevice>());
    sim::attach_i2c(0x68, std::make_shared<sim::I2cDevice>());
    EXPECT_EQ(i2c0_busScan(), 1);
    EXPECT_EQ(take(),
              "\r\nI2C0 Bus-Scan start...\r\n"
              "Address found:     0x 5 -   5   (0x02)\r\n"
              "Address found:     0x20 -  32   (0x10)  PCAL6416 I/O expander on baseboard \r\n"
              "Address found:     0x40 -  64   (0x20)  INA260 on Tiva 1290 'brisko' Module \r\n"
              "Address found:     0x4c -  76   (0x26)  INA260 on baseboard \r\n"
              "Address found:     0x50 -  80   (0x28)  FRAM on Tiva Module \r\n"
              "Address found:     0x68 - 104   (0x34)  DS3231 RTC on baseboard \r\n"
              "Address found:     0x77 - 119   (0x3b)  BME280 on baseboard \r\n"
              "\r\nI2C0 Bus-Scan done...\r\n");
    // one address-only write with data 0 per address 0-126
    const std::set<int> parts = {0x05, 0x20, 0x40, 0x4C, 0x50, 0x68, 0x77};
    std::string bus;
    for (int a = 0; a < 127; a++) {
        char ev[16];
        snprintf(ev, sizeof ev, parts.count(a) != 0 ? "[%02X W] 00 P" : "[%02X W NACK]", a);
        bus += (a != 0 ? " " : "") + std::string(ev);
    }
    EXPECT_EQ(sim::i2c_log_text(), bus);
}

TEST(Bme280Compensation, DatasheetWorkedExample) {
    bme280_data d = example_calib();
    // 25.08 degrees Celsius, t_fine 128422
    EXPECT_EQ(bme280_calc_temperature(&d, 519888), 2508);
    EXPECT_EQ(d.t_fine, 128422);
    // 100653.27 Pa published for the floating-point formula; the 32-bit
    // integer formula of the appendix lands on 100656 Pa for the same words
    uint32_t p = bme280_calc_pressure(&d, 415148);
    EXPECT_EQ(p, 100656u);
    EXPECT_NEAR(double(p), 100653.27, 3.0);

    // the integer humidity follows the floating-point formula of the datasheet
    sim::Bme280Calib c = sim::bme280_example_calib();
    for (int32_t adc_H : {20000, 26000, 30000, 36000}) {
        double ref = sim::bme280_compensate(c, 519888, 415148, adc_H).humidity_rh;
        EXPECT_NEAR(bme280_calc_humidity(&d, adc_H) / 1024.0, ref, 0.01) << adc_H;
    }
    EXPECT_EQ(bme280_calc_humidity(&d, 0), 0u) << "clamped at 0 %RH";
    EXPECT_EQ(bme280_calc_humidity(&d, 0xFFFF), 100u << 10) << "clamped at 100 %RH";

    // a dead calibration (all 0xFF) gives nonsense, not a fault
    bme280_data dead;
    memset(&dead, 0xFF, sizeof dead);
    (void)bme280_calc_temperature(&dead, 0xFFFFF);
    (void)bme280_calc_pressure(&dead, 0xFFFFF);
    (void)bme280_calc_humidity(&dead, 0xFFFF);
    bme280_data zero{};
    EXPECT_EQ(bme280_calc_pressure(&zero, 415148), 0u) << "no division by zero";
}

TEST(Bme280Compensation, HumidityWordsShareRegisterE5) {
    uint8_t tp[32] = {0x70, 0x6B}; // dig_T1 = 27504
    // H2 = 362, H3 = 0, H4 = 313 (0x139), H5 = 50 (0x032), H6 = 30
    const uint8_t h[7] = {0x6A, 0x01, 0x00, 0x13, 0x29, 0x03, 0x1E};
    bme280_data d{};
    bme280_unpack_calib(&d, tp, 75, h);
    EXPECT_EQ(words(d),
              (std::vector<int>{27504, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 75, 362, 0, 313, 50, 30}));
    // negative 12-bit words (0xFE5, 0xF0A) and a negative dig_H6
    const uint8_t n[7] = {0x00, 0x80, 0xFF, 0xFE, 0xA5, 0xF0, 0x80};
    bme280_unpack_calib(&d, tp, 0, n);
    EXPECT_EQ(words(d), (std::vector<int>{27504, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, -32768, 255,
                                          -27, -246, -128}));
}

TEST_F(I2cParts, Bme280StartsAndMeasuresTheBoardAir) {
    EXPECT_EQ(bme280_init(), 0);
    EXPECT_EQ(take(), "");
    EXPECT_EQ(bme280_dev.chip_id, 0x60);
    EXPECT_EQ(words(bme280_dev), words(example_calib()));
    EXPECT_EQ(
        sim::i2c_log_text(),
        "[77 W] D0 [77 R] 60 P [77 W] 88 [77 R] 70 6B 43 67 18 FC 7D 8E 43 D6 D0 0B 27 0B 8C "
        "00 F9 FF 8C 3C F8 C6 70 17 00 4B 00 00 00 00 00 00 P [77 W] A1 [77 R] 4B P [77 W] E1 "
        "[77 R] 6A 01 00 13 29 03 1E P [77 W] F2 01 P [77 W] F4 25 P [77 W] F5 00 P");

    // nothing measured yet: the sample line's columns read zero
    EXPECT_EQ(bme280_get_fTemperature(), 0.0f);
    EXPECT_EQ(bme280_get_uiHumidity(), 0u);

    sim::i2c_log_clear();
    double t0 = sim::now_seconds();
    EXPECT_EQ(bme280_read_data(), 0);
    EXPECT_GE(sim::now_seconds() - t0, 0.5);
    EXPECT_LT(sim::now_seconds() - t0, 0.52);
    EXPECT_EQ(sim::i2c_log_text(),
              "[77 W] F4 25 P [77 W] F3 [77 R] 00 P [77 W] F7 [77 R] 63 81 20 7B BF 10 6A AF P");
    EXPECT_NEAR(bme280_dev.temperature, 2100, 1);
    EXPECT_NEAR(bme280_get_fTemperature(), 21.0f, 0.011f);
    // the part's readings stand for 1013.25 hPa; the 32-bit formula is a few pascal off
    EXPECT_NEAR(double(bme280_dev.pressure), 101325.0, 5.0);
    EXPECT_EQ(bme280_get_fPressure(), float(bme280_dev.pressure));
    EXPECT_NEAR(bme280_dev.humidity / 1024.0, 40.0, 0.05);
    EXPECT_GE(bme280_get_uiHumidity(), 39u);
    EXPECT_LE(bme280_get_uiHumidity(), 40u);
}

struct ChipCase {
    int id; // -1: no part at 0x77
    int init;
    bool humidity;
    const char *console;
};

TEST_F(I2cParts, Bme280AcceptsItsRelativesAndRefusesOthers) {
    const ChipCase cases[] = {
        {0x60, 0, true, ""},
        {0x58, 0, false, ""},
        {0x56, 0, false, ""},
        {0x61, 1, false, "BME280 not found at 0x77, chip id 0x61\r\n"},
        {-1, 1, false, "BME280 not found at 0x77, chip id 0x00\r\n"},
    };
    for (const ChipCase &c : cases) {
        SetUp();
        auto model = std::make_shared<sim::Bme280Model>(uint8_t(c.id));
        sim::attach_i2c(0x77, c.id < 0 ? nullptr : model);
        EXPECT_EQ(bme280_init(), c.init) << c.id;
        EXPECT_EQ(take(), c.console) << c.id;
        std::string log = sim::i2c_log_text();
        EXPECT_EQ(log.find("[77 W] E1") != std::string::npos, c.humidity) << c.id;
        EXPECT_EQ(log.find("[77 W] F2 01 P") != std::string::npos, c.humidity) << c.id;
        if (c.init != 0) {
            EXPECT_EQ(log.find("[77 W] 88"), std::string::npos) << "no calibration read";
            if (c.id < 0) {
                EXPECT_EQ(bme280_read_data(), BME280_FETCH_ERROR);
            }
            continue;
        }
        sim::i2c_log_clear();
        EXPECT_EQ(bme280_read_data(), 0);
        log = sim::i2c_log_text();
        // a forced measurement: pressure and temperature, then humidity only from the BME280
        char burst[80];
        int32_t rp = model->raw_p(), rt = model->raw_t(), rh = model->raw_h();
        int n = snprintf(burst, sizeof burst, "[77 W] F7 [77 R] %02X %02X %02X %02X %02X %02X",
                         rp >> 12, (rp >> 4) & 0xFF, (rp & 0xF) << 4, rt >> 12, (rt >> 4) & 0xFF,
                         (rt & 0xF) << 4);
        if (c.humidity) {
            n += snprintf(burst + n, sizeof burst - n, " %02X %02X", rh >> 8, rh & 0xFF);
        }
        snprintf(burst + n, sizeof burst - n, " P");
        EXPECT_EQ(log, "[77 W] F4 25 P [77 W] F3 [77 R] 00 P " + std::string(burst)) << c.id;
        EXPECT_NEAR(bme280_get_fTemperature(), 21.0f, 0.011f);
        EXPECT_EQ(bme280_get_uiHumidity() != 0u, c.humidity) << c.id;
    }
}

// Port 0 starts as low outputs; bit writes only go to the output registers,
// with a state of 0 or 1; the test menu switches port 0.
TEST_F(I2cParts, Expander) {
    auto m = std::make_shared<sim::Pcal6416Model>();
    sim::attach_i2c(0x20, m);
    pcal6416_shadow_port0 = 0x5A;
    EXPECT_EQ(pcal6416_probe(0x20), 1);
    EXPECT_EQ(pcal6416_probe(0x21), 0);
    sim::i2c_log_clear();
    pcal6416_init();
    EXPECT_EQ(take(), "");
    EXPECT_EQ(sim::i2c_log_text(), "[20 W] 00 P [20 W] 06 00 P [20 W] 07 FF P [20 W] 02 00 P");
    EXPECT_EQ(pcal6416_shadow_port0, 0);
    EXPECT_EQ(pcal6416_shadow_port1, 0);
    EXPECT_EQ(m->reg(6), 0x00);
    EXPECT_EQ(m->reg(7), 0xFF);
    EXPECT_EQ(m->pins(0), 0x00);

    const struct {
        int reg;
        int mask;
        uint32_t state;
        const char *bus; // "" = nothing written
        uint8_t pins0;
    } cases[] = {
        {2, 0x05, 1, "[20 W] 02 05 P", 0x05},
        {2, 0x01, 0, "[20 W] 02 04 P", 0x04},
        {2, 0x80, 2, "", 0x04},
        {4, 0x01, 1, "", 0x04},
        {1, 0x01, 1, "", 0x04},
        {3, 0x81, 1, "[20 W] 03 81 P", 0x04},
        {3, 0x01, 0, "[20 W] 03 80 P", 0x04},
        {2, 0x300, 1, "[20 W] 02 04 P", 0x04},
    };
    for (const auto &c : cases) {
        sim::i2c_log_clear();
        pcal6416_write_port_bit(c.reg, c.mask, c.state);
        EXPECT_EQ(sim::i2c_log_text(), c.bus) << c.reg << " " << c.mask << " " << c.state;
        EXPECT_EQ(m->pins(0), c.pins0);
    }
    EXPECT_EQ(pcal6416_shadow_port0, 0x04);
    EXPECT_EQ(pcal6416_shadow_port1, 0x80);
    EXPECT_EQ(m->reg(3), 0x80);
    EXPECT_EQ(m->pins(1), 0x00) << "port 1 stays inputs";

    pcal6416_init();
    take();
    sim::console_feed("A\rC\ra\rT\r9\r");
    pcal6416_test_menu();
    std::string out = take();
    for (const char *item :
         {"A/a -- Spec Pwr", "B/b -- Pump Pwr", "C/c -- Lamp Pwr", "F/f -- Lamp Shutter",
          "G/g -- Spec rs232 Enable", "H/h -- Spare pin 2", "T   -- PCAL6416 dev test",
          "9 -- Exit to Main Menu", "Spec Pwr on", "Lamp Pwr on", "Spec Pwr off",
          "PCAL6416 found at 0x20", "reg 6 = 0x00"}) {
        EXPECT_NE(out.find(item), std::string::npos) << item;
    }
    EXPECT_EQ(m->pins(0), PCAL6416_LAMP_PWR);

    // an idle menu goes back to its caller
    double t0 = sim::now_seconds();
    pcal6416_test_menu();
    EXPECT_NEAR(sim::now_seconds() - t0, 301.0, 1.0);
    take();
    sim::attach_i2c(0x20, nullptr);
    pcal6416_init();
    EXPECT_EQ(take(), "PCAL6416 not found at 0x20\r\n");
}

TEST_F(I2cParts, Ina260FactorsAndFixedSupplyFigures) {
    // raw x 32.768 x 0.004 (V), x 0.005 (A), x 0.00002 (W)
    EXPECT_EQ(ina260_calc_voltage(1), 0.131072f);
    EXPECT_EQ(ina260_calc_voltage(1000), 131.072f);
    EXPECT_EQ(ina260_calc_voltage(-250), -32.768f);
    EXPECT_EQ(ina260_calc_current(1), 0.16384f);
    EXPECT_EQ(ina260_calc_current(200), 32.768f);
    EXPECT_EQ(ina260_calc_power(1), 0.00065536f);
    EXPECT_EQ(ina260_calc_power(50000), 32.768f);
    EXPECT_EQ(ina260_calc_voltage(0), 0.0f);

    float v = 0, a = 0;
    sim::i2c_log_clear();
    EXPECT_EQ(ina260_system_voltageCurrent(&v, &a), 0);
    EXPECT_EQ(v, 14.3f);
    EXPECT_EQ(a, 0.037f);
    EXPECT_EQ(ina260_system_read_data(), 0);
    EXPECT_EQ(sim::i2c_log_text(), "") << "the monitor is not read on this board";

    uint16_t r = 0;
    ASSERT_EQ(ina260_read_reg(0x4C, INA260_REG_BUS_VOLTAGE, &r), 0);
    EXPECT_EQ(r, 11440) << "14.3 V in 1.25 mV steps, high byte first";
    EXPECT_NE(ina260_read_reg(0x4F, INA260_REG_CONFIG, &r), 0) << "nobody at 0x4F";
    EXPECT_FALSE(I2CMasterBusBusy(I2C0_BASE));
}
