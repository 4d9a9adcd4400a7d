// Float-controller record (kept in FRAM), its defaults and reset values, and
// the float controller's error log. The spectrometer operations a board
// without a spectrometer answers honestly.
#pragma once
#include <stddef.h>
#include <stdint.h>

typedef struct {
    int32_t errNum;
    uint32_t sendlast_byteCnt;
    uint32_t isus_spec_pwr;
    uint32_t isus_lamp_pwr;
    uint32_t isus_ref_pwr;
    uint32_t isus_ref_limit;
    uint32_t isus_error_ctr;
    uint32_t isus_last_error;
    uint32_t isus_sample_time;
    uint32_t isus_error_time;
    uint32_t isus_reset_flag;
    uint32_t isus_lamp_elp;
    uint32_t isus_lamp_evt;
    uint32_t isus_fit_concs;
    uint32_t isus_sample_ctr;
    uint32_t isus_spec_period;
    uint32_t isus_pre_scans;
    uint32_t isus_scan_num;
    uint32_t isus_dark_num;
    uint32_t isus_bsl_model;
    uint32_t isus_warm_shut;
    uint32_t isus_ref_samples;
    uint32_t isus_warm_lamp;
    uint32_t isus_clean_lamp;
    uint32_t isus_scans_per_dc;
    uint32_t isus_samps_per_clean;
    uint32_t no3_span;
    uint32_t no3_offset;
    uint32_t isus_pixel_beg;
    uint32_t isus_pixel_end;
    uint32_t isus_fit_pixels;
    uint32_t isus_tcomp_mode;
    uint32_t isus_salfit_mode;
    uint32_t isus_datpixel_beg;
    uint32_t isus_datpixel_end;
    uint32_t isus_sal;
    uint32_t isus_no3;
    uint32_t isus_hs;
    uint32_t isus_err;
    uint32_t lambda_beg;
    uint32_t lambda_end;
    uint32_t dura_atod_pwr;
    uint32_t dura_error_time;
    uint32_t dura_sample_time;
    uint32_t dura_error_ctr;
    uint32_t dura_last_error;
    uint32_t dura_reset_flag;
    uint32_t dura_sample_ctr;
    uint32_t dura_atod_readings;
    uint32_t dura_atod_delay;
    uint32_t dura_samps_per_cal;
    uint32_t dura_led_enable;
    float pH;
    float backupVoltage;
    float VrsExt;
    float StdDevVrs;
    float Vk;
    float StdDevVk;
    float Ik;
    float Ib;
    uint32_t gotSample;
    uint32_t sys_por_flag;
    uint32_t sys_sensor_mode;
    uint32_t sys_por_ctr;
    uint32_t sys_reset_ctr;
    uint32_t sys_reset_time;
    uint32_t sys_sf_limit;
    uint32_t sys_ef_limit;
    uint32_t chkSum;
    uint8_t sys_slog_delay;
    uint8_t sys_deploy_mode;
    uint8_t sys_data_mode;
    uint8_t sys_time_type;
    uint8_t sys_watchdog_enable;
    uint8_t sys_message_enable;
    uint8_t sys_pump_enable;
    uint8_t sys_sensor_type;
    uint32_t sys_apf_tmout;
    uint16_t sys_delay_hour;
    uint16_t sys_sync_hour;
    uint16_t sys_sync_min;
    uint16_t sys_df_limit;
    uint16_t sys_last_doy;
    uint16_t sys_serial_num;
    uint16_t sys_tmout;
    uint16_t sys_tzoffset;
    uint16_t sys_last_error;
    uint16_t sys_error_ctr;
    uint16_t sys_error_time;
    uint16_t sys_file_ctr;
    uint16_t sys_sleep_period;
    uint16_t sys_pump_period;
    float sys_temperature;
    uint32_t sys_humidity;
    float sys_pressure;
    float sys_current;
    float sys_voltage;
    float acquire_time;
    uint32_t CTD_Time;
    float CTD_Temp;
    float CTD_Salinity;
    float CTD_Depth;
    float DataMean;
    float DataStdDev;
} apfGlobals;
static_assert(sizeof(apfGlobals) == 364, "apfGlobals layout");
static_assert(offsetof(apfGlobals, pH) == 208 && offsetof(apfGlobals, sys_sensor_mode) == 248 &&
                  offsetof(apfGlobals, chkSum) == 272 &&
                  offsetof(apfGlobals, sys_sensor_type) == 283 &&
                  offsetof(apfGlobals, sys_apf_tmout) == 284 &&
                  offsetof(apfGlobals, sys_serial_num) == 298 &&
                  offsetof(apfGlobals, sys_error_time) == 308 &&
                  offsetof(apfGlobals, sys_temperature) == 316 &&
                  offsetof(apfGlobals, CTD_Time) == 340 && offsetof(apfGlobals, DataStdDev) == 360,
              "apfGlobals offsets");

typedef struct {
    uint32_t DS3234_secs;
    uint32_t CF2_secs;
    uint32_t alarm_time;
    uint32_t wake_time;
    uint32_t current_time;
    uint32_t data_time;
    float data_time_fsecs;
} apfRtcTime;

extern apfGlobals apf;
extern apfRtcTime rtc;
extern int32_t Zcoefs;
extern int32_t Ecoefs;
extern int mmsDbgFlg;

void init_zep(void);
void init_apf_global_vars(void);
void dev_init_apf_vars(void);
void SetDefaultsIntoNVRAM(void);
void SetSysDefaultsIntoNVRAM(void);
void SetIsusDefaultsIntoNVRAM(void);
void SetDuraDefaultsIntoNVRAM(void);
int LogErrorMsg(const char *emsg, int ecode, int outp);

// Spectrometer and lamp: none is fitted on this board.
void mms_specPwrOff(void);
void mms_lampPwrOff(void);
void IOPwrUp(void);
int32_t LoadIsusZCoefs(double *coefs);
extern double ZeissCoefs[5];
