// Auxiliary serial port on UART6 (PD4/PD5).
// Buffered port with 32-byte transmit and receive rings (board/uart_port.h);
// received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART6_BUF_SIZE 32u

extern unsigned char uart6_prn_buf[32]; // scratch line for formatted output to the port

void uart6_init(void);
void uart6_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart6_port_open(void);
void uart6_port_close(void);
void uart6_echo_set(uint8_t on);
int uart6_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart6_write(const char *pcBuf, uint32_t ui32Len);
void uart6_tx_byte(int c);
void uart6_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart6_tx_bufr_bytes_free(void);
int uart6_rx_bytes_avail(void);
void uart6_rx_bufr_flush(void);
int uart6_rx_byte(void);                                  // blocking
int uart6_rx_bufr_peek(int ucChar);                       // position or -1
int uart6_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart6_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart6_isr(void);
