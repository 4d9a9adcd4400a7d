// Calibration coefficients of the sensor: the operator's entry dialogue, the
// import of a calibration file received over YMODEM (parsed from memory) or
// read from the card ("DF384.cal"), the key,value export listing and the
// host's one-line form. Owns no record: the values live in sys_data, and the
// callers save the record. The YMODEM receiver itself is files/ymodem's.
//
// A calibration file is twenty key,value lines in a fixed order, read by
// position: a line whose key does not match leaves its value as it was in
// the working copy, and nothing is reported.
//
// Field sizes: text values land in 8-byte (serial numbers) and 12-byte
// (dates) fields. The packet import keeps at most 7 and 10 characters; the
// card import keeps at most the field size less one. Lines are short by
// construction (32 characters from memory, 24 bytes from the card), so the
// working buffers below can never overflow.
//
// The card import scans the ISFET and the ISE serial numbers into one and the
// same working buffer, so the ISE value ends in isfet_SN and ise_SN is left
// alone; it stores neither the PT and k0 dates nor the k0 values. Both habits
// are known to the people who calibrate the sensors and stay as they are.
#include "console/cal_coeff.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "ff.h"
#include "files/microsd.h"
#include "files/ymodem.h"
#include "measure/sample.h"

namespace {

constexpr uint32_t kCalLines = 20;
constexpr uint32_t kWork = CAL_PACKET_LINE_MAX + 1u; // a value can never be longer than its line
constexpr uint32_t kSnKeep = 7;                      // packet import: serial numbers
constexpr uint32_t kDateKeep = 10;                   // packet import: dates
constexpr uint32_t kEntryBuf = 20;                   // operator's numeric answers
constexpr uint32_t kPauseAfterImportMs = 200;
constexpr uint32_t kSlowBaudDelays = 8;
constexpr uint32_t kSlowBaudDelayMs = 2000;
constexpr uint32_t kFastBaud = 115200;

// The working copy of one calibration file.
struct CalValues {
    char sensor_SN[kWork];
    char isfet_SN[kWork];
    char ise_SN[kWork];
    char PT_Cal_date[kWork];
    float K2_Cal[4];
    float fP_Cal[7];
    char k0_Cal_date[kWork];
    float k0_HCL;
    float k0_SW;
    float k0std_SW;
    char service_date[kWork];
};

// The twenty lines in their fixed order.
const char *const kCalFormats[kCalLines] = {
    "Sensor_SN,%s",   "ISFET_SN,%s", "ISE_SN,%s", "PT_Cal_date,%s", "k2_C0,%f",
    "k2_C1,%f",       "k2_C2,%f",    "k2_C3,%f",  "fP_0,%f",        "fP_1,%f",
    "fP_2,%f",        "fP_3,%f",     "fP_4,%f",   "fP_5,%f",        "fP_6,%f",
    "k0_Cal_date,%s", "k0_HCl,%f",   "k0_SW,%f",  "k0std_SW,%f",    "service_date,%s",
};

// Scans line `i` of a calibration file into its working value. With
// sharedSN the ISE serial number goes to the ISFET buffer (card import).
void scan_line(const char *line, uint32_t i, CalValues &v, bool sharedSN) {
    const char *f = kCalFormats[i];
    char *text = nullptr;
    float *number = nullptr;
    switch (i) {
    case 0:
        text = v.sensor_SN;
        break;
    case 1:
        text = v.isfet_SN;
        break;
    case 2:
        text = sharedSN ? v.isfet_SN : v.ise_SN;
        break;
    case 3:
        text = v.PT_Cal_date;
        break;
    case 15:
        text = v.k0_Cal_date;
        break;
    case 16:
        number = &v.k0_HCL;
        break;
    case 17:
        number = &v.k0_SW;
        break;
    case 18:
        number = &v.k0std_SW;
        break;
    case 19:
        text = v.service_date;
        break;
    default:
        number = i < 8u ? &v.K2_Cal[i - 4u] : &v.fP_Cal[i - 8u];
        break;
    }
    if (text != nullptr) {
        sscanf(line, f, text);
    } else {
        sscanf(line, f, number);
    }
}

// At most `keep` characters of src into dst, terminated.
void copy_text(char *dst, const char *src, uint32_t keep) {
    size_t n = strnlen(src, keep);
    memcpy(dst, src, n);
    memset(dst + n, 0, keep + 1u - n);
}

// A text field of the record as a working value (fields are terminated
// within their width only when written by the firmware).
void from_field(char *dst, const char *field, size_t width) {
    size_t n = strnlen(field, width);
    memcpy(dst, field, n);
    dst[n] = 0;
}

// ---- the shared console buffer ---------------------------------------------------

uint32_t s_prnLen;

void prn_begin(void) {
    s_prnLen = 0;
    prnBuf[0] = 0;
}

void prn_add(const char *format, ...) __attribute__((format(printf, 1, 2)));
void prn_add(const char *format, ...) {
    if (s_prnLen >= PRN_BUF_SIZE - 1u) {
        return;
    }
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(prnBuf + s_prnLen, PRN_BUF_SIZE - s_prnLen, format, ap);
    va_end(ap);
    if (n > 0) {
        s_prnLen += (uint32_t)n;
        if (s_prnLen > PRN_BUF_SIZE - 1u) {
            s_prnLen = PRN_BUF_SIZE - 1u;
        }
    }
}

void prn_newline(void) {
    if (s_prnLen + 2u < PRN_BUF_SIZE) {
        s_prnLen += sprn_nl(prnBuf, s_prnLen);
        prnBuf[s_prnLen] = 0;
    }
}

// Sends the buffer and waits until it has left.
void prn_send(void) {
    UARTwrite(prnBuf, s_prnLen);
    wait_consoleTx();
    prn_begin();
}

// A record text field, never read past its width.
#define FIELD(f) (int)sizeof(sys_data.f), sys_data.f

// ---- operator entry helpers ------------------------------------------------------

// Asks for a number within [lo, hi]. Enter alone or text that is no number
// keeps the value (false); a number outside asks again after `msg`.
bool ask_number(const char *prompt, float *value, double lo, double hi, const char *msg) {
    for (;;) {
        char buf[kEntryBuf];
        uprintf(prompt, (double)*value);
        getUserInput(buf, sizeof buf);
        float f = 0;
        if (sscanf(buf, "%f", &f) != 1) {
            return false;
        }
        if (f < lo || f > hi) {
            uprintf("%s", msg);
            continue;
        }
        *value = f;
        return true;
    }
}

// The same for the thermistor coefficients, which are doubles.
bool ask_number(const char *prompt, double *value, double lo, double hi, const char *msg) {
    for (;;) {
        char buf[kEntryBuf];
        uprintf(prompt, *value);
        getUserInput(buf, sizeof buf);
        double d = 0;
        if (sscanf(buf, "%lf", &d) != 1) {
            return false;
        }
        if (d < lo || d > hi) {
            uprintf("%s", msg);
            continue;
        }
        *value = d;
        return true;
    }
}

// A number read with "%f"; false when Enter alone or no number was typed.
bool read_float(float *value) {
    char buf[kEntryBuf];
    getUserInput(buf, sizeof buf);
    float f = 0;
    if (sscanf(buf, "%f", &f) != 1) {
        return false;
    }
    *value = f;
    return true;
}

// Field-edit convention for texts: prompt with the current value, Enter
// keeps it, the answer is cut to the field; then the result under the value.
void edit_string(const char *name, char *field, uint32_t size, bool showResult) {
    char buf[sizeof(sys_data.cal_filename)];
    uint32_t limit = size < sizeof buf ? size : (uint32_t)sizeof buf;
    uprintf("%s [%.*s]: ", name, (int)size, field);
    if (getUserInput(buf, limit) > 0) {
        copy_text(field, buf, size - 1u);
    }
    if (showResult) {
        uprintf("%*s[%.*s]\r\n", (int)strlen(name) + 1, "", (int)size, field);
    }
}

// Field-edit convention for numbers: the result line only when it changed.
void edit_float(const char *prompt, uint32_t index, float *value, const char *resultPad) {
    uprintf(prompt, (unsigned)index, (double)*value);
    float before = *value;
    if (read_float(value) && *value != before) {
        uprintf("%s[%e]\r\n", resultPad, (double)*value);
    }
}

void edit_float(const char *prompt, float *value, const char *resultPad) {
    uprintf(prompt, (double)*value);
    float before = *value;
    if (read_float(value) && *value != before) {
        uprintf("%s[%e]\r\n", resultPad, (double)*value);
    }
}

FIL s_calFile;

} // namespace

