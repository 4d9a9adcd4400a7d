// Currents are typical figures at the battery (the linear regulators pass the
// load current through), overridable with --currents FILE for a given build of
// the sensor package. Times come from the power cycles: the processor is on
// from reset to hibernation, the isolated front end while its supply pin is
// high, the CTD and instrument ports from their UART's enable to the end of
// the cycle (the board has no separate switch; the instrument sleeps on its
// own between samples), the pumps between the firmware's pump_on and
// pump_off, the card for the time its operations take.
#include "energy.h"

#include "board.h"
#include "gpio.h"
#include "hw_types.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace sim {

std::vector<Current> &currents() {
    // Each source says where the figure stands: a document and the place in
    // it, or "estimate:" and what the guess rests on. "Not rechecked" marks a
    // figure noted from the document once and not yet read again in its table.
    static std::vector<Current> t = {
        {"cpu.run", 32.0,
         "estimate after the TM4C123GH6PM data sheet, current consumption, run mode "
         "(flash loop, peripherals on), 50 MHz from the PLL, typ.; not rechecked"},
        {"cpu.hibernate", 0.0016,
         "estimate after the TM4C123GH6PM data sheet, hibernation mode on VBAT with the "
         "RTC running, typ.; not rechecked"},
        {"board.sleep", 0.030,
         "MB85RC256V FRAM data sheet DS501-00017-3v0-E, features: standby current 27 uA "
         "typ.; plus estimate: 3 uA for the regulator's quiescent current"},
        {"frontend.iso", 10.0,
         "estimate: no-load input current of a small isolated DC-DC module (the part is "
         "not known), plus the ADS1248 (under 0.5 mA after its data sheet, not "
         "rechecked) and the sensor bias"},
        {"ctd.sbe37", 34.0,
         "estimate after the SBE 37-SMP user manual, technical data: acquisition "
         "current; not rechecked"},
        {"ctd.sbe37.sleep", 0.030,
         "estimate after the SBE 37-SMP user manual, technical data: quiescent current; "
         "not rechecked"},
        {"ctd.aand5860", 10.0,
         "estimate: no public current figure found for the conductivity sensor "
         "4319/5860; taken as a smart sensor sampling at 12 V"},
        {"ctd.aand5860.sleep", 0.20,
         "estimate: no public figure found; taken equal to the optode's sleep current"},
        {"inst.optode", 30.0,
         "estimate after the TD 269 operating manual (oxygen optode 4330/4831), 1.3 "
         "technical data: maximum average current; not rechecked (a profiler manual "
         "counts 0.0205 mAh per optode sample, which this overstates)"},
        {"inst.optode.sleep", 0.23,
         "estimate after the TD 269 operating manual (oxygen optode 4330/4831), 1.3 "
         "technical data: quiescent current; not rechecked"},
        {"inst.ocr", 40.0,
         "estimate: the OCR-504 operation manual (SAT-DN-00034 rev. G) gives the supply as "
         "6 to 22 V but no current in the pages found"},
        {"inst.ocr.sleep", 0.0, "the radiometer is powered only while the port is"},
        {"inst.nanofet", 15.0,
         "estimate: no public current figure found for the NanoFET logger answering"},
        {"inst.nanofet.sleep", 0.05, "estimate: no public figure found for the NanoFET asleep"},
        {"inst.picoph", 20.0,
         "estimate: the Pico-pH manual gives no supply current in the pages found; "
         "taken as an optical meter with its LED pulsing"},
        {"inst.picoph.sleep", 0.01,
         "estimate: the Pico-pH manual's deep sleep (#STOP, wake-up up to 250 ms) is "
         "\"very low power consumption\" without a figure"},
        {"pump", 100.0,
         "estimate: the board's pump is not known; a small submersible pump at 12 V"},
        {"card.active", 100.0,
         "Transcend microSDHC data sheet (TS16GUSDHC2 family), power: operation in default "
         "mode, maximum 100 mA (1 s average); the card's maximum, no typical figure given"},
    };
    return t;
}

namespace {

double mA(const std::string &key) {
    for (const Current &c : currents()) {
        if (c.key == key) {
            return c.mA;
        }
    }
    return 0;
}

double sec(uint64_t cycles) {
    return double(cycles) / double(kCpuHz);
}

// Charge of the supplies' on-times `on`, over `span` seconds of which the
// processor was awake `on[kSupplyCpu]`.
double charge(const double on[kSupplies], double span, const Environment &e) {
    const std::string ctd = e.ctd == "none" ? "" : "ctd." + e.ctd;
    const std::string inst = e.inst == "none" ? "" : "inst." + e.inst;
    double q = on[kSupplyCpu] * mA("cpu.run") +
               (span - on[kSupplyCpu]) * (mA("cpu.hibernate") + mA("board.sleep")) +
               on[kSupplyIso] * mA("frontend.iso") + on[kSupplyPump] * mA("pump") +
               on[kSupplyCard] * mA("card.active");
    if (!ctd.empty()) {
        q += on[kSupplyCtd] * mA(ctd) + (span - on[kSupplyCtd]) * mA(ctd + ".sleep");
    }
    if (!inst.empty()) {
        q += on[kSupplyInst] * mA(inst) + (span - on[kSupplyInst]) * mA(inst + ".sleep");
    }
    return q;
}

} // namespace

