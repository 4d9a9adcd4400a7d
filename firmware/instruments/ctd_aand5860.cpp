// Aanderaa 5860 CTD on the CTD port (UART4): "do sample" exchange (to come).
#include "instruments/ctd_aand5860.h"
#include "console/user_io.h"

int ctd_aand5860_stateMachine(int state) {
    (void)state;
    not_built_yet("ctd_aand5860_stateMachine");
    return 0;
}
