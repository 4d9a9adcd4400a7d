// Operator menus reached from the main menu: configuration with its advanced
// page, the deployment note, help and the experimental menu. The test menu
// and the board QA are in qa_menu.cpp.
//
// Every prompt shows the current value in brackets and keeps it on Enter or
// when the operator walks away; a value is only written to sys_data once it
// has been checked in full, and each change is stored at once, so the stored
// record never holds half an edit.
#include "console/menus.h"

#include <ctype.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "console/cal_coeff.h"
#include "console/user_io.h"
#include "core/decimal.h"
#include "core/system.h"
#include "host/serial_cmd_fxn.h"
#include "files/config.h"
#include "measure/ph.h"
#include "measure/pwm.h"
#include "hibernate.h"

// ---- prompt helpers -------------------------------------------------------

static int s_timed_out;

int menu_timed_out(void) {
    return s_timed_out;
}

int menu_read_line(char *buf, uint32_t size) {
    s_timed_out = 0;
    int n = getUserInputTimeLimit(buf, size, MENU_IDLE_SEC);
    if (n < 0) {
        s_timed_out = 1;
        buf[0] = 0;
        prn_nl();
        return -1;
    }
    buf[size - 1u] = 0;
    // Trailing blanks are what a terminal leaves, not part of the value.
    size_t len = strlen(buf);
    while (len > 0 && (buf[len - 1] == ' ' || buf[len - 1] == '\t')) {
        buf[--len] = 0;
    }
    return (int)len;
}

int menu_key(void) {
    char buf[MENU_LINE_SIZE];
    int n = menu_read_line(buf, sizeof buf);
    if (n < 0) {
        return -1;
    }
    if (n == 0) {
        return 0;
    }
    return toupper((unsigned char)buf[0]);
}

int menu_yes_no(const char *prompt, int enterDefault) {
    uprintf("%s", prompt);
    char buf[MENU_LINE_SIZE];
    int n = menu_read_line(buf, sizeof buf);
    if (n < 0) {
        return 0; // walked away: nothing changes
    }
    if (n == 0) {
        return enterDefault;
    }
    int c = toupper((unsigned char)buf[0]);
    if (c == 'Y') {
        return 1;
    }
    if (c == 'N') {
        return 0;
    }
    return enterDefault;
}

static void kept(void) {
    uprintf("Invalid entry, value kept");
    prn_nl();
}

static void store(void) {
    if (storeSysDataVariables() != 0u) {
        uprintf("EEPROM store error");
        prn_nl();
    }
}

// 1 when a number in range was typed; nothing is changed here.
static int ask_u32(const char *label, uint32_t cur, uint32_t *out, uint32_t lo, uint32_t hi) {
    char buf[MENU_LINE_SIZE];
    uprintf("%s (%lu-%lu) [%lu]: ", label, (unsigned long)lo, (unsigned long)hi,
            (unsigned long)cur);
    if (menu_read_line(buf, sizeof buf) <= 0) {
        return 0;
    }
    const char *end = buf;
    bool saturated = false;
    uint32_t v = dec_u32(buf, &end, &saturated);
    if (end == buf || *end != 0 || saturated || buf[0] == '-' || v < lo || v > hi) {
        kept();
        return 0;
    }
    *out = v;
    return 1;
}

int menu_edit_u32(const char *label, uint32_t *value, uint32_t lo, uint32_t hi) {
    uint32_t v;
    if (!ask_u32(label, *value, &v, lo, hi)) {
        return 0;
    }
    *value = v;
    store();
    return 1;
}

int menu_edit_u8(const char *label, uint8_t *value, uint32_t lo, uint32_t hi) {
    uint32_t v;
    if (!ask_u32(label, *value, &v, lo, hi)) {
        return 0;
    }
    *value = (uint8_t)v;
    store();
    return 1;
}

int menu_edit_double(const char *label, double *value) {
    char buf[MENU_LINE_SIZE];
    uprintf("%s [%.10g]: ", label, *value);
    if (menu_read_line(buf, sizeof buf) <= 0) {
        return 0;
    }
    char *end = buf;
    errno = 0;
    double v = strtod(buf, &end);
    if (end == buf || *end != 0 || errno == ERANGE || v != v || v > 1e30 || v < -1e30) {
        kept();
        return 0;
    }
    *value = v;
    store();
    return 1;
}

