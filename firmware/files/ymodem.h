// File transfer over the console line.
#pragma once

// 1 = the next receive is a calibration file to parse, not a file to store.
extern int calFileFlg;

int ymodem_send(int argc, const char *argv);
int ymodem_receive(int argc, const char *argv);
