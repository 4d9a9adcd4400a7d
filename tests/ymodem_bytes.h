// YMODEM as a sender puts it on the line, for the tests that play the far
// end of the console.
#pragma once
#include <cstdint>
#include <cstdio>
#include <string>

#include "files/ymodem.h"

namespace ymbytes {

// One packet: up to 128 bytes of data padded with NULs, more with SUBs to
// 1024; `comp` replaces the complement of the block number.
inline std::string packet(uint8_t block, std::string data, int comp = -1) {
    bool small = data.size() <= 128;
    data.resize(small ? 128 : 1024, small ? '\0' : '\x1A');
    uint16_t crc = crc16(reinterpret_cast<const uint8_t *>(data.data()), uint32_t(data.size()));
    return std::string{char(small ? YM_SOH : YM_STX), char(block),
                       char(comp >= 0 ? comp : ~block)} +
           data + char(crc >> 8) + char(crc & 0xFF);
}

// A name, its NUL and what follows it: block 0's data.
inline std::string nul(const std::string &name, const std::string &rest) {
    return name + std::string(1, '\0') + rest;
}

// A batch of one file in one block: EOT twice (the first is refused), then
// the empty block 0 that ends it.
inline std::string batch(const std::string &name, const std::string &body) {
    return packet(0, nul(name, std::to_string(body.size()) + " 0 100644")) + packet(1, body) +
           "\x04\x04" + packet(0, "");
}

// The bytes as a scenario script types them.
inline std::string escaped(const std::string &bytes) {
    std::string s;
    char hex[8];
    for (unsigned char c : bytes) {
        std::snprintf(hex, sizeof hex, "\\x%02X", c);
        s += hex;
    }
    return s;
}

} // namespace ymbytes
