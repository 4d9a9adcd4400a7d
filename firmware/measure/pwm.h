// Pump and solenoid sequencer: the pump configuration and its dialogues, the
// software PWM drivers of the pump and the solenoid, and the entry points
// through which a deployment takes a sample with pumping.
#pragma once
#include <stdint.h>

#define PUMP_BUF_SIZE 36u
#define PUMP_SINGLE_MAX_SEC 3600u // single pump run time
#define PUMP_TWO_MAX_SEC 18000    // two-pump run times
#define PUMP_MAX_CYCLES 1000      // sampling cycles per pump
#define PWM_TICKS_PER_PERIOD 100u

// Pump sequence types (sys_data.pump_seq_type)
enum {
    PUMP_SEQ_DISABLED = 0,
    PUMP_SEQ_SINGLE = 1,
    PUMP_SEQ_TWO_ALT_V1 = 2,
    PUMP_SEQ_TWO_V2 = 3,
    PUMP_SEQ_SELF_CAL = 4,
};

// PWM driver states
enum {
    PWM_OFF = 1,       // output off
    PWM_START = 2,     // output on; the caller moves it to PWM_ON_PHASE
    PWM_OFF_PHASE = 3, // counting the off ticks of a period
    PWM_ON_PHASE = 4,  // counting the on ticks
};

typedef struct {
    uint32_t state;
    uint32_t cnt;     // ticks in the current phase
    uint32_t gpio;    // output line (board specific; unused on this board)
    uint32_t period;  // ticks per period
    uint32_t percent; // on ticks per period of 100 ticks
} pwmDriver;

extern pwmDriver pwmPump;
extern pwmDriver pwmSoln;
extern uint32_t pwmSoln_initFlg;

// The pump column of the sample line: "PumpSeq=%02d\t".
extern char pumpBuf[PUMP_BUF_SIZE];

void pump_var_init(void);
void pump_stateMachine_init(void);
void pump_and_sample_start(void);
int32_t pump_stateMachine(int32_t a, int32_t b, int32_t c);
int32_t pump_and_sample(int32_t printFlg, int32_t writeFlg);
void pump_and_sample_timing_test(void);
void pump_and_sample_loop_test(void);

void pump_sequencer_setup(void);
void config_two_pump_beams_v1(void);
void config_two_pump_beams_v2(void);
void config_self_cal(void);

// One call is one PWM tick; a non-negative argument first forces the state.
int pwmPump_stateMachine(int pwmState);
int pwmSoln_stateMachine(int pwmState);
void pwm_init(void);
void pwmSoln_set(void);
void pwmSoln_stop(void);
