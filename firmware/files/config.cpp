// The data file's header texts and the output-column switches.
//
// A deployment appends to its data file: the metadata block (lines starting
// "//"), the enabled-field list, a closing banner, the column-title line, then
// one sample line per sample (measure/sample). The same texts go to the
// console for "gm" and "gh". Each printer opens the file, appends and closes
// it; the file's new end goes to sys_samp.next_gdata_fptr, so "gdata" starts
// behind the header. Once a file step fails, that printer writes no more to
// the file but the console copy goes on.
#include "files/config.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "core/calendar.h"
#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/sleep.h"
#include "ff.h"
#include "files/microsd.h"
#include "hibernate.h"
#include "measure/sample.h"
#include "sysctl.h"

namespace {

const uint32_t kLineBufSize = 256u; // one formatted header line
const uint32_t kDateBufSize = 50u;  // one date line
const uint32_t kCalNameMax = sizeof(sys_data.cal_filename) - 1u;
const uint32_t kMenuSleepS = 300u; // the toggle menu sleeps after this long without a key
const uint32_t kMenuPauseMs = 200u;

const char kBannerOpen[] = "//++************** Deployment Settings ***************\r\n";
const char kBannerClose[] = "//--**************************************************\r\n";

bool printing(int printFlg) {
    return printFlg == 1;
}

bool writing(int writeFlg) {
    return writeFlg == 1 && sys_data.app_cfg[APPCFG_MICROSD_ENABLE] != 0u;
}

// One printer's copy in the data file.
struct FileCopy {
    FIL fil;
    bool open;    // opened: must be closed
    bool writing; // lines still go to the file
    BOOL failed;  // an open, seek, date line or close failed
};

// Opens the data file and seeks to its end; reports each failing step.
// False when either failed (the file may still be open: see c.open).
bool open_for_append(FileCopy &c) {
    char name[sizeof(sys_data.fileName) + 1u];
    memcpy(name, sys_data.fileName, sizeof(sys_data.fileName));
    name[sizeof(sys_data.fileName)] = 0;
    memset(&c.fil, 0, sizeof c.fil);
    c.open = false;
    FRESULT r = f_open(&c.fil, name, FA_READ | FA_WRITE | FA_OPEN_ALWAYS);
    if (r != FR_OK) {
        uprintf("f_open error: %s\r\n", StringFromFresult(r));
        return false;
    }
    c.open = true;
    r = f_lseek(&c.fil, f_size(&c.fil));
    if (r != FR_OK) {
        uprintf("f_lseek error: %s\r\n", StringFromFresult(r));
        return false;
    }
    return true;
}

// Starts a copy: writes go to the file only when it opened at its end.
void begin(FileCopy &c, bool write) {
    c.open = false;
    c.writing = false;
    c.failed = FALSE;
    if (write) {
        c.writing = open_for_append(c);
        if (!c.writing) {
            c.failed = TRUE;
        }
    }
}

// Records where the file now ends (for "gdata") and closes it.
void finish(FileCopy &c) {
    if (!c.open) {
        return;
    }
    sys_samp.next_gdata_fptr = f_tell(&c.fil);
    FRESULT r = f_close(&c.fil);
    if (r != FR_OK) {
        uprintf("f_close error: %s\r\n", StringFromFresult(r));
        c.failed = TRUE;
    }
    c.open = false;
    c.writing = false;
}

void vformat(char *buf, const char *fmt, va_list ap) {
    if (vsnprintf(buf, kLineBufSize, fmt, ap) < 0) {
        buf[0] = 0;
    }
}

void to_file(FileCopy &c, const char *text) {
    if (!c.writing) {
        return;
    }
    UINT written = 0;
    FRESULT r = f_write(&c.fil, text, (UINT)strlen(text), &written);
    if (r != FR_OK) {
        uprintf("f_write error: %s\r\n", StringFromFresult(r));
        c.writing = false;
    }
}

// The same line to the file (first) and the console.
void both(FileCopy &c, bool print, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
void both(FileCopy &c, bool print, const char *fmt, ...) {
    char line[kLineBufSize];
    va_list ap;
    va_start(ap, fmt);
    vformat(line, fmt, ap);
    va_end(ap);
    to_file(c, line);
    if (print) {
        uprintf("%s", line);
    }
}

void file_only(FileCopy &c, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void file_only(FileCopy &c, const char *fmt, ...) {
    char line[kLineBufSize];
    va_list ap;
    va_start(ap, fmt);
    vformat(line, fmt, ap);
    va_end(ap);
    to_file(c, line);
}

void console_only(bool print, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void console_only(bool print, const char *fmt, ...) {
    if (!print) {
        return;
    }
    char line[kLineBufSize];
    va_list ap;
    va_start(ap, fmt);
    vformat(line, fmt, ap);
    va_end(ap);
    uprintf("%s", line);
}

// A line that is written on its own: its failure counts, and ends the file copy.
void date_text(FileCopy &c, bool print, const char *text) {
    if (c.writing) {
        UINT written = 0;
        FRESULT r = f_write(&c.fil, text, (UINT)strlen(text), &written);
        if (r != FR_OK) {
            uprintf("Current time f_write error: %s\r\n", StringFromFresult(r));
            c.failed = TRUE;
            c.writing = false;
        }
    }
    if (print) {
        uprintf("%s", text);
    }
}

// A stored time as calendar text.
void date_line(FileCopy &c, bool print, const char *fmt, uint32_t seconds) {
    char text[kDateBufSize];
    format_time(text, sizeof text, fmt, (int64_t)seconds);
    date_text(c, print, text);
}

// A text field of the record, shown up to its width even when unterminated.
#define FIELD(f) (int)sizeof(f), (f)

void pump_block(FileCopy &c, bool print, const char *type) {
    both(c, print, "// Pump seq type:   \t%s\r\n", type);
    both(c, print, "// Pump1 on time (s):\t%u\r\n", (unsigned)sys_data.pump1_ontime);
    both(c, print, "// Pump2 on time (s):\t%u\r\n", (unsigned)sys_data.pump2_ontime);
    both(c, print, "// Pump1 cycles:     \t%u\r\n", (unsigned)sys_data.pump1_cycles);
    both(c, print, "// Pump2 cycles:     \t%u\r\n", (unsigned)sys_data.pump2_cycles);
}

// Appends to prnBuf at *len, never past its end.
void title(uint32_t *len, const char *text) {
    if (*len >= PRN_BUF_SIZE - 1u) {
        return;
    }
    int n = snprintf(prnBuf + *len, PRN_BUF_SIZE - *len, "%s", text);
    if (n > 0) {
        *len += (uint32_t)n;
        if (*len > PRN_BUF_SIZE - 1u) {
            *len = PRN_BUF_SIZE - 1u;
        }
    }
}

uint8_t &cfg(uint32_t index) {
    return sys_data.data_cfg[index];
}

void set_cfg(const uint8_t *indices, uint32_t n, uint8_t value) {
    for (uint32_t i = 0; i < n; i++) {
        cfg(indices[i]) = value;
    }
}

void set_range(uint32_t from, uint32_t to, uint8_t value) {
    for (uint32_t i = from; i <= to; i++) {
        cfg(i) = value;
    }
}

#define SET_ON(...)                                                                                \
    do {                                                                                           \
        static const uint8_t on_[] = {__VA_ARGS__};                                                \
        set_cfg(on_, sizeof on_, 1u);                                                              \
    } while (0)
#define SET_OFF(...)                                                                               \
    do {                                                                                           \
        static const uint8_t off_[] = {__VA_ARGS__};                                               \
        set_cfg(off_, sizeof off_, 0u);                                                            \
    } while (0)

void say(int printFlg, const char *text) {
    if (printFlg == 1) {
        uprintf("%s", text);
    }
}

void adc_defaults(int printFlg) {
    say(printFlg, "Default ADS1248 sps and trial settings\r\n");
    ads1248_sampling_defaults();
}

const uint8_t kNoCtd = 5u; // CFG_UART4_INST value: no CTD columns, default salinity

} // namespace

// ---- metadata block ---------------------------------------------------------------

BOOL print_write_metadata_header(uint32_t, int printFlg, int writeFlg) {
    bool print = printing(printFlg);
    bool write = writing(writeFlg);
    FileCopy c;
    begin(c, write);

    both(c, print, "\r\n\r\n");
    both(c, print, "%s", kBannerOpen);
    both(c, print, "// Firmware version: \t%.*s\r\n", FIELD(sys_data.firmware_version));
    both(c, print, "// Sampling period (s)\t%u\r\n", (unsigned)sys_data.sampling_period);
    both(c, print,
         sys_data.sample_aligned != 0u ? "// Samples hour align:\tYes\r\n"
                                       : "// Samples hour align:\tNo\r\n");
    both(c, print, "// Vrsi sps,trials: \t%u, %u\r\n", (unsigned)sys_data.Vrsi_sps,
         (unsigned)sys_data.Vrsi_trials);
    both(c, print, "// Vrse sps,trials: \t%u, %u\r\n", (unsigned)sys_data.Vrse_sps,
         (unsigned)sys_data.Vrse_trials);
    both(c, print, "// Vtherm sps,trials\t%u, %u\r\n", (unsigned)sys_data.Vtherm_sps,
         (unsigned)sys_data.Vtherm_trials);
    both(c, print, "// Ik sps, trials:   \t%u, %u\r\n", (unsigned)sys_data.Ik_sps,
         (unsigned)sys_data.Ik_trials);
    both(c, print, "// Vk sps, trials:   \t%u, %u\r\n", (unsigned)sys_data.Vk_sps,
         (unsigned)sys_data.Vk_trials);
    both(c, print, "// Ib sps, trials:   \t%u, %u\r\n", (unsigned)sys_data.Ib_sps,
         (unsigned)sys_data.Ib_trials);
    both(c, print, "// Vb sps, trials:   \t%u, %u\r\n", (unsigned)sys_data.Vb_sps,
         (unsigned)sys_data.Vb_trials);
    both(c, print, "// Vbias sps,trials: \t%u, %u\r\n", (unsigned)sys_data.Vbias_sps,
         (unsigned)sys_data.Vbias_trials);

    if (sys_data.pump1_ontime == 0u) {
        both(c, print, "// Pump on time (s):\t%u\r\n", 0u);
    } else {
        if (sys_data.start_pump_time == 0u) {
            date_text(c, print, "// Pump start delay: \t0\r\n");
        } else {
            date_line(c, print, "// Pump delay until:\t%Y/%m/%d %H:%M:%S\r\n",
                      sys_data.start_pump_time);
        }
        uint32_t type = sys_data.pump_seq_type;
        if (type == 1u) {
            both(c, print, "// Pump seq type:   \tPUMP_SINGLE\r\n");
            if (sys_data.test_mode != 0u) {
                both(c, print, "// Pump on time (s):\t%u  (TEST MODE, pump disabled)\r\n",
                     (unsigned)sys_data.pump1_ontime);
            } else {
                both(c, print, "// Pump on time (s):\t%u\r\n", (unsigned)sys_data.pump1_ontime);
            }
        }
        if (type == 2u) {
            pump_block(c, print, "2PUMP_BEAMSV1");
        }
        if (type > 2u) {
            pump_block(c, print, "2PUMP_BEAMSV2");
        }
        // Not an else: a self-calibrating sequence shows both blocks.
        if (type > 4u) {
            pump_block(c, print, "2PUMP_SELFCAL");
        }
    }

    if (sys_data.sampleCnt_duty_on != 0u) {
        both(c, print, "// Exp Duty Cycle On \t%u\r\n", (unsigned)sys_data.sampleCnt_duty_on);
        // The console shows the on count on the "Off" line; the file has the off count.
        file_only(c, "// Exp Duty Cycle Off\t%u\r\n", (unsigned)sys_data.sampleCnt_duty_off);
        console_only(print, "// Exp Duty Cycle Off\t%u\r\n", (unsigned)sys_data.sampleCnt_duty_on);
    }

    both(c, print, "// Low battery voltage:\t%.1f\r\n", (double)sys_data.low_batt_volt);
    if (sys_data.output == NORMAL) {
        both(c, print, "// Output mode:        \tNormal\r\n");
    } else if (sys_data.output == VERBOSE) {
        both(c, print, "// Output mode:        \tVerbose\r\n");
    }
    date_line(c, print, "// Deploy time:   \t%Y/%m/%d %H:%M:%S\r\n", sys_data.deploy_time);
    both(c, print,
         sys_data.GMT != 0u ? "// Time zone:       \tGMT\r\n" : "// Time zone:       \tLocal\r\n");
    wait_consoleTx();

    both(c, print, "// TCOffset:     \t%f\r\n", (double)sys_data.TCOffset);
    both(c, print, "// k0int:        \t%f\r\n", (double)sys_data.k0int);
    both(c, print, "// k0ext:        \t%f\r\n", (double)sys_data.k0ext);
    both(c, print, "// k2int:        \t%f\r\n", (double)sys_data.k2int);
    both(c, print, "// k2ext:        \t%f\r\n", (double)sys_data.k2ext);
    both(c, print, "// Def Sal (ppt):\t%f\r\n", (double)sys_data.default_sal);
    // The offsets are whole numbers in the record; shown in the "%f" form.
    both(c, print, "// Offset Ik:    \t%f\r\n", (double)sys_data.offset_Ik);
    both(c, print, "// Offset Ib:    \t%f\r\n", (double)sys_data.offset_Ib);

    // Upper-case labels in the file, lower-case on the console.
    if (sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] == 0u) {
        const double quad[4] = {sys_data.quadTherm_c0, sys_data.quadTherm_c1, sys_data.quadTherm_c2,
                                sys_data.quadTherm_c3};
        for (unsigned i = 0; i < 4u; i++) {
            file_only(c, "// S-H c%u        \t%f\r\n", i, quad[i]);
            console_only(print, "// s-h c%u        \t%f\r\n", i, quad[i]);
        }
    } else if (sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] == 1u) {
        const double sh[3] = {sys_data.shTherm_A, sys_data.shTherm_B, sys_data.shTherm_C};
        const char names[3] = {'A', 'B', 'C'};
        for (unsigned i = 0; i < 3u; i++) {
            file_only(c, "// S-H %c         \t%f\r\n", names[i], sh[i]);
            console_only(print, "// s-h %c         \t%f\r\n", names[i], sh[i]);
        }
    }

    both(c, print, "// Cal filename  \t%.*s\r\n", FIELD(sys_data.cal_filename));
    both(c, print, "// PT_Cal_date   \t%.*s\r\n", FIELD(sys_data.PT_Cal_date));
    for (unsigned i = 0; i < 4u; i++) {
        both(c, print, "// k2_C%u         \t%e\r\n", i, (double)sys_data.K2_Cal[i]);
    }
    for (unsigned i = 0; i < 7u; i++) {
        both(c, print, "// fP_%u          \t%e\r\n", i, (double)sys_data.fP_Cal[i]);
    }
    both(c, print, "// k0_Cal_date   \t%.*s\r\n", FIELD(sys_data.k0_Cal_date));
    both(c, print, "// k0_HCl        \t%e\r\n", (double)sys_data.k0_HCL);
    both(c, print, "// k0_SW         \t%e\r\n", (double)sys_data.k0_SW);
    both(c, print, "// k0std_SW      \t%e\r\n", (double)sys_data.k0std_SW);
    both(c, print, "// service_date  \t%.*s\r\n", FIELD(sys_data.service_date));
    both(c, print, "// Version Info: \t%s\r\n", FIRMWARE_VERSION);

    both(c, print, "// File name:     \t%.*s\r\n", FIELD(sys_data.fileName));
    both(c, print, "// User initials: \t%.*s\r\n", FIELD(sys_data.user));
    wait_consoleTx();
    both(c, print, "// Board SN:      \t%.*s\r\n", FIELD(sys_data.board_SN));
    both(c, print, "// KORB SN:       \t%.*s\r\n", FIELD(sys_data.korb_SN));
    both(c, print, "// Sensor SN:     \t%.*s\r\n", FIELD(sys_data.sensor_SN));
    both(c, print, "// ISFET SN:      \t%.*s\r\n", FIELD(sys_data.isfet_SN));
    both(c, print, "// ISE SN:        \t%.*s\r\n", FIELD(sys_data.ise_SN));
    both(c, print, "// Optode SN:     \t%.*s\r\n", FIELD(sys_data.optode_SN));
    both(c, print, "// CTD SN:        \t%.*s\r\n", FIELD(sys_data.ctd_SN));
    both(c, print, "// Pump1 SN:      \t%.*s\r\n", FIELD(sys_data.pump_SN));
    both(c, print, "// Pump2 SN:      \t%.*s\r\n", FIELD(sys_data.pump2_SN));
    both(c, print, "// Package name:  \t%.*s\r\n", FIELD(sys_data.package_name));
    both(c, print, "// Fab Note:      \t%.*s\r\n", FIELD(sys_data.package_fab_note));
    both(c, print, "// Deploy note:   \t%.*s\r\n", FIELD(sys_data.deploy_note));

    both(c, print, "// MicroSD Logging:  \t%u\r\n",
         (unsigned)sys_data.app_cfg[APPCFG_MICROSD_ENABLE]);
    both(c, print, "// Uart Echo:     \t%u\r\n",
         (unsigned)sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO]);
    both(c, print, "// App Exec:      \t%u\r\n",
         (unsigned)sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI]);

    // The field list opens and closes the file on its own.
    bool goOn = c.writing;
    finish(c);
    print_write_config_data_fields(printFlg, writeFlg, 1);

    if (write && goOn) {
        c.writing = open_for_append(c);
        if (!c.writing) {
            c.failed = TRUE;
        }
    }
    both(c, print, "%s", kBannerClose);
    both(c, print, "\r\n\r\n");
    finish(c);
    wait_consoleTx();
    return c.failed;
}