int menu_edit_float(const char *label, float *value) {
    double d = *value;
    char buf[MENU_LINE_SIZE];
    uprintf("%s [%.7g]: ", label, d);
    if (menu_read_line(buf, sizeof buf) <= 0) {
        return 0;
    }
    char *end = buf;
    errno = 0;
    d = strtod(buf, &end);
    if (end == buf || *end != 0 || errno == ERANGE || d != d || d > 1e30 || d < -1e30) {
        kept();
        return 0;
    }
    *value = (float)d;
    store();
    return 1;
}

// Printable text only; cut to the field's width with its terminator.
int menu_edit_text(const char *label, char *field, uint32_t width) {
    char buf[MENU_TEXT_SIZE];
    char cur[MENU_TEXT_SIZE];
    snprintf(cur, sizeof cur, "%.*s", (int)(width - 1u), field);
    uprintf("%s [%s]: ", label, cur);
    int n = menu_read_line(buf, sizeof buf);
    if (n <= 0) {
        return 0;
    }
    for (int i = 0; i < n; i++) {
        if (!isprint((unsigned char)buf[i])) {
            kept();
            return 0;
        }
    }
    memset(field, 0, width);
    snprintf(field, width, "%s", buf);
    store();
    return 1;
}

// ---- configuration pages --------------------------------------------------

static const char *on_off(uint32_t v) {
    return v ? "on" : "off";
}

static void set_file_name(void) {
    char buf[MENU_LINE_SIZE];
    uprintf("Data file name, up to %u characters [%.15s]: ",
            (unsigned)(sizeof(sys_data.fileName) - 1u), sys_data.fileName);
    int n = menu_read_line(buf, sizeof buf);
    if (n <= 0) {
        return;
    }
    if ((size_t)n >= sizeof(sys_data.fileName)) {
        uprintf("Name too long, kept");
        prn_nl();
        return;
    }
    for (int i = 0; i < n; i++) {
        unsigned char c = (unsigned char)buf[i];
        if (!isgraph(c) || strchr("\\/:*?\"<>|", c) != nullptr) {
            kept();
            return;
        }
    }
    memset(sys_data.fileName, 0, sizeof sys_data.fileName);
    memcpy(sys_data.fileName, buf, (size_t)n);
    store();
}

static void set_time(void) {
    uprintf("Current time: ");
    printCurrentTime();
    prn_nl();
    if (!menu_yes_no("Set date and time? (Y/N) [N]? ", 0)) {
        return;
    }
    time_t t = getDateAndTime();
    if (t > 0) {
        HibernateRTCSet((uint32_t)t);
        uprintf("Time set: ");
        printCurrentTime();
        prn_nl();
    }
}

static void user_serials_menu(void) {
    struct Entry {
        const char *label;
        char *field;
        uint32_t width;
    };
    const Entry entries[] = {
        {"User", sys_data.user, sizeof sys_data.user},
        {"Board SN", sys_data.board_SN, sizeof sys_data.board_SN},
        {"KORB SN", sys_data.korb_SN, sizeof sys_data.korb_SN},
        {"Sensor SN", sys_data.sensor_SN, sizeof sys_data.sensor_SN},
        {"ISFET SN", sys_data.isfet_SN, sizeof sys_data.isfet_SN},
        {"ISE SN", sys_data.ise_SN, sizeof sys_data.ise_SN},
        {"Package name", sys_data.package_name, sizeof sys_data.package_name},
        {"Optode SN", sys_data.optode_SN, sizeof sys_data.optode_SN},
        {"CTD SN", sys_data.ctd_SN, sizeof sys_data.ctd_SN},
        {"Pump SN", sys_data.pump_SN, sizeof sys_data.pump_SN},
        {"Pump2 SN", sys_data.pump2_SN, sizeof sys_data.pump2_SN},
        {"Pump3 SN", sys_data.pump3_SN, sizeof sys_data.pump3_SN},
        {"Service date", sys_data.service_date, sizeof sys_data.service_date},
        {"Package fab note", sys_data.package_fab_note, sizeof sys_data.package_fab_note},
    };
    prn_nl();
    uprintf("User, serial numbers and notes (Enter keeps a value)");
    prn_nl();
    for (const Entry &e : entries) {
        menu_edit_text(e.label, e.field, e.width);
        if (menu_timed_out()) {
            return;
        }
    }
    menu_edit_u8("UART3 instrument: 0 none, 1 optode, 2 OCR-504, 3 NanoFET, 4 picoPH",
                 &sys_data.data_cfg[CFG_UART3_INST], 0, 4);
    if (menu_timed_out()) {
        return;
    }
    menu_edit_u8("UART4 instrument: 0 none, 6 SBE37, 7 Aanderaa 5860",
                 &sys_data.data_cfg[CFG_UART4_INST], 0, 7);
    if (menu_timed_out()) {
        return;
    }
    menu_edit_float("Default salinity", &sys_data.default_sal);
    if (menu_timed_out()) {
        return;
    }
    menu_edit_float("Low battery volts", &sys_data.low_batt_volt);
    if (sys_data.low_batt_volt > 100.0f || sys_data.low_batt_volt < 0.0f) {
        sys_data.low_batt_volt = 9.2f; // beyond what the plausibility check allows
        uprintf("Low battery volts out of range, set to 9.2");
        prn_nl();
        store();
    }
}

