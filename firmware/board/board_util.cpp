// Board lines of the ZEP3 controller: status LEDs and timing probes, the
// external watchdog with its pet statistics, card detect, the supply
// switches, the SysTick stopwatches and the busy waits, and the pin set-up of
// the 64-pin package.
//
// Many switches of the previous board have not been brought over to ZEP3:
// their operations keep their names for the callers and do nothing, or print
// a notice that says so. Does not own the UARTs (uart*, uartstdio) nor the I2C
// devices.
#include "board/board_util.h"

#include "console/user_io.h"
#include "gpio.h"
#include "sysctl.h"

// Board lines
#define LED_PORT GPIO_PORTF_BASE
#define LED_RED GPIO_PIN_2
#define LED_GREEN GPIO_PIN_3
#define WDOG_PORT GPIO_PORTF_BASE
#define WDOG_ENABLE GPIO_PIN_0
#define WDOG_PET GPIO_PIN_1
#define CARD_DETECT_PORT GPIO_PORTA_BASE
#define CARD_DETECT GPIO_PIN_6 // low = card present
#define RESET_MON_PORT GPIO_PORTA_BASE
#define RESET_MON GPIO_PIN_7
#define SUPPLY_PORT GPIO_PORTE_BASE
#define SUPPLY_ISO GPIO_PIN_0
#define SUPPLY_FLASH GPIO_PIN_5

// Busy-wait counts at 50 MHz (SysCtlDelay burns 3 cycles a count).
#define DELAY_COUNTS_PER_MS 16667u
#define DELAY_COUNTS_PER_US 17u // ceil(16.666...)
#define WDOG_PULSE_COUNTS 170u  // about 10 us

watchDog wdog;
int32_t ledRedState = 0, ledGreenState = 0;
int32_t profileTarget = 0, profile2Target = 0;

static volatile uint32_t g_tick1ms = 0;
static volatile uint32_t g_msSinceReset = 0; // never restarted: the watchdog's clock
static volatile uint32_t g_tick10ms = 0;
static volatile uint32_t g_tickSub10 = 0;

// ---- SysTick stopwatches ------------------------------------------------

void SysTickIntHandler(void) {
    g_tick1ms = g_tick1ms + 1u;
    g_msSinceReset = g_msSinceReset + 1u;
    uint32_t sub = g_tickSub10 + 1u;
    if (sub >= 10u) {
        sub = 0;
        g_tick10ms = g_tick10ms + 1u;
    }
    g_tickSub10 = sub;
}

uint32_t Timer_1ms(uint32_t reset) {
    if (reset) {
        g_tick1ms = 0;
        return 0;
    }
    return g_tick1ms;
}

uint32_t ms_since_reset(void) {
    return g_msSinceReset;
}

uint32_t Timer_10ms(uint32_t reset) {
    if (reset) {
        g_tick10ms = 0;
        g_tickSub10 = 0;
        return 0;
    }
    return g_tick10ms;
}

void delay_msec(uint32_t ms) {
    for (uint32_t i = 0; i < ms; i++) {
        SysCtlDelay(DELAY_COUNTS_PER_MS);
    }
}

void delay_usec(uint32_t us) {
    // In slices, so the count never overflows.
    const uint32_t slice = 1000u;
    while (us > slice) {
        SysCtlDelay(slice * DELAY_COUNTS_PER_US);
        us -= slice;
    }
    if (us > 0u) {
        SysCtlDelay(us * DELAY_COUNTS_PER_US);
    }
}

void delay_sec(uint32_t s) {
    for (uint32_t i = 0; i < s; i++) {
        delay_msec(1000u);
    }
}

// ---- pin set-up ---------------------------------------------------------

