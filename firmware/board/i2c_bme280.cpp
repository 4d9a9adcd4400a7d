// BME280 climate sensor on the baseboard (I2C 0x77): identification and
// calibration read-out at start-up, forced measurements on request, and the
// datasheet's integer compensation (32-bit temperature, 32-bit pressure in
// pascal, 32-bit humidity in 1/1024 %RH). The older pressure-only parts
// (0x58, 0x56) are accepted and simply have no humidity.
//
// The sample cycle does not measure: it reads back whatever the last
// measurement left in bme280_dev (zero after a wake-up until someone fetches).
#include "board/i2c_bme280.h"

#include <stddef.h>

#include "board/board_util.h"
#include "board/i2c0.h"
#include "console/user_io.h"

// Registers
#define BME280_REG_CALIB_TP 0x88u // dig_T1 .. dig_P9, then dig_H1 at 0xA1
#define BME280_REG_CALIB_H1 0xA1u
#define BME280_REG_ID 0xD0u
#define BME280_REG_CALIB_H2 0xE1u // dig_H2 .. dig_H6
#define BME280_REG_CTRL_HUM 0xF2u
#define BME280_REG_STATUS 0xF3u
#define BME280_REG_CTRL_MEAS 0xF4u
#define BME280_REG_CONFIG 0xF5u
#define BME280_REG_DATA 0xF7u // press_msb .. hum_lsb

#define BME280_CALIB_TP_LEN 32u
#define BME280_CALIB_H_LEN 7u
#define BME280_CTRL_HUM_X1 0x01u
#define BME280_CTRL_MEAS_FORCED 0x25u // temperature x1, pressure x1, forced mode
#define BME280_CONFIG_NO_FILTER 0x00u
#define BME280_STATUS_BUSY 0x03u

// A forced measurement at oversampling 1 takes under 10 ms; the wait is
// generous so the read never catches a conversion in progress.
#define BME280_MEAS_WAIT_MS 500u
// A chip that still reports busy after this many status reads is treated as
// a failed read rather than waited on for ever.
#define BME280_STATUS_POLLS 100u

bme280_data bme280_dev;

namespace {

// The datasheet formulas are written for a 32-bit processor: intermediate
// results wrap in two's complement. These keep that arithmetic exact and
// defined (right shifts of negative values stay arithmetic).
inline int32_t add(int32_t a, int32_t b) {
    return (int32_t)((uint32_t)a + (uint32_t)b);
}
inline int32_t sub(int32_t a, int32_t b) {
    return (int32_t)((uint32_t)a - (uint32_t)b);
}
inline int32_t mul(int32_t a, int32_t b) {
    return (int32_t)((uint32_t)a * (uint32_t)b);
}
inline int32_t shl(int32_t a, unsigned n) {
    return (int32_t)((uint32_t)a << n);
}

inline uint16_t le16(const uint8_t *p) {
    return (uint16_t)(p[0] | (p[1] << 8));
}

bool has_humidity(const bme280_data *d) {
    return d->chip_id == BME280_CHIP_ID;
}

bool supported(uint8_t id) {
    return id == BME280_CHIP_ID || id == BMP280_CHIP_ID || id == BMP280_CHIP_ID_ES;
}

} // namespace

void bme280_unpack_calib(bme280_data *d, const uint8_t *tp, uint8_t h1, const uint8_t *h) {
    d->dig_t1 = le16(tp + 0);
    d->dig_t2 = (int16_t)le16(tp + 2);
    d->dig_t3 = (int16_t)le16(tp + 4);
    d->dig_p1 = le16(tp + 6);
    d->dig_p2 = (int16_t)le16(tp + 8);
    d->dig_p3 = (int16_t)le16(tp + 10);
    d->dig_p4 = (int16_t)le16(tp + 12);
    d->dig_p5 = (int16_t)le16(tp + 14);
    d->dig_p6 = (int16_t)le16(tp + 16);
    d->dig_p7 = (int16_t)le16(tp + 18);
    d->dig_p8 = (int16_t)le16(tp + 20);
    d->dig_p9 = (int16_t)le16(tp + 22);
    d->dig_h1 = h1;
    if (h == NULL) {
        d->dig_h2 = 0;
        d->dig_h3 = 0;
        d->dig_h4 = 0;
        d->dig_h5 = 0;
        d->dig_h6 = 0;
        return;
    }
    // 0xE4 holds bits 11:4 of dig_H4 and 0xE6 bits 11:4 of dig_H5; 0xE5
    // shares its nibbles: low one to dig_H4, high one to dig_H5. Both are
    // signed 12-bit values.
    d->dig_h2 = (int16_t)le16(h + 0);
    d->dig_h3 = h[2];
    d->dig_h4 = (int16_t)(((int8_t)h[3] * 16) | (h[4] & 0x0F));
    d->dig_h5 = (int16_t)(((int8_t)h[5] * 16) | (h[4] >> 4));
    d->dig_h6 = (int8_t)h[6];
}

int32_t bme280_calc_temperature(bme280_data *d, int32_t adc_T) {
    int32_t t1 = d->dig_t1, t2 = d->dig_t2, t3 = d->dig_t3;
    int32_t var1 = mul(sub(adc_T >> 3, shl(t1, 1)), t2) >> 11;
    int32_t dt = sub(adc_T >> 4, t1);
    int32_t var2 = mul(mul(dt, dt) >> 12, t3) >> 14;
    d->t_fine = add(var1, var2);
    return add(mul(d->t_fine, 5), 128) >> 8;
}

