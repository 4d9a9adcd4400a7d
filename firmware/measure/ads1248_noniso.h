// The second ADS1248, on the non-isolated side (board temperature and
// supplies). Not fitted on this board: every operation does nothing and
// reports zero.
#pragma once
#include <stdint.h>

// Mean of `trials` conversions of inputs pos_chan/neg_chan in volts: 0.0.
float pollADS1248_noniso(int pos_chan, int neg_chan, int trials);
void openADS1248_noniso(void);
void closeADS1248_noniso(void);
uint32_t ADS1248_noniso_set_mode_SDATAC(void);
int32_t ADS1248GetValue_noniso(void);
uint32_t ADS1248ChangeChannel_noniso(int pos_chan, int neg_chan);
