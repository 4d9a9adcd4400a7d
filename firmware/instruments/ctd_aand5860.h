// Aanderaa 5860 CTD on the CTD port (UART4): "do sample" exchange.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ctd_aand5860_stateMachine(int state);
