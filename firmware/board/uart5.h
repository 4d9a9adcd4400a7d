// Auxiliary serial port on UART5 (PE4/PE5).
// Buffered port with 16-byte transmit and receive rings (board/uart_port.h);
// received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART5_BUF_SIZE 16u

extern unsigned char uart5_prn_buf[16]; // scratch line for formatted output to the port

void uart5_init(void);
void uart5_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart5_port_open(void);
void uart5_port_close(void);
void uart5_echo_set(uint8_t on);
int uart5_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart5_write(const char *pcBuf, uint32_t ui32Len);
void uart5_tx_byte(int c);
void uart5_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart5_tx_bufr_bytes_free(void);
int uart5_rx_bytes_avail(void);
void uart5_rx_bufr_flush(void);
int uart5_rx_byte(void);                                  // blocking
int uart5_rx_bufr_peek(int ucChar);                       // position or -1
int uart5_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart5_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart5_isr(void);