void print_metadata_header(uint32_t now) {
    print_write_metadata_header(now, 1, 0);
}

BOOL write_metadata_header(void) {
    return print_write_metadata_header(0, 0, 1);
}

void print_all_metadata(void) {
    print_write_metadata_header(0, 1, 0);
}

// ---- enabled-field list --------------------------------------------------------------

// The letters are those of the toggle menu. The internal-reference, biased,
// battery and negative-bias switches are not listed.
void print_write_config_data_fields(int printFlg, int writeFlg, int padFlg) {
    bool print = printing(printFlg);
    const char *p = padFlg == 1 ? "// " : "";
    FileCopy c;
    begin(c, writing(writeFlg));

    both(c, print, "%sA -- Sample Num               = %u\r\n", p, (unsigned)cfg(CFG_SAMPLE_NUM));
    uint8_t ts = cfg(CFG_TIMESTAMP);
    if (ts == 0u || ts == 1u) {
        both(c, print, "%sB -- MM/DD/YYYY HH:MM:SS      = %u\r\n", p, (unsigned)ts);
    } else if (ts == 2u) {
        both(c, print, "%sB -- MM/DD/YYYY HH:MM:SS      = %u,  Epoch millisec\r\n\r\n", p,
             (unsigned)ts);
    }
    both(c, print, "%sD -- Bias Battery Pos         = %u\r\n", p, (unsigned)cfg(CFG_BIAS_BAT_POS));
    both(c, print, "%sF -- Board Temperature        = %u\r\n", p, (unsigned)cfg(CFG_BRD_TEMP));
    both(c, print, "%sG -- Board Humidity           = %u\r\n", p, (unsigned)cfg(CFG_BRD_HUMIDITY));
    both(c, print, "%sH -- Vthermistor              = %u\r\n", p, (unsigned)cfg(CFG_V_THERMISTOR));
    both(c, print, "%s     Vtermistor Std           = %u\r\n", p,
         (unsigned)cfg(CFG_V_THERMISTOR_STD));
    both(c, print, "%sI -- Temperature Calc         = %u\r\n", p, (unsigned)cfg(CFG_CALC_TEMP));
    both(c, print, "%sL -- Vrse (Ext Ref pH volt)   = %u\r\n", p, (unsigned)cfg(CFG_VRSE));
    both(c, print, "%s     Vrse Std                 = %u\r\n", p, (unsigned)cfg(CFG_VRSE_STD));
    both(c, print, "%sM -- pH Vrse Calc             = %u\r\n", p, (unsigned)cfg(CFG_CALC_PH_VRSE));
    both(c, print, "%sR -- Counter Electrode Vk     = %u\r\n", p,
         (unsigned)cfg(CFG_V_COUNTER_ELECT));
    both(c, print, "%s     Counter Electrode Vk Std = %u\r\n", p,
         (unsigned)cfg(CFG_V_COUNTER_ELECT_STD));
    both(c, print, "%sT -- Counter Electrode Cur Ik = %u\r\n", p, (unsigned)cfg(CFG_I_COUNTER));
    both(c, print, "%sU -- Substrate Current        = %u\r\n", p, (unsigned)cfg(CFG_I_SUBSTRATE));
    finish(c);
}

