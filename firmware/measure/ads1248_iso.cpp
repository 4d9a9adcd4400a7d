// The ADS1248 on the isolated analog board, on SSI3, and the ADG1609 mux in
// front of its AIN1 input, switched by the ADC's own GPIO pins. Owns the
// power and control lines of the isolated section, the register writes, the
// bursts of conversions and their mean and spread.
//
// Not here: which channels a sample reads and what the volts mean (sample),
// the chemistry (ph). The ADC runs in its power-up read-continuous mode: after
// DRDY falls the data shift out on the next 24 clocks.
#include "measure/ads1248_iso.h"

#include <math.h>

#include "board/board_util.h"
#include "console/user_io.h"
#include "core/system.h"
#include "files/microsd.h"
#include "gpio.h"
#include "hibernate.h"
#include "ssi.h"
#include "sysctl.h"

// Board lines of the isolated section
#define ISO_PORT GPIO_PORTE_BASE
#define ISO_POWER GPIO_PIN_0 // high = isolated supply on
#define ADC_DRDY GPIO_PIN_1  // low = conversion ready
#define ADC_START GPIO_PIN_2 // held high: continuous conversion
#define ADC_RESET GPIO_PIN_3 // pulsed low at power-up
#define ADC_CS_PORT GPIO_PORTD_BASE
#define ADC_CS GPIO_PIN_1 // low during every transfer
#define ADC_SSI_PINS (GPIO_PIN_0 | GPIO_PIN_2 | GPIO_PIN_3)
#define ADC_SSI_CLK GPIO_PIN_0
#define ADC_SSI_RX GPIO_PIN_2
#define ADC_SSI_TX GPIO_PIN_3
#define ADC_SSI SSI3_BASE
#define ADC_SSI_BIT_RATE 1000000u

// Timing: busy-wait counts at 50 MHz (SysCtlDelay burns 3 cycles a count).
#define ADC_POWER_SETTLE_MS 2u
#define ADC_RESET_PULSE_COUNTS (17u * 10u) // about 10 us
#define ADC_START_SETTLE_MS 20u

// ADS1248 commands and registers
#define ADS_WREG 0x40u
#define ADS_NOP 0xFFu
#define ADS_REG_MUX0 0x00u
#define ADS_REG_GPIOCFG 0x0Cu
#define ADS_REG_GPIODAT 0x0Eu
#define ADS_VBIAS_OFF 0x00u
#define ADS_MUX1_INTREF 0x30u // internal reference on and selected
#define ADS_GPIO_ALL 0x0Fu    // GPIO0..3 as general-purpose pins
#define ADS_GPIO_OUTPUTS 0x00u
#define ADS_GPIO3_BIAS 0x08u
#define ADS_GPIO2 0x04u
#define ADG1609_ENABLE 0x04u

// Most register writes are a handful of bytes; the receive FIFO is 8 deep.
#define SSI_DRAIN_MAX 32u

namespace {

bool s_drdyTimeoutReported = false; // once per power cycle

void cs_low(void) {
    GPIOPinWrite(ADC_CS_PORT, ADC_CS, 0);
}

void cs_high(void) {
    GPIOPinWrite(ADC_CS_PORT, ADC_CS, ADC_CS);
}

// Whatever the ADC clocked back during earlier writes is of no use.
void ssi_drain_rx(void) {
    uint32_t junk;
    for (uint32_t i = 0; i < SSI_DRAIN_MAX && SSIDataGetNonBlocking(ADC_SSI, &junk) != 0; i++) {
    }
}

void ssi_wait_idle(void) {
    while (SSIBusy(ADC_SSI)) {
    }
}

// One WREG transaction: first register, then its values in order.
void ads_write_regs(uint32_t first, const uint8_t *values, uint32_t count) {
    cs_low();
    ssi_drain_rx();
    SSIDataPut(ADC_SSI, ADS_WREG | first);
    SSIDataPut(ADC_SSI, count - 1u);
    for (uint32_t i = 0; i < count; i++) {
        SSIDataPut(ADC_SSI, values[i]);
    }
    ssi_wait_idle();
    cs_high();
}

// Cortex-M4 integer division leaves 0 for a zero divisor (the divide-by-zero
// trap is off); the burst mean keeps that result here too.
int32_t div_or_zero(int32_t a, int32_t b) {
    return b == 0 ? 0 : a / b;
}

int rate_of(int sps) {
    switch (sps) {
    case 5:
    case 10:
    case 20:
    case 40:
    case 80:
    case 160:
    case 320:
    case 640:
    case 1000:
    case 2000:
        return sps;
    default:
        return 5; // what ADS1248_gain_sps falls back to
    }
}

// DRDY low, or 0 when the burst's time is up. Each pass reads the line and
// idles. The limit runs on the SysTick stopwatch; the RTC's seconds bound the
// wait as well, should SysTick not be running.
int wait_drdy(uint32_t startMs, uint32_t startSec, uint32_t limitMs) {
    const uint32_t limitSec = limitMs / 1000u + 2u;
    while (GPIOPinRead(ISO_PORT, ADC_DRDY) != 0) {
        if (Timer_1ms(0) - startMs > limitMs || HibernateRTCGet() - startSec > limitSec) {
            return 0;
        }
        SysCtlSleep();
    }
    return 1;
}

void report_drdy_timeout(int pos_chan, int neg_chan, uint32_t limitMs) {
    if (s_drdyTimeoutReported) {
        return;
    }
    s_drdyTimeoutReported = true;
    uprintf("\r\nADS1248 no DRDY: AIN%d/AIN%d gave no conversion in %u ms, reading set to %.1f\r\n",
            pos_chan, neg_chan, (unsigned)limitMs, (double)ADS1248_NO_DRDY_VOLTS);
    error_store("ADS1248 no DRDY, readings set to -999");
}

} // namespace

