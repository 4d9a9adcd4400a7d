// CTD port on UART4 and the dispatcher that steps the CTD driver chosen in the
// configuration. The CTD driver routes the pins and sets the port up itself
// (uart4_setup at 9600 baud), so init, open and close have nothing to do.
#include "board/uart4.h"
#include "board/uart_port.h"
#include "core/system.h"
#include "instruments/ctd_aand5860.h"
#include "instruments/ctd_sbe37.h"

unsigned char uart4_prn_buf[UART4_PRN_BUF_ROOM];

static UartPort<UART4_BUF_SIZE, UART4_BASE, INT_UART4> g_port;

void uart4_init(void) {}

void uart4_port_open(void) {}

void uart4_port_close(void) {}

UART_PORT_OPERATIONS(uart4, g_port, SYSCTL_PERIPH_UART4)

int uart4_stateMachine(int state) {
    switch (sys_data.data_cfg[CFG_UART4_INST]) {
    case 6:
        return ctd_sbe37_stateMachine(state);
    case 7:
        return ctd_aand5860_stateMachine(state);
    default:
        return 0;
    }
}
