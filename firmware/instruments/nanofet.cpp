// NanoFET on the instrument port (UART3): "ts" exchange (to come).
#include "instruments/nanofet.h"
#include "console/user_io.h"

int nanofet_stateMachine(int state) {
    (void)state;
    not_built_yet("nanofet_stateMachine");
    return 0;
}
