// Serial instruments on the simulated board's UART3 and UART4.
#include "inst_models.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include "analog_frontend.h"
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
    if (byte == 0 || (wakes_on_char() && dozing(at))) {
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

// ---- faults shared by every instrument -------------------------------------

namespace {
constexpr double kSbeSampleMs = 1800, kSbeLateMs = 2700; // past the controller's 3.5 s
constexpr double kAanLateMs = 4600;                      // past the 5 s for the sample line
constexpr double kPicoReplyMs = 250, kPicoLateMs = 750;  // past 800 ms
constexpr double kOcrReplyMs = 30, kOcrLateMs = 1970;    // past 1.6 s
constexpr double kNanoReplyMs = 400, kNanoLateMs = 5200; // past 5 s
constexpr double kSplitMs = 100;                         // the pause of a split reply
constexpr double kDozeMs = 1000;                         // asleep after the wake character
constexpr size_t kNoiseBytes = 40;
} // namespace

void SerialInstrument::answer(const std::string &reply, uint64_t at, double late_ms) {
    size_t n = reply.find_last_not_of("\r\n#");
    n = n == std::string::npos ? 0 : n + 1;
    std::string body = reply.substr(0, n), end = reply.substr(n);
    const size_t half = body.size() / 2;
    if (is("late")) {
        say(reply, at + ms(late_ms));
    } else if (is("garbage")) {
        say(noise(kNoiseBytes), at);
    } else if (is("partial")) {
        say(body.substr(0, half) + end, at);
    } else if (is("stall")) {
        say(body.substr(0, half), at);
    } else if (is("split")) {
        say(body.substr(0, half), at);
        say(body.substr(half) + end, at + half * byte_cycles_ + ms(kSplitMs));
    } else if (is("early")) {
        say(body.substr(0, half) + "<" + body.substr(half) + end, at);
    } else if (is("unparsable")) {
        size_t d = body.find_first_of("0123456789");
        if (d != std::string::npos) {
            body[d] = 'X';
        }
        say(body + end, at);
    } else if (is("missing")) {
        for (int i = 0; i < 2; i++) {
            body.erase(body.find_last_not_of(" \t,") + 1);
            size_t sep = body.find_last_of(" \t,");
            body.erase(sep == std::string::npos ? 0 : sep);
        }
        say(body + end, at);
    } else {
        say(reply, at);
    }
}

bool LineInstrument::dozing(uint64_t at) {
    if (awake_at_ == kNever) {
        awake_at_ = at + (is("wake") ? ms(kDozeMs) : 0);
        return is("wake");
    }
    return at < awake_at_;
}

// ---- SBE37 ----------------------------------------------------------------

std::string Sbe37Model::factory_line(double t, double c, double p, double sal, uint32_t epoch) {
    time_t now = time_t(epoch);
    struct tm tm;
    gmtime_r(&now, &tm);
    char date[32], clock[16];
    strftime(date, sizeof date, "%d %b %Y", &tm);
    strftime(clock, sizeof clock, "%H:%M:%S", &tm);
    std::string s = fmt("%7.4f,%9.5f,%9.3f", t, c, p);
    if (sal >= 0) {
        s += fmt(",%9.4f", sal);
    }
    return s + ", " + date + ", " + clock + "\r\n";
}

std::string Sbe37Model::reply() const {
    const Water w = water_now();
    double c = seawater_conductivity(w.salinity, w.temp_c);
    if (fault != "long") {
        return fmt("%.0f,%.0f,%.2f,d,t\r\n", w.temp_c, c, w.salinity);
    }
    return factory_line(w.temp_c, c, w.dbar, w.salinity, rtc());
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
        uint64_t when = at + ms(kSbeSampleMs);
        answer(reply(), when, kSbeLateMs);
        if (!is("stall")) {
            say("S>", when);
        }
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
        say(is("wake") ? "?" : "!", at + ms(2));
    } else if (cmd == "do sample") {
        answer((is("long") ? long_reply() : reply()) + "#", at + ms(sample_ms_), kAanLateMs);
    }
}

namespace {
double optode_o2(const Water &w, double sat) {
    return oxygen_solubility(w.salinity, w.temp_c) * sat / 100.0 * density(w.salinity, w.temp_c) /
           1000.0;
}
constexpr double kOptodeSat = 98.0;
} // namespace

std::string OptodeModel::line(double o2, double sat, double temp) {
    return fmt("4831\t856\t%.3f\t%.3f\t%.3f\r\n", o2, sat, temp);
}

std::string OptodeModel::reply() const {
    const Water w = water_now();
    return line(optode_o2(w, kOptodeSat), kOptodeSat, w.temp_c);
}

std::string OptodeModel::long_reply() const {
    const Water w = water_now();
    return fmt("MEASUREMENT\t4831\t856\tO2Concentration[uM]\t%.3f\tAirSaturation[%%]\t%.3f"
               "\tTemperature[Deg.C]\t%.3f\r\n",
               optode_o2(w, kOptodeSat), kOptodeSat, w.temp_c);
}

