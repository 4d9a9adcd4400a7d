// The sample cycle: one complete measurement, the sample line in prnBuf, the
// last-sample record, and the measurement test routines of the host commands.
#pragma once
#include <stdint.h>

#define PRN_BUF_SIZE 1540u
extern char prnBuf[PRN_BUF_SIZE];

void get_sample(int printFlg, int writeFlg);
void print_sampl(void);
void send_last_sample(void);
void test_get_sample_timing(void);

void test_vrsi(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vrse(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vtherm(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_tempc(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_vk(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_ik(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_ib(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c);
void test_bias_bat(uint32_t num, uint32_t neg, uint32_t pos, uint32_t c);
void display_battery_boardSensors(void);
