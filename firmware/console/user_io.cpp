// Console input and output: formatted text with the stored newline mode,
// line-based keys and answers, timed input, date and time entry and display.
// Sits on the console port's rings (board/uartstdio); owns no record. The
// newline mode is sys_data.app_cfg[APPCFG_NEWLINE_MODE]: 0 CR LF, 1 CR.
//
// Input is by line: even a single menu key counts once Enter is pressed.
// Waits sleep until the next interrupt on every pass. A line longer than the
// console ring can hold never gets its carriage return stored; rather than
// wait for it forever, such a line is thrown away and the wait goes on.
#include "console/user_io.h"

#include <errno.h>
#include <inttypes.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/calendar.h"
#include "board/board_util.h"
#include "board/uartstdio.h"
#include "core/main.h"
#include "core/decimal.h"
#include "core/system.h"
#include "hibernate.h"
#include "host/serial.h"
#include "sysctl.h"

#define UPRINTF_BUF_SIZE 256u
#define KEY_BUF_SIZE 5u
#define DATE_BUF_SIZE 23u
#define DATE_STR_LEN 17
#define TIME_STR_BUF_SIZE 50u
#define EPOCH_MS_OFFSET 1350541856u

static char s_uprintfBuf[UPRINTF_BUF_SIZE];
static char s_dbgBuf[UPRINTF_BUF_SIZE];

static uint8_t newline_mode(void) {
    return sys_data.app_cfg[APPCFG_NEWLINE_MODE];
}

// ---- output -------------------------------------------------------------

uint32_t uprintf(const char *format, ...) {
    char *b = s_uprintfBuf;
    va_list ap;
    va_start(ap, format);
    int r = vsnprintf(b, UPRINTF_BUF_SIZE, format, ap);
    va_end(ap);
    uint32_t n = r < 0 ? 0u : (uint32_t)r;
    if (n > UPRINTF_BUF_SIZE - 1u) {
        n = UPRINTF_BUF_SIZE - 1u; // what the buffer holds
    }

    uint8_t mode = newline_mode();
    if (mode == 0u && n > 2u) {
        // A bare CR at the end gains its LF; a bare CR at the start too.
        if (b[n - 1u] == '\r' && n < 255u) {
            b[n++] = '\n';
            b[n] = 0;
        }
        if (b[0] == '\r' && b[1] != '\n' && n < 254u) {
            memmove(b + 2, b + 1, n); // the terminator moves along
            b[1] = '\n';
            n++;
        }
    } else if (mode == 1u && n > 2u) {
        // CR mode: the LF of a CR LF at either end goes, and so does a
        // trailing LF whatever precedes it.
        if (b[n - 1u] == '\n') {
            b[--n] = 0;
        }
        if (b[0] == '\r' && b[1] == '\n' && n < 254u) {
            memmove(b + 1, b + 2, n - 1u);
            n--;
        }
    }
    UARTwrite(b, n);
    return n;
}

uint32_t dbg_printf(const char *format, ...) {
    if (dbg_flag == 0) {
        return 0;
    }
    va_list ap;
    va_start(ap, format);
    int r = vsnprintf(s_dbgBuf, UPRINTF_BUF_SIZE, format, ap);
    va_end(ap);
    uint32_t n = r < 0 ? 0u : (uint32_t)r;
    if (n > UPRINTF_BUF_SIZE - 1u) {
        n = UPRINTF_BUF_SIZE - 1u;
    }
    UARTwrite(s_dbgBuf, n);
    return n;
}

void print_newline(uint32_t mode) {
    if (mode == 0u) {
        UARTputc('\r');
        UARTputc('\n');
    } else if (mode == 1u) {
        UARTputc('\n');
    }
}

void prn_nl(void) {
    print_newline(newline_mode());
}

