// The test menu: live readings of each measurement, the board's own parts,
// the serial instruments, timing and pump tests, the watchdog's record, and
// the board QA that fills the qa block of the configuration record.
#include <stdio.h>
#include <string.h>

#include "board/board_util.h"
#include "board/i2c0.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/menus.h"
#include "console/user_io.h"
#include "core/system.h"
#include "eeprom.h"
#include "hibernate.h"
#include "instruments/ctd_aand5860.h"
#include "instruments/ctd_sbe37.h"
#include "instruments/nanofet.h"
#include "instruments/ocr.h"
#include "instruments/optode.h"
#include "instruments/picoph.h"
#include "measure/pwm.h"
#include "measure/sample.h"
#include "sysctl.h"

namespace {

const uint32_t kReadings = 10u;   // readings per live test; a key ends it early
const uint32_t kPauseMs = 500u;   // between readings
const uint32_t kFramBlock = 128u; // the FRAM test writes four of these
const uint32_t kProbe = 0xAA55AA55u;
// Currents inside the converter's range (2.5 V times the sense factors).
const float kIkFull = 160000.0f;
const float kIbFull = 2400.0f;

void fram_test(void) {
    prn_nl();
    uprintf("FRAM test: overwrites the probe area, sampling state, last sample and");
    prn_nl();
    uprintf("float-controller record; they are written back afterwards.");
    prn_nl();
    if (!menu_yes_no("Run FRAM test? (Y/N) [N]? ", 0)) {
        return;
    }
    uint8_t out[kFramBlock];
    uint8_t in[kFramBlock];
    uint32_t errors = 0;
    for (uint32_t blk = 0; blk < 4u; blk++) {
        for (uint32_t i = 0; i < kFramBlock; i++) {
            out[i] = (uint8_t)(i * 7u + blk * 31u + 1u);
        }
        memset(in, 0, sizeof in);
        i2c0_fram_write(FRAM_I2C_ADDR, out, kFramBlock, blk * kFramBlock);
        fram_read(blk * kFramBlock, in, kFramBlock);
        for (uint32_t i = 0; i < kFramBlock; i++) {
            if (in[i] != out[i]) {
                errors++;
            }
        }
        uprintf("FRAM block %lu at %lu: %s", (unsigned long)blk, (unsigned long)(blk * kFramBlock),
                memcmp(in, out, kFramBlock) == 0 ? "pass" : "FAIL");
        prn_nl();
        SysCtlSleep();
    }
    // Put back what lived there, so the board restarts as it was.
    const uint8_t probe[4] = {0x55, 0xAA, 0x55, 0xAA};
    i2c0_fram_write(FRAM_I2C_ADDR, probe, sizeof probe, FRAM_ADDR_PROBE);
    storeSysSampFRAMVariables();
    fram_last_samp_store();
    fram_apf_store_all();
    uprintf("FRAM test %s, %lu byte errors", errors == 0 ? "passed" : "FAILED",
            (unsigned long)errors);
    prn_nl();
}

void ctd_comm(void) {
    switch (sys_data.data_cfg[CFG_UART4_INST]) {
    case 6:
        ctd_sbe37_comm_test();
        break;
    case 7:
        ctd_aand5860_comm_test();
        break;
    default:
        uprintf("No CTD configured on UART4 (type %u)",
                (unsigned)sys_data.data_cfg[CFG_UART4_INST]);
        prn_nl();
        break;
    }
}

void inst_comm(void) {
    switch (sys_data.data_cfg[CFG_UART3_INST]) {
    case 1:
        optode_comm_test();
        break;
    case 2:
        ocr_comm_test();
        break;
    case 3:
        nanofet_comm_test();
        break;
    case 4:
        picoph_comm_test();
        break;
    default:
        uprintf("No instrument configured on UART3 (type %u)",
                (unsigned)sys_data.data_cfg[CFG_UART3_INST]);
        prn_nl();
        break;
    }
}

void wdog_stats(void) {
    prn_nl();
    uprintf("Watchdog: start %lu ms, last pet %lu ms, total %lu ms, longest gap %lu ms",
            (unsigned long)wdog.tickStart, (unsigned long)wdog.tickDelta,
            (unsigned long)wdog.tickTot, (unsigned long)wdog.tickLongest);
    prn_nl();
}

// One reading triple into the qa block; 1 when outside its limits.
uint32_t qa_value(float *v, float *sd, float *err, float value, float stdv, float lo, float hi) {
    *v = value;
    *sd = stdv;
    uint32_t bad = (value != value || value < lo || value > hi) ? 1u : 0u;
    *err = bad ? 1.0f : 0.0f;
    return bad;
}

void qa_line(const char *name, uint32_t failed) {
    uprintf("  %-10s %s", name, failed ? "FAIL" : "pass");
    prn_nl();
}

void board_qa(void) {
    qaData &qa = sys_data.qa;
    char tester[sizeof qa.tester];
    prn_nl();
    uprintf("Board QA");
    prn_nl();
    snprintf(tester, sizeof tester, "%.47s", qa.tester);
    uprintf("Tester [%s]: ", tester);
    char buf[MENU_TEXT_SIZE];
    int n = menu_read_line(buf, sizeof buf);
    if (menu_timed_out()) {
        return;
    }
    if (n > 0) {
        snprintf(tester, sizeof tester, "%.47s", buf);
    }

    // Work on a copy: the stored record changes only when the run is complete.
    qaData r = qa;
    memset(r.tester, 0, sizeof r.tester);
    snprintf(r.tester, sizeof r.tester, "%s", tester);
    memset(r.firmware_version, 0, sizeof r.firmware_version);
    snprintf(r.firmware_version, sizeof r.firmware_version, "%s", FIRMWARE_VERSION);

    uint32_t t0 = HibernateRTCGet();
    r.test_time = t0;
    r.microSD = uSD_present() ? 0u : 1u;
    r.eeprom = EEPROMInit() == EEPROM_INIT_OK ? 0u : 1u;
    r.sys_data_init =
        memcmp(sys_data.firmware_version, FIRMWARE_VERSION, FIRMWARE_VERSION_CMP_LEN) == 0 ? 0u
                                                                                           : 1u;
    r.fram = fram_probe() == kProbe ? 0u : 1u;
    r.adc12onchip = 0;

    uprintf("Taking a sample...");
    prn_nl();
    get_sample(1, 0);
    uint32_t adc = 0;
    adc += qa_value(&r.Vrsi, &r.Vrsi_std, &r.Vrsi_err, sampl.fVrsi, sampl.fVrsi_std, -2.5f, 2.5f);
    adc += qa_value(&r.Vrse, &r.Vrse_std, &r.Vrse_err, sampl.fVrse, sampl.fVrse_std, -2.5f, 2.5f);
    adc += qa_value(&r.Vtherm, &r.Vtherm_std, &r.Vtherm_err, sampl.fVtherm, sampl.fVtherm_std, 0.0f,
                    2.5f);
    adc += qa_value(&r.Ik, &r.Ik_std, &r.Ik_err, sampl.fIk, sampl.fIk_std, -kIkFull, kIkFull);
    adc += qa_value(&r.Vk, &r.Vk_std, &r.Vk_err, sampl.fVk, sampl.fVk_std, -2.5f, 2.5f);
    adc += qa_value(&r.Ib, &r.Ib_std, &r.Ib_err, sampl.fIb, 0.0f, -kIbFull, kIbFull);
    adc += qa_value(&r.Vb, &r.Vb_std, &r.Vb_err, sampl.fVbat_main, 0.0f, 6.0f, 20.0f);
    r.Vbias_pos = sampl.fBiasPos;
    r.Vbias_neg = sampl.fBiasNeg;
    r.adc24 = adc;

    // The clock must have moved across the sample.
    delay_msec(1100u);
    r.time = HibernateRTCGet() > t0 ? 0u : 1u;
    r.aux_pwr1 = r.aux_pwr2 = r.aux_pwr3 = 0;
    r.ctd = 0;
    r.optode = 0;
    r.comm_pwr = 0;

    qa = r;
    storeSysDataVariables();

    uint32_t fails = r.microSD + r.eeprom + r.sys_data_init + r.fram + r.time + (adc ? 1u : 0u);
    prn_nl();
    uprintf("QA summary (tester %s)", r.tester);
    prn_nl();
    qa_line("microSD", r.microSD);
    qa_line("EEPROM", r.eeprom);
    qa_line("sys_data", r.sys_data_init);
    qa_line("FRAM", r.fram);
    qa_line("RTC", r.time);
    qa_line("ADC24", adc);
    uprintf("  Vrsi %.6f  Vrse %.6f  Vtherm %.6f  Vb %.3f", (double)r.Vrsi, (double)r.Vrse,
            (double)r.Vtherm, (double)r.Vb);
    prn_nl();
    uprintf("QA %s: %lu failed", fails == 0 ? "PASS" : "FAIL", (unsigned long)fails);
    prn_nl();
}

void print_test_menu(void) {
    static const char *const lines[] = {
        ("Test Menu -- " FIRMWARE_VERSION),
        "1 -- Vrsi        2 -- Vrse        3 -- Vtherm      4 -- Temperature",
        "5 -- Vk          6 -- Ik          7 -- Ib          8 -- Bias batteries",
        "9 -- Sample (temperature and pH)",
        "B -- Board sensors (battery, current, climate)",
        "I -- I2C bus scan",
        "F -- FRAM test",
        "C -- CTD communication (Ctrl-X leaves)",
        "O -- Instrument port communication (Ctrl-X leaves)",
        "T -- Sample timing",
        "P -- Pump loop test",
        "W -- Watchdog statistics",
        "Q -- Board QA",
        "X -- Exit",
    };
    prn_nl();
    prn_nl();
    for (const char *l : lines) {
        uprintf("%s", l);
        prn_nl();
    }
    uprintf("Enter Selection: ");
}

} // namespace

