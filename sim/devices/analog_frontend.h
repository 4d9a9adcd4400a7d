// The analog front end behind the simulated ADS1248: a Durafet-type pH sensor
// in seawater at the water's pH, temperature and salinity, the counter
// electrode, the substrate, the bias batteries and the thermistor divider.
//
// The sensor voltages are the firmware's chemistry run backwards in double
// precision with the factory calibration of the record (k0int -0.4 V,
// k0ext -1.3 V, the four "4 Var S-H" thermistor coefficients, TCOffset 0), so
// that the temperature and pH the firmware computes come back at the set
// values. Noise is the ADC model's business; these are clean voltages.
#pragma once
#include <cstdint>

#include "sim.h"

namespace sim {

struct FrontEnd {
    double vtherm;   // thermistor divider (20 kohm from 3.3 V), AIN0
    double vrsi;     // internal reference cell, mux position 3
    double vrse;     // external (chloride) reference cell, mux position 0 and AIN4
    double bias_ref; // biased readings (AIN5) at positions 0 and 3 see this return
    double vk;       // counter electrode, mux position 1
    double ik_volts; // counter-electrode current across its sense resistor (AIN1-AIN5)
    double ib_volts; // substrate current signal, mux position 2
    double bias_pos; // bias batteries, volts at the cells (the board halves them)
    double bias_neg;
};

// Default calibration of the record, as the model inverts it.
constexpr double kFrontK0int = -0.4;
constexpr double kFrontK0ext = -1.3;
constexpr double kFrontTherm[4] = {340.9819863, -9.10257e-05, -95.08806667, 0.965370274};

// Chemistry and thermistor, backwards.
double thermistor_volts(double temp_c);
double thermistor_temp(double volts); // forwards, for checks
double vrsi_for(double ph, double temp_c);
double vrse_for(double ph, double temp_c, double salinity);

// The front end in this water, its reference cells drifted by `drift` volts;
// the environment's form takes the water and drift of this moment.
FrontEnd front_end(const Water &w, double drift);
FrontEnd front_end(const Environment &e);

// Voltage between ADC inputs AINpos and AINneg (0..7) with the ADC's GPIO pins
// at `gpio` (bits 0-1 the ADG1609 address, wired inverted; bit 3 the bias
// battery switch, 1 = positive).
double front_end_input(const FrontEnd &f, int pos, int neg, uint8_t gpio);

// ADG1609 position selected by the ADC's GPIO pins.
inline int adg1609_position(uint8_t gpio) {
    return (gpio & 3) ^ 3;
}

} // namespace sim
