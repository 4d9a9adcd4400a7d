// YMODEM transfers (to come).
#include "files/ymodem.h"
#include "console/user_io.h"

int ymodem_send(int, const char *) {
    not_built_yet("ymodem_send");
    return 0;
}
int ymodem_receive(int, const char *) {
    not_built_yet("ymodem_receive");
    return 0;
}
