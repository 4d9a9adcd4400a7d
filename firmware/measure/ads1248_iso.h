// The 24-bit ADC on the isolated analog board (SSI3) and the ADG1609 mux
// behind its GPIO pins: power, channel set-up, bursts of conversions.
#pragma once
#include <stdint.h>

#define ADS1248_MAX_TRIALS 120
#define ADS1248_VOLTS_PER_COUNT 2.4414067e-07f

void openADS1248_iso(void);
void closeADS1248_iso(void);
void ADS1248_gpio_init(void);
void ADS1248_gpio_ADG1609_mux(uint32_t chan);
void ADS1248_gpio3(uint32_t state);
void ADS1248_gpio2(uint32_t state);
void ADS1248_gpio0(void);
uint32_t ADS1248_gain_sps(int gain, int sps);
// Mean of `trials` conversions in volts; their spread is left in sys_samp.AD24_std.
float pollADS1248_iso(int pos_chan, int neg_chan, int trials, int gain, int sps);
