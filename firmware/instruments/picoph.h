// picoPH meter on the instrument port (UART3): measure command.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int picoph_stateMachine(int state);
