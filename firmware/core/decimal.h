// Decimal numbers read as the chip's C library reads them, on every board
// alike: a long is 32 bits there, so strtol and strtoul saturate beyond 32
// bits. Nothing here depends on the width of the build's own long.
#pragma once
#include <stdint.h>

// As strtol(s, &end, 10) with a 32-bit long: blanks, an optional sign,
// digits; INT32_MAX or INT32_MIN when out of range (*saturated set). *end is
// s when no digit follows.
int32_t dec_i32(const char *s, const char **end, bool *saturated);

// As strtoul(s, &end, 10) with a 32-bit long: a "-" negates modulo 2^32;
// UINT32_MAX when out of range (*saturated set).
uint32_t dec_u32(const char *s, const char **end, bool *saturated);

// "%<width>llu" done here: the chip's small C library has no long long
// conversions. Right-aligned in `width` blanks; returns the length. `out`
// holds at least max(width, 20) + 1 bytes.
uint32_t dec_u64_text(uint64_t v, uint32_t width, char *out);
