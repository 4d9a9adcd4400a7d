// NanoFET on the instrument port (UART3): "ts" exchange.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int nanofet_stateMachine(int state);
