// GPIO pins. GPIOPinRead/Write take a pin mask; reads return the masked levels.
#pragma once
#include "hw_types.h"

#define GPIO_PIN_0 0x01u
#define GPIO_PIN_1 0x02u
#define GPIO_PIN_2 0x04u
#define GPIO_PIN_3 0x08u
#define GPIO_PIN_4 0x10u
#define GPIO_PIN_5 0x20u
#define GPIO_PIN_6 0x40u
#define GPIO_PIN_7 0x80u

// Alternate-function selectors for GPIOPinConfigure (port, pin, function).
#define GPIO_PIN_CFG(port, pin, fn) (((port) << 16) | ((pin) << 8) | (fn))
#define GPIO_PA0_U0RX GPIO_PIN_CFG(0u, 0u, 1u)
#define GPIO_PA1_U0TX GPIO_PIN_CFG(0u, 1u, 1u)
#define GPIO_PA2_SSI0CLK GPIO_PIN_CFG(0u, 2u, 2u)
#define GPIO_PA3_SSI0FSS GPIO_PIN_CFG(0u, 3u, 2u)
#define GPIO_PA4_SSI0RX GPIO_PIN_CFG(0u, 4u, 2u)
#define GPIO_PA5_SSI0TX GPIO_PIN_CFG(0u, 5u, 2u)
#define GPIO_PB2_I2C0SCL GPIO_PIN_CFG(1u, 2u, 3u)
#define GPIO_PB3_I2C0SDA GPIO_PIN_CFG(1u, 3u, 3u)
#define GPIO_PC4_U4RX GPIO_PIN_CFG(2u, 4u, 1u)
#define GPIO_PC5_U4TX GPIO_PIN_CFG(2u, 5u, 1u)
#define GPIO_PC6_U3RX GPIO_PIN_CFG(2u, 6u, 1u)
#define GPIO_PC7_U3TX GPIO_PIN_CFG(2u, 7u, 1u)
#define GPIO_PD0_SSI3CLK GPIO_PIN_CFG(3u, 0u, 1u)
#define GPIO_PD2_SSI3RX GPIO_PIN_CFG(3u, 2u, 1u)
#define GPIO_PD3_SSI3TX GPIO_PIN_CFG(3u, 3u, 1u)
#define GPIO_PD4_U6RX GPIO_PIN_CFG(3u, 4u, 1u)
#define GPIO_PD5_U6TX GPIO_PIN_CFG(3u, 5u, 1u)
#define GPIO_PD6_U2RX GPIO_PIN_CFG(3u, 6u, 1u)
#define GPIO_PD7_U2TX GPIO_PIN_CFG(3u, 7u, 1u)
#define GPIO_PE0_U7RX GPIO_PIN_CFG(4u, 0u, 1u)
#define GPIO_PE1_U7TX GPIO_PIN_CFG(4u, 1u, 1u)
#define GPIO_PE4_U5RX GPIO_PIN_CFG(4u, 4u, 1u)
#define GPIO_PE5_U5TX GPIO_PIN_CFG(4u, 5u, 1u)

void GPIOPinConfigure(uint32_t pinConfig);
void GPIOPinTypeGPIOOutput(uint32_t port, uint8_t pins);
void GPIOPinTypeGPIOInput(uint32_t port, uint8_t pins);
void GPIOPinTypeUART(uint32_t port, uint8_t pins);
void GPIOPinTypeI2C(uint32_t port, uint8_t pins);
void GPIOPinTypeI2CSCL(uint32_t port, uint8_t pins);
void GPIOPinTypeSSI(uint32_t port, uint8_t pins);
int32_t GPIOPinRead(uint32_t port, uint8_t pins);
void GPIOPinWrite(uint32_t port, uint8_t pins, uint8_t val);
