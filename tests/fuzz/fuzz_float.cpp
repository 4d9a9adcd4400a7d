// The float-controller dialect and the keyword table line by line: each
// input line goes to the dispatcher as the receiver leaves it (lower case,
// at most the receive buffer), with a silent far end for handlers that wait
// for an answer.
#include <algorithm>
#include <cstring>

#include "fuzz_board.h"

#include "host/serial.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 2048) {
        return -1;
    }
    fuzz::board_up();
    for (const std::string &l : fuzz::split(data, size, '\n')) {
        std::memset(rx0.buf, 0, sizeof rx0.buf);
        size_t n = std::min(l.size(), sizeof rx0.buf - 1);
        for (size_t i = 0; i < n; i++) {
            char c = l[i];
            rx0.buf[i] = uint8_t(c >= 'A' && c <= 'Z' ? c + 32 : c);
        }
        rx0.indx = uint32_t(n);
        // a transfer a line starts waits for its sender: none comes, and the
        // far end cancels after a quiet spell
        fuzz::console_host(nullptr, 0, "\x18\x18\x18\x18\x18", 12000);
        fuzz::bounded(600, [] { parse_rx0_buf(); });
    }
    fuzz::check_records();
    return 0;
}
