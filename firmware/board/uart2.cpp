// Auxiliary port on UART2. Nothing in the firmware opens it yet; the module
// is complete so a new instrument needs only its driver.
#include "board/uart2.h"
#include "board/board_util.h"
#include "board/uart_port.h"

unsigned char uart2_prn_buf[UART2_BUF_SIZE];

static UartPort<UART2_BUF_SIZE, UART2_BASE, INT_UART2> g_port;

// The UART pin type goes to port C pins 6/7 (UART3's pins), not to PD6/PD7:
// that is how the board has always been brought up, and it is kept.
static const UartPins kPins = {SYSCTL_PERIPH_UART2, SYSCTL_PERIPH_GPIOD, GPIO_PD6_U2RX,
                               GPIO_PD7_U2TX,       GPIO_PORTC_BASE,     GPIO_PIN_6 | GPIO_PIN_7};

// The port's two RS-232 enable lines are not brought out on ZEP3.
static void uart2_enable_lines(bool on) {
    (void)on;
}

void uart2_init(void) {
    g_port.initPins(kPins);
}

void uart2_port_open(void) {
    pump3_on();
    uart2_enable_lines(true);
}

void uart2_port_close(void) {
    uart2_enable_lines(false);
    pwr_aux_pwr3_off();
}

UART_PORT_OPERATIONS(uart2, g_port, SYSCTL_PERIPH_UART2)
