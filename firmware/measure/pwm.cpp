// Pump and solenoid sequencer. The configuration (sequence type, run times,
// cycles) is entered here and reported in the sample line and the headers;
// the duty-cycle drivers of the pump and the solenoid are here for the bench.
// Sample-time sequencing is dormant in this release: pump_stateMachine reports
// "done" at once and pump_and_sample takes the sample directly.
//
// Not here: the switches themselves (board_util: pump_on, pwr_soln_on ...)
// and the sample cycle (sample).
#include "measure/pwm.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "board/board_util.h"
#include "console/user_io.h"
#include "core/decimal.h"
#include "core/system.h"
#include "measure/sample.h"

pwmDriver pwmPump;
pwmDriver pwmSoln;
uint32_t pwmSoln_initFlg;
char pumpBuf[PUMP_BUF_SIZE];

namespace {

const uint32_t kTypeChars = 2u;     // sequence type entry
const uint32_t kRunTimeChars = 20u; // single pump run time entry
const uint32_t kTwoTimeChars = 8u;  // two-pump run time entry
const uint32_t kCyclesChars = 4u;   // cycles entry

// A decimal number at the start of the entry (blanks and a sign allowed).
// False for an entry that holds none: the caller keeps its value.
bool parse_number(const char *in, int32_t *out) {
    const char *p = in;
    while (*p == ' ' || *p == '\t') {
        p++;
    }
    const char *d = (*p == '-' || *p == '+') ? p + 1 : p;
    if (*d < '0' || *d > '9') {
        return false;
    }
    *out = dec_i32(p, nullptr, nullptr);
    return true;
}

// One entry line of at most maxChars characters; false when it was empty or
// no number.
bool read_number(uint32_t maxChars, int32_t *out) {
    char in[24];
    uint32_t size = maxChars + 1u < sizeof in ? maxChars + 1u : (uint32_t)sizeof in;
    if (getUserInput(in, size) <= 0) {
        return false;
    }
    return parse_number(in, out);
}

// A question repeated until a value in 0..limit or an empty entry.
void ask_bounded(const char *prompt, uint32_t maxChars, int32_t limit, uint32_t *field,
                 const char *okFmt, const char *refusedFmt) {
    for (;;) {
        uprintf(prompt, (int)*field);
        int32_t v = 0;
        if (!read_number(maxChars, &v)) {
            return;
        }
        if (v >= 0 && v <= limit) {
            *field = (uint32_t)v;
            uprintf(okFmt, (int)v);
            prn_nl();
            return;
        }
        uprintf(refusedFmt, (int)limit);
        prn_nl();
    }
}

// The two-pump parameters; the same dialogue serves all two-pump schemes.
void two_pump_dialogue(void) {
    ask_bounded("\r\nEnter Pump1 run time [%d] sec: ", kTwoTimeChars, PUMP_TWO_MAX_SEC,
                &sys_data.pump1_ontime, "Pump1 run time = %d sec",
                "Enter a number less than or equal to %d seconds");
    ask_bounded("\r\nEnter Pump2 run time [%d] sec: ", kTwoTimeChars, PUMP_TWO_MAX_SEC,
                &sys_data.pump2_ontime, "Pump2 run time = %d sec",
                "Enter a number less than or equal to %d seconds");
    // "less than 1000", yet 1000 itself is taken: both as they have always been.
    ask_bounded("\r\nEnter number of sampling cycles for Pump1 [%d]: ", kCyclesChars,
                PUMP_MAX_CYCLES, &sys_data.pump1_cycles, "Sampling cycles Pump1 = %d",
                "Enter a number less than 1000 cycles");
    ask_bounded("\r\nEnter number of sampling cycles for Pump2 [%d]: ", kCyclesChars,
                PUMP_MAX_CYCLES, &sys_data.pump2_cycles, "Sampling cycles Pump2 = %d",
                "Enter a number less than 1000 cycles");
}

// Off ticks of a period; a duty above 100 % means always on.
uint32_t off_ticks(const pwmDriver *d) {
    return d->percent >= PWM_TICKS_PER_PERIOD ? 0u : PWM_TICKS_PER_PERIOD - d->percent;
}

// The off and on phases shared by both drivers; `on`/`off` switch the output.
void pwm_phase_tick(pwmDriver *d, void (*on)(void), void (*off)(void)) {
    if (d->state == PWM_OFF_PHASE) {
        d->cnt++;
        if (d->cnt > off_ticks(d)) {
            on();
            d->cnt = 0;
            d->state = PWM_ON_PHASE;
        }
    } else {
        if (d->cnt + 1u <= d->percent) {
            d->cnt++;
        } else {
            off();
            d->cnt = 0;
            d->state = PWM_OFF_PHASE;
        }
    }
}

} // namespace

void pump_var_init(void) {
    snprintf(pumpBuf, sizeof pumpBuf, "PumpSeq=%02d\t", (int)sys_data.pump_seq_type);
}

void pump_stateMachine_init(void) {
    sys_samp.pump_seq_state = 0;
}

void pump_and_sample_start(void) {
    sys_samp.pump_seq_state = 1;
}

// Sample-time sequencing is not part of this release: always finished.
int32_t pump_stateMachine(int32_t, int32_t, int32_t) {
    return 0;
}

int32_t pump_and_sample(int32_t printFlg, int32_t writeFlg) {
    get_sample(printFlg, writeFlg);
    return 0;
}

void pump_and_sample_timing_test(void) {
    uprintf("Feature not available in this release (test_pump_and_sample_timing)\r\n");
}

