// Where the configuration record lives on a 2 KB part. The firmware addresses
// the record at 1024 of a 4 KB image (the simulated board's eeprom.bin); the
// chip's back end and the emulator's stand-in both fold that window down:
// firmware address A is chip byte A - 1024, so the 1352-byte record lies whole
// and byte for byte the same at chip bytes 0..1351.
#pragma once
#include <stdint.h>

namespace eeprom_window {

constexpr uint32_t kChipSize = 2048u;
constexpr uint32_t kBase = 1024u; // firmware address of chip byte 0

// A request the part can serve: inside the window, whole aligned words.
constexpr bool contains(uint32_t address, uint32_t count) {
    return address >= kBase && count <= kChipSize && address - kBase <= kChipSize - count &&
           (address % 4u) == 0u && (count % 4u) == 0u;
}

} // namespace eeprom_window
