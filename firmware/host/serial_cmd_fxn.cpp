// Handlers of the host commands: output-column switches (set/get/quick
// test), sampling period, clock, file name, card use, output presets, sample
// counter, continuous sampling, help texts, version and file transfer; and
// the line term time of the receiver. The float-controller commands declared
// with them live in host/apf_cmd. Replies are short and mostly without a line
// end: the receiver prints the prompt.
// The measurements, presets, headers and transfers themselves belong to the
// modules named in each call.
#include "host/serial_cmd_fxn.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "core/calendar.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/main.h"
#include "core/system.h"
#include "core/decimal.h"
#include "files/config.h"
#include "files/ymodem.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "measure/sample.h"

namespace {

constexpr uint32_t kTermTimeM2mMs = 250;
constexpr uint32_t kPeriodMax = 3600;                 // one hour
constexpr uint64_t kStampOffsetMs = 2208963602000ULL; // the time-stamp column's offset
constexpr uint8_t kNoPair = 0xFF;

bool is_on(uint32_t val) {
    return val == '1' || val == 1;
}

// The command line as a NUL-terminated copy with room past its end, so the
// fixed positions the formats test can be read without bounds worries.
struct Line {
    char s[80];
    uint32_t len;
};

void copy_line(Line &l) {
    memset(l.s, 0, sizeof(l.s));
    memcpy(l.s, rx0.buf, sizeof(rx0.buf));
    l.s[sizeof(rx0.buf) - 1] = 0;
    l.len = (uint32_t)strlen(l.s);
}

// Position of the first space at or after from, or len when there is none.
uint32_t find_space(const Line &l, uint32_t from) {
    uint32_t i = from;
    while (i < l.len && l.s[i] != ' ') {
        i++;
    }
    return i;
}

// After the first space from position `from`, the first digit 1-9; a 0 is
// skipped like any other character. Returns len when there is none.
uint32_t find_number(const Line &l, uint32_t from) {
    uint32_t i = find_space(l, from);
    while (i < l.len && !(l.s[i] >= '1' && l.s[i] <= '9')) {
        i++;
    }
    return i;
}

// Unsigned decimal as the 32-bit C library reads it: saturates on overflow.
uint32_t read_u32(const char *p) {
    uint64_t v = 0;
    while (*p >= '0' && *p <= '9') {
        v = v * 10u + (uint64_t)(*p - '0');
        if (v > 0xFFFFFFFFull) {
            return 0xFFFFFFFFu;
        }
        p++;
    }
    return (uint32_t)v;
}

// The fields of "%02d/%02d/%02d %d:%d:%d" (month, day, year, hour, minute,
// second) as the chip's C library scans them: a field beyond 32 bits
// saturates, the scan stops at the first mismatch and the fields after it
// keep their value.
void scan_date_time(const char *d, int32_t f[6]) {
    static const char kSep[5] = {'/', '/', ' ', ':', ':'};
    const char *p = d;
    for (uint32_t i = 0; i < 6u; i++) {
        if (i > 0u) {
            char sep = kSep[i - 1u];
            if (sep == ' ') {
                while (*p == ' ' || (*p >= '\t' && *p <= '\r')) {
                    p++;
                }
            } else if (*p++ != sep) {
                return;
            }
        }
        while (*p == ' ' || (*p >= '\t' && *p <= '\r')) {
            p++;
        }
        const char *end = p;
        if (i < 3u) {
            char two[3] = {p[0], p[0] != 0 ? p[1] : (char)0, 0}; // field width 2
            const char *e = two;
            f[i] = dec_i32(two, &e, nullptr);
            end = p + (e - two);
        } else {
            f[i] = dec_i32(p, &end, nullptr);
        }
        if (end == p) {
            f[i] = -1;
            return;
        }
        p = end;
    }
}

// ---- output-column switches ------------------------------------------------

// A standard deviation column is useless without its value: switching it on
// also switches on the paired column; switching it off leaves the pair alone.
void column_set(uint8_t cfg, uint8_t pair, uint32_t val) {
    if (is_on(val)) {
        sys_data.data_cfg[cfg] = 1;
        if (pair != kNoPair) {
            sys_data.data_cfg[pair] = 1;
        }
    } else {
        sys_data.data_cfg[cfg] = 0;
    }
    save();
}

void column_get(uint8_t cfg) {
    uprintf("%u", (unsigned)sys_data.data_cfg[cfg]);
}

} // namespace

