// I2C bus 0 (PB2 SCL, PB3 SDA): the master at the standard 100 kHz bus clock.
// The devices on the bus (FRAM, climate sensor, expander, power monitors)
// have their own modules.
#include "board/i2c0.h"

#include "gpio.h"
#include "i2c.h"
#include "sysctl.h"

void i2c0_init(void) {
    SysCtlPeripheralEnable(SYSCTL_PERIPH_I2C0);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOB);
    GPIOPinConfigure(GPIO_PB2_I2C0SCL);
    GPIOPinConfigure(GPIO_PB3_I2C0SDA);
    GPIOPinTypeI2CSCL(GPIO_PORTB_BASE, GPIO_PIN_2);
    GPIOPinTypeI2C(GPIO_PORTB_BASE, GPIO_PIN_3);
    I2CMasterInitExpClk(I2C0_BASE, SysCtlClockGet(), false);
}