void openADS1248_iso(void) {
    GPIOPinTypeGPIOOutput(ISO_PORT, ISO_POWER | ADC_START | ADC_RESET);
    GPIOPinTypeGPIOInput(ISO_PORT, ADC_DRDY);
    GPIOPinTypeGPIOOutput(ADC_CS_PORT, ADC_CS);
    GPIOPinWrite(ISO_PORT, ISO_POWER | ADC_RESET | ADC_START, ISO_POWER | ADC_RESET | ADC_START);
    GPIOPinWrite(ADC_CS_PORT, ADC_CS, ADC_CS);

    delay_msec(ADC_POWER_SETTLE_MS);
    GPIOPinWrite(ISO_PORT, ADC_RESET, 0);
    SysCtlDelay(ADC_RESET_PULSE_COUNTS);
    GPIOPinWrite(ISO_PORT, ADC_RESET, ADC_RESET);

    SysCtlPeripheralEnable(SYSCTL_PERIPH_SSI3);
    GPIOPinConfigure(GPIO_PD0_SSI3CLK);
    GPIOPinConfigure(GPIO_PD2_SSI3RX);
    GPIOPinConfigure(GPIO_PD3_SSI3TX);
    GPIOPinTypeSSI(ADC_CS_PORT, ADC_SSI_PINS);
    SSIConfigSetExpClk(ADC_SSI, SysCtlClockGet(), SSI_FRF_MOTO_MODE_1, SSI_MODE_MASTER,
                       ADC_SSI_BIT_RATE, 8);
    SSIEnable(ADC_SSI);

    delay_msec(ADC_START_SETTLE_MS);
}

void closeADS1248_iso(void) {
    GPIOPinWrite(ISO_PORT, ADC_START | ADC_RESET, ADC_START | ADC_RESET);
    SSIDisable(ADC_SSI);
    SysCtlPeripheralDisable(SYSCTL_PERIPH_SSI3);
    // No line may feed the unpowered side through its protection diodes.
    GPIOPinTypeGPIOOutput(ADC_CS_PORT, ADC_SSI_CLK);
    GPIOPinWrite(ADC_CS_PORT, ADC_SSI_CLK, 0);
    GPIOPinTypeGPIOInput(ADC_CS_PORT, ADC_SSI_RX);
    GPIOPinTypeGPIOOutput(ADC_CS_PORT, ADC_SSI_TX);
    GPIOPinWrite(ADC_CS_PORT, ADC_SSI_TX, 0);
    GPIOPinWrite(ADC_CS_PORT, ADC_CS, 0);
    GPIOPinWrite(ISO_PORT, ISO_POWER, 0);
}

void ADS1248_gpio_init(void) {
    const uint8_t regs[3] = {ADS_GPIO_ALL, ADS_GPIO_OUTPUTS, 0x00};
    ads_write_regs(ADS_REG_GPIOCFG, regs, 3);
}

// The mux address lines are wired inverted and the enable rides on GPIO2
// only for channels 0 and 3: 0 -> 7, 1 -> 2, 2 -> 1, 3 -> 4.
void ADS1248_gpio_ADG1609_mux(uint32_t chan) {
    if (chan > 3u) {
        uprintf("Mux channels are 0 to 3 in ADS1248_iso.c, error in arg for "
                "ADS1248_gpio_ADG1609_mux");
        prn_nl();
        chan = 3u;
    }
    uint8_t dat = (uint8_t)((chan ^ 3u) & 3u);
    if (chan == 0u || chan == 3u) {
        dat = (uint8_t)(dat | ADG1609_ENABLE);
    }
    ads_write_regs(ADS_REG_GPIODAT, &dat, 1);
}

// GPIODAT is written whole: the mux select bits go to 0 as well.
void ADS1248_gpio3(uint32_t state) {
    const uint8_t dat = state == 1u ? ADS_GPIO3_BIAS : 0x00;
    ads_write_regs(ADS_REG_GPIODAT, &dat, 1);
}

void ADS1248_gpio2(uint32_t state) {
    const uint8_t dat = state == 1u ? ADS_GPIO2 : 0x00;
    ads_write_regs(ADS_REG_GPIODAT, &dat, 1);
}

void ADS1248_gpio0(void) {}