// ---- parsing ---------------------------------------------------------------------

const char *egets(char *line, const char *bufPtr) {
    uint32_t n = 0;
    const char *p = bufPtr;
    for (;;) {
        char c = *p;
        if (c == 0) {
            break;
        }
        if (n >= CAL_PACKET_LINE_MAX) {
            // A full line still owns the line end that follows it; anything
            // else is the start of the next line.
            if (c == '\r') {
                c = *++p;
            }
            if (c == '\n') {
                p++;
            }
            break;
        }
        p++;
        if (c == '\n') {
            break;
        }
        line[n++] = c == '\r' ? 0 : c;
    }
    line[n] = 0;
    return p;
}

uint32_t efgets(char *bufPtr) {
    uint32_t n = 0;
    while (n < CAL_FILE_LINE_MAX) {
        char c = 0;
        UINT got = 0;
        if (f_read(&s_calFile, &c, 1, &got) != FR_OK || got == 0u) {
            break;
        }
        if (c == '\n') {
            bufPtr[n++] = 0;
            break;
        }
        bufPtr[n++] = c == '\r' ? 0 : c;
    }
    bufPtr[n] = 0;
    return n;
}

void parse_cal_packet(const char *bufPtr) {
    CalValues v;
    memset(&v, 0, sizeof v);
    char line[CAL_PACKET_LINE_MAX + 1u];
    const char *p = bufPtr;
    for (uint32_t i = 0; i < kCalLines; i++) {
        p = egets(line, p);
        scan_line(line, i, v, false);
    }
    copy_text(sys_data.sensor_SN, v.sensor_SN, kSnKeep);
    copy_text(sys_data.isfet_SN, v.isfet_SN, kSnKeep);
    copy_text(sys_data.ise_SN, v.ise_SN, kSnKeep);
    copy_text(sys_data.PT_Cal_date, v.PT_Cal_date, kDateKeep);
    copy_text(sys_data.k0_Cal_date, v.k0_Cal_date, kDateKeep);
    copy_text(sys_data.service_date, v.service_date, kDateKeep);
    memcpy(sys_data.K2_Cal, v.K2_Cal, sizeof v.K2_Cal);
    memcpy(sys_data.fP_Cal, v.fP_Cal, sizeof v.fP_Cal);
    sys_data.k0_HCL = v.k0_HCL;
    sys_data.k0_SW = v.k0_SW;
    sys_data.k0std_SW = v.k0std_SW;
}

