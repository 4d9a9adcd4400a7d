// Float-controller record (kept in FRAM), its defaults and reset values, the
// float controller's error log, its data files and record transfer, the
// header block whose lines begin "H, ", and the few link primitives of the
// float-controller exchange (waiting for the host's "ACK", reading its reply).
#pragma once
#include <stddef.h>
#include <stdint.h>

#include "ff.h"
#include "host/spectrometer.h"

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

// Error numbers of the float controller's log: -1xx system, -2xx nitrate,
// -3xx pH.
#define APF_ERR_ACK_FAILURE -110
#define APF_ERR_FILE_OPEN -112
#define APF_ERR_CARD_FULL -113
#define APF_ERR_DEFAULTS_LOADED -116

void init_zep(void);
void init_apf_global_vars(void);
void dev_init_apf_vars(void);
void SetDefaultsIntoNVRAM(void);
void SetSysDefaultsIntoNVRAM(void);
void SetIsusDefaultsIntoNVRAM(void);
void SetDuraDefaultsIntoNVRAM(void);

// Appends "E, <time>, <ecode>, <emsg>" to "ERROR.LOG" and counts the error in
// its group; outp 1 also shows it on the console. 0, or -1 when the log
// cannot be opened.
int LogErrorMsg(const char *emsg, int ecode, int outp);

// The header block: printFlg 1 sends it to the console, a non-null file gets
// it written; smode 1 nitrate, 2 pH. The second argument is not read.
void print_write_isusdura_header(int printFlg, int unused, int smode, FIL *file);

// The float controller's data file for select 1 (nitrate) or 2 (pH),
// "PROFnnnn.log" opened for appending; nullptr when the card is full or the
// file cannot be opened (both logged). The caller closes it.
FIL *OpenApfLogFile(int select);

// Lines waiting in "C:\OFFLOAD.DAT" (select 0) or "C:\ERROR.LOG" (select 1);
// 0 when the file is missing, -1 for a bad select.
int32_t CalcRecsPending(int select);
// Sends the next line of "OFFLOAD.DAT" (0) or "ERROR.LOG" (1) from *fpos and
// saves the new position there; at the end the file is deleted and "EOF"
// shown. 1 finished, 0 more to come, -1 bad select or file.
int32_t SendRecords(int select, uint32_t *fpos);

// 6 for a reply that is exactly "ACK", 21 for "NAK", -1 otherwise (the text is
// cut at its first CR and first LF).
int MatchACK(char *text);
// Reads one line of the host's reply, at most timeout_ms between bytes.
// Returns the bytes taken with the line end, or -1 when a byte did not come.
int UART_GetStr_timeout(char *buffer, uint32_t size, uint32_t timeout_ms);
// Waits for the host's "ACK": 1 got it, 0 something else came, -1 nothing
// came within timeout_ms of the last letter.
int waitACK(uint32_t timeout_ms);
