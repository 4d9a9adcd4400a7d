// Command-line receiver on the console: one character per call, the keyword
// table and its dispatch.
#pragma once
#include <stdint.h>

typedef struct {
    uint32_t state; // 0 idle, 1 menu requested, 2 collecting, 3 after a wake byte
    uint32_t indx;
    uint32_t cnt;
    uint32_t cr_cnt;
    uint32_t cmd;
    uint32_t tick_ms_start;
    uint32_t tick_ms_now;
    uint32_t tick_ms_delta;
    uint32_t tick_ms_delim; // term time, ms
    uint8_t byte;
    uint8_t buf[64];
} rxStateMach;

extern rxStateMach rx0;

int32_t handle_m2m_comm(void);
void m2m_statemachine_init(void);
uint32_t parse_rx0_buf(void);
void print_prompt(void);
void print_NAK(void);
void save(void);

// Character at position pos of the command line; 0 beyond the 64-byte buffer.
static inline uint8_t rx0_char(uint32_t pos) {
    return pos < sizeof(rx0.buf) ? rx0.buf[pos] : 0;
}
