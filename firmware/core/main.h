// Start-up, the main loop over IDLE and DEPLOYED, the main menu, the
// deployment dialogue and the deployed command loop. RAM state here is lost at
// every hibernation: it restarts from the image's initial values.
#pragma once
#include "core/system.h"

enum { WAKE_NOTSET = 0, WAKE_KEY = 1, WAKE_RTC = 2 };

extern int dbg_flag;
extern unsigned int deployDelay;
extern unsigned int databarFlg;
extern unsigned int barfSampleTime;
extern uint32_t microSD_flg; // 1 = card present and in use

int main(void);
void init(void);
void exec_main_loop(uint32_t timeout);
void exec_main_menu(void);
void print_main_menu(void);
void deploy_start(void);
void deploy(deploy_state state, uint32_t skipSample);
uint32_t compute_nextWakeUp(void);
uint32_t exec_command(uint32_t timeout);
void state_dump(void);
uint32_t print_sampBuf(void);
void databarf_loop(void);
void new_exec_main(uint32_t key);
