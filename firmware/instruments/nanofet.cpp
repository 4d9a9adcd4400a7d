// NanoFET on the instrument port (UART3): "ts" exchange.
//
// State 1 wakes the instrument and sends "ts" in one step, 2 collects the
// reply one byte per step until its CR, 3 lets the instrument finish. Every
// ending returns 0; failures leave the state at -1. Does not power the
// instrument.
#include "instruments/nanofet.h"

#include "board/board_util.h"
#include "board/uart3.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing.
static const uint32_t NANOFET_OPEN_SETTLE_MS = 100; // before the wake-up line
static const uint32_t NANOFET_WAKE_GAP_MS = 100;    // between the two wake-up lines
static const uint32_t NANOFET_READY_MS = 300;       // before "ts"
static const uint32_t NANOFET_REPLY_TICKS = 500;    // 5 s for the first byte and between bytes
static const uint32_t NANOFET_DONE_MS = 50;         // after the line's CR
static const uint32_t NANOFET_BAUD = 115200u;

nanofetDriver nanofet;

void nanofet_init(void) {
    uart3_init();
    uart3_setup(NANOFET_BAUD, 16000000u);
    uart3_echo_set(0);
}

void nanofet_open(void) {
    nanofet.state = 0;
    nanofet.bufIndx = 0;
    inst_clear_room(uart3_prn_buf, UART3_PRN_BUF_SIZE, UART3_PRN_BUF_ROOM);
}

void nanofet_close(void) {}

uint32_t nanofet_tx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

int nanofet_buf_write(unsigned char c) {
    uart3_prn_buf[nanofet.bufIndx] = c;
    nanofet.bufIndx++;
    if (nanofet.bufIndx < UART3_PRN_BUF_SIZE) {
        return 1;
    }
    uprintf("\r\nDEBUG: error in nanofet driver bufIndx exceeds buf size, nanofet\r\n");
    nanofet.bufIndx = UART3_PRN_BUF_SIZE - 1u;
    if (sys_data.diag != 0u) {
        uprintf("\r\nDEBUG: error in nanofet driver bufIndx exceeds buf size, nanofet\r\n");
    }
    wait_consoleTx();
    return 0;
}

uint32_t nanofet_waitRx(uint32_t maxWait) {
    return inst_waitRx(uart3_rx_bytes_avail, maxWait,
                       "DEBUG: nanofet_waitRx 10msTick timer rolled over\r\n");
}

static void nanofet_text(const char *text) {
    inst_line_text(uart3_prn_buf, UART3_PRN_BUF_ROOM, text);
}

int nanofet_stateMachine(int nanofetState) {
    nanofet.state = nanofetState;
    switch (nanofetState) {
    case 1:
        nanofet_init();
        nanofet_open();
        delay_msec(NANOFET_OPEN_SETTLE_MS);
        uart3_rx_bufr_flush();
        uart3_tx_bufr_flush(1);
        inst_send_raw(uart3_tx_byte, " \r\n", 3);
        delay_msec(NANOFET_WAKE_GAP_MS);
        inst_send_raw(uart3_tx_byte, "\r\n", 2);
        delay_msec(NANOFET_READY_MS);
        uart3_rx_bufr_flush();
        uart3_tx_bufr_flush(1);
        inst_send_raw(uart3_tx_byte, "ts\r\n", 4);
        nanofet.old_tick10ms = Timer_10ms(0);
        nanofet.state = 2;
        return 2;

    case 2: {
        if (uart3_rx_bytes_avail() <= 0) {
            nanofet.new_tick10ms = Timer_10ms(0);
            if (nanofet.new_tick10ms - nanofet.old_tick10ms < NANOFET_REPLY_TICKS) {
                inst_idle();
                return 2;
            }
            if (sys_data.diag != 0u) {
                uprintf("\r\nNanoFET power on did not receive sample string after sending ts - "
                        "check nanofet connection or setup\r\n");
            }
            nanofet_text("NanoFET not responding with sample string after ts");
            wait_consoleTx();
            nanofet.state = -1;
            return 0;
        }
        nanofet.old_tick10ms = Timer_10ms(0);
        if (nanofet_waitRx(NANOFET_REPLY_TICKS) >= NANOFET_REPLY_TICKS ||
            uart3_rx_bytes_avail() <= 0) {
            if (sys_data.diag != 0u) {
                uprintf("\r\nDEBUG: inter-character delay exceeded 50msec receiving do_sample "
                        "string\r\n");
            }
            nanofet_text("NanoFET Err ST2: inter-character delay exceeded 50msec receiving "
                         "do_sample string");
            return 0;
        }
        unsigned char c = (unsigned char)uart3_rx_byte();
        if (c == '\r') {
            if (!nanofet_buf_write(0)) {
                nanofet.state = -1;
                return 0;
            }
            return 3;
        }
        if (!nanofet_buf_write(c)) {
            nanofet.state = -1;
            return 0;
        }
        return 2;
    }

    case 3:
        delay_msec(NANOFET_DONE_MS);
        return 0;

    default:
        return 0;
    }
}

void nanofet_poll(void) {
    inst_op_poll(uart3_stateMachine, uart3_prn_buf);
}

void nanofet_comm_test(void) {
    nanofet_init();
    inst_op_terminal(uart3_rx_bytes_avail, uart3_rx_byte, uart3_tx_byte);
}

void nanofet_serial_analyzer(void) {
    nanofet_init();
    uprintf("nanofet serial analyzer, bytes and times  Ctrl-X to quit\r\n");
    inst_op_analyzer(uart3_rx_bytes_avail, uart3_rx_byte);
}

void nanofet_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("NanoFET QA: one reading\r\n");
    nanofet_poll();
}
