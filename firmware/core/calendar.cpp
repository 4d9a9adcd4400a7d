// Calendar text of clock seconds (calendar.h).
#include "core/calendar.h"

void calendar_from_seconds(int64_t seconds, CalendarTime *out) {
    int64_t days = seconds / 86400;
    int64_t secs = seconds % 86400;
    if (secs < 0) {
        secs += 86400;
        days--;
    }
    // Civil date from days since 1970-01-01, in eras of 400 years from 0000-03-01.
    int64_t z = days + 719468;
    int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    int64_t doe = z - era * 146097;
    int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    int64_t mp = (5 * doy + 2) / 153;
    int64_t month = mp < 10 ? mp + 3 : mp - 9;
    out->year = (int32_t)(yoe + era * 400 + (month <= 2 ? 1 : 0));
    out->month = (uint8_t)month;
    out->day = (uint8_t)(doy - (153 * mp + 2) / 5 + 1);
    out->hour = (uint8_t)(secs / 3600);
    out->minute = (uint8_t)(secs / 60 % 60);
    out->second = (uint8_t)(secs % 60);
}

namespace {

// Appends `value` in at least `width` digits (a sign first when negative).
bool put_number(char *out, size_t cap, size_t *n, int64_t value, int width) {
    char digits[24];
    int count = 0;
    bool negative = value < 0;
    uint64_t v = negative ? (uint64_t)(-(value + 1)) + 1u : (uint64_t)value;
    do {
        digits[count++] = (char)('0' + v % 10u);
        v /= 10u;
    } while (v != 0u);
    while (count < width) {
        digits[count++] = '0';
    }
    if (negative) {
        digits[count++] = '-';
    }
    if (*n + (size_t)count >= cap) {
        return false;
    }
    while (count > 0) {
        out[(*n)++] = digits[--count];
    }
    return true;
}

} // namespace

size_t format_time(char *out, size_t cap, const char *format, int64_t seconds) {
    CalendarTime c;
    calendar_from_seconds(seconds, &c);
    size_t n = 0;
    bool ok = true;
    for (const char *f = format; ok && *f != '\0'; f++) {
        if (*f != '%' || f[1] == '\0') {
            ok = n + 1u < cap;
            if (ok) {
                out[n++] = *f;
            }
            continue;
        }
        f++;
        switch (*f) {
        case 'Y':
            ok = put_number(out, cap, &n, c.year, 1);
            break;
        case 'y':
            ok = put_number(out, cap, &n, ((c.year % 100) + 100) % 100, 2);
            break;
        case 'm':
            ok = put_number(out, cap, &n, c.month, 2);
            break;
        case 'd':
            ok = put_number(out, cap, &n, c.day, 2);
            break;
        case 'H':
            ok = put_number(out, cap, &n, c.hour, 2);
            break;
        case 'M':
            ok = put_number(out, cap, &n, c.minute, 2);
            break;
        case 'S':
            ok = put_number(out, cap, &n, c.second, 2);
            break;
        default: // %% and anything else: the character itself
            ok = n + 1u < cap;
            if (ok) {
                out[n++] = *f;
            }
            break;
        }
    }
    if (!ok) {
        if (cap > 0u) {
            out[0] = '\0';
        }
        return 0;
    }
    out[n] = '\0';
    return n;
}
