// Peripheral base addresses and interrupt numbers of the TM4C123GH6PM, as the
// vendor's data sheet names them. Both boards use the same numbers so that the
// firmware passes the same constants everywhere.
#pragma once
#include <stdbool.h>
#include <stdint.h>

#define UART0_BASE 0x4000C000u
#define UART1_BASE 0x4000D000u
#define UART2_BASE 0x4000E000u
#define UART3_BASE 0x4000F000u
#define UART4_BASE 0x40010000u
#define UART5_BASE 0x40011000u
#define UART6_BASE 0x40012000u
#define UART7_BASE 0x40013000u

#define GPIO_PORTA_BASE 0x40004000u
#define GPIO_PORTB_BASE 0x40005000u
#define GPIO_PORTC_BASE 0x40006000u
#define GPIO_PORTD_BASE 0x40007000u
#define GPIO_PORTE_BASE 0x40024000u
#define GPIO_PORTF_BASE 0x40025000u

#define SSI0_BASE 0x40008000u
#define SSI3_BASE 0x4000B000u
#define I2C0_BASE 0x40020000u

// Interrupt numbers (vector numbers, as the vendor library uses them)
#define FAULT_SYSTICK 15u
#define INT_GPIOA 16u
#define INT_UART0 21u
#define INT_UART1 22u
#define INT_I2C0 24u
#define INT_UART2 49u
#define INT_SSI3 74u
#define INT_UART3 75u
#define INT_UART4 76u
#define INT_UART5 77u
#define INT_UART6 78u
#define INT_UART7 79u