void print_config_data_fields(void) {
    print_write_config_data_fields(1, 0, 1);
}

// ---- column-title line ---------------------------------------------------------------

BOOL print_write_data_header(int printFlg, int writeFlg) {
    uprintf("\r\n\r\n");

    // Battery and board columns come before the thermistor, as in the sample line.
    static const struct {
        uint8_t index;
        const char *title;
    } kColumns[] = {
        {CFG_VIN_BAT_VOLT, "VbatMain\t"},
        {CFG_BIAS_BAT_POS, "VbiasPos\t"},
        {CFG_BIAS_BAT_NEG, "VbiasNeg\t"},
        {CFG_BRD_TEMP, " TC_cont\t"},
        {CFG_BRD_HUMIDITY, "Humidity\t"},
        {CFG_V_THERMISTOR, "  Vtherm\t"},
        {CFG_V_THERMISTOR_STD, "VthrmStd\t"},
        {CFG_CALC_TEMP, " TC_Dfet\t"},
        {CFG_VRSI, "    Vrsi\t"},
        {CFG_VRSI_STD, "Vrsi_std\t"},
        {CFG_CALC_PH_VRSI, "pHintEst\t"},
        {CFG_VRSE, "    Vrse\t"},
        {CFG_VRSE_STD, "Vrse_std\t"},
        {CFG_CALC_PH_VRSE, "pHextEst\t"},
        {CFG_VRSI_BIASED, "  Vrsi_B\t"},
        {CFG_VRSI_BIASED_STD, "VrsiBstd\t"},
        {CFG_VRSE_BIASED, "  Vrse_B\t"},
        {CFG_VRSE_BIASED_STD, "VrseBstd\t"},
        {CFG_V_COUNTER_ELECT, "      Vk\t"},
        {CFG_V_COUNTER_ELECT_STD, "  Vk_std\t"},
        {CFG_I_COUNTER, "      Ik\t"},
        {CFG_I_SUBSTRATE, "      Ib\t"},
    };

    uint32_t len = 0;
    prnBuf[0] = 0;
    if (cfg(CFG_SAMPLE_NUM) != 0u) {
        title(&len, " SampNum\t");
    }
    if (cfg(CFG_TIMESTAMP) == 1u) {
        title(&len, "     MM/DD/YYYY HH:MM:SS\t");
    } else if (cfg(CFG_TIMESTAMP) == 2u) {
        title(&len, "Epoch millisec\t");
    }
    for (const auto &col : kColumns) {
        if (cfg(col.index) != 0u) {
            title(&len, col.title);
        }
    }
    switch (cfg(CFG_UART3_INST)) {
    case 1:
        title(&len, "Opt_PN\tOpt_SN\tMoxy\tO2satper\tTC_opt\tDphase\tBphase\tRphase\tBamp\tBpot\t"
                    "Ramp\tOpt_rawtemp\t");
        break;
    case 2:
        title(&len, "OCR_PN  \tChan_1 \tChan_2 \tChan_3 \tChan_4 \t");
        break;
    case 3:
        // The NanoFET's own record repeats the main columns ("Ik " as it is).
        title(&len, " SampNum\tMM/DD/YYYY HH:MM:SS\tVbiasPos\t TC_cont\tHumidity\t  Vtherm\t"
                    "VthrmStd\t TC_Dfet\t    Vrse\tVrse_std\t      Vk\t  Vk_std\t      Ik \t"
                    "      Ib\t");
        break;
    case 4:
        // Ends in a tab and a blank: the blank becomes the carriage return.
        title(&len, "MEA  \tChan \tSensors \tErrors \tdphi \t0 \t0 \t0 \tTC_samp \tTC_case \t"
                    "sigInt \tambLight \tPres \tHum \tTO_res \t0 \t0 \tpH \t0 \t0 \t0 \t ");
        break;
    default:
        break;
    }
    if (cfg(CFG_UART4_INST) == 6u) {
        title(&len, "TC_MCat\tCond\tPres\tpSal\tDate_MC\tTime_MC\t");
    } else if (cfg(CFG_UART4_INST) == 7u) {
        title(&len, "Cond_PN\tCond_SN\tCond\tTemp\tSal\tDensity \tSSpeed\t");
    }
    if (sys_data.pump_seq_type == 2u) {
        title(&len, "   Pump\t");
    }

    // The last tab becomes the line end; with no column at all the line is a
    // lone line feed.
    if (len > 0u) {
        prnBuf[len - 1u] = '\r';
    }
    prnBuf[len++] = '\n';
    prnBuf[len] = 0;

    if (printing(printFlg)) {
        UARTwrite(prnBuf, len);
    }

    BOOL failed = FALSE;
    if (writing(writeFlg)) {
        // Open and seek are reported; the write and close are still tried and
        // report their own failures.
        FileCopy c;
        if (!open_for_append(c)) {
            failed = TRUE;
        }
        UINT written = 0;
        FRESULT r = f_write(&c.fil, prnBuf, len, &written);
        if (r != FR_OK) {
            uprintf("f_write error: %s\r\n", StringFromFresult(r));
        }
        if (c.open) {
            sys_samp.next_gdata_fptr = f_tell(&c.fil);
        }
        r = f_close(&c.fil);
        if (r != FR_OK) {
            uprintf("f_close error: %s\r\n", StringFromFresult(r));
            failed = TRUE;
        }
    }
    if (printing(printFlg)) {
        wait_consoleTx();
    }
    return failed;
}

