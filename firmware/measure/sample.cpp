// The sample cycle. get_sample powers the analog front end, starts the serial
// instruments, reads the enabled ADC channels in their fixed order, reads the
// board's power and climate values, computes temperature and pH, builds the
// tab-separated sample line in prnBuf, prints it and appends it to the data
// file. Also the last-sample reprint, the timing report and the measurement
// tests of the host commands.
//
// Not here: the ADC transactions (ads1248_iso), the chemistry (ph), the
// instrument drivers (instruments/, stepped through the port dispatchers), the
// FRAM store of the last sample (the command parser and the sleep code do it).
#include "measure/sample.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "core/calendar.h"
#include "board/board_util.h"
#include "board/i2c_bme280.h"
#include "board/i2c_fram.h"
#include "board/i2c_ina260.h"
#include "board/uart3.h"
#include "board/uart4.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/decimal.h"
#include "core/system.h"
#include "ff.h"
#include "files/config.h"
#include "files/microsd.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "measure/ads1248_iso.h"
#include "measure/ads1248_noniso.h"
#include "measure/ph.h"
#include "measure/pwm.h"
#include "sysctl.h"

char prnBuf[PRN_BUF_SIZE];

namespace {

// ---- timing constants of the cycle ----------------------------------------
const uint32_t kPowerSettleMs = 100u; // isolated supply and references after power-up
const uint32_t kMuxSettleMs = 10u;    // ADG1609 and the input filter after a switch
const uint32_t kMinCycleStepMs = 5u;  // granularity of the minimum-cycle wait
const uint32_t kStepReportMs = 1u;    // instrument steps longer than this are reported

// Epoch milliseconds as the hosts have always received them. Not the exact
// 1900-to-1970 difference, and deliberately so: the hosts expect these figures.
const uint64_t kEpochMsOffset = 2208963602000ull;
const size_t kStampSize = 50u;

// Scaling of the front end: counter current through its sense resistor, and
// the substrate current.
const double kIkPerVolt = 66666.667;
const double kIbPerVolt = 1000.0;

// Channel wiring of the sample cycle: ADG1609 mux position, ADC inputs.
const uint32_t kMuxVrse = 0u;
const uint32_t kMuxCounter = 1u;
const uint32_t kMuxSubstrate = 2u;
const uint32_t kMuxVrsi = 3u;
const int kAinMux = 1;     // the ADG1609 output
const int kAinTherm = 0;   // thermistor divider
const int kAinBias = 7;    // bias battery divider
const int kAinGround = 6;  // analog ground
const int kAinBiasRef = 5; // biased reference return
const int kAdcGain = 1;

// Ground-fault monitor: its own input pair, a short burst.
const int kAinGndFaultPos = 0;
const int kAinGndFaultNeg = 4;
const int kGndFaultTrials = 10;
const int kGndFaultSps = 20;

// Board temperature sensor on the non-isolated ADC.
const int kAinCtrlTempPos = 2;
const int kAinCtrlTempNeg = 7;
const int kCtrlTempTrials = 1;

// ---- shared helpers -----------------------------------------------------

bool column(uint32_t cfg) {
    return sys_data.data_cfg[cfg] != 0;
}

bool diag_on(void) {
    return sys_data.app_cfg[APPCFG_SAMPLING_DIAG] == 1;
}

// A record count of 0 would leave the ADC routine dividing by zero, and a count
// too large for an int would turn negative: both become legal counts (the ADC
// routine clamps to its maximum and says so).
int adc_trials(uint32_t trials) {
    if (trials == 0u) {
        return 1;
    }
    return trials > 1000u ? 1000 : (int)trials;
}

int adc_sps(uint32_t sps) {
    return sps > 100000u ? 100000 : (int)sps;
}

// Timing report of the cycle: each line shows the milliseconds of its step and
// the milliseconds since the cycle began.
uint32_t s_mark;

void diag_from(const char *fmt, uint32_t stepStart) {
    uint32_t now = Timer_1ms(0);
    if (diag_on()) {
        uprintf(fmt, (unsigned)(now - stepStart), (unsigned)now);
    }
    s_mark = now;
}

void diag(const char *fmt) {
    diag_from(fmt, s_mark);
}

// ---- the sample line ----------------------------------------------------

// Columns go into prnBuf; the last two bytes stay free for the line end.
uint32_t s_len;

void line_start(void) {
    s_len = 0;
    prnBuf[0] = 0;
}

void line_put(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void line_put(const char *fmt, ...) {
    const uint32_t cap = PRN_BUF_SIZE - 1u;
    if (s_len + 1u >= cap) {
        return;
    }
    va_list ap;
    va_start(ap, fmt);
    int r = vsnprintf(prnBuf + s_len, cap - s_len, fmt, ap);
    va_end(ap);
    if (r > 0) {
        uint32_t room = cap - s_len - 1u;
        s_len += (uint32_t)r < room ? (uint32_t)r : room;
    }
}

// A driver's text buffer printed as a column, never read past its end.
void line_put_text(const unsigned char *text, size_t size) {
    const char *t = (const char *)text;
    line_put("%.*s\t", (int)strnlen(t, size), t);
}

// Time-stamp text by CFG_TIMESTAMP: 2 epoch milliseconds, 1 local date and
// time, anything else no text.
void make_stamp(uint32_t seconds, char *out) {
    out[0] = 0;
    uint8_t form = sys_data.data_cfg[CFG_TIMESTAMP];
    if (form == 2u) {
        uint64_t ms = (uint64_t)seconds * 1000ull - kEpochMsOffset;
        dec_u64_text(ms, 13u, out); // kStampSize holds it
    } else if (form == 1u) {
        format_time(out, kStampSize, "%m/%d/%Y %H:%M:%S", (int64_t)seconds);
    }
}

// Columns 1 to 16 (sample number to external pH).
void put_head(const sampData *s, uint32_t sampNum, const char *stamp) {
    if (column(CFG_SAMPLE_NUM)) {
        line_put("#%07u\t", (unsigned)sampNum);
    }
    if (column(CFG_TIMESTAMP)) {
        line_put("%s\t", stamp);
    }
    if (column(CFG_VIN_BAT_VOLT)) {
        line_put("%8.2f\t", (double)s->fVbat_main);
    }
    if (column(CFG_BIAS_BAT_POS)) {
        line_put("%8.2f\t", (double)s->fBiasPos);
    }
    if (column(CFG_BIAS_BAT_NEG)) {
        line_put("%8.2f\t", (double)s->fBiasNeg);
    }
    if (column(CFG_BRD_TEMP)) {
        line_put("%8.2f\t", (double)s->fBrdTempC);
    }
    if (column(CFG_BRD_HUMIDITY)) {
        line_put("%8u\t", (unsigned)s->uiHumidity);
    }
    if (column(CFG_V_THERMISTOR)) {
        line_put("%8.6f\t", (double)s->fVtherm);
    }
    if (column(CFG_V_THERMISTOR_STD)) {
        line_put("%8.6f\t", (double)s->fVtherm_std);
    }
    if (column(CFG_CALC_TEMP)) {
        line_put("%8.3f\t", (double)s->fTempC);
    }
    if (column(CFG_VRSI)) {
        line_put("%8.6f\t", (double)s->fVrsi);
    }
    if (column(CFG_VRSI_STD)) {
        line_put("%8.6f\t", (double)s->fVrsi_std);
    }
    if (column(CFG_CALC_PH_VRSI)) {
        line_put("%8.3f\t", (double)s->pHint);
    }
    if (column(CFG_VRSE)) {
        line_put("%8.6f\t", (double)s->fVrse);
    }
    if (column(CFG_VRSE_STD)) {
        line_put("%8.6f\t", (double)s->fVrse_std);
    }
    if (column(CFG_CALC_PH_VRSE)) {
        line_put("%8.3f\t", (double)s->pHext);
    }
}

// Columns 21 to 24 (counter electrode and substrate).
void put_tail(const sampData *s) {
    if (column(CFG_V_COUNTER_ELECT)) {
        line_put("%8.6f\t", (double)s->fVk);
    }
    if (column(CFG_V_COUNTER_ELECT_STD)) {
        line_put("%8.6f\t", (double)s->fVk_std);
    }
    if (column(CFG_I_COUNTER)) {
        line_put("%8.2f\t", (double)s->fIk);
    }
    if (column(CFG_I_SUBSTRATE)) {
        line_put("%8.3f\t", (double)s->fIb);
    }
}

// The tab of the last column becomes CR, and LF follows. With no column at
// all there is no tab to replace: the line is the LF alone.
void line_end(void) {
    if (s_len == 0u) {
        prnBuf[0] = '\n';
        prnBuf[1] = 0;
        s_len = 1;
        return;
    }
    prnBuf[s_len - 1u] = '\r';
    prnBuf[s_len++] = '\n';
    prnBuf[s_len] = 0;
}

// ---- instruments --------------------------------------------------------

int s_uart3State;
int s_uart4State;

// One step of each running instrument between the bias readings, so they
// sample while the ADC works.
void step_instruments(void) {
    if (s_uart3State != 0) {
        uint32_t t0 = Timer_1ms(0);
        s_uart3State = uart3_stateMachine(s_uart3State);
        if (Timer_1ms(0) - t0 > kStepReportMs) {
            diag_from("\r\nUart3 St8Ma = %5u,   %5u", t0);
        }
    }
    if (s_uart4State != 0) {
        uint32_t t0 = Timer_1ms(0);
        s_uart4State = uart4_stateMachine(s_uart4State);
        if (Timer_1ms(0) - t0 > kStepReportMs) {
            diag_from("\r\nCTD    St8Ma = %5u,   %5u", t0);
        }
    }
}

// The drivers take at most one byte a step and time themselves out; between
// steps with nothing received the processor idles until the next interrupt.
void finish_uart3(void) {
    while (s_uart3State != 0) {
        s_uart3State = uart3_stateMachine(s_uart3State);
        if (s_uart3State != 0 && uart3_rx_bytes_avail() == 0) {
            SysCtlSleep();
        }
    }
}

void finish_uart4(void) {
    while (s_uart4State != 0) {
        s_uart4State = uart4_stateMachine(s_uart4State);
        if (s_uart4State != 0 && uart4_rx_bytes_avail() == 0) {
            SysCtlSleep();
        }
    }
}

// ---- the card -----------------------------------------------------------

// The data file name as stored, terminated whatever the record holds.
void data_file_name(char *out, size_t size) {
    size_t n = strnlen(sys_data.fileName, sizeof sys_data.fileName);
    if (n >= size) {
        n = size - 1u;
    }
    memcpy(out, sys_data.fileName, n);
    out[n] = 0;
}

// Seeks to the end of the data file. A file that does not end in a line end
// was cut off inside an append (power lost mid-write): the torn line is ended
// first, so the next sample starts on a line of its own. A file that ends in a
// line end, or is empty, is left as it is.
FRESULT end_torn_line(FIL *fil) {
    DWORD size = f_size(fil);
    if (size == 0u) {
        return FR_OK;
    }
    FRESULT r = f_lseek(fil, size - 1u);
    if (r != FR_OK) {
        return r;
    }
    char last = 0;
    UINT got = 0;
    r = f_read(fil, &last, 1, &got);
    if (r != FR_OK || got != 1u) {
        return r != FR_OK ? r : FR_INT_ERR;
    }
    if (last != '\n') {
        // cut between CR and LF: only the LF is missing
        const char *end = last == '\r' ? "\n" : "\r\n";
        UINT written = 0;
        r = f_write(fil, end, (UINT)strlen(end), &written);
    }
    return r;
}

// Appends the finished line to the data file. Every failing call is reported;
// an open or close failure also goes to the error log. A short write is a
// full card (the file system reports no error for it).
void append_line(void) {
    char name[sizeof sys_data.fileName + 1u];
    data_file_name(name, sizeof name);
    FIL fil;
    memset(&fil, 0, sizeof fil);
    FRESULT r = f_open(&fil, name, FA_READ | FA_WRITE | FA_OPEN_ALWAYS);
    if (r != FR_OK) {
        uprintf("f_open error: %s\r\n", StringFromFresult(r));
        error_store("f_open error");
        return;
    }
    r = end_torn_line(&fil);
    if (r != FR_OK) {
        uprintf("f_lseek error: %s\r\n", StringFromFresult(r));
    } else {
        UINT written = 0;
        r = f_write(&fil, prnBuf, (UINT)s_len, &written);
        if (r != FR_OK) {
            uprintf("f_write error: %s\r\n", StringFromFresult(r));
        } else if (written < (UINT)s_len) {
            uprintf("f_write error: card full, %u of %u bytes written\r\n", (unsigned)written,
                    (unsigned)s_len);
        }
    }
    r = f_close(&fil);
    if (r != FR_OK) {
        uprintf("f_close error: %s\r\n", StringFromFresult(r));
        error_store("f_close error");
    }
}

// ---- measurement tests --------------------------------------------------

enum TestChannel { T_VRSI, T_VRSE, T_VTHERM, T_TEMPC, T_VK, T_IK, T_IB };

struct TestChannelWiring {
    const char *label;
    int mux; // -1: the reading does not go through the mux
    int pos;
    int neg;
    const uint32_t *sps;
    const uint32_t *trials;
};

TestChannelWiring test_wiring(TestChannel ch) {
    switch (ch) {
    case T_VRSI:
        return {"Vrsi  ",   (int)kMuxVrsi,      kAinMux,
                kAinGround, &sys_data.Vrsi_sps, &sys_data.Vrsi_trials};
    case T_VRSE:
        return {"Vrse  ",   (int)kMuxVrse,      kAinMux,
                kAinGround, &sys_data.Vrse_sps, &sys_data.Vrse_trials};
    case T_VK:
        return {"Vk    ",   (int)kMuxCounter, kAinMux,
                kAinGround, &sys_data.Vk_sps, &sys_data.Vk_trials};
    case T_IK:
        return {"Ik    ",    (int)kMuxCounter, kAinMux,
                kAinBiasRef, &sys_data.Ik_sps, &sys_data.Ik_trials};
    case T_IB:
        return {"Ib    ",   (int)kMuxSubstrate, kAinMux,
                kAinGround, &sys_data.Ib_sps,   &sys_data.Ib_trials};
    case T_TEMPC:
        return {"TempC ", -1, kAinTherm, kAinGround, &sys_data.Vtherm_sps, &sys_data.Vtherm_trials};
    case T_VTHERM:
    default:
        return {"Vtherm", -1, kAinTherm, kAinGround, &sys_data.Vtherm_sps, &sys_data.Vtherm_trials};
    }
}

void adc_power_up(void) {
    openADS1248_iso();
    delay_msec(kPowerSettleMs);
    wdog_pet();
    ADS1248_gpio_init();
}

// True when the run should stop: a key at the console (thrown away).
bool test_pause(uint32_t i, uint32_t num, uint32_t pauseMs) {
    wdog_pet();
    if (i + 1u >= num) {
        return true;
    }
    for (uint32_t t = 0; t < pauseMs; t++) {
        if (kbhit()) {
            return true;
        }
        delay_msec(1);
        if (t % 100u == 99u) {
            wdog_pet();
        }
    }
    return kbhit() != 0;
}

void run_channel_test(TestChannel ch, uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b,
                      uint32_t c) {
    TestChannelWiring w = test_wiring(ch);
    int trials = adc_trials(a != 0u ? a : *w.trials);
    int sps = adc_sps(b != 0u ? b : *w.sps);
    if (num == 0u) {
        num = 1;
    }
    adc_power_up();
    for (uint32_t i = 0; i < num; i++) {
        if (w.mux >= 0) {
            ADS1248_gpio_ADG1609_mux((uint32_t)w.mux);
            delay_msec(kMuxSettleMs);
        }
        float v = pollADS1248_iso(w.pos, w.neg, trials, kAdcGain, sps);
        float sd = sys_samp.AD24_std;
        switch (ch) {
        case T_IK: {
            float ik = (float)((double)(v - (float)sys_data.offset_Ik) * kIkPerVolt);
            float ikSd = (float)((double)sd * kIkPerVolt);
            uprintf(stdFlg ? "%s = %8.2f nA, std %8.2f nA\r\n" : "%s = %8.2f nA\r\n", w.label,
                    (double)ik, (double)ikSd);
            break;
        }
        case T_IB: {
            float ib = (float)((double)v * kIbPerVolt);
            float ibSd = (float)((double)sd * kIbPerVolt);
            uprintf(stdFlg ? "%s = %8.3f nA, std %8.3f nA\r\n" : "%s = %8.3f nA\r\n", w.label,
                    (double)ib, (double)ibSd);
            break;
        }
        case T_TEMPC: {
            float tc = DuraFET_temp(v, sys_data.TCOffset);
            uprintf("%s = %8.3f C, Vtherm %8.6f V\r\n", w.label, (double)tc, (double)v);
            break;
        }
        default:
            uprintf(stdFlg ? "%s = %8.6f V, std %8.6f V\r\n" : "%s = %8.6f V\r\n", w.label,
                    (double)v, (double)sd);
            break;
        }
        if (test_pause(i, num, c)) {
            break;
        }
    }
    closeADS1248_iso();
}

} // namespace

// ---- the sample cycle ---------------------------------------------------

void get_sample(int printFlg, int writeFlg) {
    // 1. Start of the cycle.
    Timer_1ms(1);
    s_mark = 0;
    if (sys_data.test_mode == 1u) {
        uprintf("\r\nSampling...");
    }
    wdog_pet();

    // 2. Time stamp.
    char stamp[kStampSize];
    stamp[0] = 0;
    uint8_t form = sys_data.data_cfg[CFG_TIMESTAMP];
    if (form == 1u || form == 2u) {
        sampl.timestamp = HibernateRTCGet();
        make_stamp(sampl.timestamp, stamp);
    }

    // 3. Power for the front end and the environment monitor.
    openADS1248_iso();
    delay_msec(kPowerSettleMs);
    wdog_pet();
    ADS1248_gpio_init();
    pwr_env_mon_on();
    diag("\r\nPwr on, init = %5u,   %5u");

    // 4. Start the instruments; they sample while the bias batteries are read.
    uint32_t instStart = Timer_1ms(0);
    s_uart3State = 0;
    s_uart4State = 0;
    if (sys_data.data_cfg[CFG_UART3_INST] != 0u) {
        s_uart3State = uart3_stateMachine(1);
        diag("\r\nUart3 St8Ma = %5u,   %5u");
    }
    bool ctd = sys_data.data_cfg[CFG_UART4_INST] >= 6u;
    if (ctd) {
        s_uart4State = uart4_stateMachine(1);
        diag("\r\nCTD    St8Ma = %5u,   %5u");
    }
    bool uart3 = sys_data.data_cfg[CFG_UART3_INST] != 0u;

    // 5. Negative bias battery.
    if (column(CFG_BIAS_BAT_NEG)) {
        ADS1248_gpio3(0);
        delay_msec(kMuxSettleMs);
        sampl.fBiasNeg =
            2 * pollADS1248_iso(kAinBias, kAinGround, adc_trials(sys_data.Vbias_trials), kAdcGain,
                                adc_sps(sys_data.Vbias_sps));
    }
    wdog_pet();
    step_instruments();

    // 6. Positive bias battery.
    if (column(CFG_BIAS_BAT_POS)) {
        ADS1248_gpio3(1);
        delay_msec(kMuxSettleMs);
        sampl.fBiasPos =
            2 * pollADS1248_iso(kAinBias, kAinGround, adc_trials(sys_data.Vbias_trials), kAdcGain,
                                adc_sps(sys_data.Vbias_sps));
    }
    wdog_pet();
    step_instruments();
    if ((column(CFG_BIAS_BAT_NEG) || column(CFG_BIAS_BAT_POS)) &&
        Timer_1ms(0) - s_mark > kStepReportMs) {
        diag("\r\nBias Bat     = %5u,   %5u");
    }

    // 7. The instruments finish before the sensitive channels are read.
    if (uart3) {
        finish_uart3();
        diag("\r\nUart3 Inst   = %5u,   %5u");
    }
    if (ctd) {
        finish_uart4();
        diag("\r\nUart4 Inst   = %5u,   %5u");
    }

    // 8. Analog channels, in the order of the line's wiring.
    float vrsiB = 0.0f, vrsiBStd = 0.0f, vrseB = 0.0f, vrseBStd = 0.0f;
    if (column(CFG_I_SUBSTRATE)) {
        ADS1248_gpio_ADG1609_mux(kMuxSubstrate);
        delay_msec(kMuxSettleMs);
        float v = pollADS1248_iso(kAinMux, kAinGround, adc_trials(sys_data.Ib_trials), kAdcGain,
                                  adc_sps(sys_data.Ib_sps));
        sampl.fIb = (float)((double)v * kIbPerVolt);
        wdog_pet();
        diag("\r\nIb Substrate = %5u,   %5u");
    }
    if (column(CFG_I_COUNTER)) {
        ADS1248_gpio_ADG1609_mux(kMuxCounter);
        delay_msec(kMuxSettleMs);
        float v = pollADS1248_iso(kAinMux, kAinBiasRef, adc_trials(sys_data.Ik_trials), kAdcGain,
                                  adc_sps(sys_data.Ik_sps));
        // The offset is a whole number subtracted from volts: that is its definition.
        sampl.fIk = (float)((double)(v - (float)sys_data.offset_Ik) * kIkPerVolt);
        sampl.fIk_std = (float)((double)sys_samp.AD24_std * kIkPerVolt);
        wdog_pet();
        diag("\r\nIk Cntr E    = %5u,   %5u");
    }
    if (column(CFG_V_COUNTER_ELECT)) {
        ADS1248_gpio_ADG1609_mux(kMuxCounter);
        delay_msec(kMuxSettleMs);
        sampl.fVk = pollADS1248_iso(kAinMux, kAinGround, adc_trials(sys_data.Vk_trials), kAdcGain,
                                    adc_sps(sys_data.Vk_sps));
        sampl.fVk_std = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVk Cntr E    = %5u,   %5u");
    }
    if (column(CFG_V_THERMISTOR)) {
        sampl.fVtherm = pollADS1248_iso(kAinTherm, kAinGround, adc_trials(sys_data.Vtherm_trials),
                                        kAdcGain, adc_sps(sys_data.Vtherm_sps));
        sampl.fVtherm_std = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVtherm       = %5u,   %5u");
    }
    if (column(CFG_VRSI_BIASED)) {
        ADS1248_gpio_ADG1609_mux(kMuxVrsi);
        delay_msec(kMuxSettleMs);
        vrsiB = pollADS1248_iso(kAinMux, kAinBiasRef, adc_trials(sys_data.Vrsi_trials), kAdcGain,
                                adc_sps(sys_data.Vrsi_sps));
        vrsiBStd = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVrsi_B       = %5u,   %5u");
    }
    if (column(CFG_VRSI)) {
        ADS1248_gpio_ADG1609_mux(kMuxVrsi);
        delay_msec(kMuxSettleMs);
        sampl.fVrsi = pollADS1248_iso(kAinMux, kAinGround, adc_trials(sys_data.Vrsi_trials),
                                      kAdcGain, adc_sps(sys_data.Vrsi_sps));
        sampl.fVrsi_std = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVrsi         = %5u,   %5u");
    }
    if (column(CFG_VRSE_BIASED)) {
        ADS1248_gpio_ADG1609_mux(kMuxVrse);
        delay_msec(kMuxSettleMs);
        vrseB = pollADS1248_iso(kAinMux, kAinBiasRef, adc_trials(sys_data.Vrse_trials), kAdcGain,
                                adc_sps(sys_data.Vrse_sps));
        vrseBStd = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVrse_B       = %5u,   %5u");
    }
    if (column(CFG_VRSE)) {
        ADS1248_gpio_ADG1609_mux(kMuxVrse);
        delay_msec(kMuxSettleMs);
        sampl.fVrse = 0.0f;
        sampl.fVrse = pollADS1248_iso(kAinMux, kAinGround, adc_trials(sys_data.Vrse_trials),
                                      kAdcGain, adc_sps(sys_data.Vrse_sps));
        sampl.fVrse_std = sys_samp.AD24_std;
        wdog_pet();
        diag("\r\nVrse         = %5u,   %5u");
    }

    // 9. The shortest cycle, counted from the instrument start.
    while (Timer_1ms(0) - instStart < SAMPLE_MIN_CYCLE_MSEC) {
        delay_msec(kMinCycleStepMs);
    }
    wdog_pet();

    // 10. Board power and climate. The climate values are those of the last
    // BME280 measurement anyone made: the cycle starts none of its own.
    ina260_system_voltageCurrent(&sampl.fVbat_main, &sampl.fsysAmp);
    if ((column(CFG_BRD_TEMP) || column(CFG_BRD_HUMIDITY)) && mmsDbgFlg == 1) {
        uprintf("bme280_read_data() commented out in sample.c");
        prn_nl();
    }
    if (column(CFG_BRD_TEMP)) {
        sampl.fBrdTempC = bme280_get_fTemperature();
    }
    if (column(CFG_BRD_HUMIDITY)) {
        sampl.uiHumidity = bme280_get_uiHumidity();
    }
    wdog_pet();
    diag("\r\nOnchip ADC   = %5u,   %5u");

    // 11. Everything off.
    pwr_vbat_mon_off();
    pwr_env_mon_off();
    closeADS1248_iso();

    // 12. Temperature and pH. A CTD-less package (type 5) uses the stored
    // salinity; every other type the last salinity a CTD gave.
    if (column(CFG_CALC_TEMP)) {
        sampl.fTempC = DuraFET_temp(sampl.fVtherm, sys_data.TCOffset);
        diag("\r\nCalc TempC   = %5u,   %5u");
    }
    if (column(CFG_CALC_PH_VRSE)) {
        float sal =
            sys_data.data_cfg[CFG_UART4_INST] == 5u ? sys_data.default_sal : sys_samp.sensor_sal;
        sampl.pHext = calc_pHext(sampl.fVrse, sampl.fTempC, sal);
        diag("\r\nCalc pH Ext  = %5u,   %5u");
    }
    if (column(CFG_CALC_PH_VRSI)) {
        sampl.pHint = calc_pHint(sampl.fVrsi, sampl.fTempC);
        diag("\r\nCalc pH Int  = %5u,   %5u");
    }

    // 13. The line.
    sampl.sampNum = sys_samp.current_sample;
    line_start();
    put_head(&sampl, sys_samp.current_sample, stamp);
    if (column(CFG_VRSI_BIASED)) {
        line_put("%8.6f\t", (double)vrsiB);
    }
    if (column(CFG_VRSI_BIASED_STD)) {
        line_put("%8.6f\t", (double)vrsiBStd);
    }
    if (column(CFG_VRSE_BIASED)) {
        line_put("%8.6f\t", (double)vrseB);
    }
    if (column(CFG_VRSE_BIASED_STD)) {
        line_put("%8.6f\t", (double)vrseBStd);
    }
    put_tail(&sampl);
    if (uart3) {
        line_put_text(uart3_prn_buf, sizeof uart3_prn_buf);
    }
    if (ctd) {
        line_put_text(uart4_prn_buf, sizeof uart4_prn_buf);
    }
    if (sys_data.pump_seq_type == 2u) {
        line_put("%.*s\t", (int)strnlen(pumpBuf, sizeof pumpBuf), pumpBuf);
    }

    // 14. Timing column.
    diag("\r\nformat data  = %5u,   %5u\r\n");
    if (diag_on()) {
        line_put("(%u msec)\t", (unsigned)Timer_1ms(0));
    }

    // 15. CR LF in place of the last tab.
    line_end();

    // 16. Console.
    if (printFlg == 1) {
        UARTwrite(prnBuf, s_len);
    }

    // 17. Data file.
    if (writeFlg == 1 && sys_data.app_cfg[APPCFG_MICROSD_ENABLE] == 1u) {
        append_line();
        diag("\r\nuSD writes   = %5u,   %5u");
    }

    // 18. Drain, count, done.
    wait_consoleTx();
    diag("\r\nwait TX      = %5u,   %5u");
    sys_samp.current_sample++;
    led_red_off();
}

// The last sample rebuilt from the record: columns 1-16 and 21-24, the sample
// counter of the moment (one ahead of the line first sent), no line end.
void print_sampl(void) {
    char stamp[kStampSize];
    make_stamp(sampl.timestamp, stamp);
    line_start();
    put_head(&sampl, sys_samp.current_sample, stamp);
    put_tail(&sampl);
}

void send_last_sample(void) {
    fram_last_samp_retrieve();
    print_sampl();
    UARTwrite(prnBuf, s_len);
}

void print_sample_fields_header(void) {
    print_config_data_fields();
    print_write_data_header(1, 0);
}

void test_get_sample_timing(void) {
    print_sample_fields_header();
    get_sample(1, 0);
    sys_data.app_cfg[APPCFG_SAMPLING_DIAG] = 1;
    uprintf("\r\r\n ---  Sample Timing (msec) ---\r\r\n");
    get_sample(1, 0);
    sys_data.app_cfg[APPCFG_SAMPLING_DIAG] = 0;
}

// ---- hooks ----------------------------------------------------------------

// Board temperature from the sensor on the non-isolated side (not fitted on
// this board, whose stub reads zero).
float controller_temp(void) {
    float v = pollADS1248_noniso(kAinCtrlTempPos, kAinCtrlTempNeg, kCtrlTempTrials);
    return (float)((1000 * v - 480) / 15.6);
}

float pressure(void) {
    return 0.0f;
}

void batt_volt(void) {}

void batt_volt_iso(void) {}

void get_groundfault(void) {
    ADS1248_gpio_ADG1609_mux(0);
    delay_msec(kMuxSettleMs);
    (void)pollADS1248_iso(kAinGndFaultPos, kAinGndFaultNeg, kGndFaultTrials, kAdcGain,
                          kGndFaultSps);
}

// ---- measurement tests ----------------------------------------------------

void test_vrsi(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_VRSI, num, stdFlg, a, b, c);
}
void test_vrse(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_VRSE, num, stdFlg, a, b, c);
}
void test_vtherm(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_VTHERM, num, stdFlg, a, b, c);
}
void test_tempc(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_TEMPC, num, stdFlg, a, b, c);
}
void test_vk(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_VK, num, stdFlg, a, b, c);
}
void test_ik(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_IK, num, stdFlg, a, b, c);
}
void test_ib(uint32_t num, uint32_t stdFlg, uint32_t a, uint32_t b, uint32_t c) {
    run_channel_test(T_IB, num, stdFlg, a, b, c);
}

