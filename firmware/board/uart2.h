// Auxiliary serial port on UART2 (PD6/PD7).
// Buffered port with 16-byte transmit and receive rings (board/uart_port.h);
// received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART2_BUF_SIZE 16u

extern unsigned char uart2_prn_buf[16]; // scratch line for formatted output to the port

void uart2_init(void);
void uart2_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart2_port_open(void);
void uart2_port_close(void);
void uart2_echo_set(uint8_t on);
int uart2_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart2_write(const char *pcBuf, uint32_t ui32Len);
void uart2_tx_byte(int c);
void uart2_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart2_tx_bufr_bytes_free(void);
int uart2_rx_bytes_avail(void);
void uart2_rx_bufr_flush(void);
int uart2_rx_byte(void);                                  // blocking
int uart2_rx_bufr_peek(int ucChar);                       // position or -1
int uart2_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart2_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart2_isr(void);
