// The stored records: the configuration record in on-chip EEPROM, the sampling
// state and the last sample in FRAM. Owns the globals, the factory defaults,
// the version check and the sampling-state defaults. The byte transfers to the
// FRAM chip are board/i2c_fram's; the float-controller record is host/apf_util's.
#include "core/system.h"

#include <stdio.h>
#include <string.h>

#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "eeprom.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "sysctl.h"

systemData sys_data;
systemSamplingData sys_samp;
sampData sampl;

namespace {

const uint32_t kDefaultBaud = 115200u;
const uint32_t kUartClock = 16000000u; // the console runs from the 16 MHz PIOSC

// EEPROM words: the record is 8-byte aligned and a multiple of 4 long.
uint32_t *sys_data_words(void) {
    return reinterpret_cast<uint32_t *>(&sys_data);
}

// A text field takes the text and its terminator; bytes after it stay as they were.
template <size_t N> void set_text(char (&field)[N], const char *text) {
    size_t len = strlen(text);
    if (len >= N) {
        len = N - 1;
    }
    memcpy(field, text, len);
    field[len] = '\0';
}

} // namespace

// ---- configuration record (EEPROM) ----------------------------------------

void retrieveSysDataVariables(void) {
    SysCtlPeripheralEnable(SYSCTL_PERIPH_EEPROM0);
    if (EEPROMInit() != EEPROM_INIT_OK) {
        uprintf("EEPROM Initialization error.\r\n");
    }
    EEPROMRead(sys_data_words(), SYS_DATA_EEPROM_ADDR, sizeof(systemData));
    retrieveSysSampFRAMVariables();
}

uint32_t storeSysDataVariables(void) {
    storeSysSampFRAMVariables();
    return EEPROMProgram(sys_data_words(), SYS_DATA_EEPROM_ADDR, sizeof(systemData));
}

int32_t verifySysDataVariables(void) {
    if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] < 3) {
        return 1;
    }
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 0;
    return 0;
}

void ads1248_sampling_defaults(void) {
    sys_data.Vrsi_sps = 20;
    sys_data.Vrsi_trials = 10;
    sys_data.Vrse_sps = 20;
    sys_data.Vrse_trials = 10;
    sys_data.Vtherm_sps = 20;
    sys_data.Vtherm_trials = 5;
    sys_data.Ik_sps = 20;
    sys_data.Ik_trials = 1;
    sys_data.Vk_sps = 20;
    sys_data.Vk_trials = 5;
    sys_data.Ib_sps = 20;
    sys_data.Ib_trials = 1;
    sys_data.Vb_sps = 20;
    sys_data.Vb_trials = 5;
    sys_data.Vbias_sps = 40;
    sys_data.Vbias_trials = 1;
}

