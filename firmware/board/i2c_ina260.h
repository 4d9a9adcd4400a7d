// INA260 power monitors.
#pragma once

int ina260_system_voltageCurrent(float *sysVolts, float *sysAmps);
int ina260_system_read_data(void);
float ina260_calc_voltage(int rawData);
float ina260_calc_current(int rawData);
float ina260_calc_power(int rawData);
