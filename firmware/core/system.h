// The instrument's stored records: the configuration record kept in EEPROM,
// the sampling state and the last sample kept in FRAM, their defaults and
// their stores. Owns the layouts (they are stored byte for byte: every offset
// below is pinned). Does not own the float-controller record (host/apf_util).
#pragma once
#include <stddef.h>
#include <stdint.h>

#define FIRMWARE_VERSION "Fenwa v5.0.3 ZEP3 123g revB"
#define FIRMWARE_VERSION_CMP_LEN 28u

typedef uint8_t BOOL;
#define FALSE 0
#define TRUE 1

typedef enum { IDLE = 0, DEPLOYED = 1 } deploy_state;
typedef enum { NORMAL = 1, VERBOSE = 2 } output_mode;

// Output-column switches (sys_data.data_cfg[])
enum {
    CFG_SAMPLE_NUM = 0,
    CFG_TIMESTAMP,
    CFG_V_THERMISTOR,
    CFG_V_THERMISTOR_STD,
    CFG_CALC_TEMP,
    CFG_VRSI,
    CFG_VRSI_STD,
    CFG_CALC_PH_VRSI,
    CFG_VRSE,
    CFG_VRSE_STD,
    CFG_CALC_PH_VRSE,
    CFG_VRSI_BIASED,
    CFG_VRSI_BIASED_STD,
    CFG_VRSE_BIASED,
    CFG_VRSE_BIASED_STD,
    CFG_V_COUNTER_ELECT,
    CFG_V_COUNTER_ELECT_STD,
    CFG_I_COUNTER,
    CFG_I_SUBSTRATE,
    CFG_VIN_BAT_VOLT,
    CFG_BIAS_BAT_POS,
    CFG_BIAS_BAT_NEG,
    CFG_BRD_TEMP,
    CFG_BRD_HUMIDITY,
    CFG_UART3_INST,
    CFG_UART4_INST,
    CFG_SPARE1,
    CFG_SPARE2,
    CFG_SPARE3,
    CFG_SPARE4,
    CFG_SPARE5,
    CFG_SPARE6,
    CFG_COUNT
};

// Application switches (sys_data.app_cfg[])
enum {
    APPCFG_SAMPLING_DIAG = 0,
    APPCFG_TEMPC_SH_ALG = 1,
    APPCFG_MICROSD_ENABLE = 2,
    APPCFG_MENU_LEVEL = 3,
    APPCFG_DEPLOY_UARTECHO = 4,
    APPCFG_EXEC_SWITCHERONI = 5,
    APPCFG_NEWLINE_MODE = 7, // 0 CR LF, 1 CR
    APPCFG_COUNT = 16
};

typedef struct {
    uint32_t microSD;
    uint32_t time;
    uint32_t test_time;
    uint32_t eeprom;
    uint32_t sys_data_init;
    uint32_t fram;
    uint32_t adc12onchip;
    uint32_t adc24;
    float Vrsi, Vrsi_std, Vrsi_err;
    float Vrse, Vrse_std, Vrse_err;
    float Vtherm, Vtherm_std, Vtherm_err;
    float Ik, Ik_std, Ik_err;
    float Vk, Vk_std, Vk_err;
    float Ib, Ib_std, Ib_err;
    float Vb, Vb_std, Vb_err;
    float Vbias_pos;
    float Vbias_neg;
    uint32_t aux_pwr1;
    uint32_t aux_pwr2;
    uint32_t aux_pwr3;
    uint32_t ctd;
    uint32_t optode;
    uint32_t comm_pwr;
    char tester[48];
    char firmware_version[32];
    char board_fab_note[80];
} qaData;

typedef struct {
    uint32_t sampling_period;
    uint32_t chksum;
    uint32_t averaging_interval;
    float low_batt_volt;
    float TCOffset;
    float TCSlope;
    float k0ext;
    float k0int;
    float k2ext;
    float k2int;
    double quadTherm_c0;
    double quadTherm_c1;
    double quadTherm_c2;
    double quadTherm_c3;
    double shTherm_A;
    double shTherm_B;
    double shTherm_C;
    float default_sal;
    uint32_t Vrsi_sps;
    uint32_t Vrsi_trials;
    uint32_t Vrse_sps;
    uint32_t Vrse_trials;
    uint32_t Vtherm_sps;
    uint32_t Vtherm_trials;
    uint32_t Ik_sps;
    uint32_t Ik_trials;
    uint32_t Vk_sps;
    uint32_t Vk_trials;
    uint32_t Ib_sps;
    uint32_t Ib_trials;
    uint32_t Vb_sps;
    uint32_t Vb_trials;
    uint32_t Vbias_sps;
    uint32_t Vbias_trials;
    uint32_t offset_Ik;
    uint32_t offset_Ib;
    uint8_t output; // output_mode
    uint8_t output_pad[3];
    uint32_t test_mode;
    uint32_t fast_mode;
    uint32_t solenoid_on2hold_msec;
    uint32_t solenoid_hold_pwm;
    uint32_t solenoid_holdtime;
    uint32_t baud_rate;
    uint8_t data_cfg[32];
    uint8_t app_cfg[16];
    uint8_t GMT;
    uint8_t sample_aligned;
    uint8_t pad250[2];
    uint32_t diag;
    uint32_t debug_flag;
    uint32_t deploy_time;
    uint32_t start_pump_time;
    uint32_t pump_seq_type;
    uint32_t sampleCnt_duty_on;
    uint32_t sampleCnt_duty_off;
    uint32_t pump1_cycles;
    uint32_t pump2_cycles;
    uint32_t pump1_ontime;
    uint32_t pump2_ontime;
    uint32_t pump_spare[16];
    float pHOffset;
    float pHSlope;
    float sensor_ctd_TC;
    float sensor_optode_TC;
    float K2_Cal[4];
    float fP_Cal[7];
    float k0_HCL;
    float k0_SW;
    float k0std_SW;
    float spare[25];
    char service_date[12];
    char PT_Cal_date[12];
    char k0_Cal_date[12];
    char cal_filename[32];
    char firmware_version[32];
    char fileName[16];
    char user[8];
    char board_SN[24];
    char korb_SN[24];
    char sensor_SN[8];
    char isfet_SN[8];
    char ise_SN[8];
    char package_name[32];
    char optode_SN[24];
    char ctd_SN[24];
    char pump_SN[24];
    char pump2_SN[24];
    char pump3_SN[24];
    char package_fab_note[80];
    char deploy_note[80];
    qaData qa;
    uint8_t pad1348[4];
} systemData;

