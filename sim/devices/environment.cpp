// The simulated water and instrument choice shared by the device models.
#include "sim.h"

namespace sim {

namespace {
Environment g_env;
}

const Environment &environment() {
    return g_env;
}
void set_environment(const Environment &e) {
    g_env = e;
}

} // namespace sim