void init_sys_data_default(void) {
    set_text(sys_data.firmware_version, FIRMWARE_VERSION);

    sys_data.sampling_period = 0; // polled
    sys_data.chksum = 0;
    sys_data.averaging_interval = 60;
    sys_data.low_batt_volt = 9.2f;
    sys_data.TCOffset = 0.0f;
    sys_data.TCSlope = 1.0f;
    sys_data.k0ext = -1.3f;
    sys_data.k0int = -0.4f;
    sys_data.k2ext = -0.001081f;
    sys_data.k2int = -0.001455f;
    sys_data.quadTherm_c0 = 340.9819863;
    sys_data.quadTherm_c1 = -9.10257e-05;
    sys_data.quadTherm_c2 = -95.08806667;
    sys_data.quadTherm_c3 = 0.965370274;
    sys_data.shTherm_A = 0.002108508173;
    sys_data.shTherm_B = 7.979204727e-05;
    sys_data.shTherm_C = 6.535076315e-07;
    sys_data.default_sal = 35.0f;
    sys_data.offset_Ik = 0;
    sys_data.offset_Ib = 0;
    sys_data.output = NORMAL;
    sys_data.test_mode = 0;
    sys_data.fast_mode = 1;
    sys_data.solenoid_on2hold_msec = 100;
    sys_data.solenoid_hold_pwm = 40;
    sys_data.solenoid_holdtime = 10;
    sys_data.GMT = 0;
    sys_data.sample_aligned = 0;
    sys_data.diag = 0;
    sys_data.debug_flag = 0;
    sys_data.deploy_time = 0;
    sys_data.start_pump_time = 0;
    sys_data.pump_seq_type = 1;
    sys_data.sampleCnt_duty_on = 0;
    sys_data.sampleCnt_duty_off = 0;
    sys_data.pump1_cycles = 1;
    sys_data.pump2_cycles = 0;
    sys_data.pump1_ontime = 0;
    sys_data.pump2_ontime = 0;
    sys_data.pHOffset = 0.0f;
    sys_data.pHSlope = 1.0f;
    sys_data.sensor_ctd_TC = 0.0f;
    sys_data.sensor_optode_TC = 0.0f;
    for (float &k : sys_data.K2_Cal) {
        k = 0.0f;
    }
    for (float &p : sys_data.fP_Cal) {
        p = 0.0f;
    }
    sys_data.k0_HCL = 0.0f;
    sys_data.k0_SW = 0.0f;
    sys_data.k0std_SW = 0.0f;
    for (int i = 0; i < 4; i++) {
        sys_data.spare[i] = 0.0f; // the rest of the spares are left alone
    }

    ads1248_sampling_defaults();

    if (sys_data.baud_rate != kDefaultBaud) {
        uprintf("Baud rate is changed to default: 115200\r\n");
        wait_consoleTx();
        UARTStdioConfig(0, kDefaultBaud, kUartClock);
    }
    sys_data.baud_rate = kDefaultBaud;

    set_text(sys_data.service_date, " ");
    set_text(sys_data.PT_Cal_date, " ");
    set_text(sys_data.k0_Cal_date, " ");
    set_text(sys_data.cal_filename, " ");
    set_text(sys_data.board_SN, " ");
    set_text(sys_data.korb_SN, " ");
    set_text(sys_data.sensor_SN, " ");
    set_text(sys_data.isfet_SN, " ");
    set_text(sys_data.ise_SN, " ");
    set_text(sys_data.package_name, " ");
    set_text(sys_data.optode_SN, " ");
    set_text(sys_data.ctd_SN, " ");
    set_text(sys_data.pump_SN, " ");
    set_text(sys_data.pump2_SN, " ");
    set_text(sys_data.pump3_SN, " ");
    set_text(sys_data.package_fab_note, " ");
    set_text(sys_data.deploy_note, " ");
    set_text(sys_data.fileName, "noname.txt");
    set_text(sys_data.user, "abc");

    memset(sys_data.data_cfg, 0, sizeof sys_data.data_cfg);
    for (int i = CFG_SAMPLE_NUM; i <= CFG_VRSE_STD; i++) {
        sys_data.data_cfg[i] = 1;
    }
    sys_data.data_cfg[CFG_VRSI_BIASED] = 1;
    for (int i = CFG_V_COUNTER_ELECT; i <= CFG_BRD_HUMIDITY; i++) {
        sys_data.data_cfg[i] = 1;
    }
    sys_data.data_cfg[CFG_UART4_INST] = 5;

    memset(sys_data.app_cfg, 0, sizeof sys_data.app_cfg);
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 1;
    sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO] = 1;

    // A fresh configuration starts from an idle instrument.
    sys_samp.state = IDLE;
    sys_samp.next_gdata_fptr = 0;
    sys_samp.current_sample = 0;
    sys_samp.AD24_std = 0.0f;
    sys_samp.sensor_sal = 0.0f;
    sys_samp.start_pump_cntdown = 0;
    sys_samp.nextWakeUp = HibernateRTCGet() + sys_data.sampling_period;
}

uint32_t compute_sys_data_chksum(void) {
    const uint8_t *p = reinterpret_cast<const uint8_t *>(&sys_data);
    uint32_t sum = 0;
    for (size_t i = 0; i < sizeof(systemData); i++) {
        sum += p[i];
    }
    return sum;
}

