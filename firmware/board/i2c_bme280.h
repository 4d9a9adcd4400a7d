// BME280 climate sensor on the baseboard (I2C 0x77): board temperature,
// pressure and humidity with the datasheet's integer compensation.
#pragma once
#include <stdint.h>

#define BME280_I2C_ADDR 0x77u
#define BME280_CHIP_ID 0x60u    // temperature, pressure and humidity
#define BMP280_CHIP_ID 0x58u    // temperature and pressure only
#define BMP280_CHIP_ID_ES 0x56u // engineering samples of the same
#define BME280_FETCH_ERROR (-5)

// Calibration words as the datasheet names them, the chip identifier read
// at start-up and the last compensated measurement.
typedef struct {
    uint16_t dig_t1;
    int16_t dig_t2;
    int16_t dig_t3;
    uint16_t dig_p1;
    int16_t dig_p2;
    int16_t dig_p3;
    int16_t dig_p4;
    int16_t dig_p5;
    int16_t dig_p6;
    int16_t dig_p7;
    int16_t dig_p8;
    int16_t dig_p9;
    uint8_t dig_h1;
    int16_t dig_h2;
    uint8_t dig_h3;
    int16_t dig_h4;
    int16_t dig_h5;
    int8_t dig_h6;
    uint8_t chip_id;
    int32_t t_fine;      // fine temperature carried into pressure and humidity
    int32_t temperature; // hundredths of a degree Celsius
    uint32_t pressure;   // pascal
    uint32_t humidity;   // 1/1024 %RH
} bme280_data;

extern bme280_data bme280_dev; // the sensor on this board

int bme280_init(void);
void bme280_setup(void);
int bme280_sample_fetch(bme280_data *data);
int bme280_read_data(void); // bme280_sample_fetch on the board's sensor
float bme280_get_fTemperature(void);
uint32_t bme280_get_uiHumidity(void);
float bme280_get_fPressure(void);

// Calibration words from the register images: 0x88.. (at least 24 bytes),
// 0xA1, and 0xE1..0xE7 (7 bytes; may be null for a chip without humidity).
void bme280_unpack_calib(bme280_data *data, const uint8_t *tp, uint8_t h1, const uint8_t *h);

// The datasheet's integer compensation. Temperature first: it sets t_fine,
// which the other two use.
int32_t bme280_calc_temperature(bme280_data *data, int32_t adc_T);
uint32_t bme280_calc_pressure(const bme280_data *data, int32_t adc_P);
uint32_t bme280_calc_humidity(const bme280_data *data, int32_t adc_H);
