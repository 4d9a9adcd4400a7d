// Serial instruments of the simulated board: the CTDs on UART4 (SBE37,
// Aanderaa 5860) and the instruments on UART3 (oxygen optode, OCR-504,
// NanoFET, picoPH). Each speaks its protocol at its own baud rate and
// timing, reports the water of this moment (sim::water_now()), and has one
// fault knob:
//   ""          answers as set up for this controller
//   silent      says nothing at all
//   late        answers, but only after the controller has stopped waiting
//   garbage     sends line noise in place of its reply
//   long        sends its factory output, longer than the controller keeps
//   partial     sends the first half of its reply, then the line end
//   wake        answers the wake-up with the wrong character (or sleeps on)
//   unparsable  the first number of the reply has a letter in it
//   missing     the reply lacks its last two fields
//   early       a "<" in the middle of the reply
//   split       the reply pauses 100 ms halfway
//   stall       sends the first half of its reply, then falls silent
// An instrument understands only bytes sent at its own rate (within 3 %); what
// it sends while the board's UART runs another rate arrives garbled. It comes
// up (its power-on announcement, a fresh session) each time the board sets
// its UART to the instrument's rate.
#pragma once
#include <cstdint>
#include <deque>
#include <memory>
#include <random>
#include <string>

#include "devices.h"

namespace sim {

class SerialInstrument : public SerialDevice {
  public:
    explicit SerialInstrument(uint32_t baud);
    uint64_t next_byte_at() override;
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    void line_rate(uint32_t baud) override;

    uint32_t baud() const { return baud_; }
    bool rate_ok() const { return rate_ok_; }

    std::string fault;   // see above
    std::string heard;   // bytes understood (the first 4096)
    std::string said;    // bytes sent (the first 4096)
    uint32_t sessions{}; // times the instrument came up

  protected:
    virtual void port_up(uint64_t at) {}
    virtual void byte_in(uint8_t byte, uint64_t at) = 0;
    void say(const std::string &bytes, uint64_t at); // not before `at`
    // A reply (ending included: trailing CR, LF, "#") at `at` as the fault
    // knob shapes it; "late" sends it `late_ms` later.
    void answer(const std::string &reply, uint64_t at, double late_ms);
    void quiet();                // drops what was not sent yet
    std::string noise(size_t n); // bytes with the high bit set
    static uint64_t ms(double m) { return uint64_t(m * double(kCyclesPerMs)); }
    bool is(const char *f) const { return fault == f; }

  private:
    uint32_t baud_;
    uint64_t byte_cycles_;
    bool rate_ok_ = false;
    std::deque<std::pair<uint64_t, uint8_t>> out_;
    uint64_t wire_free_ = 0;
    std::mt19937_64 rng_;
};

// Line assembly for the text protocols: a line ends at CR or LF (a CR LF pair
// ends one line), NUL bytes are ignored, lines are kept to 256 characters.
class LineInstrument : public SerialInstrument {
  public:
    using SerialInstrument::SerialInstrument;

  protected:
    void byte_in(uint8_t byte, uint64_t at) override;
    virtual bool wakes_on_char() const { return false; }
    virtual void char_in(uint8_t byte, uint64_t at) {}
    virtual void line_in(const std::string &line, uint64_t at) = 0;
    void port_up(uint64_t at) override { reset_line(); }
    void reset_line() {
        line_.clear();
        last_cr_ = false;
        awake_at_ = kNever;
    }
    // For instruments that wake on a character: true while they still doze,
    // which with the wake knob is the first second after that character.
    bool dozing(uint64_t at);

  private:
    std::string line_;
    bool last_cr_ = false;
    uint64_t awake_at_ = kNever;
};

// Sea-Bird SBE37 MicroCAT, 9600 baud: the first character wakes it ("S>"),
// it echoes what it is typed and answers "ts" with one sample about 1.8 s
// later, then "S>" again. The controller keeps 15 characters of the line and
// parses five comma-separated fields; no output setting of the instrument
// fits that, so the model's default is the short line the controller's parse
// is written for: whole degrees, whole S/m, salinity to 0.01 and one-letter
// date and time fields, "12,4,34.00,d,t". The long knob gives the converted
// decimal output of OutputFormat=1 with the pressure sensor and OutputSal=Y:
// "12.0000,  3.89500,    0.000,  34.0000, 01 Jan 2024, 12:00:00". The wake
// knob keeps it asleep for a second after the waking character, so the
// controller's "ts" is lost.
class Sbe37Model : public LineInstrument {
  public:
    Sbe37Model() : LineInstrument(9600) {}
    std::string reply() const; // the data line as it stands now, CR LF included
    // OutputFormat=1: temperature, conductivity (S/m), pressure (dbar),
    // salinity when `sal` >= 0, date and time (the RTC's `epoch`).
    static std::string factory_line(double t, double c, double p, double sal, uint32_t epoch);