void test_bias_bat(uint32_t num, uint32_t neg, uint32_t pos, uint32_t c) {
    if (num == 0u) {
        num = 1;
    }
    int trials = adc_trials(sys_data.Vbias_trials);
    int sps = adc_sps(sys_data.Vbias_sps);
    adc_power_up();
    for (uint32_t i = 0; i < num; i++) {
        if (neg != 0u) {
            ADS1248_gpio3(0);
            delay_msec(kMuxSettleMs);
            float v = 2 * pollADS1248_iso(kAinBias, kAinGround, trials, kAdcGain, sps);
            uprintf("Bias Neg = %8.2f V\r\n", (double)v);
        }
        if (pos != 0u) {
            ADS1248_gpio3(1);
            delay_msec(kMuxSettleMs);
            float v = 2 * pollADS1248_iso(kAinBias, kAinGround, trials, kAdcGain, sps);
            uprintf("Bias Pos = %8.2f V\r\n", (double)v);
        }
        if (test_pause(i, num, c)) {
            break;
        }
    }
    closeADS1248_iso();
}

void display_battery_boardSensors(void) {
    float volts = 0.0f, amps = 0.0f;
    ina260_system_voltageCurrent(&volts, &amps);
    uprintf("Vbat     = %8.2f V\r\n", (double)volts);
    uprintf("Current  = %8.3f A\r\n", (double)amps);
    uprintf("Brd Temp = %8.2f C\r\n", (double)bme280_get_fTemperature());
    uprintf("Humidity = %8u %%RH\r\n", (unsigned)bme280_get_uiHumidity());
    uprintf("Pressure = %8.2f Pa\r\n", (double)bme280_get_fPressure());
}
