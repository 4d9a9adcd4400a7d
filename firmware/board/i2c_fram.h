// FRAM at I2C address 0x50 (16-bit memory addresses): probe, raw transfers and
// the whole-record stores of the sampling state, last sample and the
// float-controller record and data buffer.
#pragma once
#include <stdint.h>

#define FRAM_I2C_ADDR 0x50u
#define FRAM_ADDR_PROBE 0u
#define FRAM_ADDR_SYS_SAMP 64u
#define FRAM_ADDR_LAST_SAMP 128u
#define FRAM_ADDR_APF_VARS 256u
#define FRAM_ADDR_APF_DBUF 1024u

void i2c0_fram_write(uint8_t device, const uint8_t *buffer, uint32_t length, uint32_t address);
void i2c0_fram_read(uint8_t device, uint8_t *buffer, uint32_t length, uint32_t address,
                    uint32_t flag);
int32_t fram_init(void);
uint32_t fram_probe(void);
uint32_t fram_read(uint32_t address, uint8_t *buffer, uint32_t length);
void fram_sys_samp_store(void);
void fram_sys_samp_retrieve(void);
void fram_last_samp_store(void);
void fram_last_samp_retrieve(void);
void fram_apf_vars_store(void);
void fram_apf_vars_retrieve(void);
void fram_apf_store_all(void);
void fram_apf_dbuf_store(uint8_t *buffer, uint32_t length);
void fram_apf_dbuf_retrieve(uint8_t *buffer, uint32_t length);
