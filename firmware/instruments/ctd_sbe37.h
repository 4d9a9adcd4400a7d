// SBE37 CTD on the CTD port (UART4): take-sample exchange.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ctd_sbe37_stateMachine(int state);
