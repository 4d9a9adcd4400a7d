// Calendar text of clock seconds (since 1970, UTC: the board keeps no other
// zone), without the C library's strftime, whose frame alone was the deepest
// on the stack. Only the conversions the instrument prints: %Y %y %m %d %H %M
// %S and %%; any other character is copied as it stands.
#pragma once
#include <stddef.h>
#include <stdint.h>

struct CalendarTime {
    int32_t year;
    uint8_t month, day, hour, minute, second; // 1-12, 1-31, 0-23, 0-59, 0-59
};

void calendar_from_seconds(int64_t seconds, CalendarTime *out);

// As strftime: the length written, or 0 (and an empty text when cap > 0)
// when the text and its terminator do not fit in cap bytes.
size_t format_time(char *out, size_t cap, const char *format, int64_t seconds);
