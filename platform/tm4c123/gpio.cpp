// GPIO ports A..F: pin direction, pad set-up, alternate-function routing and
// the masked data register. Owns no pin assignments: the board code says
// which pin does what. Interrupts on pins are not used.
//
// Pad set-ups follow the driver library's pin types: plain inputs, outputs,
// UART, SSI and I2C SCL are push-pull with 2 mA drive and no pull; I2C SDA
// is open drain with the weak pull-up.
#include "chip.h"
#include "gpio.h"

namespace {

using chip::reg;

constexpr uint32_t GPIO_O_DIR = 0x400u;
constexpr uint32_t GPIO_O_AFSEL = 0x420u;
constexpr uint32_t GPIO_O_DR2R = 0x500u;
constexpr uint32_t GPIO_O_DR4R = 0x504u;
constexpr uint32_t GPIO_O_DR8R = 0x508u;
constexpr uint32_t GPIO_O_ODR = 0x50Cu;
constexpr uint32_t GPIO_O_PUR = 0x510u;
constexpr uint32_t GPIO_O_PDR = 0x514u;
constexpr uint32_t GPIO_O_SLR = 0x518u;
constexpr uint32_t GPIO_O_DEN = 0x51Cu;
constexpr uint32_t GPIO_O_LOCK = 0x520u;
constexpr uint32_t GPIO_O_CR = 0x524u;
constexpr uint32_t GPIO_O_AMSEL = 0x528u;
constexpr uint32_t GPIO_O_PCTL = 0x52Cu;
constexpr uint32_t GPIO_LOCK_KEY = 0x4C4F434Bu;

// Port bases by the port number of GPIO_PIN_CFG (A = 0).
const uint32_t kPortBase[] = {GPIO_PORTA_BASE, GPIO_PORTB_BASE, GPIO_PORTC_BASE,
                              GPIO_PORTD_BASE, GPIO_PORTE_BASE, GPIO_PORTF_BASE};

// Pins whose AFSEL, PUR, PDR and DEN writes are locked after reset (NMI
// capable PD7 and PF0 on the TM4C123; the emulated part locks none of ours).
uint8_t locked_pins(uint32_t port) {
    if (chip::kEmulator) {
        return 0u;
    }
    if (port == GPIO_PORTD_BASE) {
        return GPIO_PIN_7;
    }
    if (port == GPIO_PORTF_BASE) {
        return GPIO_PIN_0;
    }
    return 0u;
}

void set_bits(uint32_t addr, uint8_t pins, bool on) {
    reg(addr) = on ? (reg(addr) | pins) : (reg(addr) & ~(uint32_t)pins);
}

// Lets the protected registers of a locked pin be written; the commit bit
// stays set, so this is needed once per pin, but costs nothing to repeat.
void unlock(uint32_t port, uint8_t pins) {
    const uint8_t locked = locked_pins(port) & pins;
    if (locked == 0u) {
        return;
    }
    reg(port + GPIO_O_LOCK) = GPIO_LOCK_KEY;
    reg(port + GPIO_O_CR) = reg(port + GPIO_O_CR) | locked;
    reg(port + GPIO_O_LOCK) = 0u;
}

enum class Dir { In, Out, Hw };
enum class Pad { PushPull, OpenDrainPullUp };

void pin_type(uint32_t port, uint8_t pins, Dir dir, Pad pad) {
    unlock(port, pins);
    set_bits(port + GPIO_O_DIR, pins, dir == Dir::Out);
    set_bits(port + GPIO_O_AFSEL, pins, dir == Dir::Hw);
    set_bits(port + GPIO_O_DR2R, pins, true);
    set_bits(port + GPIO_O_DR4R, pins, false);
    set_bits(port + GPIO_O_DR8R, pins, false);
    set_bits(port + GPIO_O_SLR, pins, false);
    set_bits(port + GPIO_O_ODR, pins, pad == Pad::OpenDrainPullUp);
    set_bits(port + GPIO_O_PUR, pins, pad == Pad::OpenDrainPullUp);
    set_bits(port + GPIO_O_PDR, pins, false);
    set_bits(port + GPIO_O_DEN, pins, true);
    set_bits(port + GPIO_O_AMSEL, pins, false);
}

} // namespace

// Routes one pin to a peripheral through its 4-bit PCTL field. The emulated
// part has fixed alternate functions and no PCTL.
void GPIOPinConfigure(uint32_t pinConfig) {
    const uint32_t portNum = (pinConfig >> 16) & 0xFFu;
    const uint32_t pin = (pinConfig >> 8) & 0x7u;
    const uint32_t fn = pinConfig & 0xFu;
    if (chip::kEmulator || portNum >= sizeof kPortBase / sizeof kPortBase[0]) {
        return;
    }
    const uint32_t port = kPortBase[portNum];
    unlock(port, (uint8_t)(1u << pin));
    const uint32_t shift = pin * 4u;
    reg(port + GPIO_O_PCTL) = (reg(port + GPIO_O_PCTL) & ~(0xFu << shift)) | (fn << shift);
}

void GPIOPinTypeGPIOOutput(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::Out, Pad::PushPull);
}

void GPIOPinTypeGPIOInput(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::In, Pad::PushPull);
}

void GPIOPinTypeUART(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::Hw, Pad::PushPull);
}

void GPIOPinTypeI2C(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::Hw, Pad::OpenDrainPullUp);
}

// SCL is driven push-pull by the controller itself on this part.
void GPIOPinTypeI2CSCL(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::Hw, Pad::PushPull);
}

void GPIOPinTypeSSI(uint32_t port, uint8_t pins) {
    pin_type(port, pins, Dir::Hw, Pad::PushPull);
}

// Address bits 9:2 mask the data register: only the selected pins answer.
int32_t GPIOPinRead(uint32_t port, uint8_t pins) {
    const uint32_t v = reg(port + ((uint32_t)pins << 2)) | chip::idle_high_inputs(port);
    return (int32_t)(v & pins);
}

void GPIOPinWrite(uint32_t port, uint8_t pins, uint8_t val) {
    reg(port + ((uint32_t)pins << 2)) = val;
}
