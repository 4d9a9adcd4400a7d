// System control, SysTick, the FPU and the interrupt controller of the chip.
// Owns the clock tree (PLL from the crystal, system divider), the
// peripheral clock gates, and the processor-core parts: interrupt masks,
// NVIC, SysTick, FPU, delay loop, reset and idle. Does not configure any
// peripheral beyond its gate.
//
// Peripheral codes (sysctl.h): bits 15:8 are the offset of the peripheral's
// run-mode gate register from 0x600 (RCGCGPIO is 0x608), bits 7:0 the
// instance's bit in it. The same offset from 0x300 gives its "present"
// register and from 0xA00 its "ready" register. The emulated part has only
// the three older gate registers RCGC0..2 and none of the others.
#include "chip.h"
#include "interrupt.h"
#include "sysctl.h"

namespace {

using chip::reg;

// Cortex-M4 system control space
constexpr uint32_t NVIC_ST_CTRL = 0xE000E010u;
constexpr uint32_t NVIC_ST_RELOAD = 0xE000E014u;
constexpr uint32_t NVIC_ST_CURRENT = 0xE000E018u;
constexpr uint32_t NVIC_EN0 = 0xE000E100u;  // set-enable, one word per 32 interrupts
constexpr uint32_t NVIC_DIS0 = 0xE000E180u; // clear-enable
constexpr uint32_t NVIC_APINT = 0xE000ED0Cu;
constexpr uint32_t NVIC_SYS_HND_CTRL = 0xE000ED24u;
constexpr uint32_t NVIC_CPAC = 0xE000ED88u;
constexpr uint32_t NVIC_FPCC = 0xE000EF34u;

constexpr uint32_t ST_CTRL_ENABLE = 0x1u;
constexpr uint32_t ST_CTRL_INTEN = 0x2u;
constexpr uint32_t ST_CTRL_CLK_SRC = 0x4u; // system clock
constexpr uint32_t APINT_VECTKEY = 0x05FA0000u;
constexpr uint32_t APINT_SYSRESETREQ = 0x4u;
constexpr uint32_t FPCC_ASPEN = 0x80000000u;
constexpr uint32_t FPCC_LSPEN = 0x40000000u;

// Exceptions below 16 that can be masked one by one
constexpr uint32_t FAULT_MPU = 4u;
constexpr uint32_t FAULT_BUS = 5u;
constexpr uint32_t FAULT_USAGE = 6u;
constexpr uint32_t NUM_VECTORS = 155u;

// System control block
constexpr uint32_t SYSCTL_RIS = 0x400FE050u;
constexpr uint32_t SYSCTL_MISC = 0x400FE058u; // write 1 to clear a RIS flag
constexpr uint32_t SYSCTL_RCC = 0x400FE060u;
constexpr uint32_t SYSCTL_RCC2 = 0x400FE070u;
constexpr uint32_t SYSCTL_PLLSTAT = 0x400FE168u;
constexpr uint32_t SYSCTL_PP_BASE = 0x400FE300u;   // peripheral present
constexpr uint32_t SYSCTL_RCGC_BASE = 0x400FE600u; // run-mode clock gates
constexpr uint32_t SYSCTL_PR_BASE = 0x400FEA00u;   // peripheral ready
constexpr uint32_t SYSCTL_RCGC0 = 0x400FE100u;     // older gates (emulated part)
constexpr uint32_t SYSCTL_RCGC1 = 0x400FE104u;
constexpr uint32_t SYSCTL_RCGC2 = 0x400FE108u;

constexpr uint32_t RIS_PLLLRIS = 0x40u;     // PLL locked (older part)
constexpr uint32_t RIS_MOSCPUPRIS = 0x100u; // main oscillator powered up
constexpr uint32_t PLLSTAT_LOCK = 0x1u;

constexpr uint32_t RCC_MOSCDIS = 0x1u;
constexpr uint32_t RCC_OSCSRC_M = 0x30u;
constexpr uint32_t RCC_XTAL_M = 0x7C0u;
constexpr uint32_t RCC_XTAL_M_OLD = 0x3C0u; // four bits on the older part
constexpr uint32_t RCC_BYPASS = 0x800u;
constexpr uint32_t RCC_PWRDN = 0x2000u;
constexpr uint32_t RCC_USESYSDIV = 0x400000u;
constexpr uint32_t RCC_SYSDIV_M = 0x7800000u;
constexpr uint32_t RCC2_USERCC2 = 0x80000000u;
constexpr uint32_t RCC2_DIV400 = 0x40000000u;
constexpr uint32_t RCC2_SYSDIV2_M = 0x1F800000u;
constexpr uint32_t RCC2_SYSDIV2LSB = 0x400000u;
constexpr uint32_t RCC2_PWRDN2 = 0x2000u;
constexpr uint32_t RCC2_BYPASS2 = 0x800u;
constexpr uint32_t RCC2_OSCSRC2_M = 0x70u;

constexpr uint32_t PLL_HZ = 200000000u;        // the 400 MHz PLL after its fixed /2
constexpr uint32_t XTAL_EMULATED_BOARD = 0xEu; // 8 MHz crystal of the evaluation board

// Bounds on waits for hardware that may never answer. A poll is a few
// cycles, so these are tens of milliseconds even from the 16 MHz oscillator;
// the PLL locks within about a millisecond and a gate opens within a few
// cycles.
constexpr uint32_t PLL_LOCK_POLLS = 200000u;
constexpr uint32_t MOSC_UP_POLLS = 200000u;
constexpr uint32_t PERIPH_READY_POLLS = 10000u;

// Crystal frequencies by RCC XTAL code, from 0x06 (4 MHz) to 0x1A (25 MHz).
constexpr uint32_t XTAL_FIRST = 0x06u;
const uint32_t kXtalHz[] = {4000000u,  4096000u,  4915200u,  5000000u,  5120000u,  6000000u,
                            6144000u,  7372800u,  8000000u,  8192000u,  10000000u, 12000000u,
                            12288000u, 13560000u, 14318180u, 16000000u, 16384000u, 18000000u,
                            20000000u, 24000000u, 25000000u};

bool primask(void) {
    uint32_t v;
    __asm volatile("mrs %0, primask" : "=r"(v));
    return (v & 1u) != 0u;
}

bool wait_set(uint32_t addr, uint32_t mask, uint32_t polls) {
    for (uint32_t i = 0; i < polls; i++) {
        if ((reg(addr) & mask) != 0u) {
            return true;
        }
    }
    return false;
}

// Oscillator frequency for an OSCSRC code (without the PLL).
uint32_t oscillator_hz(uint32_t src, uint32_t xtal) {
    switch (src) {
    case 0u: // main oscillator
        if (chip::kEmulator) {
            return 8000000u;
        }
        return (xtal >= XTAL_FIRST && xtal - XTAL_FIRST < sizeof kXtalHz / sizeof kXtalHz[0])
                   ? kXtalHz[xtal - XTAL_FIRST]
                   : 16000000u;
    case 1u: // precision internal oscillator
        return chip::kEmulator ? 12000000u : 16000000u;
    case 2u: // the same, divided by 4
        return chip::kEmulator ? 3000000u : 4000000u;
    default: // low-frequency oscillators: only roughly known
        return 30000u;
    }
}

struct Gate {
    uint32_t addr;
    uint32_t bit;
};

// The older gate register and bit of a peripheral code on the emulated part;
// addr is 0 for peripherals it does not have.
Gate legacy_gate(uint32_t periph) {
    const uint32_t offset = (periph >> 8) & 0xFFu;
    const uint32_t inst = periph & 0xFFu;
    switch (offset) {
    case 0x08u: // GPIO A..G
        return inst <= 6u ? Gate{SYSCTL_RCGC2, 1u << inst} : Gate{0u, 0u};
    case 0x18u: // UART0..2
        return inst <= 2u ? Gate{SYSCTL_RCGC1, 1u << inst} : Gate{0u, 0u};
    case 0x1Cu: // SSI0
        return inst == 0u ? Gate{SYSCTL_RCGC1, 1u << 4} : Gate{0u, 0u};
    case 0x20u: // I2C0
        return inst == 0u ? Gate{SYSCTL_RCGC1, 1u << 12} : Gate{0u, 0u};
    default: // no EEPROM; the hibernation module is not emulated
        return Gate{0u, 0u};
    }
}

uint32_t gate_offset(uint32_t periph) {
    return (periph >> 8) & 0xFFu;
}

uint32_t gate_bit(uint32_t periph) {
    return 1u << (periph & 0x1Fu);
}

void clock_set_emulated(uint32_t sysdiv, uint32_t src, bool usePll) {
    // The older part has RCC only: run from the raw oscillator while the
    // PLL settles, then switch over.
    uint32_t rcc = reg(SYSCTL_RCC);
    rcc = (rcc | RCC_BYPASS) & ~RCC_USESYSDIV;
    reg(SYSCTL_RCC) = rcc;
    rcc = (rcc & ~(RCC_XTAL_M_OLD | RCC_OSCSRC_M | RCC_MOSCDIS)) | (XTAL_EMULATED_BOARD << 6) |
          ((src & 3u) << 4);
    reg(SYSCTL_MISC) = RIS_PLLLRIS;
    rcc = usePll ? rcc & ~RCC_PWRDN : rcc | RCC_PWRDN;
    reg(SYSCTL_RCC) = rcc;
    rcc = (rcc & ~RCC_SYSDIV_M) | ((sysdiv & 0xFu) << 23) | RCC_USESYSDIV;
    reg(SYSCTL_RCC) = rcc;
    if (usePll && wait_set(SYSCTL_RIS, RIS_PLLLRIS, PLL_LOCK_POLLS)) {
        reg(SYSCTL_RCC) = rcc & ~RCC_BYPASS;
    }
}

void clock_set_tm4c(uint32_t sysdiv, uint32_t xtal, uint32_t src, bool usePll) {
    uint32_t rcc = reg(SYSCTL_RCC);
    uint32_t rcc2 = reg(SYSCTL_RCC2);

    // Run from the raw oscillator, undivided, while things change.
    rcc = (rcc | RCC_BYPASS) & ~RCC_USESYSDIV;
    rcc2 |= RCC2_USERCC2 | RCC2_BYPASS2;
    reg(SYSCTL_RCC) = rcc;
    reg(SYSCTL_RCC2) = rcc2;

    // The crystal oscillator is off after reset; start it when it is the source.
    if (src == 0u && (rcc & RCC_MOSCDIS) != 0u) {
        reg(SYSCTL_MISC) = RIS_MOSCPUPRIS;
        rcc &= ~RCC_MOSCDIS;
        reg(SYSCTL_RCC) = rcc;
        if (!wait_set(SYSCTL_RIS, RIS_MOSCPUPRIS, MOSC_UP_POLLS)) {
            return; // no crystal: stay on the internal oscillator
        }
    }

    // Crystal value (the PLL takes its settings from it), source, PLL power.
    rcc = (rcc & ~(RCC_XTAL_M | RCC_OSCSRC_M)) | ((xtal & 0x1Fu) << 6) | ((src & 3u) << 4);
    rcc2 = (rcc2 & ~(RCC2_OSCSRC2_M | RCC2_DIV400 | RCC2_SYSDIV2_M | RCC2_SYSDIV2LSB)) |
           ((src & 7u) << 4);
    if (usePll) {
        rcc &= ~RCC_PWRDN;
        rcc2 &= ~RCC2_PWRDN2;
    } else {
        rcc |= RCC_PWRDN;
        rcc2 |= RCC2_PWRDN2;
    }
    reg(SYSCTL_RCC) = rcc;
    reg(SYSCTL_RCC2) = rcc2;

    // Divider: 200 MHz / (SYSDIV2 + 1).
    rcc = (rcc & ~RCC_SYSDIV_M) | ((sysdiv & 0xFu) << 23) | RCC_USESYSDIV;
    rcc2 = (rcc2 & ~RCC2_SYSDIV2_M) | ((sysdiv & 0x3Fu) << 23);
    reg(SYSCTL_RCC) = rcc;
    reg(SYSCTL_RCC2) = rcc2;

    // Switch to the PLL only once it has locked; without a lock the board
    // keeps running from the oscillator and SysCtlClockGet says so.
    if (usePll && wait_set(SYSCTL_PLLSTAT, PLLSTAT_LOCK, PLL_LOCK_POLLS)) {
        reg(SYSCTL_RCC) = rcc & ~RCC_BYPASS;
        reg(SYSCTL_RCC2) = rcc2 & ~RCC2_BYPASS2;
    }
}

} // namespace