// ---- import ----------------------------------------------------------------------

void import_pH_sensor_cal_coeff(void) {
    UARTEchoSet(false);
    FRESULT fr = f_open(&s_calFile, CAL_CARD_FILE, FA_READ);
    if (fr != FR_OK) {
        uprintf("f_open error: %s\n", StringFromFresult(fr));
        UARTEchoSet(true);
        return;
    }
    uprintf("importing %s, %lu bytes...\r\n", CAL_CARD_FILE, (unsigned long)f_size(&s_calFile));
    wait_consoleTx();

    // Lines that do not match keep what the record holds.
    CalValues v;
    memset(&v, 0, sizeof v);
    from_field(v.sensor_SN, sys_data.sensor_SN, sizeof sys_data.sensor_SN);
    from_field(v.isfet_SN, sys_data.isfet_SN, sizeof sys_data.isfet_SN);
    from_field(v.ise_SN, sys_data.ise_SN, sizeof sys_data.ise_SN);
    from_field(v.PT_Cal_date, sys_data.PT_Cal_date, sizeof sys_data.PT_Cal_date);
    from_field(v.k0_Cal_date, sys_data.k0_Cal_date, sizeof sys_data.k0_Cal_date);
    from_field(v.service_date, sys_data.service_date, sizeof sys_data.service_date);
    memcpy(v.K2_Cal, sys_data.K2_Cal, sizeof v.K2_Cal);
    memcpy(v.fP_Cal, sys_data.fP_Cal, sizeof v.fP_Cal);
    v.k0_HCL = sys_data.k0_HCL;
    v.k0_SW = sys_data.k0_SW;
    v.k0std_SW = sys_data.k0std_SW;

    char line[CAL_FILE_LINE_MAX + 1u];
    for (uint32_t i = 0; i < kCalLines; i++) {
        efgets(line);
        uprintf("%s\r\n", line);
        scan_line(line, i, v, true);
    }

    prn_nl();
    prn_nl();
    uprintf("Filename: %s\r\n", CAL_CARD_FILE);
    uprintf("Sensor_SN: %s\r\n", v.sensor_SN);
    uprintf("ISFET_SN: %s\r\n", v.isfet_SN);
    uprintf("ISE_SN: %s\r\n", v.isfet_SN);
    uprintf("PT_Cal_date: %s\r\n", v.PT_Cal_date);
    for (uint32_t k = 0; k < 4u; k++) {
        uprintf("k2_C%u: %e\r\n", (unsigned)k, (double)v.K2_Cal[k]);
    }
    for (uint32_t k = 0; k < 7u; k++) {
        uprintf("fP_%u: %e\r\n", (unsigned)k, (double)v.fP_Cal[k]);
    }
    uprintf("k0_Cal_date: %s\r\n", v.k0_Cal_date);
    uprintf("k0_HCl: %e\r\n", (double)v.k0_HCL);
    uprintf("k0_SW: %e\r\n", (double)v.k0_SW);
    uprintf("k0std_SW: %e\r\n", (double)v.k0std_SW);
    uprintf("service_date: %s\r\n", v.service_date);

    copy_text(sys_data.cal_filename, CAL_CARD_FILE, sizeof sys_data.cal_filename - 1u);
    copy_text(sys_data.sensor_SN, v.sensor_SN, sizeof sys_data.sensor_SN - 1u);
    copy_text(sys_data.isfet_SN, v.isfet_SN, sizeof sys_data.isfet_SN - 1u);
    copy_text(sys_data.isfet_SN, v.isfet_SN, sizeof sys_data.isfet_SN - 1u);
    memcpy(sys_data.K2_Cal, v.K2_Cal, sizeof v.K2_Cal);
    memcpy(sys_data.fP_Cal, v.fP_Cal, sizeof v.fP_Cal);
    copy_text(sys_data.service_date, v.service_date, sizeof sys_data.service_date - 1u);

    prn_nl();
    prn_nl();
    f_close(&s_calFile);
    UARTEchoSet(true);
}

