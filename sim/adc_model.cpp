#include "board.h"

namespace sim {

void install_adc_devices(Board &) {}

} // namespace sim
