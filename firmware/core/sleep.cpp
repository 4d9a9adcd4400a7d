// Hibernation between samples: wake sources and the clamp of the wake time,
// classification of a wake-up at start-up, the RTC set-up after a cold start,
// and the recovery when hibernation does not take. The schedule itself
// (which second to wake at) is compute_nextWakeUp's in core/main.
#include "core/sleep.h"

#include "board/board_util.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/main.h"
#include "files/microsd.h"
#include "hibernate.h"
#include "sysctl.h"

namespace {

const uint32_t kRtcTrimNone = 0x7FFFu;
const uint32_t kIntsToDisable = HIBERNATE_INT_RTC_MATCH_0 | HIBERNATE_INT_LOW_BAT |
                                HIBERNATE_INT_PIN_WAKE | HIBERNATE_INT_WR_COMPLETE; // 0x1D
const uint32_t kMinWakeAhead = 2u;                                                  // seconds
const uint32_t kMaxWakeAhead = 3600u; // a wake time further out is not trusted

void nl(int count) {
    for (int i = 0; i < count; i++) {
        prn_nl();
    }
}

} // namespace

void print_sleep(void) {
    uprintf("*");
}

void sleep(deploy_state state, uint32_t wakeTime) {
    bool verbose = sys_data.output == VERBOSE;
    sys_samp.state = state;

    if (state != DEPLOYED) {
        HibernateWakeSet(HIBERNATE_WAKE_PIN);
        if (state == IDLE) {
            if (verbose) {
                nl(2);
                uprintf("Sleeping...*");
            } else {
                print_sleep();
            }
        }
        if (verbose) {
            uprintf("hit any key to wake");
            nl(3);
        }
        delay_msec(25);
    } else if (wakeTime != 0) {
        uint32_t now = HibernateRTCGet();
        // In the past, too close, or more than an hour out: two seconds from now.
        if (wakeTime <= now + kMinWakeAhead || wakeTime > now + kMaxWakeAhead) {
            wakeTime = now + kMinWakeAhead;
        }
        HibernateRTCMatchSet(0, wakeTime);
        HibernateWakeSet(HIBERNATE_WAKE_PIN | HIBERNATE_WAKE_RTC);
        if (sys_data.test_mode == 1 || verbose) {
            nl(2);
            uprintf("Sleeping until ");
            print_time_t_Time((time_t)wakeTime);
        }
    } else {
        HibernateWakeSet(HIBERNATE_WAKE_PIN);
        nl(2);
        uprintf("Sleeping in polled mode..");
        nl(3);
    }

    // The console loses power with the rest: let it drain first.
    wait_consoleTx();
    storeSysSampFRAMVariables();
    fram_apf_store_all();
    console_off();

    HibernateIntClear(HibernateIntStatus(false));
    HibernateRTCTrimSet(kRtcTrimNone);
    HibernateRequest();

    // Still running: the hibernation request did not take.
    delay_msec(100);
    console_on();
    nl(3);
    uprintf("Hibernation error!  Possible cause: remove JP1 on VEXA board ");
    nl(3);
    error_store("Hibernation error.  Possible cause: remove JP1 on VEXA board.  \r\n");
    nl(3);
    uprintf("Calling SysCtrlReset...");
    nl(3);
    delay_msec(100);
    SysCtlReset();
}

uint32_t wake_handler(void) {
    SysCtlPeripheralEnable(SYSCTL_PERIPH_HIBERNATE);
    HibernateEnableExpClk(SysCtlClockGet());

    uint32_t wakeSource = WAKE_NOTSET;
    uint32_t status = 0;
    if (HibernateIsActive()) {
        status = HibernateIntStatus(false);
        HibernateIntClear(status);
        if (status & HIBERNATE_INT_PIN_WAKE) {
            wakeSource = WAKE_KEY;
        } else if (status & HIBERNATE_INT_RTC_MATCH_0) {
            wakeSource = WAKE_RTC;
        } else if ((status & (HIBERNATE_INT_VDDFAIL | HIBERNATE_INT_RESET_WAKE |
                              HIBERNATE_INT_GPIO_WAKE)) != 0 ||
                   (status & HIBERNATE_INT_WR_COMPLETE) == 0) {
            // Reset, supply failure or an unknown cause: never resume sampling on our own.
            sys_samp.state = IDLE;
            wakeSource = WAKE_NOTSET;
        } else {
            wakeSource = sys_samp.state == DEPLOYED ? WAKE_RTC : WAKE_NOTSET;
        }
        HibernateGPIORetentionDisable();
    }

    // Cold start or a wake by neither pin nor RTC: set the clock up again.
    if ((status & (HIBERNATE_INT_PIN_WAKE | HIBERNATE_INT_RTC_MATCH_0)) == 0) {
        HibernateClockConfig(0);
        HibernateRTCTrimSet(kRtcTrimNone);
        HibernateIntDisable(kIntsToDisable);
        delay_msec(200); // oscillator start-up
        HibernateRTCEnable();
    }
    return wakeSource;
}

void sleep_debug(void) {
    uint32_t status = HibernateIntStatus(false);
    HibernateIntClear(status);
    if ((status & HIBERNATE_INT_PIN_WAKE) == 0) {
        sys_samp.state = (status & HIBERNATE_INT_RTC_MATCH_0) ? DEPLOYED : IDLE;
    }
}
