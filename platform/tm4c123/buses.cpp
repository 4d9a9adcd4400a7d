// GPIO, SSI and I2C master: stubs until the register-level code lands.
// Inputs read low, SSI reads zeros, and no I2C device answers its address.
#include "gpio.h"
#include "i2c.h"
#include "ssi.h"

void GPIOPinConfigure(uint32_t pinConfig) {}
void GPIOPinTypeGPIOOutput(uint32_t port, uint8_t pins) {}
void GPIOPinTypeGPIOInput(uint32_t port, uint8_t pins) {}
void GPIOPinTypeUART(uint32_t port, uint8_t pins) {}
void GPIOPinTypeI2C(uint32_t port, uint8_t pins) {}
void GPIOPinTypeI2CSCL(uint32_t port, uint8_t pins) {}
void GPIOPinTypeSSI(uint32_t port, uint8_t pins) {}
int32_t GPIOPinRead(uint32_t port, uint8_t pins) {
    return 0;
}
void GPIOPinWrite(uint32_t port, uint8_t pins, uint8_t val) {}

void SSIConfigSetExpClk(uint32_t base, uint32_t clk, uint32_t protocol, uint32_t mode,
                        uint32_t bitRate, uint32_t dataWidth) {}
void SSIEnable(uint32_t base) {}
void SSIDisable(uint32_t base) {}
void SSIDataPut(uint32_t base, uint32_t data) {}
int32_t SSIDataPutNonBlocking(uint32_t base, uint32_t data) {
    return 1;
}
void SSIDataGet(uint32_t base, uint32_t *data) {
    *data = 0u;
}
int32_t SSIDataGetNonBlocking(uint32_t base, uint32_t *data) {
    return 0;
}
bool SSIBusy(uint32_t base) {
    return false;
}

void I2CMasterInitExpClk(uint32_t base, uint32_t i2cClk, bool fast) {}
void I2CMasterEnable(uint32_t base) {}
void I2CMasterSlaveAddrSet(uint32_t base, uint8_t slaveAddr, bool receive) {}
void I2CMasterDataPut(uint32_t base, uint8_t data) {}
uint32_t I2CMasterDataGet(uint32_t base) {
    return 0u;
}
void I2CMasterControl(uint32_t base, uint32_t cmd) {}
bool I2CMasterBusy(uint32_t base) {
    return false;
}
bool I2CMasterBusBusy(uint32_t base) {
    return false;
}
uint32_t I2CMasterErr(uint32_t base) {
    return I2C_MASTER_ERR_ADDR_ACK;
}
