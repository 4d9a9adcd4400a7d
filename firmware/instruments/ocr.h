// OCR-504 radiometer on the instrument port (UART3): prompt with a line end,
// keep the frame that starts with "S" as text in uart3_prn_buf. Stepped
// through uart3_stateMachine when data_cfg[CFG_UART3_INST] is 2.
#pragma once
#include <stdint.h>

typedef struct {
    int32_t state; // -1 after a buffer overflow
    uint32_t old_tick10ms;
    uint32_t new_tick10ms;
    uint32_t bufIndx; // next write position in uart3_prn_buf
    int32_t dataCnt;  // frames still to read; 1 when opened
} ocrDriver;

extern ocrDriver ocr;

void ocr_init(void); // UART3 at 57600 baud, echo off
void ocr_open(void);
void ocr_close(void);
uint32_t ocr_tx_buf_size(void);
int ocr_buf_write(unsigned char c); // 1 while there is room, 0 on reaching the end
// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ocr_stateMachine(int state);

// Operator tests.
void ocr_comm_test(void);
void ocr_qa_test(void);
