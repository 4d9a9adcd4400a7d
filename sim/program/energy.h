// The energy a deployment costs: time awake and time each supply is on, per
// power cycle, priced with one table of currents from the parts' data sheets.
#pragma once
#include <string>
#include <vector>

#include "sim.h"

namespace sim {

struct Current {
    std::string key;    // "cpu.run", "ctd.sbe37", ...
    double mA;          // drawn from the battery while on
    std::string source; // where the figure comes from
};

// The table, with the overrides loaded so far.
std::vector<Current> &currents();
// "key = mA" lines ("#" comments); false with a message for an unknown key or a bad number.
bool load_currents(const std::string &path, std::string &err);

struct EnergySummary {
    double seconds = 0;          // the run's simulated time
    double on_s[kSupplies] = {}; // each supply's time on
    uint32_t samples = 0;        // power cycles that ran the analog front end
    double mAs = 0;              // charge over the whole run
    double awake_per_sample = 0; // seconds, from the first sampling cycle on
    double mAs_per_sample = 0;   // likewise
    double mAh_per_day = 0;      // likewise
    double days = 0;             // on the battery (0: no battery given)
};

EnergySummary energy_summary(const BoardState &s, const Environment &e, double battery_mah);
std::string energy_progress(const EnergySummary &m); // short, for the progress line
std::string energy_result(const EnergySummary &m);   // "energy_... = value" lines

class Board;
void install_energy_hooks(Board &b); // the isolated supply's pin
void energy_cycle_start(BoardState &s);
void energy_cycle_end(BoardState &s); // everything off; counts a sampling cycle

} // namespace sim