void import_ymodem_cal_coeff(void) {
    prn_nl();
    prn_nl();
    if (!yesOrNoMenuChoice("Transfer Cal file via Teraterm YMODEM? (Y/N) [N]? ", 0)) {
        return;
    }
    uprintf("OK!  Calling ymodem_receive...(Ctrl-C to cancel)");
    prn_nl();
    wait_consoleTx();
    uprintf("TeraTerm: File->Transfer->Ymodem->Send *.cal file");
    prn_nl();
    wait_consoleTx();
    bool slow = sys_data.baud_rate != kFastBaud;
    if (slow) {
        uprintf("   Note: 15 sec delay after transfer for slow baud ymodem workaround\r\n");
    }
    calFileFlg = 1;
    ymodem_receive(1, "yr");
    if (slow) {
        for (uint32_t i = 0; i < kSlowBaudDelays; i++) {
            uprintf("   delay...");
            prn_nl();
            delay_msec(kSlowBaudDelayMs);
        }
        UARTFlushRx();
    }
    prn_nl();
    prn_nl();
}

// ---- export ----------------------------------------------------------------------

void export_pH_sensor_cal_coeff(void) {
    prn_begin();
    prn_newline();
    prn_add("Cal filename: %.*s\r\n\r\n", FIELD(cal_filename));
    prn_add("Sensor_SN,%.*s\r\n", FIELD(sensor_SN));
    prn_add("ISFET_SN,%.*s\r\n", FIELD(isfet_SN));
    prn_add("ISE_SN,%.*s\r\n", FIELD(ise_SN));
    prn_add("PT_Cal_date,%.*s\r\n", FIELD(PT_Cal_date));
    for (uint32_t k = 0; k < 4u; k++) {
        prn_add("k2_C%u,%e\r\n", (unsigned)k, (double)sys_data.K2_Cal[k]);
    }
    prn_add("fP_0,%e\r\n", (double)sys_data.fP_Cal[0]);
    prn_send();

    for (uint32_t k = 1; k < 7u; k++) {
        prn_add("fP_%u,%e\r\n", (unsigned)k, (double)sys_data.fP_Cal[k]);
    }
    prn_send();

    prn_add("k0_Cal_date,%.*s\r\n", FIELD(k0_Cal_date));
    prn_add("k0_HCl,%e\r\n", (double)sys_data.k0_HCL);
    prn_add("k0_SW,%e\r\n", (double)sys_data.k0_SW);
    prn_add("k0std_SW,%e\r\n", (double)sys_data.k0std_SW);
    prn_add("service_date,%.*s\r\n", FIELD(service_date));
    prn_send();
    prn_nl();
}