// The plausibility check allows 1-40 conversions per second and up to 40
// conversions; the converter's rates inside that window are 5, 10, 20 and 40.
static int valid_sps(uint32_t v) {
    return v == 5u || v == 10u || v == 20u || v == 40u;
}

static void adc_menu(void) {
    struct Chan {
        const char *name;
        uint32_t *sps;
        uint32_t *trials;
    };
    const Chan chans[] = {
        {"Vrsi", &sys_data.Vrsi_sps, &sys_data.Vrsi_trials},
        {"Vrse", &sys_data.Vrse_sps, &sys_data.Vrse_trials},
        {"Vtherm", &sys_data.Vtherm_sps, &sys_data.Vtherm_trials},
        {"Ik", &sys_data.Ik_sps, &sys_data.Ik_trials},
        {"Vk", &sys_data.Vk_sps, &sys_data.Vk_trials},
        {"Ib", &sys_data.Ib_sps, &sys_data.Ib_trials},
        {"Vb", &sys_data.Vb_sps, &sys_data.Vb_trials},
        {"Vbias", &sys_data.Vbias_sps, &sys_data.Vbias_trials},
    };
    prn_nl();
    uprintf("ADC rates (5, 10, 20, 40 sps) and trials (1-40) per channel");
    prn_nl();
    if (menu_yes_no("Assign ADC defaults? (Y/N) [N]? ", 0)) {
        ads1248_sampling_defaults();
        store();
        return;
    }
    if (menu_timed_out()) {
        return;
    }
    for (const Chan &c : chans) {
        char label[32];
        uint32_t v;
        snprintf(label, sizeof label, "%s sps", c.name);
        if (ask_u32(label, *c.sps, &v, 5, 40)) {
            if (valid_sps(v)) {
                *c.sps = v;
                store();
            } else {
                kept();
            }
        }
        if (menu_timed_out()) {
            return;
        }
        snprintf(label, sizeof label, "%s trials", c.name);
        menu_edit_u32(label, c.trials, 1, 40);
        if (menu_timed_out()) {
            return;
        }
    }
}

static void thermistor_menu(void) {
    prn_nl();
    uprintf("Thermistor algorithm: 0 quadratic fit, 1 Steinhart-Hart");
    prn_nl();
    menu_edit_u8("Algorithm", &sys_data.app_cfg[APPCFG_TEMPC_SH_ALG], 0, 1);
    if (menu_timed_out()) {
        return;
    }
    struct D {
        const char *label;
        double *v;
    };
    const D ds[] = {
        {"quadTherm_c0", &sys_data.quadTherm_c0}, {"quadTherm_c1", &sys_data.quadTherm_c1},
        {"quadTherm_c2", &sys_data.quadTherm_c2}, {"quadTherm_c3", &sys_data.quadTherm_c3},
        {"shTherm_A", &sys_data.shTherm_A},       {"shTherm_B", &sys_data.shTherm_B},
        {"shTherm_C", &sys_data.shTherm_C},
    };
    for (const D &d : ds) {
        menu_edit_double(d.label, d.v);
        if (menu_timed_out()) {
            return;
        }
    }
    menu_edit_float("TCOffset", &sys_data.TCOffset);
    if (menu_timed_out()) {
        return;
    }
    menu_edit_float("TCSlope", &sys_data.TCSlope);
}

