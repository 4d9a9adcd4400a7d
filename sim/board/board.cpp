// Virtual clock, interrupt controller, SysTick and system control of the
// simulated board, and the in-process harness calls of sim.h. Time moves only
// inside platform calls; interrupts are taken at call boundaries, one context
// at a time, as the chip would take them between instructions.
#include "board.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "board/i2c_fram.h"
#include "core/system.h"
#include "interrupt.h"
#include "isr.h"
#include "sysctl.h"

namespace sim {

volatile sig_atomic_t child_stop_requested = 0;

int64_t mono_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return int64_t(ts.tv_sec) * 1000000000 + ts.tv_nsec;
}

const char *to_string(EndReason r) {
    switch (r) {
    case EndReason::None:
        return "none";
    case EndReason::Hibernated:
        return "hibernated";
    case EndReason::Reset:
        return "reset";
    case EndReason::TimeUp:
        return "time up";
    case EndReason::Quit:
        return "quit";
    case EndReason::Stopped:
        return "stopped";
    case EndReason::Crash:
        return "crash";
    case EndReason::Returned:
        return "returned";
    case EndReason::PowerCut:
        return "power cut";
    }
    return "?";
}

void default_state(BoardState &s) {
    std::memset(&s, 0, sizeof s);
    std::memset(s.eeprom, 0xFF, sizeof s.eeprom);
    s.rtc_trim = 0x7FFF;
    s.console_baud = 115200;
    s.deadline = kNever;
    s.cut_at = kNever;
}

BoardState *map_state() {
    void *p = mmap(nullptr, sizeof(BoardState), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS,
                   -1, 0);
    if (p == MAP_FAILED) {
        std::perror("fenwa-sim: mmap");
        std::abort();
    }
    auto *s = static_cast<BoardState *>(p);
    default_state(*s);
    return s;
}

namespace {
const uint32_t kUartBases[kUarts] = {UART0_BASE, UART1_BASE, UART2_BASE, UART3_BASE,
                                     UART4_BASE, UART5_BASE, UART6_BASE, UART7_BASE};
const uint32_t kUartVectors[kUarts] = {INT_UART0, INT_UART1, INT_UART2, INT_UART3,
                                       INT_UART4, INT_UART5, INT_UART6, INT_UART7};
// Order in which pending interrupts are taken: SysTick, then the UARTs by
// vector number (lower number, higher default priority).
const uint32_t kUartOrder[] = {0, 2, 3, 4, 5, 6, 7};
} // namespace

Board::Board() {
    st = map_state();
    for (uint32_t i = 0; i < kUarts; ++i) {
        uarts[i].base = kUartBases[i];
        uarts[i].vector = kUartVectors[i];
        uarts[i].index = int(i);
        uarts[i].present = i != 1;
    }
    ssi[0].base = SSI0_BASE;
    ssi[3].base = SSI3_BASE;
    console = std::make_shared<ConsoleLine>(st);
    uarts[0].dev = console;
    default_vectors();
    power_on_reset();
    install_board_devices(*this);
}

void Board::default_vectors() {
    std::fill(std::begin(vectors), std::end(vectors), nullptr);
    vectors[FAULT_SYSTICK] = SysTickIntHandler;
    vectors[INT_UART0] = UARTStdioIntHandler;
    vectors[INT_UART2] = uart2_isr;
    vectors[INT_UART3] = uart3_isr;
    vectors[INT_UART4] = uart4_isr;
    vectors[INT_UART5] = uart5_isr;
    vectors[INT_UART6] = uart6_isr;
    vectors[INT_UART7] = uart7_isr;
}

// Everything that lives in the processor and its peripherals goes back to its
// reset value; BoardState (RTC, stores, hibernation module) is untouched.
void Board::power_on_reset() {
    master_on = true;
    in_handler = false;
    touch();
    std::fill(std::begin(nvic), std::end(nvic), false);
    uart_nvic = 0;
    systick_period = 0;
    systick_on = systick_int = systick_pending = false;
    systick_next = kNever;
    for (auto &u : uarts) {
        u.power_on();
    }
    i2c.power_on();
    for (auto &s : ssi) {
        s.power_on();
    }
    gpio.power_on();
    mounted = nullptr;
}

