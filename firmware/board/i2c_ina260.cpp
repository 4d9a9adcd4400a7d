// INA260 power monitors: register read-out and the conversions of raw
// register counts. On this board the supply figures of the sample line are
// not measured: ina260_system_voltageCurrent hands out fixed values, and the
// sample cycle relies on that.
#include "board/i2c_ina260.h"

#include <stddef.h>

#include "board/i2c0.h"

// The figures the sample line carries on this board (the battery column
// always shows 14.30).
#define INA260_FIXED_SYS_VOLTS 14.3f
#define INA260_FIXED_SYS_AMPS 0.037f

int ina260_system_voltageCurrent(float *sysVolts, float *sysAmps) {
    if (sysVolts != NULL) {
        *sysVolts = INA260_FIXED_SYS_VOLTS;
    }
    if (sysAmps != NULL) {
        *sysAmps = INA260_FIXED_SYS_AMPS;
    }
    return 0;
}

int ina260_system_read_data(void) {
    return 0;
}

// The factors are those of the instrument's records: kept exactly, double
// precision throughout, narrowed once on return.
float ina260_calc_voltage(int rawData) {
    return (float)(rawData * 32.768 * 0.004);
}

float ina260_calc_current(int rawData) {
    return (float)(rawData * 32.768 * 0.005);
}

float ina260_calc_power(int rawData) {
    return (float)(rawData * 32.768 * 0.00002);
}

int ina260_read_reg(uint8_t i2cAddr, uint8_t reg, uint16_t *value) {
    uint8_t b[2] = {0, 0};
    if (i2c0_reg_read(i2cAddr, reg, b, sizeof(b)) != 0) {
        return 1;
    }
    if (value != NULL) {
        *value = (uint16_t)((b[0] << 8) | b[1]);
    }
    return 0;
}