// Returns the number of bytes stored, except for an unknown mode, which
// stores nothing and returns bufIndx itself (callers add the result to their
// index; kept as the callers know it).
uint32_t sprintf_newline(char *bufPtr, uint32_t bufIndx, uint32_t mode) {
    if (mode == 0u) {
        bufPtr[bufIndx] = '\r';
        bufPtr[bufIndx + 1u] = '\n';
        return 2;
    }
    if (mode == 1u) {
        bufPtr[bufIndx] = '\n';
        return 1;
    }
    return bufIndx;
}

uint32_t sprn_nl(char *bufPtr, uint32_t bufIndx) {
    return sprintf_newline(bufPtr, bufIndx, newline_mode());
}

// ---- input --------------------------------------------------------------

// Set while the rest of a line too long for the console ring is thrown away.
static bool s_lineOverflow = false;

// True when a carriage return waits in the console ring. A full ring without
// one can never complete its line: it is discarded, and so is the rest of
// that line up to its carriage return.
static bool line_ready(void) {
    if (s_lineOverflow) {
        int pos = UARTPeek('\r');
        if (pos < 0) {
            UARTFlushRx();
            return false;
        }
        for (int i = 0; i <= pos; i++) {
            (void)UARTgetc();
        }
        s_lineOverflow = false;
    }
    if (UARTPeek('\r') >= 0) {
        return true;
    }
    if ((uint32_t)UARTRxBytesAvail() >= UART_STDIO_RX_BUF_SIZE - 1u) {
        UARTFlushRx();
        s_lineOverflow = true;
    }
    return false;
}

int get_key(void) {
    char buf[KEY_BUF_SIZE];
    while (!line_ready()) {
        SysCtlSleep();
    }
    UARTgets(buf, KEY_BUF_SIZE);
    return (unsigned char)buf[0];
}

int rx_console_byte(void) {
    return get_key();
}

// As get_key, but a 'U' arriving before any carriage return hands the line
// to the machine-to-machine exchange, with echo off while it runs.
int get_key_m2m(void) {
    for (;;) {
        int posCR = UARTPeek('\r');
        int posU = UARTPeek('U');
        if (posU >= 0 && (posCR < 0 || posU < posCR)) {
            UARTEchoSet(false);
            while (handle_m2m_comm() != TRUE) {
                if (!UARTrdy()) {
                    SysCtlSleep();
                }
            }
            UARTEchoSet(true);
            return 1;
        }
        if (line_ready()) {
            return get_key();
        }
        SysCtlSleep();
    }
}

// Whether get_key_m2m would return at once: a whole line, or the float
// controller's 'U', waits in the console ring.
int key_m2m_ready(void) {
    return UARTPeek('U') >= 0 || line_ready() ? 1 : 0;
}

int yesOrNoMenuChoice(const char *prompt, int default_response) {
    uprintf("%s", prompt);
    int key = get_key();
    if (key == 'Y' || key == 'y') {
        return 1;
    }
    if (key == 'N' || key == 'n') {
        return 0;
    }
    return default_response;
}

// Whether anything was typed; what was typed is thrown away.
int kbhit(void) {
    if (UARTRxBytesAvail() > 0) {
        UARTFlushRx();
        return 1;
    }
    return 0;
}

int getchar_timed(uint32_t timeout) {
    Timer_10ms(1);
    while (!UARTrdy()) {
        if (Timer_10ms(0) > timeout * 100u) {
            return -1;
        }
        SysCtlSleep();
    }
    return UARTgetc();
}

int getUserInput(char *userInputBuffer, uint32_t userInputBufferSize) {
    while (!line_ready()) {
        SysCtlSleep();
    }
    return UARTgets(userInputBuffer, userInputBufferSize);
}

int getUserInputTimeLimit(char *userInputBuffer, uint32_t userInputBufferSize, uint32_t timeLimit) {
    uint32_t start = HibernateRTCGet();
    while (!line_ready()) {
        if (HibernateRTCGet() - start > timeLimit) {
            return -1;
        }
        SysCtlSleep();
    }
    return UARTgets(userInputBuffer, userInputBufferSize);
}

