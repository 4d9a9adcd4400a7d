// The console receiver and its keyword dispatch, bytes as a host or an
// operator types them: the line discipline, term time, wake bytes, every
// keyword and its arguments, the transfers a keyword starts (cancelled by the
// far end after a quiet spell, as a host gives up).
#include "fuzz_board.h"
#include "sim.h"

#include "host/serial.h"
#include "sysctl.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 4096) {
        return -1;
    }
    fuzz::board_up();
    auto line = fuzz::console_host(data, size, "\x18\x18\x18\x18\x18\r", 1500);
    fuzz::bounded(900, [&] {
        while (!line->done() || sim::now_cycles() < line->last_sent() + sim::kCpuHz) {
            if (handle_m2m_comm() < 0) {
                break;
            }
            SysCtlSleep();
        }
    });
    fuzz::check_records();
    return 0;
}
