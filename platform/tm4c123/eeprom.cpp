// On-chip EEPROM of the TM4C123GH6PM, at register level: start-up and
// recovery, word reads and programs through the block/offset window.
// Does not gate its clock (SysCtlPeripheralEnable does) and uses no
// protection, passwords or interrupts.
//
// Address fold: the firmware addresses a 4 KB EEPROM and keeps its 1352-byte
// configuration record at byte 1024, as the simulated board's eeprom.bin does;
// the chip has 2 KB. Firmware address A is chip address A - 1024, so the
// record sits whole at chip bytes 0..1351 and its stored bytes are the same as
// in eeprom.bin from offset 1024. Nothing is stored below 1024; a request
// that does not lie wholly in 1024..3071 is refused.
//
// Every wait is bounded: a controller that never finishes makes EEPROMInit
// report EEPROM_INIT_ERROR and a program report a non-zero status instead
// of hanging the instrument.
#include "eeprom.h"
#include "eeprom_window.h"
#include "chip.h"
#include "sysctl.h"

namespace {

using chip::reg;

constexpr uint32_t EEPROM_BASE = 0x400AF000u;
constexpr uint32_t EESIZE = EEPROM_BASE + 0x000u;
constexpr uint32_t EEBLOCK = EEPROM_BASE + 0x004u;
constexpr uint32_t EEOFFSET = EEPROM_BASE + 0x008u;
constexpr uint32_t EERDWR = EEPROM_BASE + 0x010u;
constexpr uint32_t EERDWRINC = EEPROM_BASE + 0x014u;
constexpr uint32_t EEDONE = EEPROM_BASE + 0x018u;
constexpr uint32_t EESUPP = EEPROM_BASE + 0x01Cu;

// System control: the module's software reset and its ready flag.
constexpr uint32_t SREEPROM = 0x400FE558u;
constexpr uint32_t PREEPROM = 0x400FEA58u;

constexpr uint32_t EEDONE_WORKING = 0x01u;
constexpr uint32_t EEDONE_NOPERM = 0x10u; // write refused
constexpr uint32_t EEDONE_WRBUSY = 0x20u; // write attempted while working
constexpr uint32_t EESUPP_ERETRY = 0x04u;
constexpr uint32_t EESUPP_PRETRY = 0x08u;
constexpr uint32_t EESIZE_WORDCNT = 0xFFFFu;

constexpr uint32_t CHIP_SIZE = eeprom_window::kChipSize;
constexpr uint32_t WINDOW_BASE = eeprom_window::kBase;
constexpr uint32_t WORDS_PER_BLOCK = 16u;

// Waits, in microseconds. A word program normally takes 110-600 us, but one
// that needs the copy buffer erased and refilled takes up to 1.8 s; start-up
// may be finishing such a cycle that a power loss interrupted.
constexpr uint32_t WORKING_LIMIT_US = 2000000u;
constexpr uint32_t READY_LIMIT_US = 1000u;
constexpr uint32_t DELAY_COUNTS_PER_US = 17u; // SysCtlDelay at 50 MHz

// The module answers only once its clock runs and its reset is over; touching
// it before that faults.
bool module_ready(uint32_t limitUs) {
    for (uint32_t us = 0; (reg(PREEPROM) & 1u) == 0u; us++) {
        if (us >= limitUs) {
            return false;
        }
        SysCtlDelay(DELAY_COUNTS_PER_US);
    }
    return true;
}

// EEDONE once WORKING has cleared, or with WORKING still set after the limit.
uint32_t wait_done(void) {
    uint32_t status = reg(EEDONE);
    for (uint32_t us = 0; (status & EEDONE_WORKING) != 0u && us < WORKING_LIMIT_US; us++) {
        SysCtlDelay(DELAY_COUNTS_PER_US);
        status = reg(EEDONE);
    }
    return status;
}

bool needs_retry(void) {
    return (reg(EESUPP) & (EESUPP_PRETRY | EESUPP_ERETRY)) != 0u;
}

// Block and offset take a few cycles to settle before the data register follows them.
void select_word(uint32_t word) {
    reg(EEBLOCK) = word / WORDS_PER_BLOCK;
    reg(EEOFFSET) = word % WORDS_PER_BLOCK;
    SysCtlDelay(2u);
}

} // namespace

// The datasheet's start-up: let the power-on work finish, give up if an
// interrupted program or erase is flagged, reset the module and check again.
uint32_t EEPROMInit(void) {
    if (!module_ready(READY_LIMIT_US)) {
        return EEPROM_INIT_ERROR;
    }
    SysCtlDelay(2u);
    if ((wait_done() & EEDONE_WORKING) != 0u || needs_retry()) {
        return EEPROM_INIT_ERROR;
    }

    reg(SREEPROM) = reg(SREEPROM) | 1u;
    SysCtlDelay(16u);
    reg(SREEPROM) = reg(SREEPROM) & ~1u;
    if (!module_ready(READY_LIMIT_US)) {
        return EEPROM_INIT_ERROR;
    }
    SysCtlDelay(2u);
    if ((wait_done() & EEDONE_WORKING) != 0u || needs_retry()) {
        return EEPROM_INIT_ERROR;
    }
    return EEPROM_INIT_OK;
}

// The chip's own size in bytes; the firmware's window starts at 1024.
uint32_t EEPROMSizeGet(void) {
    if (!module_ready(0u)) {
        return 0u;
    }
    return (reg(EESIZE) & EESIZE_WORDCNT) * 4u;
}

// A refused or unanswered read leaves the caller's buffer as it was.
void EEPROMRead(uint32_t *data, uint32_t address, uint32_t count) {
    if (data == nullptr || !eeprom_window::contains(address, count) || !module_ready(0u)) {
        return;
    }
    if ((wait_done() & EEDONE_WORKING) != 0u) {
        return;
    }
    // The offset wraps within its block: select each block by hand, and only
    // for a word that is read (an empty read at the window's end would
    // otherwise select the block past the last, which the chip takes as 0).
    uint32_t word = (address - WINDOW_BASE) / 4u;
    for (uint32_t i = 0; i < count / 4u; i++, word++) {
        if (i == 0u || word % WORDS_PER_BLOCK == 0u) {
            select_word(word);
        }
        data[i] = reg(EERDWRINC);
    }
}

// Status as EEDONE reports it: 0 is success. Words that already hold their
// value are not programmed again: a store of the whole record after one
// setting changed then costs one word's wear, not 338.
uint32_t EEPROMProgram(uint32_t *data, uint32_t address, uint32_t count) {
    if (data == nullptr || !eeprom_window::contains(address, count) || !module_ready(0u)) {
        return EEDONE_NOPERM;
    }
    uint32_t status = wait_done();
    if ((status & EEDONE_WORKING) != 0u) {
        return status;
    }
    uint32_t word = (address - WINDOW_BASE) / 4u;
    for (uint32_t i = 0; i < count / 4u; i++, word++) {
        select_word(word);
        if (reg(EERDWR) == data[i]) {
            continue;
        }
        reg(EERDWR) = data[i];
        status = wait_done();
        if ((status & (EEDONE_WORKING | EEDONE_NOPERM | EEDONE_WRBUSY)) != 0u) {
            return status;
        }
    }
    return status;
}
