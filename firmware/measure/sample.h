// The sample cycle: one complete measurement, the sample line in prnBuf, the
// last-sample record, and the measurement test routines of the host commands.
#pragma once
#include <stdint.h>

#define PRN_BUF_SIZE 1540u
extern char prnBuf[PRN_BUF_SIZE];

// The instrument waits this long after its instruments start before it
// measures the board sensors: the shortest sample there is.
#define SAMPLE_MIN_CYCLE_MSEC 151u

void get_sample(int printFlg, int writeFlg);
void print_sampl(void);
void send_last_sample(void);
void test_get_sample_timing(void);

// Hooks kept for boards that have the parts.
float controller_temp(void);
float pressure(void);
void batt_volt(void);
void batt_volt_iso(void);
void get_groundfault(void);

// The enabled fields and the column titles on the console, ahead of a run of
// test samples.
void print_sample_fields_header(void);

// Measurement tests (host commands "vrsi", "vtherm_std", "biaspos" ... and the
// test menus). num readings, one line each; stdFlg adds the burst's spread;
// a overrides the configured conversion count and b the data rate (0 keeps
// the configured value); c is the pause between readings in milliseconds.
// A key typed at the console ends a run of readings early.
void test_vrsi(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vrse(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vtherm(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_tempc(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vk(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_ik(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_ib(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
// num readings of the negative and/or positive bias battery; c is the pause
// between readings in milliseconds.
void test_bias_bat(uint32_t num, uint32_t neg, uint32_t pos, uint32_t c);
// Main battery, system current and the board's climate sensor.
void display_battery_boardSensors(void);