#define COLUMN_SWITCH(name, cfg, pair)                                                             \
    void cmd_set_##name(uint32_t val) {                                                            \
        column_set(cfg, pair, val);                                                                \
    }                                                                                              \
    void cmd_get_##name(void) {                                                                    \
        column_get(cfg);                                                                           \
    }

#define ADC_QUICK_TEST(name, fn, stdFlg, a)                                                        \
    void cmd_test_##name(uint32_t num) {                                                           \
        fn(num, stdFlg, a, 0, 500);                                                                \
    }

COLUMN_SWITCH(vrsi, CFG_VRSI, kNoPair)
COLUMN_SWITCH(vrsi_std, CFG_VRSI_STD, CFG_VRSI)
COLUMN_SWITCH(vrse, CFG_VRSE, kNoPair)
COLUMN_SWITCH(vrse_std, CFG_VRSE_STD, CFG_VRSE)
COLUMN_SWITCH(vtherm, CFG_V_THERMISTOR, kNoPair)
COLUMN_SWITCH(vtherm_std, CFG_V_THERMISTOR_STD, CFG_V_THERMISTOR)
COLUMN_SWITCH(tempc, CFG_CALC_TEMP, CFG_V_THERMISTOR)
COLUMN_SWITCH(vk, CFG_V_COUNTER_ELECT, kNoPair)
COLUMN_SWITCH(vk_std, CFG_V_COUNTER_ELECT_STD, kNoPair) // no pairing here, unlike the others
COLUMN_SWITCH(ik, CFG_I_COUNTER, kNoPair)
COLUMN_SWITCH(ib, CFG_I_SUBSTRATE, kNoPair)
COLUMN_SWITCH(vbat, CFG_VIN_BAT_VOLT, kNoPair)
COLUMN_SWITCH(biaspos, CFG_BIAS_BAT_POS, kNoPair)
COLUMN_SWITCH(biasneg, CFG_BIAS_BAT_NEG, kNoPair)
COLUMN_SWITCH(cfg_sampnum, CFG_SAMPLE_NUM, kNoPair)

ADC_QUICK_TEST(vrsi, test_vrsi, 0, 0)
ADC_QUICK_TEST(vrsi_std, test_vrsi, 1, 5)
ADC_QUICK_TEST(vrse, test_vrse, 0, 0)
ADC_QUICK_TEST(vrse_std, test_vrse, 1, 5)
ADC_QUICK_TEST(vtherm, test_vtherm, 0, 0)
ADC_QUICK_TEST(vtherm_std, test_vtherm, 1, 5)
ADC_QUICK_TEST(tempc, test_tempc, 0, 0)
ADC_QUICK_TEST(vk, test_vk, 0, 0)
ADC_QUICK_TEST(vk_std, test_vk, 1, 5)
ADC_QUICK_TEST(ik, test_ik, 0, 0)
ADC_QUICK_TEST(ib, test_ib, 0, 0)

void cmd_test_vbat(uint32_t num) {
    display_battery_boardSensors();
}
void cmd_test_biaspos(uint32_t num) {
    test_bias_bat(num, 0, 1, 0);
}
void cmd_test_biasneg(uint32_t num) {
    test_bias_bat(num, 1, 0, 0);
}

// Time-stamp column: 0 none, 1 date and time, 2 epoch milliseconds.
void cmd_set_timestamp(uint32_t val) {
    uint8_t v = 0;
    if (val == '1' || val == 1) {
        v = 1;
    } else if (val == '2' || val == 2) {
        v = 2;
    }
    sys_data.data_cfg[CFG_TIMESTAMP] = v;
    save();
}

void cmd_get_timestamp(void) {
    column_get(CFG_TIMESTAMP);
}

