// Calibration texts: the first byte picks the packet parser (a text in
// memory, as a YMODEM calibration transfer leaves it) or the card file
// import; the rest is the text.
#include <string>

#include "fuzz_board.h"

#include "console/cal_coeff.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 4096) {
        return -1;
    }
    fuzz::board_up();
    if (data[0] & 1) {
        fuzz::card_put(CAL_CARD_FILE, data + 1, size - 1);
        fuzz::bounded(60, [] { import_pH_sensor_cal_coeff(); });
    } else {
        std::string text(reinterpret_cast<const char *>(data + 1), size - 1);
        parse_cal_packet(text.c_str());
    }
    fuzz::check_records();
    return 0;
}