BOOL print_data_header(void) {
    return print_write_data_header(1, 0);
}

BOOL write_data_header(void) {
    return print_write_data_header(0, 1);
}

void get_header(void) {
    print_write_data_header(1, 0);
}

// ---- host list -------------------------------------------------------------------

void print_config(void) {
    uprintf("sampnum=%u\r\n", (unsigned)cfg(CFG_SAMPLE_NUM));
    if (cfg(CFG_TIMESTAMP) <= 2u) {
        uprintf("timestamp=%u\r\n", (unsigned)cfg(CFG_TIMESTAMP));
    }
    uprintf("biaspos=%u\r\n", (unsigned)cfg(CFG_BIAS_BAT_POS));
    uprintf("brdtemp=%u\r\n", (unsigned)cfg(CFG_BRD_TEMP));
    uprintf("brdhumid=%u\r\n", (unsigned)cfg(CFG_BRD_HUMIDITY));
    uprintf("vtherm=%u\r\n", (unsigned)cfg(CFG_V_THERMISTOR));
    uprintf("vtherm_std=%u\r\n", (unsigned)cfg(CFG_V_THERMISTOR_STD));
    uprintf("tempc=%u\r\n", (unsigned)cfg(CFG_CALC_TEMP));
    uprintf("vrse=%u\r\n", (unsigned)cfg(CFG_VRSE));
    uprintf("vrse_std=%u\r\n", (unsigned)cfg(CFG_VRSE_STD));
    uprintf("ph_vrse=%u\r\n", (unsigned)cfg(CFG_CALC_PH_VRSE));
    uprintf("vk=%u\r\n", (unsigned)cfg(CFG_V_COUNTER_ELECT));
    uprintf("vk_std=%u\r\n", (unsigned)cfg(CFG_V_COUNTER_ELECT_STD));
    uprintf("ik=%u\r\n", (unsigned)cfg(CFG_I_COUNTER));
    uprintf("ib=%u\r\n", (unsigned)cfg(CFG_I_SUBSTRATE));
}

