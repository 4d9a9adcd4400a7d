// CTD port on UART4: SBE37 or Aanderaa 5860. The CTD driver sets the port up.
// Buffered port with 16-byte transmit and receive rings (board/uart_port.h);
// received characters are echoed to the console when echo is on.
#pragma once
#include <stdint.h>

#define UART4_BUF_SIZE 16u

// The CTD line: a reply may use UART4_PRN_BUF_SIZE characters; the room
// behind them takes the drivers' error texts, which the CTD column prints.
#define UART4_PRN_BUF_SIZE 16u
#define UART4_PRN_BUF_ROOM 96u
extern unsigned char uart4_prn_buf[UART4_PRN_BUF_ROOM];

void uart4_init(void);
void uart4_setup(uint32_t ui32Baud, uint32_t ui32SrcClock);
void uart4_port_open(void);
void uart4_port_close(void);
void uart4_echo_set(uint8_t on);
int uart4_write(const unsigned char *pcBuf,
                uint32_t ui32Len); // LF goes out as CR LF; drops when full
int uart4_write(const char *pcBuf, uint32_t ui32Len);
void uart4_tx_byte(int c);
void uart4_tx_bufr_flush(int discard); // discard != 0: drop queued bytes, else wait until sent
int uart4_tx_bufr_bytes_free(void);
int uart4_rx_bytes_avail(void);
void uart4_rx_bufr_flush(void);
int uart4_rx_byte(void);                                  // blocking
int uart4_rx_bufr_peek(int ucChar);                       // position or -1
int uart4_rx_str(unsigned char *pcBuf, uint32_t ui32Len); // blocking line read
int uart4_rx_buf(unsigned char *pcBuf, uint32_t ui32Len); // len bytes, then one more dropped
void uart4_isr(void);

// Steps the CTD driver chosen by data_cfg[CFG_UART4_INST]: 6 SBE37,
// 7 Aanderaa 5860; anything else is done (0).
int uart4_stateMachine(int state);