  protected:
    bool wakes_on_char() const override { return true; }
    void char_in(uint8_t byte, uint64_t at) override;
    void line_in(const std::string &line, uint64_t at) override;
};

// The Aanderaa smart-sensor protocol shared by the optode and the 5860: "%"
// when the sensor's serial interface comes up, "!" in answer to a CR LF,
// "do sample" answered with one tab-separated line (CR LF) and the "#" of
// going back to sleep. The wake knob answers the CR LF with "?".
class AanderaaModel : public LineInstrument {
  public:
    AanderaaModel(uint32_t baud, double wake_ms, double sample_ms)
        : LineInstrument(baud), wake_ms_(wake_ms), sample_ms_(sample_ms) {}
    virtual std::string reply() const = 0;      // the sample line as set up
    virtual std::string long_reply() const = 0; // the factory output

  protected:
    void port_up(uint64_t at) override;
    void line_in(const std::string &line, uint64_t at) override;

  private:
    double wake_ms_, sample_ms_;
};

// Aanderaa 4831 oxygen optode, 9600 baud, serial number 856. Set up for this
// controller without text labels and raw data (Enable Text=No, Enable
// Rawdata=No): product number, serial number, O2 concentration (uM), air
// saturation (%) and temperature (deg C), three decimals each:
// "4831\t856\t283.450\t98.000\t12.000" CR LF "#". The header's twelve optode
// columns (with the seven raw phases and amplitudes) would not fit the
// controller's 64-character column. Long: the output with text (Enable
// Text=Yes): "MEASUREMENT", then each value after its name and unit.
class OptodeModel : public AanderaaModel {
  public:
    OptodeModel() : AanderaaModel(9600, 300, 1200) {}
    std::string reply() const override;
    std::string long_reply() const override;
    static std::string line(double o2, double sat, double temp);
};

// Aanderaa 5860 conductivity sensor, 9600 baud, serial number 412. Its
// output without text labels (Enable Text=No) is product number, serial
// number, conductivity (mS/cm), temperature (deg C), salinity (PSU), density
// (kg/m3) and sound speed (m/s), tab-separated with three decimals:
// "5860\t412\t38.950\t12.000\t34.000\t1026.152\t1497.680"; that is the long
// knob. The controller keeps 15 characters and parses seven blank-separated
// numbers, which no output setting fits; the default is the short line its
// parse is written for: "0 0 4 12 34 0 0" (S/m, degrees and salinity
// rounded, the rest zero) and the "#", no line end.
class Aand5860Model : public AanderaaModel {
  public:
    Aand5860Model() : AanderaaModel(9600, 400, 1000) {}
    std::string reply() const override;
    std::string long_reply() const override;
    static std::string line(double cond_ms, double temp, double sal, double dens, double sv);
};

// picoPH meter, 19200 baud: "MEA 1 47" CR (channel 1, sensors 1+2+4+8+32)
// answered about 250 ms later with the command and its eighteen results R0..R17,
// blank-separated, CR: status, dphi (m deg), three reserved, sample and case
// temperature (m deg C), signal intensity and ambient light (uV), pressure
// (mbar), humidity (m %RH), sample temperature sensor resistance (mOhm), two
// reserved, pH (0.001), three reserved. These are the header's 21 picoPH
// columns. The controller keeps 63 characters; a longer reply ends in its
// overflow message. Long: the same reply with every reserved field filled.
// The wake knob sends the reply in lower case (no "M" to start it).
class PicophModel : public LineInstrument {
  public:
    PicophModel() : LineInstrument(19200) {}
    std::string reply() const;
    static std::string line(double ph, double temp, double case_temp);

  protected:
    void line_in(const std::string &line, uint64_t at) override;
};

// OCR-504 radiometer (irradiance), 57600 baud, serial number 0278, polled: a
// line end is answered about 30 ms later with one short frame (frametype
// short, usecal on): "SATFI40278" and the four calibrated channels in
// uW/cm2/nm, tab-separated, CR LF. The wake knob starts the frame with a
// lower-case "s". Long: the frame with its timer, counter and check fields.
class OcrModel : public LineInstrument {
  public:
    OcrModel() : LineInstrument(57600) {}
    std::string reply() const;
    static std::string line(const double ch[4], unsigned serial = 278);

  protected:
    void line_in(const std::string &line, uint64_t at) override;
};

// NanoFET, 115200 baud: a blank line gives its prompt "NF>", "ts" one line
// about 400 ms later, no echo. Set up for this controller it sends its short
// record "<pH>\t<temperature>\t<Vrse>" CR LF (the controller keeps 63
// characters); the long knob gives its full record, the fourteen columns the
// header names (sample number, date and time, bias battery, controller
// temperature, humidity, thermistor, its deviation, sensor temperature, Vrse,
// its deviation, Vk, its deviation, Ik, Ib). The wake knob answers "ts" only
// only after a second (it sleeps through the controller's "ts").
class NanofetModel : public LineInstrument {
  public:
    NanofetModel() : LineInstrument(115200) {}
    std::string reply() const;

  protected:
    bool wakes_on_char() const override { return true; }
    void line_in(const std::string &line, uint64_t at) override;

  private:
    uint32_t samples_ = 0;
};

// By the names of fenwa-sim's --ctd and --inst ("none" or unknown: nullptr).
std::shared_ptr<SerialInstrument> make_ctd_model(const std::string &name);
std::shared_ptr<SerialInstrument> make_inst_model(const std::string &name);

// Water properties the models report.
double seawater_conductivity(double salinity, double temp_c); // S/m, at the surface
double oxygen_solubility(double salinity, double temp_c);     // umol/kg, air-saturated

} // namespace sim
