// File transfer over the console line.
#pragma once

int ymodem_send(int argc, const char *argv);
int ymodem_receive(int argc, const char *argv);
