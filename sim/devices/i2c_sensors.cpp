// The board's I2C sensors and expander: BME280 at 0x77, PCAL6416 at 0x20,
// INA260 at 0x40 (processor module) and 0x4C (baseboard). Each answers at
// the byte level like the part: register pointers, auto-increment, reset
// values, measurement time. The board's own air is fixed: about 21 degrees,
// 40 %RH and 1013 hPa; the supply 14.3 V at 37 mA.
#include "i2c_sensors.h"

#include <cmath>
#include <memory>

#include "board.h"

namespace sim {

namespace {

constexpr double kBoardTempC = 21.0;
constexpr double kBoardRh = 40.0;
constexpr double kBoardHpa = 1013.25;
constexpr double kSupplyVolts = 14.3;
constexpr double kSupplyAmps = 0.037;
constexpr double kModuleVolts = 3.3;
constexpr double kModuleAmps = 0.012;

constexpr uint8_t kRegCalibTp = 0x88, kRegH1 = 0xA1, kRegId = 0xD0, kRegReset = 0xE0;
constexpr uint8_t kRegCalibH = 0xE1, kRegCtrlHum = 0xF2, kRegStatus = 0xF3;
constexpr uint8_t kRegCtrlMeas = 0xF4, kRegConfig = 0xF5, kRegData = 0xF7;
constexpr uint8_t kStatusMeasuring = 0x08;
constexpr uint8_t kResetWord = 0xB6;
constexpr int32_t kSkippedTP = 0x80000, kSkippedH = 0x8000;

// Oversampling code (1..5) to its factor; 0 = skipped.
int factor(unsigned code) {
    return code == 0 ? 0 : 1 << (std::min(code, 5u) - 1);
}

// Largest raw value for which f(raw) >= target when f falls with raw, or
// smallest for which f(raw) >= target when it rises.
template <typename F> int32_t invert(F f, double target, int32_t hi, bool rising) {
    int32_t lo = 0;
    while (lo < hi) {
        int32_t mid = rising ? lo + (hi - lo) / 2 : lo + (hi - lo + 1) / 2;
        bool above = f(mid) >= target;
        if (rising) {
            above ? hi = mid : lo = mid + 1;
        } else {
            above ? lo = mid : hi = mid - 1;
        }
    }
    return lo;
}

} // namespace

Bme280Calib bme280_example_calib() {
    Bme280Calib c{};
    c.t1 = 27504;
    c.t2 = 26435;
    c.t3 = -1000;
    c.p1 = 36477;
    c.p2 = -10685;
    c.p3 = 3024;
    c.p4 = 2855;
    c.p5 = 140;
    c.p6 = -7;
    c.p7 = 15500;
    c.p8 = -14600;
    c.p9 = 6000;
    c.h1 = 75;
    c.h2 = 362;
    c.h3 = 0;
    c.h4 = 313;
    c.h5 = 50;
    c.h6 = 30;
    return c;
}

Bme280Reading bme280_compensate(const Bme280Calib &c, int32_t adc_T, int32_t adc_P, int32_t adc_H) {
    Bme280Reading r{};
    double v1 = (adc_T / 16384.0 - c.t1 / 1024.0) * c.t2;
    double d = adc_T / 131072.0 - c.t1 / 8192.0;
    double v2 = d * d * c.t3;
    int32_t t_fine = int32_t(v1 + v2);
    r.temp_c = (v1 + v2) / 5120.0;

    v1 = t_fine / 2.0 - 64000.0;
    v2 = v1 * v1 * c.p6 / 32768.0;
    v2 = v2 + v1 * c.p5 * 2.0;
    v2 = v2 / 4.0 + c.p4 * 65536.0;
    v1 = (c.p3 * v1 * v1 / 524288.0 + c.p2 * v1) / 524288.0;
    v1 = (1.0 + v1 / 32768.0) * c.p1;
    if (v1 != 0.0) {
        double p = 1048576.0 - adc_P;
        p = (p - v2 / 4096.0) * 6250.0 / v1;
        v1 = c.p9 * p * p / 2147483648.0;
        v2 = p * c.p8 / 32768.0;
        r.pressure_pa = p + (v1 + v2 + c.p7) / 16.0;
    }

    double h = t_fine - 76800.0;
    h = (adc_H - (c.h4 * 64.0 + c.h5 / 16384.0 * h)) *
        (c.h2 / 65536.0 * (1.0 + c.h6 / 67108864.0 * h * (1.0 + c.h3 / 67108864.0 * h)));
    h = h * (1.0 - c.h1 * h / 524288.0);
    r.humidity_rh = std::min(100.0, std::max(0.0, h));
    return r;
}

// ---- BME280 ---------------------------------------------------------------

Bme280Model::Bme280Model(uint8_t chip_id, Bme280Calib calib) : chip_id_(chip_id), cal_(calib) {
    power_on_values();
    set_conditions(kBoardTempC, kBoardRh, kBoardHpa);
}

void Bme280Model::power_on_values() {
    std::fill(std::begin(regs_), std::end(regs_), 0);
    const int16_t words[12] = {int16_t(cal_.t1), cal_.t2, cal_.t3, int16_t(cal_.p1),
                               cal_.p2,          cal_.p3, cal_.p4, cal_.p5,
                               cal_.p6,          cal_.p7, cal_.p8, cal_.p9};
    for (int i = 0; i < 12; ++i) {
        regs_[kRegCalibTp + 2 * i] = uint8_t(uint16_t(words[i]) & 0xFF);
        regs_[kRegCalibTp + 2 * i + 1] = uint8_t(uint16_t(words[i]) >> 8);
    }
    regs_[kRegId] = chip_id_;
    if (humid()) {
        regs_[kRegH1] = cal_.h1;
        regs_[kRegCalibH + 0] = uint8_t(uint16_t(cal_.h2) & 0xFF);
        regs_[kRegCalibH + 1] = uint8_t(uint16_t(cal_.h2) >> 8);
        regs_[kRegCalibH + 2] = cal_.h3;
        regs_[kRegCalibH + 3] = uint8_t((cal_.h4 >> 4) & 0xFF);
        regs_[kRegCalibH + 4] = uint8_t((cal_.h4 & 0x0F) | ((cal_.h5 & 0x0F) << 4));
        regs_[kRegCalibH + 5] = uint8_t((cal_.h5 >> 4) & 0xFF);
        regs_[kRegCalibH + 6] = uint8_t(cal_.h6);
    }
    // data registers hold their reset values until the first measurement
    regs_[kRegData + 0] = 0x80;
    regs_[kRegData + 3] = 0x80;
    if (humid()) {
        regs_[kRegData + 6] = 0x80;
    }
    pending_ = false;
}

void Bme280Model::set_conditions(double temp_c, double rh, double hpa) {
    const Bme280Calib &c = cal_;
    raw_t_ = invert([&](int32_t a) { return bme280_compensate(c, a, 0, 0).temp_c; }, temp_c,
                    (1 << 20) - 1, c.t2 > 0);
    int32_t t = raw_t_;
    raw_p_ = invert([&](int32_t a) { return bme280_compensate(c, t, a, 0).pressure_pa; },
                    hpa * 100.0, (1 << 20) - 1, false);
    raw_h_ = humid() ? invert([&](int32_t a) { return bme280_compensate(c, t, 0, a).humidity_rh; },
                              rh, 0xFFFF, true)
                     : 0;
}

void Bme280Model::update() {
    if (pending_ && now_cycles() >= done_at_) {
        latch();
    }
}

void Bme280Model::latch() {
    pending_ = false;
    uint8_t meas = regs_[kRegCtrlMeas];
    int32_t t = ((meas >> 5) & 7) != 0 ? raw_t_ : kSkippedTP;
    int32_t p = ((meas >> 2) & 7) != 0 ? raw_p_ : kSkippedTP;
    regs_[kRegData + 0] = uint8_t(p >> 12);
    regs_[kRegData + 1] = uint8_t(p >> 4);
    regs_[kRegData + 2] = uint8_t((p & 0x0F) << 4);
    regs_[kRegData + 3] = uint8_t(t >> 12);
    regs_[kRegData + 4] = uint8_t(t >> 4);
    regs_[kRegData + 5] = uint8_t((t & 0x0F) << 4);
    if (humid()) {
        int32_t h = (regs_[kRegCtrlHum] & 7) != 0 ? raw_h_ : kSkippedH;
        regs_[kRegData + 6] = uint8_t(h >> 8);
        regs_[kRegData + 7] = uint8_t(h);
    }
    if ((meas & 3) != 3) {
        regs_[kRegCtrlMeas] = uint8_t(meas & ~3); // a forced measurement ends in sleep
    }
    measurements_++;
}

uint8_t Bme280Model::reg(uint8_t r) {
    update();
    if (r == kRegStatus) {
        return pending_ ? kStatusMeasuring : 0;
    }
    return regs_[r];
}

void Bme280Model::start(bool read) {
    if (!read) {
        have_ptr_ = false;
    }
}

bool Bme280Model::write(uint8_t byte) {
    update();
    if (!have_ptr_) {
        ptr_ = byte;
        have_ptr_ = true;
        return true;
    }
    // a write continues with (register, value) pairs
    have_ptr_ = false;
    switch (ptr_) {
    case kRegReset:
        if (byte == kResetWord) {
            power_on_values();
        }
        break;
    case kRegCtrlHum:
        if (humid()) {
            regs_[kRegCtrlHum] = byte & 7;
        }
        break;
    case kRegConfig:
        regs_[kRegConfig] = byte & 0xFD;
        break;
    case kRegCtrlMeas: {
        regs_[kRegCtrlMeas] = byte;
        unsigned mode = byte & 3;
        if (mode == 0) {
            pending_ = false;
            break;
        }
        // typical-to-maximum measurement time of the datasheet, in microseconds
        int ft = factor((byte >> 5) & 7), fp = factor((byte >> 2) & 7);
        int fh = humid() ? factor(regs_[kRegCtrlHum] & 7) : 0;
        double us = 1250.0 + 2300.0 * ft + (fp ? 2300.0 * fp + 575.0 : 0.0) +
                    (fh ? 2300.0 * fh + 575.0 : 0.0);
        done_at_ = now_cycles() + uint64_t(us * kCpuHz / 1e6);
        pending_ = true;
        break;
    }
    default:
        break; // read-only
    }
    return true;
}

uint8_t Bme280Model::read(bool) {
    uint8_t v = reg(ptr_);
    ptr_ = uint8_t(ptr_ + 1);
    return v;
}

// ---- PCAL6416 -------------------------------------------------------------

Pcal6416Model::Pcal6416Model() {
    regs_[2] = regs_[3] = 0xFF; // outputs high
    regs_[6] = regs_[7] = 0xFF; // all inputs
    for (uint8_t r = 0x40; r <= 0x43; ++r) {
        regs_[r] = 0xFF; // full drive strength
    }
    regs_[0x48] = regs_[0x49] = 0xFF; // pull-ups selected (not enabled)
    regs_[0x4A] = regs_[0x4B] = 0xFF; // interrupts masked
}

uint8_t Pcal6416Model::pins(int port) const {
    port &= 1;
    uint8_t cfg = regs_[6 + port];
    return uint8_t((regs_[2 + port] & ~cfg) | (ext_[port] & cfg));
}

uint8_t Pcal6416Model::value_of(uint8_t r) const {
    if (r <= 1) {
        return uint8_t(pins(r) ^ regs_[4 + r]);
    }
    return regs_[r];
}

void Pcal6416Model::next() {
    if (ptr_ <= 7 || (ptr_ >= 0x40 && ptr_ <= 0x4D)) {
        ptr_ ^= 1; // the two registers of a pair take turns
    }
}

void Pcal6416Model::start(bool read) {
    if (!read) {
        have_ptr_ = false;
    }
}

bool Pcal6416Model::write(uint8_t byte) {
    if (!have_ptr_) {
        ptr_ = byte;
        have_ptr_ = true;
        return true;
    }
    bool writable = (ptr_ >= 2 && ptr_ <= 7) || (ptr_ >= 0x40 && ptr_ <= 0x4B) || ptr_ == 0x4F;
    if (writable) {
        regs_[ptr_] = byte;
        writes_++;
    }
    next();
    return true;
}

uint8_t Pcal6416Model::read(bool) {
    uint8_t v = value_of(ptr_);
    next();
    return v;
}

// ---- INA260 ---------------------------------------------------------------

Ina260Model::Ina260Model(double bus_volts, double amps) : volts_(bus_volts), amps_(amps) {}

uint16_t Ina260Model::reg(uint8_t r) const {
    // LSB: current 1.25 mA, bus voltage 1.25 mV, power 10 mW
    long amps = std::lround(amps_ / 0.00125);
    long volts = std::lround(volts_ / 0.00125);
    switch (r) {
    case 0x00:
        return config_;
    case 0x01:
        return uint16_t(int16_t(amps));
    case 0x02:
        return uint16_t(volts);
    case 0x03:
        return uint16_t(std::lround(volts * 0.00125 * std::fabs(amps * 0.00125) / 0.01));
    case 0x06:
        return mask_;
    case 0x07:
        return alert_;
    case 0xFE:
        return 0x5449; // "TI"
    case 0xFF:
        return 0x2270; // die 0x227, revision 0
    default:
        return 0;
    }
}

void Ina260Model::start(bool read) {
    if (read) {
        rpos_ = 0;
    } else {
        wpos_ = 0;
    }
}

bool Ina260Model::write(uint8_t byte) {
    if (wpos_ == 0) {
        ptr_ = byte;
        wpos_ = 1;
        return true;
    }
    if (wpos_ == 1) {
        whi_ = byte;
        wpos_ = 2;
        return true;
    }
    uint16_t v = uint16_t((whi_ << 8) | byte);
    if (ptr_ == 0x00) {
        config_ = (v & 0x8000) ? 0x6127 : uint16_t(v | 0x6000);
    } else if (ptr_ == 0x06) {
        mask_ = v;
    } else if (ptr_ == 0x07) {
        alert_ = v;
    }
    wpos_ = 1;
    return true;
}

uint8_t Ina260Model::read(bool) {
    uint16_t v = reg(ptr_);
    uint8_t b = (rpos_ % 2 == 0) ? uint8_t(v >> 8) : uint8_t(v);
    rpos_++;
    return b;
}

void install_i2c_sensors(Board &b) {
    b.i2c.devices[0x77] = std::make_shared<Bme280Model>();
    b.i2c.devices[0x20] = std::make_shared<Pcal6416Model>();
    b.i2c.devices[0x40] = std::make_shared<Ina260Model>(kModuleVolts, kModuleAmps);
    b.i2c.devices[0x4C] = std::make_shared<Ina260Model>(kSupplyVolts, kSupplyAmps);
}

} // namespace sim
