// Start-up of the TM4C123GH6PM: the vector table and the reset handler.
// Owns what happens between the reset and main(): .data copied from flash,
// .bss zeroed, the FPU opened, static constructors run. Does not set the clock
// or any peripheral: init() in the firmware does that.
#include <stdint.h>
#include "chip.h"
#include "hw_types.h"
#include "isr.h"

// Symbols of the linker script
extern "C" {
extern uint32_t _data_load[], _data_start[], _data_end[];
extern uint32_t _bss_start[], _bss_end[];
extern uint32_t _stack_top[];
extern void (*__preinit_array_start[])(void);
extern void (*__preinit_array_end[])(void);
extern void (*__init_array_start[])(void);
extern void (*__init_array_end[])(void);
}

// The firmware's entry point. C++ does not let a program call main() by name,
// so reach the same symbol under another one.
int firmware_main(void) __asm__("main");

extern "C" {
[[noreturn]] void ResetISR(void);
void NmiISR(void);
void IntDefaultHandler(void);

// Static objects are never destroyed: registering their destructors is a no-op.
void *__dso_handle = nullptr;
int __aeabi_atexit(void *, void (*)(void *), void *) {
    return 0;
}
}

// A handler the firmware leaves out lands on the default trap instead of
// failing the link; the firmware's own definition wins when it has one.
void SysTickIntHandler(void) __attribute__((weak, alias("IntDefaultHandler")));
void UARTStdioIntHandler(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart2_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart3_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart4_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart5_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart6_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void uart7_isr(void) __attribute__((weak, alias("IntDefaultHandler")));
void faultISR_handler(void) __attribute__((weak, alias("IntDefaultHandler")));

// The emulated part has no hibernation clock: its stand-in counts SysTick's
// milliseconds, ahead of the firmware's own tick.
void emu_clock_tick(void);

namespace {

typedef void (*Vector)(void);

void emu_systick(void) {
    emu_clock_tick();
    SysTickIntHandler();
}

// Vector numbers: 0 is the initial stack pointer, 1..15 the processor's
// exceptions, 16.. the chip's interrupts (hw_types.h numbers them).
constexpr uint32_t VECTOR_COUNT = 155u;
constexpr uint32_t VEC_RESET = 1u;
constexpr uint32_t VEC_NMI = 2u;
constexpr uint32_t VEC_HARD_FAULT = 3u;
constexpr uint32_t VEC_MEM_MANAGE = 4u;
constexpr uint32_t VEC_BUS_FAULT = 5u;
constexpr uint32_t VEC_USAGE_FAULT = 6u;

struct VectorTable {
    Vector entry[VECTOR_COUNT];
};

constexpr VectorTable build_vectors() {
    VectorTable t{};
    for (uint32_t i = 0; i < VECTOR_COUNT; i++) {
        t.entry[i] = IntDefaultHandler;
    }
    t.entry[0] = nullptr; // stack pointer, set below
    t.entry[VEC_RESET] = ResetISR;
    t.entry[VEC_NMI] = NmiISR;
    t.entry[VEC_HARD_FAULT] = faultISR_handler;
    t.entry[VEC_MEM_MANAGE] = faultISR_handler;
    t.entry[VEC_BUS_FAULT] = faultISR_handler;
    t.entry[VEC_USAGE_FAULT] = faultISR_handler;
    t.entry[FAULT_SYSTICK] = chip::kEmulator ? emu_systick : SysTickIntHandler;
    t.entry[INT_UART0] = UARTStdioIntHandler;
    t.entry[INT_UART2] = uart2_isr;
    t.entry[INT_UART3] = uart3_isr;
    t.entry[INT_UART4] = uart4_isr;
    t.entry[INT_UART5] = uart5_isr;
    t.entry[INT_UART6] = uart6_isr;
    t.entry[INT_UART7] = uart7_isr;
    return t;
}

// Entry 0 holds an address, not a handler; keep the table as words so the
// stack top can be stored without a cast between object and function pointers.
struct RawVectorTable {
    const void *sp;
    Vector entry[VECTOR_COUNT - 1u];
};

constexpr RawVectorTable build_raw_vectors() {
    VectorTable t = build_vectors();
    RawVectorTable r{};
    r.sp = _stack_top;
    for (uint32_t i = 1; i < VECTOR_COUNT; i++) {
        r.entry[i - 1u] = t.entry[i];
    }
    return r;
}

} // namespace

__attribute__((section(".isr_vector"), used)) const RawVectorTable g_vectors = build_raw_vectors();

// Coprocessor access control: full access to CP10 and CP11 (the FPU).
static volatile uint32_t &CPACR = *reinterpret_cast<volatile uint32_t *>(0xE000ED88u);

extern "C" void ResetISR(void) {
    // Open the FPU first: with the hard-float ABI any function may use it.
    if constexpr (chip::kHasFpu) {
        CPACR = CPACR | (0xFu << 20);
        __asm volatile("dsb\n\tisb" ::: "memory");
    }

    const uint32_t *src = _data_load;
    for (uint32_t *dst = _data_start; dst < _data_end;) {
        *dst++ = *src++;
    }
    for (uint32_t *dst = _bss_start; dst < _bss_end;) {
        *dst++ = 0u;
    }
    for (void (**f)(void) = __preinit_array_start; f < __preinit_array_end; f++) {
        (*f)();
    }
    for (void (**f)(void) = __init_array_start; f < __init_array_end; f++) {
        (*f)();
    }

    firmware_main();

    // main() never returns on the instrument; if it does, stop here.
    for (;;) {
        __asm volatile("wfi");
    }
}

extern "C" void NmiISR(void) {
    for (;;) {
    }
}

// Unexpected interrupt: stay here so a debugger shows where it came from.
extern "C" void IntDefaultHandler(void) {
    for (;;) {
    }
}
