// Instrument port on UART3 (PC6/PC7): oxygen optode, OCR-504, NanoFET or picoPH.
// Buffered port with 64-byte transmit and receive rings (board/uart_port.h);
// received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART3_BUF_SIZE 64u

// The instrument line: a reply may use UART3_PRN_BUF_SIZE characters; the
// room behind them takes the drivers' longer error texts, which the
// instrument column prints.
#define UART3_PRN_BUF_SIZE 64u
#define UART3_PRN_BUF_ROOM 96u
extern unsigned char uart3_prn_buf[UART3_PRN_BUF_ROOM];

void uart3_init(void);
void uart3_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart3_port_open(void);
void uart3_port_close(void);
void uart3_echo_set(uint8_t on);
int uart3_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart3_write(const char *pcBuf, uint32_t ui32Len);
void uart3_tx_byte(int c);
void uart3_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart3_tx_bufr_bytes_free(void);
int uart3_rx_bytes_avail(void);
void uart3_rx_bufr_flush(void);
int uart3_rx_byte(void);                                  // blocking
int uart3_rx_bufr_peek(int ucChar);                       // position or -1
int uart3_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart3_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart3_isr(void);

// Steps the driver of the instrument chosen by data_cfg[CFG_UART3_INST]:
// 1 optode, 2 OCR-504, 3 NanoFET, 4 picoPH; anything else is done (0).
// Start with state 1 and call again with each returned state until 0.
int uart3_stateMachine(int state);
