// Models of the board's I2C sensors and expander: the BME280 climate sensor
// (0x77), the PCAL6416 I/O expander (0x20) and the INA260 power monitors
// (0x40 on the processor module, 0x4C on the baseboard). install_i2c_sensors
// puts one of each on every board; a test may attach its own with other
// settings (attach_i2c).
#pragma once
#include <cstdint>

#include "devices.h"

namespace sim {

// Calibration words of a BME280 as the datasheet names them.
struct Bme280Calib {
    uint16_t t1;
    int16_t t2, t3;
    uint16_t p1;
    int16_t p2, p3, p4, p5, p6, p7, p8, p9;
    uint8_t h1;
    int16_t h2;
    uint8_t h3;
    int16_t h4, h5;
    int8_t h6;
};
// Temperature and pressure words of the datasheet's worked example; the
// humidity words are those of a typical part (the datasheet gives no example).
Bme280Calib bme280_example_calib();

// The datasheet's floating-point compensation (the model's own reference;
// the firmware uses the integer formulas).
struct Bme280Reading {
    double temp_c, pressure_pa, humidity_rh;
};
Bme280Reading bme280_compensate(const Bme280Calib &c, int32_t adc_T, int32_t adc_P, int32_t adc_H);

// BME280 (chip identifier 0x60) or one of its pressure-only relatives (0x58,
// 0x56; no humidity registers). Register file with auto-increment reads and
// (register, value) pair writes; a forced measurement takes its datasheet time
// (status bit 3 meanwhile) and then latches raw readings that compensate back
// to the set board conditions.
class Bme280Model : public I2cDevice {
  public:
    explicit Bme280Model(uint8_t chip_id = 0x60, Bme280Calib calib = bme280_example_calib());
    void set_conditions(double temp_c, double rh, double hpa);
    uint8_t reg(uint8_t r);
    int32_t raw_t() const { return raw_t_; }
    int32_t raw_p() const { return raw_p_; }
    int32_t raw_h() const { return raw_h_; }
    uint32_t measurements() const { return measurements_; }

    void start(bool read) override;
    bool write(uint8_t byte) override;
    uint8_t read(bool ack) override;

  private:
    void power_on_values();
    void update();
    void latch();
    bool humid() const { return chip_id_ == 0x60; }
    uint8_t chip_id_;
    Bme280Calib cal_;
    uint8_t regs_[256] = {};
    uint8_t ptr_ = 0;
    bool have_ptr_ = false;
    uint64_t done_at_ = 0;
    bool pending_ = false;
    int32_t raw_t_ = 0, raw_p_ = 0, raw_h_ = 0;
    uint32_t measurements_ = 0;
};

// PCAL6416 16-bit expander: command byte, then data; consecutive bytes toggle
// between the two registers of a pair. Pins configured as outputs show the
// output register; inputs show what set_inputs gave them.
class Pcal6416Model : public I2cDevice {
  public:
    Pcal6416Model();
    uint8_t reg(uint8_t r) const { return regs_[r]; }
    uint8_t pins(int port) const; // levels at the pins of port 0 or 1
    void set_inputs(int port, uint8_t levels) { ext_[port & 1] = levels; }
    uint32_t writes() const { return writes_; }

    void start(bool read) override;
    bool write(uint8_t byte) override;
    uint8_t read(bool ack) override;

  private:
    uint8_t value_of(uint8_t r) const;
    void next();
    uint8_t regs_[256] = {};
    uint8_t ext_[2] = {0, 0};
    uint8_t ptr_ = 0;
    bool have_ptr_ = false;
    uint32_t writes_ = 0;
};

// INA260 power monitor: 16-bit registers, most significant byte first; the
// pointer is set by the first byte written, and reads repeat the register.
class Ina260Model : public I2cDevice {
  public:
    Ina260Model(double bus_volts, double amps);
    uint16_t reg(uint8_t r) const;

    void start(bool read) override;
    bool write(uint8_t byte) override;
    uint8_t read(bool ack) override;

  private:
    double volts_, amps_;
    uint16_t config_ = 0x6127, mask_ = 0, alert_ = 0;
    uint8_t ptr_ = 0;
    int wpos_ = 0;
    uint8_t whi_ = 0;
    int rpos_ = 0;
};

} // namespace sim
