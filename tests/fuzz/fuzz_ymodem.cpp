// The YMODEM receiver: the first byte picks the card or the calibration
// mode, the rest is what the sender puts on the line; a sender that falls
// silent cancels after a quiet spell.
#include "fuzz_board.h"

#include "files/ymodem.h"

extern int calFileFlg;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 8192) {
        return -1;
    }
    fuzz::board_up();
    calFileFlg = data[0] & 1;
    fuzz::console_host(data + 1, size - 1, "\x18\x18\x18\x18\x18", 12000);
    fuzz::bounded(600, [] { ymodem_receive(1, "yr"); });
    calFileFlg = 0;
    fuzz::check_records();
    return 0;
}
