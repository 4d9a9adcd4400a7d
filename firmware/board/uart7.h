// Auxiliary serial port on UART7 (PE0/PE1). Those pins are also the isolated supply enable and the
// ADC's DRDY line: the two uses exclude each other. Buffered port with 16-byte transmit and receive
// rings (board/uart_port.h); received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART7_BUF_SIZE 16u

extern unsigned char uart7_prn_buf[16]; // scratch line for formatted output to the port

void uart7_init(void);
void uart7_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart7_port_open(void);
void uart7_port_close(void);
void uart7_echo_set(uint8_t on);
int uart7_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart7_write(const char *pcBuf, uint32_t ui32Len);
void uart7_tx_byte(int c);
void uart7_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart7_tx_bufr_bytes_free(void);
int uart7_rx_bytes_avail(void);
void uart7_rx_bufr_flush(void);
int uart7_rx_byte(void);                                  // blocking
int uart7_rx_bufr_peek(int ucChar);                       // position or -1
int uart7_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart7_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart7_isr(void);
