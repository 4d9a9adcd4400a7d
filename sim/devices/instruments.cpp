// The serial instruments of a run: the CTD on UART4 and the instrument on
// UART3 named by environment().ctd and environment().inst, each with its
// fault knob (sim/devices/inst_models.h).
#include "board.h"
#include "hw_types.h"
#include "inst_models.h"

namespace sim {

void install_serial_instruments(Board &b) {
    const Environment &e = environment();
    if (auto ctd = make_ctd_model(e.ctd)) {
        ctd->fault = e.ctd_fault;
        if (Uart *u = b.uart(UART4_BASE)) {
            u->dev = ctd;
        }
    }
    if (auto inst = make_inst_model(e.inst)) {
        inst->fault = e.inst_fault;
        if (Uart *u = b.uart(UART3_BASE)) {
            u->dev = inst;
        }
    }
}

} // namespace sim
