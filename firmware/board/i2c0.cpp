// I2C bus 0 (PB2 SCL, PB3 SDA): the master at the standard 100 kHz bus clock,
// the bus scan and the plain register transfers of the devices on it. Every
// transfer is a blocking master transaction that polls the controller until
// it is idle; a missing device shows as an address-acknowledge error.
// The devices themselves (FRAM, climate sensor, expander, power monitors)
// have their own modules.
#include "board/i2c0.h"

#include "board/uartstdio.h"
#include "console/user_io.h"
#include "gpio.h"
#include "i2c.h"
#include "sysctl.h"

namespace {

struct KnownPart {
    uint8_t addr;
    const char *label;
};

// The parts this controller family may carry, as the scan names them.
const KnownPart kKnownParts[] = {
    {0x20, "  PCAL6416 I/O expander on baseboard \r\n"},
    {0x21, "  PCA6408A I/O expander on Tiva Module \r\n"},
    {0x40, "  INA260 on Tiva 1290 'brisko' Module \r\n"},
    {0x4C, "  INA260 on baseboard \r\n"},
    {0x4F, "  INA260 on baseboard \r\n"},
    {0x50, "  FRAM on Tiva Module \r\n"},
    {0x51, "  FRAM on Tiva Module \r\n"},
    {0x68, "  DS3231 RTC on baseboard \r\n"},
    {0x6B, "  DS1683 Event Timer on baseboard \r\n"},
    {0x77, "  BME280 on baseboard \r\n"},
};

const uint8_t kLastScanAddr = 126;

void i2c0_step(uint32_t cmd) {
    I2CMasterControl(I2C0_BASE, cmd);
    while (I2CMasterBusy(I2C0_BASE)) {
    }
}

bool addr_nacked(void) {
    return (I2CMasterErr(I2C0_BASE) & I2C_MASTER_ERR_ADDR_ACK) != 0u;
}

// A burst whose address was not acknowledged still holds the controller in
// its transmit state until a stop is sent.
bool burst_start_failed(void) {
    if (!addr_nacked()) {
        return false;
    }
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_ERROR_STOP);
    return true;
}

} // namespace

void i2c0_init(void) {
    SysCtlPeripheralEnable(SYSCTL_PERIPH_I2C0);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOB);
    GPIOPinConfigure(GPIO_PB2_I2C0SCL);
    GPIOPinConfigure(GPIO_PB3_I2C0SDA);
    GPIOPinTypeI2CSCL(GPIO_PORTB_BASE, GPIO_PIN_2);
    GPIOPinTypeI2C(GPIO_PORTB_BASE, GPIO_PIN_3);
    I2CMasterInitExpClk(I2C0_BASE, SysCtlClockGet(), false);
}

int i2c0_addr_ack(uint8_t i2cAddr) {
    I2CMasterSlaveAddrSet(I2C0_BASE, i2cAddr, false);
    I2CMasterDataPut(I2C0_BASE, 0);
    i2c0_step(I2C_MASTER_CMD_SINGLE_SEND);
    return addr_nacked() ? 0 : 1;
}

int i2c0_busScan(void) {
    while (I2CMasterBusBusy(I2C0_BASE)) {
        uprintf("\r\nI2C0 Bus busy");
    }
    uprintf("\r\nI2C0 Bus-Scan start...\r\n");
    for (uint8_t addr = 0; addr <= kLastScanAddr; addr++) {
        if (i2c0_addr_ack(addr) == 0) {
            continue;
        }
        uprintf("Address found:     0x%2x - %3d   (0x%02x)", addr, addr, addr >> 1);
        const char *label = "\r\n";
        for (const KnownPart &p : kKnownParts) {
            if (p.addr == addr) {
                label = p.label;
            }
        }
        uprintf("%s", label);
        wait_consoleTx();
    }
    uprintf("\r\nI2C0 Bus-Scan done...\r\n");
    return 1;
}

int i2c0_reg_write(uint8_t i2cAddr, uint8_t reg, uint8_t value) {
    I2CMasterSlaveAddrSet(I2C0_BASE, i2cAddr, false);
    I2CMasterDataPut(I2C0_BASE, reg);
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_START);
    if (burst_start_failed()) {
        return 1;
    }
    I2CMasterDataPut(I2C0_BASE, value);
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_FINISH);
    return I2CMasterErr(I2C0_BASE) != I2C_MASTER_ERR_NONE ? 1 : 0;
}

int i2c0_reg_read(uint8_t i2cAddr, uint8_t reg, uint8_t *buffer, uint32_t length) {
    if (buffer == nullptr || length == 0u) {
        return 0;
    }
    I2CMasterSlaveAddrSet(I2C0_BASE, i2cAddr, false);
    I2CMasterDataPut(I2C0_BASE, reg);
    i2c0_step(I2C_MASTER_CMD_BURST_SEND_START);
    if (burst_start_failed()) {
        return 1;
    }
    I2CMasterSlaveAddrSet(I2C0_BASE, i2cAddr, true);
    if (length == 1u) {
        i2c0_step(I2C_MASTER_CMD_SINGLE_RECEIVE);
        buffer[0] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
        return 0;
    }
    i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_START);
    buffer[0] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
    for (uint32_t i = 1; i + 1u < length; i++) {
        i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_CONT);
        buffer[i] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
    }
    i2c0_step(I2C_MASTER_CMD_BURST_RECEIVE_FINISH);
    buffer[length - 1u] = (uint8_t)I2CMasterDataGet(I2C0_BASE);
    return 0;
}
