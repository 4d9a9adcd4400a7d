// fenwa-sim: the controller firmware on the simulated board (see sim/sim.h).
#include "sim.h"

int main(int argc, char **argv) {
    return sim::cli_main(argc, argv);
}
