// Command-line receiver on the console. A host (logger, float controller,
// glider) or an operator sends short lines; this module collects them one
// character per call, so the main loop can pet the watchdog and run the
// continuous-sampling timer between characters, and dispatches each line
// through the keyword table. The handlers live in host/serial_cmd_fxn and in
// the modules the table names; this module owns only the line discipline.
#include "host/serial.h"

#include <string.h>

#include "board/board_util.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/cal_coeff.h"
#include "console/user_io.h"
#include "core/main.h"
#include "core/system.h"
#include "files/config.h"
#include "files/microsd.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial_cmd_fxn.h"
#include "measure/pwm.h"
#include "measure/sample.h"

rxStateMach rx0;

namespace {

constexpr uint8_t kCR = 13;
constexpr uint8_t kBS = 8;
constexpr uint8_t kWakeLt = '<';
constexpr uint8_t kWakeAA = 0xAA;
constexpr uint32_t kLineMax = sizeof(rx0.buf) - 1; // 63 characters and the NUL

// Codes that come back from the dispatcher and steer the receiver.
constexpr uint32_t kCodeTakeSend = 3;
constexpr uint32_t kCodeSendLast = 5;
constexpr uint32_t kCodeSleep = 10;
constexpr uint32_t kCodeMenu = 83;
constexpr uint32_t kCodeOff = 113;

bool is_upper(uint8_t c) {
    return c >= 'A' && c <= 'Z';
}
bool is_letter(uint8_t c) {
    return is_upper(c) || (c >= 'a' && c <= 'z');
}
bool is_digit(uint8_t c) {
    return c >= '0' && c <= '9';
}
uint8_t fold(uint8_t c) {
    return is_upper(c) ? (uint8_t)(c + ('a' - 'A')) : c;
}

// First letters of the commands: A, J, K, U and X begin none of them.
bool is_first_letter(uint8_t c) {
    c = fold(c);
    return (c >= 'b' && c <= 'i') || (c >= 'l' && c <= 't') || c == 'v' || c == 'w' || c == 'y' ||
           c == 'z';
}

// Stores one character at the write position; at 63 characters the last
// position is written and cleared again, so a long line is cut there.
void store_char(uint8_t c) {
    rx0.buf[rx0.indx] = c;
    if (rx0.indx < kLineMax) {
        rx0.indx++;
    }
    rx0.buf[rx0.indx] = 0;
}

// ---- keyword table ---------------------------------------------------------

typedef void (*cmd_fn)(void);
typedef uint32_t (*cmd_rule)(void); // runs the sub-form, returns the dispatcher's result

enum MatchKind : uint8_t {
    PREFIX, // first n characters
    EXACT1, // a one-letter line
    EXACT2, // a two-letter line
};

// The set/get/test sub-forms of a column keyword: "s" at position s runs the
// set with the character at position v, "g" at position g runs the get,
// anything else the quick test.
struct ColumnForms {
    uint8_t s, g, v;
    uint8_t set_code, get_code, test_code;
    void (*set)(uint32_t val);
    void (*get)(void);
    void (*test)(uint32_t num);
};

struct KeywordEntry {
    const char *key;
    uint8_t n;
    MatchKind match;
    uint8_t code;           // plain entries
    cmd_fn fn;              // plain entries
    const ColumnForms *col; // set/get/test entries
    cmd_rule rule;          // entries whose sub-form needs a positional rule
};

constexpr KeywordEntry call(const char *key, uint8_t n, uint8_t code, cmd_fn fn) {
    return KeywordEntry{key, n, PREFIX, code, fn, nullptr, nullptr};
}
constexpr KeywordEntry exact(const char *key, uint8_t code, cmd_fn fn) {
    return KeywordEntry{key, 1, EXACT1, code, fn, nullptr, nullptr};
}
constexpr KeywordEntry column(const char *key, uint8_t n, const ColumnForms &col) {
    return KeywordEntry{key, n, PREFIX, 0, nullptr, &col, nullptr};
}
constexpr KeywordEntry rule(const char *key, uint8_t n, cmd_rule r) {
    return KeywordEntry{key, n, PREFIX, 0, nullptr, nullptr, r};
}

uint32_t line_len(void) {
    return rx0.indx;
}

// -- small handlers that only exist to give a table entry its one call --

void metadata_now(void) {
    print_metadata_header(HibernateRTCGet());
}

void big_help_term_time(void) {
    // "hh" 2 s, "hhhh" 3 s, "hhhhh" 4 s; other shapes keep the term time.
    uint8_t c3 = rx0_char(3), c4 = rx0_char(4);
    if (c3 == 0) {
        apf_set_h2m_timeout(2);
    } else if (c3 == 'h' && c4 == 0) {
        apf_set_h2m_timeout(3);
    } else if (c3 == 'h' && c4 == 'h') {
        apf_set_h2m_timeout(4);
    }
    print_cmd_big_help();
}

void help_short(void) {
    apf_set_h2m_timeout(1);
    print_cmd_help();
}

void term_time_step(void) {
    uint32_t was = apf_get_h2m_timeout();
    uprintf("was term time = %u msec", (unsigned)was);
    prn_nl();
    apf_set_h2m_timeout(was < 1000 ? 1 : was < 2000 ? 2 : was < 3000 ? 3 : 4);
    uprintf("now term time = %u msec", (unsigned)apf_get_h2m_timeout());
    prn_nl();
}

void help_m2m(void) {
    apf_set_h2m_timeout(1);
    apf_print_help();
}

void list_files(void) {
    Cmd_ls(0, nullptr);
}

void term_time_m2m(void) {
    apf_set_m2m_timeout();
    uprintf("term time = %u msec", (unsigned)apf_get_h2m_timeout());
}

void nak_mode(void) {
    uprintf("NAK,MODE=%u", (unsigned)apf.sys_sensor_mode);
    prn_nl();
}

void take_and_send(void) {
    switch (apf.sys_sensor_mode) {
    case 0:
        pump_and_sample(1, 1);
        break;
    case 1:
        apf_take_sample_nitrate(1);
        break;
    case 2:
        apf_take_sample_pH(1);
        break;
    default:
        nak_mode();
        break;
    }
}

void take_and_keep(void) {
    switch (apf.sys_sensor_mode) {
    case 0:
        pump_and_sample(0, 1);
        fram_last_samp_store();
        break;
    case 1:
        apf_take_sample_nitrate(0);
        break;
    case 2:
        apf_take_sample_pH(0);
        break;
    default:
        nak_mode();
        break;
    }
}

void send_last(void) {
    switch (apf.sys_sensor_mode) {
    case 0:
        uprintf("serial sl apf_send_last_sample");
        prn_nl();
        send_last_sample();
        break;
    case 1:
        apf_send_last_nitrate();
        break;
    case 2:
        uprintf("serial sl apf_send_last_ph");
        prn_nl();
        apf_send_last_pH();
        break;
    default:
        break;
    }
}

void mode1_sample(void) {
    apf.sys_sensor_mode = 1;
    apf_take_sample_nitrate(0);
}
void mode2_sample(void) {
    apf.sys_sensor_mode = 2;
    apf_take_sample_pH(0);
}
void mode0_test(void) {
    apf.sys_sensor_mode = 0;
    pump_and_sample(1, 1);
}
void mode1_test(void) {
    apf.sys_sensor_mode = 1;
    apf_take_sample_nitrate(1);
}
void mode2_test(void) {
    apf.sys_sensor_mode = 2;
    apf_take_sample_pH(1);
}

void sample_every(void) {
    // "sample 3" -> 5 s: the digit at position 8 only lets position 7 count.
    uint32_t k = is_digit(rx0_char(8)) ? (uint32_t)(rx0_char(7) & 15) : 5;
    cmd_test_sample(k);
}

void ymodem_send_any(void) {
    cmd_ymodem_send(3);
}

// "sampnum" alone shows the count, "sampnum <anything>" restarts it.
void sampnum_show_or_restart(uint32_t num) {
    if (line_len() > 7) {
        cmd_set_sampnum(0);
    } else {
        cmd_test_sampnum(num);
    }
}

// -- positional rules --

uint32_t run(uint32_t code, cmd_fn fn) {
    rx0.cmd = code;
    fn();
    return rx0.cmd;
}

uint32_t config_rule(void) {
    if (line_len() < 7) {
        return run(81, print_config);
    }
    if (rx0_char(7) == 'h') {
        return run(77, cmd_help_config);
    }
    return run(82, cmd_set_config);
}

uint32_t filename_rule(void) {
    return line_len() <= 10 ? run(18, cmd_get_filename) : run(19, cmd_set_filename);
}

uint32_t microsd_rule(void) {
    return line_len() <= 7 ? run(84, cmd_get_store) : run(85, cmd_set_store);
}

uint32_t store_rule(void) {
    return line_len() <= 5 ? run(84, cmd_get_store) : run(85, cmd_set_store);
}

uint32_t menu_rule(void) {
    exec_main_menu();
    return kCodeMenu; // not stored: rx0.cmd keeps what it had
}

uint32_t period_rule(void) {
    if (rx0_char(3) == ' ' && is_digit(rx0_char(5))) {
        return run(15, cmd_set_period);
    }
    if (line_len() > 7) {
        return run(15, cmd_set_period);
    }
    return run(14, cmd_get_period);
}

uint32_t sleep_rule(void) {
    rx0.cmd = kCodeSleep;
    databarFlg = 0;
    return kCodeSleep;
}

uint32_t slp_rule(void) {
    rx0.cmd = 121;
    apf_slp_sleep();
    rx0.cmd = kCodeSleep;
    return kCodeSleep;
}

uint32_t time_rule(void) {
    return line_len() <= 6 ? run(11, cmd_get_time) : run(12, cmd_set_time);
}

// -- the set/get/test families, positions as the protocol has them --
// {set at, get at, value at, set code, get code, test code, set, get, test}

// "biasneg" looks for "s" and "g" at 5, where an "e" always stands: only the
// test runs. "biaspos" looks for "g" at 5 ("o"): "biaspos get" runs the test.
constexpr ColumnForms kBiasneg{
    5, 5, 9, 27, 26, 28, cmd_set_biasneg, cmd_get_biasneg, cmd_test_biasneg};
constexpr ColumnForms kBiaspos{
    8, 5, 12, 30, 29, 31, cmd_set_biaspos, cmd_get_biaspos, cmd_test_biaspos};
constexpr ColumnForms kIk{3, 3, 7, 36, 35, 37, cmd_set_ik, cmd_get_ik, cmd_test_ik};
constexpr ColumnForms kIb{3, 3, 7, 33, 32, 34, cmd_set_ib, cmd_get_ib, cmd_test_ib};
constexpr ColumnForms kSampnum{
    8, 8, 12, 23, 22, 90, cmd_set_cfg_sampnum, cmd_get_cfg_sampnum, sampnum_show_or_restart};
constexpr ColumnForms kTempc{6, 6, 10, 51, 50, 52, cmd_set_tempc, cmd_get_tempc, cmd_test_tempc};
constexpr ColumnForms kTimestamp{
    10, 10, 14, 25, 24, 89, cmd_set_timestamp, cmd_get_timestamp, cmd_test_timestamp};
constexpr ColumnForms kVbat{5, 5, 9, 70, 69, 71, cmd_set_vbat, cmd_get_vbat, cmd_test_vbat};
constexpr ColumnForms kVkStd{7, 7, 11, 44, 43, 91, cmd_set_vk_std, cmd_get_vk_std, cmd_test_vk_std};
constexpr ColumnForms kVk{3, 3, 7, 41, 40, 42, cmd_set_vk, cmd_get_vk, cmd_test_vk};
constexpr ColumnForms kVrsiStd{
    9, 9, 13, 57, 56, 87, cmd_set_vrsi_std, cmd_get_vrsi_std, cmd_test_vrsi_std};
constexpr ColumnForms kVrseStd{
    9, 9, 13, 65, 64, 88, cmd_set_vrse_std, cmd_get_vrse_std, cmd_test_vrse_std};
constexpr ColumnForms kVrsi{5, 5, 9, 54, 53, 55, cmd_set_vrsi, cmd_get_vrsi, cmd_test_vrsi};
constexpr ColumnForms kVrse{5, 5, 9, 62, 61, 63, cmd_set_vrse, cmd_get_vrse, cmd_test_vrse};
constexpr ColumnForms kVthermStd{
    11, 11, 15, 49, 48, 92, cmd_set_vtherm_std, cmd_get_vtherm_std, cmd_test_vtherm_std};
constexpr ColumnForms kVtherm{
    7, 7, 11, 46, 45, 47, cmd_set_vtherm, cmd_get_vtherm, cmd_test_vtherm};

// Tried in this order; the first match wins, so the order is part of the
// protocol (e.g. "filesystem" is taken by "file", "zzz" by "zz", the second
// "off" by the first).
constexpr KeywordEntry kKeywords[] = {
    call("bake", 4, 100, apf_bake_uv_lamp),
    column("biasneg", 7, kBiasneg),
    column("biaspos", 7, kBiaspos),
    exact("c", 101, apf_get_cfg),
    call("c1", 2, 103, print_isus_header),
    call("c2", 2, 102, print_dura_header),
    call("cal", 3, 104, apf_get_cal),
    rule("config", 6, config_rule),
    call("ctd,?", 5, 106, apf_get_ctd),
    call("ctd", 3, 105, apf_set_ctd),
    call("dev", 3, 148, apf_print_devStatus),
    call("dbg", 3, 151, apf_dbg),
    exact("e", 107, apf_get_err),
    call("ec", 2, 7, export_pH_sensor_cal_coeff),
    rule("filename", 4, filename_rule),
    rule("getfilename", 6, filename_rule),
    call("filesystem", 5, 86, cmd_filesystem),
    call("fit,?", 5, 109, apf_get_fit),
    call("fit", 3, 108, apf_set_fit),
    call("gc", 2, 6, get_pH_sensor_cal_coeff),
    call("getperiod", 6, 14, cmd_get_period),
    call("gh1", 3, 154, apf_print_isus_header),
    call("gh2", 3, 155, apf_print_dura_header),
    call("gh", 2, 8, get_header),
    call("gm", 2, 9, metadata_now),
    call("hh", 2, 149, big_help_term_time),
    call("help", 4, 13, help_short),
    call("h2m", 2, 132, term_time_step),
    exact("h", 132, help_m2m),
    column("ik", 2, kIk),
    column("ib", 2, kIb),
    call("init", 4, 110, apf_init_persistent_vars),
    call("ls", 2, 136, list_files),
    rule("microsd", 7, microsd_rule),
    call("mode,?", 6, 112, apf_get_mode),
    call("mode", 4, 111, apf_set_mode),
    call("m2m", 2, 133, term_time_m2m),
    KeywordEntry{"m", 1, EXACT1, 0, nullptr, nullptr, menu_rule},
    call("off", 3, 113, apf_off),
    exact("p", 114, apf_get_pc),
    rule("period", 3, period_rule),
    exact("q", 115, apf_get_sensor_type),
    call("rtc,?", 5, 117, apf_get_rtc),
    call("rtc", 3, 116, apf_set_rtc),
    call("sample", 6, 93, sample_every),
    column("sampnum", 7, kSampnum),
    exact("s", 118, apf_get_sc),
    call("setfilename", 6, 19, cmd_set_filename),
    call("setperiod", 6, 15, cmd_set_period),
    call("settime", 5, 12, cmd_set_time),
    call("se,?", 4, 120, apf_get_se),
    KeywordEntry{"se", 2, EXACT2, 119, apf_xfer_se, nullptr, nullptr},
    rule("sleep", 5, sleep_rule),
    rule("nap", 3, sleep_rule),
    rule("zz", 2, sleep_rule),
    rule("zzz", 3, sleep_rule),
    rule("quit", 4, sleep_rule),
    rule("stop", 4, sleep_rule),
    rule("exit", 4, sleep_rule),
    rule("off", 3, sleep_rule),
    rule("slp", 3, slp_rule),
    call("sl", 2, kCodeSendLast, send_last),
    call("spectra,?", 9, 123, apf_get_spectra),
    call("spectra", 7, 122, apf_set_spectra),
    call("stat", 4, 148, apf_print_devStatus),
    call("ss", 2, 4, take_and_keep),
    call("s1", 2, 152, mode1_sample),
    call("s2", 2, 153, mode2_sample),
    rule("store", 5, store_rule),
    call("sys", 3, 134, DisplaySystemInfo),
    exact("t", 124, apf_get_acq_time),
    column("tempc", 5, kTempc),
    column("timestamp", 9, kTimestamp),
    rule("time", 4, time_rule),
    rule("gettime", 5, time_rule),
    call("tint,?", 6, 126, apf_get_int_time),
    call("tint", 4, 125, apf_set_int_time),
    call("ts", 2, kCodeTakeSend, take_and_send),
    call("type", 4, 150, apf_set_sensor_type),
    call("t0", 2, 145, mode0_test),
    call("t1", 2, 128, mode1_test),
    call("t2", 2, 129, mode2_test),
    column("vbat", 4, kVbat),
    call("version", 3, 80, print_cmd_version),
    column("vk_std", 6, kVkStd),
    column("vk", 2, kVk),
    column("vrsi_std", 6, kVrsiStd),
    column("vrse_std", 6, kVrseStd),
    column("vrsi", 4, kVrsi),
    column("vrse", 4, kVrse),
    column("vtherm_std", 9, kVthermStd),
    column("vtherm", 6, kVtherm),
    exact("w", 127, apf_print_ping_response),
    call("wdog", 4, 146, apf_wdog_status),
    call("ys", 2, 143, ymodem_send_any),
    call("yr", 2, 144, cmd_ymodem_receive),
};

bool matches(const KeywordEntry &e) {
    if (strncmp((const char *)rx0.buf, e.key, e.n) != 0) {
        return false;
    }
    switch (e.match) {
    case EXACT1:
        return rx0_char(1) == 0;
    case EXACT2:
        return rx0_char(2) == 0;
    default:
        return true;
    }
}

uint32_t run_column(const ColumnForms &c) {
    if (rx0_char(c.s) == 's') {
        rx0.cmd = c.set_code;
        c.set(rx0_char(c.v));
    } else if (rx0_char(c.g) == 'g') {
        rx0.cmd = c.get_code;
        c.get();
    } else {
        rx0.cmd = c.test_code;
        c.test(1);
    }
    return rx0.cmd;
}

void reset_to_idle(void) {
    rx0.state = 0;
    m2m_statemachine_init();
}

// A completed line (carriage return received or term time passed).
int32_t end_of_line(void) {
    prn_nl();
    uint32_t r = parse_rx0_buf();
    if (r == 0) {
        print_NAK();
    }
    uint32_t mode = apf.sys_sensor_mode;
    if (r == kCodeSleep || r == kCodeOff || (r == kCodeTakeSend && mode == 0) ||
        (r == kCodeSendLast && mode == 0)) {
        return -1; // the awake period ends; the receive state stays as it is
    }
    if (r == kCodeMenu) {
        reset_to_idle(); // and once more below: the prompt comes twice after the menu
    }
    reset_to_idle();
    return 2;
}

int32_t on_idle(uint32_t now) {
    uint8_t c = rx0.byte;
    if (c == kCR) {
        print_prompt();
        rx0.cr_cnt++;
        if (rx0.cr_cnt <= 3) {
            return 1;
        }
        // Fourth Enter in a row: the next byte opens the main menu.
        rx0.cr_cnt = 0;
        rx0.state = 1;
        UARTEchoSet(1);
        return 1;
    }
    if (c == kWakeLt || c == kWakeAA) {
        rx0.state = 3;
        rx0.cmd = 0;
        rx0.indx = 0;
        rx0.cr_cnt = 0;
        rx0.tick_ms_start = now;
        return 2;
    }
    if (is_first_letter(c)) {
        UARTputc(c);
        rx0.cr_cnt = 0;
        rx0.cmd = 0;
        rx0.indx = 0;
        rx0.state = 2;
        rx0.tick_ms_start = now;
        rx0.buf[0] = fold(c);
        rx0.indx = 1;
        rx0.buf[1] = 0;
        return 1;
    }
    print_NAK();
    m2m_statemachine_init();
    return 1;
}

int32_t on_collecting(uint32_t now) {
    uint8_t c = rx0.byte;
    if (c == kBS) {
        UARTputc(kBS);
        UARTputc(' ');
        UARTputc(kBS);
        if (rx0.indx > 0) {
            rx0.indx--;
        }
        rx0.buf[rx0.indx] = 0;
        rx0.tick_ms_start = now;
        return 2;
    }
    if (c == kCR) {
        return end_of_line();
    }
    // Anything else is stored as it comes: digits, blanks, commas, line feeds.
    UARTputc(c);
    store_char(fold(c));
    rx0.tick_ms_start = now;
    return 2;
}

int32_t on_menu_request(void) {
    if (apf.isus_spec_pwr == 1) {
        mms_specPwrOff();
        uprintf("\n  Spectrometer Power was left ON! Powering DOWN...\n");
    }
    if (apf.isus_lamp_pwr == 1) {
        mms_lampPwrOff();
        uprintf("\n  Fiberlight Power was left ON! Powering DOWN...\n");
    }
    exec_main_menu();
    reset_to_idle();
    return 1;
}

// After a wake byte: swallow the wake sequence, never dispatch it.
int32_t on_wake(uint32_t now) {
    uint8_t c = rx0.byte;
    if (c == kWakeLt || c == kWakeAA) {
        rx0.tick_ms_start = now;
        return 2;
    }
    if (is_letter(c)) {
        store_char(fold(c));
        return 2;
    }
    reset_to_idle();
    return 2;
}

} // namespace

