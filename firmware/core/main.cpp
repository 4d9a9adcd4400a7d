// Start-up and the main loop over IDLE and DEPLOYED; the main menu with its
// fall-back to sleep, the deployment dialogue, the deployed command loop and
// the next wake-up. Every wake-up is a reset, so nothing here survives a
// hibernation except what goes to sys_samp (FRAM) and sys_data (EEPROM).
// The command-line receiver itself is host/serial's; samples are measure/'s.
#include "core/main.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "core/calendar.h"
#include "board/board_util.h"
#include "board/i2c0.h"
#include "board/i2c_bme280.h"
#include "board/i2c_fram.h"
#include "board/i2c_pcal64xx.h"
#include "board/uartstdio.h"
#include "console/cal_coeff.h"
#include "console/menus.h"
#include "console/user_io.h"
#include "core/decimal.h"
#include "core/sleep.h"
#include "files/config.h"
#include "files/microsd.h"
#include "hibernate.h"
#include "host/apf_util.h"
#include "host/serial.h"
#include "host/serial_cmd_fxn.h"
#include "interrupt.h"
#include "isr.h"
#include "measure/pwm.h"
#include "measure/sample.h"
#include "sysctl.h"

int dbg_flag = 1;
unsigned int deployDelay = 30;
unsigned int databarFlg = 0;
unsigned int barfSampleTime = 5;
uint32_t microSD_flg = 0;

namespace {

const uint32_t kUartClock = 16000000u;
const uint32_t kPowerOnBaud = 115200u;
const uint32_t kCmdLineLen = 82u;   // 81 characters and the terminator
const uint32_t kSlWaitSeconds = 6u; // "ss" waits this long for its "sl"
const uint32_t kMainLoopTimeout = 100u;
const uint32_t kKeyWakeCmdTimeout = 5u;

bool console_baud_allowed(uint32_t baud) {
    return baud == 4800u || baud == 9600u || baud == 19200u || baud == 38400u || baud == 57600u;
}

bool starts_with(const char *line, const char *word, size_t n) {
    return strncmp(line, word, n) == 0;
}

void nl(int count) {
    for (int i = 0; i < count; i++) {
        prn_nl();
    }
}

bool verbose(void) {
    return sys_data.output == VERBOSE;
}

} // namespace

void init(void) {
    FPUEnable();
    FPULazyStackingEnable();
    SysCtlClockSet(SYSCTL_SYSDIV_4 | SYSCTL_USE_PLL | SYSCTL_OSC_MAIN | SYSCTL_XTAL_16MHZ);
    init_TM4C123GH6PM_64pin();

    SysTickPeriodSet(SysCtlClockGet() / 1000u);
    SysTickEnable();
    SysTickIntEnable();

    // Console first, so everything below can report.
    UARTStdioConfig(0, kPowerOnBaud, kUartClock);
    IntMasterEnable();

    i2c0_init();
    fram_init();
    bme280_init();
    pcal6416_init();

    retrieveSysDataVariables();
    verifySysDataVariables();
    if (console_baud_allowed(sys_data.baud_rate)) {
        wait_consoleTx();
        UARTStdioConfig(0, sys_data.baud_rate, kUartClock);
    }

    wdog_readMon();
    wdog_init();

    microSD_flg = 0;
    if (sys_data.app_cfg[APPCFG_MICROSD_ENABLE] != 0) {
        if (uSD_present()) {
            init_uSDCard();
            microSD_flg = 1;
        } else {
            uprintf("\r\nError: MicroSD card is not detected\r\n");
        }
    }

    init_zep();
    pump_var_init();
}

int main(void) {
    init();
    dev_init_apf_vars();

    led_green_on();
    led_red_on();
    led_red_off();

    dbg_flag = (int)sys_data.debug_flag;
    dbg_printf("\r\n***** BOARD_ZEP = 3  ZEP3 Tiva 123 + ZEP3 baseboard *****\r\n");

    uint32_t wakeSource = wake_handler();

    for (;;) {
        switch (sys_samp.state) {
        case IDLE:
            dbg_printf("\r\nMAIN: state = IDLE\r\n");
            break;
        case DEPLOYED:
            if (wakeSource == WAKE_KEY) {
                dbg_printf("\r\nMAIN: DEPLOYED, calling exec_command\r\n");
                uint32_t r = exec_command(kKeyWakeCmdTimeout);
                if (r == 0) {
                    sys_samp.state = IDLE;
                }
                if (r == 1) {
                    if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] == 0) {
                        dbg_printf("\r\nMAIN: calling deploy(DEPLOYED) after key command\r\n");
                        deploy(DEPLOYED, 1);
                    } else if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] == 2) {
                        databarf_loop();
                        sys_samp.state = IDLE;
                    }
                }
            }
            if (wakeSource == WAKE_RTC) {
                if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] == 0) {
                    dbg_printf("\r\nMAIN: calling deploy(DEPLOYED)\r\n");
                    deploy(DEPLOYED, 0);
                } else if (sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] == 2) {
                    databarf_loop();
                    sys_samp.state = IDLE;
                }
            }
            if (wakeSource == WAKE_NOTSET) {
                dbg_printf("\r\n(wakeSource == WAKE_NOTSET)\r\n");
                sys_samp.state = IDLE;
                storeSysDataVariables();
            }
            break;
        default:
            uprintf("ERROR in sys_samp.state = %u", (unsigned)sys_samp.state);
            sys_samp.state = IDLE;
            break;
        }

        m2m_statemachine_init();
        exec_main_loop(kMainLoopTimeout);

        if (sys_samp.state != IDLE) {
            deploy(DEPLOYED, 1);
        } else {
            sleep(IDLE, 0);
        }

        // Only reached when the hibernation request did not take.
        prn_nl();
        uprintf("life after switch");
        prn_nl();
    }
}

