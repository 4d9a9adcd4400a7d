// Oxygen optode on the instrument port (UART3): "do sample" exchange.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int optode_stateMachine(int state);
