// Each instrument's reply parser: the first byte picks the instrument (the
// two CTDs on UART4, the four instruments on UART3), the rest are its
// replies, separated by 0xFF, each sent when the driver ends a command line.
#include <memory>

#include "fuzz_board.h"
#include "sim.h"

#include "board/uart3.h"
#include "board/uart4.h"
#include "core/system.h"
#include "instruments/ctd_base.h"
#include "uart.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 4096) {
        return -1;
    }
    static const struct {
        bool ctd;
        uint8_t type;
    } kinds[] = {{true, 6}, {true, 7}, {false, 1}, {false, 2}, {false, 3}, {false, 4}};
    const auto &k = kinds[data[0] % 6];
    fuzz::board_up();
    sys_data.data_cfg[CFG_UART3_INST] = k.ctd ? 0 : k.type;
    sys_data.data_cfg[CFG_UART4_INST] = k.ctd ? k.type : 0;
    ctd = ctdDriver{};
    std::vector<std::string> replies = fuzz::split(data + 1, size - 1, '\xff');
    auto line = std::make_shared<sim::Typist>();
    line->type(replies[0]);
    line->reply_per_line({replies.begin() + 1, replies.end()});
    sim::attach_serial(k.ctd ? UART4_BASE : UART3_BASE, line);
    int (*machine)(int) = k.ctd ? uart4_stateMachine : uart3_stateMachine;
    fuzz::bounded(120, [&] {
        int state = 1;
        while (state != 0) {
            state = machine(state);
        }
    });
    fuzz::check_records();
    return 0;
}
