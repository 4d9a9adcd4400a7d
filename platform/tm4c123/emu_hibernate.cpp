// Hibernation module of the emulated board, which has none: the same calls
// over a few words of RAM that no start-up code touches (section .keep_ram),
// so the clock, its match, the wake sources and the wake cause survive the
// system reset that stands in for a hibernation.
//
// The clock counts whole seconds from the milliseconds of the 1 ms SysTick
// (emu_clock_tick, called from the SysTick vector before the firmware's
// handler); it stands still while nothing runs, as between two emulator runs.
// A hibernation request waits, interrupts on, for the match second (RTC wake
// enabled) or a byte on UART0 (pin wake enabled), notes the cause, and resets
// the system: main() starts afresh and reads the cause as after a chip wake.
// RAM that was never set (no magic word) reads as a module that just got
// power: not active, clock stopped at 0.
#include "hibernate.h"
#include "chip.h"
#include "hib_bits.h"
#include "interrupt.h"
#include "sysctl.h"

void emu_clock_tick(void);

namespace {

using chip::reg;

// HIBCTL bits the stand-in keeps, at the chip's positions.
using namespace hib_bits;

constexpr uint32_t UART0_DR = 0x4000C000u;
constexpr uint32_t UART0_FR = 0x4000C018u;
constexpr uint32_t UART_FR_RXFE = 1u << 4;
constexpr uint32_t NVIC_DIS0 = 0xE000E180u;
constexpr uint32_t ST_CTRL = 0xE000E010u;
constexpr uint32_t ST_CTRL_ENABLE = 0x1u;
constexpr uint32_t ST_CTRL_INTEN = 0x2u;
constexpr uint32_t NVIC_DIS_WORDS = 5u; // 139 interrupt lines

constexpr uint32_t MAGIC = 0x41B3C10Cu;
constexpr uint32_t MS_PER_SECOND = 1000u;

struct Module {
    uint32_t magic;
    uint32_t ctl;     // RTCEN, wake enables, CLK32EN
    uint32_t ris;     // raw interrupt status, the wake cause among it
    uint32_t im;      // interrupt mask
    uint32_t seconds; // the RTC
    uint32_t ms;      // milliseconds into the current second
    uint32_t match;
    uint32_t trim; // kept for reading back; the count is exact anyway
};

__attribute__((section(".keep_ram"))) volatile Module g_hib;

volatile Module &hib(void) {
    if (g_hib.magic != MAGIC) {
        bool wasDisabled = IntMasterDisable();
        g_hib.ctl = 0u;
        g_hib.ris = 0u;
        g_hib.im = 0u;
        g_hib.seconds = 0u;
        g_hib.ms = 0u;
        g_hib.match = 0u;
        g_hib.trim = 0x7FFFu;
        g_hib.magic = MAGIC;
        if (!wasDisabled) {
            IntMasterEnable();
        }
    }
    return g_hib;
}

// A write to the chip's module completes a little later and raises WC.
void written(volatile Module &h) {
    if ((h.ctl & CTL_CLK32EN) != 0u) {
        h.ris = h.ris | HIBERNATE_INT_WR_COMPLETE;
    }
}

// Read-modify-write of a word the tick also writes.
void update(volatile uint32_t &word, uint32_t clear, uint32_t set) {
    bool wasDisabled = IntMasterDisable();
    word = (word & ~clear) | set;
    if (!wasDisabled) {
        IntMasterEnable();
    }
}

bool console_byte_waiting(void) {
    return (reg(UART0_FR) & UART_FR_RXFE) == 0u;
}

void drain_console(void) {
    while (console_byte_waiting()) {
        uint32_t dropped = reg(UART0_DR);
        (void)dropped;
    }
}

} // namespace

// SysTick, every millisecond.
void emu_clock_tick(void) {
    volatile Module &h = g_hib;
    if (h.magic != MAGIC || (h.ctl & CTL_RTCEN) == 0u) {
        return;
    }
    uint32_t ms = h.ms + 1u;
    if (ms >= MS_PER_SECOND) {
        ms = 0u;
        h.seconds = h.seconds + 1u;
        if (h.seconds == h.match) {
            h.ris = h.ris | HIBERNATE_INT_RTC_MATCH_0;
        }
    }
    h.ms = ms;
}

