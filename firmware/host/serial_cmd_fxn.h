// Handlers behind the keyword table: column switches (set/get/quick test),
// period, clock, file name, output presets, sample counter, help texts,
// version, file transfer, the line term time, and the float-controller
// (machine-to-machine) commands. The receiver itself lives in host/serial.
#pragma once
#include <stdint.h>

// Line term time of the receiver (rx0.tick_ms_delim).
void apf_set_m2m_timeout(void);       // 250 ms
void apf_set_h2m_timeout(uint32_t n); // n seconds
uint32_t apf_get_h2m_timeout(void);   // ms

// Output-column switches. set: val is the value character of the line
// ('1' or 1 switches on, anything else off), then the record is saved.
// get: prints the switch with "%u". test: a quick measurement.
void cmd_set_vrsi(uint32_t val);
void cmd_get_vrsi(void);
void cmd_test_vrsi(uint32_t num);
void cmd_set_vrsi_std(uint32_t val);
void cmd_get_vrsi_std(void);
void cmd_test_vrsi_std(uint32_t num);
void cmd_set_vrse(uint32_t val);
void cmd_get_vrse(void);
void cmd_test_vrse(uint32_t num);
void cmd_set_vrse_std(uint32_t val);
void cmd_get_vrse_std(void);
void cmd_test_vrse_std(uint32_t num);
void cmd_set_vtherm(uint32_t val);
void cmd_get_vtherm(void);
void cmd_test_vtherm(uint32_t num);
void cmd_set_vtherm_std(uint32_t val);
void cmd_get_vtherm_std(void);
void cmd_test_vtherm_std(uint32_t num);
void cmd_set_tempc(uint32_t val);
void cmd_get_tempc(void);
void cmd_test_tempc(uint32_t num);
void cmd_set_vk(uint32_t val);
void cmd_get_vk(void);
void cmd_test_vk(uint32_t num);
void cmd_set_vk_std(uint32_t val);
void cmd_get_vk_std(void);
void cmd_test_vk_std(uint32_t num);
void cmd_set_ik(uint32_t val);
void cmd_get_ik(void);
void cmd_test_ik(uint32_t num);
void cmd_set_ib(uint32_t val);
void cmd_get_ib(void);
void cmd_test_ib(uint32_t num);
void cmd_set_vbat(uint32_t val);
void cmd_get_vbat(void);
void cmd_test_vbat(uint32_t num);
void cmd_set_biaspos(uint32_t val);
void cmd_get_biaspos(void);
void cmd_test_biaspos(uint32_t num);
void cmd_set_biasneg(uint32_t val);
void cmd_get_biasneg(void);
void cmd_test_biasneg(uint32_t num);
void cmd_set_timestamp(uint32_t val); // '1' -> 1, '2' -> 2, else 0
void cmd_get_timestamp(void);
void cmd_test_timestamp(uint32_t num);
void cmd_set_cfg_sampnum(uint32_t val);
void cmd_get_cfg_sampnum(void);

// Sample counter and continuous sampling.
void cmd_test_sampnum(uint32_t num);
void cmd_set_sampnum(uint32_t n);
void cmd_test_sample(uint32_t k);

// Commands with an argument; they read the line from rx0.buf.
void cmd_get_period(void);
void cmd_set_period(void);
// Why a sampling period cannot be scheduled: 0 it can, 1 it does not divide
// the hour while samples are hour-aligned, 2 it is above an hour.
int sampling_period_refusal(uint32_t period);
void cmd_get_time(void);
void cmd_set_time(void);
void cmd_get_filename(void);
void cmd_set_filename(void);
void cmd_get_store(void);
void cmd_set_store(void);
void cmd_set_config(void);
void cmd_help_config(void);
void cmd_filesystem(void);

void print_cmd_version(void);
void print_cmd_help(void);
void print_cmd_big_help(void);
void cmd_ymodem_send(uint32_t n);
void cmd_ymodem_receive(void);

// Float-controller dialect.
void apf_bake_uv_lamp(void);
void apf_get_cfg(void);
void print_isus_header(void);
void print_dura_header(void);
void apf_get_cal(void);
void apf_get_ctd(void);
void apf_set_ctd(void);
void apf_print_devStatus(void);
void apf_dbg(void);
void apf_get_err(void);
void apf_get_fit(void);
void apf_set_fit(void);
void apf_print_isus_header(void);
void apf_print_dura_header(void);
void apf_print_help(void);
void apf_init_persistent_vars(void);
void apf_get_mode(void);
void apf_set_mode(void);
void apf_off(void);
void apf_get_pc(void);
void apf_get_sensor_type(void);
void apf_get_rtc(void);
void apf_set_rtc(void);
void apf_get_sc(void);
void apf_get_se(void);
void apf_xfer_se(void);
void apf_slp_sleep(void);
void apf_get_spectra(void);
void apf_set_spectra(void);
void DisplaySystemInfo(void);
void apf_get_acq_time(void);
void apf_get_int_time(void);
void apf_set_int_time(void);
void apf_set_sensor_type(void);
void apf_take_sample_nitrate(uint32_t txFlg);
void apf_take_sample_pH(uint32_t txFlg);
void apf_send_last_nitrate(void);
void apf_send_last_pH(void);
void apf_print_ping_response(void);
void apf_wdog_status(void);
