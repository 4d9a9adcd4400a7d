// System control, SysTick, the FPU and the interrupt controller of the chip.
// The processor-core parts (interrupt masks, NVIC, SysTick, FPU, delay loop,
// reset) are done here at register level; the clock tree and the peripheral
// gates are stubs until the chip's own system-control code lands, so the
// clock reads as the 50 MHz that init() asks for.
#include "chip.h"
#include "interrupt.h"
#include "sysctl.h"

namespace {

inline volatile uint32_t &reg(uint32_t addr) {
    return *reinterpret_cast<volatile uint32_t *>(addr);
}

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

constexpr uint32_t SYSTEM_CLOCK_HZ = 50000000u;

bool primask(void) {
    uint32_t v;
    __asm volatile("mrs %0, primask" : "=r"(v));
    return (v & 1u) != 0u;
}

} // namespace

void SysCtlClockSet(uint32_t config) {}
uint32_t SysCtlClockGet(void) {
    return SYSTEM_CLOCK_HZ;
}
void SysCtlPeripheralEnable(uint32_t periph) {}
void SysCtlPeripheralDisable(uint32_t periph) {}
bool SysCtlPeripheralPresent(uint32_t periph) {
    return true;
}
bool SysCtlPeripheralReady(uint32_t periph) {
    return true;
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

// Waiting for an interrupt needs a running SysTick to be safe; until the clock
// code is in, return at once (the callers loop anyway).
void SysCtlSleep(void) {}

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