void test_menu(void) {
    for (;;) {
        print_test_menu();
        int k = menu_key();
        switch (k) {
        case -1:
        case 'X':
            return;
        case '1':
            test_vrsi(kReadings, 1, 0, 0, kPauseMs);
            break;
        case '2':
            test_vrse(kReadings, 1, 0, 0, kPauseMs);
            break;
        case '3':
            test_vtherm(kReadings, 1, 0, 0, kPauseMs);
            break;
        case '4':
            test_tempc(kReadings, 0, 0, 0, kPauseMs);
            break;
        case '5':
            test_vk(kReadings, 1, 0, 0, kPauseMs);
            break;
        case '6':
            test_ik(kReadings, 0, 0, 0, kPauseMs);
            break;
        case '7':
            test_ib(kReadings, 0, 0, 0, kPauseMs);
            break;
        case '8':
            test_bias_bat(kReadings, 1, 1, kPauseMs);
            break;
        case '9':
            print_sample_fields_header();
            get_sample(1, 0);
            break;
        case 'B':
            display_battery_boardSensors();
            break;
        case 'I':
            i2c0_busScan();
            break;
        case 'F':
            fram_test();
            break;
        case 'C':
            ctd_comm();
            break;
        case 'O':
            inst_comm();
            break;
        case 'T':
            test_get_sample_timing();
            break;
        case 'P':
            pump_and_sample_loop_test();
            break;
        case 'W':
            wdog_stats();
            break;
        case 'Q':
            board_qa();
            break;
        default:
            break;
        }
    }
}