void SysCtlClockSet(uint32_t config) {
    const bool rcc2Style = (config & RCC2_USERCC2) != 0u;
    const uint32_t sysdiv = (config >> 23) & (rcc2Style ? 0x3Fu : 0xFu);
    const uint32_t xtal = (config >> 6) & 0x1Fu;
    const uint32_t src = (config >> 4) & (rcc2Style ? 7u : 3u);
    const bool usePll = (config & RCC_BYPASS) == 0u;
    if (chip::kEmulator) {
        clock_set_emulated(sysdiv, src, usePll);
    } else {
        clock_set_tm4c(sysdiv, xtal, src, usePll);
    }
}

// Read back from the registers, so a PLL that failed to lock shows.
uint32_t SysCtlClockGet(void) {
    const uint32_t rcc = reg(SYSCTL_RCC);
    const uint32_t rcc2 = reg(SYSCTL_RCC2);
    const bool use2 = !chip::kEmulator && (rcc2 & RCC2_USERCC2) != 0u;
    const bool bypass = use2 ? (rcc2 & RCC2_BYPASS2) != 0u : (rcc & RCC_BYPASS) != 0u;
    const uint32_t src = use2 ? (rcc2 >> 4) & 7u : (rcc >> 4) & 3u;

    if (!bypass) {
        if (use2 && (rcc2 & RCC2_DIV400) != 0u) {
            return (2u * PLL_HZ) / (((rcc2 >> 22) & 0x7Fu) + 1u);
        }
        return PLL_HZ / ((use2 ? (rcc2 >> 23) & 0x3Fu : (rcc >> 23) & 0xFu) + 1u);
    }
    uint32_t hz = oscillator_hz(src, (rcc >> 6) & 0x1Fu);
    if ((rcc & RCC_USESYSDIV) != 0u) {
        hz /= (use2 ? (rcc2 >> 23) & 0x3Fu : (rcc >> 23) & 0xFu) + 1u;
    }
    return hz;
}

