// I2C bus 0 set-up, the bus scan, and the register transfers shared by the
// devices that sit on it (climate sensor, expander, power monitors). The FRAM
// keeps its own transfers (board/i2c_fram).
#pragma once
#include <stdint.h>

void i2c0_init(void);

// Lists every address 0-126 that acknowledges, with the name of the known
// parts of this board. Waits while the bus is busy. Returns 1.
int i2c0_busScan(void);

// Address-only write (one data byte 0): 1 when the address is acknowledged.
int i2c0_addr_ack(uint8_t i2cAddr);

// One register write in one transaction: address, register, value, stop.
// 0 when done, non-zero when the device did not acknowledge.
int i2c0_reg_write(uint8_t i2cAddr, uint8_t reg, uint8_t value);

// Register pointer, repeated start, `length` bytes (the last one not
// acknowledged; one byte is a single receive). 0 when done, non-zero when the
// device did not acknowledge its address (the buffer is then left as it was).
int i2c0_reg_read(uint8_t i2cAddr, uint8_t reg, uint8_t *buffer, uint32_t length);