void cmd_test_timestamp(uint32_t num) {
    switch (sys_data.data_cfg[CFG_TIMESTAMP]) {
    case 2: {
        uint64_t ms = (uint64_t)HibernateRTCGet() * 1000u - kStampOffsetMs;
        char text[21];
        dec_u64_text(ms, 13u, text);
        uprintf("%s", text);
        break;
    }
    case 1: {
        char text[50];
        format_time(text, sizeof(text), "%m/%d/%Y %H:%M:%S", (int64_t)get_RTC_time());
        uprintf("%s", text);
        break;
    }
    default:
        break;
    }
}

// ---- sample counter and continuous sampling ------------------------------

void cmd_test_sampnum(uint32_t num) {
    uprintf("#%07u\r\n", (unsigned)sys_samp.current_sample);
}

void cmd_set_sampnum(uint32_t n) {
    sys_samp.current_sample = n;
    uprintf("#%07u\r\n", (unsigned)n);
    save();
}

// The main loop takes a sample every k seconds until a sleep command.
void cmd_test_sample(uint32_t k) {
    barfSampleTime = k;
    databarFlg = 1;
}

// ---- period ----------------------------------------------------------------

void cmd_get_period(void) {
    uprintf("%u", (unsigned)sys_data.sampling_period);
}

int sampling_period_refusal(uint32_t period) {
    if (sys_data.sample_aligned != 0 && period != 0 && kPeriodMax % period != 0) {
        return 1;
    }
    return period > kPeriodMax ? 2 : 0;
}

void cmd_set_period(void) {
    Line l;
    copy_line(l);
    uint32_t p = find_number(l, 3);
    if (p >= l.len) {
        uprintf("\r\nEnter seconds greater than or equal to 0 and less than 3600\r\n");
        return;
    }
    uint32_t period = read_u32(&l.s[p]);
    int refusal = sampling_period_refusal(period);
    if (refusal == 1) {
        uprintf("\r\nAligned=Y, sample period must evenly divide hour (e.g. 5, 10, 15, 20, 30 "
                "minutes)");
        return;
    }
    if (refusal == 2) {
        uprintf("\r\nEnter time less than or equal to %u sec", (unsigned)kPeriodMax);
        return;
    }
    sys_data.sampling_period = period;
    save();
}

// ---- clock -----------------------------------------------------------------

void cmd_get_time(void) {
    print_time_t_Time((time_t)HibernateRTCGet());
}

// "MM/DD/YY HH:MM:SS" after the keyword. The date starts at the first digit
// 1-9 after the blank, so only months 10-12 keep their layout; that is how
// the instrument has always answered.
void cmd_set_time(void) {
    Line l;
    copy_line(l);
    uint32_t p = find_number(l, 4);
    const char *d = &l.s[p]; // p <= 63: d[14] stays inside the copy
    if (p >= l.len || d[2] != '/' || d[5] != '/' || d[11] != ':' || d[14] != ':') {
        print_NAK();
        return;
    }
    int32_t f[6] = {-1, -1, -1, -1, -1, -1};
    scan_date_time(d, f);
    int32_t month = f[0], day = f[1], year = f[2], hour = f[3], minute = f[4], second = f[5];
    if (second < 0 || minute < 0 || hour < 0 || year < 0 || month <= 0 || day <= 0) {
        print_NAK();
        return;
    }
    if (second >= 62 || minute >= 60 || hour >= 24 || day >= 32 || month >= 13) {
        return; // out of range: no answer at all
    }
    time_t now = (time_t)HibernateRTCGet();
    struct tm t;
    const struct tm *cur = localtime(&now);
    if (cur != nullptr) {
        t = *cur;
    } else {
        memset(&t, 0, sizeof(t));
    }
    t.tm_sec = second;
    t.tm_min = minute;
    t.tm_hour = hour;
    t.tm_mday = day;
    t.tm_mon = month - 1;
    t.tm_year = year + 100;
    t.tm_isdst = 0;
    HibernateRTCSet((uint32_t)mktime(&t));
}

