// Operator tools of the instrument test routines.
#include "instruments/inst_op.h"

#include "board/uartstdio.h"
#include "console/user_io.h"
#include "sysctl.h"

static const unsigned char CTRL_X = 0x18;

void inst_op_poll(int (*stateMachine)(int), const unsigned char *line) {
    int state = 1;
    while (state != 0) {
        state = stateMachine(state);
        SysCtlSleep();
    }
    uprintf("%s\r\n", (const char *)line);
}

// Whether Ctrl-X was typed; other keys are handed to `key` (when given).
static bool op_console(void (*key)(int)) {
    while (UARTRxBytesAvail() > 0) {
        unsigned char c = UARTgetc();
        if (c == CTRL_X) {
            UARTFlushRx();
            return true;
        }
        if (key != nullptr) {
            key(c);
        }
    }
    return false;
}

void inst_op_terminal(int (*avail)(void), int (*rx)(void), void (*tx)(int)) {
    uprintf("Ctrl-X to quit\r\n");
    UARTEchoSet(false);
    while (!op_console(tx)) {
        while (avail() > 0) {
            UARTputc((unsigned char)rx());
        }
        SysCtlSleep();
    }
    UARTEchoSet(true);
    prn_nl();
}

void inst_op_analyzer(int (*avail)(void), int (*rx)(void)) {
    while (!op_console(nullptr)) {
        while (avail() > 0) {
            int c = rx();
            uprintf("RX: %c [0x%02x] ", c != 0 ? c : '.', (unsigned)c); // a NUL would end the text
        }
        SysCtlSleep();
    }
    prn_nl();
}
