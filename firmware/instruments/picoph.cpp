// picoPH meter on the instrument port (UART3): measure command.
//
// State 1 opens the port, 2 lets the meter settle, 3 sends the measure
// command, 4 waits for the "M" that starts the reply, 5 collects the reply one
// byte per step up to its CR, 7 ends. Every ending, good or bad, leaves the
// state at 0. Does not power the meter.
#include "instruments/picoph.h"

#include "board/board_util.h"
#include "board/uart3.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing, in 10-ms ticks.
static const uint32_t PICO_SETTLE_TICKS = 99; // settle for more than this
static const uint32_t PICO_REPLY_TICKS = 80;  // first "M", and the whole line after it
static const uint32_t PICO_REPLY_MSEC = 800;  // the same, for the message
static const uint32_t PICO_OPEN_SETTLE_MS = 1;
static const uint32_t PICO_BAUD = 19200u;

// Channel 1, the outputs of mask 47, as the meter expects it.
static const char PICO_MEASURE[] = "MEA 1 47\r";

picophDriver picoph;

void picoph_init(void) {
    uart3_init();
    uart3_setup(PICO_BAUD, 16000000u);
    uart3_echo_set(0);
}

void picoph_open(void) {
    picoph.state = 0;
    picoph.bufIndx = 0;
    inst_clear_room(uart3_prn_buf, UART3_PRN_BUF_SIZE, UART3_PRN_BUF_ROOM);
}

void picoph_close(void) {}

uint32_t picoph_tx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

uint32_t picoph_rx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

int picoph_rxBytesAvail(void) {
    return uart3_rx_bytes_avail();
}

int picoph_buf_write(unsigned char c) {
    uart3_prn_buf[picoph.bufIndx] = c;
    picoph.bufIndx++;
    if (picoph.bufIndx < UART3_PRN_BUF_SIZE) {
        return 1;
    }
    uprintf("\r\nDEBUG: error in picoph driver, bufIndx exceeds buf size. picoph\r\n");
    picoph.bufIndx = UART3_PRN_BUF_SIZE - 1u;
    if (sys_data.diag != 0u) {
        uprintf("\r\nDEBUG: error in picoph driver, bufIndx exceeds buf size. picoph\r\n");
    }
    wait_consoleTx();
    return 0;
}

static void picoph_text(const char *text) {
    inst_line_text(uart3_prn_buf, UART3_PRN_BUF_ROOM, text);
}

int picoph_stateMachine(int picoState) {
    picoph.state = picoState;
    switch (picoState) {
    case 0:
        return 0;

    case 1:
        picoph_init();
        picoph_open();
        delay_msec(PICO_OPEN_SETTLE_MS);
        picoph.old_tick10ms = Timer_10ms(0);
        picoph.state = 2;
        return 2;

    case 2:
        picoph.new_tick10ms = Timer_10ms(0);
        if (picoph.new_tick10ms - picoph.old_tick10ms > PICO_SETTLE_TICKS) {
            uart3_rx_bufr_flush();
            uart3_tx_bufr_flush(1);
            picoph.old_tick10ms = Timer_10ms(0);
            picoph.state = 3;
            return 3;
        }
        inst_idle();
        return 2;

    case 3:
        inst_send_raw(uart3_tx_byte, PICO_MEASURE, sizeof(PICO_MEASURE) - 1u);
        picoph.state = 4;
        return 4;

    case 4:
        if (picoph_rxBytesAvail() > 0) {
            if (uart3_rx_byte() == 'M') {
                picoph.old_tick10ms = Timer_10ms(0);
                uart3_prn_buf[0] = 'M';
                picoph.bufIndx = 1;
                picoph.state = 5;
                return 5;
            }
        } else {
            inst_idle();
        }
        picoph.new_tick10ms = Timer_10ms(0);
        if (picoph.new_tick10ms - picoph.old_tick10ms < PICO_REPLY_TICKS) {
            return 4;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nPico-pH did not send expected response to measure command in %d msec - "
                    "check connection or setup\r\n",
                    (int)PICO_REPLY_MSEC);
        }
        picoph_text("Pico-pH not responding to MEAS command");
        wait_consoleTx();
        picoph.state = 0;
        return 0;

    case 5:
        if (picoph_rxBytesAvail() > 0) {
            unsigned char c = (unsigned char)uart3_rx_byte();
            if (c == '\r') {
                uart3_prn_buf[picoph.bufIndx] = 0;
                picoph.old_tick10ms = Timer_10ms(0);
                picoph.state = 7;
                return 7;
            }
            if (c == ' ') {
                c = '\t';
            }
            if (!picoph_buf_write(c)) {
                picoph.state = 0;
                return 0;
            }
        } else {
            inst_idle();
        }
        picoph.new_tick10ms = Timer_10ms(0);
        if (picoph.new_tick10ms - picoph.old_tick10ms < PICO_REPLY_TICKS) {
            return 5;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nERROR: pico-pH did not finish transmitting data, timeout\r\n");
        }
        picoph_text("pico-pH did not finish transmit data");
        wait_consoleTx();
        picoph.state = 0;
        return 0;

    case 7:
        picoph.state = 0;
        return 0;

    default:
        uprintf("\r\nERROR: Pico-pH statemachine error - should not get to default\r\n");
        picoph.state = 0;
        return 0;
    }
}

void picoph_oneMeas(void) {
    inst_op_poll(uart3_stateMachine, uart3_prn_buf);
}

void picoph_comm_test(void) {
    picoph_init();
    inst_op_terminal(uart3_rx_bytes_avail, uart3_rx_byte, uart3_tx_byte);
}

void picoph_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("picoPH QA: one reading\r\n");
    picoph_oneMeas();
}
