// Console port (UART0): interrupt-driven 2048-byte transmit and receive rings
// with echo and line editing, the byte layer under the console I/O.
#pragma once
#include <stdarg.h>
#include <stdint.h>

#define UART_STDIO_RX_BUF_SIZE 2048u
#define UART_STDIO_TX_BUF_SIZE 2048u

void UARTStdioConfig(uint32_t portNum, uint32_t baud, uint32_t srcClock);
// LF goes out as CR LF (an LF right after a CR of the same text stays); returns
// the bytes taken. From the foreground a full ring is waited on, never dropped.
int UARTwrite(const char *buf, uint32_t len);
int UARTgets(char *buf, uint32_t len); // blocking line read, see uart3_rx_str
unsigned char UARTgetc(void);          // blocking
void UARTputc(unsigned char c);        // one raw byte, no conversion
int UARTPeek(unsigned char c);         // position of c in the rx ring or -1
int UARTRxBytesAvail(void);
int UARTTxBytesFree(void);
void UARTFlushRx(void);
void UARTFlushTx(bool discard);
void UARTEchoSet(bool enable);
bool UARTrdy(void);        // a received byte is waiting
void wait_consoleTx(void); // until the ring and the transmitter have drained
void UARTStdioIntHandler(void);