Board *g_board = nullptr;

Board &make_board() {
    if (g_board == nullptr) {
        g_board = new Board();
    }
    return *g_board;
}

uint64_t Board::compute_limit() const {
    uint64_t l = std::min(st->deadline, st->cut_at);
    if (mode == Mode::InProcess) {
        l = std::min(l, knobs.time_limit);
    }
    if (st->script_mode && st->script_guard != 0 && console->script_done()) {
        l = std::min(l, st->console_wire_free + st->script_guard);
    }
    return l;
}

bool Board::deployed() const {
    uint32_t state = 0;
    std::memcpy(&state, st->fram + FRAM_ADDR_SYS_SAMP, sizeof state);
    return state == DEPLOYED;
}

// A stop request: a deployed board runs on to its next hibernation (for an
// hour of board time at most: then its power is cut); any other stops now.
void Board::stop_request(EndReason now_reason) {
    if (!st->stop_requested && deployed()) {
        st->stop_requested = true;
        st->deadline = kNever;
        st->script_guard = 0;
        st->cut_at = std::min(st->cut_at, now() + 3600 * kCpuHz);
        touch();
        std::string line = std::string("fenwa-sim: stopping: the deployed board runs on to "
                                       "its next hibernation (a second request cuts the power)") +
                           (quit_key ? "\r\n" : "\n");
        ssize_t r = write(2, line.data(), line.size());
        (void)r;
        return;
    }
    end_cycle(st->stop_requested ? EndReason::PowerCut : now_reason);
}

void Board::check_limit_slow() {
    if (child_stop_requested && mode == Mode::Child) {
        child_stop_requested = 0;
        stop_request(EndReason::Stopped);
    }
    update();
    if (now() >= limit_) {
        if (mode == Mode::InProcess) {
            throw CycleEnd{EndReason::TimeUp};
        }
        if (now() >= st->cut_at) {
            end_cycle(EndReason::PowerCut);
        }
        stop_request(EndReason::TimeUp);
        limit_ = compute_limit();
        update();
    }
}

// Brings every peripheral up to the clock. In a power cycle the next event
// time is kept, and nothing is looked at before it comes (calls that change
// a peripheral's schedule call touch()); unit tests always look. Each UART
// keeps its next event too, so a SysTick does not visit the UARTs, and a
// byte on one line visits only that one.
void Board::update_all() {
    uint64_t n = now();
    if (systick_on && n >= systick_next) {
        systick_pending = true;
        uint64_t missed = (n - systick_next) / systick_period;
        systick_next += (missed + 1) * systick_period;
    }
    const bool all = mode != Mode::Child;
    if (all || uart_dirty_ != 0 || n >= uart_due_) {
        uint64_t ud = kNever;
        for (uint32_t i : kUartOrder) {
            Uart &u = uarts[i];
            if (!u.present) {
                continue;
            }
            if (all || (uart_dirty_ & (1u << i)) != 0 || n >= u.due) {
                u.update(n);
                u.due = u.next_event();
            }
            ud = std::min(ud, u.due);
        }
        uart_due_ = ud;
        uart_dirty_ = 0;
        // in a power cycle the limit moves only with the console script
        limit_ = compute_limit();
    }
    due_ = std::min(systick_on && systick_int ? systick_next : kNever, uart_due_);
    wake_ = all ? 0 : std::min(due_, limit_);
}

void Board::nvic_set(uint32_t v, bool on) {
    nvic[v] = on;
    for (uint32_t i : kUartOrder) {
        if (uarts[i].vector == v) {
            uart_nvic = on ? uint8_t(uart_nvic | (1u << i)) : uint8_t(uart_nvic & ~(1u << i));
        }
    }
}

