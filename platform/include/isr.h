// Interrupt handlers that the firmware provides and each board's vector table
// (or the simulated interrupt controller) calls.
#pragma once

void SysTickIntHandler(void);
void UARTStdioIntHandler(void);
void uart2_isr(void);
void uart3_isr(void);
void uart4_isr(void);
void uart5_isr(void);
void uart6_isr(void);
void uart7_isr(void);
void faultISR_handler(void);
