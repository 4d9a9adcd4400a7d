#include "board.h"

namespace sim {

void install_serial_instruments(Board &) {}

} // namespace sim
