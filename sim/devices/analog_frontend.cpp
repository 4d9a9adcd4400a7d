// Sensor voltages of the simulated front end: the thermistor divider, and the
// Nernst cells of the internal and external reference solved for the voltage
// that gives the set pH (the external one through ionic strength, chloride,
// HCl activity and bisulfate, as the instrument computes it).
#include "analog_frontend.h"

#include <cmath>

namespace sim {

namespace {

// Constants of the instrument's chemistry.
constexpr double kKelvin = 273.15;
constexpr double kR = 8.31451;
constexpr double kF = 96487.0;
constexpr double kLn10 = 2.302585;
constexpr double kIntSlope = -0.0011012; // V/degC
constexpr double kExtSlope = -0.0010482; // V/degC

// Divider: 20 kohm from 3.3 V, the thermistor below.
constexpr double kDividerOhm = 20000.0;
constexpr double kDividerVolts = 3.3;

// Fixed parts of the front end.
constexpr double kBiasRef = -0.30; // V, the return the biased readings see
constexpr double kVk = -0.905;     // V, counter electrode
constexpr double kIkNanoAmp = 2.5; // counter-electrode current
constexpr double kIkPerVolt = 66666.667;
constexpr double kIbVolts = 1.2e-5; // substrate current signal
constexpr double kBiasPos = 3.04;   // V, positive bias battery
constexpr double kBiasNeg = -3.03;  // V, negative bias battery

double nernst(double temp_c) {
    return (temp_c + kKelvin) * kR / kF * kLn10;
}

double therm_temp_of_ohm(double r) {
    double l = std::log10(r);
    return kFrontTherm[0] + kFrontTherm[1] * r + kFrontTherm[2] * l + kFrontTherm[3] * l * l * l;
}

} // namespace

double thermistor_temp(double volts) {
    double r = kDividerOhm / ((kDividerVolts / volts) - 1.0);
    return therm_temp_of_ohm(r);
}

// The curve falls with resistance over the thermistor's range: bisect in
// log(R) between 100 ohm and 10 Mohm.
double thermistor_volts(double temp_c) {
    double lo = 2.0, hi = 7.0; // log10 ohm; temperature falls from lo to hi
    for (int i = 0; i < 200; ++i) {
        double mid = 0.5 * (lo + hi);
        if (therm_temp_of_ohm(std::pow(10.0, mid)) > temp_c) {
            lo = mid;
        } else {
            hi = mid;
        }
    }
    double r = std::pow(10.0, 0.5 * (lo + hi));
    return kDividerVolts * r / (r + kDividerOhm);
}

double vrsi_for(double ph, double temp_c) {
    double eo = kFrontK0int + (temp_c - 25.0) * kIntSlope;
    return eo + ph * nernst(temp_c);
}

double vrse_for(double ph, double temp_c, double salinity) {
    const double tk = temp_c + kKelvin;
    const double st = nernst(temp_c);
    const double s = salinity;
    const double eo = kFrontK0ext + (temp_c - 25.0) * kExtSlope;
    const double z = (s * 19.924) / (1000.0 - s * 1.005);
    const double so4 = (s / 1.80655) * 0.001457392100934813;
    const double mcl = (s * 0.028175048655967053) / 1.80655;
    const double lnt = std::log(tk);
    const double sz = std::sqrt(z);
    const double khso4 = std::exp(
        -4276.1 / tk + 141.328 - 23.093 * lnt + (-13856.0 / tk + 324.57 - 47.986 * lnt) * sz +
        (35474.0 / tk - 771.54 + 114.723 * lnt) * z - (2698.0 / tk) * sz * sz * sz +
        (1776.0 / tk) * z * z + std::log(1.0 - 0.001005 * s));
    const double dh = temp_c * temp_c * 3.43e-06 + temp_c * 0.00067524 + 0.49172143;
    const double lg = 2.0 * ((-dh) * sz / (1.0 + 1.394 * sz) + (0.08885 - 0.000111 * temp_c) * z);
    // total scale -> free scale, then the cell: E = Eo + S (pH_free - log mCl - log gamma)
    const double ph_free = ph + std::log10(1.0 + so4 / khso4);
    return eo + st * (ph_free - std::log10(mcl) - lg);
}

FrontEnd front_end(const Environment &) {
    return front_end(water_now(), sensor_drift_volts(double(now_cycles()) / double(kCpuHz)));
}

FrontEnd front_end(const Water &w, double drift) {
    FrontEnd f{};
    f.vtherm = thermistor_volts(w.temp_c);
    f.vrsi = vrsi_for(w.ph, w.temp_c) + drift;
    f.vrse = vrse_for(w.ph, w.temp_c, w.salinity) + drift;
    f.bias_ref = kBiasRef;
    f.vk = kVk;
    f.ik_volts = kIkNanoAmp / kIkPerVolt;
    f.ib_volts = kIbVolts;
    f.bias_pos = kBiasPos;
    f.bias_neg = kBiasNeg;
    return f;
}

// Node voltages against AIN6, the sensor common. The ADG1609 is a dual 4:1
// mux: its A side drives AIN1, its B side AIN5.
double front_end_input(const FrontEnd &f, int pos, int neg, uint8_t gpio) {
    double a = 0.0, b = 0.0;
    switch (adg1609_position(gpio)) {
    case 0:
        a = f.vrse;
        b = f.bias_ref;
        break;
    case 1:
        a = f.vk;
        b = f.vk - f.ik_volts;
        break;
    case 2:
        a = f.ib_volts;
        b = 0.0;
        break;
    default:
        a = f.vrsi;
        b = f.bias_ref;
        break;
    }
    const double battery = (gpio & 0x08) != 0 ? f.bias_pos : f.bias_neg;
    auto node = [&](int n) {
        switch (n) {
        case 0:
            return f.vtherm;
        case 1:
            return a;
        case 4:
            return f.vrse;
        case 5:
            return b;
        case 7:
            return battery / 2.0;
        default:
            return 0.0; // AIN6 is the common; AIN2 and AIN3 are tied to it
        }
    };
    return node(pos & 7) - node(neg & 7);
}

} // namespace sim