std::string Aand5860Model::line(double cond_ms, double temp, double sal, double dens, double sv) {
    return fmt("5860\t412\t%.3f\t%.3f\t%.3f\t%.3f\t%.3f\r\n", cond_ms, temp, sal, dens, sv);
}

std::string Aand5860Model::reply() const {
    const Water w = water_now();
    if (!is("long")) {
        return fmt("0 0 %.0f %.0f %.0f 0 0", seawater_conductivity(w.salinity, w.temp_c), w.temp_c,
                   w.salinity);
    }
    return line(seawater_conductivity(w.salinity, w.temp_c) * 10.0, w.temp_c, w.salinity,
                density(w.salinity, w.temp_c), sound_speed(w.salinity, w.temp_c));
}

std::string Aand5860Model::long_reply() const {
    return reply();
}

// ---- picoPH ----------------------------------------------------------------

std::string PicophModel::line(double ph, double temp, double case_temp) {
    // the indicator's phase shift falls with pH around its pKa
    long dphi = std::lround(1000.0 * (12.0 + 40.0 / (1.0 + std::pow(10.0, ph - 7.5))));
    long pt100 = std::lround(100000.0 * (1.0 + 0.003908 * temp)); // mOhm
    return fmt("MEA 1 47 0 %ld 0 0 0 %ld %ld 41872 12 1013 35000 %ld 0 0 %ld 0 0 0\r", dphi,
               std::lround(temp * 1000.0), std::lround(case_temp * 1000.0), pt100,
               std::lround(ph * 1000.0));
}

std::string PicophModel::reply() const {
    const Water w = water_now();
    std::string r = line(w.ph, w.temp_c, w.temp_c + 0.85);
    if (is("long")) {
        for (size_t p; (p = r.find(" 0 0")) != std::string::npos;) {
            r.replace(p, 4, " 1 1"); // the reserved fields of a newer firmware
        }
    }
    return r;
}

void PicophModel::line_in(const std::string &line, uint64_t at) {
    std::string cmd = trimmed_lower(line);
    if (cmd.compare(0, 3, "mea") != 0) {
        return;
    }
    std::string r = reply();
    if (is("wake")) {
        std::transform(r.begin(), r.end(), r.begin(),
                       [](char c) { return char(std::tolower((unsigned char)c)); });
    }
    answer(r, at + ms(kPicoReplyMs), kPicoLateMs);
}

// ---- OCR-504 ---------------------------------------------------------------

std::string OcrModel::line(const double ch[4], unsigned serial) {
    return fmt("SATFI4%04u\t%.4f\t%.4f\t%.4f\t%.4f\r\n", serial % 10000, ch[0], ch[1], ch[2],
               ch[3]);
}

std::string OcrModel::reply() const {
    static const double ch[4] = {61.2345, 73.4561, 80.1123, 55.0987};
    if (is("long")) {
        // the frame with its counter, timer and all channels
        return "SATFI40278\t0000123\t12.345\t61.234512\t73.456123\t80.112345\t55.098765\t"
               "42.110987\t38.776501\t21.003456\t148\t7\r\n";
    }
    std::string r = line(ch);
    if (is("wake")) {
        r[0] = 's';
    }
    return r;
}

void OcrModel::line_in(const std::string &, uint64_t at) {
    answer(reply(), at + ms(kOcrReplyMs), kOcrLateMs);
}

// ---- NanoFET ---------------------------------------------------------------

std::string NanofetModel::reply() const {
    const Water w = water_now();
    double slope = 0.05916 * (w.temp_c + 273.15) / 298.15;
    double vrs = -0.9 - slope * (w.ph - 8.0);
    if (!is("long")) {
        return fmt("%.4f\t%.3f\t%.6f\r\n", w.ph, w.temp_c, vrs);
    }
    time_t now = time_t(rtc());
    struct tm tm;
    gmtime_r(&now, &tm);
    char when[32];
    strftime(when, sizeof when, "%m/%d/%Y %H:%M:%S", &tm);
    return fmt("%8u\t%s\t%8.2f\t%8.2f\t%8d\t%8.6f\t%8.6f\t%8.3f\t%8.6f\t%8.6f\t%8.6f\t%8.6f\t%8.2f"
               "\t%8.3f\r\n",
               samples_, when, 3.04, w.temp_c + 0.4, 0, thermistor_volts(w.temp_c), 0.000002,
               w.temp_c, vrse_for(w.ph, w.temp_c, w.salinity), 0.000002, -0.905, 0.000001, 2.36,
               0.013);
}

void NanofetModel::line_in(const std::string &line, uint64_t at) {
    std::string cmd = trimmed_lower(line);
    if (cmd.empty()) {
        say("\r\nNF>", at + ms(1));
    } else if (cmd == "ts") {
        answer(reply(), at + ms(kNanoReplyMs), kNanoLateMs);
        samples_++;
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
