// The simulated ADS1248 on SSI3 with the ADG1609 mux on its GPIO pins, as
// tests see it: every SPI transaction the board made, the ADC's registers and
// lines, and a way to hand out chosen raw codes.
//
// Board lines: PE0 isolated supply (high = on), PE1 DRDY (low = data ready),
// PE2 START, PE3 RESET (low = held in reset), PD1 chip select (low = selected).
// Installed on every board by install_adc_devices; environment().adc_fault
// "nodrdy" keeps DRDY high for good.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace sim {

// One chip-select period (chip select low to high), or a run of frames the
// board clocked while chip select was high (selected = false: the ADC ignored
// them).
struct AdcTransaction {
    uint64_t begin = 0; // cycle at which chip select fell (or the first stray frame)
    uint64_t end = 0;   // cycle at which chip select rose; 0 while still low
    bool selected = true;
    bool powered = true;      // the isolated supply was on
    std::vector<uint8_t> out; // bytes the board sent (DIN)
    std::vector<uint8_t> in;  // bytes the ADC sent back (DOUT)
};

// Supply, START and RESET edges, in order.
struct AdcLineEvent {
    uint64_t at;
    char line; // 'P' supply (PE0), 'S' START (PE2), 'R' RESET (PE3)
    bool high;
};

struct AdcStatus {
    bool powered = false;
    bool in_reset = false;
    bool start = false;
    bool rdatac = true;
    bool converting = false;
    uint8_t regs[15] = {};
    uint32_t conversions_read = 0; // conversion results shifted out
    uint32_t filter_restarts = 0;  // conversions restarted (reset, START, register writes)
    uint64_t first_ready = 0;      // cycle of the first DRDY after the last restart
    uint64_t period = 0;           // cycles between conversions
};

const std::vector<AdcTransaction> &adc_log();
void adc_log_clear();
// The selected transactions' DIN bytes in hex, one transaction per group:
// "40 03 0E 00 30 02 | FF FF FF | ..."; stray frames show as "(cs high) FF".
std::string adc_log_text();
const std::vector<AdcLineEvent> &adc_line_events();
AdcStatus adc_status();

// The next conversions give these raw 24-bit codes (low 24 bits of each, in
// order) instead of the front end's voltage; then the front end again.
void adc_queue_codes(const std::vector<uint32_t> &codes);
// Standard deviation of the Gaussian noise added to every conversion, volts
// (default: the environment's noise_uv, 3e-6). The noise is a function of the seed and the
// conversion's time, so a run is the same for the same seed.
void adc_set_noise(double volts);

// ADS1248 timing from the data sheet (4.096 MHz oscillator), in CPU cycles:
// first data after a reset, START or SYNC; after a write to MUX0..SYS0; and
// between conversions, for data-rate code dr (0 = 5 sps .. 9 = 2000 sps).
uint64_t ads1248_first_cycles(int dr, bool after_register_write);
uint64_t ads1248_period_cycles(int dr);

} // namespace sim