void init_TM4C123GH6PM_64pin(void) {
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOA);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOB);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOC);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOD);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOE);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOF);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_UART0);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_I2C0);

    // Status LEDs, off.
    GPIOPinTypeGPIOOutput(LED_PORT, LED_RED | LED_GREEN);
    GPIOPinWrite(LED_PORT, LED_RED | LED_GREEN, 0);
    // External watchdog: enable and pet lines.
    GPIOPinTypeGPIOOutput(WDOG_PORT, WDOG_ENABLE | WDOG_PET);
    // Card detect and the reset monitor are inputs.
    GPIOPinTypeGPIOInput(CARD_DETECT_PORT, CARD_DETECT);
    GPIOPinTypeGPIOInput(RESET_MON_PORT, RESET_MON);
    // Isolated analog supply and flash supply switches.
    GPIOPinTypeGPIOOutput(SUPPLY_PORT, SUPPLY_ISO | SUPPLY_FLASH);
    // Console UART0.
    GPIOPinConfigure(GPIO_PA0_U0RX);
    GPIOPinConfigure(GPIO_PA1_U0TX);
    GPIOPinTypeUART(GPIO_PORTA_BASE, GPIO_PIN_0 | GPIO_PIN_1);
    // I2C bus 0.
    GPIOPinConfigure(GPIO_PB2_I2C0SCL);
    GPIOPinConfigure(GPIO_PB3_I2C0SDA);
    GPIOPinTypeI2CSCL(GPIO_PORTB_BASE, GPIO_PIN_2);
    GPIOPinTypeI2C(GPIO_PORTB_BASE, GPIO_PIN_3);
}

// ---- LEDs and timing probes ---------------------------------------------

void led_init(void) {
    ledRedState = 0;
    ledGreenState = 0;
    GPIOPinTypeGPIOOutput(LED_PORT, LED_GREEN | LED_RED);
    GPIOPinWrite(LED_PORT, LED_GREEN | LED_RED, 0);
}

void led_red_on(void) {
    GPIOPinWrite(LED_PORT, LED_RED, LED_RED);
    ledRedState = 1;
}

void led_red_off(void) {
    GPIOPinWrite(LED_PORT, LED_RED, 0);
    ledRedState = 0;
}

void led_green_on(void) {
    GPIOPinWrite(LED_PORT, LED_GREEN, LED_GREEN);
    ledGreenState = 1;
}

void led_green_off(void) {
    GPIOPinWrite(LED_PORT, LED_GREEN, 0);
    ledGreenState = 0;
}

void led_red(int32_t on) {
    if (on) {
        led_red_on();
    } else {
        led_red_off();
    }
}

void led_green(int32_t on) {
    if (on) {
        led_green_on();
    } else {
        led_green_off();
    }
}

void led_red_toggle(void) {
    led_red(!ledRedState);
}

void led_green_toggle(void) {
    led_green(!ledGreenState);
}

// A probe shows on its LED only when its number is the selected target, so
// one code path at a time can be timed on a scope.
void profile_on(int32_t id) {
    if (id == profileTarget) {
        led_red_on();
    }
}

void profile_off(int32_t id) {
    if (id == profileTarget) {
        led_red_off();
    }
}

void profile_toggle(int32_t id) {
    if (id == profileTarget) {
        led_red_toggle();
    }
}

void profile2_on(int32_t id) {
    if (id == profile2Target) {
        led_green_on();
    }
}

void profile2_off(int32_t id) {
    if (id == profile2Target) {
        led_green_off();
    }
}

void profile2_toggle(int32_t id) {
    if (id == profile2Target) {
        led_green_toggle();
    }
}

// ---- external watchdog --------------------------------------------------

void wdog_init(void) {
    wdog.tickStart = ms_since_reset(); // tickDelta stays 0: the first gap counts from reset
    GPIOPinWrite(WDOG_PORT, WDOG_ENABLE, 0);
    SysCtlDelay(WDOG_PULSE_COUNTS);
    GPIOPinWrite(WDOG_PORT, WDOG_ENABLE, WDOG_ENABLE);
    GPIOPinWrite(WDOG_PORT, WDOG_PET, 0);
}

