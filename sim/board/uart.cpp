// UART model (16-byte FIFOs, 10 bit times a byte at the programmed rate) and
// the console line at the far end of UART0. A byte reaches the receive FIFO
// only while the UART is enabled; the transmitter drains one byte per byte
// time into the device on the line.
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "board.h"
#include "uart.h"

namespace sim {

// ---- console line -----------------------------------------------------------

const ScriptByte *ConsoleLine::peek() const {
    const ScriptByte *s = nullptr;
    if (script_ != nullptr && st_->script_pos < script_->size()) {
        s = &(*script_)[st_->script_pos];
    }
    if (!live_.empty() && (s == nullptr || live_.front().at < s->at)) {
        return &live_.front();
    }
    return s;
}

uint64_t ConsoleLine::next_byte_at() {
    const ScriptByte *b = peek();
    if (b == nullptr) {
        return kNever;
    }
    uint32_t baud = st_->console_baud != 0 ? st_->console_baud : 115200;
    return std::max(b->at, st_->console_wire_free) + 10 * kCpuHz / baud;
}

uint8_t ConsoleLine::take_byte() {
    const ScriptByte *b = peek();
    if (b == nullptr) {
        return 0;
    }
    uint64_t t = next_byte_at();
    uint8_t v = b->byte;
    if (!live_.empty() && b == &live_.front()) {
        live_.pop_front();
    } else {
        st_->script_pos++;
    }
    st_->console_wire_free = t;
    return v;
}

bool ConsoleLine::script_done() const {
    return script_ == nullptr || st_->script_pos >= script_->size();
}

void ConsoleLine::receive(uint8_t byte, uint64_t) {
    // The board has no pump line yet: the firmware's notice marks the switch.
    if (byte == '\n') {
        static const char kOn[] = "pump_on is PCAL", kOff[] = "pump_off is PCAL";
        if (line_.compare(0, sizeof kOn - 1, kOn) == 0) {
            supply_switch(*st_, kSupplyPump, true);
        } else if (line_.compare(0, sizeof kOff - 1, kOff) == 0) {
            supply_switch(*st_, kSupplyPump, false);
        }
        line_.clear();
    } else if (byte != '\r' && line_.size() < 24) {
        line_.push_back(char(byte));
    }
    if (out_fd_ < 0) {
        capture_.push_back(char(byte));
        return;
    }
    pending_.push_back(char(byte));
    if (immediate_ || pending_.size() >= 4096) {
        flush();
    }
}

void ConsoleLine::line_rate(uint32_t baud) {
    if (baud != 0) {
        st_->console_baud = baud;
    }
}

void ConsoleLine::flush() {
    size_t off = 0;
    while (out_fd_ >= 0 && off < pending_.size()) {
        ssize_t n = write(out_fd_, pending_.data() + off, pending_.size() - off);
        if (n > 0) {
            off += size_t(n);
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && errno == EAGAIN) {
            // nobody reads the line (a pty without a client): what does not fit is lost
            usleep(1000);
            static int tries = 0;
            if (++tries > 50) {
                tries = 0;
                break;
            }
        } else {
            break;
        }
    }
    pending_.clear();
}

std::string ConsoleLine::take_capture() {
    std::string s;
    s.swap(capture_);
    return s;
}

// ---- UART -------------------------------------------------------------------

void Uart::power_on() {
    enabled = false;
    baud = 115200;
    cfg_clk = 16000000;
    source = UART_CLOCK_SYSTEM;
    byte_cycles = 10 * kCpuHz / 115200;
    line_baud = 115200;
    tx_trigger = 8; // reset value: 1/2 full
    rx.clear();
    tx.clear();
    shifting = false;
    raw = mask = 0;
    rx_quiet_since = 0;
    overruns = 0;
    due = 0;
}

// The divisor is computed from the clock the caller names; the bits run at the
// clock actually selected (system clock or the 16 MHz precision oscillator).
void Uart::set_rate() {
    if (baud == 0 || cfg_clk == 0) {
        return;
    }
    double actual_clk = source == UART_CLOCK_PIOSC ? 16e6 : double(kCpuHz);
    double brd = double(cfg_clk) / (16.0 * baud);
    double actual = actual_clk / (16.0 * brd);
    if (actual < 1) {
        actual = 1;
    }
    byte_cycles = uint64_t(std::llround(10.0 * double(kCpuHz) / actual));
    if (byte_cycles == 0) {
        byte_cycles = 1;
    }
    line_baud = actual;
    check_rate();
    if (dev) {
        dev->line_rate(uint32_t(std::lround(actual)));
    }
}

// A UART that runs with a divisor for another clock than its own talks
// garbage to the far end; say so once, when it is switched on that way.
void Uart::check_rate() {
    if (!enabled || rate_warned || baud == 0 || std::fabs(line_baud / baud - 1.0) <= 0.03) {
        return;
    }
    rate_warned = true;
    char m[200];
    std::snprintf(m, sizeof m,
                  "UART%d set to %u baud for a %u Hz clock, but its clock source runs at %.0f Hz: "
                  "the line runs at %.0f baud",
                  index, unsigned(baud), unsigned(cfg_clk),
                  source == UART_CLOCK_PIOSC ? 16e6 : double(kCpuHz), line_baud);
    board().warn(m);
}

void Uart::start_next(uint64_t t) {
    if (!shifting && enabled && !tx.empty()) {
        shift_byte = tx.front();
        tx.pop_front();
        shifting = true;
        shift_done = t + byte_cycles;
        if (tx.size() <= tx_trigger) {
            raw |= UART_INT_TX;
        }
    }
}

uint64_t Uart::next_event() const {
    uint64_t t = shifting ? shift_done : kNever;
    if (dev) {
        t = std::min(t, const_cast<SerialDevice &>(*dev).next_byte_at());
    }
    if (!rx.empty() && (raw & (UART_INT_RX | UART_INT_RT)) == 0) {
        t = std::min(t, rx_quiet_since + byte_cycles * 32 / 10); // 32 bit times
    }
    return t;
}

void Uart::update(uint64_t now) {
    while (shifting && shift_done <= now) {
        shifting = false;
        if (dev) {
            dev->receive(shift_byte, shift_done);
        }
        start_next(shift_done);
    }
    if (dev) {
        for (uint64_t t = dev->next_byte_at(); t <= now; t = dev->next_byte_at()) {
            uint8_t b = dev->take_byte();
            if (!enabled) {
                continue; // nobody listens: the byte is lost
            }
            if (rx.size() < kFifoDepth) {
                rx.push_back(b);
                raw |= UART_INT_RX;
            } else {
                overruns++;
            }
            rx_quiet_since = t;
        }
    }
    // receive time-out: bytes left standing in the FIFO raise RT after 32 bit times
    if (!rx.empty() && (raw & (UART_INT_RX | UART_INT_RT)) == 0 &&
        now >= rx_quiet_since + byte_cycles * 32 / 10) {
        raw |= UART_INT_RT;
    }
}

void attach_serial(uint32_t uart_base, std::shared_ptr<SerialDevice> dev) {
    Uart *u = board().uart(uart_base);
    if (u != nullptr) {
        u->dev = std::move(dev);
        board().touch();
    }
}

} // namespace sim

