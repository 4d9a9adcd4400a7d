// Console port on UART0: 2048-byte rings, echo and line editing in the
// handler, and the byte-level calls under the console I/O (console/user_io).
// Owns the console rings only; the formatting and the newline mode are
// user_io's.
//
// Unlike the instrument ports, console text written from the foreground is
// never dropped: when the ring is full the writer sleeps until the
// transmitter makes room, so long listings reach the host whole. From a
// handler, or with interrupts masked, a full ring drops as on the ports.
#include "board/uartstdio.h"
#include "board/uart_port.h"

static_assert(UART_STDIO_RX_BUF_SIZE == UART_STDIO_TX_BUF_SIZE, "one ring size for both ways");
static UartPort<UART_STDIO_TX_BUF_SIZE, UART0_BASE, INT_UART0> g_console;

void UARTStdioConfig(uint32_t portNum, uint32_t baud, uint32_t srcClock) {
    if (portNum != 0u) {
        return; // the console is wired to UART0 only
    }
    // A new baud rate garbles what is still queued: let it go out first.
    if (g_console.configured) {
        wait_consoleTx();
    }
    SysCtlPeripheralEnable(SYSCTL_PERIPH_UART0);
    UARTClockSourceSet(UART0_BASE, UART_CLOCK_PIOSC);
    g_console.setup(SYSCTL_PERIPH_UART0, baud, srcClock); // echo stays as it was: on at start
}

// A line feed right after a carriage return of the same text is not doubled,
// so a "\r\n" in a message leaves the port as "\r\n".
int UARTwrite(const char *buf, uint32_t len) {
    return g_console.write((const unsigned char *)buf, len, true, true);
}

int UARTgets(char *buf, uint32_t len) {
    return g_console.rxStr((unsigned char *)buf, len);
}

unsigned char UARTgetc(void) {
    return g_console.rxByte();
}

void UARTputc(unsigned char c) {
    g_console.txByte(c, true);
}

int UARTPeek(unsigned char c) {
    return g_console.peek(c);
}

int UARTRxBytesAvail(void) {
    return g_console.rxAvail();
}

int UARTTxBytesFree(void) {
    return g_console.txFree();
}

void UARTFlushRx(void) {
    g_console.flushRx();
}

void UARTFlushTx(bool discard) {
    g_console.flushTx(discard);
}

void UARTEchoSet(bool enable) {
    g_console.echoSet(enable);
}

bool UARTrdy(void) {
    return !g_console.rxEmpty();
}

void wait_consoleTx(void) {
    if (!g_console.configured) {
        return;
    }
    g_console.flushTx(false);
    while (UARTBusy(UART0_BASE)) {
        SysCtlSleep();
    }
}

void UARTStdioIntHandler(void) {
    g_console.isr();
}
