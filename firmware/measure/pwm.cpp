// Pump and solenoid sequencer (to come).
#include "measure/pwm.h"
#include "core/system.h"
#include "measure/sample.h"

void pump_var_init(void) {}

void pump_and_sample_start(void) {
    sys_samp.pump_seq_state = 1;
}

int32_t pump_and_sample(int32_t printFlg, int32_t writeFlg) {
    get_sample(printFlg, writeFlg);
    return 0;
}