static void console_menu(void) {
    static const uint32_t rates[] = {9600u, 19200u, 38400u, 57600u, 115200u};
    prn_nl();
    uprintf("Console baud rate [%lu]: 1-9600 2-19200 3-38400 4-57600 5-115200",
            (unsigned long)sys_data.baud_rate);
    prn_nl();
    uprintf("Selection (Enter keeps): ");
    int k = menu_key();
    if (k >= '1' && k <= '5') {
        sys_data.baud_rate = rates[k - '1'];
        store();
        uprintf("Baud rate %lu takes effect at the next start", (unsigned long)sys_data.baud_rate);
        prn_nl();
    } else if (k < 0) {
        return;
    }
    int cr = menu_yes_no("Enable cr (not cr-lf) newline mode? (Y/N) [Y]? ", 1);
    if (menu_timed_out()) {
        return; // walked away: the mode stays
    }
    sys_data.app_cfg[APPCFG_NEWLINE_MODE] = cr ? 1u : 0u;
    store();
}

static void switches_menu(void) {
    prn_nl();
    uprintf("microSD [%s], deployed console echo [%s]",
            on_off(sys_data.app_cfg[APPCFG_MICROSD_ENABLE]),
            on_off(sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO]));
    prn_nl();
    menu_edit_u8("microSD enable (0 off, 1 on)", &sys_data.app_cfg[APPCFG_MICROSD_ENABLE], 0, 1);
    if (menu_timed_out()) {
        return;
    }
    menu_edit_u8("Deployed echo (0 off, 1 on)", &sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO], 0, 1);
}

static void exec_menu(void) {
    prn_nl();
    uprintf("Deployed wake-up: 0 normal (sample on schedule), 2 continuous sampling loop");
    prn_nl();
    uint32_t v;
    if (ask_u32("EXEC_SWITCHERONI", sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI], &v, 0, 2)) {
        if (v == 1u) {
            kept(); // 1 has no behaviour of its own
            return;
        }
        sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = (uint8_t)v;
        store();
    }
}

static void set_text_field(char *field, uint32_t width, const char *text) {
    memset(field, 0, width);
    if (width > 0) {
        size_t n = strnlen(text, width - 1);
        memcpy(field, text, n); // the rest stays zero: always terminated
    }
}

static void advanced_edit_copy(void) {
    prn_nl();
    uprintf("Stored version:   %.31s", sys_data.firmware_version);
    prn_nl();
    uprintf("Firmware version: %s", FIRMWARE_VERSION);
    prn_nl();
    if (!menu_yes_no("Copy: adopt the firmware version, keep all other values? (Y/N) [Y]? ", 1)) {
        uprintf("EEPROM sys_data unchanged");
        prn_nl();
        return;
    }
    set_text_field(sys_data.firmware_version, sizeof sys_data.firmware_version, FIRMWARE_VERSION);
    // A record from older firmware may hold switch values this one rejects.
    if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] > 2u) {
        sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0;
    }
    store();
    uprintf("EEPROM sys_data copied to firmware version %s", FIRMWARE_VERSION);
    prn_nl();
    if (menu_yes_no("Edit values now? (Y/N) [N]? ", 0)) {
        configuration_menu();
    }
}

static void advanced_menu(void) {
    for (;;) {
        prn_nl();
        prn_nl();
        uprintf("Advanced Menu -- %s", FIRMWARE_VERSION);
        prn_nl();
        uprintf("E -- Edit/Copy EEPROM sys_data");
        prn_nl();
        uprintf("D -- assign Defaults to sys_data and sys_samp");
        prn_nl();
        uprintf("P -- Plausibility check of sys_data");
        prn_nl();
        uprintf("K -- Checksum of sys_data");
        prn_nl();
        uprintf("X -- Exit");
        prn_nl();
        uprintf("Enter Selection: ");
        int k = menu_key();
        switch (k) {
        case -1:
        case 'X':
            return;
        case 'E':
            advanced_edit_copy();
            return;
        case 'D':
            if (menu_yes_no("Assign defaults to sys_data and sys_samp? (Y/N) [N]? ", 0)) {
                init_sys_data_default();
                init_sys_samp_default();
                store();
                uprintf("Defaults assigned");
                prn_nl();
            }
            break;
        case 'P':
            sys_data_error_check();
            store();
            uprintf("Plausibility check done");
            prn_nl();
            break;
        case 'K':
            uprintf("sys_data checksum %lu", (unsigned long)compute_sys_data_chksum());
            prn_nl();
            break;
        default:
            break;
        }
    }
}