void Board::deliver_pending() {
    // A handler that leaves its cause standing is taken again at the next
    // call boundary, not in a loop here, so the foreground still moves.
    for (int n = 0; n < 8 && deliverable(); ++n) {
        uint32_t v = 0;
        if (systick_pending && systick_int) {
            v = FAULT_SYSTICK;
            systick_pending = false;
        } else {
            for (uint32_t i : kUartOrder) {
                const Uart &u = uarts[i];
                if ((u.raw & u.mask) != 0 && nvic[u.vector]) {
                    v = u.vector;
                    break;
                }
            }
        }
        irq_counts[v]++;
        now() += kIrqCost;
        if (vectors[v] != nullptr) {
            in_handler = true;
            try {
                vectors[v]();
            } catch (...) {
                in_handler = false;
                throw;
            }
            in_handler = false;
        }
        update();
    }
}

void Board::advance_to(uint64_t t) {
    for (;;) {
        check_limit();
        uint64_t ev = std::min(next_event(), t);
        if (ev > now()) {
            now() = ev;
        }
        check_limit();
        rt_sync();
        deliver();
        if (now() >= t) {
            break;
        }
    }
    check_limit();
}

// Wait for interrupt: returns after the next event, at the latest at the next
// millisecond boundary of the clock.
void Board::idle() {
    call();
    if (deliverable()) {
        deliver();
        return;
    }
    uint64_t boundary = (now() / kCyclesPerMs + 1) * kCyclesPerMs;
    advance_to(std::min(next_event(), boundary));
}

// Real-time runs: the virtual clock may not run ahead of the wall clock.
void Board::rt_sync_wall() {
    if (!st->realtime) {
        if (input_fd >= 0 && mono_ns() - last_poll_ns > 1000000) {
            poll_input(0); // fast time with a live console: still read the keys
        }
        return;
    }
    int64_t wall = mono_ns();
    int64_t virt = st->rt_wall_base_ns + int64_t(now() - st->rt_cycles_base) * 20; // 20 ns a cycle
    if (wall - virt > 100000000) {
        // fell behind (a slow host): carry on from here rather than rushing
        st->rt_wall_base_ns += wall - virt;
        virt = wall;
    }
    int64_t ahead = virt - wall;
    if (ahead > 200000) {
        poll_input(ahead);
    } else if (wall - last_poll_ns > 1000000) {
        poll_input(0);
    }
}

void Board::poll_input(int64_t timeout_ns) {
    last_poll_ns = mono_ns();
    if (input_fd < 0) {
        if (timeout_ns > 0) {
            timespec ts{time_t(timeout_ns / 1000000000), long(timeout_ns % 1000000000)};
            nanosleep(&ts, nullptr);
        }
        return;
    }
    pollfd p{input_fd, POLLIN, 0};
    timespec ts{time_t(timeout_ns / 1000000000), long(timeout_ns % 1000000000)};
    int r = ppoll(&p, 1, &ts, nullptr);
    if (r <= 0) {
        return;
    }
    uint8_t buf[256];
    ssize_t n = read(input_fd, buf, sizeof buf);
    if (n <= 0) {
        if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
            input_fd = -1; // end of input: the line stays quiet
        }
        return;
    }
    for (ssize_t i = 0; i < n; ++i) {
        if (quit_key && (buf[i] == 0x1D || buf[i] == 0x03)) {
            stop_request(EndReason::Quit);
            continue;
        }
        console->type_live(buf[i], now());
    }
    touch();
}

void Board::end_cycle(EndReason r) {
    if (mode == Mode::InProcess) {
        throw CycleEnd{r};
    }
    console->flush();
    st->end_reason = r;
    if (done_fd >= 0) {
        char c = 1;
        ssize_t n = write(done_fd, &c, 1);
        (void)n;
        sched_yield(); // the supervisor goes on before this process is torn down
    }
    _exit(0);
}

void Board::warn(const std::string &msg) {
    for (auto &n : notes) {
        if (n == msg) {
            return;
        }
    }
    notes.push_back(msg);
    if (mode == Mode::Child) {
        std::string line = "fenwa-sim: " + msg + (st->realtime ? "\r\n" : "\n");
        ssize_t r = write(2, line.data(), line.size());
        (void)r;
    }
}

