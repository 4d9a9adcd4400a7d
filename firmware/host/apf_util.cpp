// Float-controller record: its start-up values, the default sets written to
// FRAM on a fresh board, the development defaults of the main loop, and the
// float controller's error log "ERROR.LOG" on the card. The record's FRAM
// transfers are board/i2c_fram's; the header block and record transfer come
// later. This board carries no spectrometer or lamp, so the spectrometer
// operations here only keep the record honest.
#include "host/apf_util.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "ff.h"
#include "hibernate.h"

apfGlobals apf;
apfRtcTime rtc;
int32_t Zcoefs = 0; // no wavelength coefficients on this board
int32_t Ecoefs = 0; // no extinction coefficients either
int mmsDbgFlg = 0;
double ZeissCoefs[5];

namespace {

constexpr int kErrDefaultsLoaded = -116;
constexpr int kErrLogOpen = -112;

// Error numbers are grouped: -1xx system, -2xx nitrate, -3xx pH.
bool in_group(int ecode, int hundreds) {
    return ecode <= -hundreds && ecode > -(hundreds + 100);
}

} // namespace

// ---- spectrometer and lamp (none fitted) -------------------------------------

void mms_specPwrOff(void) {
    apf.isus_spec_pwr = 0;
}

void mms_lampPwrOff(void) {
    apf.isus_lamp_pwr = 0;
}

void IOPwrUp(void) {}

int32_t LoadIsusZCoefs(double *coefs) {
    return 0;
}

// ---- start-up ----------------------------------------------------------------

void init_zep(void) {
    apf.sys_por_flag = 1;
    if (mmsDbgFlg == 1) {
        uprintf("  Orvik Sensor Controller v3 Initializing...");
    }
    init_apf_global_vars();
    IOPwrUp();
    Zcoefs = LoadIsusZCoefs(ZeissCoefs);
    if (Zcoefs > 0 && mmsDbgFlg == 1) {
        uprintf("DBG: ECoefs commented out");
        prn_nl();
        wait_consoleTx();
    }
    if (mmsDbgFlg == 1) {
        uprintf("DBG: not calling DisplaySystemInfo, type sys.  Not calling SyncNextSample (ever)");
        prn_nl();
        wait_consoleTx();
    }
}

// Rebuilds the RAM view after a reset; the record is not stored back here.
void init_apf_global_vars(void) {
    fram_apf_vars_retrieve();
    apf.isus_reset_flag = 1; // each data file gets its header before the next record
    apf.dura_reset_flag = 1;
    apf.sys_reset_time = HibernateRTCGet();
    apf.sys_reset_ctr++;
    if (apf.sys_por_flag == 1) {
        apf.sys_por_ctr++;
    }
    apf.sys_sensor_mode = 0;
    apf.gotSample = 0;
    apf.CTD_Time = 0;
    apf.CTD_Temp = -1.0f;
    apf.CTD_Salinity = -1.0f;
    apf.CTD_Depth = -1.0f;
    apf.acquire_time = -1.0f;
    apf.isus_fit_pixels = apf.isus_pixel_end - apf.isus_pixel_beg + 1;
}

void dev_init_apf_vars(void) {
    sys_data.app_cfg[11] = 0;
    apf.sys_sensor_mode = 1;
}

// ---- defaults ----------------------------------------------------------------

void SetSysDefaultsIntoNVRAM(void) {
    apf.sys_slog_delay = 4;
    apf.sys_sensor_type = 4;
    apf.sys_delay_hour = 3;
    apf.sys_deploy_mode = 1;
    apf.sys_data_mode = 1;
    apf.sys_time_type = 1;
    apf.sys_file_ctr = 1;
    apf.sys_sync_hour = 6;
    apf.sys_df_limit = 5;
    apf.sys_sf_limit = 256;
    apf.sys_ef_limit = 256;
    apf.sys_serial_num = 777;
    apf.sys_apf_tmout = 10;
    apf.sys_tzoffset = 8;
    apf.sys_sleep_period = 60;
    apf.sys_pump_period = 60;
    apf.sendlast_byteCnt = 0;
    apf.sys_reset_ctr = 0;
    apf.sys_reset_time = 0;
    apf.sys_por_ctr = 0;
    apf.sys_watchdog_enable = 0;
    apf.sys_message_enable = 0;
    apf.sys_pump_enable = 0;
    apf.sys_sync_min = 0;
    apf.sys_last_doy = 0;
    apf.sys_last_error = 0;
    apf.sys_error_ctr = 0;
    apf.sys_error_time = 0;
    prn_nl();
    uprintf("\n  System Default Values loaded into FRAM!\n");
    prn_nl();
}

