// INA260 power monitors (I2C 0x40 on the processor module, 0x4C and 0x4F on
// the baseboard).
#pragma once
#include <stdint.h>

#define INA260_I2C_ADDR_MODULE 0x40u
#define INA260_I2C_ADDR_BASEBOARD 0x4Cu
#define INA260_REG_CONFIG 0x00u
#define INA260_REG_CURRENT 0x01u
#define INA260_REG_BUS_VOLTAGE 0x02u
#define INA260_REG_POWER 0x03u
#define INA260_REG_MASK_ENABLE 0x06u
#define INA260_REG_ALERT_LIMIT 0x07u
#define INA260_REG_MANUFACTURER_ID 0xFEu
#define INA260_REG_DIE_ID 0xFFu

// Supply voltage (V) and system current (A). This board does not read the
// monitor here: it reports the fixed figures 14.3 V and 0.037 A. Returns 0.
int ina260_system_voltageCurrent(float *sysVolts, float *sysAmps);
int ina260_system_read_data(void);
float ina260_calc_voltage(int rawData);
float ina260_calc_current(int rawData);
float ina260_calc_power(int rawData);

// One 16-bit register (sent most significant byte first). 0 when read,
// non-zero when the monitor did not answer.
int ina260_read_reg(uint8_t i2cAddr, uint8_t reg, uint16_t *value);
