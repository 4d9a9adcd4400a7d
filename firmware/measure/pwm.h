// Pump and solenoid sequencer.
#pragma once
#include <stdint.h>

void pump_var_init(void);
void pump_and_sample_start(void);
int32_t pump_and_sample(int32_t printFlg, int32_t writeFlg);