void exec_main_loop(uint32_t timeout) {
    apf_set_m2m_timeout();
    uint32_t last = HibernateRTCGet();
    for (;;) {
        wdog_pet();
        int32_t n = handle_m2m_comm();
        uint32_t now = HibernateRTCGet();
        if (n > 0) {
            last = now;
        } else if (n < 0) {
            break;
        } else {
            SysCtlSleep(); // nothing to do until the next byte or tick
        }
        if (now - last > timeout) {
            break;
        }
        // Data-barf: each sample also counts as activity, so the loop stays.
        if (databarFlg == 1 && now - last > barfSampleTime) {
            last = now;
            get_sample(1, 1);
        }
    }
}

void print_main_menu(void) {
    eeprom_firmware_qa_check();
    nl(3);
    uprintf("Main Menu -- %s -- Will sleep in %u seconds", FIRMWARE_VERSION, deployDelay);
    prn_nl();
    uprintf("1 -- Configure");
    prn_nl();
    uprintf("2 -- Test");
    prn_nl();
    uprintf("3 -- Sleep");
    prn_nl();
    uprintf("4 -- Deploy");
    prn_nl();
    uprintf("5 -- Files");
    prn_nl();
    uprintf("6 -- Commandline");
    prn_nl();
    uprintf("7 -- WendZone");
    prn_nl();
    uprintf("H -- Help");
    prn_nl();
    uprintf("Enter Selection: ");
}

void exec_main_menu(void) {
    UARTEchoSet(1);
    for (;;) {
        print_main_menu();
        UARTFlushRx();
        // The countdown runs until a selection is complete: a stray byte or
        // half a line left on the console must not keep the board awake for
        // good. Each byte typed gives the operator the whole time again.
        uint32_t deadline = HibernateRTCGet() + deployDelay;
        int typed = 0;
        while (key_m2m_ready() == 0) {
            if (UARTRxBytesAvail() != typed) {
                typed = UARTRxBytesAvail();
                deadline = HibernateRTCGet() + deployDelay;
            }
            if (HibernateRTCGet() >= deadline) {
                if (sys_samp.state != DEPLOYED) {
                    dbg_printf("\r\nexec_main_menu:***** SLEEP *****\r\n");
                    sleep(IDLE, 0);
                } else {
                    dbg_printf("\r\nEMM: DEPLOYED, calling deploy(DEPLOYED)\r\n");
                    deploy(DEPLOYED, 1);
                }
            }
            SysCtlSleep();
        }

        switch (get_key_m2m()) {
        case '1':
            configuration_menu();
            break;
        case '2':
            test_menu();
            break;
        case '3':
            sleep(IDLE, 0);
            break;
        case '4':
            deploy_start();
            break;
        case '5':
            if (microSD_flg == 1) {
                viewFiles();
            } else {
                prn_nl();
                uprintf("MicroSD card not detected, file commands are not available");
                prn_nl();
            }
            break;
        case '6':
        case 'C':
        case 'c':
            return;
        case '7':
            wend_zone_menu();
            break;
        case 'H':
        case 'h':
            help_menu();
            break;
        default:
            break;
        }
    }
}