uint32_t ADS1248_gain_sps(int gain, int sps) {
    uint32_t pga;
    switch (gain) {
    case 1:
        pga = 0x00;
        break;
    case 2:
        pga = 0x10;
        break;
    case 4:
        pga = 0x20;
        break;
    case 8:
        pga = 0x30;
        break;
    case 16:
        pga = 0x40;
        break;
    case 32:
        pga = 0x50;
        break;
    case 64:
        pga = 0x60;
        break;
    case 128:
        pga = 0x70;
        break;
    default:
        prn_nl();
        prn_nl();
        uprintf("Unrecognized PGA gain. Setting to 1.");
        pga = 0x00;
        break;
    }

    uint32_t dr;
    switch (sps) {
    case 5:
        dr = 0;
        break;
    case 10:
        dr = 1;
        break;
    case 20:
        dr = 2;
        break;
    case 40:
        dr = 3;
        break;
    case 80:
        dr = 4;
        break;
    case 160:
        dr = 5;
        break;
    case 320:
        dr = 6;
        break;
    case 640:
        dr = 7;
        break;
    case 1000:
        dr = 8;
        break;
    case 2000:
        dr = 9;
        break;
    default:
        prn_nl();
        prn_nl();
        uprintf("Unrecognized data rate. Setting to 5 sps.");
        dr = 0;
        break;
    }
    return pga | dr;
}

uint32_t ADS1248_drdy_timeout_ms(int trials, int sps) {
    if (trials > ADS1248_MAX_TRIALS) {
        trials = ADS1248_MAX_TRIALS;
    }
    if (trials < 0) {
        trials = 0;
    }
    const uint32_t rate = (uint32_t)rate_of(sps);
    const uint32_t periodMs = (1000u + rate - 1u) / rate;
    return ((uint32_t)trials + 4u) * periodMs + 10u;
}

float pollADS1248_iso(int pos_chan, int neg_chan, int trials, int gain, int sps) {
    // Kept off the stack: this frame sits under the deepest menu paths, and
    // only the foreground loop ever reads the ADC.
    static float volts[ADS1248_MAX_TRIALS];

    if (trials > ADS1248_MAX_TRIALS) {
        uprintf("MAX TRIALS is %u in ADS1248_iso.c, more trials (avg) than %u was requested, "
                "edit pollADS1248_iso() and recompile",
                (unsigned)ADS1248_MAX_TRIALS, (unsigned)ADS1248_MAX_TRIALS);
        prn_nl();
        trials = ADS1248_MAX_TRIALS;
    }

    // MUX0, VBIAS, MUX1, SYS0 in one write; this also restarts the conversion.
    cs_low();
    const uint8_t sys0 = (uint8_t)ADS1248_gain_sps(gain, sps);
    ssi_drain_rx();
    SSIDataPut(ADC_SSI, ADS_WREG | ADS_REG_MUX0);
    SSIDataPut(ADC_SSI, 0x03);
    SSIDataPut(ADC_SSI, (((uint32_t)pos_chan << 3) | (uint32_t)neg_chan) & 0xFFu);
    SSIDataPut(ADC_SSI, ADS_VBIAS_OFF);
    SSIDataPut(ADC_SSI, ADS_MUX1_INTREF);
    SSIDataPut(ADC_SSI, sys0);
    ssi_wait_idle();
    cs_high();

    const uint32_t limitMs = ADS1248_drdy_timeout_ms(trials, sps);
    const uint32_t startMs = Timer_1ms(0);
    const uint32_t startSec = HibernateRTCGet();

    int32_t sum = 0;
    for (int i = 0; i < trials; i++) {
        if (!wait_drdy(startMs, startSec, limitMs)) {
            report_drdy_timeout(pos_chan, neg_chan, limitMs);
            sys_samp.AD24_std = 0.0f;
            return ADS1248_NO_DRDY_VOLTS;
        }
        ssi_drain_rx();
        cs_low();
        SSIDataPut(ADC_SSI, ADS_NOP);
        SSIDataPut(ADC_SSI, ADS_NOP);
        SSIDataPut(ADC_SSI, ADS_NOP);
        ssi_wait_idle();
        uint32_t b0, b1, b2;
        SSIDataGet(ADC_SSI, &b0);
        SSIDataGet(ADC_SSI, &b1);
        SSIDataGet(ADC_SSI, &b2);
        cs_high();

        int32_t counts = (int32_t)(((b0 & 0xFFu) << 16) | ((b1 & 0xFFu) << 8) | (b2 & 0xFFu));
        if ((counts & 0x800000) != 0) {
            counts -= 0x1000000; // two's complement, 24 bits
        }
        volts[i] = ((float)counts / (float)gain) * ADS1248_VOLTS_PER_COUNT;
        sum += counts;
    }

    // Whole counts, and whole counts per gain step: truncation kept as designed.
    const int32_t meanCounts = div_or_zero(div_or_zero(sum, trials), gain);
    const float result = (float)meanCounts * ADS1248_VOLTS_PER_COUNT;

    if (trials < 2) {
        sys_samp.AD24_std = 0.0f;
    } else {
        float sq = 0.0f;
        for (int i = 0; i < trials; i++) {
            const float d = volts[i] - result;
            sq += d * d;
        }
        sys_samp.AD24_std = (float)sqrt(sq / (float)trials);
    }
    return result;
}
