// On-chip EEPROM: a stub until the register-level code lands.
//
// The chip has 2 KB of EEPROM, but the configuration record (1352 bytes) sits
// at byte address 1024 of the 4 KB image the firmware addresses. The back end
// folds that window down: firmware address A is chip address A - 1024, so the
// record lives at chip address 0..1351 and fits. Nothing else is stored below
// 1024; requests outside the window are refused.
//
// Until then a read returns an erased part (all 0xFF) and a program stores
// nothing.
#include "eeprom.h"

namespace {

constexpr uint32_t CHIP_SIZE = 2048u;
constexpr uint32_t WINDOW_BASE = 1024u; // firmware address of chip address 0

bool in_window(uint32_t address, uint32_t count) {
    return address >= WINDOW_BASE && count <= CHIP_SIZE &&
           address - WINDOW_BASE <= CHIP_SIZE - count && (address % 4u) == 0u && (count % 4u) == 0u;
}

} // namespace

uint32_t EEPROMInit(void) {
    return EEPROM_INIT_OK;
}

uint32_t EEPROMSizeGet(void) {
    return CHIP_SIZE;
}

void EEPROMRead(uint32_t *data, uint32_t address, uint32_t count) {
    for (uint32_t i = 0; i < count / 4u; i++) {
        data[i] = 0xFFFFFFFFu;
    }
}

// Status as the chip's EEDONE register reports it: 0 is success.
uint32_t EEPROMProgram(uint32_t *data, uint32_t address, uint32_t count) {
    constexpr uint32_t EEDONE_INVPL = 0x100u; // invalid program request
    return in_window(address, count) ? 0u : EEDONE_INVPL;
}
