// Operator tools shared by the instrument drivers' test routines: one
// reading printed on the console, a terminal to the instrument, and a byte
// analyzer. Ctrl-X at the console ends the terminal and the analyzer.
#pragma once
#include <stdint.h>

// Steps a port dispatcher from 1 until 0, then prints the port's line.
void inst_op_poll(int (*stateMachine)(int), const unsigned char *line);
// Console keys go to the instrument, its bytes to the console.
void inst_op_terminal(int (*avail)(void), int (*rx)(void), void (*tx)(int));
// Each received byte as "RX: %c [0x%02x] ".
void inst_op_analyzer(int (*avail)(void), int (*rx)(void));
