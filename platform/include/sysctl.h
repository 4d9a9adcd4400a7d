// System control: clock, peripheral gates, busy waits, reset, idle.
// Contract: none of these may be called from an interrupt handler except
// SysCtlDelay. SysCtlDelay(n) burns 3*n CPU cycles (50 MHz: 16667 counts = 1 ms).
#pragma once
#include "hw_types.h"

#define SYSCTL_SYSDIV_4 0x01C00000u
#define SYSCTL_USE_PLL 0x00000000u
#define SYSCTL_OSC_MAIN 0x00000000u
#define SYSCTL_XTAL_16MHZ 0x00000540u

#define SYSCTL_PERIPH_EEPROM0 0xf0005800u
#define SYSCTL_PERIPH_HIBERNATE 0xf0001400u
#define SYSCTL_PERIPH_GPIOA 0xf0000800u
#define SYSCTL_PERIPH_GPIOB 0xf0000801u
#define SYSCTL_PERIPH_GPIOC 0xf0000802u
#define SYSCTL_PERIPH_GPIOD 0xf0000803u
#define SYSCTL_PERIPH_GPIOE 0xf0000804u
#define SYSCTL_PERIPH_GPIOF 0xf0000805u
#define SYSCTL_PERIPH_I2C0 0xf0002000u
#define SYSCTL_PERIPH_SSI0 0xf0001c00u
#define SYSCTL_PERIPH_SSI3 0xf0001c03u
#define SYSCTL_PERIPH_UART0 0xf0001800u
#define SYSCTL_PERIPH_UART2 0xf0001802u
#define SYSCTL_PERIPH_UART3 0xf0001803u
#define SYSCTL_PERIPH_UART4 0xf0001804u
#define SYSCTL_PERIPH_UART5 0xf0001805u
#define SYSCTL_PERIPH_UART6 0xf0001806u
#define SYSCTL_PERIPH_UART7 0xf0001807u

void SysCtlClockSet(uint32_t config);
uint32_t SysCtlClockGet(void); // Hz
void SysCtlPeripheralEnable(uint32_t periph);
void SysCtlPeripheralDisable(uint32_t periph);
bool SysCtlPeripheralPresent(uint32_t periph);
bool SysCtlPeripheralReady(uint32_t periph);
void SysCtlDelay(uint32_t count); // blocks 3*count cycles; interrupts still run
[[noreturn]] void SysCtlReset(void);
// Wait for the next interrupt (WFI on the chip). Every polling loop calls this
// (or another platform call) on each pass so that time moves on the simulated
// board; it returns at the latest after the next 1 ms SysTick.
void SysCtlSleep(void);

// FPU and SysTick
void FPUEnable(void);
void FPULazyStackingEnable(void);
void SysTickPeriodSet(uint32_t period); // in CPU cycles
void SysTickEnable(void);
void SysTickIntEnable(void);