static_assert(sizeof(qaData) == 308, "qaData layout");
static_assert(offsetof(qaData, Vrsi) == 32 && offsetof(qaData, Vbias_pos) == 116 &&
                  offsetof(qaData, aux_pwr1) == 124 && offsetof(qaData, tester) == 148 &&
                  offsetof(qaData, firmware_version) == 196 &&
                  offsetof(qaData, board_fab_note) == 228,
              "qaData offsets");
static_assert(sizeof(systemData) == 1352, "systemData layout");
static_assert(offsetof(systemData, quadTherm_c0) == 40 && offsetof(systemData, default_sal) == 96 &&
                  offsetof(systemData, offset_Ib) == 168 && offsetof(systemData, output) == 172 &&
                  offsetof(systemData, test_mode) == 176 &&
                  offsetof(systemData, baud_rate) == 196 && offsetof(systemData, data_cfg) == 200 &&
                  offsetof(systemData, app_cfg) == 232 && offsetof(systemData, GMT) == 248 &&
                  offsetof(systemData, diag) == 252 && offsetof(systemData, pump_spare) == 296 &&
                  offsetof(systemData, pHOffset) == 360 && offsetof(systemData, K2_Cal) == 376 &&
                  offsetof(systemData, fP_Cal) == 392 && offsetof(systemData, k0_HCL) == 420 &&
                  offsetof(systemData, spare) == 432 && offsetof(systemData, service_date) == 532 &&
                  offsetof(systemData, cal_filename) == 568 &&
                  offsetof(systemData, firmware_version) == 600 &&
                  offsetof(systemData, fileName) == 632 && offsetof(systemData, user) == 648 &&
                  offsetof(systemData, board_SN) == 656 && offsetof(systemData, sensor_SN) == 704 &&
                  offsetof(systemData, package_name) == 728 &&
                  offsetof(systemData, optode_SN) == 760 && offsetof(systemData, pump3_SN) == 856 &&
                  offsetof(systemData, package_fab_note) == 880 &&
                  offsetof(systemData, deploy_note) == 960 && offsetof(systemData, qa) == 1040,
              "systemData offsets");

typedef struct {
    int32_t state; // deploy_state
    uint32_t nextWakeUp;
    uint32_t next_gdata_fptr;
    uint32_t current_sample;
    float AD24_std;
    float sensor_sal;
    float spare1;
    float spare2;
    float spare3;
    float spare4;
    uint32_t initNum;
    uint32_t pump_seq_state;
    uint32_t pump1_cnt;
    uint32_t pump2_cnt;
    uint32_t start_pump_cntdown;
} systemSamplingData;
static_assert(sizeof(systemSamplingData) == 60, "systemSamplingData layout");
static_assert(offsetof(systemSamplingData, initNum) == 40 &&
                  offsetof(systemSamplingData, start_pump_cntdown) == 56,
              "systemSamplingData offsets");

typedef struct {
    uint32_t sampNum;
    uint32_t timestamp;
    float fBiasNeg;
    float fBiasPos;
    float fIb;
    float fIk;
    float fIk_std;
    float fVk;
    float fVk_std;
    float fVtherm;
    float fVtherm_std;
    float fTempC;
    float fVrsi;
    float fVrsi_std;
    float pHint;
    float fVrse;
    float fVrse_std;
    float pHext;
    float fVbat_main;
    float fBrdTempC;
    uint32_t uiHumidity;
    float fsysAmp;
    float spare2;
    float spare3;
} sampData;
static_assert(sizeof(sampData) == 96, "sampData layout");
static_assert(offsetof(sampData, fTempC) == 44 && offsetof(sampData, pHext) == 68 &&
                  offsetof(sampData, uiHumidity) == 80,
              "sampData offsets");

// Kept for reference; not stored and not used.
typedef struct {
    uint32_t state;
    uint32_t nextWakeUp;
    uint32_t next_gdata_fptr;
    uint32_t current_sample;
    float AD24_std;
    uint32_t samp_state;
    uint32_t chksum;
} systemDataVolatile;
static_assert(sizeof(systemDataVolatile) == 28, "systemDataVolatile layout");

#define SYS_DATA_EEPROM_ADDR 1024u
#define SYS_SAMP_INIT_NUM 0x55AA55AAu

extern systemData sys_data;
extern systemSamplingData sys_samp;
extern sampData sampl;

// Configuration record (EEPROM)
void retrieveSysDataVariables(void);
uint32_t storeSysDataVariables(void);
int32_t verifySysDataVariables(void);
void init_sys_data_default(void);
void ads1248_sampling_defaults(void);
uint32_t compute_sys_data_chksum(void);
void sys_data_error_check(void);
void eeprom_firmware_qa_check(void);

// Sampling state (FRAM)
uint32_t storeSysSampFRAMVariables(void);
void retrieveSysSampFRAMVariables(void);
void init_sys_samp_default(void);
void initSysDataVolatileVariables(void);
