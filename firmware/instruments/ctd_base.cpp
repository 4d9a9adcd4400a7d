// CTD port link on UART4 shared by the SBE37 and Aanderaa 5860 drivers.
#include "instruments/ctd_base.h"

#include <string.h>

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "gpio.h"
#include "hw_types.h"
#include "sysctl.h"
#include "uart.h"
#include "console/user_io.h"
#include "core/system.h"
#include "instruments/inst_util.h"

// Line rate of both CTDs, from the 16 MHz precision oscillator.
static const uint32_t CTD_BAUD = 9600u;
static const uint32_t CTD_BAUD_CLOCK = 16000000u;

ctdDriver ctd;

// UART4's own init leaves the port to us: pins PC4/PC5 and the 16 MHz
// precision oscillator as its baud clock, then 9600 baud.
void ctd_init(void) {
    uart4_init();
    SysCtlPeripheralEnable(SYSCTL_PERIPH_UART4);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOC);
    GPIOPinConfigure(GPIO_PC4_U4RX);
    GPIOPinConfigure(GPIO_PC5_U4TX);
    GPIOPinTypeUART(GPIO_PORTC_BASE, GPIO_PIN_4 | GPIO_PIN_5);
    UARTClockSourceSet(UART4_BASE, UART_CLOCK_PIOSC);
    uart4_setup(CTD_BAUD, CTD_BAUD_CLOCK);
    uart4_echo_set(0);
}

// The room behind the reply is cleared, so a reply that filled the line
// without a string end still ends right behind it when printed.
void ctd_open(void) {
    ctd.state = 0;
    ctd.bufIndx = 0;
    memset(uart4_prn_buf + CTD_BUF_SIZE, 0, UART4_PRN_BUF_ROOM - CTD_BUF_SIZE);
}

void ctd_close(void) {}

int ctd_getc(void) {
    return uart4_rx_byte();
}

void ctd_flushTx(int flag) {
    (void)flag;
    uart4_tx_bufr_flush(1);
}

uint32_t ctd_tx_buf_size(void) {
    return CTD_BUF_SIZE;
}

uint32_t ctd_rx_buf_size(void) {
    return CTD_BUF_SIZE;
}

int ctd_buf_putc(unsigned char c) {
    uart4_prn_buf[ctd.bufIndx] = c;
    ctd.bufIndx++;
    if (ctd.bufIndx < CTD_BUF_SIZE) {
        return 1;
    }
    uprintf("\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n");
    ctd.bufIndx = CTD_BUF_SIZE - 1u;
    if (sys_data.diag != 0u) {
        uprintf("\r\nDEBUG: error in ctd driver bufIndx exceeds buf size, ctd\r\n");
    }
    wait_consoleTx();
    return 0;
}

uint32_t ctd_waitRx(uint32_t maxWait) {
    return inst_waitRx(uart4_rx_bytes_avail, maxWait,
                       "DEBUG: ctd_waitRx 10msTick timer rolled over\r\n");
}

void ctd_line_text(const char *text) {
    inst_line_text(uart4_prn_buf, UART4_PRN_BUF_ROOM, text);
}

int ctd_start(uint32_t type, uint32_t settle_ms) {
    ctd_init();
    ctd_open();
    delay_msec(settle_ms);
    uart4_rx_bufr_flush();
    ctd_flushTx(1);
    ctd.old_tick10ms = Timer_10ms(0);
    if (sys_data.data_cfg[CFG_UART4_INST] != type) {
        ctd.type = 0;
        uprintf("Error: sys_data.data_cfg[CFG_UART4_INST] = %u, no driver for this CTD type, "
                "Config -> Data Fields\r\n",
                (unsigned)sys_data.data_cfg[CFG_UART4_INST]);
        ctd.state = 0;
        return 0;
    }
    ctd.type = type;
    return 1;
}
