// NanoFET pH instrument on the instrument port (UART3): wake it, send "ts",
// keep the reply line as text in uart3_prn_buf. Stepped through
// uart3_stateMachine when data_cfg[CFG_UART3_INST] is 3.
#pragma once
#include <stdint.h>

typedef struct {
    int32_t state; // -1 after a failure
    uint32_t old_tick10ms;
    uint32_t new_tick10ms;
    uint32_t bufIndx; // next write position in uart3_prn_buf
} nanofetDriver;

extern nanofetDriver nanofet;

void nanofet_init(void); // UART3 at 115200 baud, echo off
void nanofet_open(void);
void nanofet_close(void);
uint32_t nanofet_tx_buf_size(void);
int nanofet_buf_write(unsigned char c); // 1 while there is room, 0 on reaching the end
uint32_t nanofet_waitRx(uint32_t maxWait);
// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int nanofet_stateMachine(int state);

// Operator tests.
void nanofet_poll(void);
void nanofet_comm_test(void);
void nanofet_serial_analyzer(void);
void nanofet_qa_test(void);
