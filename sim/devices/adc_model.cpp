// The ADS1248 on SSI3 and the ADG1609 mux behind its GPIO pins, fed by the
// analog front end. Decodes the SPI command set (WREG, RREG, RDATA, RDATAC,
// SDATAC, SYNC, SLEEP, WAKEUP, RESET, NOP) byte by byte while chip select is
// low, follows the supply, START and RESET lines, converts continuously at the
// programmed data rate with the data sheet's first-conversion delays, drives
// DRDY, and in read-continuous mode shifts out the next conversion on the
// first clocks after DRDY falls. Every transaction is logged for tests.
#include "adc_model.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include "analog_frontend.h"
#include "board.h"
#include "gpio.h"

namespace sim {

namespace {

constexpr uint32_t kPortE = GPIO_PORTE_BASE;
constexpr uint32_t kPortD = GPIO_PORTD_BASE;
constexpr uint8_t kPinPower = GPIO_PIN_0;
constexpr uint8_t kPinDrdy = GPIO_PIN_1;
constexpr uint8_t kPinStart = GPIO_PIN_2;
constexpr uint8_t kPinReset = GPIO_PIN_3;
constexpr uint8_t kPinCs = GPIO_PIN_1;

constexpr int kRegs = 15;
enum Reg { MUX0 = 0, VBIAS, MUX1, SYS0, IDAC0 = 0x0A, GPIOCFG = 0x0C, GPIODIR, GPIODAT };
// Register values after power-up or reset (FSC holds the factory gain trim).
constexpr uint8_t kResetRegs[kRegs] = {0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                       0x00, 0x40, 0x90, 0xFF, 0x00, 0xFF, 0x00};
constexpr uint8_t kIdBits = 0xF0; // IDAC0 upper nibble: device identity, read-only

// Data sheet timing in oscillator periods (4.096 MHz): first data after a
// reset, START or SYNC; after a VBIAS, MUX0, MUX1 or SYS0 write; afterwards.
constexpr uint32_t kFirstAfterReset[10] = {816160, 408096, 204064, 102072, 51064,
                                           25560,  12796,  6428,   4156,   2108};
constexpr uint32_t kFirstAfterWrite[10] = {820265, 412201, 208169, 103106, 52098,
                                           26594,  13314,  6946,   4674,   2370};
constexpr uint32_t kPeriod[10] = {816128, 408064, 204032, 102016, 51008,
                                  25504,  12736,  6368,   4096,   2048};
constexpr uint64_t kOscHz = 4096000;
constexpr uint64_t kPowerUpCycles =
    (uint64_t(1) << 16) * kCpuHz / kOscHz; // 2^16 oscillator periods

constexpr size_t kLogCap = 200000; // transactions kept (a long run in one process)

uint64_t osc_to_cpu(uint64_t osc) {
    return (osc * kCpuHz + kOscHz / 2) / kOscHz;
}

// splitmix64: the noise is a pure function of the seed and the conversion.
uint64_t mix(uint64_t x) {
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

double gaussian(uint64_t seed, uint64_t at) {
    uint64_t a = mix(seed ^ mix(at));
    uint64_t b = mix(a);
    double u1 = (double(a >> 11) + 0.5) / 9007199254740992.0; // (0, 1)
    double u2 = double(b >> 11) / 9007199254740992.0;
    return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * M_PI * u2);
}

class Ads1248 : public SpiDevice {
  public:
    uint32_t transfer(uint32_t out, uint64_t at) override;
    void on_gpio(uint32_t port);
    bool drdy_high(uint64_t now);

    std::vector<AdcTransaction> log;
    std::vector<AdcLineEvent> events;
    std::vector<uint32_t> queued;
    double noise = -1; // volts rms; < 0: the environment's
    AdcStatus status() const;

  private:
    enum class Cmd { Idle, SyncSecond, RregCount, RregData, WregCount, WregData };

    void reset_device(uint64_t t, bool power_up);
    void restart(uint64_t t, bool after_write);
    void stop() { converting_ = false; }
    bool may_convert() const { return powered_ && !in_reset_ && start_ && !asleep_; }
    int rate_code() const {
        int dr = regs_[SYS0] & 0x0F;
        return dr > 9 ? 9 : dr; // codes above 9 run at 2000 sps
    }
    uint64_t latest_ready(uint64_t t) const;
    void load_conversion(uint64_t ready);
    int32_t convert(uint64_t ready);
    void decode(uint8_t in, uint64_t at);
    void end_command(uint64_t at);
    void note(AdcTransaction &t) {
        if (log.size() < kLogCap) {
            log.push_back(t);
        }
    }
    AdcTransaction *open_txn(bool selected, uint64_t at);

