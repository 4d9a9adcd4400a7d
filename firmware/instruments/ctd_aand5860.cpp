// Aanderaa 5860 CTD on the CTD port (UART4): "do sample" exchange.
//
// State 1 opens the port, 4 waits for the sensor's "%" and its "!" after a
// CR LF and sends "do sample", 5 reads the reply line in one step once its
// first byte is there. States 2 and 3 are not used. Every ending returns 0;
// failures leave the state at -1. Does not power the sensor.
#include "instruments/ctd_aand5860.h"

#include <stdio.h>

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/ctd_base.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing, in 10-ms ticks.
static const uint32_t AAND_WAKE_TICKS = 250;   // "%" within 2.5 s of the start
static const uint32_t AAND_BANG_TICKS = 200;   // "!" after the CR LF (our bound)
static const uint32_t AAND_REPLY_TICKS = 500;  // first reply byte within 5 s
static const uint32_t AAND_CHAR_GAP_TICKS = 5; // 50 ms between reply bytes
static const uint32_t AAND_OPEN_SETTLE_MS = 1;
static const uint8_t AAND_TYPE = 7;

// "do sample" with its CR LF and the string end, as the sensor has always
// been sent it.
static const char AAND_DO_SAMPLE[] = "do sample\r\n";

// The byte after "%": the sensor answers the CR LF at once; a sensor that
// never does gives -1 after AAND_BANG_TICKS rather than stopping the board.
static int aand_next_byte(void) {
    if (ctd_waitRx(AAND_BANG_TICKS) >= AAND_BANG_TICKS) {
        return -1;
    }
    return inst_take(uart4_rx_bytes_avail, uart4_rx_byte);
}

static int aand_fail(void) {
    ctd_close();
    ctd.state = -1;
    return 0;
}

// The reply, read in this one step: CR becomes a string end, "#" ends it.
static int aand_collect(void) {
    for (;;) {
        if (ctd_waitRx(AAND_CHAR_GAP_TICKS) >= AAND_CHAR_GAP_TICKS || uart4_rx_bytes_avail() <= 0) {
            if (sys_data.diag != 0u) {
                uprintf("\r\nDEBUG: inter-character delay exceeded 50msec receiving do_sample "
                        "string\r\n");
            }
            ctd_line_text("CTD driver Err: inter-character delay exceeded 50msec receiving "
                          "do_sample string");
            return aand_fail();
        }
        unsigned char c = (unsigned char)ctd_getc();
        if (c == '\r') {
            c = 0;
        }
        if (c == '#') {
            ctd_aand5860_parseData();
            ctd_close();
            ctd.state = 0;
            return 0;
        }
        uart4_prn_buf[ctd.bufIndx] = c;
        ctd.bufIndx++;
        if (ctd.bufIndx >= CTD_BUF_SIZE) {
            ctd.bufIndx = CTD_BUF_SIZE - 1u;
            if (sys_data.diag != 0u) {
                uprintf("\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd_base\r\n");
            }
            return aand_fail();
        }
    }
}

int ctd_aand5860_stateMachine(int ctdState) {
    if (ctdState == 0) {
        ctd.state = 0;
        return 0;
    }
    ctd.state = ctdState;
    switch (ctdState) {
    case 1:
        if (!ctd_start(AAND_TYPE, AAND_OPEN_SETTLE_MS)) {
            return 0;
        }
        ctd.state = 4;
        return 4;

    case 4:
        if (uart4_rx_bytes_avail() > 0 && ctd_getc() == '%') {
            ctd.old_tick10ms = Timer_10ms(0);
            uart4_tx_byte('\r');
            uart4_tx_byte('\n');
            if (aand_next_byte() == '!') {
                for (uint32_t i = 0; i < sizeof(AAND_DO_SAMPLE); i++) {
                    uart4_tx_byte(AAND_DO_SAMPLE[i]);
                }
                ctd.old_tick10ms = Timer_10ms(0);
                ctd.state = 5;
                return 5;
            }
            if (sys_data.diag != 0u) {
                uprintf("CTD Err: did not receive ! after crlf following %%\r\n");
            }
            wait_consoleTx();
            ctd.state = -1;
            return 0;
        }
        ctd.new_tick10ms = Timer_10ms(0);
        if (ctd.new_tick10ms - ctd.old_tick10ms >= AAND_WAKE_TICKS) {
            if (sys_data.diag != 0u) {
                uprintf("\r\nNo CTD response in 2.5sec, statemachine pumping too slow or "
                        "instrument not connected\r\n");
            }
            ctd_line_text("CTD not responding with Aanderaa % then ! after powerup");
            wait_consoleTx();
            ctd.state = -1;
            return 0;
        }
        inst_idle();
        ctd.state = 4;
        return 4;

    case 5:
        if (uart4_rx_bytes_avail() <= 0) {
            ctd.new_tick10ms = Timer_10ms(0);
            if (ctd.new_tick10ms - ctd.old_tick10ms < AAND_REPLY_TICKS) {
                inst_idle();
                return 5;
            }
            ctd_line_text("CTD not responding with sample string after do sample");
            return aand_fail();
        }
        ctd.old_tick10ms = Timer_10ms(0);
        return aand_collect();

    default:
        ctd.type = 0;
        ctd.state = -1;
        return 0;
    }
}

void ctd_aand5860_parseData(void) {
    float cond = 0.0f;
    float temp = 0.0f;
    float sal = 0.0f;
    float spare1 = 0.0f;
    float spare2 = 0.0f;
    // Product and serial number are skipped, not stored: a number beyond
    // 32 bits then reads alike on every C library.
    int n = sscanf((const char *)uart4_prn_buf, "%*u %*u %f %f %f %f %f", &cond, &temp, &sal,
                   &spare1, &spare2);
    if (n < 5) {
        uprintf("\r\nError:  sscanf for parsing Aanderaa 5860 does not return 7 args.  ctd.type = "
                "%u.  TempC and salt are 0.0\r\n",
                (unsigned)ctd.type);
        uprintf("\r\nCheck setup of Aanderaa 5860, enable derived, raw, etc.   To Fix, use Test "
                "Menu, Communicate with Instrument\r\n");
        cond = 0.0f;
        temp = 0.0f;
        sal = 0.0f;
    }
    ctd.salt = sal;
    ctd.condo = cond;
    ctd.tempC = temp;
    sys_samp.sensor_sal = sal;
}

void ctd_aand5860_poll(void) {
    inst_op_poll(uart4_stateMachine, uart4_prn_buf);
    uprintf("Cond = %.4f  TempC = %.4f  Salinity = %.4f\r\n", (double)ctd.condo, (double)ctd.tempC,
            (double)ctd.salt);
}

void ctd_aand5860_comm_test(void) {
    ctd_init();
    inst_op_terminal(uart4_rx_bytes_avail, uart4_rx_byte, uart4_tx_byte);
}

void ctd_aand5860_serial_analyzer(void) {
    ctd_init();
    uprintf("ctd aanderaa 5860 serial analyzer, bytes and times  Ctrl-X to quit\r\n");
    inst_op_analyzer(uart4_rx_bytes_avail, uart4_rx_byte);
}

void ctd_aand5860_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("Aanderaa 5860 QA: one reading\r\n");
    ctd_aand5860_poll();
}
