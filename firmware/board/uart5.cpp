// Auxiliary port on UART5 (PE4/PE5). Nothing in the firmware opens it yet; the
// module is complete so a new instrument needs only its driver.
#include "board/uart5.h"
#include "board/board_util.h"
#include "board/uart_port.h"

unsigned char uart5_prn_buf[UART5_BUF_SIZE];

static UartPort<UART5_BUF_SIZE, UART5_BASE, INT_UART5> g_port;

static const UartPins kPins = {SYSCTL_PERIPH_UART5, SYSCTL_PERIPH_GPIOE, GPIO_PE4_U5RX,
                               GPIO_PE5_U5TX,       GPIO_PORTE_BASE,     GPIO_PIN_4 | GPIO_PIN_5};

// The port's power and enable lines are not brought out on ZEP3.
static void uart5_power_lines(bool on) {
    (void)on;
}
static void uart5_enable_line(bool on) {
    (void)on;
}

void uart5_init(void) {
    g_port.initPins(kPins);
    uart5_power_lines(false);
}

void uart5_port_open(void) {
    PORTXXX_on();
    uart5_enable_line(true);
    g_port.g_bDisableEcho = 1;
}

void uart5_port_close(void) {
    uart5_enable_line(false);
    PORTXXX_off();
}

UART_PORT_OPERATIONS(uart5, g_port, SYSCTL_PERIPH_UART5)