static void print_configuration_menu(void) {
    prn_nl();
    prn_nl();
    uprintf("Configuration Menu -- %s", FIRMWARE_VERSION);
    prn_nl();
    uprintf("1 -- Sampling period [%lu s]", (unsigned long)sys_data.sampling_period);
    prn_nl();
    uprintf("2 -- Hour-aligned sampling [%s]", on_off(sys_data.sample_aligned));
    prn_nl();
    uprintf("3 -- Date and time");
    prn_nl();
    uprintf("4 -- Data file name [%.15s]", sys_data.fileName);
    prn_nl();
    uprintf("5 -- Output mode [%s]", sys_data.output == VERBOSE ? "VERBOSE" : "NORMAL");
    prn_nl();
    uprintf("6 -- User, serial numbers, instruments, notes");
    prn_nl();
    uprintf("7 -- Data fields");
    prn_nl();
    uprintf("8 -- Pump sequencer");
    prn_nl();
    uprintf("9 -- ADC rates and trials");
    prn_nl();
    uprintf("A -- Thermistor algorithm [%s] and coefficients",
            sys_data.app_cfg[APPCFG_TEMPC_SH_ALG] ? "Steinhart-Hart" : "quadratic");
    prn_nl();
    uprintf("B -- pH sensor calibration coefficients");
    prn_nl();
    uprintf("C -- pH bath calibration");
    prn_nl();
    uprintf("D -- Console baud rate [%lu] and newline mode [%u]", (unsigned long)sys_data.baud_rate,
            (unsigned)sys_data.app_cfg[APPCFG_NEWLINE_MODE]);
    prn_nl();
    uprintf("E -- microSD [%s] and deployed echo [%s]",
            on_off(sys_data.app_cfg[APPCFG_MICROSD_ENABLE]),
            on_off(sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO]));
    prn_nl();
    uprintf("F -- Deployed wake-up [%u]", (unsigned)sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI]);
    prn_nl();
    uprintf("G -- Deployment note");
    prn_nl();
    uprintf("Y -- Advanced");
    prn_nl();
    uprintf("X -- Exit");
    prn_nl();
    uprintf("Enter Selection: ");
}

void configuration_menu(void) {
    for (;;) {
        print_configuration_menu();
        int k = menu_key();
        switch (k) {
        case -1:
        case 'X':
            return;
        case '1': {
            // Only what the schedule can keep: the host's "period" limits.
            uint32_t v;
            if (ask_u32("Sampling period seconds, 0 polled", sys_data.sampling_period, &v, 0,
                        3600u)) {
                if (sampling_period_refusal(v) != 0) {
                    kept();
                } else {
                    sys_data.sampling_period = v;
                    store();
                }
            }
            break;
        }
        case '2':
            menu_edit_u8("Hour-aligned sampling (0 off, 1 on)", &sys_data.sample_aligned, 0, 1);
            break;
        case '3':
            set_time();
            break;
        case '4':
            set_file_name();
            break;
        case '5': {
            uint8_t v = sys_data.output;
            if (menu_edit_u8("Output mode (1 NORMAL, 2 VERBOSE)", &v, 1, 2)) {
                sys_data.output = v;
                store();
            }
            break;
        }
        case '6':
            user_serials_menu();
            break;
        case '7':
            config_data_fields();
            break;
        case '8':
            pump_sequencer_setup();
            store();
            break;
        case '9':
            adc_menu();
            break;
        case 'A':
            thermistor_menu();
            break;
        case 'B':
            enter_pH_sensor_cal_coeff();
            store();
            break;
        case 'C':
            ph_calib();
            store();
            break;
        case 'D':
            console_menu();
            break;
        case 'E':
            switches_menu();
            break;
        case 'F':
            exec_menu();
            break;
        case 'G':
            enter_deployment_note(MENU_IDLE_SEC);
            break;
        case 'Y':
            advanced_menu();
            break;
        default:
            break;
        }
    }
}

// ---- deployment note ------------------------------------------------------

