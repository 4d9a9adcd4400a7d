// Shared state of the buffered UART ports.
#include "board/uart_port.h"

volatile uint32_t g_uartIsrDepth = 0;
