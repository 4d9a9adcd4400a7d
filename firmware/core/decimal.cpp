#include "core/decimal.h"

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// Blanks, sign and digits of s; the magnitude saturates just above `limit`.
// False when no digit was found.
bool magnitude(const char *s, const char **end, bool *neg, uint64_t limit, uint64_t *value,
               bool *over) {
    const char *p = s;
    while (is_blank(*p)) {
        p++;
    }
    *neg = false;
    if (*p == '+' || *p == '-') {
        *neg = *p == '-';
        p++;
    }
    if (*p < '0' || *p > '9') {
        *end = s;
        *value = 0;
        *over = false;
        return false;
    }
    uint64_t v = 0;
    bool o = false;
    for (; *p >= '0' && *p <= '9'; p++) {
        if (!o) {
            v = v * 10u + (uint64_t)(*p - '0');
            o = v > limit;
        }
    }
    *end = p;
    *value = v;
    *over = o;
    return true;
}

} // namespace

int32_t dec_i32(const char *s, const char **end, bool *saturated) {
    bool neg = false, over = false;
    uint64_t v = 0;
    const char *e = s;
    bool ok = magnitude(s, &e, &neg, 0x80000000ull, &v, &over);
    if (end != nullptr) {
        *end = e;
    }
    over = over || (!neg && v > 0x7FFFFFFFull);
    if (saturated != nullptr) {
        *saturated = ok && over;
    }
    if (!ok) {
        return 0;
    }
    if (over) {
        return neg ? INT32_MIN : INT32_MAX;
    }
    return neg ? (int32_t)(0 - (int64_t)v) : (int32_t)v;
}

uint32_t dec_u32(const char *s, const char **end, bool *saturated) {
    bool neg = false, over = false;
    uint64_t v = 0;
    const char *e = s;
    bool ok = magnitude(s, &e, &neg, 0xFFFFFFFFull, &v, &over);
    if (end != nullptr) {
        *end = e;
    }
    if (saturated != nullptr) {
        *saturated = ok && over;
    }
    if (!ok) {
        return 0;
    }
    if (over) {
        return UINT32_MAX;
    }
    return neg ? (uint32_t)(0u - (uint32_t)v) : (uint32_t)v;
}

uint32_t dec_u64_text(uint64_t v, uint32_t width, char *out) {
    char digits[20];
    uint32_t n = 0;
    do {
        digits[n++] = (char)('0' + (int)(v % 10u));
        v /= 10u;
    } while (v != 0u);
    uint32_t len = 0;
    while (len + n < width) {
        out[len++] = ' ';
    }
    while (n > 0u) {
        out[len++] = digits[--n];
    }
    out[len] = 0;
    return len;
}
