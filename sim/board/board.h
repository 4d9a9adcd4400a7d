// Inside of the simulated board: the virtual clock, the interrupt controller,
// and the peripheral models the platform functions act on. One global board
// per process; in a run each power cycle is a child process that gets a copy
// of it and shares only BoardState with the others.
#pragma once
#include <signal.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ff.h"
#include "sim.h"

namespace sim {

constexpr uint32_t kCallCost = 12; // cycles of one platform call
constexpr uint32_t kIrqCost = 40;  // exception entry and return
constexpr uint32_t kVectors = 140;
constexpr uint32_t kUarts = 8;
constexpr uint32_t kFifoDepth = 16;

int64_t mono_ns();

// Set by SIGTERM/SIGINT in a power cycle's process: the cycle ends at the next call.
extern volatile sig_atomic_t child_stop_requested;

// The terminal or host at the far end of the console line: types the script
// (and live input) at the line rate, collects what the board sends.
class ConsoleLine : public SerialDevice {
  public:
    explicit ConsoleLine(BoardState *st) : st_(st) {}
    uint64_t next_byte_at() override;
    uint8_t take_byte() override;
    void receive(uint8_t byte, uint64_t at) override;
    void line_rate(uint32_t baud) override;

    void set_script(const std::vector<ScriptByte> *s) { script_ = s; }
    void type_live(uint8_t b, uint64_t at) { live_.push_back({at, b}); }
    void drop_live() { live_.clear(); }
    bool script_done() const;
    bool has_input() const { return !script_done() || !live_.empty(); }
    // Output side: a file descriptor (buffered unless immediate) or a string.
    void set_output(int fd, bool immediate) {
        out_fd_ = fd;
        immediate_ = immediate;
    }
    void flush();
    std::string take_capture();
    const std::string &pending() const { return pending_; }
    int out_fd() const { return out_fd_; }

  private:
    const ScriptByte *peek() const;
    BoardState *st_;
    const std::vector<ScriptByte> *script_ = nullptr;
    std::deque<ScriptByte> live_;
    int out_fd_ = -1;
    bool immediate_ = false;
    std::string capture_;
    std::string pending_;
    std::string line_; // start of the line being sent
};

struct Uart {
    uint32_t base = 0;
    uint32_t vector = 0;
    int index = 0;
    bool present = false;
    bool enabled = false;
    uint32_t baud = 115200;
    uint32_t cfg_clk = 16000000;
    uint32_t source = 0; // UART_CLOCK_SYSTEM / UART_CLOCK_PIOSC
    uint64_t byte_cycles = 10 * kCpuHz / 115200;
    uint32_t tx_trigger = 8; // TX interrupt when the FIFO holds this many or fewer
    std::deque<uint8_t> rx, tx;
    bool shifting = false;
    uint8_t shift_byte = 0;
    uint64_t shift_done = 0;
    uint32_t raw = 0, mask = 0;
    uint64_t rx_quiet_since = 0;
    uint64_t overruns = 0;
    uint64_t due = 0;          // next_event() as last computed (power cycles only)
    double line_baud = 115200; // the rate the bits really run at
    bool rate_warned = false;
    std::shared_ptr<SerialDevice> dev;

    void power_on();
    void set_rate();
    void check_rate();
    uint64_t next_event() const;
    void update(uint64_t now);
    void start_next(uint64_t t);
};

struct I2cBus {
    bool enabled = false;
    uint64_t bit_cycles = kCpuHz / 100000;
    uint8_t addr = 0;
    bool rx_dir = false;
    uint8_t data_out = 0;
    uint8_t data_in = 0;
    uint32_t err = 0;
    uint64_t busy_until = 0;
    bool in_txn = false;
    bool cur_read = false;
    I2cDevice *cur = nullptr;
    std::map<uint8_t, std::shared_ptr<I2cDevice>> devices;
    bool logging = true;
    std::vector<I2cEvent> log;
    void power_on();
    void note(I2cEvent e);
};

struct SsiPort {
    uint32_t base = 0;
    bool enabled = false;
    uint64_t bit_cycles = kCpuHz / 1000000;
    uint32_t width = 8;
    std::deque<std::pair<uint64_t, uint32_t>> rx; // (complete at, frame)
    uint64_t busy_until = 0;
    std::shared_ptr<SpiDevice> dev;
    void power_on();
};

struct Gpio {
    uint8_t dir[6] = {};
    uint8_t data[6] = {};
    uint8_t input[6] = {};
    std::vector<LedEvent> leds;
    std::vector<GpioWatcher> watchers;
    void power_on();
};

class Board {
  public:
    enum class Mode { InProcess, Child };

    Board();
    Mode mode = Mode::InProcess;
    BoardState *st = nullptr;
    Knobs knobs;

    bool master_on = true;
    bool in_handler = false;
    bool nvic[kVectors] = {};
    uint8_t uart_nvic = 0; // bit i: the NVIC line of UART i is enabled (mirror of nvic[])
    void nvic_set(uint32_t v, bool on);
    void (*vectors[kVectors])() = {};
    uint64_t irq_counts[kVectors] = {};