void deploy_start(void) {
    uint32_t now = HibernateRTCGet();
    sys_samp.nextWakeUp = now;
    sys_data.deploy_time = now + 1;
    pump_and_sample_start();

    if (sys_data.pump1_ontime != 0) {
        uprintf("SBE pump will run and must be immersed at start time!");
        prn_nl();
        uprintf(" Delayed start feature is disabled... Next Seawick release should have it, "
                "feedback on delay parm entry is requested. ");
        prn_nl();

        sys_data.test_mode = 0;
        if (yesOrNoMenuChoice(
                "    Pump Test Mode ([Y] allows testing without activating pump)? (Y/N) [N]? ",
                0)) {
            uprintf("Pump test mode active");
            prn_nl();
            sys_data.test_mode = 1;
        }

        sys_data.start_pump_time = 0;
        sys_samp.start_pump_cntdown = 0;
        if (yesOrNoMenuChoice("    Enter pump delayed start? (Y/N) [N]? ", 0)) {
            if (yesOrNoMenuChoice(
                    "    Pump start delay entry in Minutes (Y) or DateTime (N)? (Y/N) [Y]? ", 1)) {
                char entry[6]; // five digits
                uprintf("Enter delay [%u] min: ", 0u);
                if (getUserInput(entry, sizeof entry) > 0) {
                    const char *end = entry;
                    uint32_t minutes = dec_u32(entry, &end, nullptr);
                    if (end != entry) {
                        sys_samp.start_pump_cntdown = minutes * 60u;
                        sys_data.start_pump_time = now + minutes * 60u;
                        uprintf("Pump start delay is %d minutes, pump starts at ", (int)minutes);
                        print_time_t_Time((time_t)sys_data.start_pump_time);
                        prn_nl();
                    }
                }
            } else {
                time_t t = getDateAndTime();
                if (t != 0) {
                    uprintf("Pump will start at: ");
                    print_time_t_Time(t);
                    uprintf(sys_data.GMT ? " GMT" : " Local");
                    prn_nl();
                    sys_data.start_pump_time = (uint32_t)t;
                    sys_samp.start_pump_cntdown = (uint32_t)t - now;
                    uprintf("Pump delay %d minutes", (int)(sys_samp.start_pump_cntdown / 60u));
                    prn_nl();
                }
            }
        }
    }

    enter_deployment_note(30);
    // The dialogue set the start time and the pump choices: keep them past
    // the first hibernation.
    storeSysDataVariables();

    sys_samp.current_sample = 0;
    sys_samp.state = DEPLOYED;
    if (sys_data.sampling_period == 0) {
        // Polled: sleep idle, a host wakes us and asks with "ts".
        uprintf("Deployed in polled mode, space to wake, then ts ...");
        prn_nl();
        sys_samp.state = IDLE;
    }

    if (print_write_metadata_header(now, 1, 1) != 0) {
        sys_samp.state = IDLE;
        storeSysSampFRAMVariables();
        uprintf("File system error, check SD Card, Aborting deployment, sleeping in IDLE state");
        prn_nl();
        sleep(IDLE, 0);
        return;
    }

    uprintf("Starting deployment...       Hit a key, then type 'stop' to end deployment.");
    if (sys_data.pump1_ontime != 0) {
        uprintf("  Ctrl-X <Enter> to terminate pump cycle");
    }
    prn_nl();
    print_write_data_header(1, 1);
    wait_consoleTx();
    storeSysSampFRAMVariables();
    if (sys_samp.state == DEPLOYED) {
        // "now" lies in the past by then: sleep moves it to now + 2 s.
        sleep(DEPLOYED, sys_samp.nextWakeUp);
    } else {
        sleep(IDLE, 0);
    }
}

void deploy(deploy_state state, uint32_t skipSample) {
    if (state != DEPLOYED) {
        nl(2);
        uprintf("Deploy() Should NOT be IDLE, check arg error");
        nl(2);
        wait_consoleTx();
        sleep(IDLE, 0);
        return;
    }
    if (skipSample == 0) {
        pump_and_sample(1, 1);
        compute_nextWakeUp();
    } else if (sys_samp.nextWakeUp <= HibernateRTCGet()) {
        compute_nextWakeUp();
    }
    // A wake that took no sample (key, command loop or menu time-out) goes
    // back to the slot still ahead: stepping past it would put the plan a
    // period further out each time, and beyond an hour sleep wakes the board
    // every two seconds from then on.
    sleep(DEPLOYED, sys_samp.nextWakeUp);
}

uint32_t compute_nextWakeUp(void) {
    uint32_t period = sys_data.sampling_period;
    uint32_t t;
    if (sys_data.sample_aligned != 0) {
        uint32_t now = HibernateRTCGet();
        uint32_t hourStart = now / 3600u * 3600u;
        if (period == 0) {
            // No grid to step along; sleep pulls this to now + 2 s.
            t = now;
        } else {
            // First slot hourStart + k * period (k >= 1) not earlier than now.
            uint32_t into = now - hourStart;
            uint32_t k = into == 0 ? 1u : into / period + (into % period != 0 ? 1u : 0u);
            t = (uint32_t)(hourStart + (uint64_t)k * period);
        }
    } else {
        // From the previous plan, not from now: a late wake does not shift the grid.
        t = sys_samp.nextWakeUp + period;
    }
    sys_samp.nextWakeUp = t;
    return t;
}

