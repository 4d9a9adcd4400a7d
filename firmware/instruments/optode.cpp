// Oxygen optode on the instrument port (UART3): "do sample" exchange.
//
// State 1 opens the port, 2 waits for the optode's "%" after power-up, takes
// the "!" that answers our CR LF and sends "do sample", 4 reads the reply line
// in one step once its first byte is there. State 3 (a second wait for "!")
// is reached only by a caller that asks for it. Every ending returns 0;
// failures leave the state at -1, except the gap inside the line (state 4).
// Does not power the optode.
#include "instruments/optode.h"

#include "board/board_util.h"
#include "board/uart3.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing, in 10-ms ticks.
static const uint32_t OPTODE_WAKE_TICKS = 160;   // "%" within 1.6 s
static const uint32_t OPTODE_BANG_TICKS = 200;   // "!" after the CR LF
static const uint32_t OPTODE_REPLY_TICKS = 500;  // first reply byte within 5 s
static const uint32_t OPTODE_CHAR_GAP_TICKS = 5; // 50 ms between reply bytes
static const uint32_t OPTODE_OPEN_SETTLE_MS = 1;
static const uint32_t OPTODE_BAUD = 9600u;

// Its 11 characters and the string end, as the optode has always been sent it.
static const char OPTODE_DO_SAMPLE[] = "do sample\r\n";

optodeDriver optode;

void optode_init(void) {
    uart3_init();
    uart3_setup(OPTODE_BAUD, 16000000u);
    uart3_echo_set(0);
}

void optode_open(void) {
    optode.state = 0;
    optode.bufIndx = 0;
    inst_clear_room(uart3_prn_buf, UART3_PRN_BUF_SIZE, UART3_PRN_BUF_ROOM);
}

void optode_close(void) {}

int optode_getc(void) {
    return uart3_rx_byte();
}

uint32_t optode_tx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

uint32_t optode_rx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

int optode_buf_write(unsigned char c) {
    uart3_prn_buf[optode.bufIndx] = c;
    optode.bufIndx++;
    if (optode.bufIndx < UART3_PRN_BUF_SIZE) {
        return 1;
    }
    uprintf("\r\nDEBUG: error in optode driver bufIndx exceeds buf size, optode\r\n");
    optode.bufIndx = UART3_PRN_BUF_SIZE - 1u;
    if (sys_data.diag != 0u) {
        uprintf("\r\nDEBUG: error in optode driver bufIndx exceeds buf size, optode\r\n");
    }
    wait_consoleTx();
    return 0;
}

uint32_t optode_waitRx(uint32_t maxWait) {
    return inst_waitRx(uart3_rx_bytes_avail, maxWait,
                       "DEBUG: optode_waitRx 10msTick timer rolled over\r\n");
}

static void optode_text(const char *text) {
    inst_line_text(uart3_prn_buf, UART3_PRN_BUF_ROOM, text);
}

static int optode_send_do_sample(void) {
    inst_send_raw(uart3_tx_byte, OPTODE_DO_SAMPLE, sizeof(OPTODE_DO_SAMPLE));
    optode.old_tick10ms = Timer_10ms(0);
    optode.state = 4;
    return 4;
}

// The reply, read in this one step.
static int optode_collect(void) {
    for (;;) {
        if (optode_waitRx(OPTODE_CHAR_GAP_TICKS) >= OPTODE_CHAR_GAP_TICKS ||
            uart3_rx_bytes_avail() <= 0) {
            if (sys_data.diag != 0u) {
                uprintf("\r\nDEBUG: inter-character delay exceeded 50msec receiving do_sample "
                        "string\r\n");
            }
            optode_text("Optode Err ST4: inter-character delay exceeded 50msec receiving "
                        "do_sample string");
            return 0;
        }
        unsigned char c = (unsigned char)optode_getc();
        if (c == '\r') {
            c = 0;
        }
        if (c == '#') {
            optode.state = 0;
            return 0;
        }
        if (!optode_buf_write(c)) {
            optode.state = -1;
            return 0;
        }
    }
}

int optode_stateMachine(int optodeState) {
    optode.state = optodeState;
    switch (optodeState) {
    case 1:
        optode_init();
        optode_open();
        delay_msec(OPTODE_OPEN_SETTLE_MS);
        uart3_rx_bufr_flush();
        uart3_tx_bufr_flush(1);
        optode.old_tick10ms = Timer_10ms(0);
        optode.state = 2;
        return 2;

    case 2:
        if (uart3_rx_bytes_avail() > 0 && optode_getc() == '%') {
            optode.old_tick10ms = Timer_10ms(0);
            uart3_tx_byte('\r');
            uart3_tx_byte('\n');
            // The "!" comes at once; an optode that never sends it is given
            // up after OPTODE_BANG_TICKS instead of holding the board.
            int c = -1;
            if (optode_waitRx(OPTODE_BANG_TICKS) < OPTODE_BANG_TICKS) {
                c = inst_take(uart3_rx_bytes_avail, optode_getc);
            }
            if (c == '!') {
                return optode_send_do_sample();
            }
        }
        optode.new_tick10ms = Timer_10ms(0);
        if (optode.new_tick10ms - optode.old_tick10ms < OPTODE_WAKE_TICKS) {
            inst_idle();
            return 2;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nOptode power on did not receive %% char delimiter in 600msec - check "
                    "optode connection or setup\r\n");
        }
        optode_text("Optode not responding with % char after power up");
        wait_consoleTx();
        optode.state = -1;
        return 0;

    case 3:
        if (uart3_rx_bytes_avail() > 0 && optode_getc() == '!') {
            return optode_send_do_sample();
        }
        optode.new_tick10ms = Timer_10ms(0);
        if (optode.new_tick10ms - optode.old_tick10ms < OPTODE_BANG_TICKS) {
            inst_idle();
            optode.state = 3;
            return 3;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nOptode power on did not receive ! char delimiter in 2000msec - check "
                    "optode connection or setup\r\n");
        }
        optode_text("Optode not responding with ! char after crlf");
        optode.state = -1;
        return 0;

    case 4:
        if (uart3_rx_bytes_avail() <= 0) {
            optode.new_tick10ms = Timer_10ms(0);
            if (optode.new_tick10ms - optode.old_tick10ms < OPTODE_REPLY_TICKS) {
                inst_idle();
                return 4;
            }
            if (sys_data.diag != 0u) {
                uprintf("\r\nOptode power on did not receive sample string after do sample - "
                        "check optode connection or setup\r\n");
            }
            optode_text("Optode not responding with sample string after do sample");
            optode.state = -1;
            return 0;
        }
        optode.old_tick10ms = Timer_10ms(0);
        return optode_collect();

    default:
        return 0;
    }
}

void optode_parseData(void) {}

void optode_poll(void) {
    inst_op_poll(uart3_stateMachine, uart3_prn_buf);
}

void optode_comm_test(void) {
    optode_init();
    inst_op_terminal(uart3_rx_bytes_avail, uart3_rx_byte, uart3_tx_byte);
}

void optode_serial_analyzer(void) {
    optode_init();
    uprintf("optode serial analyzer, bytes and times  Ctrl-X to quit\r\n");
    inst_op_analyzer(uart3_rx_bytes_avail, uart3_rx_byte);
}

void optode_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("Optode QA: one reading\r\n");
    optode_poll();
}
