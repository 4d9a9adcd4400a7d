// PCAL6416 I/O expander on the baseboard (I2C 0x20): spectrometer, pump and lamp power.
#pragma once
#include <stdint.h>

#define PCAL6416_I2C_ADDR 0x20u
#define PCAL6416_REG_INPUT0 0u
#define PCAL6416_REG_INPUT1 1u
#define PCAL6416_REG_OUTPUT0 2u
#define PCAL6416_REG_OUTPUT1 3u
#define PCAL6416_REG_POLARITY0 4u
#define PCAL6416_REG_POLARITY1 5u
#define PCAL6416_REG_CONFIG0 6u // 1 = input, 0 = output
#define PCAL6416_REG_CONFIG1 7u

// Switches on port 0 (output register 2).
#define PCAL6416_SPEC_PWR 0x01u
#define PCAL6416_PUMP_PWR 0x02u
#define PCAL6416_LAMP_PWR 0x04u
#define PCAL6416_LAMP_SHUTTER 0x20u
#define PCAL6416_SPEC_RS232_EN 0x40u
#define PCAL6416_SPARE_PIN2 0x80u

// Last values written to the two output ports.
extern uint8_t pcal6416_shadow_port0;
extern uint8_t pcal6416_shadow_port1;

int pcal6416_probe(int i2cAddr);
void pcal6416_init(void);
void pcal6416_write_port_bit(int regNum, int bitMask, uint32_t state);
void pcal6416_test_menu(void);
// One register of the expander at 0x20: 0 when read, non-zero when it did not answer.
int pcal6416_read_reg(uint8_t regNum, uint8_t *value);
