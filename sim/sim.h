// The simulated board's harness: run whole scenarios like `fenwa-sim --script`,
// and drive the board in-process for unit tests that call firmware functions
// directly. The platform functions of platform/include work without any setup
// in a test process: the first call creates a default board (clock 0, RTC 0,
// erased EEPROM, zeroed FRAM, an empty card in a temporary folder, console
// output captured for console_take()).
#pragma once
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "devices.h"

namespace sim {

// ---- board state that survives power cycles -------------------------------
// One plain record; in a run it lives in memory shared by every power cycle.
constexpr uint32_t kEepromBytes = 4096;
constexpr uint32_t kFramBytes = 32768;

enum class EndReason : int32_t {
    None = 0,
    Hibernated, // HibernateRequest took the power away
    Reset,      // SysCtlReset
    TimeUp,     // --for reached, or the idle guard after the script
    Quit,       // Ctrl-] on the terminal
    Stopped,    // the simulator was asked to stop (signal)
    Crash,      // the power cycle died on a signal
    Returned,   // run_cycle: the function returned
    PowerCut,   // the power was cut (--cut-power-at, a second stop request)
};
const char *to_string(EndReason r);

// Supplies whose time on the energy account counts (sim/program/energy.h).
enum Supply : int {
    kSupplyCpu,
    kSupplyIso,
    kSupplyCtd,
    kSupplyInst,
    kSupplyPump,
    kSupplyCard,
    kSupplies
};

struct BoardState {
    uint64_t now; // CPU cycles at 50 MHz since the start of the run
    // RTC seconds = rtc_base + floor((now - rtc_base_cycles) / kCpuHz)
    uint32_t rtc_base;
    int64_t rtc_base_cycles;
    uint32_t rtc_match;
    uint32_t wake_flags;   // HIBERNATE_WAKE_*
    uint32_t hib_status;   // raw status word (HIBERNATE_INT_*)
    uint32_t hib_int_mask; // status bits that HibernateIntStatus(true) shows
    uint32_t rtc_trim;
    uint32_t clock_config;
    bool module_enabled; // HibernateEnableExpClk was called (the module runs)
    bool rtc_enabled;
    bool active_at_start; // what HibernateIsActive reports in this power cycle
    bool hibernating;
    bool power_off;        // the board was switched off: the next start is a power-on
    bool match_armed;      // the match lies ahead of the RTC (raises 0x01 when passed awake)
    uint32_t hib_requests; // HibernateRequest calls (also failed ones)
    uint32_t resets;       // SysCtlReset calls
    // Page-aligned: in a run the state folder's eeprom.bin and fram.bin are
    // mapped over these, so every store lands in the file at once.
    alignas(4096) uint8_t eeprom[kEepromBytes];
    alignas(4096) uint8_t fram[kFramBytes];
    // console line: position in the run's script and when the line is free again
    uint64_t script_pos;
    uint64_t console_wire_free;
    uint32_t console_baud;
    // knobs
    bool card_absent;
    bool card_full;
    bool card_error;
    bool eeprom_init_error;
    bool hib_fail;
    // end of the power cycle
    EndReason end_reason;
    uint64_t deadline;     // the cycle ends when the clock reaches this (kNever: no limit)
    uint64_t script_guard; // awake this long after the last script byte ends it (0: off)
    bool script_mode;      // a script feeds the console
    // real-time mode: wall clock (CLOCK_MONOTONIC ns) that corresponds to rt_cycles_base
    bool realtime;
    int64_t rt_wall_base_ns;
    uint64_t rt_cycles_base;
    uint32_t cycle_index; // power cycles run so far in this run
    // stopping: a deployed board runs on to its next hibernation, then the run ends
    bool stop_requested;
    bool stop_asked;          // the supervisor was asked to stop before this cycle began
    uint64_t cut_at;          // the power is cut when the clock reaches this (kNever: never)
    uint64_t lifetime_cycles; // power cycles of this board over all runs (board.txt)
    EndReason last_end;       // how the last power cycle ended (board.txt)
    int32_t save_errno;       // board.txt could not be written (0: fine)
    uint32_t board_txt_len;   // bytes board.txt holds (shorter texts are padded)
    // energy account: CPU cycles each supply has been on, and since when (0: off)
    uint64_t supply_on[kSupplies];
    uint64_t supply_since[kSupplies];
    uint64_t supply_at_cycle_start[kSupplies];
    uint64_t first_sample_on[kSupplies]; // supply_on when the first sampling cycle began
    uint64_t first_sample_at;
    uint32_t samples; // power cycles that ran the analog front end
};

// Hooks where the board switches a supply; a cycle's end switches all off.
inline void supply_switch(BoardState &s, Supply w, bool on) {
    if (on && s.supply_since[w] == 0) {
        s.supply_since[w] = s.now + 1; // +1: a switch at cycle 0 is still "on"
    } else if (!on && s.supply_since[w] != 0) {
        s.supply_on[w] += s.now + 1 - s.supply_since[w];
        s.supply_since[w] = 0;
    }
}
inline void supply_add(BoardState &s, Supply w, uint64_t cycles) {
    s.supply_on[w] += cycles;
}

// ---- whole runs -------------------------------------------------------------
// The water at the instrument at one moment.
struct Water {
    double temp_c;   // degrees Celsius
    double salinity; // practical salinity
    double ph;       // total scale
    double dbar;     // pressure, decibars
};
struct WaterPoint {
    double t; // seconds from the run's start
    Water w;
};

// The water and the instruments around the simulated board. Device models read
// it through sim::environment(); the supervisor sets it before each power cycle.
struct Environment {
    double ph = 8.0;        // pH (total scale) of the water at the sensor
    double temp_c = 15.0;   // water temperature, degrees Celsius
    double salinity = 35.0; // practical salinity
    double dbar = 0.0;      // pressure at the instrument, decibars
    // Water over time (--water): a CSV file or a scene; "" = the values above.
    std::string water;
    std::vector<WaterPoint> water_points; // the file's rows, times from the run's start
    double noise_uv = 3.0;                // sensor noise at the ADC input, microvolts rms
    double drift_mv_day = 0.0;            // drift of the sensor's reference cells
    uint64_t seed = 1;                    // noise generators
    std::string ctd = "none";             // CTD on UART4: none, sbe37, aand5860
    std::string inst = "none";            // instrument on UART3: none, optode, ocr, nanofet, picoph
    std::string ctd_fault;                // "", silent, late, garbage, long
    std::string inst_fault;               // "", silent, late, garbage, long
    std::string adc_fault;                // "", nodrdy
};
const Environment &environment();
void set_environment(const Environment &e);
// The water at a moment of the run (seconds from its start) and now; the
// drift of the reference cells by then, volts.
Water water_at(double seconds);
Water water_now();
double sensor_drift_volts(double seconds);
// Reads --water's argument: a scene name (diurnal, profile) or a CSV file of
// time, temperature, salinity, pH and pressure rows (time in seconds from the
// run's start, or ISO 8601 UTC counted from `start_epoch`, or from the first
// row when it is negative). False with a message naming the line.
bool load_water(const std::string &arg, int64_t start_epoch, std::vector<WaterPoint> &out,
                std::string &err);
std::string water_scenes(); // "diurnal, profile"

struct Options {
    std::string state_dir = "./fenwa-state";
    Environment env;
    std::string script;         // script text ("SECONDS TEXT" lines)
    std::string script_path;    // or a script file ("-" = standard input)
    bool has_script = false;    // feed the console from script / script_path
    double for_seconds = -1;    // < 0: no limit
    double cut_at_seconds = -1; // >= 0: cut the power at this simulated time
    int64_t rtc = -1;           // >= 0: set the RTC (seconds since 1970) at start
    bool pty = false;
    int realtime = -1; // -1: script fast, console real time; 0 fast; 1 real time
    bool card_absent = false;
    bool card_full = false;
    bool card_error = false;
    std::string card_image; // FAT image file as the card ("" = the state folder's card/)
    bool blank_eeprom = false;
    bool hib_fail = false;
    bool eeprom_error = false; // EEPROMInit reports an error
    int progress = -1;         // -1: when stderr is a terminal
    std::string result_path;   // write a key = value summary here
    std::string currents_path; // overrides of the energy account's currents
    double battery_mah = 0;    // > 0: days on a battery of this capacity
    // Code of each power cycle; nullptr = the firmware. Only for runs that fork
    // from this process (run_here, or run() when it is set).
    void (*entry)() = nullptr;
};

struct RunResult {
    std::string output;          // every console byte, in order
    std::string messages;        // the simulator's own messages (stderr)
    int cycles = 0;              // power cycles run
    std::vector<EndReason> ends; // how each power cycle ended
    std::string stop;            // why the run stopped ("script done", "time up", ...)
    bool crashed = false;
    int exit_code = 0;
    double seconds = 0;   // simulated seconds
    uint64_t samples = 0; // the deployment's sample counter advanced this much
    std::string board;    // the board at the end: "deployed" or "idle"
    std::string power;    // "hibernating", "awake" (power cut) or "off"
    uint32_t rtc = 0;     // RTC at the end
    std::string energy;   // the energy account's "energy_..." lines of the summary
};

// Runs a scenario in a fresh process (the fenwa-sim program when the build
// knows its path, else a fork of this one) so every power cycle starts from the
// program image's initial values, whatever this process ran before.
RunResult run_program(const Options &o, const char *program);
static inline RunResult run(const Options &o) {
#ifdef FENWA_SIM_PATH
    return run_program(o, o.entry ? nullptr : FENWA_SIM_PATH);
#else
    return run_program(o, nullptr);
#endif
}
// This process is the supervisor (it must never have run firmware code).
// Console bytes go to `out_fd`, or into the result when out_fd < 0. Resets the
// in-process board afterwards.
RunResult run_here(const Options &o, int out_fd = -1);

// Command line of fenwa-sim (parse, usage, whole program).
bool parse_args(int argc, char **argv, Options &o, std::string &err, bool &help);
std::vector<std::string> to_args(const Options &o); // inverse of parse_args
std::string usage();
int cli_main(int argc, char **argv);

// Parses a script; false with a message on a malformed line.
struct ScriptByte {
    uint64_t at; // earliest cycle at which it is typed
    uint8_t byte;
};
bool parse_script(const std::string &text, std::vector<ScriptByte> &out, std::string &err);

// ---- in-process board (unit tests) -----------------------------------------
// Knobs of the in-process board that do not survive power cycles.
struct Knobs {
    // HibernateRequest records the call (state().hib_requests) and returns,
    // like a failed hibernation; when set, this is called instead (it may
    // throw CycleEnd to leave the firmware).
    std::function<void()> on_hibernate;
    // SysCtlReset calls this when set; if it returns (or none is set) the
    // board throws CycleEnd{Reset}.
    std::function<void()> on_reset;
    // The clock may not pass this (cycles); the board throws CycleEnd{TimeUp}.
    uint64_t time_limit = 10ull * 86400 * kCpuHz;
};
struct CycleEnd {
    EndReason reason;
};

void reset_board();  // a fresh default board
BoardState &state(); // the board's surviving state (registers, images)
Knobs &knobs();
// Bytes typed at the console from now on, paced at UART0's rate; like on the
// board they are lost while UART0 is disabled (configure the console first).
void console_feed(const std::string &bytes);
std::string console_take();   // console bytes sent so far (then cleared)
void advance_ms(uint32_t ms); // let time pass in the foreground (interrupts run)
void advance_cycles(uint64_t cycles);
double now_seconds();
uint32_t rtc();
void set_rtc(uint32_t seconds);
std::string card_dir(); // folder behind the FAT API
void set_card_dir(const std::string &dir);
// The card as a FAT image file instead, driven through FatFs R0.16, the SD
// layer and SSI0 (fenwa-sim --card-image). False with a message when the file
// will not do or this build has no FatFs (FENWA_FATFS_DIR).
bool card_image_built();
bool use_card_image(const std::string &path, std::string &err);
constexpr const char *kCardImageHowTo =
    "this fenwa-sim has no FAT module: get FatFs R0.16 from elm-chan.org/fsw/ff/ and "
    "configure with -DFENWA_FATFS_DIR=<its source folder> (README: \"The card\")";

// Interrupts delivered so far, by vector number (FAULT_SYSTICK, INT_UART0, ...).
uint64_t irq_count(uint32_t vector);
// Replace the handler of a vector (nullptr: back to the firmware's).
void set_irq_handler(uint32_t vector, void (*handler)());

// I2C bus log: one entry per bus event.
struct I2cEvent {
    enum Kind : uint8_t { Start, Write, Read, Stop } kind;
    uint8_t addr; // Start: target address
    bool read;    // Start: direction
    uint8_t data; // Write/Read byte
    bool ack;     // Start: address acknowledged; Write: byte acknowledged; Read: master acked
    uint64_t at;
};
const std::vector<I2cEvent> &i2c_log();
void i2c_log_clear();
// The log as text: "[50 W] 00 40 AA P [50 W] 00 40 [50 R] AA P"
std::string i2c_log_text();

// GPIO: levels of a port as the pins show them; the LED log (port F pins 2, 3).
uint8_t gpio_levels(uint32_t port_base);
struct LedEvent {
    uint64_t at;
    uint8_t pin; // GPIO_PIN_2 red, GPIO_PIN_3 green
    bool on;
};
const std::vector<LedEvent> &led_log();

// Runs fn in a forked child as one power cycle of the current board (its
// surviving state is shared with this process); returns how it ended and the
// console bytes it sent.
struct CycleResult {
    EndReason reason = EndReason::None;
    int signal = 0;
    std::string output;
};
CycleResult run_cycle(const std::function<void()> &fn);

// The factory EEPROM image: the firmware's defaults record at 1024 (made in a
// throwaway child), the rest erased.
bool factory_eeprom(std::array<uint8_t, kEepromBytes> &image, std::string &err);

} // namespace sim
