// The simulated water and instrument choice shared by the device models: the
// fixed water of --ph/--temp/--sal, or water over time from a CSV file or a
// built-in scene, linearly interpolated between rows.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <sstream>

#include "sim.h"

namespace sim {

namespace {

Environment g_env;

constexpr double kTwoPi = 6.283185307179586;
constexpr double kDay = 86400.0;
constexpr double kTide = 44714.0; // M2, 12.42 h

// A mooring at 10 m: the afternoon warms the water and photosynthesis lifts
// its pH, the semidiurnal tide moves pressure and salinity.
Water diurnal(const Environment &e, double t) {
    double day = std::sin(kTwoPi * (t / kDay - 0.375)); // peaks at 15:00
    double tide = std::sin(kTwoPi * t / kTide);
    return {e.temp_c + 1.5 * day, e.salinity + 0.15 * tide, e.ph + 0.05 * day, 10.0 + 1.2 * tide};
}

// A float rising from 2000 dbar at 0.1 dbar/s (about 5.6 h), then at the
// surface: cold, slightly fresher water at depth, the pH minimum near 800 m.
Water profile(const Environment &e, double t) {
    double p = std::max(0.0, 2000.0 - 0.1 * t);
    double below = 1.0 - std::exp(-p / 100.0); // the surface keeps --temp, --sal, --ph
    double temp = 2.3 + (e.temp_c - 2.3) * std::exp(-p / 350.0);
    double sal = 34.65 + (e.salinity - 34.65) * std::exp(-p / 200.0) -
                 0.25 * below * std::exp(-std::pow((p - 800.0) / 300.0, 2));
    double ph = 7.75 + (e.ph - 7.75) * std::exp(-p / 150.0) -
                0.12 * below * std::exp(-std::pow((p - 800.0) / 350.0, 2));
    return {temp, sal, ph, p};
}

bool parse_time(const std::string &f, double &t, bool &iso) {
    char *end = nullptr;
    t = std::strtod(f.c_str(), &end);
    if (!f.empty() && *end == '\0' && std::isfinite(t)) {
        iso = false;
        return true;
    }
    struct tm tm {};
    int n = 0;
    double sec = 0;
    if (std::sscanf(f.c_str(), "%4d-%2d-%2d%*1[T ]%2d:%2d:%lf%n", &tm.tm_year, &tm.tm_mon,
                    &tm.tm_mday, &tm.tm_hour, &tm.tm_min, &sec, &n) < 6) {
        return false;
    }
    std::string rest = f.substr(size_t(n));
    if (!(rest.empty() || rest == "Z" || rest == "+00:00")) {
        return false;
    }
    tm.tm_year -= 1900;
    tm.tm_mon -= 1;
    t = double(timegm(&tm)) + sec;
    iso = true;
    return true;
}

} // namespace

const Environment &environment() {
    return g_env;
}
void set_environment(const Environment &e) {
    g_env = e;
}

std::string water_scenes() {
    return "diurnal, profile";
}

Water water_at(double t) {
    const Environment &e = g_env;
    const std::vector<WaterPoint> &p = e.water_points;
    if (p.empty()) {
        if (e.water == "diurnal") {
            return diurnal(e, t);
        }
        if (e.water == "profile") {
            return profile(e, t);
        }
        return {e.temp_c, e.salinity, e.ph, e.dbar};
    }
    if (t <= p.front().t) {
        return p.front().w;
    }
    if (t >= p.back().t) {
        return p.back().w;
    }
    auto hi = std::upper_bound(p.begin(), p.end(), t,
                               [](double v, const WaterPoint &q) { return v < q.t; });
    const WaterPoint &a = *(hi - 1), &b = *hi;
    double f = (t - a.t) / (b.t - a.t);
    auto mix = [f](double x, double y) { return x + (y - x) * f; };
    return {mix(a.w.temp_c, b.w.temp_c), mix(a.w.salinity, b.w.salinity), mix(a.w.ph, b.w.ph),
            mix(a.w.dbar, b.w.dbar)};
}

Water water_now() {
    return water_at(double(now_cycles()) / double(kCpuHz));
}

double sensor_drift_volts(double seconds) {
    return g_env.drift_mv_day * 1e-3 * seconds / kDay;
}

bool load_water(const std::string &arg, int64_t start_epoch, std::vector<WaterPoint> &out,
                std::string &err) {
    out.clear();
    if (arg == "diurnal" || arg == "profile") {
        return true;
    }
    std::ifstream in(arg);
    if (!in) {
        err = "--water: no scene or readable file '" + arg + "' (scenes: " + water_scenes() + ")";
        return false;
    }
    std::string line;
    int no = 0;
    bool any_iso = false, any_rel = false;
    auto fail = [&](const std::string &why) {
        err = arg + ":" + std::to_string(no) + ": " + why;
        return false;
    };
    while (std::getline(in, line)) {
        no++;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        size_t b = line.find_first_not_of(" \t");
        if (b == std::string::npos || line[b] == '#') {
            continue;
        }
        std::vector<std::string> f;
        std::stringstream ss(line);
        std::string cell;
        while (std::getline(ss, cell, ',')) {
            size_t s = cell.find_first_not_of(" \t"), e = cell.find_last_not_of(" \t");
            f.push_back(s == std::string::npos ? "" : cell.substr(s, e - s + 1));
        }
        WaterPoint w{};
        bool iso = false;
        if (!parse_time(f[0], w.t, iso)) {
            if (out.empty() && !any_iso && !any_rel) {
                continue; // a title row
            }
            return fail("time '" + f[0] + "' is neither seconds nor ISO 8601 UTC");
        }
        if (f.size() != 5) {
            return fail("expected time, temperature, salinity, pH, pressure");
        }
        struct {
            double *v;
            double lo, hi;
            const char *what;
        } cols[] = {{&w.w.temp_c, -5, 45, "temperature"},
                    {&w.w.salinity, 0, 45, "salinity"},
                    {&w.w.ph, 0, 14, "pH"},
                    {&w.w.dbar, 0, 12000, "pressure"}};
        for (size_t i = 0; i < 4; i++) {
            char *end = nullptr;
            *cols[i].v = std::strtod(f[i + 1].c_str(), &end);
            if (f[i + 1].empty() || *end != '\0' || !(*cols[i].v >= cols[i].lo) ||
                !(*cols[i].v <= cols[i].hi)) {
                char range[64];
                std::snprintf(range, sizeof range, " (%g to %g)", cols[i].lo, cols[i].hi);
                return fail(std::string(cols[i].what) + " '" + f[i + 1] + "' is not a number" +
                            range);
            }
        }
        (iso ? any_iso : any_rel) = true;
        if (any_iso && any_rel) {
            return fail("times mix seconds and ISO 8601");
        }
        if (!out.empty() && w.t <= out.back().t) {
            return fail("times must increase");
        }
        out.push_back(w);
    }
    if (out.empty()) {
        no = 0;
        return fail("no water rows");
    }
    if (any_iso) {
        double t0 = start_epoch >= 0 ? double(start_epoch) : out.front().t;
        for (WaterPoint &w : out) {
            w.t -= t0;
        }
    }
    return true;
}

} // namespace sim