void SysCtlPeripheralEnable(uint32_t periph) {
    if (chip::kEmulator) {
        const Gate g = legacy_gate(periph);
        if (g.addr != 0u) {
            reg(g.addr) = reg(g.addr) | g.bit;
        }
        return;
    }
    const uint32_t offset = gate_offset(periph);
    reg(SYSCTL_RCGC_BASE + offset) = reg(SYSCTL_RCGC_BASE + offset) | gate_bit(periph);
    // A peripheral faults when touched before its clock runs.
    (void)wait_set(SYSCTL_PR_BASE + offset, gate_bit(periph), PERIPH_READY_POLLS);
}

void SysCtlPeripheralDisable(uint32_t periph) {
    if (chip::kEmulator) {
        const Gate g = legacy_gate(periph);
        if (g.addr != 0u) {
            reg(g.addr) = reg(g.addr) & ~g.bit;
        }
        return;
    }
    const uint32_t offset = gate_offset(periph);
    reg(SYSCTL_RCGC_BASE + offset) = reg(SYSCTL_RCGC_BASE + offset) & ~gate_bit(periph);
}

bool SysCtlPeripheralPresent(uint32_t periph) {
    if (chip::kEmulator) {
        return legacy_gate(periph).addr != 0u;
    }
    return (reg(SYSCTL_PP_BASE + gate_offset(periph)) & gate_bit(periph)) != 0u;
}

