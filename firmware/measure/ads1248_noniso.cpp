// The non-isolated ADS1248 is not fitted on this board; its operations keep
// their names for the callers and do nothing.
#include "measure/ads1248_noniso.h"

float pollADS1248_noniso(int pos_chan, int neg_chan, int trials) {
    return 0.0f;
}

void openADS1248_noniso(void) {}

void closeADS1248_noniso(void) {}

uint32_t ADS1248_noniso_set_mode_SDATAC(void) {
    return 0;
}

int32_t ADS1248GetValue_noniso(void) {
    return 0;
}

uint32_t ADS1248ChangeChannel_noniso(int pos_chan, int neg_chan) {
    return 0;
}