// ---- presets -----------------------------------------------------------------------

void config_data_fields_none(int) {
    set_range(0, CFG_UART3_INST, 0u);
    cfg(CFG_UART4_INST) = kNoCtd;
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
}

// Switches on exactly what the enabled-field list shows; the others stay.
void config_data_fields_all(int printFlg) {
    SET_ON(0, 1, 2, 3, 4, 8, 9, 10, 15, 16, 17, 18, 20, 22, 23);
    cfg(CFG_UART4_INST) = kNoCtd;
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1u;
    say(printFlg, "MicroSD card enabled\r\n");
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling enabled, sleep between samples\r\n");
}

void config_data_fields_glider(int printFlg) {
    SET_ON(0, 1, 8, 9, 15, 16, 17, 18, 20);
    set_range(2, 7, 0u);
    set_range(10, 14, 0u);
    SET_OFF(22, 23, 24);
    cfg(CFG_UART4_INST) = kNoCtd;
    adc_defaults(printFlg);
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling enabled, sleep between samples\r\n");
}

void config_data_fields_vexa(int printFlg) {
    SET_ON(0, 1, 2, 3, 4, 15, 16, 17, 18, 20, 22, 23);
    set_range(8, 14, 0u);
    SET_OFF(24);
    cfg(CFG_UART4_INST) = kNoCtd;
    adc_defaults(printFlg);
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1u;
    say(printFlg, "MicroSD card enabled\r\n");
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling enabled, sleep between samples\r\n");
}

