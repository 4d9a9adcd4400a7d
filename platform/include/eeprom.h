// On-chip EEPROM. Address and count are multiples of 4.
#pragma once
#include "hw_types.h"

#define EEPROM_INIT_OK 0u
#define EEPROM_INIT_ERROR 2u

uint32_t EEPROMInit(void);
uint32_t EEPROMSizeGet(void);
void EEPROMRead(uint32_t *data, uint32_t address, uint32_t count);
uint32_t EEPROMProgram(uint32_t *data, uint32_t address, uint32_t count); // 0 = success
