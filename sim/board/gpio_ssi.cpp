// GPIO ports (levels, directions, the card-detect input and the LED log) and
// the SSI ports (frames clocked at the programmed bit rate into an attached
// SpiDevice; with nothing attached every frame reads 0).
#include <algorithm>

#include "board.h"
#include "gpio.h"
#include "ssi.h"

namespace sim {

namespace {
int port_index(uint32_t base) {
    switch (base) {
    case GPIO_PORTA_BASE:
        return 0;
    case GPIO_PORTB_BASE:
        return 1;
    case GPIO_PORTC_BASE:
        return 2;
    case GPIO_PORTD_BASE:
        return 3;
    case GPIO_PORTE_BASE:
        return 4;
    case GPIO_PORTF_BASE:
        return 5;
    default:
        return -1;
    }
}
constexpr int kPortA = 0, kPortF = 5;

// Time-varying input lines driven by device models (set_gpio_input_source).
struct InputSources {
    uint8_t mask[6] = {};
    GpioInputSource level[6][8];
};
InputSources &input_sources() {
    static InputSources s;
    return s;
}
} // namespace

void Gpio::power_on() {
    std::fill(std::begin(dir), std::end(dir), 0);
    std::fill(std::begin(data), std::end(data), 0);
}

void SsiPort::power_on() {
    enabled = false;
    rx.clear();
    busy_until = 0;
}

void set_gpio_input(uint32_t port_base, uint8_t pins, bool high) {
    int p = port_index(port_base);
    if (p >= 0) {
        Gpio &g = board().gpio;
        g.input[p] = high ? uint8_t(g.input[p] | pins) : uint8_t(g.input[p] & ~pins);
    }
}

void watch_gpio(GpioWatcher w) {
    board().gpio.watchers.push_back(std::move(w));
}

void set_gpio_input_source(uint32_t port_base, uint8_t pin, GpioInputSource level) {
    int p = port_index(port_base);
    if (p < 0) {
        return;
    }
    InputSources &src = input_sources();
    for (int bit = 0; bit < 8; ++bit) {
        if ((pin & (1u << bit)) != 0) {
            src.level[p][bit] = level;
            src.mask[p] =
                level ? uint8_t(src.mask[p] | (1u << bit)) : uint8_t(src.mask[p] & ~(1u << bit));
        }
    }
}

void attach_spi(uint32_t ssi_base, std::shared_ptr<SpiDevice> dev) {
    if (SsiPort *s = board().ssi_port(ssi_base)) {
        s->dev = std::move(dev);
    }
}

namespace {
// Levels of port p (an index) as the pins show them.
uint8_t levels(Board &b, int p) {
    uint8_t in = b.gpio.input[p];
    if (p == kPortA) {
        // card detect: pulled high, the card's switch pulls it low
        in = b.st->card_absent ? uint8_t(in | GPIO_PIN_6) : uint8_t(in & ~GPIO_PIN_6);
    }
    InputSources &src = input_sources();
    for (unsigned driven = src.mask[p] & ~b.gpio.dir[p] & 0xFFu; driven != 0;
         driven &= driven - 1) {
        int bit = __builtin_ctz(driven);
        bool high = src.level[p][bit](b.now());
        in = high ? uint8_t(in | (1u << bit)) : uint8_t(in & ~(1u << bit));
    }
    return uint8_t((b.gpio.data[p] & b.gpio.dir[p]) | (in & ~b.gpio.dir[p]));
}
} // namespace

uint8_t gpio_levels(uint32_t port_base) {
    int p = port_index(port_base);
    return p < 0 ? 0 : levels(board(), p);
}

const std::vector<LedEvent> &led_log() {
    return board().gpio.leds;
}

} // namespace sim

// ---- platform functions -----------------------------------------------------
using sim::board;

namespace {
sim::Gpio *gport(uint32_t base, int &idx) {
    sim::Board &b = board();
    b.call();
    idx = sim::port_index(base);
    return idx >= 0 ? &b.gpio : nullptr;
}
void set_dir(uint32_t port, uint8_t pins, bool out) {
    int p;
    if (sim::Gpio *g = gport(port, p)) {
        g->dir[p] = out ? uint8_t(g->dir[p] | pins) : uint8_t(g->dir[p] & ~pins);
    }
}
} // namespace

void GPIOPinConfigure(uint32_t) {
    board().call();
}
void GPIOPinTypeGPIOOutput(uint32_t port, uint8_t pins) {
    set_dir(port, pins, true);
}
void GPIOPinTypeGPIOInput(uint32_t port, uint8_t pins) {
    set_dir(port, pins, false);
}
void GPIOPinTypeUART(uint32_t port, uint8_t pins) {
    set_dir(port, pins, false);
}
void GPIOPinTypeI2C(uint32_t port, uint8_t pins) {
    set_dir(port, pins, false);
}
void GPIOPinTypeI2CSCL(uint32_t port, uint8_t pins) {
    set_dir(port, pins, false);
}
void GPIOPinTypeSSI(uint32_t port, uint8_t pins) {
    set_dir(port, pins, false);
}