bool SysCtlPeripheralReady(uint32_t periph) {
    if (chip::kEmulator) {
        return legacy_gate(periph).addr != 0u; // the emulator gates nothing
    }
    return (reg(SYSCTL_PR_BASE + gate_offset(periph)) & gate_bit(periph)) != 0u;
}

// Three cycles a pass: subtract, branch taken (two).
void SysCtlDelay(uint32_t count) {
    __asm volatile("1:\n\t"
                   "subs %0, #1\n\t"
                   "bne 1b"
                   : "+r"(count)
                   :
                   : "cc");
}

void SysCtlReset(void) {
    __asm volatile("dsb" ::: "memory");
    reg(NVIC_APINT) = APINT_VECTKEY | APINT_SYSRESETREQ;
    __asm volatile("dsb" ::: "memory");
    for (;;) {
    }
}

// Waiting for an interrupt is safe only while the 1 ms SysTick interrupt
// runs: without it nothing may ever wake the core. The callers loop anyway.
void SysCtlSleep(void) {
    const uint32_t running = ST_CTRL_ENABLE | ST_CTRL_INTEN;
    if ((reg(NVIC_ST_CTRL) & running) != running) {
        return;
    }
    __asm volatile("dsb\n\twfi" ::: "memory");
}

void FPUEnable(void) {
    if constexpr (!chip::kHasFpu) {
        return;
    }
    reg(NVIC_CPAC) = reg(NVIC_CPAC) | (0xFu << 20);
}

