// Hibernation module with its RTC, and the on-chip EEPROM. Both keep their
// contents in BoardState, so they outlive every power cycle of a run.
// HibernateRequest ends the power cycle; the supervisor picks the wake-up.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
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
// A register of the module changes: board.txt follows at once.
void set_kept(sim::Board &b, uint32_t &reg, uint32_t value) {
    if (reg != value) {
        reg = value;
        b.save_clock();
    }
}
} // namespace

namespace sim {

std::string Board::clock_text() const {
    const BoardState &s = *st;
    uint64_t into =
        uint64_t((int64_t(s.now) - s.rtc_base_cycles) % int64_t(kCpuHz) + int64_t(kCpuHz)) % kCpuHz;
    char t[640];
    int n = std::snprintf(
        t, sizeof t,
        "# fenwa-sim board state (key = value). Remove it for a power-on reset.\n"
        "power = %s\nrtc = %u\nrtc_subsecond_cycles = %llu\nrtc_match = %u\n"
        "wake_flags = 0x%x\nstatus = 0x%x\nint_mask = 0x%x\nrtc_trim = 0x%x\n"
        "clock_config = 0x%x\nmodule_running = %d\nrtc_enabled = %d\npower_cycles = %llu\n"
        "last_end = %s\n",
        s.hibernating ? "hibernating" : (s.power_off ? "off" : "awake"), rtc_now(),
        (unsigned long long)into, s.rtc_match, s.wake_flags, s.hib_status, s.hib_int_mask,
        s.rtc_trim, s.clock_config, s.module_enabled ? 1 : 0, s.rtc_enabled ? 1 : 0,
        (unsigned long long)s.lifetime_cycles, to_string(s.last_end));
    return std::string(t, size_t(n));
}

// One write in place: a cut between two writes leaves one or the other, and
// a shorter text is padded with blank lines rather than truncated.
void Board::save_clock(bool exact) {
    if (state_fd < 0) {
        return;
    }
    std::string t = clock_text();
    if (exact && ftruncate(state_fd, off_t(t.size())) == 0) {
        st->board_txt_len = uint32_t(t.size());
    }
    if (t.size() < st->board_txt_len) {
        t.append(st->board_txt_len - t.size(), '\n');
    }
    ssize_t n = pwrite(state_fd, t.data(), t.size(), 0);
    if (n != ssize_t(t.size())) {
        st->save_errno = n < 0 ? errno : ENOSPC;
        return;
    }
    st->board_txt_len = uint32_t(t.size());
}

} // namespace sim

void HibernateEnableExpClk(uint32_t) {
    sim::Board &b = hib();
    if (!b.st->module_enabled) {
        b.st->module_enabled = true;
        b.save_clock();
    }
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
    sim::Board &b = hib();
    set_kept(b, b.st->hib_int_mask, b.st->hib_int_mask & ~intFlags);
}
void HibernateGPIORetentionDisable(void) {
    hib();
}
void HibernateClockConfig(uint32_t config) {
    sim::Board &b = hib();
    set_kept(b, b.st->clock_config, config);
}
void HibernateRTCTrimSet(uint32_t trim) {
    sim::Board &b = hib();
    set_kept(b, b.st->rtc_trim, trim);
}
void HibernateRTCEnable(void) {
    sim::Board &b = hib();
    if (!b.st->rtc_enabled) {
        b.st->rtc_enabled = true;
        b.save_clock();
    }
}
uint32_t HibernateRTCGet(void) {
    return hib().rtc_now();
}

void HibernateRTCSet(uint32_t seconds) {
    sim::Board &b = hib();
    b.st->rtc_base = seconds;
    b.st->rtc_base_cycles = int64_t(b.now());
    b.st->match_armed = b.st->rtc_match > seconds;
    b.save_clock();
}

void HibernateRTCMatchSet(uint32_t match, uint32_t value) {
    sim::Board &b = hib();
    if (match == 0) {
        b.st->match_armed = value > b.rtc_now();
        set_kept(b, b.st->rtc_match, value);
    }
}

uint32_t HibernateRTCMatchGet(uint32_t match) {
    return match == 0 ? hib().st->rtc_match : 0;
}
void HibernateWakeSet(uint32_t wakeFlags) {
    sim::Board &b = hib();
    set_kept(b, b.st->wake_flags, wakeFlags);
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
    b.st->last_end = sim::EndReason::Hibernated;
    b.save_clock();
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
    std::memcpy(b.st->eeprom + address, data, count);
    b.advance_to(b.now() + kEepromWordWrite * (count / 4));
    return 0;
}