int32_t GPIOPinRead(uint32_t port, uint8_t pins) {
    int p;
    if (gport(port, p) == nullptr) {
        return 0;
    }
    return int32_t(sim::levels(board(), p) & pins);
}

void GPIOPinWrite(uint32_t port, uint8_t pins, uint8_t val) {
    int p;
    sim::Gpio *g = gport(port, p);
    if (g == nullptr) {
        return;
    }
    uint8_t before = g->data[p];
    g->data[p] = uint8_t((before & ~pins) | (val & pins));
    if (p == sim::kPortF) {
        for (uint8_t led : {uint8_t(GPIO_PIN_2), uint8_t(GPIO_PIN_3)}) {
            if ((pins & led) != 0 && ((before ^ g->data[p]) & led) != 0) {
                g->leds.push_back({board().now(), led, (g->data[p] & led) != 0});
            }
        }
    }
    for (auto &w : g->watchers) {
        w(port, pins, val);
    }
    board().touch(); // a device may answer a line it watches
}

// ---- SSI ------------------------------------------------------------------------

// The clock gate of a peripheral: nothing to model beyond the call itself.
void SysCtlPeripheralDisable(uint32_t) {
    board().call();
}

namespace {
constexpr size_t kSsiFifo = 8;

sim::SsiPort *sport(uint32_t base) {
    sim::Board &b = board();
    b.call();
    return b.ssi_port(base);
}

// Queue one frame: it is clocked out after the frames before it.
void ssi_push(sim::SsiPort *s, uint32_t data) {
    uint64_t start = std::max(board().now(), s->busy_until);
    uint64_t done = start + s->width * s->bit_cycles;
    s->busy_until = done;
    uint32_t in = s->dev ? s->dev->transfer(data, done) : 0;
    in &= s->width >= 32 ? 0xFFFFFFFFu : ((1u << s->width) - 1u);
    if (s->rx.size() < kSsiFifo) {
        s->rx.push_back({done, in});
    }
}

size_t ssi_in_flight(sim::SsiPort *s) {
    uint64_t now = board().now();
    uint64_t frame = s->width * s->bit_cycles;
    return s->busy_until > now ? size_t((s->busy_until - now + frame - 1) / frame) : 0;
}
} // namespace

// The port divides the clock it is told it runs at: a wrong one gives a wrong rate.
void SSIConfigSetExpClk(uint32_t base, uint32_t clk, uint32_t, uint32_t, uint32_t bitRate,
                        uint32_t dataWidth) {
    if (sim::SsiPort *s = sport(base)) {
        s->bit_cycles = bitRate != 0 ? std::max<uint64_t>(1, clk / bitRate) : 50;
        s->width = std::clamp<uint32_t>(dataWidth, 4, 16);
    }
}

void SSIEnable(uint32_t base) {
    if (sim::SsiPort *s = sport(base)) {
        s->enabled = true;
    }
}

void SSIDisable(uint32_t base) {
    if (sim::SsiPort *s = sport(base)) {
        s->enabled = false;
    }
}

void SSIDataPut(uint32_t base, uint32_t data) {
    sim::SsiPort *s = sport(base);
    if (s == nullptr) {
        return;
    }
    sim::Board &b = board();
    if (ssi_in_flight(s) >= kSsiFifo) {
        // the transmit FIFO is full: wait until one frame has left it
        b.advance_to(s->busy_until - (kSsiFifo - 1) * s->width * s->bit_cycles);
    }
    ssi_push(s, data);
}

int32_t SSIDataPutNonBlocking(uint32_t base, uint32_t data) {
    sim::SsiPort *s = sport(base);
    if (s == nullptr || ssi_in_flight(s) >= kSsiFifo) {
        return 0;
    }
    ssi_push(s, data);
    return 1;
}

void SSIDataGet(uint32_t base, uint32_t *data) {
    sim::SsiPort *s = sport(base);
    if (data == nullptr) {
        return;
    }
    if (s == nullptr || s->rx.empty()) {
        *data = 0; // nothing was clocked: nothing would ever come
        return;
    }
    sim::Board &b = board();
    if (s->rx.front().first > b.now()) {
        b.advance_to(s->rx.front().first);
    }
    *data = s->rx.front().second;
    s->rx.pop_front();
}

int32_t SSIDataGetNonBlocking(uint32_t base, uint32_t *data) {
    sim::SsiPort *s = sport(base);
    if (s == nullptr || data == nullptr || s->rx.empty() || s->rx.front().first > board().now()) {
        return 0;
    }
    *data = s->rx.front().second;
    s->rx.pop_front();
    return 1;
}

bool SSIBusy(uint32_t base) {
    sim::SsiPort *s = sport(base);
    if (s == nullptr) {
        return false;
    }
    sim::Board &b = board();
    if (b.now() < s->busy_until) {
        b.advance_to(s->busy_until);
        return true;
    }
    return false;
}
