// Serial instruments on the simulated board's UART3 and UART4.
#include "inst_models.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "sim.h"

namespace sim {

namespace {

constexpr size_t kLogCap = 4096;

std::string fmt(const char *f, ...) __attribute__((format(printf, 1, 2)));
std::string fmt(const char *f, ...) {
    char buf[512];
    va_list ap;
    va_start(ap, f);
    vsnprintf(buf, sizeof buf, f, ap);
    va_end(ap);
    return buf;
}

std::string trimmed_lower(const std::string &s) {
    size_t b = s.find_first_not_of(" \t");
    if (b == std::string::npos) {
        return "";
    }
    size_t e = s.find_last_not_of(" \t");
    std::string t = s.substr(b, e - b + 1);
    for (char &c : t) {
        c = char(std::tolower((unsigned char)c));
    }
    return t;
}

void keep(std::string &log, uint8_t b) {
    if (log.size() < kLogCap) {
        log.push_back(char(b));
    }
}

} // namespace

// ---- water ----------------------------------------------------------------

// Practical salinity (PSS-78) at the surface, inverted for the conductivity
// ratio by bisection; C(35, 15, 0) = 4.2914 S/m.
double seawater_conductivity(double salinity, double t) {
    static const double a[6] = {0.0080, -0.1692, 25.3851, 14.0941, -7.0261, 2.7081};
    static const double b[6] = {0.0005, -0.0056, -0.0066, -0.0375, 0.0636, -0.0144};
    auto sal = [&](double rt) {
        double s = 0, ds = 0, r = std::sqrt(rt), p = 1;
        for (int i = 0; i < 6; ++i) {
            s += a[i] * p;
            ds += b[i] * p;
            p *= r;
        }
        return s + (t - 15.0) / (1.0 + 0.0162 * (t - 15.0)) * ds;
    };
    double lo = 1e-4, hi = 3.0;
    for (int i = 0; i < 80; ++i) {
        double mid = 0.5 * (lo + hi);
        (sal(mid) < salinity ? lo : hi) = mid;
    }
    double rt = 0.5 * (lo + hi);
    double ct = 0.6766097 + t * (2.00564e-2 + t * (1.104259e-4 + t * (-6.9698e-7 + t * 1.0031e-9)));
    return rt * ct * 4.2914;
}

// Garcia and Gordon (1992), Benson and Krause fit.
double oxygen_solubility(double s, double t) {
    double ts = std::log((298.15 - t) / (273.15 + t));
    double lnc =
        5.80871 +
        ts * (3.20291 + ts * (4.17887 + ts * (5.10006 + ts * (-9.86643e-2 + ts * 3.80369)))) +
        s * (-7.01577e-3 + ts * (-7.70028e-3 + ts * (-1.13864e-2 + ts * -9.51519e-3))) +
        -2.75915e-7 * s * s;
    return std::exp(lnc);
}

namespace {
double density(double s, double t) {
    return 1028.1 - 0.0735 * t - 0.00469 * t * t + (0.802 - 0.002 * t) * (s - 35.0);
}
double sound_speed(double s, double t) {
    return 1448.96 + 4.591 * t - 0.05304 * t * t + 2.374e-4 * t * t * t + 1.340 * (s - 35.0);
}
} // namespace

// ---- the line -------------------------------------------------------------

SerialInstrument::SerialInstrument(uint32_t baud)
    : baud_(baud), byte_cycles_(10 * kCpuHz / baud), rng_(environment().seed) {}

uint64_t SerialInstrument::next_byte_at() {
    if (out_.empty()) {
        return kNever;
    }
    return std::max(out_.front().first, wire_free_) + byte_cycles_;
}

uint8_t SerialInstrument::take_byte() {
    if (out_.empty()) {
        return 0;
    }
    wire_free_ = next_byte_at();
    uint8_t b = out_.front().second;
    out_.pop_front();
    keep(said, b);
    if (!rate_ok_) {
        b = uint8_t(0x80u | (rng_() & 0x7Fu)); // framing at the wrong rate
    }
    return b;
}

void SerialInstrument::receive(uint8_t byte, uint64_t at) {
    if (!rate_ok_ || is("silent")) {
        return;
    }
    keep(heard, byte);
    byte_in(byte, at);
}

void SerialInstrument::line_rate(uint32_t baud) {
    rate_ok_ = std::fabs(double(baud) / double(baud_) - 1.0) <= 0.03;
    if (rate_ok_ && !is("silent")) {
        quiet();
        sessions++;
        port_up(now_cycles());
    }
}

void SerialInstrument::say(const std::string &bytes, uint64_t at) {
    for (char c : bytes) {
        out_.emplace_back(at, uint8_t(c));
    }
}

void SerialInstrument::quiet() {
    out_.clear();
}

std::string SerialInstrument::noise(size_t n) {
    std::string s;
    for (size_t i = 0; i < n; ++i) {
        s.push_back(char(0x80u | (rng_() & 0x7Fu)));
    }
    return s;
}

void LineInstrument::byte_in(uint8_t byte, uint64_t at) {
    if (byte == 0) {
        return;
    }
    if (byte == '\n' && last_cr_) {
        last_cr_ = false;
        return;
    }
    if (byte == '\r' || byte == '\n') {
        last_cr_ = byte == '\r';
        std::string line;
        line.swap(line_);
        line_in(line, at);
        return;
    }
    last_cr_ = false;
    char_in(byte, at);
    if (line_.size() < 256) {
        line_.push_back(char(byte));
    }
}

// ---- SBE37 ----------------------------------------------------------------

namespace {
constexpr double kSbeSampleMs = 1800; // "ts" to the data line
constexpr double kSbeLateMs = 4500;   // past the controller's 3.5 s
constexpr double kAanLateMs = 5600;   // past the 5 s for the sample line
constexpr double kPicoReplyMs = 250, kPicoLateMs = 1000;
constexpr double kOcrReplyMs = 30, kOcrLateMs = 2000;
constexpr double kNanoReplyMs = 400, kNanoLateMs = 5600;
constexpr size_t kNoiseBytes = 40;
} // namespace

std::string Sbe37Model::reply() const {
    const Environment &e = environment();
    double c = seawater_conductivity(e.salinity, e.temp_c);
    if (fault != "long") {
        return fmt("%.0f,%.0f,%.2f,d,t\r\n", e.temp_c, c, e.salinity);
    }
    time_t now = time_t(rtc());
    struct tm tm;
    gmtime_r(&now, &tm);
    char date[32], clock[16];
    strftime(date, sizeof date, "%d %b %Y", &tm);
    strftime(clock, sizeof clock, "%H:%M:%S", &tm);
    return fmt("%9.4f,%9.5f,%10.4f, %s, %s\r\n", e.temp_c, c, e.salinity, date, clock);
}

void Sbe37Model::char_in(uint8_t byte, uint64_t at) {
    say(std::string(1, char(byte)), at); // echo
}

void Sbe37Model::line_in(const std::string &line, uint64_t at) {
    say("\r\n", at);
    std::string cmd = trimmed_lower(line);
    if (cmd.empty()) {
        say("S>", at);
    } else if (cmd == "ts") {
        uint64_t when = at + ms(is("late") ? kSbeLateMs : kSbeSampleMs);
        say(is("garbage") ? noise(kNoiseBytes) : reply(), when);
        say("S>", when);
    } else {
        say("?CMD\r\nS>", at);
    }
}

// ---- Aanderaa sensors -------------------------------------------------------

void AanderaaModel::port_up(uint64_t at) {
    reset_line();
    say("%", at + ms(wake_ms_));
}

void AanderaaModel::line_in(const std::string &line, uint64_t at) {
    std::string cmd = trimmed_lower(line);
    if (cmd.empty()) {
        say("!", at + ms(2));
    } else if (cmd == "do sample") {
        uint64_t when = at + ms(is("late") ? kAanLateMs : sample_ms_);
        if (is("garbage")) {
            say(noise(kNoiseBytes), when);
        } else {
            say((is("long") ? long_reply() : reply()) + "#", when);
        }
    }
}

std::string OptodeModel::reply() const {
    const Environment &e = environment();
    double sat = 98.0;
    double o2 = oxygen_solubility(e.salinity, e.temp_c) * sat / 100.0 *
                density(e.salinity, e.temp_c) / 1000.0;
    return fmt("4831\t856\t%.3f\t%.3f\t%.3f\r\n", o2, sat, e.temp_c);
}

std::string OptodeModel::long_reply() const {
    const Environment &e = environment();
    double sat = 98.0;
    double o2 = oxygen_solubility(e.salinity, e.temp_c) * sat / 100.0 *
                density(e.salinity, e.temp_c) / 1000.0;
    return fmt("MEASUREMENT\t  4831\t   856\tO2Concentration[uM]\t%10.3f\tAirSaturation[%%]\t%10.3f"
               "\tTemperature[Deg.C]\t%10.3f\r\n",
               o2, sat, e.temp_c);
}

std::string Aand5860Model::reply() const {
    const Environment &e = environment();
    return fmt("0 0 %.0f %.0f %.0f 0 0", seawater_conductivity(e.salinity, e.temp_c), e.temp_c,
               e.salinity);
}

std::string Aand5860Model::long_reply() const {
    const Environment &e = environment();
    return fmt("5860 412 %.3f %.3f %.3f %.3f %.2f\r\n",
               seawater_conductivity(e.salinity, e.temp_c) * 10.0, e.temp_c, e.salinity,
               density(e.salinity, e.temp_c), sound_speed(e.salinity, e.temp_c));
}

// ---- picoPH ----------------------------------------------------------------

std::string PicophModel::reply() const {
    const Environment &e = environment();
    std::string r =
        fmt("MEA 1 47 0 %ld %ld 2315", std::lround(e.ph * 1000.0), std::lround(e.temp_c * 1000.0));
    if (is("long")) {
        // every output of the meter switched on
        r += fmt(" 41872 %ld 101325 4521 %ld 0 0 0 0 0 0 0", std::lround(e.temp_c * 1000.0 + 850),
                 std::lround(e.salinity * 1000.0));
    }
    return r + "\r";
}

void PicophModel::line_in(const std::string &line, uint64_t at) {
    std::string cmd = trimmed_lower(line);
    if (cmd.compare(0, 3, "mea") != 0) {
        return;
    }
    uint64_t when = at + ms(is("late") ? kPicoLateMs : kPicoReplyMs);
    say(is("garbage") ? noise(kNoiseBytes) : reply(), when);
}

// ---- OCR-504 ---------------------------------------------------------------

std::string OcrModel::reply() const {
    std::string r = "SATFI40278\t61.2345\t73.4561\t80.1123\t55.0987";
    if (is("long")) {
        // the frame with its counter, timer and all channels
        r = "SATFI40278\t0000123\t12.345\t61.234512\t73.456123\t80.112345\t55.098765\t"
            "42.110987\t38.776501\t21.003456\t148\t7";
    }
    return r + "\r\n";
}

void OcrModel::line_in(const std::string &, uint64_t at) {
    uint64_t when = at + ms(is("late") ? kOcrLateMs : kOcrReplyMs);
    say(is("garbage") ? noise(kNoiseBytes) : reply(), when);
}

// ---- NanoFET ---------------------------------------------------------------

std::string NanofetModel::reply() const {
    const Environment &e = environment();
    double slope = 0.05916 * (e.temp_c + 273.15) / 298.15;
    double vrs = -0.9 - slope * (e.ph - 8.0);
    if (is("long")) {
        return fmt("NanoFET SN 0042 sample 17 pH %.4f temperature %.3f Vrs %.6f Vk %.6f Ik "
                   "%.3f\r\n",
                   e.ph, e.temp_c, vrs, -0.95, 12.5);
    }
    return fmt("%.4f\t%.3f\t%.6f\r\n", e.ph, e.temp_c, vrs);
}

void NanofetModel::line_in(const std::string &line, uint64_t at) {
    std::string cmd = trimmed_lower(line);
    if (cmd.empty()) {
        say("\r\nNF>", at + ms(1));
    } else if (cmd == "ts") {
        uint64_t when = at + ms(is("late") ? kNanoLateMs : kNanoReplyMs);
        say(is("garbage") ? noise(kNoiseBytes) : reply(), when);
    } else {
        say("\r\n?\r\nNF>", at + ms(1));
    }
}

// ---- choice by name --------------------------------------------------------

std::shared_ptr<SerialInstrument> make_ctd_model(const std::string &name) {
    if (name == "sbe37") {
        return std::make_shared<Sbe37Model>();
    }
    if (name == "aand5860") {
        return std::make_shared<Aand5860Model>();
    }
    return nullptr;
}

std::shared_ptr<SerialInstrument> make_inst_model(const std::string &name) {
    if (name == "optode") {
        return std::make_shared<OptodeModel>();
    }
    if (name == "ocr") {
        return std::make_shared<OcrModel>();
    }
    if (name == "nanofet") {
        return std::make_shared<NanofetModel>();
    }
    if (name == "picoph") {
        return std::make_shared<PicophModel>();
    }
    return nullptr;
}

} // namespace sim
