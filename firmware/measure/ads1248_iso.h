// The 24-bit ADC on the isolated analog board (SSI3) and the ADG1609 mux
// behind its GPIO pins: power, channel set-up, bursts of conversions.
#pragma once
#include <stdint.h>

#define ADS1248_MAX_TRIALS 120
#define ADS1248_VOLTS_PER_COUNT 2.4414067e-07f

// What pollADS1248_iso returns when the ADC never signalled a conversion
// (DRDY stayed high past the time-out): far outside the +/-2.048 V input
// range, so it cannot be mistaken for a reading. AD24_std is then 0.
#define ADS1248_NO_DRDY_VOLTS (-999.0f)

void openADS1248_iso(void);
void closeADS1248_iso(void);
void ADS1248_gpio_init(void);
void ADS1248_gpio_ADG1609_mux(uint32_t chan);
void ADS1248_gpio3(uint32_t state);
void ADS1248_gpio2(uint32_t state);
void ADS1248_gpio0(void);
uint32_t ADS1248_gain_sps(int gain, int sps);
// Mean of `trials` conversions in volts; their spread is left in sys_samp.AD24_std.
// Blocks for about trials conversion periods; gives up after
// ADS1248_drdy_timeout_ms and returns ADS1248_NO_DRDY_VOLTS.
float pollADS1248_iso(int pos_chan, int neg_chan, int trials, int gain, int sps);
// Longest wait for one burst: the burst itself, four conversion periods more
// for the first conversion's filter settling and slack, plus 10 ms.
uint32_t ADS1248_drdy_timeout_ms(int trials, int sps);
