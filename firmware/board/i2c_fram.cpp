// FRAM on I2C bus 0 (device 0x50, 16-bit memory addresses): the raw
// transfers, the probe, and the whole-record stores of the sampling state,
// the last sample and the float-controller record and data buffer.
//
// Every transfer runs with processor interrupts disabled, so no handler ever
// sees a half-written record, and the previous mask is restored afterwards.
// The part writes at bus speed: no page limit, no write delay. Bus faults are
// not detected (a dead chip reads as whatever the controller returns).
#include "board/i2c_fram.h"

#include "console/user_io.h"
#include "core/system.h"
#include "host/apf_util.h"
#include "i2c.h"
#include "interrupt.h"

#define FRAM_PROBE_PATTERN 0xAA55AA55u // 0x55 0xAA 0x55 0xAA read little-endian

static void i2c0_step(uint32_t cmd) {
    I2CMasterControl(I2C0_BASE, cmd);
    while (I2CMasterBusy(I2C0_BASE)) {
    }
}

// One transaction: address high, address low, data..., stop after the last
// byte. A zero-length write sends only the address high byte.
void i2c0_fram_write(uint8_t device, const uint8_t *buffer, uint32_t length, uint32_t address) {
    bool wasMasked = IntMasterDisable();
    I2CMasterSlaveAddrSet(I2C0_BASE, device, false);
    I2CMasterDataPut(I2C0_BASE, (uint8_t)(address >> 8));
    if (length == 0u || buffer == nullptr) {
        i2c0_step(I2C_MASTER_CMD_SINGLE_SEND);
    } else {
        i2c0_step(I2C_MASTER_CMD_BURST_SEND_START);
        I2CMasterDataPut(I2C0_BASE, (uint8_t)address);
        i2c0_step(I2C_MASTER_CMD_BURST_SEND_CONT);
        for (uint32_t i = 0; i < length; i++) {
            I2CMasterDataPut(I2C0_BASE, buffer[i]);
            i2c0_step(i + 1u == length ? I2C_MASTER_CMD_BURST_SEND_FINISH
                                       : I2C_MASTER_CMD_BURST_SEND_CONT);
        }
    }
    if (!wasMasked) {
        IntMasterEnable();
    }
}

// Address phase, repeated start, then the bytes; the last one is not
// acknowledged. A one-byte read is a single receive. `flag` is not used.
void i2c0_fram_read(uint8_t device, uint8_t *buffer, uint32_t length, uint32_t address,
                    uint32_t flag) {
    (void)flag;
    if (length == 0u || buffer == nullptr) {
        return;
    }
    bool wasMasked = IntMasterDisable();
    I2CMasterSlaveAddrSet(I2C0_BASE, device, false);
    I2CMasterDataPut(I2C0_BASE, (uint8_t)(address >> 8));
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_START);
    I2CMasterDataPut(I2C0_BASE, (uint8_t)address);
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_CONT);
    I2CMasterSlaveAddrSet(I2C0_BASE, device, true);
    if (length == 1u) {
        i2c0_step(I2C_MASTER_CMD_SINGLE_RECEIVE);
        buffer[0] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
    } else {
        i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_START);
        buffer[0] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
        for (uint32_t i = 1; i + 1u < length; i++) {
            i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_CONT);
            buffer[i] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
        }
        i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_FINISH);
        buffer[length - 1u] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
    }
    if (!wasMasked) {
        IntMasterEnable();
    }
}

uint32_t fram_probe(void) {
    const uint8_t pattern[4] = {0x55, 0xAA, 0x55, 0xAA};
    uint8_t back[4] = {0, 0, 0, 0};
    i2c0_fram_write(FRAM_I2C_ADDR, pattern, 4, FRAM_ADDR_PROBE);
    i2c0_fram_read(FRAM_I2C_ADDR, back, 4, FRAM_ADDR_PROBE, 0);
    for (uint32_t i = 0; i < 4u; i++) {
        if (back[i] != pattern[i]) {
            return 0;
        }
    }
    return FRAM_PROBE_PATTERN;
}

int32_t fram_init(void) {
    if (fram_probe() == FRAM_PROBE_PATTERN) {
        return 0;
    }
    uprintf("\r\nERROR: FRAM fails probe, do not deploy until resolved\r\n");
    return 1;
}

uint32_t fram_read(uint32_t address, uint8_t *buffer, uint32_t length) {
    i2c0_fram_read(FRAM_I2C_ADDR, buffer, length & 0xFFFFu, address & 0xFFFFu, 0);
    return length;
}

void fram_sys_samp_store(void) {
    i2c0_fram_write(FRAM_I2C_ADDR, (const uint8_t *)&sys_samp, sizeof(sys_samp),
                    FRAM_ADDR_SYS_SAMP);
}

void fram_sys_samp_retrieve(void) {
    i2c0_fram_read(FRAM_I2C_ADDR, (uint8_t *)&sys_samp, sizeof(sys_samp), FRAM_ADDR_SYS_SAMP, 0);
}

void fram_last_samp_store(void) {
    i2c0_fram_write(FRAM_I2C_ADDR, (const uint8_t *)&sampl, sizeof(sampl), FRAM_ADDR_LAST_SAMP);
}

void fram_last_samp_retrieve(void) {
    i2c0_fram_read(FRAM_I2C_ADDR, (uint8_t *)&sampl, sizeof(sampl), FRAM_ADDR_LAST_SAMP, 0);
}

void fram_apf_vars_store(void) {
    i2c0_fram_write(FRAM_I2C_ADDR, (const uint8_t *)&apf, sizeof(apf), FRAM_ADDR_APF_VARS);
}

void fram_apf_vars_retrieve(void) {
    i2c0_fram_read(FRAM_I2C_ADDR, (uint8_t *)&apf, sizeof(apf), FRAM_ADDR_APF_VARS, 0);
}

void fram_apf_store_all(void) {
    fram_apf_vars_store();
    fram_last_samp_store();
}

void fram_apf_dbuf_store(uint8_t *buffer, uint32_t length) {
    i2c0_fram_write(FRAM_I2C_ADDR, buffer, length & 0xFFFFu, FRAM_ADDR_APF_DBUF);
}

void fram_apf_dbuf_retrieve(uint8_t *buffer, uint32_t length) {
    i2c0_fram_read(FRAM_I2C_ADDR, buffer, length & 0xFFFFu, FRAM_ADDR_APF_DBUF, 0);
}
