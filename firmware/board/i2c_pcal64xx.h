// PCAL6416 I/O expander on the baseboard (I2C 0x20): spectrometer, pump and lamp power.
#pragma once
#include <stdint.h>

int pcal6416_probe(int i2cAddr);
void pcal6416_init(void);
void pcal6416_write_port_bit(int regNum, int bitMask, uint32_t state);
void pcal6416_test_menu(void);
