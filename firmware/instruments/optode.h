// Oxygen optode on the instrument port (UART3): wait for its "%", answer with
// CR LF, take its "!", send "do sample" and keep the reply line (ended by "#")
// as text in uart3_prn_buf for the instrument column. Stepped through
// uart3_stateMachine when data_cfg[CFG_UART3_INST] is 1.
#pragma once
#include <stdint.h>

typedef struct {
    int32_t state; // -1 after a failure
    uint32_t old_tick10ms;
    uint32_t new_tick10ms;
    uint32_t bufIndx; // next write position in uart3_prn_buf
} optodeDriver;

extern optodeDriver optode;

void optode_init(void); // UART3 at 9600 baud, echo off
void optode_open(void);
void optode_close(void);
int optode_getc(void); // next received byte (waits for it)
uint32_t optode_tx_buf_size(void);
uint32_t optode_rx_buf_size(void);
int optode_buf_write(unsigned char c); // 1 while there is room, 0 on reaching the end
uint32_t optode_waitRx(uint32_t maxWait);
// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int optode_stateMachine(int state);
void optode_parseData(void); // the reply is kept as text

// Operator tests.
void optode_poll(void);
void optode_comm_test(void);
void optode_serial_analyzer(void);
void optode_qa_test(void);
