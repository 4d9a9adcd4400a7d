// Plug-in points of the simulated board: what a device model implements to sit
// on a serial line, on the I2C bus or on an SSI port. The board owns timing
// (baud pacing on its own side, bus clocks); a device only answers bytes.
// Models live in sim/devices/ and are attached per run (install_devices) or by a test.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>

namespace sim {

constexpr uint64_t kCpuHz = 50000000ull;
constexpr uint64_t kCyclesPerMs = kCpuHz / 1000u;
constexpr uint64_t kNever = UINT64_MAX;

// Something at the far end of a UART: the console terminal or an instrument.
// The device paces what it sends itself (10 bit times per byte at its own
// rate): next_byte_at() is the cycle at which its next byte has completely
// arrived at the board's receiver.
class SerialDevice {
  public:
    virtual ~SerialDevice() = default;
    virtual uint64_t next_byte_at() = 0;                 // kNever: nothing to send
    virtual uint8_t take_byte() = 0;                     // the byte announced above
    virtual void receive(uint8_t byte, uint64_t at) = 0; // the board sent a byte (done at `at`)
    virtual void line_rate(uint32_t baud) {}             // the board's UART now runs at `baud`
};

// A target on I2C bus 0. start() opens a (repeated) start addressed to it.
class I2cDevice {
  public:
    virtual ~I2cDevice() = default;
    virtual void start(bool read) {}
    virtual bool write(uint8_t byte) { return true; } // true = acknowledged
    virtual uint8_t read(bool ack) { return 0xFF; }   // ack: the master wants more
    virtual void stop() {}
};

// A device on an SSI port: one frame out, one frame in.
class SpiDevice {
  public:
    virtual ~SpiDevice() = default;
    virtual uint32_t transfer(uint32_t out, uint64_t at) = 0;
};

void attach_serial(uint32_t uart_base, std::shared_ptr<SerialDevice> dev);
void attach_i2c(uint8_t addr, std::shared_ptr<I2cDevice> dev); // nullptr removes
void attach_spi(uint32_t ssi_base, std::shared_ptr<SpiDevice> dev);

// GPIO side of device models: level of an input pin as the board sees it, and
// a watcher called after every GPIOPinWrite (port base, pins written, levels).
void set_gpio_input(uint32_t port_base, uint8_t pins, bool high);
using GpioWatcher = std::function<void(uint32_t port_base, uint8_t pins, uint8_t levels)>;
void watch_gpio(GpioWatcher w);
// An input line that a device drives with a level that changes with time (the
// ADC's DRDY): the board asks `level(now)` whenever it reads that pin as an
// input. One source per pin; a new one replaces it, nullptr removes it.
using GpioInputSource = std::function<bool(uint64_t now)>;
void set_gpio_input_source(uint32_t port_base, uint8_t pin, GpioInputSource level);

uint64_t now_cycles();
// A device's next_byte_at() moved earlier on its own (not in answer to a byte
// or a GPIO write): the board looks again.
void line_changed();

} // namespace sim