uint32_t Board::rtc_now() const {
    int64_t d = int64_t(st->now) - st->rtc_base_cycles;
    int64_t s = d >= 0 ? d / int64_t(kCpuHz) : -((-d + int64_t(kCpuHz) - 1) / int64_t(kCpuHz));
    return uint32_t(int64_t(st->rtc_base) + s);
}

uint64_t Board::rtc_cycle_of(uint32_t second) const {
    int64_t c = st->rtc_base_cycles + (int64_t(second) - int64_t(st->rtc_base)) * int64_t(kCpuHz);
    return c < 0 ? 0 : uint64_t(c);
}

Uart *Board::uart(uint32_t base) {
    // the UART blocks sit 4 KB apart from UART0
    uint32_t i = (base - UART0_BASE) >> 12;
    if (i < kUarts && uarts[i].base == base && uarts[i].present) {
        return &uarts[i];
    }
    return nullptr;
}

SsiPort *Board::ssi_port(uint32_t base) {
    for (auto &s : ssi) {
        if (s.base == base && base != 0) {
            return &s;
        }
    }
    return nullptr;
}

const std::string &Board::card_path() {
    if (card_root.empty()) {
        if (temp_card.empty()) {
            char tmpl[] = "/tmp/fenwa-card-XXXXXX";
            if (char *d = mkdtemp(tmpl)) {
                temp_card = d;
                static pid_t owner = getpid();
                std::atexit([] {
                    if (getpid() == owner && g_board != nullptr && !g_board->temp_card.empty()) {
                        std::error_code ec;
                        std::filesystem::remove_all(g_board->temp_card, ec);
                    }
                });
            }
        }
        card_root = temp_card;
    }
    return card_root;
}

// ---- in-process harness -----------------------------------------------------

void reset_board() {
    Board &b = board();
    b.mode = Board::Mode::InProcess;
    default_state(*b.st);
    b.knobs = Knobs();
    b.console = std::make_shared<ConsoleLine>(b.st);
    for (auto &u : b.uarts) {
        u.dev.reset();
    }
    b.uarts[0].dev = b.console;
    b.i2c.devices.clear();
    b.i2c.log.clear();
    b.i2c.logging = true;
    for (auto &s : b.ssi) {
        s.dev.reset();
    }
    b.gpio = Gpio();
    b.default_vectors();
    std::fill(std::begin(b.irq_counts), std::end(b.irq_counts), 0);
    b.input_fd = -1;
    b.quit_key = false;
    b.notes.clear();
    b.power_on_reset();
    install_board_devices(b);
    b.card_root = b.temp_card;
    b.mounted = nullptr;
    if (!b.temp_card.empty()) {
        std::error_code ec;
        for (auto &e : std::filesystem::directory_iterator(b.temp_card, ec)) {
            std::filesystem::remove_all(e.path(), ec);
        }
    }
}

BoardState &state() {
    return *board().st;
}
Knobs &knobs() {
    return board().knobs;
}

void console_feed(const std::string &bytes) {
    Board &b = board();
    for (unsigned char c : bytes) {
        b.console->type_live(c, b.now());
    }
    b.touch();
}

std::string console_take() {
    Board &b = board();
    return b.console->take_capture();
}

void advance_cycles(uint64_t cycles) {
    Board &b = board();
    b.touch();
    b.advance_to(b.now() + cycles);
}

void advance_ms(uint32_t ms) {
    advance_cycles(uint64_t(ms) * kCyclesPerMs);
}

double now_seconds() {
    return double(board().now()) / double(kCpuHz);
}
uint64_t now_cycles() {
    return board().now();
}
void line_changed() {
    board().touch();
}

uint32_t rtc() {
    return board().rtc_now();
}

void set_rtc(uint32_t seconds) {
    Board &b = board();
    b.st->rtc_base = seconds;
    b.st->rtc_base_cycles = int64_t(b.now());
    b.touch();
}

std::string card_dir() {
    return board().card_path();
}