bool load_currents(const std::string &path, std::string &err) {
    std::ifstream in(path);
    if (!in) {
        err = "--currents: cannot read " + path;
        return false;
    }
    int n = 0;
    for (std::string line; std::getline(in, line);) {
        ++n;
        size_t hash = line.find('#');
        if (hash != std::string::npos) {
            line.erase(hash);
        }
        std::istringstream ls(line);
        std::string key, eq, val, rest;
        if (!(ls >> key)) {
            continue;
        }
        char *end = nullptr;
        double v = 0;
        if ((ls >> eq >> val) && eq == "=" && !(ls >> rest)) {
            v = std::strtod(val.c_str(), &end);
        }
        if (end == nullptr || *end != '\0' || !std::isfinite(v) || v < 0) {
            err = path + ":" + std::to_string(n) + ": expected \"key = milliamperes\"";
            return false;
        }
        bool found = false;
        for (Current &c : currents()) {
            if (c.key == key) {
                c.mA = v;
                c.source = "overridden in " + path;
                found = true;
            }
        }
        if (!found) {
            err = path + ":" + std::to_string(n) + ": no current called '" + key + "'";
            return false;
        }
    }
    return true;
}

void install_energy_hooks(Board &b) {
    b.gpio.watchers.push_back([&b](uint32_t port, uint8_t pins, uint8_t levels) {
        if (port == GPIO_PORTE_BASE && (pins & GPIO_PIN_0) != 0) {
            supply_switch(*b.st, kSupplyIso, (levels & GPIO_PIN_0) != 0);
        }
    });
}

void energy_cycle_start(BoardState &s) {
    for (int i = 0; i < kSupplies; ++i) {
        s.supply_since[i] = 0;
        s.supply_at_cycle_start[i] = s.supply_on[i];
    }
    supply_switch(s, kSupplyCpu, true);
}

void energy_cycle_end(BoardState &s) {
    for (int i = 0; i < kSupplies; ++i) {
        supply_switch(s, Supply(i), false);
    }
    if (s.supply_on[kSupplyIso] == s.supply_at_cycle_start[kSupplyIso]) {
        return;
    }
    if (s.samples++ == 0) {
        for (int i = 0; i < kSupplies; ++i) {
            s.first_sample_on[i] = s.supply_at_cycle_start[i];
        }
        // the cycle began when the processor came on
        s.first_sample_at = s.now - (s.supply_on[kSupplyCpu] - s.supply_at_cycle_start[kSupplyCpu]);
    }
}

EnergySummary energy_summary(const BoardState &s, const Environment &e, double battery_mah) {
    EnergySummary m;
    m.seconds = sec(s.now);
    m.samples = s.samples;
    double since[kSupplies];
    for (int i = 0; i < kSupplies; ++i) {
        uint64_t on = s.supply_on[i];
        if (s.supply_since[i] != 0 && s.now + 1 > s.supply_since[i]) {
            on += s.now + 1 - s.supply_since[i]; // still on: a progress line mid-cycle
        }
        m.on_s[i] = sec(on);
        since[i] = sec(on - (s.samples > 0 ? s.first_sample_on[i] : 0));
    }
    m.mAs = charge(m.on_s, m.seconds, e);
    // from the first sample on: the deployment, not the set-up before it
    double span = s.samples > 0 ? m.seconds - sec(s.first_sample_at) : m.seconds;
    double q = charge(since, span, e);
    if (s.samples > 0) {
        m.mAs_per_sample = q / s.samples;
        m.awake_per_sample = since[kSupplyCpu] / s.samples;
    }
    if (span > 0) {
        m.mAh_per_day = q / 3600.0 / (span / 86400.0);
    }
    if (battery_mah > 0 && m.mAh_per_day > 0) {
        m.days = battery_mah / m.mAh_per_day;
    }
    return m;
}

std::string energy_progress(const EnergySummary &m) {
    char b[96];
    int n = std::snprintf(b, sizeof b, ", %.3f mAs/sample, %.2f mAh/day", m.mAs_per_sample,
                          m.mAh_per_day);
    if (m.days > 0 && n > 0 && size_t(n) < sizeof b) {
        std::snprintf(b + n, sizeof b - size_t(n), ", %.0f days", m.days);
    }
    return b;
}

std::string energy_result(const EnergySummary &m) {
    static const char *const kNames[kSupplies] = {"cpu", "iso", "ctd", "inst", "pump", "card"};
    std::ostringstream r;
    r.precision(6);
    r << "energy_samples = " << m.samples << "\n";
    for (int i = 0; i < kSupplies; ++i) {
        r << "energy_on_" << kNames[i] << "_s = " << m.on_s[i] << "\n";
    }
    r << "energy_mAs = " << m.mAs << "\n"
      << "energy_awake_per_sample_s = " << m.awake_per_sample << "\n"
      << "energy_mAs_per_sample = " << m.mAs_per_sample << "\n"
      << "energy_mAh_per_day = " << m.mAh_per_day << "\n"
      << "energy_days = " << m.days << "\n";
    return r.str();
}

} // namespace sim
