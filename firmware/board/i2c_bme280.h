// BME280 climate sensor on the baseboard (I2C 0x77).
#pragma once
#include <stdint.h>

int bme280_init(void);
float bme280_get_fTemperature(void);
uint32_t bme280_get_uiHumidity(void);
float bme280_get_fPressure(void);
