// UART peripherals (16-byte hardware FIFOs). The *NonBlocking calls and the
// status calls may be used from interrupt handlers.
#pragma once
#include "hw_types.h"

#define UART_CONFIG_WLEN_8 0x00000060u
#define UART_CONFIG_STOP_ONE 0x00000000u
#define UART_CONFIG_PAR_NONE 0x00000000u

#define UART_FIFO_TX1_8 0x00000000u
#define UART_FIFO_RX1_8 0x00000000u
#define UART_FIFO_TX4_8 0x00000002u
#define UART_FIFO_RX4_8 0x00000010u

#define UART_INT_RT 0x040u
#define UART_INT_TX 0x020u
#define UART_INT_RX 0x010u
#define UART_INT_ALL 0x7F2u

#define UART_CLOCK_SYSTEM 0x00000000u
#define UART_CLOCK_PIOSC 0x00000005u

void UARTConfigSetExpClk(uint32_t base, uint32_t uartClk, uint32_t baud, uint32_t config);
void UARTClockSourceSet(uint32_t base, uint32_t source);
void UARTFIFOLevelSet(uint32_t base, uint32_t txLevel, uint32_t rxLevel);
void UARTEnable(uint32_t base);
void UARTDisable(uint32_t base);
void UARTIntEnable(uint32_t base, uint32_t intFlags);
void UARTIntDisable(uint32_t base, uint32_t intFlags);
uint32_t UARTIntStatus(uint32_t base, bool masked);
void UARTIntClear(uint32_t base, uint32_t intFlags);
bool UARTCharsAvail(uint32_t base);
int32_t UARTCharGetNonBlocking(uint32_t base); // -1 when the FIFO is empty
bool UARTSpaceAvail(uint32_t base);
bool UARTCharPutNonBlocking(uint32_t base, unsigned char data);
bool UARTBusy(uint32_t base); // transmitter still shifting
