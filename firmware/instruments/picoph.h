// picoPH meter on the instrument port (UART3): one measure command, the reply
// line kept as text in uart3_prn_buf with its blanks turned into tabs.
// Stepped through uart3_stateMachine when data_cfg[CFG_UART3_INST] is 4.
#pragma once
#include <stdint.h>

typedef struct {
    int32_t state; // every ending leaves 0
    uint32_t old_tick10ms;
    uint32_t new_tick10ms;
    uint32_t bufIndx; // next write position in uart3_prn_buf
} picophDriver;

extern picophDriver picoph;

void picoph_init(void); // UART3 at 19200 baud, echo off
void picoph_open(void);
void picoph_close(void);
uint32_t picoph_tx_buf_size(void);
uint32_t picoph_rx_buf_size(void);
int picoph_rxBytesAvail(void);
int picoph_buf_write(unsigned char c); // 1 while there is room, 0 on reaching the end
// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int picoph_stateMachine(int state);

// Operator tests.
void picoph_oneMeas(void);
void picoph_comm_test(void);
void picoph_qa_test(void);
