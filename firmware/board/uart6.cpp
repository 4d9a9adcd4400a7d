// Auxiliary port on UART6 (PD4/PD5). Nothing in the firmware opens it yet; the
// module is complete so a new instrument needs only its driver.
#include "board/uart6.h"
#include "board/board_util.h"
#include "board/uart_port.h"

unsigned char uart6_prn_buf[UART6_BUF_SIZE];

static UartPort<UART6_BUF_SIZE, UART6_BASE, INT_UART6> g_port;

static const UartPins kPins = {SYSCTL_PERIPH_UART6, SYSCTL_PERIPH_GPIOD, GPIO_PD4_U6RX,
                               GPIO_PD5_U6TX,       GPIO_PORTD_BASE,     GPIO_PIN_4 | GPIO_PIN_5};

// The port's power and enable lines are not brought out on ZEP3.
static void uart6_power_lines(bool on) {
    (void)on;
}
static void uart6_enable_line(bool on) {
    (void)on;
}

void uart6_init(void) {
    g_port.initPins(kPins);
    uart6_power_lines(false);
}

void uart6_port_open(void) {
    PORTXXX_on();
    uart6_enable_line(true);
    g_port.g_bDisableEcho = 1;
}

void uart6_port_close(void) {
    uart6_enable_line(false);
    PORTXXX_off();
}

UART_PORT_OPERATIONS(uart6, g_port, SYSCTL_PERIPH_UART6)
