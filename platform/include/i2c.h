// I2C master. I2CMasterControl starts a bus step; poll I2CMasterBusy until it
// reports false before the next step (each poll advances simulated time).
#pragma once
#include "hw_types.h"

#define I2C_MASTER_CMD_SINGLE_SEND 0x00000007u
#define I2C_MASTER_CMD_SINGLE_RECEIVE 0x00000007u
#define I2C_MASTER_CMD_BURST_SEND_START 0x00000003u
#define I2C_MASTER_CMD_BURST_SEND_CONT 0x00000001u
#define I2C_MASTER_CMD_BURST_SEND_FINISH 0x00000005u
#define I2C_MASTER_CMD_BURST_RECEIVE_START 0x0000000bu
#define I2C_MASTER_CMD_BURST_RECEIVE_CONT 0x00000009u
#define I2C_MASTER_CMD_BURST_RECEIVE_FINISH 0x00000005u
#define I2C_MASTER_CMD_BURST_SEND_ERROR_STOP 0x00000004u

#define I2C_MASTER_ERR_NONE 0u
#define I2C_MASTER_ERR_ADDR_ACK 0x00000004u
#define I2C_MASTER_ERR_DATA_ACK 0x00000008u

void I2CMasterInitExpClk(uint32_t base, uint32_t i2cClk, bool fast);
void I2CMasterEnable(uint32_t base);
void I2CMasterSlaveAddrSet(uint32_t base, uint8_t slaveAddr, bool receive);
void I2CMasterDataPut(uint32_t base, uint8_t data);
uint32_t I2CMasterDataGet(uint32_t base);
void I2CMasterControl(uint32_t base, uint32_t cmd);
bool I2CMasterBusy(uint32_t base);
bool I2CMasterBusBusy(uint32_t base);
uint32_t I2CMasterErr(uint32_t base);
