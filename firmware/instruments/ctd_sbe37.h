// SBE37 CTD on the CTD port (UART4): wake it with a CR, send the take-sample
// command "ts", keep the reply line (at most 15 characters) in uart4_prn_buf
// and take temperature and salinity from it. Stepped through
// uart4_stateMachine when data_cfg[CFG_UART4_INST] is 6.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ctd_sbe37_stateMachine(int state);
// Scans the collected line: temperature, conductivity, salinity, date, time.
void ctd_sbe37_parseData(void);

// Operator tests.
void ctd_sbe37_poll(void);            // one reading, its line and values on the console
void ctd_sbe37_comm_test(void);       // terminal to the CTD until Ctrl-X
void ctd_sbe37_serial_analyzer(void); // each received byte and its time until Ctrl-X
void ctd_sbe37_qa_test(void);
