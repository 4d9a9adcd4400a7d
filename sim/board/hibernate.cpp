// Hibernation module with its RTC, and the on-chip EEPROM. Both keep their
// contents in BoardState, so they outlive every power cycle of a run.
// HibernateRequest ends the power cycle; the supervisor picks the wake-up.
#include <cstring>

#include "board.h"
#include "eeprom.h"
#include "hibernate.h"

using sim::board;

namespace {
sim::Board &hib() {
    sim::Board &b = board();
    b.call();
    return b;
}

// The match register raises its status bit when the RTC passes it while the
// processor is awake.
void check_match(sim::Board &b) {
    sim::BoardState &s = *b.st;
    if (s.match_armed && b.rtc_now() >= s.rtc_match) {
        s.match_armed = false;
        s.hib_status |= HIBERNATE_INT_RTC_MATCH_0;
    }
}
} // namespace

void HibernateEnableExpClk(uint32_t) {
    hib().st->module_enabled = true;
}

// Non-zero when the module was already running when this power cycle began
// (a wake from hibernation or a software reset), zero after a power-on.
uint32_t HibernateIsActive(void) {
    return hib().st->active_at_start ? 1u : 0u;
}

uint32_t HibernateIntStatus(bool masked) {
    sim::Board &b = hib();
    check_match(b);
    return masked ? (b.st->hib_status & b.st->hib_int_mask) : b.st->hib_status;
}

void HibernateIntClear(uint32_t intFlags) {
    sim::Board &b = hib();
    check_match(b);
    b.st->hib_status &= ~intFlags;
}

void HibernateIntDisable(uint32_t intFlags) {
    hib().st->hib_int_mask &= ~intFlags;
}
void HibernateGPIORetentionDisable(void) {
    hib();
}
void HibernateClockConfig(uint32_t config) {
    hib().st->clock_config = config;
}
void HibernateRTCTrimSet(uint32_t trim) {
    hib().st->rtc_trim = trim;
}
void HibernateRTCEnable(void) {
    hib().st->rtc_enabled = true;
}
uint32_t HibernateRTCGet(void) {
    return hib().rtc_now();
}

void HibernateRTCSet(uint32_t seconds) {
    sim::Board &b = hib();
    b.st->rtc_base = seconds;
    b.st->rtc_base_cycles = int64_t(b.now());
    b.st->match_armed = b.st->rtc_match > seconds;
}

void HibernateRTCMatchSet(uint32_t match, uint32_t value) {
    sim::Board &b = hib();
    if (match == 0) {
        b.st->rtc_match = value;
        b.st->match_armed = value > b.rtc_now();
    }
}

uint32_t HibernateRTCMatchGet(uint32_t match) {
    return match == 0 ? hib().st->rtc_match : 0;
}
void HibernateWakeSet(uint32_t wakeFlags) {
    hib().st->wake_flags = wakeFlags;
}
uint32_t HibernateWakeGet(void) {
    return hib().st->wake_flags;
}

void HibernateRequest(void) {
    sim::Board &b = hib();
    b.st->hib_requests++;
    if (b.mode == sim::Board::Mode::InProcess) {
        if (b.knobs.on_hibernate) {
            b.knobs.on_hibernate();
        }
        return;
    }
    if (!b.st->module_enabled || b.st->hib_fail) {
        return; // the module is not running (or the knob says it fails): nothing happens
    }
    // Power goes: whatever is still in a transmitter is lost.
    b.st->hibernating = true;
    b.end_cycle(sim::EndReason::Hibernated);
}

// ---- EEPROM -------------------------------------------------------------------

namespace {
constexpr uint64_t kEepromWordWrite = 30 * sim::kCpuHz / 1000000; // about 30 us a word

bool eeprom_span_ok(uint32_t address, uint32_t count) {
    return address % 4 == 0 && count % 4 == 0 && address <= sim::kEepromBytes &&
           count <= sim::kEepromBytes - address;
}
} // namespace

uint32_t EEPROMInit(void) {
    return hib().st->eeprom_init_error ? EEPROM_INIT_ERROR : EEPROM_INIT_OK;
}

uint32_t EEPROMSizeGet(void) {
    hib();
    return sim::kEepromBytes;
}

void EEPROMRead(uint32_t *data, uint32_t address, uint32_t count) {
    sim::Board &b = hib();
    if (data == nullptr || !eeprom_span_ok(address, count)) {
        return;
    }
    std::memcpy(data, b.st->eeprom + address, count);
    b.advance_to(b.now() + count); // a few cycles a word
}

uint32_t EEPROMProgram(uint32_t *data, uint32_t address, uint32_t count) {
    sim::Board &b = hib();
    if (data == nullptr || !eeprom_span_ok(address, count)) {
        return 0x4; // rejected, nothing written
    }
    // The image lands whole (a run that stops meanwhile never leaves half a
    // record); the time it takes passes afterwards, interrupts served.
    uint32_t words = sim::write_point("eeprom", address, count / 4);
    std::memcpy(b.st->eeprom + address, data, words * 4);
    if (words < count / 4) {
        sim::power_cut_now(); // a word at a time: the first ones are programmed
    }
    b.advance_to(b.now() + kEepromWordWrite * (count / 4));
    return 0;
}
