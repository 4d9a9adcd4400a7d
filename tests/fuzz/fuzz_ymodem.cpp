// The YMODEM receiver: the first byte picks the card or the calibration
// mode, the rest is what the sender puts on the line; a sender that falls
// silent cancels after a quiet spell.
#include <memory>

#include "fuzz_board.h"
#include "line.h"
#include "sim.h"

#include "files/ymodem.h"
#include "uart.h"

extern int calFileFlg;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2 || size > 8192) {
        return -1;
    }
    fuzz::board_up();
    calFileFlg = data[0] & 1;
    auto line = std::make_shared<fuzz::Line>(
        std::vector<std::string>{std::string(reinterpret_cast<const char *>(data + 1), size - 1)},
        false, "\x18\x18\x18\x18\x18", 12000);
    sim::attach_serial(UART0_BASE, line);
    fuzz::bounded(600, [] { ymodem_receive(1, "yr"); });
    calFileFlg = 0;
    fuzz::check_records();
    return 0;
}
