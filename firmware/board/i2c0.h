// I2C bus 0 set-up.
#pragma once
#include <stdint.h>

void i2c0_init(void);