// One pulse on the pet line, and the statistics the test menus show: the
// longest gap between two pets tells whether long operations pet often enough.
// The sample cycle restarts the Timer_1ms stopwatch; the statistics read the
// free-running count, so a sample never shows as a gap of 49 days.
void wdog_pet(void) {
    uint32_t now = ms_since_reset();
    uint32_t interval = now - wdog.tickDelta;
    if (interval > wdog.tickLongest) {
        wdog.tickLongest = interval;
    }
    wdog.tickDelta = now;
    wdog.tickTot = now - wdog.tickStart;
    GPIOPinWrite(WDOG_PORT, WDOG_PET, WDOG_PET);
    SysCtlDelay(WDOG_PULSE_COUNTS);
    GPIOPinWrite(WDOG_PORT, WDOG_PET, 0);
}

void wdog_resetMon(void) {
    GPIOPinTypeGPIOInput(RESET_MON_PORT, RESET_MON);
}

void wdog_readMon(void) {}

void read_wdog_flipflop(void) {
    uprintf("Not implemented yet\r\n");
}

// ---- card and supplies --------------------------------------------------

int32_t uSD_present(void) {
    return GPIOPinRead(CARD_DETECT_PORT, CARD_DETECT) == 0 ? 1 : 0;
}

void pwr_iso_on(void) {
    uprintf("\r\npwr_iso_on is not ported on ZEP3, board_util.c, line 190\r\n");
    GPIOPinWrite(SUPPLY_PORT, SUPPLY_ISO, SUPPLY_ISO);
}

void pwr_iso_off(void) {
    uprintf("\r\npwr_iso_off is not ported on ZEP3, board_util.c, line 201\r\n");
    GPIOPinWrite(SUPPLY_PORT, SUPPLY_ISO, 0);
}

void pwr_flash_on(void) {
    uprintf("pwr_flash_on needs imp board_util.c");
    prn_nl();
    GPIOPinWrite(SUPPLY_PORT, SUPPLY_FLASH, SUPPLY_FLASH);
    delay_msec(1);
}

void pwr_flash_off(void) {
    GPIOPinWrite(SUPPLY_PORT, SUPPLY_FLASH, 0);
    uprintf("pwr_flash_off needs imp board_util.c");
    prn_nl();
}

void pwr_uSD_on(void) {}

// The notice names the "on" operation; it always has.
void pwr_uSD_off(void) {
    uprintf("pwr_uSD_on needs imp board_util.c");
    prn_nl();
}

void console_on(void) {
    uprintf("\r\nconsole enable is not ported on ZEP3, board_util.c, line 118\r\n");
}

void console_off(void) {}

// The pump switch sits on the PCAL6416 expander, not yet wired up.
void pump_on(void) {
    uprintf("pump_on is PCAL6416 on ZEP3 baseboard, not supported yet board_util.c line 339\r\n");
}

void pump_off(void) {
    uprintf("pump_off is PCAL6416 on ZEP3 baseboard, not supported yet board_util.c line 357\r\n");
}

// Switches not brought over to ZEP3: kept for their callers.
void spare_rs232_on(void) {}
void spare_rs232_off(void) {}
void solenoid_on(void) {}
void solenoid_off(void) {}
void solenoid_hold(void) {}
void solenoid_hit(void) {}
void pwr_vbat_mon_on(void) {}
void pwr_vbat_mon_off(void) {}
void pwr_soln_on(void) {}
void pwr_soln_off(void) {}
void pwr_env_mon_on(void) {}
void pwr_env_mon_off(void) {}
void pwr_ctd_on(void) {}
void pwr_ctd_off(void) {}
void pwr_aux_pwr1_on(void) {}
void pwr_aux_pwr1_off(void) {}
void pwr_aux_pwr2_on(void) {}
void pwr_aux_pwr2_off(void) {}
void pwr_aux_pwr3_on(void) {}
void pwr_aux_pwr3_off(void) {}
void pump3_on(void) {}
void pump3_off(void) {}
void pressure_on(void) {}
void pressure_off(void) {}
void PORTXXX_on(void) {}
void PORTXXX_off(void) {}
