// picoPH meter on the instrument port (UART3): measure command (to come).
#include "instruments/picoph.h"
#include "console/user_io.h"

int picoph_stateMachine(int state) {
    (void)state;
    not_built_yet("picoph_stateMachine");
    return 0;
}