    // lines as last seen
    bool powered_ = false, start_ = false, in_reset_ = true, cs_low_ = false;
    bool asleep_ = false;
    bool rdatac_ = true;
    uint8_t regs_[kRegs] = {};
    // conversions
    bool converting_ = false;
    uint64_t first_ready_ = 0, period_ = 1;
    uint64_t last_taken_ = 0; // ready time of the conversion last shifted out
    uint32_t conversions_read_ = 0, restarts_ = 0;
    // serial interface
    Cmd cmd_ = Cmd::Idle;
    int reg_ptr_ = 0, reg_left_ = 0;
    bool restart_pending_ = false;
    uint8_t shift_[3] = {};
    int shift_left_ = 0;
    bool txn_open_ = false; // log.back() is the open selected transaction
    bool stray_open_ = false;
};

std::shared_ptr<Ads1248> g_adc;

Ads1248 &adc() {
    if (!g_adc) {
        board(); // installs the models
    }
    return *g_adc;
}

} // namespace

uint64_t ads1248_first_cycles(int dr, bool after_register_write) {
    dr = dr < 0 ? 0 : dr > 9 ? 9 : dr;
    return osc_to_cpu(after_register_write ? kFirstAfterWrite[dr] : kFirstAfterReset[dr]);
}

uint64_t ads1248_period_cycles(int dr) {
    dr = dr < 0 ? 0 : dr > 9 ? 9 : dr;
    return osc_to_cpu(kPeriod[dr]);
}

namespace {

void Ads1248::reset_device(uint64_t t, bool power_up) {
    std::copy(std::begin(kResetRegs), std::end(kResetRegs), regs_);
    rdatac_ = true;
    asleep_ = false;
    cmd_ = Cmd::Idle;
    shift_left_ = 0;
    restart_pending_ = false;
    if (may_convert()) {
        restart(power_up ? t + kPowerUpCycles : t, false);
    } else {
        stop();
    }
}

void Ads1248::restart(uint64_t t, bool after_write) {
    if (!may_convert()) {
        stop();
        return;
    }
    converting_ = true;
    first_ready_ = t + ads1248_first_cycles(rate_code(), after_write);
    period_ = ads1248_period_cycles(rate_code());
    restarts_++;
}

uint64_t Ads1248::latest_ready(uint64_t t) const {
    if (!converting_ || t < first_ready_) {
        return 0;
    }
    return first_ready_ + (t - first_ready_) / period_ * period_;
}

bool Ads1248::drdy_high(uint64_t now) {
    const std::string &fault = environment().adc_fault;
    if (!fault.empty() && fault == "nodrdy") {
        return true;
    }
    uint64_t r = latest_ready(now);
    return r == 0 || r <= last_taken_;
}

int32_t Ads1248::convert(uint64_t ready) {
    if (!queued.empty()) {
        uint32_t raw = queued.front() & 0xFFFFFFu;
        queued.erase(queued.begin());
        return (raw & 0x800000u) != 0 ? int32_t(raw) - 0x1000000 : int32_t(raw);
    }
    // The water is taken once per second of the run: the thermistor's
    // inversion is the costly part and the sea changes slower than that.
    static Water cached_water{};
    static double cached_drift = 0;
    static FrontEnd cached{};
    static bool have = false;
    const Environment &e = environment();
    const double second = std::floor(double(ready) / double(kCpuHz));
    const Water w = water_at(second);
    const double drift = sensor_drift_volts(second);
    if (!have || w.ph != cached_water.ph || w.temp_c != cached_water.temp_c ||
        w.salinity != cached_water.salinity || drift != cached_drift) {
        cached_water = w;
        cached_drift = drift;
        cached = front_end(w, drift);
        have = true;
    }
    // The ADC's GPIO pins drive only when configured as outputs; the mux
    // address lines are pulled low otherwise.
    uint8_t gpio = uint8_t(regs_[GPIODAT] & regs_[GPIOCFG] & ~regs_[GPIODIR] & 0x0F);
    int sp = (regs_[MUX0] >> 3) & 7, sn = regs_[MUX0] & 7;
    int pga = 1 << ((regs_[SYS0] >> 4) & 7);
    double v = (regs_[MUX1] & 7) == 0 ? front_end_input(cached, sp, sn, gpio) : 0.0;
    v += (noise >= 0 ? noise : e.noise_uv * 1e-6) * gaussian(e.seed, ready);
    bool ref_ok = ((regs_[MUX1] >> 5) & 3) != 0 && ((regs_[MUX1] >> 3) & 3) == 2;
    if (!ref_ok) {
        return v >= 0 ? 0x7FFFFF : -0x800000; // no reference: the input clips
    }
    double code = std::nearbyint(v * pga * 8388607.0 / 2.048);
    if (code > 8388607.0) {
        code = 8388607.0;
    }
    if (code < -8388608.0) {
        code = -8388608.0;
    }
    return int32_t(code);
}

void Ads1248::load_conversion(uint64_t ready) {
    uint32_t c = uint32_t(convert(ready)) & 0xFFFFFFu;
    shift_[0] = uint8_t(c >> 16);
    shift_[1] = uint8_t(c >> 8);
    shift_[2] = uint8_t(c);
    shift_left_ = 3;
    last_taken_ = ready;
    conversions_read_++;
}

AdcTransaction *Ads1248::open_txn(bool selected, uint64_t at) {
    if (selected) {
        if (!txn_open_ || log.empty()) {
            return nullptr;
        }
        return &log.back();
    }
    if (!stray_open_ || log.empty()) {
        if (log.size() >= kLogCap) {
            return nullptr;
        }
        AdcTransaction t;
        t.begin = at;
        t.selected = false;
        t.powered = powered_;
        log.push_back(t);
        stray_open_ = true;
    }
    return &log.back();
}

uint32_t Ads1248::transfer(uint32_t out, uint64_t at) {
    const uint8_t din = uint8_t(out);
    AdcTransaction *t = open_txn(cs_low_, at);
    uint8_t dout = 0x00;
    if (cs_low_ && powered_ && !in_reset_) {
        if (shift_left_ > 0) {
            dout = shift_[3 - shift_left_];
            shift_left_--;
        } else if (cmd_ == Cmd::RregData) {
            dout = regs_[reg_ptr_];
        } else if (rdatac_ && cmd_ == Cmd::Idle && !drdy_high(at)) {
            load_conversion(latest_ready(at));
            dout = shift_[0];
            shift_left_ = 2;
        }
        decode(din, at);
    }
    if (t != nullptr) {
        t->out.push_back(din);
        t->in.push_back(dout);
    }
    return dout;
}

void Ads1248::decode(uint8_t in, uint64_t at) {
    switch (cmd_) {
    case Cmd::Idle:
        if (in <= 0x01) { // WAKEUP
            if (asleep_) {
                asleep_ = false;
                restart(at, false);
            }
        } else if (in <= 0x03) { // SLEEP
            asleep_ = true;
            stop();
        } else if (in <= 0x05) { // SYNC, two bytes
            cmd_ = Cmd::SyncSecond;
        } else if (in <= 0x07) { // RESET
            reset_device(at, false);
        } else if (in == 0x12 || in == 0x13) { // RDATA
            uint64_t r = latest_ready(at);
            if (r != 0) {
                load_conversion(r);
            } else {
                shift_[0] = shift_[1] = shift_[2] = 0;
                shift_left_ = 3;
            }
        } else if (in == 0x14 || in == 0x15) {
            rdatac_ = true;
        } else if (in == 0x16 || in == 0x17) {
            rdatac_ = false;
        } else if ((in & 0xF0) == 0x20) {
            reg_ptr_ = in & 0x0F;
            cmd_ = Cmd::RregCount;
        } else if ((in & 0xF0) == 0x40) {
            reg_ptr_ = in & 0x0F;
            cmd_ = Cmd::WregCount;
        }
        // 0x60-0x62 calibrations and 0xFF NOP: nothing to model
        break;
    case Cmd::SyncSecond:
        if (in == 0x04 || in == 0x05) {
            restart(at, false);
        }
        cmd_ = Cmd::Idle;
        break;
    case Cmd::RregCount:
        reg_left_ = (in & 0x0F) + 1;
        reg_ptr_ %= kRegs;
        cmd_ = Cmd::RregData;
        break;
    case Cmd::RregData:
        reg_ptr_ = (reg_ptr_ + 1) % kRegs;
        if (--reg_left_ == 0) {
            cmd_ = Cmd::Idle;
        }
        break;
    case Cmd::WregCount:
        reg_left_ = (in & 0x0F) + 1;
        reg_ptr_ %= kRegs;
        cmd_ = Cmd::WregData;
        break;
    case Cmd::WregData:
        if (reg_ptr_ == IDAC0) {
            regs_[reg_ptr_] = uint8_t((regs_[reg_ptr_] & kIdBits) | (in & ~kIdBits));
        } else {
            regs_[reg_ptr_] = in;
        }
        if (reg_ptr_ <= SYS0) {
            restart_pending_ = true;
        }
        reg_ptr_ = (reg_ptr_ + 1) % kRegs;
        if (--reg_left_ == 0) {
            end_command(at);
        }
        break;
    }
}

// A register write that touched the input, reference or rate restarts the
// conversion once the write is complete.
void Ads1248::end_command(uint64_t at) {
    cmd_ = Cmd::Idle;
    if (restart_pending_) {
        restart_pending_ = false;
        restart(at, true);
    }
}

void Ads1248::on_gpio(uint32_t port) {
    const uint64_t now = board().now();
    const uint8_t lv = gpio_levels(port);
    if (port == kPortE) {
        bool p = (lv & kPinPower) != 0, s = (lv & kPinStart) != 0, rn = (lv & kPinReset) != 0;
        if (p != powered_) {
            events.push_back({now, 'P', p});
        }
        if (s != start_) {
            events.push_back({now, 'S', s});
        }
        if (rn != !in_reset_) {
            events.push_back({now, 'R', rn});
        }
        const bool power_rise = p && !powered_;
        const bool reset_rise = rn && in_reset_;
        const bool start_rise = s && !start_;
        powered_ = p;
        start_ = s;
        in_reset_ = !rn;
        if (!powered_) {
            stop();
            std::fill(std::begin(regs_), std::end(regs_), 0);
            shift_left_ = 0;
            cmd_ = Cmd::Idle;
        } else if (power_rise || reset_rise) {
            reset_device(now, power_rise);
        } else if (start_rise) {
            restart(now, false);
        } else if (!may_convert()) {
            stop(); // START low or held in reset
        }
    } else if (port == kPortD) {
        bool low = (lv & kPinCs) == 0;
        if (low && !cs_low_) {
            stray_open_ = false;
            AdcTransaction t;
            t.begin = now;
            t.powered = powered_;
            txn_open_ = log.size() < kLogCap;
            note(t);
        } else if (!low && cs_low_) {
            if (txn_open_ && !log.empty()) {
                log.back().end = now;
            }
            txn_open_ = false;
            // chip select high resets the serial interface
            shift_left_ = 0;
            if (cmd_ == Cmd::WregData || cmd_ == Cmd::WregCount) {
                end_command(now);
            }
            cmd_ = Cmd::Idle;
        }
        cs_low_ = low;
    }
}

AdcStatus Ads1248::status() const {
    AdcStatus s;
    s.powered = powered_;
    s.in_reset = in_reset_;
    s.start = start_;
    s.rdatac = rdatac_;
    s.converting = converting_;
    std::copy(std::begin(regs_), std::end(regs_), s.regs);
    s.conversions_read = conversions_read_;
    s.filter_restarts = restarts_;
    s.first_ready = first_ready_;
    s.period = period_;
    return s;
}

std::string hex_bytes(const std::vector<uint8_t> &v) {
    std::string s;
    char b[4];
    for (size_t i = 0; i < v.size(); ++i) {
        std::snprintf(b, sizeof b, i == 0 ? "%02X" : " %02X", v[i]);
        s += b;
    }
    return s;
}

} // namespace

const std::vector<AdcTransaction> &adc_log() {
    return adc().log;
}

void adc_log_clear() {
    Ads1248 &a = adc();
    a.log.clear();
    a.events.clear();
}

std::string adc_log_text() {
    std::string s;
    for (const AdcTransaction &t : adc().log) {
        if (t.out.empty() && t.selected) {
            continue; // chip select pulsed with no clocks
        }
        if (!s.empty()) {
            s += " | ";
        }
        if (!t.selected) {
            s += "(cs high) ";
        }
        s += hex_bytes(t.out);
    }
    return s;
}

const std::vector<AdcLineEvent> &adc_line_events() {
    return adc().events;
}

AdcStatus adc_status() {
    return adc().status();
}

void adc_queue_codes(const std::vector<uint32_t> &codes) {
    Ads1248 &a = adc();
    a.queued.insert(a.queued.end(), codes.begin(), codes.end());
}

void adc_set_noise(double volts) {
    adc().noise = volts;
}

// The board may exist before any firmware runs (the Board constructor calls
// this), so nothing here goes through board().
void install_adc_devices(Board &b) {
    auto dev = std::make_shared<Ads1248>();
    g_adc = dev;
    b.ssi[3].dev = dev;
    b.gpio.watchers.push_back([dev](uint32_t port, uint8_t, uint8_t) {
        if (port == kPortE || port == kPortD) {
            dev->on_gpio(port);
        }
    });
    set_gpio_input_source(kPortE, kPinDrdy, [dev](uint64_t now) { return dev->drdy_high(now); });
}

} // namespace sim