// ---- data file name ----------------------------------------------------------

// The stored name is used as the format text, as it always was; a '%' in it
// has no argument to take, so it is shown as written ("%%" still gives "%").
void cmd_get_filename(void) {
    char out[sizeof(sys_data.fileName) + 1];
    uint32_t o = 0;
    for (uint32_t i = 0; i < sizeof(sys_data.fileName) && sys_data.fileName[i] != 0; i++) {
        char c = sys_data.fileName[i];
        if (c == '%' && i + 1 < sizeof(sys_data.fileName) && sys_data.fileName[i + 1] == '%') {
            i++;
        }
        out[o++] = c;
    }
    out[o] = 0;
    uprintf("%s", out);
}

void cmd_set_filename(void) {
    Line l;
    copy_line(l);
    uint32_t i = find_space(l, 0);
    while (i < l.len && !(l.s[i] >= 'a' && l.s[i] <= 'z')) {
        i++;
    }
    if (i >= l.len) {
        return;
    }
    const char *rest = &l.s[i];
    if (strlen(rest) > 12) {
        uprintf("filename is too long, needs to be 8.3 format\r\n");
        return;
    }
    char name[sizeof(sys_data.fileName)];
    memset(name, 0, sizeof(name));
    memcpy(name, rest, strlen(rest));
    // The extension keeps three characters after each dot.
    for (uint32_t k = 0; name[k] != 0; k++) {
        if (name[k] == '.' && k + 4 < sizeof(name)) {
            name[k + 4] = 0;
        }
    }
    memcpy(sys_data.fileName, name, sizeof(sys_data.fileName));
    storeSysDataVariables();
}

// ---- card use --------------------------------------------------------------

// Reading the switch also turns the card on in RAM (not stored).
void cmd_get_store(void) {
    uprintf("%u", (unsigned)sys_data.app_cfg[APPCFG_MICROSD_ENABLE]);
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1;
}

void cmd_set_store(void) {
    // "store 1" has its value at 6, "microsd 1" at 8.
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = (rx0_char(6) == '1' || rx0_char(8) == '1') ? 1 : 0;
    save();
}

// ---- output presets ----------------------------------------------------------

void cmd_set_config(void) {
    const char *p = (const char *)&rx0.buf[7];
    if (strncmp(p, "glider", 4) == 0) {
        config_data_fields_glider(0);
    } else if (strncmp(p, "wirewalker", 6) == 0) {
        config_data_fields_wirewalker(0);
    } else if (strncmp(p, "vexa", 4) == 0) {
        config_data_fields_vexa(0);
    } else if (strncmp(p, "quorl", 5) == 0) {
        config_data_fields_quorl(0);
    } else if (strncmp(p, "m2m quorl", 8) == 0) {
        config_data_fields_m2m_quorl(0);
    } else if (strncmp(p, "nanofet", 4) == 0) {
        config_data_fields_nanofet(0);
    } else if (strncmp(p, "all", 3) == 0 || rx0_char(7) == '1') {
        config_data_fields_all(0);
    } else if (strncmp(p, "none", 4) == 0 || rx0_char(7) == '0') {
        config_data_fields_none(0);
    } else if (strncmp(p, "test", 4) == 0) {
        uprintf("not available\r\n");
        return;
    } else {
        print_NAK();
        return;
    }
    // A host has no menu exit to store for it: the preset must outlive the
    // next hibernation.
    save();
}

void cmd_help_config(void) {
    uprintf("not available\r\n");
}

void cmd_filesystem(void) {
    UARTEchoSet(1);
    UARTEchoSet(0);
}

// ---- version, help ---------------------------------------------------------

void print_cmd_version(void) {
    uprintf("%s", FIRMWARE_VERSION);
    prn_nl();
}