    uint32_t systick_period = 0;
    bool systick_on = false, systick_int = false, systick_pending = false;
    uint64_t systick_next = kNever;

    Uart uarts[kUarts];
    I2cBus i2c;
    SsiPort ssi[4];
    Gpio gpio;
    std::shared_ptr<ConsoleLine> console;

    std::string card_root; // host folder of the card ("" = the temporary one)
    std::string temp_card; // made on first use by a unit test, removed at exit
    FATFS *mounted = nullptr;

    int state_fd = -1;     // board.txt of the run's state folder (-1: none)
    int input_fd = -1;     // live console input (real-time runs)
    int done_fd = -1;      // a power cycle forked ahead reports its end here
    bool quit_key = false; // Ctrl-] ends the run
    int64_t last_poll_ns = 0;
    std::vector<std::string> notes; // one-time warnings, printed on stderr in a run
    uint64_t due_ = 0;              // nothing happens before this (power cycles only)
    uint64_t uart_due_ = 0;         // no UART has anything to do before this (power cycles only)
    uint8_t uart_dirty_ = 0xFF;     // bit i: UART i must be looked at again
    uint64_t limit_ = kNever;
    uint64_t wake_ = 0; // min(due_, limit_) in a power cycle, 0 in tests: a call there looks

    uint64_t &now() { return st->now; }
    void power_on_reset();
    void default_vectors();
    // The platform calls run through these millions of times a simulated
    // day: the common case (nothing due, nothing pending) stays inline.
    void call(uint32_t cost = kCallCost) {
        uint64_t n = (now() += cost);
        if (n >= wake_ || child_stop_requested) {
            check_limit_slow();
        }
        if ((st->realtime || input_fd >= 0) && !in_handler && mono_ns() - last_poll_ns > 2000000) {
            rt_sync();
        }
        deliver();
    }
    void deliver() {
        if (deliverable()) {
            deliver_pending();
        }
    }
    void deliver_pending();
    bool deliverable() const {
        if (in_handler || !master_on) {
            return false;
        }
        if (systick_pending && systick_int) {
            return true;
        }
        // only the UARTs whose NVIC line is open can interrupt
        for (uint32_t armed = uart_nvic; armed != 0; armed &= armed - 1) {
            const Uart &u = uarts[__builtin_ctz(armed)];
            if ((u.raw & u.mask) != 0) {
                return true;
            }
        }
        return false;
    }
    void advance_to(uint64_t t);
    void idle();
    uint64_t next_event() { // next time something happens (updates first)
        update();
        return due_ < limit_ ? due_ : limit_;
    }
    void update() {
        if (mode != Mode::Child || now() >= due_) {
            update_all();
        }
    }
    void update_all();
    void touch() { // a peripheral's schedule changed
        due_ = 0;
        wake_ = 0;
        uart_dirty_ = 0xFF;
    }
    void touch_uart(const Uart &u) { // this UART's schedule changed
        due_ = 0;
        wake_ = 0;
        uart_dirty_ = uint8_t(uart_dirty_ | (1u << u.index));
    }
    uint64_t compute_limit() const;
    void check_limit() {
        if (now() >= wake_ || child_stop_requested) {
            check_limit_slow();
        }
    }
    void check_limit_slow();
    bool deployed() const; // the FRAM's sampling state says DEPLOYED
    void stop_request(EndReason now_reason);
    void rt_sync() {
        if (st->realtime || input_fd >= 0) {
            rt_sync_wall();
        }
    }
    void rt_sync_wall();
    void poll_input(int64_t timeout_ns);
    [[noreturn]] void end_cycle(EndReason r);
    // Writes the clock and the hibernation module to board.txt (when the run
    // has a state folder): called whenever they change, so a cut keeps them.
    void save_clock(bool exact = false); // exact: no padding (the end of a run)
    std::string clock_text() const;
    void warn(const std::string &msg);

    uint32_t rtc_now() const;
    uint64_t rtc_cycle_of(uint32_t second) const;
    Uart *uart(uint32_t base);
    SsiPort *ssi_port(uint32_t base);
    const std::string &card_path();
};

extern Board *g_board;
Board &make_board();
inline Board &board() {
    return g_board != nullptr ? *g_board : make_board();
}
void install_board_devices(Board &b); // the devices every board has (FRAM)
// Device families, each in its own file; install_board_devices calls them.
void install_adc_devices(Board &b);        // ADS1248 and the analog front end on SSI3
void install_i2c_sensors(Board &b);        // BME280, PCAL6416, INA260
void install_serial_instruments(Board &b); // CTD on UART4, instrument on UART3
void default_state(BoardState &s);
BoardState *map_state();

// Power cut at a write point (power_cut.cpp): armed from the environment
// before the first power cycle. write_point() counts one write point of
// `units` (words, bytes) and returns how many of them land: all, or half when
// the power goes at this one, and then the caller stores those and calls
// power_cut_now().
void power_cut_arm();
extern bool g_power_cut_armed; // write points are counted in this run
uint32_t write_point(const char *kind, uint32_t address, uint32_t units);
[[noreturn]] void power_cut_now();

} // namespace sim