void set_card_dir(const std::string &dir) {
    Board &b = board();
    b.card_root = dir;
    b.mounted = nullptr;
}

uint64_t irq_count(uint32_t vector) {
    return vector < kVectors ? board().irq_counts[vector] : 0;
}

void set_irq_handler(uint32_t vector, void (*handler)()) {
    Board &b = board();
    if (vector >= kVectors) {
        return;
    }
    if (handler != nullptr) {
        b.vectors[vector] = handler;
    } else {
        void (*saved[kVectors])();
        std::copy(std::begin(b.vectors), std::end(b.vectors), saved);
        b.default_vectors();
        for (uint32_t i = 0; i < kVectors; ++i) {
            if (i != vector) {
                b.vectors[i] = saved[i];
            }
        }
    }
}

} // namespace sim

// ---- system control and interrupt controller ------------------------------
using sim::board;

void SysCtlClockSet(uint32_t) {
    board().call();
}
uint32_t SysCtlClockGet(void) {
    board().call();
    return uint32_t(sim::kCpuHz);
}
void SysCtlPeripheralEnable(uint32_t) {
    board().call();
}
bool SysCtlPeripheralPresent(uint32_t periph) {
    board().call();
    return periph != 0xf0001801u; // UART1 is not fitted to this package's pins
}
bool SysCtlPeripheralReady(uint32_t) {
    board().call();
    return true;
}

void SysCtlDelay(uint32_t count) {
    sim::Board &b = board();
    b.call();
    b.advance_to(b.now() + 3ull * count);
}

void SysCtlReset(void) {
    sim::Board &b = board();
    b.call();
    b.st->resets++;
    if (b.mode == sim::Board::Mode::InProcess) {
        if (b.knobs.on_reset) {
            b.knobs.on_reset();
        }
        throw sim::CycleEnd{sim::EndReason::Reset};
    }
    b.end_cycle(sim::EndReason::Reset);
}

void SysCtlSleep(void) {
    board().idle();
}

void FPUEnable(void) {
    board().call();
}
void FPULazyStackingEnable(void) {
    board().call();
}

void SysTickPeriodSet(uint32_t period) {
    sim::Board &b = board();
    b.call();
    b.touch();
    if (period == 0) {
        period = 1;
    }
    b.systick_period = std::min<uint32_t>(period, 1u << 24);
}

void SysTickEnable(void) {
    sim::Board &b = board();
    b.call();
    b.touch();
    if (b.systick_period == 0) {
        b.systick_period = 1u << 24;
    }
    if (!b.systick_on) {
        b.systick_on = true;
        b.systick_next = b.now() + b.systick_period;
    }
}

void SysTickIntEnable(void) {
    sim::Board &b = board();
    b.call();
    b.touch();
    b.systick_int = true;
    b.deliver();
}

bool IntMasterEnable(void) {
    sim::Board &b = board();
    b.call();
    bool was_off = !b.master_on;
    b.master_on = true;
    b.deliver();
    return was_off;
}

bool IntMasterDisable(void) {
    sim::Board &b = board();
    b.call();
    bool was_off = !b.master_on;
    b.master_on = false;
    return was_off;
}

void IntEnable(uint32_t interrupt) {
    sim::Board &b = board();
    b.call();
    b.touch();
    if (interrupt == FAULT_SYSTICK) {
        b.systick_int = true;
    } else if (interrupt < sim::kVectors) {
        b.nvic_set(interrupt, true);
    }
    b.deliver();
}

void IntDisable(uint32_t interrupt) {
    sim::Board &b = board();
    b.call();
    b.touch();
    if (interrupt == FAULT_SYSTICK) {
        b.systick_int = false;
    } else if (interrupt < sim::kVectors) {
        b.nvic_set(interrupt, false);
    }
}

bool IntIsEnabled(uint32_t interrupt) {
    sim::Board &b = board();
    b.call();
    if (interrupt == FAULT_SYSTICK) {
        return b.systick_int;
    }
    return interrupt < sim::kVectors && b.nvic[interrupt];
}
