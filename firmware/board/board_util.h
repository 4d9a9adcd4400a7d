// Board lines: status LEDs, external watchdog, card detect, power switches,
// millisecond stopwatches driven by SysTick, busy waits.
#pragma once
#include <stdint.h>

typedef struct {
    uint32_t tickStart;
    uint32_t tickDelta;
    uint32_t tickTot;
    uint32_t tickLongest;
    uint32_t bitten;
} watchDog;

extern watchDog wdog;
extern int32_t ledRedState, ledGreenState;
extern int32_t profileTarget, profile2Target;

// SysTick stopwatches: argument 0 reads, 1 clears and returns 0.
uint32_t Timer_1ms(uint32_t reset);
uint32_t Timer_10ms(uint32_t reset);
uint32_t ms_since_reset(void); // SysTick milliseconds since reset; nothing restarts it
void SysTickIntHandler(void);
void delay_msec(uint32_t ms);
void delay_usec(uint32_t us);
void delay_sec(uint32_t s);

void init_TM4C123GH6PM_64pin(void);
void led_init(void);
void led_red_on(void);
void led_red_off(void);
void led_green_on(void);
void led_green_off(void);
void led_red(int32_t on);
void led_green(int32_t on);
void led_red_toggle(void);
void led_green_toggle(void);
void profile_on(int32_t id);
void profile_off(int32_t id);
void profile_toggle(int32_t id);
void profile2_on(int32_t id);
void profile2_off(int32_t id);
void profile2_toggle(int32_t id);

void wdog_init(void);
void wdog_pet(void);
void wdog_resetMon(void);
void wdog_readMon(void);
void read_wdog_flipflop(void);

int32_t uSD_present(void);
void pwr_iso_on(void);
void pwr_iso_off(void);
void pwr_flash_on(void);
void pwr_flash_off(void);
void pwr_uSD_on(void);
void pwr_uSD_off(void);
void console_on(void);
void console_off(void);
void pump_on(void);
void pump_off(void);
void spare_rs232_on(void);
void spare_rs232_off(void);
void solenoid_on(void);
void solenoid_off(void);
void solenoid_hold(void);
void solenoid_hit(void);
void pwr_vbat_mon_on(void);
void pwr_vbat_mon_off(void);
void pwr_soln_on(void);
void pwr_soln_off(void);
void pwr_env_mon_on(void);
void pwr_env_mon_off(void);
void pwr_ctd_on(void);
void pwr_ctd_off(void);
void pwr_aux_pwr1_on(void);
void pwr_aux_pwr1_off(void);
void pwr_aux_pwr2_on(void);
void pwr_aux_pwr2_off(void);
void pwr_aux_pwr3_on(void);
void pwr_aux_pwr3_off(void);
void pump3_on(void);
void pump3_off(void);
void pressure_on(void);
void pressure_off(void);
void PORTXXX_on(void);
void PORTXXX_off(void);