void print_cmd_help(void) {
    static const char *const kLines[] = {
        "** datalogger setup:  0 for off, 1 for on\r\n",
        " time, gettime\r\n",
        " time MM/DD/YY HH:MM:SS, settime MM/DD/YY HH:MM:SS\r\n",
        " per, period, getperiod\r\n",
        " per 20, period 20, setperiod 20\r\n",
        " config, getconfig \r\n",
        " config, setconfig\r\n",
        " config help\r\n",
        " filename, getfilename\r\n",
        " filename filename.ext, setfilename filename.ext\r\n",
        " microsd, store", // runs on into the next line
        " align\r\n",
        "** commands:\r\n",
        " help\r\n",
        " sleep\r\n",
        " deploy\r\n",
        " ts\r\n",
        " ss \r\n",
        " sl\r\n",
        " gc\r\n",
        " ec\r\n",
        " gh\r\n",
        " eh\r\n",
        " stop, exit, quit, <ctrl-c>\r\n",
    };
    for (const char *line : kLines) {
        uprintf("%s", line);
    }
    prn_nl();
    uprintf("vrsi set 1    vrsi get    vrsi    vrsi 0   vrsi 2000");
}

void print_cmd_big_help(void) {
    static const char *const kLines[] = {
        "                 Ping:  W          ACK",
        "                 Menu:  M          <menu launches>",
        "         Error Counts:  E          ACK,E,3,3033",
        "  PwrOn, SysRst, Evnt:  P          ACK,P,03,3937292061",
        "       Sample Counter:  S          ACK",
        "             Acq Time:  T          ACK",
        "       Get ZEP Config:  C          H, Datalogger Serial Num , SN:49024...",
        "      Initialize Vars:  INIT       ACK,INIT",
        "     Integration Time:  TINT,400   ACK,TINT,400",
        "  Dura=2 Isus=1  Mode:  MODE,1     ACK,MODE,1",
        "   Start Sample Modal:  SS     ",
        "    Start Isus Sample:  S1     ",
        " Start pH Dura Sample:  S2     ",
        "    Take Sample Modal:  TS     ",
        "     Take Isus Sample:  T1     ",
        "  Take pH Dura Sample:  T2     ",
        "     Send Last sample:  SL     ",
        "  Send ZEP error msgs:  SE     ",
        "                Sleep:  SLP    ",
        " Prepare for PowerOff:  OFF    ",
        "              Set RTC:  RTC,1727464426    ",
        "              Get RTC:  RTC,?  ",
        "                 Ping:  FIT    ",
        "              Set CTD:  CTD,1727464446,20.0000,35.0000,-5.00    ",
        "              Get CTD:  CTD,?    ",
        "             Bake,sec:  BAKE,10   ACK,BAKE,CMD,10",
        "            Send last:  SL     ",
        "    Get ZEP Error msg:  SE     ",
        "",
        " get (Query) ZEP type:  Q          ACK,Q,4   Types: 1=NONE, 2=Isus, 3=Dura, 4=Isus+Dura",
    };
    const uint32_t kAfterT2 = 15; // long text: let the transmitter catch up
    for (uint32_t i = 0; i < sizeof(kLines) / sizeof(kLines[0]); i++) {
        uprintf("%s", kLines[i]);
        prn_nl();
        if (i == kAfterT2) {
            wait_consoleTx();
        }
    }
    uprintf("term time = %u msec", (unsigned)apf_get_h2m_timeout());
    prn_nl();
    wait_consoleTx();
}

// ---- file transfer -----------------------------------------------------------

void cmd_ymodem_send(uint32_t n) {
    uprintf("ymodem send not parsing filename yet, serial_cmd_fxn");
    prn_nl();
    ymodem_send(1, "ys");
}

void cmd_ymodem_receive(void) {
    calFileFlg = 0; // store the file, do not parse it as calibration data
    ymodem_receive(1, "yr");
}

// ---- line term time ----------------------------------------------------------

void apf_set_m2m_timeout(void) {
    rx0.tick_ms_delim = kTermTimeM2mMs;
}

void apf_set_h2m_timeout(uint32_t n) {
    rx0.tick_ms_delim = n * 1000u;
}

uint32_t apf_get_h2m_timeout(void) {
    return rx0.tick_ms_delim;
}

// The float-controller commands (apf_*) are in host/apf_cmd.
