// SBE37 CTD on the CTD port (UART4): take-sample exchange (to come).
#include "instruments/ctd_sbe37.h"
#include "console/user_io.h"

int ctd_sbe37_stateMachine(int state) {
    (void)state;
    not_built_yet("ctd_sbe37_stateMachine");
    return 0;
}