void sys_data_error_check(void) {
    int errors = 0;
    if (sys_data.Vtherm_trials > 40) {
        errors++;
    }
    if (sys_data.Vtherm_sps < 1 || sys_data.Vtherm_sps > 40) {
        errors++;
    }
    if (sys_data.Vrsi_trials > 40) {
        errors++;
    }
    if (sys_data.Vrsi_sps < 1 || sys_data.Vrsi_sps > 40) {
        errors++;
    }
    if (sys_data.Vrse_trials > 40) {
        errors++;
    }
    if (sys_data.Vrse_sps < 1 || sys_data.Vrse_sps > 40) {
        errors++;
    }
    if (sys_data.low_batt_volt > 100.0f) {
        errors++;
    }
    if (sys_data.baud_rate < 9600 || sys_data.baud_rate > 115200) {
        errors++;
    }
    // One odd value is tolerated; two mean the record cannot be trusted.
    if (errors >= 2) {
        init_sys_data_default();
    }
}

void eeprom_firmware_qa_check(void) {
    if (memcmp(sys_data.firmware_version, FIRMWARE_VERSION, FIRMWARE_VERSION_CMP_LEN) == 0) {
        return;
    }
    for (int i = 0; i < 5; i++) {
        prn_nl();
    }
    uprintf("************* ERROR: EEPROM data check failed (firmware upgrade) "
            "***********************");
    prn_nl();
    prn_nl();
    uprintf("*  EEPROM layout must match firmware, please run EEPROM copy / edit procedure  ");
    prn_nl();
    prn_nl();
    // The stored text may lack its terminator: never read past the field.
    uprintf("*  Version: %.*s, does not match firmware: %s", (int)sizeof sys_data.firmware_version,
            sys_data.firmware_version, FIRMWARE_VERSION);
    prn_nl();
    prn_nl();
    uprintf("*  Run EEPROM data procedure:  ");
    prn_nl();
    prn_nl();
    uprintf("*     1-Config Menu -> Y -- Advanced -> E -- Edit/Copy EEPROM sys_data ");
    prn_nl();
    prn_nl();
    uprintf("*   or");
    prn_nl();
    prn_nl();
    uprintf(
        "*     1-Config Menu -> Y -- Advanced -> D -- assign Defaults to sys_data and sys_samp ");
    prn_nl();
    prn_nl();
    uprintf(
        "****************************************************************************************");
    prn_nl();
}

// ---- sampling state (FRAM) ------------------------------------------------

uint32_t storeSysSampFRAMVariables(void) {
    if (sys_samp.initNum == SYS_SAMP_INIT_NUM) {
        fram_sys_samp_store();
        return 0;
    }
    // Repair the marker now; the next store writes the record.
    uprintf("FRAM sys_samp.init, Num is not 0x55AA55AA\r\n");
    sys_samp.initNum = SYS_SAMP_INIT_NUM;
    return 1;
}

void retrieveSysSampFRAMVariables(void) {
    fram_sys_samp_retrieve();
    if (sys_samp.initNum == SYS_SAMP_INIT_NUM) {
        return;
    }
    uprintf("FRAM sys_samp.init, Num is not 0x55AA55AA.  Defaults assigned");
    prn_nl();
    init_sys_samp_default();
    SetDefaultsIntoNVRAM();
    uprintf("APF Set Defaults Into FRAM");
    prn_nl();
    sys_samp.initNum = SYS_SAMP_INIT_NUM;
}

void init_sys_samp_default(void) {
    sys_samp.state = IDLE;
    sys_samp.nextWakeUp = 0;
    sys_samp.next_gdata_fptr = 0;
    sys_samp.current_sample = 0;
    sys_samp.AD24_std = 0.0f;
    sys_samp.initNum = SYS_SAMP_INIT_NUM;
    fram_sys_samp_store();
}

void initSysDataVolatileVariables(void) {
    uprintf("\r\nWarning: Initialized volatile sys data variables\r\n");
    sys_samp.state = IDLE;
    sys_samp.next_gdata_fptr = 0;
    sys_samp.current_sample = 0;
    sys_samp.AD24_std = 0.0f;
    sys_samp.nextWakeUp = HibernateRTCGet() + sys_data.sampling_period;
}
