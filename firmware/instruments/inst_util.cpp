// Helpers shared by the serial instrument drivers.
#include "instruments/inst_util.h"

#include <stdio.h>

#include "board/board_util.h"
#include "console/user_io.h"
#include "sysctl.h"

uint32_t inst_ticks_since(uint32_t since) {
    return Timer_10ms(0) - since;
}

void inst_idle(void) {
    SysCtlSleep();
}

void inst_line_text(unsigned char *buf, uint32_t room, const char *text) {
    snprintf((char *)buf, room, "%s", text);
}

uint32_t inst_waitRx(int (*avail)(void), uint32_t maxWait, const char *rolloverMsg) {
    uint32_t start = Timer_10ms(0);
    for (;;) {
        uint32_t now = Timer_10ms(0);
        if (avail() > 0) {
            return now - start;
        }
        delay_usec(500);
        now = Timer_10ms(0);
        if (maxWait != 0u && now - start >= maxWait) {
            return maxWait;
        }
        if (now < start) {
            uprintf("%s", rolloverMsg);
            return 0;
        }
    }
}

int inst_take(int (*avail)(void), int (*rx)(void)) {
    if (avail() <= 0) {
        return -1;
    }
    return rx();
}

void inst_clear_room(unsigned char *buf, uint32_t size, uint32_t room) {
    for (uint32_t i = size; i < room; i++) {
        buf[i] = 0;
    }
}

void inst_send_raw(void (*tx)(int), const char *bytes, uint32_t len) {
    for (uint32_t i = 0; i < len; i++) {
        tx((unsigned char)bytes[i]);
    }
}