void config_data_fields_quorl(int printFlg) {
    SET_ON(0, 1, 2, 3, 4, 8, 9, 10, 15, 16, 17, 18, 20, 22, 23);
    set_range(11, 14, 0u);
    cfg(CFG_UART4_INST) = kNoCtd;
    sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO] = 1u;
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1u;
    say(printFlg, "MicroSD data logging is enabled\r\n");
    say(printFlg, "Console echo of deployment commands is enabled\r\n");
    adc_defaults(printFlg);
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling mode enabled, sleep between samples\r\n");
}

void config_data_fields_m2m_quorl(int printFlg) {
    SET_ON(0, 2, 3, 4, 15, 16, 17, 18, 20, 22, 23);
    SET_OFF(1, 8, 9, 10, 24);
    cfg(CFG_UART4_INST) = kNoCtd;
    sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO] = 0u;
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0u;
    say(printFlg, "MicroSD data logging is Disabled\r\n");
    say(printFlg, "Console echo of deployment commands is disabled\r\n");
    adc_defaults(printFlg);
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling mode enabled, sleep between samples\r\n");
}

void config_data_fields_nanofet(int printFlg) {
    SET_ON(0, 1, 2, 3, 4, 8, 9, 15, 16, 17, 18, 20, 22, 23);
    SET_OFF(5, 6, 7, 19, 21, 24);
    set_range(10, 14, 0u);
    cfg(CFG_UART4_INST) = kNoCtd;
    adc_defaults(printFlg);
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0u;
    say(printFlg, "Data logging is Disabled\r\n");
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0u;
    say(printFlg, "Deploy mode sampling mode enabled, sleep between samples\r\n");
}

