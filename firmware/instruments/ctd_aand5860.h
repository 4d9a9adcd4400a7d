// Aanderaa 5860 CTD on the CTD port (UART4): wait for its "%", answer with
// CR LF, take its "!", send "do sample" and keep the reply line (ended by
// "#", at most 15 characters) in uart4_prn_buf; conductivity, temperature and
// salinity come from it. Stepped through uart4_stateMachine when
// data_cfg[CFG_UART4_INST] is 7.
#pragma once

// Steps the driver: start with state 1, call again with each returned state
// until 0 comes back.
int ctd_aand5860_stateMachine(int state);
// Scans the collected line: two whole numbers, then conductivity,
// temperature, salinity and two more numbers.
void ctd_aand5860_parseData(void);

// Operator tests.
void ctd_aand5860_poll(void);
void ctd_aand5860_comm_test(void);
void ctd_aand5860_serial_analyzer(void);
void ctd_aand5860_qa_test(void);
