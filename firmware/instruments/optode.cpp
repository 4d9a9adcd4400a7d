// Oxygen optode on the instrument port (UART3): "do sample" exchange (to come).
#include "instruments/optode.h"
#include "console/user_io.h"

int optode_stateMachine(int state) {
    (void)state;
    not_built_yet("optode_stateMachine");
    return 0;
}