// Fast continuous sampling on a wire-walking profiler: no card, epoch stamps.
void config_data_fields_wirewalker(int printFlg) {
    SET_ON(8, 9, 15, 16, 17, 18, 23);
    SET_OFF(0, 19, 20, 21, 22, 24);
    set_range(2, 7, 0u);
    set_range(10, 14, 0u);
    cfg(CFG_TIMESTAMP) = 2u;
    cfg(CFG_UART4_INST) = kNoCtd;
    say(printFlg, "Changes from default ADS1248 sps and trials:\r\n");
    const struct {
        uint32_t *field;
        uint32_t value;
        const char *fmt;
    } kRates[] = {
        {&sys_data.Vrse_sps, 20u, "   Vrse_sps = %u\r\n"},
        {&sys_data.Vrse_trials, 5u, "   Vrse_trials = %u\r\n"},
        {&sys_data.Vk_sps, 320u, "   Vk_sps = %u\r\n"},
        {&sys_data.Vk_trials, 3u, "   Vk_trials = %u\r\n"},
        {&sys_data.Ik_sps, 160u, "   Ik_sps = %u\r\n"},
        {&sys_data.Ik_trials, 1u, "   Ik_trials = %u\r\n"},
        {&sys_data.Ib_sps, 160u, "   Ib_sps = %u\r\n"},
        {&sys_data.Ib_trials, 1u, "   Ib_trials = %u\r\n"},
    };
    for (const auto &r : kRates) {
        *r.field = r.value;
        if (printFlg == 1) {
            uprintf(r.fmt, (unsigned)r.value);
        }
    }
    if (printFlg == 1) {
        prn_nl();
    }
    sys_data.sampling_period = 2u;
    if (printFlg == 1) {
        uprintf("Sampling period = %u\r\n", (unsigned)sys_data.sampling_period);
    }
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0u;
    say(printFlg, "MicroSD data logging is Disabled\r\n");
    cfg(CFG_TIMESTAMP) = 2u;
    say(printFlg, "Timestamp in Epoch millisec format\r\n");
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 2u;
    say(printFlg, "Continuous sampling mode (databarf) enabled\r\n");
}

// ---- toggle menu ---------------------------------------------------------------------

namespace {

// Waits for a key line as get_key does; an operator gone for kMenuSleepS
// lets the board sleep.
int menu_key(void) {
    UARTFlushRx();
    for (;;) {
        char key[5];
        if (getUserInputTimeLimit(key, sizeof key, kMenuSleepS) >= 0) {
            return (unsigned char)key[0];
        }
        if (sys_samp.state == DEPLOYED) {
            sleep(DEPLOYED, sys_samp.nextWakeUp);
        } else {
            sleep(IDLE, 0);
        }
    }
}

void user_select_timestamp(void) {
    uprintf("Select Timestamp type[%u]:  1 -- MM/DD/YYYY HH:MM:SS, 2 -- Epoch millisec ",
            (unsigned)cfg(CFG_TIMESTAMP));
    for (;;) {
        int key = get_key();
        if (key == '1' || key == 0x18) {
            cfg(CFG_TIMESTAMP) = 1u;
            return;
        }
        if (key == '2') {
            cfg(CFG_TIMESTAMP) = 2u;
            return;
        }
        uprintf("Enter 1 or 2:  1 for MM/DD/YYYY HH:MM:SS, 2 for Epoch milli-seconds 13digit, "
                "Ctrl-X <enter> to exit  ");
    }
}

} // namespace