void print_prompt(void) {
    uprintf("\r\n>");
}

void print_NAK(void) {
    uprintf("NAK\r\n");
}

void save(void) {
    storeSysDataVariables();
}

void m2m_statemachine_init(void) {
    UARTEchoSet(0); // this receiver echoes by itself
    rx0.state = 0;
    rx0.cmd = 0;
    rx0.cnt = 0;
    rx0.cr_cnt = 0;
    rx0.indx = 0;
    rx0.tick_ms_start = Timer_1ms(0);
    rx0.tick_ms_now = rx0.tick_ms_start;
    rx0.tick_ms_delta = 0;
    memset(rx0.buf, 0, sizeof(rx0.buf));
    print_prompt();
}

uint32_t parse_rx0_buf(void) {
    for (const KeywordEntry &e : kKeywords) {
        if (!matches(e)) {
            continue;
        }
        if (e.rule != nullptr) {
            return e.rule();
        }
        if (e.col != nullptr) {
            return run_column(*e.col);
        }
        return run(e.code, e.fn);
    }
    return 0;
}

int32_t handle_m2m_comm(void) {
    uint32_t now = Timer_1ms(0);
    bool timed_out = false;
    // A line not ended within the term time is taken as ended; a waiting byte
    // does not defer it.
    if (rx0.indx != 0) {
        rx0.tick_ms_delta = now - rx0.tick_ms_start;
        if (rx0.tick_ms_delta >= rx0.tick_ms_delim) {
            rx0.byte = kCR;
            rx0.cr_cnt = 0;
            timed_out = true;
        }
    }
    if (!timed_out) {
        if (!UARTrdy()) {
            return 0;
        }
        rx0.byte = getChar();
    }
    switch (rx0.state) {
    case 0:
        return on_idle(now);
    case 1:
        return on_menu_request();
    case 2:
        return on_collecting(now);
    case 3:
        return on_wake(now);
    case 4:
    case 5:
        return 2;
    default:
        reset_to_idle();
        return 2;
    }
}
