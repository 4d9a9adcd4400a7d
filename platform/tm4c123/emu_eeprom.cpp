// EEPROM of the emulated board, which has no EEPROM controller: the same
// calls over 2 KB of RAM that no start-up code touches (section .keep_ram),
// so the record survives a reset as it survives one on the chip. Same window
// as the chip's back end: firmware address A is byte A - 1024 of the array,
// and a request outside 1024..3071 is refused.
//
// A word kept beside the array tells a used array from RAM that was never
// set; an unset one is a board fresh from the factory: erased (all 0xFF) and
// then given the default configuration record.
#include "eeprom.h"
#include "eeprom_window.h"
#include "emu_factory.h"

namespace {

constexpr uint32_t CHIP_SIZE = eeprom_window::kChipSize;
constexpr uint32_t WINDOW_BASE = eeprom_window::kBase;
constexpr uint32_t MAGIC = 0xEE9B0A5Du;
constexpr uint32_t STATUS_REFUSED = 0x10u; // EEDONE's NOPERM

struct Store {
    uint32_t magic;
    uint32_t words[CHIP_SIZE / 4u];
};

__attribute__((section(".keep_ram"))) Store g_store;

Store &store(void) {
    if (g_store.magic != MAGIC) {
        for (uint32_t &w : g_store.words) {
            w = 0xFFFFFFFFu;
        }
        g_store.magic = MAGIC;
        emu_factory_record(reinterpret_cast<uint8_t *>(g_store.words), CHIP_SIZE);
    }
    return g_store;
}

} // namespace

uint32_t EEPROMInit(void) {
    store();
    return EEPROM_INIT_OK;
}

uint32_t EEPROMSizeGet(void) {
    return CHIP_SIZE;
}

void EEPROMRead(uint32_t *data, uint32_t address, uint32_t count) {
    if (data == nullptr || !eeprom_window::contains(address, count)) {
        return;
    }
    const uint32_t *src = &store().words[(address - WINDOW_BASE) / 4u];
    for (uint32_t i = 0; i < count / 4u; i++) {
        data[i] = src[i];
    }
}

// 0 is success, as EEDONE reports it.
uint32_t EEPROMProgram(uint32_t *data, uint32_t address, uint32_t count) {
    if (data == nullptr || !eeprom_window::contains(address, count)) {
        return STATUS_REFUSED;
    }
    uint32_t *dst = &store().words[(address - WINDOW_BASE) / 4u];
    for (uint32_t i = 0; i < count / 4u; i++) {
        dst[i] = data[i];
    }
    return 0u;
}
