// Auxiliary port on UART7 (PE0/PE1). Nothing in the firmware opens it yet; the
// module is complete so a new instrument needs only its driver.
#include "board/uart7.h"
#include "board/board_util.h"
#include "board/uart_port.h"

unsigned char uart7_prn_buf[UART7_BUF_SIZE];

static UartPort<UART7_BUF_SIZE, UART7_BASE, INT_UART7> g_port;

static const UartPins kPins = {SYSCTL_PERIPH_UART7, SYSCTL_PERIPH_GPIOE, GPIO_PE0_U7RX,
                               GPIO_PE1_U7TX,       GPIO_PORTE_BASE,     GPIO_PIN_0 | GPIO_PIN_1};

// The port's power and enable lines are not brought out on ZEP3.
static void uart7_power_lines(bool on) {
    (void)on;
}
static void uart7_enable_line(bool on) {
    (void)on;
}

void uart7_init(void) {
    g_port.initPins(kPins);
    uart7_power_lines(false);
}

void uart7_port_open(void) {
    PORTXXX_on();
    uart7_enable_line(true);
    g_port.g_bDisableEcho = 1;
}

void uart7_port_close(void) {
    uart7_enable_line(false);
    PORTXXX_off();
}

UART_PORT_OPERATIONS(uart7, g_port, SYSCTL_PERIPH_UART7)