void HibernateEnableExpClk(uint32_t hibClock) {
    volatile Module &h = hib();
    h.ctl = h.ctl | CTL_CLK32EN;
    written(h);
}

uint32_t HibernateIsActive(void) {
    return hib().ctl & CTL_CLK32EN;
}

uint32_t HibernateIntStatus(bool masked) {
    volatile Module &h = hib();
    return (masked ? h.ris & h.im : h.ris) & INT_BITS;
}

void HibernateIntClear(uint32_t intFlags) {
    volatile Module &h = hib();
    update(h.ris, intFlags & INT_BITS, 0u);
    written(h);
}

void HibernateIntDisable(uint32_t intFlags) {
    volatile Module &h = hib();
    h.im = h.im & ~(intFlags & INT_BITS);
    written(h);
}

void HibernateGPIORetentionDisable(void) {
    written(hib());
}

void HibernateClockConfig(uint32_t config) {
    written(hib());
}

void HibernateRTCTrimSet(uint32_t trim) {
    volatile Module &h = hib();
    h.trim = trim & 0xFFFFu;
    written(h);
}

void HibernateRTCEnable(void) {
    volatile Module &h = hib();
    h.ctl = h.ctl | CTL_RTCEN;
    written(h);
}

uint32_t HibernateRTCGet(void) {
    return hib().seconds;
}

void HibernateRTCSet(uint32_t seconds) {
    volatile Module &h = hib();
    bool wasDisabled = IntMasterDisable();
    h.seconds = seconds;
    h.ms = 0u;
    if (!wasDisabled) {
        IntMasterEnable();
    }
    written(h);
}

void HibernateRTCMatchSet(uint32_t match, uint32_t value) {
    if (match == 0u) {
        volatile Module &h = hib();
        h.match = value;
        written(h);
    }
}

uint32_t HibernateRTCMatchGet(uint32_t match) {
    return match == 0u ? hib().match : 0u;
}

void HibernateWakeSet(uint32_t wakeFlags) {
    volatile Module &h = hib();
    h.ctl = (h.ctl & ~CTL_WAKE_BITS) | (wakeFlags & CTL_WAKE_BITS);
    written(h);
}

uint32_t HibernateWakeGet(void) {
    return hib().ctl & CTL_WAKE_BITS;
}

// Power goes: every interrupt line is masked, only the tick standing in for
// the 32 kHz clock runs. The console's receive FIFO is emptied first, so only
// a byte that comes while asleep wakes the board; after the reset the UART
// starts empty and that byte is lost, as on the board.
void HibernateRequest(void) {
    volatile Module &h = hib();
    if ((h.ctl & CTL_CLK32EN) == 0u) {
        return; // the module is not running: nothing happens
    }
    IntMasterDisable();
    for (uint32_t i = 0; i < NVIC_DIS_WORDS; i++) {
        reg(NVIC_DIS0 + 4u * i) = 0xFFFFFFFFu;
    }
    drain_console();
    const bool rtcWake = (h.ctl & CTL_RTCWEN) != 0u && h.seconds < h.match;
    const bool pinWake = (h.ctl & CTL_PINWEN) != 0u;
    // Without the tick nothing would end a WFI: poll instead.
    const bool ticking =
        (reg(ST_CTRL) & (ST_CTRL_ENABLE | ST_CTRL_INTEN)) == (ST_CTRL_ENABLE | ST_CTRL_INTEN);
    IntMasterEnable();

    uint32_t cause = 0u;
    while (cause == 0u) {
        if (ticking) {
            __asm volatile("wfi" ::: "memory");
        }
        if (rtcWake && h.seconds >= h.match) {
            cause = HIBERNATE_INT_RTC_MATCH_0;
        } else if (pinWake && console_byte_waiting()) {
            cause = HIBERNATE_INT_PIN_WAKE;
        }
    }
    update(h.ris, 0u, cause | HIBERNATE_INT_WR_COMPLETE);
    // The emulator keeps the UART's FIFO through a system reset; the board
    // loses the waking byte with the console's power.
    drain_console();
    SysCtlReset();
}
