// Instrument port on UART3 (the optode port) and the dispatcher that steps the
// instrument driver chosen in the configuration. The drivers call these same
// routines (their rx/tx helpers are these under other names).
#include "board/uart3.h"
#include "board/uart_port.h"
#include "core/system.h"
#include "instruments/nanofet.h"
#include "instruments/ocr.h"
#include "instruments/optode.h"
#include "instruments/picoph.h"

unsigned char uart3_prn_buf[UART3_PRN_BUF_ROOM];

static UartPort<UART3_BUF_SIZE, UART3_BASE, INT_UART3> g_port;

static const UartPins kPins = {SYSCTL_PERIPH_UART3, SYSCTL_PERIPH_GPIOC, GPIO_PC6_U3RX,
                               GPIO_PC7_U3TX,       GPIO_PORTC_BASE,     GPIO_PIN_6 | GPIO_PIN_7};

void uart3_init(void) {
    g_port.initPins(kPins);
}

void uart3_port_open(void) {
    g_port.g_bDisableEcho = 1;
}

void uart3_port_close(void) {}

UART_PORT_OPERATIONS(uart3, g_port, SYSCTL_PERIPH_UART3)

int uart3_stateMachine(int state) {
    switch (sys_data.data_cfg[CFG_UART3_INST]) {
    case 1:
        return optode_stateMachine(state);
    case 2:
        return ocr_stateMachine(state);
    case 3:
        return nanofet_stateMachine(state);
    case 4:
        return picoph_stateMachine(state);
    default:
        return 0;
    }
}