void config_data_fields(void) {
    for (;;) {
        uprintf("\r\n\r\n\r\nChange Data Field - lower case turns data field off (=0), upper case "
                "turns field on (=1)\r\n\r\n\r\n");
        print_write_config_data_fields(1, 0, 0);
        wait_consoleTx();
        uprintf("\r\n0 -- Zero (Clear) all config fields");
        uprintf("\r\n1 -- Set all config fields");
        delay_msec(kMenuPauseMs);
        prn_nl();
        uprintf("\r\n9 -- Exit to Main Menu");
        uprintf("\r\nEnter Selection [9]: ");

        int key = menu_key();
        switch (key) {
        case '0':
            config_data_fields_none(0);
            break;
        case '1':
            config_data_fields_all(1);
            break;
        case '2':
            config_data_fields_glider(1);
            break;
        case '3':
            config_data_fields_vexa(1);
            break;
        case '4':
            config_data_fields_quorl(1);
            break;
        case '5':
            config_data_fields_m2m_quorl(1);
            break;
        case '6':
            config_data_fields_nanofet(1);
            break;
        case '7':
            uprintf("\r\nVEXA config and fast sample for wire walker\r\n");
            break;
        case '8':
        case 'C':
        case 'E':
        case 'J':
        case 'K':
        case 'N':
        case 'O':
        case 'P':
        case 'Q':
        case 'S':
        case 'V':
        case 'X':
        case 'Y':
        case 'Z':
        case 's':
        case 'x':
        case 'y':
        case 'z':
            break;
        case 'A':
            cfg(CFG_SAMPLE_NUM) = 1u;
            break;
        case 'a':
            cfg(CFG_SAMPLE_NUM) = 0u;
            break;
        case 'B':
            cfg(CFG_TIMESTAMP) = 1u;
            user_select_timestamp();
            break;
        case 'b':
            cfg(CFG_TIMESTAMP) = 0u;
            break;
        case 'D':
            cfg(CFG_BIAS_BAT_POS) = 1u;
            break;
        case 'd':
            cfg(CFG_BIAS_BAT_POS) = 0u;
            break;
        case 'c':
        case 'e':
            SET_OFF(CFG_VIN_BAT_VOLT, CFG_BIAS_BAT_NEG);
            break;
        case 'F':
            cfg(CFG_BRD_TEMP) = 1u;
            break;
        case 'f':
            cfg(CFG_BRD_TEMP) = 0u;
            break;
        case 'G':
            cfg(CFG_BRD_HUMIDITY) = 1u;
            break;
        case 'g':
            cfg(CFG_BRD_HUMIDITY) = 0u;
            break;
        case 'H':
            SET_ON(CFG_V_THERMISTOR, CFG_V_THERMISTOR_STD);
            break;
        case 'h':
            // Both pH values need the thermistor.
            SET_OFF(CFG_V_THERMISTOR, CFG_V_THERMISTOR_STD, CFG_CALC_PH_VRSI, CFG_CALC_PH_VRSE);
            break;
        case 'I':
            cfg(CFG_CALC_TEMP) = 1u;
            break;
        case 'i':
            SET_OFF(CFG_CALC_TEMP, CFG_CALC_PH_VRSI, CFG_CALC_PH_VRSE);
            break;
        case 'j':
            SET_OFF(CFG_VRSI, CFG_VRSI_STD);
            break;
        case 'k':
            cfg(CFG_CALC_PH_VRSI) = 0u;
            break;
        case 'L':
            SET_ON(CFG_VRSE, CFG_VRSE_STD);
            break;
        case 'l':
            SET_OFF(CFG_VRSE, CFG_VRSE_STD);
            break;
        case 'M':
            // Everything the external pH needs.
            SET_ON(CFG_CALC_PH_VRSE, CFG_V_THERMISTOR, CFG_V_THERMISTOR_STD, CFG_CALC_TEMP,
                   CFG_VRSE);
            break;
        case 'm':
            cfg(CFG_CALC_PH_VRSE) = 0u;
            break;
        case 'n':
            SET_OFF(CFG_VRSI_BIASED, CFG_VRSI_BIASED_STD);
            break;
        case 'o':
            cfg(CFG_VRSI_BIASED_STD) = 0u;
            break;
        case 'p':
            SET_OFF(CFG_VRSE_BIASED, CFG_VRSE_BIASED_STD);
            break;
        case 'q':
            cfg(CFG_VRSE_BIASED_STD) = 0u;
            break;
        case 'R':
            SET_ON(CFG_V_COUNTER_ELECT, CFG_V_COUNTER_ELECT_STD);
            break;
        case 'r':
            SET_OFF(CFG_V_COUNTER_ELECT, CFG_V_COUNTER_ELECT_STD);
            break;
        case 'T':
            cfg(CFG_I_COUNTER) = 1u;
            break;
        case 't':
            cfg(CFG_I_COUNTER) = 0u;
            break;
        case 'U':
            cfg(CFG_I_SUBSTRATE) = 1u;
            break;
        case 'u':
            cfg(CFG_I_SUBSTRATE) = 0u;
            break;
        case 'v':
            cfg(CFG_UART3_INST) = 0u;
            break;
        case 'W':
        case 'w':
            cfg(CFG_UART4_INST) = kNoCtd;
            break;
        default:
            // Leaving always sets fast mode.
            sys_data.fast_mode = 1u;
            if (storeSysDataVariables() == 0u) {
                uprintf("\r\n\r\nSystem data stored. (910) -- Press enter to bring up main "
                        "menu\r\n");
            } else {
                uprintf("\r\n\r\nError storing system data.\r\n");
            }
            return;
        }
    }
}

// ---- calibration file name -----------------------------------------------------------

void set_cal_filename(const char *filename) {
    if (filename == nullptr) {
        filename = "";
    }
    strncpy(sys_data.cal_filename, filename, kCalNameMax);
    sys_data.cal_filename[kCalNameMax] = 0;
}
