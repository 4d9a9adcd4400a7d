// SBE37 CTD on the CTD port (UART4): take-sample exchange.
//
// State 1 opens the port, 2 waits for the CTD to be ready and sends CR then
// "ts", 3 collects the reply one byte per step until its LF (or "<"). Every
// ending returns 0: state 0 after a parsed (or unparsable) line, -1 after an
// over-long reply, a time-out or an unknown state. Does not power the CTD.
#include "instruments/ctd_sbe37.h"

#include <stdio.h>

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/ctd_base.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing, in 10-ms ticks unless named otherwise.
static const uint32_t SBE37_READY_TICKS = 90;  // before the wake-up CR
static const uint32_t SBE37_CMD_GAP_MS = 20;   // after the CR and after "ts"
static const uint32_t SBE37_REPLY_TICKS = 350; // reply must end within 3.5 s
static const uint32_t SBE37_OPEN_SETTLE_MS = 1;
static const uint8_t SBE37_TYPE = 6;

static int sbe37_timeout(void) {
    ctd_line_text(
        "CTD not responding with SBE37 data, check connection, make sure data config is SBE37");
    ctd_close();
    ctd.type = 0;
    ctd.state = -1;
    return 0;
}

int ctd_sbe37_stateMachine(int ctdState) {
    ctd.state = ctdState;
    switch (ctdState) {
    case 0:
        return 0;

    case 1:
        if (!ctd_start(SBE37_TYPE, SBE37_OPEN_SETTLE_MS)) {
            return 0;
        }
        ctd.state = 2;
        return 2;

    case 2:
        ctd.new_tick10ms = Timer_10ms(0);
        if (ctd.new_tick10ms - ctd.old_tick10ms < SBE37_READY_TICKS) {
            inst_idle();
            return 2;
        }
        uart4_tx_byte('\r');
        delay_msec(SBE37_CMD_GAP_MS);
        uart4_tx_byte('t');
        uart4_tx_byte('s');
        uart4_tx_byte('\r');
        delay_msec(SBE37_CMD_GAP_MS);
        // The echo and the wake-up prompt go; the reply comes later.
        uart4_rx_bufr_flush();
        ctd.old_tick10ms = Timer_10ms(0);
        ctd.state = 3;
        return 3;

    case 3:
        if (uart4_rx_bytes_avail() > 0) {
            unsigned char c = (unsigned char)ctd_getc();
            if (c == ',') {
                c = '\t';
            } else if (c == '\r') {
                c = 0;
            }
            if (c == '<' || c == '\n') {
                ctd_close();
                ctd_sbe37_parseData();
                wait_consoleTx();
                ctd.state = 0;
                return 0;
            }
            uart4_prn_buf[ctd.bufIndx] = c;
            ctd.bufIndx++;
            if (ctd.bufIndx >= CTD_BUF_SIZE) {
                ctd.bufIndx = CTD_BUF_SIZE - 1u;
                if (sys_data.diag != 0u) {
                    uprintf("\r\nST7: error in ctd driver bufIndx exceeds buf size, ctd\r\n");
                }
                ctd_line_text("ST7: error in ctd driver bufIndx exceeds buf size, ctd");
                wait_consoleTx();
                ctd_close();
                ctd.type = 0;
                ctd.state = -1;
                return 0;
            }
        } else {
            inst_idle();
        }
        ctd.new_tick10ms = Timer_10ms(0);
        if (ctd.new_tick10ms - ctd.old_tick10ms < SBE37_REPLY_TICKS) {
            ctd.state = 3;
            return 3;
        }
        return sbe37_timeout();

    default:
        ctd.type = 0;
        ctd.state = -1;
        return 0;
    }
}

void ctd_sbe37_parseData(void) {
    float temp = 0.0f;
    float second = 0.0f;
    float third = 0.0f;
    char date[UART4_PRN_BUF_ROOM];
    char time[UART4_PRN_BUF_ROOM];
    int n = sscanf((const char *)uart4_prn_buf, "%f\t%f\t%f\t%95s\t%95s", &temp, &second, &third,
                   date, time);
    if (n < 5) {
        uprintf("\r\nError:  sscanf for parsing MicroCat does not return 5 args.  ctd.state = %d.  "
                "TempC and salt are 0.0\r\n",
                (int)ctd.state);
        uprintf("%s\r\n", (const char *)uart4_prn_buf);
        temp = 0.0f;
        third = 0.0f;
    }
    ctd.salt = third;
    ctd.tempC = temp;
    sys_samp.sensor_sal = third;
}

void ctd_sbe37_poll(void) {
    inst_op_poll(uart4_stateMachine, uart4_prn_buf);
    uprintf("TempC = %.4f  Salinity = %.4f\r\n", (double)ctd.tempC, (double)ctd.salt);
}

void ctd_sbe37_comm_test(void) {
    ctd_init();
    inst_op_terminal(uart4_rx_bytes_avail, uart4_rx_byte, uart4_tx_byte);
}

void ctd_sbe37_serial_analyzer(void) {
    ctd_init();
    uprintf("ctd microcat serial analyzer, bytes and times  Ctrl-X to quit\r\n");
    inst_op_analyzer(uart4_rx_bytes_avail, uart4_rx_byte);
}

void ctd_sbe37_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("SBE37 QA: one reading\r\n");
    ctd_sbe37_poll();
}