void SetIsusDefaultsIntoNVRAM(void) {
    apf.isus_tcomp_mode = 1;
    apf.isus_warm_shut = 1;
    apf.isus_dark_num = 1;
    apf.isus_bsl_model = 1;
    apf.isus_ref_limit = 5000;
    apf.isus_salfit_mode = 0;
    apf.isus_pre_scans = 2;
    apf.isus_fit_concs = 2;
    apf.isus_scan_num = 3;
    apf.isus_pixel_beg = 17;
    apf.isus_pixel_end = 87;
    apf.isus_datpixel_beg = 17;
    apf.isus_datpixel_end = 87;
    apf.isus_warm_lamp = 3;
    apf.isus_ref_samples = 15;
    apf.isus_clean_lamp = 30;
    apf.isus_spec_period = 1000;
    apf.isus_scans_per_dc = 25;
    apf.isus_samps_per_clean = 24;
    apf.no3_span = 45;
    apf.no3_offset = 5;
    apf.isus_error_ctr = 0;
    apf.isus_error_time = 0;
    apf.isus_sample_ctr = 0;
    apf.isus_sample_time = 0;
    prn_nl();
    uprintf("  ISUS Default Values loaded into FRAM!");
    prn_nl();
}

void SetDuraDefaultsIntoNVRAM(void) {
    apf.dura_led_enable = 1;
    apf.dura_atod_readings = 10;
    apf.dura_samps_per_cal = 250;
    apf.dura_atod_delay = 100;
    apf.dura_error_ctr = 0;
    apf.dura_error_time = 0;
    apf.dura_sample_ctr = 0;
    apf.dura_sample_time = 0;
    prn_nl();
    uprintf("  DuraFET Default Values loaded into FRAM!");
    prn_nl();
}

void SetDefaultsIntoNVRAM(void) {
    SetSysDefaultsIntoNVRAM();
    SetIsusDefaultsIntoNVRAM();
    SetDuraDefaultsIntoNVRAM();
    fram_apf_vars_store();
    LogErrorMsg("Default variable values were loaded into RTC NV SRAM", kErrDefaultsLoaded,
                apf.sys_message_enable);
}

// ---- error log -----------------------------------------------------------------

int LogErrorMsg(const char *emsg, int ecode, int outp) {
    if (mmsDbgFlg == 1) {
        uprintf("DBG: LogErrorMsg imp in progress, in LogErrorMsg apf_util");
        prn_nl();
    }
    if (emsg == nullptr) {
        emsg = "";
    }
    uint32_t when;
    if (in_group(ecode, 100)) {
        when = HibernateRTCGet();
        apf.sys_error_time = (uint16_t)when;
        apf.sys_last_error = (uint16_t)ecode;
        apf.sys_error_ctr++;
    } else if (in_group(ecode, 200)) {
        when = HibernateRTCGet();
        apf.isus_error_time = when;
        apf.isus_error_ctr++;
        apf.isus_last_error = (uint32_t)ecode;
    } else if (in_group(ecode, 300)) {
        when = HibernateRTCGet();
        apf.dura_error_time = when;
        apf.dura_error_ctr++;
        apf.dura_last_error = (uint32_t)ecode;
    } else {
        rtc.current_time = HibernateRTCGet();
        when = rtc.current_time;
    }

    FIL f;
    FRESULT r = f_open(&f, "ERROR.LOG", FA_WRITE | FA_OPEN_ALWAYS);
    if (r == FR_OK) {
        r = f_lseek(&f, f_size(&f)); // append
        if (r != FR_OK) {
            f_close(&f);
        }
    }
    if (r != FR_OK) {
        apf.sys_error_time = (uint16_t)HibernateRTCGet();
        apf.sys_last_error = (uint16_t)kErrLogOpen;
        apf.sys_error_ctr++;
        return -1;
    }

    time_t t = (time_t)when;
    struct tm tmv;
    const struct tm *cal = localtime(&t);
    if (cal != nullptr) {
        tmv = *cal;
    } else {
        memset(&tmv, 0, sizeof(tmv));
    }
    char line[256];
    int n =
        snprintf(line, sizeof(line), "E, %02d/%02d/%02d %02d:%02d:%02d, %d, %s\n", tmv.tm_mon + 1,
                 tmv.tm_mday, tmv.tm_year + 1900, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, ecode, emsg);
    if (n < 0) {
        n = 0;
    } else if ((size_t)n >= sizeof(line)) {
        n = (int)sizeof(line) - 1;
    }
    UINT written = 0;
    f_write(&f, line, (UINT)n, &written);
    f_close(&f);

    if (outp == 1) {
        uprintf("%02d/%02d/%02d %02d:%02d:%02d, %d, %s", tmv.tm_mon + 1, tmv.tm_mday,
                tmv.tm_year + 1900, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, ecode, emsg);
        prn_nl();
    }
    fram_apf_vars_store();
    return 0;
}
