// The emulated board's factory step: a new board's EEPROM gets the default
// configuration record, as the simulated board provisions a new state folder.
#pragma once
#include <stdint.h>

// Fills `record` (the EEPROM array from firmware address 1024) with the
// firmware's default configuration record; leaves the running state as it was.
void emu_factory_record(uint8_t *record, uint32_t size);
