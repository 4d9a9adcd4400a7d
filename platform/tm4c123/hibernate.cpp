// Hibernation module of the TM4C123GH6PM and its real-time clock, at register
// level. Owns the battery-backed domain: the 32.768 kHz oscillator, the
// seconds counter and its match, the wake sources, the raw wake status and
// the hibernation request. Does not gate the module's clock
// (SysCtlPeripheralEnable does) and uses neither its interrupt line, the
// sub-second counter nor the battery-backed data words.
//
// The module runs on the 32 kHz clock: a write takes up to a few of its
// cycles and the next write must wait for HIBCTL.WRC. Every wait is bounded,
// so a dead oscillator slows the instrument down but never hangs it.
#include "hibernate.h"
#include "chip.h"
#include "hib_bits.h"
#include "sysctl.h"

namespace {

using chip::reg;

constexpr uint32_t HIB_BASE = 0x400FC000u;
constexpr uint32_t HIBRTCC = HIB_BASE + 0x000u;
constexpr uint32_t HIBRTCM0 = HIB_BASE + 0x004u;
constexpr uint32_t HIBRTCLD = HIB_BASE + 0x00Cu;
constexpr uint32_t HIBCTL = HIB_BASE + 0x010u;
constexpr uint32_t HIBIM = HIB_BASE + 0x014u;
constexpr uint32_t HIBRIS = HIB_BASE + 0x018u;
constexpr uint32_t HIBMIS = HIB_BASE + 0x01Cu;
constexpr uint32_t HIBIC = HIB_BASE + 0x020u;
constexpr uint32_t HIBRTCT = HIB_BASE + 0x024u;

constexpr uint32_t PRHIB = 0x400FEA14u; // system control: module ready

using namespace hib_bits;

constexpr uint32_t CTL_CLOCK_BITS = CTL_OSCBYP | CTL_OSCDRV;
constexpr uint32_t TRIM_MASK = 0xFFFFu;

static_assert(HIBERNATE_WAKE_PIN == CTL_PINWEN && HIBERNATE_WAKE_RTC == CTL_RTCWEN,
              "wake flags are the HIBCTL bits");

constexpr uint32_t DELAY_COUNTS_PER_US = 17u; // SysCtlDelay at 50 MHz
constexpr uint32_t DELAY_COUNTS_PER_MS = 16667u;
// A write completes within about 3 cycles of 32 kHz (92 us); allow far more.
constexpr uint32_t WRITE_LIMIT_US = 20000u;
// After the first power-up the crystal may take 1.5 s to start; until then
// the write that enabled it does not complete.
constexpr uint32_t OSC_START_LIMIT_US = 1500000u;
// Power goes within a few 32 kHz cycles of the request; a board still
// running after this did not hibernate.
constexpr uint32_t HIBERNATE_LIMIT_MS = 100u;

// Registers fault while the module's clock gate is closed.
bool ready(void) {
    return (reg(PRHIB) & 1u) != 0u;
}

bool wait_write(uint32_t limitUs) {
    for (uint32_t us = 0; (reg(HIBCTL) & CTL_WRC) == 0u; us++) {
        if (us >= limitUs) {
            return false;
        }
        SysCtlDelay(DELAY_COUNTS_PER_US);
    }
    return true;
}

// A write issued over one that has not completed may be lost or spoil it:
// when WRC never comes, the write is dropped.
void write(uint32_t addr, uint32_t value, uint32_t limitUs = WRITE_LIMIT_US) {
    if (!ready() || !wait_write(limitUs)) {
        return;
    }
    reg(addr) = value;
    wait_write(limitUs);
}

uint32_t read(uint32_t addr) {
    return ready() ? reg(addr) : 0u;
}

// HIBCTL without the read-only WRC and without a stale request bit.
void update_ctl(uint32_t clear, uint32_t set, uint32_t limitUs = WRITE_LIMIT_US) {
    uint32_t ctl = read(HIBCTL) & ~(CTL_WRC | CTL_HIBREQ);
    write(HIBCTL, (ctl & ~clear) | set, limitUs);
}

} // namespace

// Starts the module's clock. The system clock rate does not matter to this part.
void HibernateEnableExpClk(uint32_t hibClock) {
    update_ctl(0u, CTL_CLK32EN, OSC_START_LIMIT_US);
}

// Non-zero when the module was already clocked: a wake from hibernation or a
// reset with the battery domain kept; zero after the battery domain powered up.
uint32_t HibernateIsActive(void) {
    return read(HIBCTL) & CTL_CLK32EN;
}

uint32_t HibernateIntStatus(bool masked) {
    return read(masked ? HIBMIS : HIBRIS) & INT_BITS;
}

void HibernateIntClear(uint32_t intFlags) {
    write(HIBIC, intFlags & INT_BITS);
}

// The mask is read once a write still in flight (perhaps to it) has completed.
void HibernateIntDisable(uint32_t intFlags) {
    if (ready() && wait_write(WRITE_LIMIT_US)) {
        write(HIBIM, reg(HIBIM) & ~(intFlags & INT_BITS));
    }
}

// Releases the pins held through hibernation.
void HibernateGPIORetentionDisable(void) {
    update_ctl(CTL_VDD3ON, 0u);
}

// 0: a crystal with low drive; HIBCTL's OSCBYP and OSCDRV otherwise.
void HibernateClockConfig(uint32_t config) {
    update_ctl(CTL_CLOCK_BITS, config & CTL_CLOCK_BITS);
}

// 0x7FFF leaves the second as it is.
void HibernateRTCTrimSet(uint32_t trim) {
    write(HIBRTCT, trim & TRIM_MASK);
}

void HibernateRTCEnable(void) {
    update_ctl(0u, CTL_RTCEN);
}

uint32_t HibernateRTCGet(void) {
    return read(HIBRTCC);
}

void HibernateRTCSet(uint32_t seconds) {
    write(HIBRTCLD, seconds);
}

// The part has one match register.
void HibernateRTCMatchSet(uint32_t match, uint32_t value) {
    if (match == 0u) {
        write(HIBRTCM0, value);
    }
}

uint32_t HibernateRTCMatchGet(uint32_t match) {
    return match == 0u ? read(HIBRTCM0) : 0u;
}

void HibernateWakeSet(uint32_t wakeFlags) {
    update_ctl(CTL_WAKE_BITS, wakeFlags & CTL_WAKE_BITS);
}

uint32_t HibernateWakeGet(void) {
    return read(HIBCTL) & CTL_WAKE_BITS;
}

// Returns only when the power did not go: the caller reports the failure.
void HibernateRequest(void) {
    update_ctl(0u, CTL_HIBREQ);
    for (uint32_t ms = 0; ms < HIBERNATE_LIMIT_MS; ms++) {
        SysCtlDelay(DELAY_COUNTS_PER_MS);
    }
}
