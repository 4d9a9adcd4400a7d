// Serial instruments of the simulated board: the CTDs on UART4 (SBE37,
// Aanderaa 5860) and the instruments on UART3 (oxygen optode, OCR-504,
// NanoFET, picoPH). Each speaks its protocol at its own baud rate, reports the
// water of sim::environment(), and has one fault knob:
//   ""       answers as configured for this controller
//   silent   says nothing at all
//   late     answers, but only after the controller has stopped waiting
//   garbage  sends line noise in place of its reply
//   long     sends its full factory reply, longer than the controller keeps
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
    void quiet();                                    // drops what was not sent yet
    std::string noise(size_t n);                     // bytes with the high bit set
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
    virtual void char_in(uint8_t byte, uint64_t at) {}
    virtual void line_in(const std::string &line, uint64_t at) = 0;
    void reset_line() {
        line_.clear();
        last_cr_ = false;
    }

  private:
    std::string line_;
    bool last_cr_ = false;
};

// Sea-Bird SBE37 MicroCAT, 9600 baud: wakes on a CR with "S>", echoes what it
// is typed, answers "ts" with one sample about 1.8 s later. The output is set
// short for this controller (which keeps 15 characters): whole degrees, whole
// S/m, salinity to 0.01 and one-character date and time fields, e.g.
// "12,4,34.00,d,t". The long fault gives the factory format
// "  12.0000,  3.89500,  34.0000, 01 Jan 2024, 12:00:00".
class Sbe37Model : public LineInstrument {
  public:
    Sbe37Model() : LineInstrument(9600) {}
    std::string reply() const; // the data line as it stands now, CR LF included

  protected:
    void char_in(uint8_t byte, uint64_t at) override;
    void line_in(const std::string &line, uint64_t at) override;
};

// The Aanderaa smart-sensor protocol shared by the optode and the 5860: "%"
// when the sensor's serial interface comes up, "!" in answer to a CR LF,
// "do sample" answered with one line and the "#" of going back to sleep.
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

// Aanderaa 4831 oxygen optode, 9600 baud. Set up without text labels:
// "4831\t856\t<O2 uM>\t<air saturation %>\t<temperature>" CR LF "#".
class OptodeModel : public AanderaaModel {
  public:
    OptodeModel() : AanderaaModel(9600, 300, 1200) {}
    std::string reply() const override;
    std::string long_reply() const override;
};

// Aanderaa 5860 conductivity sensor, 9600 baud. Its seven fields are product
// number, serial number, conductivity, temperature, salinity, density and
// sound speed; set up for this controller (15 characters) it sends them
// rounded and without its line end, e.g. "0 0 4 12 34 0 0#".
class Aand5860Model : public AanderaaModel {
  public:
    Aand5860Model() : AanderaaModel(9600, 400, 1000) {}
    std::string reply() const override;
    std::string long_reply() const override;
};

// picoPH meter, 19200 baud: "MEA 1 47" CR answered about 250 ms later with
// the command, a status and the readings: "MEA 1 47 0 <pH x 1000>
// <temperature in m°C> <signal>" CR.
class PicophModel : public LineInstrument {
  public:
    PicophModel() : LineInstrument(19200) {}
    std::string reply() const;

  protected:
    void line_in(const std::string &line, uint64_t at) override;
};

// OCR-504 radiometer, 57600 baud, polled: a line end is answered with one
// tab-separated frame "SATFI40278\t<four irradiances>" CR LF.
class OcrModel : public LineInstrument {
  public:
    OcrModel() : LineInstrument(57600) {}
    std::string reply() const;

  protected:
    void line_in(const std::string &line, uint64_t at) override;
};

// NanoFET, 115200 baud: a blank line gives its prompt, "ts" one line
// "<pH>\t<temperature>\t<Vrs>" CR LF about 400 ms later. No echo.
class NanofetModel : public LineInstrument {
  public:
    NanofetModel() : LineInstrument(115200) {}
    std::string reply() const;

  protected:
    void line_in(const std::string &line, uint64_t at) override;
};

// By the names of fenwa-sim's --ctd and --inst ("none" or unknown: nullptr).
std::shared_ptr<SerialInstrument> make_ctd_model(const std::string &name);
std::shared_ptr<SerialInstrument> make_inst_model(const std::string &name);

// Water properties the models report.
double seawater_conductivity(double salinity, double temp_c); // S/m, at the surface
double oxygen_solubility(double salinity, double temp_c);     // umol/kg, air-saturated

} // namespace sim