uint32_t bme280_calc_pressure(const bme280_data *d, int32_t adc_P) {
    int32_t var1 = sub(d->t_fine >> 1, 64000);
    int32_t sq = mul(var1 >> 2, var1 >> 2);
    int32_t var2 = mul(sq >> 11, d->dig_p6);
    var2 = add(var2, shl(mul(var1, d->dig_p5), 1));
    var2 = add(var2 >> 2, shl(d->dig_p4, 16));
    var1 = add(mul(d->dig_p3, sq >> 13) >> 3, mul(d->dig_p2, var1) >> 1) >> 18;
    var1 = mul(add(32768, var1), d->dig_p1) >> 15;
    if (var1 == 0) {
        return 0; // no division by zero
    }
    uint32_t p = ((uint32_t)sub(1048576, adc_P) - (uint32_t)(var2 >> 12)) * 3125u;
    if (p < 0x80000000u) {
        p = (p << 1) / (uint32_t)var1;
    } else {
        p = (p / (uint32_t)var1) * 2u;
    }
    var1 = mul(d->dig_p9, (int32_t)(((p >> 3) * (p >> 3)) >> 13)) >> 12;
    var2 = mul((int32_t)(p >> 2), d->dig_p8) >> 13;
    return (uint32_t)add((int32_t)p, add(add(var1, var2), d->dig_p7) >> 4);
}

uint32_t bme280_calc_humidity(const bme280_data *d, int32_t adc_H) {
    int32_t v = sub(d->t_fine, 76800);
    int32_t a = sub(sub(shl(adc_H, 14), shl(d->dig_h4, 20)), mul(d->dig_h5, v));
    a = add(a, 16384) >> 15;
    int32_t b = mul(v, d->dig_h6) >> 10;
    int32_t c = add(mul(v, d->dig_h3) >> 11, 32768);
    int32_t e = add(mul(b, c) >> 10, 2097152);
    e = add(mul(e, d->dig_h2), 8192) >> 14;
    v = mul(a, e);
    v = sub(v, mul(mul(v >> 15, v >> 15) >> 7, d->dig_h1) >> 4);
    if (v < 0) {
        v = 0;
    }
    if (v > 419430400) {
        v = 419430400; // 100 %RH
    }
    return (uint32_t)(v >> 12);
}

void bme280_setup(void) {
    (void)i2c0_reg_write(BME280_I2C_ADDR, BME280_REG_CTRL_MEAS, BME280_CTRL_MEAS_FORCED);
    (void)i2c0_reg_write(BME280_I2C_ADDR, BME280_REG_CONFIG, BME280_CONFIG_NO_FILTER);
}

int bme280_init(void) {
    pwr_env_mon_on();
    uint8_t id = 0;
    (void)i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_ID, &id, 1);
    bme280_dev.chip_id = id;
    if (!supported(id)) {
        uprintf("BME280 not found at 0x%02x, chip id 0x%02x\r\n", BME280_I2C_ADDR, id);
        return 1;
    }
    uint8_t tp[BME280_CALIB_TP_LEN] = {0};
    if (i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_CALIB_TP, tp, sizeof(tp)) != 0) {
        return 1;
    }
    if (has_humidity(&bme280_dev)) {
        uint8_t h1 = 0;
        uint8_t h[BME280_CALIB_H_LEN] = {0};
        if (i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_CALIB_H1, &h1, 1) != 0 ||
            i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_CALIB_H2, h, sizeof(h)) != 0) {
            return 1;
        }
        bme280_unpack_calib(&bme280_dev, tp, h1, h);
        (void)i2c0_reg_write(BME280_I2C_ADDR, BME280_REG_CTRL_HUM, BME280_CTRL_HUM_X1);
    } else {
        bme280_unpack_calib(&bme280_dev, tp, 0, NULL);
    }
    bme280_setup();
    return 0;
}

int bme280_sample_fetch(bme280_data *data) {
    if (data == NULL) {
        return BME280_FETCH_ERROR;
    }
    if (i2c0_reg_write(BME280_I2C_ADDR, BME280_REG_CTRL_MEAS, BME280_CTRL_MEAS_FORCED) != 0) {
        return BME280_FETCH_ERROR;
    }
    delay_msec(BME280_MEAS_WAIT_MS);
    uint32_t polls = 0;
    for (;;) {
        uint8_t status = 0;
        if (i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_STATUS, &status, 1) != 0) {
            return BME280_FETCH_ERROR;
        }
        if ((status & BME280_STATUS_BUSY) == 0u) {
            break;
        }
        if (++polls >= BME280_STATUS_POLLS) {
            return BME280_FETCH_ERROR;
        }
    }
    uint8_t raw[8] = {0};
    uint32_t len = has_humidity(data) ? 8u : 6u;
    if (i2c0_reg_read(BME280_I2C_ADDR, BME280_REG_DATA, raw, len) != 0) {
        return BME280_FETCH_ERROR;
    }
    int32_t adc_P = (int32_t)(((uint32_t)raw[0] << 12) | ((uint32_t)raw[1] << 4) | (raw[2] >> 4));
    int32_t adc_T = (int32_t)(((uint32_t)raw[3] << 12) | ((uint32_t)raw[4] << 4) | (raw[5] >> 4));
    int32_t adc_H = (int32_t)(((uint32_t)raw[6] << 8) | raw[7]);
    data->temperature = bme280_calc_temperature(data, adc_T);
    data->pressure = bme280_calc_pressure(data, adc_P);
    if (has_humidity(data)) {
        data->humidity = bme280_calc_humidity(data, adc_H);
    }
    return 0;
}

int bme280_read_data(void) {
    return bme280_sample_fetch(&bme280_dev);
}

float bme280_get_fTemperature(void) {
    return (float)(bme280_dev.temperature / 100.0);
}

uint32_t bme280_get_uiHumidity(void) {
    return bme280_dev.humidity >> 10;
}

float bme280_get_fPressure(void) {
    return (float)bme280_dev.pressure;
}
