// CTD port link on UART4: the ctdDriver record, port set-up, byte access and
// the receive wait that the CTD drivers (SBE37, Aanderaa 5860) share. The
// reply is collected in uart4_prn_buf, which the sample line prints as the
// CTD column. Owns no state machine; the drivers do.
#pragma once
#include <stdint.h>

#include "board/uart4.h"

// Characters a CTD reply may occupy in uart4_prn_buf.
#define CTD_BUF_SIZE UART4_PRN_BUF_SIZE

typedef struct {
    int32_t state;         // current step; -1 after a failed reading
    uint32_t old_tick10ms; // 10-ms tick at the start of a wait
    uint32_t new_tick10ms; // 10-ms tick read while waiting
    uint32_t type;         // 6 SBE37, 7 Aanderaa 5860, 0 none or failed
    float condo;
    float salt;
    float tempC;
    float pressure;
    float depth;
    uint32_t bufIndx; // next write position in uart4_prn_buf
} ctdDriver;

extern ctdDriver ctd;

void ctd_init(void); // UART4 at 9600 baud from the 16 MHz clock, echo off
void ctd_open(void); // state 0, bufIndx 0
void ctd_close(void);
int ctd_getc(void); // next received byte (waits for it)
void ctd_flushTx(int flag);
uint32_t ctd_tx_buf_size(void);
uint32_t ctd_rx_buf_size(void);
int ctd_buf_putc(unsigned char c); // 1 while there is room, 0 on reaching the end
// Waits for a received byte: ticks waited, maxWait at the time-out (maxWait
// non-zero), 0 if the tick counter went backwards.
uint32_t ctd_waitRx(uint32_t maxWait);

// First step of a reading: opens the port, lets the CTD settle, empties both
// directions and starts the wait timer. Returns 1 when the record selects
// `type`; otherwise reports the missing driver, marks the reading done and
// returns 0.
int ctd_start(uint32_t type, uint32_t settle_ms);

// Writes a text into the CTD line (the room behind the reply takes it).
void ctd_line_text(const char *text);