void FPULazyStackingEnable(void) {
    if constexpr (!chip::kHasFpu) {
        return;
    }
    reg(NVIC_FPCC) = reg(NVIC_FPCC) | FPCC_ASPEN | FPCC_LSPEN;
}

void SysTickPeriodSet(uint32_t period) {
    if (period == 0u || period > 0x01000000u) {
        return;
    }
    reg(NVIC_ST_RELOAD) = period - 1u;
}

void SysTickEnable(void) {
    reg(NVIC_ST_CURRENT) = 0u;
    reg(NVIC_ST_CTRL) = reg(NVIC_ST_CTRL) | ST_CTRL_CLK_SRC | ST_CTRL_ENABLE;
}

void SysTickIntEnable(void) {
    reg(NVIC_ST_CTRL) = reg(NVIC_ST_CTRL) | ST_CTRL_INTEN;
}

bool IntMasterEnable(void) {
    bool wasDisabled = primask();
    __asm volatile("cpsie i" ::: "memory");
    return wasDisabled;
}

bool IntMasterDisable(void) {
    bool wasDisabled = primask();
    __asm volatile("cpsid i" ::: "memory");
    return wasDisabled;
}

void IntEnable(uint32_t interrupt) {
    if (interrupt == FAULT_SYSTICK) {
        reg(NVIC_ST_CTRL) = reg(NVIC_ST_CTRL) | ST_CTRL_INTEN;
    } else if (interrupt >= FAULT_MPU && interrupt <= FAULT_USAGE) {
        reg(NVIC_SYS_HND_CTRL) = reg(NVIC_SYS_HND_CTRL) | (1u << (interrupt + 12u));
    } else if (interrupt >= 16u && interrupt < NUM_VECTORS) {
        uint32_t n = interrupt - 16u;
        reg(NVIC_EN0 + 4u * (n / 32u)) = 1u << (n % 32u);
    }
}

void IntDisable(uint32_t interrupt) {
    if (interrupt == FAULT_SYSTICK) {
        reg(NVIC_ST_CTRL) = reg(NVIC_ST_CTRL) & ~ST_CTRL_INTEN;
    } else if (interrupt >= FAULT_MPU && interrupt <= FAULT_USAGE) {
        reg(NVIC_SYS_HND_CTRL) = reg(NVIC_SYS_HND_CTRL) & ~(1u << (interrupt + 12u));
    } else if (interrupt >= 16u && interrupt < NUM_VECTORS) {
        uint32_t n = interrupt - 16u;
        reg(NVIC_DIS0 + 4u * (n / 32u)) = 1u << (n % 32u);
    }
}

bool IntIsEnabled(uint32_t interrupt) {
    if (interrupt == FAULT_SYSTICK) {
        return (reg(NVIC_ST_CTRL) & ST_CTRL_INTEN) != 0u;
    }
    if (interrupt >= FAULT_MPU && interrupt <= FAULT_USAGE) {
        return (reg(NVIC_SYS_HND_CTRL) & (1u << (interrupt + 12u))) != 0u;
    }
    if (interrupt >= 16u && interrupt < NUM_VECTORS) {
        uint32_t n = interrupt - 16u;
        return (reg(NVIC_EN0 + 4u * (n / 32u)) & (1u << (n % 32u))) != 0u;
    }
    return false;
}