uint32_t exec_command(uint32_t timeout) {
    if (sys_data.app_cfg[APPCFG_DEPLOY_UARTECHO] == 0) {
        UARTEchoSet(0);
    }
    char cmd[kCmdLineLen];
    for (;;) {
        if (verbose() || sys_data.test_mode != 0) {
            prn_nl();
            uprintf("Enter command (ts, ss, gh, gm, gc, gdata, pumpon, pumpoff, stop): ");
        }
        UARTFlushRx();
        if (getUserInputTimeLimit(cmd, sizeof cmd, timeout) < 0) {
            if (verbose()) {
                nl(2);
                uprintf("No command, resuming...");
            }
            return 1;
        }

        if (starts_with(cmd, "gdata", 5) && sys_data.app_cfg[APPCFG_MICROSD_ENABLE] == 1) {
            get_data();
        } else if (starts_with(cmd, "ts", 2)) {
            pump_and_sample(1, 1);
            return 1;
        } else if (starts_with(cmd, "ss", 2)) {
            UARTFlushRx();
            pump_and_sample(0, 1);
            char reply[kCmdLineLen];
            if (getUserInputTimeLimit(reply, sizeof reply, kSlWaitSeconds) < 0) {
                if (verbose()) {
                    nl(2);
                    uprintf("No command, resuming deployment...");
                }
                return 1;
            }
            if (starts_with(reply, "sl", 2)) {
                print_sampBuf();
                wait_consoleTx();
                return 1;
            }
            prn_nl();
            uprintf("expected sl, received %s", reply);
        } else if (starts_with(cmd, "gc", 2)) {
            get_pH_sensor_cal_coeff();
            return 1;
        } else if (starts_with(cmd, "ec", 2)) {
            export_pH_sensor_cal_coeff();
            return 1;
        } else if (starts_with(cmd, "gh", 2)) {
            get_header();
            return 1;
        } else if (starts_with(cmd, "gm", 2)) {
            print_metadata_header(HibernateRTCGet());
            return 1;
        } else if (starts_with(cmd, "stop", 4) || starts_with(cmd, "exit", 4) ||
                   starts_with(cmd, "quit", 4)) {
            sys_samp.state = IDLE;
            UARTEchoSet(1);
            storeSysSampFRAMVariables();
            return 0;
        } else if (starts_with(cmd, "dump", 4)) {
            state_dump();
        } else if (starts_with(cmd, "go", 2) || starts_with(cmd, "resume", 6)) {
            return 1;
        } else {
            // "pumpon" and "pumpoff" are offered in the prompt but not served:
            // they get the same answer as an unknown word.
            if (verbose()) {
                prn_nl();
                uprintf("Invalid command");
            }
            uprintf("NAK");
            prn_nl();
        }
        dbg_printf("\r\nbottom of command loop\r\n");
    }
}

void state_dump(void) {
    dbg_flag = 1;
    dbg_printf("\r\n\r\n");
    dbg_printf(sys_samp.state == DEPLOYED ? "DEPLOYED\r\n" : "IDLE\r\n");
    dbg_printf("now %lu, next wake %lu, sampling period %lu\r\n", (unsigned long)HibernateRTCGet(),
               (unsigned long)sys_samp.nextWakeUp, (unsigned long)sys_data.sampling_period);
}

uint32_t print_sampBuf(void) {
    const void *end = memchr(prnBuf, '\0', PRN_BUF_SIZE);
    size_t len = end ? (size_t)((const char *)end - prnBuf) : PRN_BUF_SIZE;
    return (uint32_t)UARTwrite(prnBuf, (uint32_t)len);
}

void databarf_loop(void) {
    for (;;) {
        if (UARTRxBytesAvail() == 0) {
            get_sample(1, 1);
            continue;
        }
        if (exec_command(kKeyWakeCmdTimeout) == 0) {
            break;
        }
    }
    sys_samp.state = IDLE;
}

void faultISR_handler(void) {
    nl(2);
    // Straight to the UART: no formatting frame on top of whatever faulted.
    static const char kCrash[] =
        "Seawick Crash!!!, entering FaultISR infinte loop.  Hit Reset and report problem";
    UARTwrite(kCrash, sizeof kCrash - 1u);
    nl(2);
    wait_consoleTx();
    delay_msec(1000);
    for (;;) {
        SysCtlSleep(); // the watchdog, when armed, resets the board
    }
}

void new_exec_main(uint32_t key) {
    switch (key) {
    case '1':
        configuration_menu();
        break;
    case '2':
        test_menu();
        break;
    case '3':
        sleep(IDLE, 0);
        break;
    case '4':
        deploy_start();
        break;
    case '5':
        break;
    case '8':
        exec_command(5);
        break;
    case 'H':
        help_menu();
        break;
    default:
        print_main_menu();
        break;
    }
}