void get_pH_sensor_cal_coeff(void) {
    prn_begin();
    prn_add("%.*s\t", FIELD(sensor_SN));
    prn_add("%.*s\t", FIELD(isfet_SN));
    prn_add("%.*s\t", FIELD(ise_SN));
    prn_add("%.*s\t", FIELD(PT_Cal_date));
    for (uint32_t k = 0; k < 4u; k++) {
        prn_add("%e\t", (double)sys_data.K2_Cal[k]);
    }
    prn_send();
    for (uint32_t k = 0; k < 7u; k++) {
        prn_add("%e\t", (double)sys_data.fP_Cal[k]);
    }
    prn_add("%.*s\t", FIELD(k0_Cal_date));
    prn_add("%e\t", (double)sys_data.k0_HCL);
    prn_add("%e\t", (double)sys_data.k0_SW);
    prn_add("%e\t", (double)sys_data.k0std_SW);
    prn_add("%.*s\r\n", FIELD(service_date));
    prn_send();
}

// ---- operator entry --------------------------------------------------------------

void enter_pH_sensor_cal_coeff(void) {
    ask_number("\r\nEnter k0int (ex. -0.4) [%f]: ", &sys_data.k0int, -2.0, 2.0,
               "Enter number between -2 and 2 (ex. -0.4)");
    ask_number("\r\nEnter k0ext (ex. -1.3) [%f]: ", &sys_data.k0ext, -2.0, 2.0,
               "Enter number between -2 and 2 (ex. -1.3)");
    ask_number("\r\nEnter k2int (ex. -0.001455) [%f]: ", &sys_data.k2int, -2.0, 2.0,
               "Enter number between -2 and 2 (ex. -0.001)");
    ask_number("\r\nEnter k2ext (ex. -0.001081) [%f]: ", &sys_data.k2ext, -2.0, 2.0,
               "Enter number between -2 and 2 (ex. -0.001)");
    if (sys_data.TCOffset < -400.0f || sys_data.TCOffset > 400.0f) {
        sys_data.TCOffset = 0.0f;
    }
    ask_number("\r\nEnter TCOffset [%f]: ", &sys_data.TCOffset, -400.0, 400.0,
               "Enter a reasonable TCOffset such as 0.0");
    if (sys_data.default_sal < 0.0f || sys_data.default_sal > 100.0f) {
        uprintf("Salinity out of range, recommend running the test menu, qa board menu to "
                "initialize vars in eeprom\r\n");
    }
    ask_number("\r\nEnter Salinity for Ext Ref pH calc (typical is 35) [%f]: ",
               &sys_data.default_sal, 0.0, 100.0, "Enter 35.0");

    if (sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] == 0) {
        uprintf("\r\n4 Var S-H coefficients for Thermistor to Temperature Celsius:\r\n");
        uprintf("     c0 = %.11lf\r\n", sys_data.quadTherm_c0);
        uprintf("     c1 = %.11lf\r\n", sys_data.quadTherm_c1);
        uprintf("     c2 = %.11lf\r\n", sys_data.quadTherm_c2);
        uprintf("     c3 = %f.11l\r\n", sys_data.quadTherm_c3);
        if (ask_number(
                "\r\nEnter 4 Var S-H c0 (ex. 340.9819863) [%.11lf]: ", &sys_data.quadTherm_c0, 0.0,
                500.0, "Enter number between 0 and 500 (ex. 340.9819863)")) {
            uprintf("c0 = %.11lf", sys_data.quadTherm_c0);
        }
        if (ask_number("\r\nEnter 4 Var S-H c1 (ex. -0.0000910257, -9.10257E-05) [%.11lf]: ",
                       &sys_data.quadTherm_c1, -0.1, 0.1,
                       "Enter number between 0.1 and -0.1 (ex. 0.0000910257)")) {
            uprintf("c1 = %.11lf", sys_data.quadTherm_c1);
        }
        if (ask_number(
                "\r\nEnter 4 Var S-H  c2 (ex. -95.08806667) [%.11lf]: ", &sys_data.quadTherm_c2,
                -200.0, 200.0, "Enter number between -200.0 and 200.0 (ex. -95.08806667)")) {
            uprintf("c2 = %.11lf", sys_data.quadTherm_c2);
        }
        if (ask_number(
                "\r\nEnter 4 Var S-H  c3 (ex. 0.965370274) [%.11lf]: ", &sys_data.quadTherm_c3,
                -2.0, 2.0, "Enter number between -2.0 and 2.0 (ex. 0.965370274)")) {
            uprintf("c3 = %.11lf", sys_data.quadTherm_c3);
        }
    } else if (sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] == 1) {
        static const char kShMsg[] =
            "Enter number between -500 and 500, not sure what to recommend ";
        uprintf("\r\n3 Var S-H coefficients for Thermistor to Temperature Celsius:\r\n");
        uprintf("     A = %.11lf\r\n", sys_data.shTherm_A);
        uprintf("     B = %.11lf\r\n", sys_data.shTherm_B);
        uprintf("     C = %.11lf\r\n", sys_data.shTherm_C);
        if (ask_number("\r\nEnter 3 Var Steinhart-Hart A  [%.11lf]: ", &sys_data.shTherm_A, -500.0,
                       500.0, kShMsg)) {
            uprintf("A = %.11lf", sys_data.shTherm_A);
        }
        if (ask_number("\r\nEnter 3 Var Steinhart-Hart B  [%.11lf]: ", &sys_data.shTherm_B, -500.0,
                       500.0, kShMsg)) {
            uprintf("B = %.11lf", sys_data.shTherm_B);
        }
        if (ask_number("\r\nEnter 3 Var Steinhart-Hart C  [%.11lf]: ", &sys_data.shTherm_C, -500.0,
                       500.0, kShMsg)) {
            uprintf("C = %.11lf", sys_data.shTherm_C);
        }
    }

    import_ymodem_cal_coeff();
    delay_msec(kPauseAfterImportMs);
    UARTFlushRx();

    edit_string("cal_filename", sys_data.cal_filename, sizeof sys_data.cal_filename, true);
    edit_string("sensor_SN", sys_data.sensor_SN, sizeof sys_data.sensor_SN, true);
    edit_string("isfet_SN", sys_data.isfet_SN, sizeof sys_data.isfet_SN, true);
    edit_string("ise_SN", sys_data.ise_SN, sizeof sys_data.ise_SN, true);
    edit_string("PT_Cal_date", sys_data.PT_Cal_date, sizeof sys_data.PT_Cal_date, true);
    for (uint32_t k = 0; k < 7u; k++) {
        edit_float("Enter Fp C%u  [%e]: ", k, &sys_data.fP_Cal[k], "             ");
    }
    for (uint32_t k = 0; k < 4u; k++) {
        edit_float("Enter K2 C%u  [%e]: ", k, &sys_data.K2_Cal[k], "             ");
    }
    edit_string("k0_Cal_date", sys_data.k0_Cal_date, sizeof sys_data.k0_Cal_date, false);
    edit_float("Enter k0_HCL  [%e]: ", &sys_data.k0_HCL, "          ");
    edit_float("Enter k0_SW  [%e]: ", &sys_data.k0_SW, "         ");
    edit_float("Enter k0std_SW  [%e]: ", &sys_data.k0std_SW, "             ");
    edit_string("service_date", sys_data.service_date, sizeof sys_data.service_date, true);
}
