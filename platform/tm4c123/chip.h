// The part an image runs on. The same register-level drivers serve two parts:
// the TM4C123GH6PM of the instrument, and the LM3S6965 of the evaluation board
// that QEMU emulates (image built with FENWA_CHIP_EMULATOR=1). Both share the
// Cortex-M core peripherals and the UART, GPIO, SSI and I2C register layouts;
// the emulated part has no FPU, no EEPROM controller, no hibernation module,
// only UART0-2 and SSI0, and the older clock-gating registers. Drivers ask
// these questions instead of testing the build flag themselves.
#pragma once
#include <stdint.h>

#ifndef FENWA_CHIP_EMULATOR
#define FENWA_CHIP_EMULATOR 0
#endif

namespace chip {

constexpr bool kEmulator = FENWA_CHIP_EMULATOR != 0;
constexpr bool kHasFpu = !kEmulator;
constexpr uint32_t kSystemClockHz = 50000000u;

#ifdef FENWA_CHIP_HOST_REGS
} // namespace chip

// Host tests only: each register access becomes a call into the test's model
// of the peripheral, so a driver runs unchanged against it.
uint32_t chip_reg_read(uint32_t addr);
void chip_reg_write(uint32_t addr, uint32_t value);

namespace chip {

class Reg {
  public:
    explicit Reg(uint32_t addr) : addr_(addr) {}
    Reg(const Reg &) = default;
    operator uint32_t() const { return chip_reg_read(addr_); }
    Reg &operator=(uint32_t value) {
        chip_reg_write(addr_, value);
        return *this;
    }
    // reg(a) = reg(b) copies the value, not the address.
    Reg &operator=(const Reg &other) { return *this = static_cast<uint32_t>(other); }
    Reg &operator|=(uint32_t bits) { return *this = static_cast<uint32_t>(*this) | bits; }
    Reg &operator&=(uint32_t bits) { return *this = static_cast<uint32_t>(*this) & bits; }

  private:
    uint32_t addr_;
};

inline Reg reg(uint32_t addr) {
    return Reg(addr);
}
#else
// Memory-mapped register access.
inline volatile uint32_t &reg(uint32_t addr) {
    return *reinterpret_cast<volatile uint32_t *>(addr);
}
#endif

// Peripherals present on the part: touching an absent one faults on the
// emulated board, so its driver behaves as an unconnected port instead.
constexpr bool has_uart(uint32_t base) {
    return base == 0x4000C000u || base == 0x4000E000u ||
           (!kEmulator && base >= 0x4000F000u && base <= 0x40013000u);
}
constexpr bool has_ssi(uint32_t base) {
    return base == 0x40008000u || (!kEmulator && base == 0x4000B000u);
}

// Input lines that nothing drives on the emulated board but that must read
// as their idle level there: the ADC's data-ready line (PE1, low = a
// conversion is ready) belongs to an ADC on SSI3, which the emulated part
// lacks, so it idles high and the firmware sees "no conversion".
constexpr uint8_t idle_high_inputs(uint32_t port) {
    return (kEmulator && port == 0x40024000u) ? 0x02u : 0x00u;
}

} // namespace chip