// ---- platform functions -----------------------------------------------------
using sim::board;

namespace {
sim::Uart *port(uint32_t base) {
    sim::Board &b = board();
    b.call();
    return b.uart(base);
}
// The same, for calls that change when the UART's next event comes.
sim::Uart *port_change(uint32_t base) {
    sim::Board &b = board();
    b.call();
    sim::Uart *u = b.uart(base);
    if (u != nullptr) {
        b.touch_uart(*u);
    }
    return u;
}
} // namespace

void UARTConfigSetExpClk(uint32_t base, uint32_t uartClk, uint32_t baud, uint32_t) {
    if (sim::Uart *u = port_change(base)) {
        u->cfg_clk = uartClk;
        u->baud = baud;
        u->set_rate();
    }
}

void UARTClockSourceSet(uint32_t base, uint32_t source) {
    if (sim::Uart *u = port_change(base)) {
        u->source = source;
        u->set_rate();
    }
}

void UARTFIFOLevelSet(uint32_t base, uint32_t txLevel, uint32_t) {
    static const uint32_t kTrigger[] = {2, 4, 8, 12, 14}; // 1/8, 1/4, 1/2, 3/4, 7/8 of 16
    if (sim::Uart *u = port_change(base)) {
        u->tx_trigger = kTrigger[std::min<uint32_t>(txLevel & 7u, 4u)];
    }
}

// An instrument on the CTD or instrument port draws its measuring current
// from the port's set-up to the end of the power cycle.
static void port_supply(const sim::Uart &u, bool on) {
    if (u.dev != nullptr && (u.index == 3 || u.index == 4)) {
        sim::supply_switch(*board().st, u.index == 4 ? sim::kSupplyCtd : sim::kSupplyInst, on);
    }
}

void UARTEnable(uint32_t base) {
    if (sim::Uart *u = port_change(base)) {
        u->enabled = true;
        port_supply(*u, true);
        u->check_rate();
        u->start_next(board().now());
    }
}

// As the vendor's routine: wait for the transmitter to finish, then switch
// the FIFOs (which empties them) and the UART off.
void UARTDisable(uint32_t base) {
    sim::Board &b = board();
    sim::Uart *u = port_change(base);
    if (u == nullptr) {
        return;
    }
    while (u->shifting) {
        b.advance_to(u->shift_done);
    }
    u->enabled = false;
    port_supply(*u, false);
    u->rx.clear();
    u->tx.clear();
    b.touch();
}

void UARTIntEnable(uint32_t base, uint32_t intFlags) {
    if (sim::Uart *u = port_change(base)) {
        u->mask |= intFlags;
        board().deliver();
    }
}

void UARTIntDisable(uint32_t base, uint32_t intFlags) {
    if (sim::Uart *u = port(base)) {
        u->mask &= ~intFlags;
    }
}

uint32_t UARTIntStatus(uint32_t base, bool masked) {
    sim::Uart *u = port(base);
    if (u == nullptr) {
        return 0;
    }
    return masked ? (u->raw & u->mask) : u->raw;
}

void UARTIntClear(uint32_t base, uint32_t intFlags) {
    if (sim::Uart *u = port_change(base)) {
        u->raw &= ~intFlags;
    }
}

bool UARTCharsAvail(uint32_t base) {
    sim::Uart *u = port(base);
    return u != nullptr && !u->rx.empty();
}

int32_t UARTCharGetNonBlocking(uint32_t base) {
    sim::Uart *u = port_change(base);
    if (u == nullptr || u->rx.empty()) {
        return -1;
    }
    uint8_t c = u->rx.front();
    u->rx.pop_front();
    u->rx_quiet_since = board().now();
    return c;
}

bool UARTSpaceAvail(uint32_t base) {
    sim::Uart *u = port(base);
    return u != nullptr && u->tx.size() < sim::kFifoDepth;
}

bool UARTCharPutNonBlocking(uint32_t base, unsigned char data) {
    sim::Uart *u = port_change(base);
    if (u == nullptr || u->tx.size() >= sim::kFifoDepth) {
        return false;
    }
    u->tx.push_back(data);
    u->start_next(board().now());
    return true;
}

bool UARTBusy(uint32_t base) {
    sim::Uart *u = port(base);
    return u != nullptr && (u->shifting || !u->tx.empty());
}