unsigned char getChar(void) {
    return UARTgetc();
}

// ---- time ---------------------------------------------------------------

time_t get_RTC_time(void) {
    return (time_t)HibernateRTCGet();
}

// One two-digit field of the date line, converted completely or not at all.
static bool date_field(const char *line, uint32_t pos, int32_t *value) {
    char field[3] = {line[pos], line[pos + 1u], 0};
    const char *end = field;
    bool saturated = false;
    int32_t v = dec_i32(field, &end, &saturated);
    if (end != field + 2 || saturated) {
        return false;
    }
    *value = v;
    return true;
}

static bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

time_t getDateAndTime(void) {
    char line[DATE_BUF_SIZE];
    for (;;) {
        prn_nl();
        prn_nl();
        uprintf("Enter time [");
        printCurrentTime();
        uprintf("]: ");
        int len = getUserInput(line, DATE_BUF_SIZE);
        if (len == 0) {
            return 0;
        }
        if (len != DATE_STR_LEN) {
            uprintf("Enter a valid time string as MM/DD/YY HH:MM:SS");
            prn_nl();
            prn_nl();
            prn_nl();
            continue;
        }
        if (line[2] != '/' || line[5] != '/' || !is_blank(line[8]) || line[11] != ':' ||
            line[14] != ':') {
            continue;
        }
        int32_t mon, day, year, hour, min, sec;
        if (!date_field(line, 0, &mon) || !date_field(line, 3, &day) ||
            !date_field(line, 6, &year) || !date_field(line, 9, &hour) ||
            !date_field(line, 12, &min) || !date_field(line, 15, &sec)) {
            continue;
        }
        // Second 61 is allowed, leap seconds included; the day is not
        // checked against the month (mktime normalises it).
        if (mon < 1 || mon > 12 || day < 1 || day > 31 || year < 0 || hour < 0 || hour > 23 ||
            min < 0 || min > 59 || sec < 0 || sec > 61) {
            continue;
        }
        // The calendar fields of now, then the entered ones over them. The
        // clock is the RTC (the only clock the board has).
        time_t now = get_RTC_time();
        struct tm t;
        struct tm *lt = localtime(&now);
        if (lt != nullptr) {
            t = *lt;
        } else {
            memset(&t, 0, sizeof(t));
        }
        t.tm_sec = (int)sec;
        t.tm_min = (int)min;
        t.tm_hour = (int)hour;
        t.tm_mday = (int)day;
        t.tm_mon = (int)mon - 1;
        t.tm_year = (int)year + 100;
        t.tm_isdst = 0;
        return mktime(&t);
    }
}

void print_time_t_Time(time_t time) {
    char text[TIME_STR_BUF_SIZE];
    format_time(text, sizeof(text), "%m/%d/%y %H:%M:%S", (int64_t)time);
    uprintf("%s", text);
}

void printCurrentTime(void) {
    print_time_t_Time(get_RTC_time());
}

// Milliseconds as RTC seconds x 1000 less a fixed offset, in 32-bit unsigned
// arithmetic (it wraps); not the sample line's time stamp.
void printCurrentEpochTime(void) {
    uint32_t ms = HibernateRTCGet() * 1000u - EPOCH_MS_OFFSET;
    prn_nl();
    uprintf("%13" PRIu32, ms);
    uprintf("   ");
    printCurrentTime();
    prn_nl();
}

void newline_test(void) {
    static const char *const texts[] = {"\r\nHowdy Captain", "\rHowdy Captain", "Howdy Captain\r\n",
                                        "Howdy Captain\r"};
    for (const char *text : texts) {
        for (uint8_t mode = 0; mode < 2u; mode++) {
            sys_data.app_cfg[APPCFG_NEWLINE_MODE] = mode;
            uprintf("%s", text);
        }
    }
}
