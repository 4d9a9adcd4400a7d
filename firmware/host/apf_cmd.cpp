// The float controller's short dialect: single letters ("w", "p", "s", "e",
// "t", "c", "q", "h") and keyword-comma forms ("mode,1", "tint,400",
// "rtc,<secs>", "ctd,...", "spectra,...", "bake,10", "type,3", with their
// "?" queries), the nitrate and pH samples of this dialect and the pH record
// line with its check word. Every refusal starts "NAK," with the command's
// upper-case name and the error class, so a host can parse it without
// knowing the command. The state is the float-controller record `apf`
// (host/apf_util), stored in FRAM after each change. The receiver
// (host/serial) has already lower-cased the line in rx0.buf.
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "board/board_util.h"
#include "board/i2c_fram.h"
#include "board/uart3.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "ff.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "host/serial_cmd_fxn.h"
#include "host/spectrometer.h"
#include "measure/sample.h"

namespace {

constexpr uint32_t kAckWaitMs = 3000; // the host's "ACK" after "ctd" and "spectra"
constexpr uint32_t kRtcLineCut = 14;  // "rtc," and ten digits
constexpr uint32_t kTintMin = 4, kTintMax = 4000;
constexpr uint32_t kTintDigits = 6;
constexpr uint32_t kBakeMin = 1, kBakeMax = 90;
constexpr int32_t kLambdaMin = 210, kLambdaMax = 350;
constexpr int32_t kLambdaMinSpan = 10;
constexpr uint32_t kReplyBuf = 32;
constexpr uint32_t kRecordLead = 7; // "0x%04X," replaces the record's seven leading blanks
constexpr uint32_t kDbufMax = 1536; // the record kept for "sl", terminator included
constexpr uint32_t kDbufChunk = 64; // FRAM reads are short: interrupts are off during each

// Command codes of the receiver that announce a nitrate sample.
constexpr uint32_t kCodeTs = 3, kCodeT1 = 128, kCodeS1 = 152;

// The command line as a terminated copy.
struct Line {
    char s[sizeof(rx0.buf) + 1];
};

void copy_line(Line &l) {
    memcpy(l.s, rx0.buf, sizeof(rx0.buf));
    l.s[sizeof(rx0.buf)] = 0;
}

// Just after the first comma of the line, or nullptr when the line ends first.
const char *after_comma(const char *s) {
    const char *c = strchr(s, ',');
    return c != nullptr ? c + 1 : nullptr;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// Unsigned decimal as a 32-bit reader takes it: leading blanks skipped, stops
// at the first non-digit, saturates instead of wrapping.
uint32_t read_u32(const char *p) {
    while (*p == ' ') {
        p++;
    }
    uint64_t v = 0;
    for (; is_digit(*p); p++) {
        v = v * 10u + (uint64_t)(*p - '0');
        if (v > 0xFFFFFFFFull) {
            return 0xFFFFFFFFu;
        }
    }
    return (uint32_t)v;
}

// Decimal number with optional sign, fraction and exponent, narrowed to a
// float; 0 when there is none. Written out here so the chip's library does
// not need its heap-using converter.
float read_float(const char *p) {
    while (*p == ' ') {
        p++;
    }
    bool neg = false;
    if (*p == '+' || *p == '-') {
        neg = *p == '-';
        p++;
    }
    double mant = 0.0;
    int exp10 = 0;
    for (; is_digit(*p); p++) {
        mant = mant * 10.0 + (double)(*p - '0');
    }
    if (*p == '.') {
        for (p++; is_digit(*p); p++) {
            mant = mant * 10.0 + (double)(*p - '0');
            exp10--;
        }
    }
    if ((*p == 'e' || *p == 'E') &&
        (is_digit(p[1]) || ((p[1] == '+' || p[1] == '-') && is_digit(p[2])))) {
        p++;
        bool eneg = false;
        if (*p == '+' || *p == '-') {
            eneg = *p == '-';
            p++;
        }
        int e = 0;
        for (; is_digit(*p); p++) {
            if (e < 1000) {
                e = e * 10 + (*p - '0');
            }
        }
        exp10 += eneg ? -e : e;
    }
    if (exp10 > 400) {
        exp10 = 400;
    } else if (exp10 < -400) {
        exp10 = -400;
    }
    for (; exp10 > 0; exp10--) {
        mant *= 10.0;
    }
    for (; exp10 < 0; exp10++) {
        mant /= 10.0;
    }
    return (float)(neg ? -mant : mant);
}

// The next comma-separated field after p (p itself when no comma follows
// it, so missing fields read as empty).
const char *next_field(const char *p) {
    const char *c = strchr(p, ',');
    return c != nullptr ? c + 1 : p + strlen(p);
}

void nak_format(const char *cmd) {
    uprintf("NAK,%s,FormatErr", cmd);
    prn_nl();
}

struct tm calendar_now(void) {
    time_t t = (time_t)HibernateRTCGet();
    struct tm out;
    const struct tm *cal = localtime(&t);
    if (cal != nullptr) {
        out = *cal;
    } else {
        memset(&out, 0, sizeof(out));
    }
    return out;
}

// Sends the record kept in FRAM for "sl", when there is one.
void send_kept_record(void) {
    char *buf = prnBuf;
    static_assert(PRN_BUF_SIZE >= kDbufMax, "kept record buffer");
    uint32_t len = 0;
    bool ended = false;
    while (len < kDbufMax && !ended) {
        uint32_t n = kDbufMax - len < kDbufChunk ? kDbufMax - len : kDbufChunk;
        fram_read(FRAM_ADDR_APF_DBUF + len, (uint8_t *)buf + len, n);
        for (uint32_t i = 0; i < n; i++) {
            if (buf[len] == 0) {
                ended = true;
                break;
            }
            len++;
        }
    }
    if (len >= 1 && len < kDbufMax) {
        UARTwrite(buf, len);
        prn_nl();
    } else {
        uprintf("NAK,SL");
        prn_nl();
    }
}

} // namespace

// ---- queries ----------------------------------------------------------------

void apf_print_ping_response(void) {
    uprintf("ACK");
    prn_nl();
}

void apf_get_pc(void) {
    uprintf("ACK,P,%lu,%lu,%lu", (unsigned long)apf.sys_por_ctr, (unsigned long)apf.sys_reset_ctr,
            (unsigned long)apf.sys_reset_time);
    prn_nl();
}

void apf_get_sc(void) {
    switch (apf.sys_sensor_mode) {
    case 1:
        uprintf("ACK,S,%lu,%lu\n", (unsigned long)apf.isus_sample_ctr,
                (unsigned long)apf.isus_sample_time);
        break;
    case 2:
        uprintf("ACK,S,%lu,%lu\n", (unsigned long)apf.dura_sample_ctr,
                (unsigned long)apf.dura_sample_time);
        break;
    default:
        uprintf("NAK,S,InvalidModeValue: %d\n", (int)apf.sys_sensor_mode);
        break;
    }
}

void apf_get_err(void) {
    switch (apf.sys_sensor_mode) {
    case 1:
        uprintf("ACK,E,%lu,%lu\n", (unsigned long)apf.isus_error_ctr,
                (unsigned long)apf.isus_error_time);
        break;
    case 2:
        uprintf("ACK,E,%lu,%lu\n", (unsigned long)apf.dura_error_ctr,
                (unsigned long)apf.dura_error_time);
        break;
    default:
        uprintf("NAK,E,InvalidModeValue: %d\n", (int)apf.sys_sensor_mode);
        break;
    }
}

void apf_get_acq_time(void) {
    if (apf.gotSample == 1) {
        uprintf("ACK,T,%.3f\n", (double)apf.acquire_time);
    } else {
        uprintf("NAK,T,-1.0\n");
    }
}

void apf_get_cfg(void) {
    switch (apf.sys_sensor_mode) {
    case 1:
        print_isus_header();
        break;
    case 2:
        print_dura_header();
        break;
    default:
        uprintf("NAK,C,InvalidModeValue: %d\n", (int)apf.sys_sensor_mode);
        break;
    }
}

void apf_get_sensor_type(void) {
    uprintf("ACK,Q,%u", (unsigned)apf.sys_sensor_type);
    prn_nl();
}

// "type,<d>": the low four bits of the character after the comma, 1 to 4.
void apf_set_sensor_type(void) {
    uint8_t v = rx0_char(5) & 15u;
    if (v >= 1 && v <= 4) {
        apf.sys_sensor_type = v;
        fram_apf_vars_store();
    }
    uprintf("ACK,Q,%u", (unsigned)apf.sys_sensor_type);
    prn_nl();
}

void apf_get_mode(void) {
    uprintf("ACK,MODE?,%u", (unsigned)apf.sys_sensor_mode);
    prn_nl();
}

void apf_set_mode(void) {
    apf.sendlast_byteCnt = 0;
    Line l;
    copy_line(l);
    const char *p = after_comma(l.s);
    if (p == nullptr || !is_digit(*p)) {
        nak_format("MODE");
        return;
    }
    uint32_t mode = (uint32_t)(*p & 15);
    if (mode < 3) {
        uprintf("ACK,MODE,%u", (unsigned)mode);
        prn_nl();
        apf.sys_sensor_mode = mode;
        fram_apf_vars_store();
    } else {
        uprintf("NAK,MODE,RangeErr [0,2]: %u", (unsigned)mode);
        prn_nl();
    }
}

void apf_get_int_time(void) {
    uprintf("TINT,?,%u", (unsigned)apf.isus_spec_period);
    prn_nl();
}

void apf_set_int_time(void) {
    Line l;
    copy_line(l);
    const char *p = after_comma(l.s);
    if (p == nullptr) {
        nak_format("TINT");
        return;
    }
    uint32_t v = 0;
    for (uint32_t i = 0; i < kTintDigits && is_digit(p[i]); i++) {
        v = v * 10u + (uint32_t)(p[i] - '0');
    }
    if (v < kTintMin || v > kTintMax) {
        uprintf("NAK,TINT,RangeErr [4,4000], %u", (unsigned)v);
    } else {
        apf.isus_spec_period = v;
        uprintf("ACK,TINT,%u", (unsigned)v);
    }
    prn_nl();
    fram_apf_vars_store();
}

void apf_get_rtc(void) {
    uprintf("ACK,RTC?,%lu", (unsigned long)HibernateRTCGet());
    prn_nl();
}

// "rtc,<secs>": the seconds are read from position 4 of the line cut at 14;
// the answer carries the value sent and the clock read back.
void apf_set_rtc(void) {
    Line l;
    copy_line(l);
    l.s[kRtcLineCut] = 0;
    uint32_t secs = read_u32(&l.s[4]);
    HibernateRTCSet(secs);
    uint32_t back = HibernateRTCGet();
    uprintf("ACK,%u,%u", (unsigned)secs, (unsigned)back);
    prn_nl();
}

void apf_get_ctd(void) {
    uprintf("ACK,CTD?,%lu,%.4f,%.4f,%.2f\n", (unsigned long)apf.CTD_Time, (double)apf.CTD_Temp,
            (double)apf.CTD_Salinity, (double)apf.CTD_Depth);
}

// The CTD values the float controller pushes before a sample. They count
// only once the host has confirmed the echo with "ACK"; without it they are
// invalidated and the failure is logged.
void apf_set_ctd(void) {
    Line l;
    copy_line(l);
    const char *p = next_field(l.s);
    uint32_t when = read_u32(p);
    p = next_field(p);
    float temp = read_float(p);
    p = next_field(p);
    float sal = read_float(p);
    p = next_field(p);
    float depth = read_float(p);

    uprintf("ACK,CTD,%lu,%.4f,%.4f,%.2f", (unsigned long)when, (double)temp, (double)sal,
            (double)depth);
    prn_nl();
    int ack = waitACK(kAckWaitMs);
    apf.CTD_Time = when;
    apf.CTD_Temp = temp;
    apf.CTD_Salinity = sal;
    apf.CTD_Depth = depth;
    if (ack != 1) {
        apf.CTD_Time = 0;
        apf.CTD_Temp = -1.0f;
        apf.CTD_Salinity = -1.0f;
        apf.CTD_Depth = -1.0f;
        LogErrorMsg("CTD Command ACK Failure", APF_ERR_ACK_FAILURE, apf.sys_message_enable);
    }
    fram_apf_vars_store();
}

void apf_get_spectra(void) {
    uprintf("ACK,SPECTRA?,%.1lf,%.1lf\n", CellNumToLambda(apf.isus_datpixel_beg, ZeissCoefs),
            CellNumToLambda(apf.isus_datpixel_end, ZeissCoefs));
    UARTFlushRx();
}

namespace {

enum class FieldErr { None, Overflow, Convert, Range };

// One wavelength field of "spectra,<beg>,<end>" (text up to the next comma).
FieldErr read_lambda(const char *text, int32_t *out) {
    const char *p = text;
    while (*p == ' ') {
        p++;
    }
    bool neg = false;
    if (*p == '+' || *p == '-') {
        neg = *p == '-';
        p++;
    }
    if (!is_digit(*p)) {
        return FieldErr::Convert;
    }
    int64_t v = 0;
    for (; is_digit(*p); p++) {
        v = v * 10 + (*p - '0');
        if (v > 0x7FFFFFFFLL + (neg ? 1 : 0)) {
            return FieldErr::Overflow;
        }
    }
    *out = (int32_t)(neg ? -v : v);
    if (*out < kLambdaMin || *out > kLambdaMax) {
        return FieldErr::Range;
    }
    return FieldErr::None;
}

// Refusal for a bad wavelength field; side 'S' (start) or 'E' (end).
void nak_lambda(FieldErr e, char side, const char *text) {
    switch (e) {
    case FieldErr::Overflow:
        uprintf("NAK,SPECTRA,%cOverflowErr: %s\n", side, text);
        break;
    case FieldErr::Convert:
        uprintf("NAK,SPECTRA,%cConvertErr: %s\n", side, text);
        break;
    default:
        uprintf("NAK,SPECTRA,%cRangeErr [210,350]: %s\n", side, text);
        break;
    }
}

} // namespace

void apf_set_spectra(void) {
    if (Zcoefs < 1) {
        uprintf("NAK,SPECTRA,ZCoef File Error = %d\n", (int)Zcoefs);
        return;
    }
    Line l;
    copy_line(l);
    char *beg = strchr(l.s, ',');
    char *end = beg != nullptr ? strchr(beg + 1, ',') : nullptr;
    if (end == nullptr) {
        uprintf("NAK,SPECTRA,FormatErr\n");
        return;
    }
    beg++;
    *end++ = 0;
    char *rest = strchr(end, ',');
    if (rest != nullptr) {
        *rest = 0;
    }
    int32_t v = 0;
    FieldErr e = read_lambda(beg, &v);
    if (e != FieldErr::None) {
        nak_lambda(e, 'S', beg);
        return;
    }
    apf.lambda_beg = (uint32_t)v;
    e = read_lambda(end, &v);
    if (e != FieldErr::None) {
        nak_lambda(e, 'E', end);
        return;
    }
    apf.lambda_end = (uint32_t)v;
    int sval = (int)apf.lambda_beg, eval = (int)apf.lambda_end;
    if (eval <= sval) {
        uprintf("NAK,SPECTRA,EVal<SVal: %d, %d\n", eval, sval);
        return;
    }
    if (eval - sval <= kLambdaMinSpan) {
        uprintf("NAK,SPECTRA,EVal-SVal!>10: %d, %d\n", eval, sval);
        return;
    }
    uprintf("ACK,SPECTRA,%d,%d\n", sval, eval);
    UARTFlushRx();
    char reply[kReplyBuf];
    int n = UART_GetStr_timeout(reply, sizeof(reply), kAckWaitMs);
    if (n < 0 || MatchACK(reply) != 6) {
        LogErrorMsg("SPECTRA Command ACK Failure", APF_ERR_ACK_FAILURE, apf.sys_message_enable);
    } else {
        MatchPixelsToLambda(apf.lambda_beg, apf.lambda_end, &apf.isus_datpixel_beg,
                            &apf.isus_datpixel_end);
    }
    UARTFlushRx();
    fram_apf_vars_store();
}

void apf_bake_uv_lamp(void) {
    Line l;
    copy_line(l);
    const char *p = after_comma(l.s);
    if (p == nullptr) {
        nak_format("BAKE");
        return;
    }
    uint32_t secs = 0;
    if (is_digit(p[0])) {
        secs = (uint32_t)(p[0] - '0');
        if (is_digit(p[1])) {
            secs = secs * 10u + (uint32_t)(p[1] - '0');
        }
    }
    if (secs < kBakeMin || secs > kBakeMax) {
        uprintf("NAK,BAKE,RangeErr [1,90]: %u", (unsigned)secs);
        prn_nl();
        return;
    }
    uprintf("ACK,BAKE,CMD,%u", (unsigned)secs);
    prn_nl();
    uprintf("DEBUG: wait for ACK is not implemented, calling mms_bake, type X to terminate BAKE");
    prn_nl();
    mms_bake(secs);
}

void apf_get_se(void) {
    uprintf("ACK,SE?,%u\n", (unsigned)apf.sys_error_ctr);
}

void apf_xfer_se(void) {
    uprintf("Imp es Nada apf_xfer_se, send error records\r\n");
}

void apf_get_fit(void) {
    uprintf("Imp es Nada apf_get_fit\r\n");
}

void apf_set_fit(void) {
    uprintf("Imp es Nada apf_set_fit\r\n");
}

void apf_get_cal(void) {
    uprintf("Imp es Nada apf_get_cal\r\n");
}

// ---- record control -------------------------------------------------------------

// Back to the settings of a new deployment; the serial number, sensor type,
// integration time, pixel ranges and lamp figures stay as they are.
void apf_init_persistent_vars(void) {
    apf.isus_fit_concs = 2;
    apf.isus_tcomp_mode = 1;
    apf.sys_watchdog_enable = 1;
    apf.sys_ef_limit = 128;
    apf.sys_df_limit = 5;
    apf.sys_apf_tmout = 10;
    apf.sys_data_mode = 1;
    apf.sendlast_byteCnt = 0;
    apf.sys_message_enable = 0;
    apf.isus_salfit_mode = 0;
    apf.dura_led_enable = 0;
    apf.sys_por_ctr = 0;
    apf.sys_reset_ctr = 0;
    apf.isus_error_ctr = 0;
    apf.isus_error_time = 0;
    apf.isus_sample_ctr = 0;
    apf.isus_sample_time = 0;
    apf.dura_error_ctr = 0;
    apf.dura_error_time = 0;
    apf.dura_sample_ctr = 0;
    apf.dura_sample_time = 0;
    apf.sys_last_error = 0;
    apf.sys_error_ctr = 0;
    apf.sys_error_time = 0;
    if (Zcoefs > 0 || Ecoefs == (int32_t)ISUS_ECOEF_ROWS) {
        MatchPixelsToLambda(217, 240, &apf.isus_pixel_beg, &apf.isus_pixel_end);
        apf.isus_fit_pixels = apf.isus_pixel_end - apf.isus_pixel_beg + 1;
        MatchPixelsToLambda(217, 250, &apf.isus_datpixel_beg, &apf.isus_datpixel_end);
        apf.lambda_beg = 217;
        apf.lambda_end = 250;
    }
    uprintf("ACK,INIT");
    prn_nl();
    fram_apf_vars_store();
    UARTFlushRx();
}

void apf_off(void) {
    uprintf("ACK,OFF");
    prn_nl();
}

// The float controller's end-of-session sleep: the receiver ends the awake
// period, nothing else is to be done here.
void apf_slp_sleep(void) {}

void apf_dbg(void) {
    if (mmsDbgFlg == 1) {
        uprintf("mmsDbgFlg=0, mms dbg printfs are off");
    } else {
        uprintf("mmsDbgFlg=1, mms dbg printfs are on");
    }
    mmsDbgFlg = 0; // the second message promises more than it does; kept
    prn_nl();
}

void apf_wdog_status(void) {
    uprintf("DEV: wdog.longest = %u, tot = %u", (unsigned)wdog.tickLongest, (unsigned)wdog.tickTot);
    prn_nl();
    uprintf(">");
}

void apf_print_devStatus(void) {
    uprintf("Commands implemented: W,M,E,P,S,T,C,Q,TYPE,INIT,TINT,MODE,SS,S1,S2,SL,TS,T1,T2,SE?,"
            "SLP,OFF,RTC,CTD,BAKE,SPECTRA,H,SYS,WDOG,DBG");
    prn_nl();
    uprintf("Placeholders: FIT, CAL, SE (error record transfer)");
    prn_nl();
    uprintf("No spectrometer fitted: S1/T1 answer NAK, BAKE does nothing, SPECTRA needs ZCoefs");
    prn_nl();
}

void apf_print_help(void) {
    prn_nl();
    uprintf("Commands: W,M,E,P,S,T,C,Q,INIT,TINT,MODE,SS,S1,S2,SL,TS,T1,T2,SE,SLP,OFF,RTC,FIT,CTD,"
            "BAKE,SPECTRA,VER");
    prn_nl();
    uprintf("term time = %u msec", (unsigned)apf_get_h2m_timeout());
    prn_nl();
}

void apf_print_isus_header(void) {
    print_write_isusdura_header(1, 0, 2, nullptr);
}

void apf_print_dura_header(void) {
    print_write_isusdura_header(1, 0, 2, nullptr);
}

// ---- samples ----------------------------------------------------------------------

void apf_take_sample_nitrate(uint32_t txFlg) {
    if (mmsDbgFlg == 1) {
        uprintf("Dev in progress on apf_take_sample_nitrate, calls mms_takeIsusSample\r\n");
    }
    const char *name = nullptr;
    switch (rx0.cmd) {
    case kCodeTs:
        name = "TS";
        break;
    case kCodeT1:
        name = "T1";
        break;
    case kCodeS1:
        name = "S1";
        break;
    default:
        break;
    }
    if (name != nullptr) {
        uprintf("ACK,%s,CMD", name);
        prn_nl();
    }
    int32_t r = mms_takeIsusSample(apf.CTD_Temp, apf.CTD_Salinity, apf.CTD_Depth, prnBuf,
                                   apf.CTD_Time, txFlg);
    if (r == 0) {
        if (txFlg == 0) {
            uprintf("ACK,S1,DAT\n");
        }
        apf.gotSample = 1;
    } else {
        if (name != nullptr) {
            uprintf("NAK,%s,CMD", name);
            prn_nl();
        }
        apf.gotSample = 0;
    }
    uart3_rx_bufr_flush();
}

// A pH sample of this dialect: the sample cycle without output, the record
// line into the pH data file (headed once per start), then the line with its
// check word on the console. Some figures of the record are fixed stand-ins
// of the present release (board temperature, current, backup battery and
// the three counters), and the CTD values are cleared before the record.
//
// Fields after the date: CTD time, depth, temperature, salinity; pH sample
// and error counters; humidity; supply voltage; board temperature; current;
// backup voltage; pH; acquisition time; external reference voltage and its
// spread; counter-electrode voltage and its spread; counter-electrode and
// substrate currents.
void apf_take_sample_pH(uint32_t txFlg) {
    get_sample(0, 0);
    FIL *file = OpenApfLogFile(2);
    if (file != nullptr && apf.dura_reset_flag == 1) {
        print_write_isusdura_header(0, 1, 2, file);
        apf.dura_reset_flag = 0;
    }

    apf.acquire_time = -1.0f;
    apf.CTD_Temp = -1.0f;
    apf.CTD_Salinity = -1.0f;
    apf.CTD_Depth = -1.0f;
    apf.CTD_Time = 0;
    apf.pH = sampl.pHext;
    apf.VrsExt = sampl.fVrse;
    apf.StdDevVrs = sampl.fVrse_std;
    apf.Vk = sampl.fVk;
    apf.StdDevVk = sampl.fVk_std;
    apf.Ik = sampl.fIk;
    apf.Ib = sampl.fIb;
    apf.sys_voltage = sampl.fVbat_main;
    apf.sys_humidity = sampl.uiHumidity;
    apf.sys_temperature = 4.5f;
    apf.sys_current = 0.035f;
    apf.backupVoltage = 0.1f;
    apf.sys_por_ctr = 12;
    apf.dura_error_ctr = 33;
    apf.dura_sample_ctr = 150;

    struct tm t = calendar_now();
    char *buf = prnBuf;
    int n = snprintf(buf, PRN_BUF_SIZE,
                     "       pH,%02d/%02d/%02d "
                     "%02d:%02d:%02d,%lu,%.2f,%.4f,%.4f,%lu,%lu,%lu,%.2f,%.2f,%.3f,%.3e,"
                     "%.4f,%.3f,%+f,%f,%+f,%f,%+.3e,%+.3e",
                     t.tm_mon + 1, t.tm_mday, t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec,
                     (unsigned long)apf.CTD_Time, (double)apf.CTD_Depth, (double)apf.CTD_Temp,
                     (double)apf.CTD_Salinity, (unsigned long)apf.dura_sample_ctr,
                     (unsigned long)apf.dura_error_ctr, (unsigned long)apf.sys_humidity,
                     (double)apf.sys_voltage, (double)apf.sys_temperature, (double)apf.sys_current,
                     (double)apf.backupVoltage, (double)apf.pH, (double)apf.acquire_time,
                     (double)apf.VrsExt, (double)apf.StdDevVrs, (double)apf.Vk,
                     (double)apf.StdDevVk, (double)apf.Ik, (double)apf.Ib);
    uint32_t len = n < 0 ? 0u : (uint32_t)n;
    if (len > PRN_BUF_SIZE - 1) {
        len = PRN_BUF_SIZE - 1;
    }

    if (file != nullptr) {
        UINT written = 0;
        f_write(file, buf + kRecordLead, len - kRecordLead, &written);
        f_write(file, "\n", 1, &written);
        f_close(file);
    }

    // The check word covers the buffer as formatted, leading blanks included,
    // then takes their place.
    uint16_t crc = fCrc16Bit((const uint8_t *)buf, len);
    char word[8];
    snprintf(word, sizeof(word), "0x%04X", (unsigned)crc);
    memcpy(buf, word, 6);
    buf[6] = ',';

    apf.dura_sample_ctr++;
    UARTwrite(buf, len);
    prn_nl();
    fram_apf_vars_store();
}

void apf_send_last_pH(void) {
    if (apf.sendlast_byteCnt == 0) {
        uprintf("DBG: apf_send_last_pH, byteCnt is 0");
        prn_nl();
    }
    send_kept_record();
}

void apf_send_last_nitrate(void) {
    if (apf.sendlast_byteCnt == 0) {
        uprintf("apf_send_last_nitrate, byteCnt is 0");
        prn_nl();
    }
    send_kept_record();
}
