// OCR-504 radiometer on the instrument port (UART3): one frame per sample.
//
// State 1 opens the port, 2 lets the radiometer settle, 3 prompts with CR LF,
// 4 waits for the "S" that starts a frame, 5 collects the frame one byte per
// step up to its line end, 7 ends. State 6 (another frame) is reached only
// by a caller that asks for it. Endings leave 0, an overflow -1. Does not
// power the radiometer.
#include "instruments/ocr.h"

#include "board/board_util.h"
#include "board/uart3.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/inst_op.h"
#include "instruments/inst_util.h"

// Timing, in 10-ms ticks.
static const uint32_t OCR_SETTLE_TICKS = 80;  // after opening the port
static const uint32_t OCR_FRAME_TICKS = 160;  // "S" within 1.6 s of the prompt
static const uint32_t OCR_FINISH_TICKS = 200; // whole frame within 2 s of its "S"
static const uint32_t OCR_OPEN_SETTLE_MS = 1;
static const uint32_t OCR_BAUD = 57600u;

// What the column shows when no frame came.
static const char OCR_NO_FRAME[] = "SATFI4_ERR\t-9.9999\t-9.9999\t-9.9999\t-9.9999";

ocrDriver ocr;

void ocr_init(void) {
    uart3_init();
    uart3_setup(OCR_BAUD, 16000000u);
    uart3_echo_set(0);
}

void ocr_open(void) {
    ocr.dataCnt = 1;
    ocr.state = 0;
    ocr.bufIndx = 0;
    inst_clear_room(uart3_prn_buf, UART3_PRN_BUF_SIZE, UART3_PRN_BUF_ROOM);
}

void ocr_close(void) {}

uint32_t ocr_tx_buf_size(void) {
    return UART3_PRN_BUF_SIZE;
}

int ocr_buf_write(unsigned char c) {
    uart3_prn_buf[ocr.bufIndx] = c;
    ocr.bufIndx++;
    if (ocr.bufIndx < UART3_PRN_BUF_SIZE) {
        return 1;
    }
    uprintf("\r\nDEBUG: error in ocr driver bufIndx exceeds buf size, ocr\r\n");
    ocr.bufIndx = UART3_PRN_BUF_SIZE - 1u;
    if (sys_data.diag != 0u) {
        uprintf("\r\nDEBUG: error in ocr driver bufIndx exceeds buf size, ocr\r\n");
    }
    wait_consoleTx();
    return 0;
}

static void ocr_text(const char *text) {
    inst_line_text(uart3_prn_buf, UART3_PRN_BUF_ROOM, text);
}

int ocr_stateMachine(int ocrState) {
    ocr.state = ocrState;
    switch (ocrState) {
    case 0:
        return 0;

    case 1:
        ocr_init();
        ocr_open();
        delay_msec(OCR_OPEN_SETTLE_MS);
        uart3_rx_bufr_flush();
        uart3_tx_bufr_flush(1);
        ocr.old_tick10ms = Timer_10ms(0);
        ocr.state = 2;
        return 2;

    case 2:
        ocr.new_tick10ms = Timer_10ms(0);
        if (ocr.new_tick10ms - ocr.old_tick10ms < OCR_SETTLE_TICKS) {
            inst_idle();
            return 2;
        }
        ocr.old_tick10ms = Timer_10ms(0);
        ocr.state = 3;
        return 3;

    case 3:
        uart3_tx_byte('\r');
        uart3_tx_byte('\n');
        ocr.state = 4;
        return 4;

    case 4:
        if (uart3_rx_bytes_avail() > 0) {
            if (uart3_rx_byte() == 'S') {
                ocr.old_tick10ms = Timer_10ms(0);
                uart3_prn_buf[0] = 'S';
                ocr.bufIndx = 1;
                ocr.state = 5;
                return 5;
            }
        } else {
            inst_idle();
        }
        ocr.new_tick10ms = Timer_10ms(0);
        if (ocr.new_tick10ms - ocr.old_tick10ms < OCR_FRAME_TICKS) {
            return 4;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nOCR power on did not receive expected response to CR-LF in 1600msec - "
                    "check ocr connection or setup\r\n");
        }
        ocr_text(OCR_NO_FRAME);
        wait_consoleTx();
        ocr.state = 0;
        return 0;

    case 5:
        if (uart3_rx_bytes_avail() > 0) {
            unsigned char c = (unsigned char)uart3_rx_byte();
            if (c == '\n' || c == '\r') {
                uart3_prn_buf[ocr.bufIndx] = 0;
                ocr.old_tick10ms = Timer_10ms(0);
                ocr.state = 7;
                return 7;
            }
            if (!ocr_buf_write(c)) {
                ocr.state = -1;
                return 0;
            }
        } else {
            inst_idle();
        }
        ocr.new_tick10ms = Timer_10ms(0);
        if (ocr.new_tick10ms - ocr.old_tick10ms < OCR_FINISH_TICKS) {
            return 5;
        }
        if (sys_data.diag != 0u) {
            uprintf("\r\nERROR: OCR did not finish transmitting data, timeout\r\n");
        }
        ocr_text("OCR did not finish transmit data");
        wait_consoleTx();
        ocr.state = 0;
        return 0;

    case 6:
        if (ocr.dataCnt > 0 && --ocr.dataCnt > 0) {
            ocr.state = 3;
            return 3;
        }
        ocr.state = 7;
        return 7;

    case 7:
        ocr.state = 0;
        return 0;

    default:
        uprintf("\r\nERROR: OCR statemachine error - should not get to default\r\n");
        ocr.state = 0;
        return 0;
    }
}

void ocr_comm_test(void) {
    ocr_init();
    inst_op_terminal(uart3_rx_bytes_avail, uart3_rx_byte, uart3_tx_byte);
}

void ocr_qa_test(void) {
    // One reading through the sample-cycle driver: the operator judges the line.
    uprintf("OCR-504 QA: one reading\r\n");
    inst_op_poll(ocr_stateMachine, uart3_prn_buf);
}