void pump_and_sample_loop_test(void) {
    print_sample_fields_header();
    if (sys_data.pump1_ontime != 0u) {
        uprintf("\r\r\nHit Ctrl-X to terminate pump cycle followed by any key to terminate "
                "sample loop\r\r\n");
    } else {
        uprintf("\r\r\nHit any key to terminate sample loop\r\r\n");
    }
    int writeFlg = yesOrNoMenuChoice("    Write to File? (Y/N) [N]? ", 0);
    if (writeFlg) {
        char name[sizeof sys_data.fileName + 1u];
        size_t n = strnlen(sys_data.fileName, sizeof sys_data.fileName);
        memcpy(name, sys_data.fileName, n);
        name[n] = 0;
        uprintf("\r\nWrite to file %s, activated\r\n", name);
    }
    pump_and_sample_start();
    while (UARTRxBytesAvail() == 0) {
        pump_and_sample(1, writeFlg);
    }
    (void)kbhit(); // the key that ended the loop
}

void pump_sequencer_setup(void) {
    for (;;) {
        // A disabled sequencer is offered as Single; the type cannot be left
        // at 0 through this dialogue.
        if (sys_data.pump_seq_type == PUMP_SEQ_DISABLED) {
            sys_data.pump_seq_type = PUMP_SEQ_SINGLE;
        }
        sys_samp.pump_seq_state = 0;
        sys_samp.pump1_cnt = 0;
        sys_samp.pump2_cnt = 0;
        fram_sys_samp_store();

        uprintf("\r\nEnter Pump Sequence Type (1=Single, 2=Two Pump Alt BEAMSv1, 3=Two Pump "
                "BEAMSv2, 4=Self Cal [%d]: ",
                (int)sys_data.pump_seq_type);
        int32_t v = 0;
        if (!read_number(kTypeChars, &v)) {
            break;
        }
        if (v == PUMP_SEQ_DISABLED) {
            sys_data.pump_seq_type = PUMP_SEQ_DISABLED;
            uprintf("Pump Sequence Type = %d, Disabled", 0);
            prn_nl();
        } else if (v >= PUMP_SEQ_SINGLE && v <= PUMP_SEQ_SELF_CAL) {
            sys_data.pump_seq_type = (uint32_t)v;
            uprintf("Pump Sequence Type = %d", (int)v);
            prn_nl();
            break;
        }
        uprintf("\r\nEnter 1,2,3,4 to select pump sequencer, 0 to disable");
        prn_nl();
    }

    if (sys_data.pump_seq_type == PUMP_SEQ_SINGLE) {
        for (;;) {
            uprintf("Enter Pump1 run time [%u] sec: ", (unsigned)sys_data.pump1_ontime);
            int32_t v = 0;
            if (!read_number(kRunTimeChars, &v)) {
                break;
            }
            // The hint says "less than", yet 3600 itself is taken.
            if (v >= 0 && (uint32_t)v <= PUMP_SINGLE_MAX_SEC) {
                sys_data.pump1_ontime = (uint32_t)v;
                uprintf("Pump on time now %u sec.", (unsigned)v);
                prn_nl();
                break;
            }
            uprintf("\r\nEnter time less than 3600 sec");
            prn_nl();
        }
    }

    uprintf("Enter Experiment Delay Start feature is not yet implemented...");
    prn_nl();
    uprintf("Enter Experiment Duty Cycle feature is not yet implemented...");
    prn_nl();

    if (sys_data.pump_seq_type == PUMP_SEQ_TWO_ALT_V1 ||
        sys_data.pump_seq_type == PUMP_SEQ_TWO_V2) {
        config_two_pump_beams_v1();
    }
}

void config_two_pump_beams_v1(void) {
    two_pump_dialogue();
}

void config_two_pump_beams_v2(void) {
    two_pump_dialogue();
}

void config_self_cal(void) {
    two_pump_dialogue();
}

// ---- software PWM -----------------------------------------------------------

int pwmPump_stateMachine(int pwmState) {
    if (pwmState >= 0) {
        pwmPump.state = (uint32_t)pwmState;
    }
    switch (pwmPump.state) {
    case PWM_OFF:
        pump_off();
        pwmPump.cnt = 0;
        break;
    case PWM_START:
        pump_on();
        pwmPump.cnt = 0;
        break;
    case PWM_OFF_PHASE:
    case PWM_ON_PHASE:
        pwm_phase_tick(&pwmPump, pump_on, pump_off);
        break;
    default:
        break;
    }
    return (int)pwmPump.state;
}

int pwmSoln_stateMachine(int pwmState) {
    if (pwmState >= 0) {
        pwmSoln.state = (uint32_t)pwmState;
    }
    switch (pwmSoln.state) {
    case 0:
        return 0;
    case PWM_START:
        pwr_soln_on();
        pwmSoln.cnt = 0;
        break;
    case PWM_OFF_PHASE:
    case PWM_ON_PHASE:
        pwm_phase_tick(&pwmSoln, pwr_soln_on, pwr_soln_off);
        break;
    default:
        pwr_soln_off();
        pwmSoln.cnt = 0;
        break;
    }
    return (int)pwmSoln.state;
}

// The pump runs full on; the solenoid holds at its stored duty once pulled in.
void pwm_init(void) {
    pwmSoln_initFlg = 0;
    pwmPump.state = PWM_OFF;
    pwmPump.cnt = 0;
    pwmPump.gpio = 0;
    pwmPump.period = PWM_TICKS_PER_PERIOD;
    pwmPump.percent = PWM_TICKS_PER_PERIOD;
    pwmSoln.state = 0;
    pwmSoln.cnt = 0;
    pwmSoln.gpio = 0;
    pwmSoln.period = PWM_TICKS_PER_PERIOD;
    pwmSoln.percent = sys_data.solenoid_hold_pwm;
}

void pwmSoln_set(void) {}

void pwmSoln_stop(void) {}