void enter_deployment_note(uint32_t timeout) {
    char buf[MENU_TEXT_SIZE];
    prn_nl();
    uprintf("Deployment note [%.79s]", sys_data.deploy_note);
    prn_nl();
    uprintf("Enter new note, Enter keeps (%lu s): ", (unsigned long)timeout);
    int n = getUserInputTimeLimit(buf, sizeof buf, timeout);
    if (n <= 0) {
        prn_nl();
        return;
    }
    buf[sizeof buf - 1u] = 0;
    for (int i = 0; i < n && buf[i] != 0; i++) {
        if (!isprint((unsigned char)buf[i])) {
            buf[i] = ' ';
        }
    }
    set_text_field(sys_data.deploy_note, sizeof sys_data.deploy_note, buf);
    store();
}

// ---- help -----------------------------------------------------------------

void help_menu(void) {
    static const char *const lines[] = {
        "Main menu",
        "  1 Configure: sampling, time, file name, output, serial numbers, fields,",
        "    pumps, ADC, thermistor, pH coefficients, console, switches; Y advanced",
        "  2 Test: ADC channels, temperature, pH, board sensors, I2C scan, FRAM,",
        "    serial instruments (Ctrl-X leaves), timing, pumps, watchdog, board QA",
        "  3 Sleep until a key wakes the board",
        "  4 Deploy: pump choices, deployment note, file header, first sample in 2 s",
        "  5 Files on the microSD card",
        "  6 or C Command line for a host",
        "  7 WendZone (experimental, APPCFG_MENU_LEVEL 1)",
        // Each command line below: the forms a host types, ": ", what they do.
        "Host commands at the > prompt",
        "  gh, gm, gc, ec: data header, metadata, calibration, calibration export",
        "  period N, filename NAME, time MM/DD/YY HH:MM:SS, version: settings",
        "  vrsi, vrse, vtherm, tempc, vk, ik, ib, biaspos, biasneg: test readings",
        "  sleep: hibernate until a key wakes the board",
        "  m: open this menu",
        "Deployed, within 5 s of the key that wakes the board",
        "  ts: take and print a sample",
        "  ss: take a sample without printing it; sl within 6 s sends it",
        "  gh, gm, gc, ec: as at the > prompt",
        "  gdata: the data file's lines not yet fetched",
        "  stop: end the deployment",
        "Prompts show the current value in brackets; Enter keeps it.",
        "The main menu sleeps after 30 s without a key; other menus return after 60 s.",
    };
    prn_nl();
    for (const char *l : lines) {
        uprintf("%s", l);
        prn_nl();
    }
    uprintf("Press Enter: ");
    (void)menu_key();
}

// ---- experimental menu ----------------------------------------------------

void wend_zone_menu(void) {
    if (sys_data.app_cfg[APPCFG_MENU_LEVEL] != 1u) {
        prn_nl();
        uprintf("WendZone is off (APPCFG_MENU_LEVEL is not 1)");
        prn_nl();
        return;
    }
    for (;;) {
        prn_nl();
        prn_nl();
        uprintf("WendZone Menu");
        prn_nl();
        uprintf("1 -- Sampling diag [%s]", on_off(sys_data.app_cfg[APPCFG_SAMPLING_DIAG]));
        prn_nl();
        uprintf("2 -- Debug flag [%lu]", (unsigned long)sys_data.debug_flag);
        prn_nl();
        uprintf("3 -- Newline test");
        prn_nl();
        uprintf("4 -- Menu level [%u]", (unsigned)sys_data.app_cfg[APPCFG_MENU_LEVEL]);
        prn_nl();
        uprintf("X -- Exit");
        prn_nl();
        uprintf("Enter Selection: ");
        int k = menu_key();
        switch (k) {
        case -1:
        case 'X':
            return;
        case '1':
            menu_edit_u8("Sampling diag (0 off, 1 on)", &sys_data.app_cfg[APPCFG_SAMPLING_DIAG], 0,
                         1);
            break;
        case '2':
            menu_edit_u32("Debug flag (0 off, 1 on)", &sys_data.debug_flag, 0, 1);
            break;
        case '3':
            newline_test();
            break;
        case '4':
            menu_edit_u8("Menu level (0 off, 1 on)", &sys_data.app_cfg[APPCFG_MENU_LEVEL], 0, 1);
            if (sys_data.app_cfg[APPCFG_MENU_LEVEL] != 1u) {
                return;
            }
            break;
        default:
            break;
        }
    }
}
