// The stored records, the schedule, sleep and wake classification, called
// directly on the in-process simulated board.
#include <filesystem>

#include "console_bench.h"
#include "core/sleep.h"

namespace {

const uint32_t kTenOClock = 1709632800u; // 2024-03-05 10:00:00 UTC

class Core : public ConsoleBench {
  protected:
    void SetUp() override {
        ConsoleBench::SetUp();
        sys_data.baud_rate = 115200;
    }
    void TearDown() override {
        sim::knobs().on_hibernate = nullptr;
        sim::knobs().on_reset = nullptr;
    }
    // A word of the sampling record in FRAM.
    static uint32_t fram32(size_t off) {
        uint32_t v;
        std::memcpy(&v, sim::state().fram + 64 + off, 4);
        return v;
    }
    // Runs `f` (sleep(), deploy_start()); the hibernation request ends the
    // cycle as on the board.
    template <typename F> static void hibernates(F f) {
        sim::knobs().on_hibernate = [] { throw sim::CycleEnd{sim::EndReason::Hibernated}; };
        try {
            f();
            ADD_FAILURE() << "returned instead of hibernating";
        } catch (const sim::CycleEnd &e) {
            EXPECT_EQ(e.reason, sim::EndReason::Hibernated);
        }
    }
    static void sleep_hibernates(deploy_state s, uint32_t wakeTime) {
        hibernates([&] { sleep(s, wakeTime); });
    }
};

TEST_F(Core, DefaultsImage) {
    sys_data.baud_rate = 9600;
    sys_data.qa.adc24 = 77; // not a default: kept
    sys_data.spare[10] = 1.5f;
    init_sys_data_default();
    EXPECT_EQ(take(), "Baud rate is changed to default: 115200\r\n");

    // Where fields lie: static_asserts, scenario_spine_test; what they show: files_test.
    EXPECT_EQ(sys_data.baud_rate, 115200u);
    EXPECT_EQ(sys_data.qa.adc24, 77u);
    EXPECT_EQ(sys_data.spare[10], 1.5f);
    const uint8_t on[] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0, 1, 0, 0, 0, 1,
                          1, 1, 1, 1, 1, 1, 1, 1, 0, 5, 0, 0, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(sys_data.data_cfg, on, sizeof on), 0);

    // Already at the default rate: no notice.
    init_sys_data_default();
    EXPECT_EQ(take(), "");
}

// The checksum of uniform images; the plausibility check needs two errors;
// an out-of-range execution switch is cleared.
TEST_F(Core, ChecksumAndPlausibilityOfTheRecord) {
    std::memset(&sys_data, 0, sizeof sys_data);
    EXPECT_EQ(compute_sys_data_chksum(), 0u);
    std::memset(&sys_data, 0xFF, sizeof sys_data);
    EXPECT_EQ(compute_sys_data_chksum(), 344760u);
    struct Case {
        float lowBatt;
        uint32_t baud;
        uint32_t vrsiSps;
        bool reset;
    } cases[] = {
        {150.0f, 115200, 20, false}, // one error is tolerated
        {150.0f, 4800, 20, true},    {9.2f, 4800, 0, true},
        {9.2f, 115200, 41, false},   {9.2f, 9600, 1, false},
    };
    for (const Case &c : cases) {
        init_sys_data_default();
        sys_data.averaging_interval = 999; // back to 60 only by the defaults
        sys_data.low_batt_volt = c.lowBatt;
        sys_data.baud_rate = c.baud;
        sys_data.Vrsi_sps = c.vrsiSps;
        sys_data_error_check();
        EXPECT_EQ(sys_data.averaging_interval == 60, c.reset) << c.lowBatt << " " << c.baud;
    }
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 7;
    EXPECT_EQ(verifySysDataVariables(), 0);
    EXPECT_EQ(sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI], 0);
    sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI] = 2;
    EXPECT_EQ(verifySysDataVariables(), 1);
    EXPECT_EQ(sys_data.app_cfg[APPCFG_EXEC_SWITCHERONI], 2);
}

TEST_F(Core, VersionBannerOnlyForTheFirst28Bytes) {
    init_sys_data_default();
    take();
    sys_data.firmware_version[29] = 'x';
    eeprom_firmware_qa_check();
    EXPECT_EQ(take(), "");

    sys_data.firmware_version[16] = '4';
    eeprom_firmware_qa_check();
    // The banner's text is checked through the menus (scenario_spine_test).
    EXPECT_NE(take().find("ZEP4 123g revB, does not match firmware: Fenwa v5.0.3 ZEP3 123g "
                          "revB\r\n\r\n*  Run EEPROM data procedure:  \r\n"),
              std::string::npos);

    // An unterminated stored text is shown within its field only.
    std::memset(sys_data.firmware_version, 'A', sizeof sys_data.firmware_version);
    eeprom_firmware_qa_check();
    EXPECT_NE(take().find("Version: " + std::string(32, 'A') + ", does not"), std::string::npos);
}

TEST_F(Core, SamplingStateMarker) {
    sys_samp.initNum = 0;
    sys_samp.current_sample = 9;
    EXPECT_EQ(storeSysSampFRAMVariables(), 1u);
    EXPECT_EQ(take(), "FRAM sys_samp.init, Num is not 0x55AA55AA\r\n");
    EXPECT_EQ(fram32(12), 0u); // that store was skipped
    EXPECT_EQ(storeSysSampFRAMVariables(), 0u);
    EXPECT_EQ(fram32(12), 9u);

    // A record without its marker at start-up: defaults, pump counter kept.
    std::memset(sim::state().fram + 64, 0, 60);
    uint32_t pumpCnt = 1234, next = 777;
    std::memcpy(sim::state().fram + 64 + 48, &pumpCnt, 4);
    std::memcpy(sim::state().fram + 64 + 4, &next, 4);
    retrieveSysSampFRAMVariables();
    std::string out = take();
    EXPECT_EQ(out.rfind("FRAM sys_samp.init, Num is not 0x55AA55AA.  Defaults assigned\r\n", 0),
              0u);
    EXPECT_NE(out.find("APF Set Defaults Into FRAM\r\n"), std::string::npos);
    EXPECT_EQ(sys_samp.state, IDLE);
    EXPECT_EQ(sys_samp.nextWakeUp, 0u);
    EXPECT_EQ(sys_samp.pump1_cnt, 1234u);
    EXPECT_EQ(fram32(40), SYS_SAMP_INIT_NUM);
}

TEST_F(Core, AlignedAndUnalignedSchedule) {
    struct Case {
        bool aligned;
        uint32_t period;
        uint32_t now, planned, next; // seconds after 10:00:00 (planned 0: none)
    } cases[] = {
        {true, 600, 7 * 60 + 30, 0, 600}, // 10:07:30 -> 10:10:00
        {true, 600, 600, 0, 600},         // on a slot: kept
        {true, 600, 0, 0, 600},           // the hour start itself is never chosen
        {true, 1800, 3599, 0, 3600},      // 10:59:59 -> 11:00:00
        {true, 7200, 10, 0, 7200},        // a period longer than the hour
        {false, 60, 80, 60, 120},         // a wake-up 20 s late keeps the planned grid
        {true, 0, 5, 0, 5},               // no period must not hang
    };
    for (const Case &c : cases) {
        sys_data.sample_aligned = c.aligned;
        sys_data.sampling_period = c.period;
        sys_samp.nextWakeUp = c.planned != 0 ? kTenOClock + c.planned : 0;
        sim::set_rtc(kTenOClock + c.now);
        EXPECT_EQ(compute_nextWakeUp(), kTenOClock + c.next) << c.period << " " << c.now;
        EXPECT_EQ(sys_samp.nextWakeUp, kTenOClock + c.next);
    }
}

TEST_F(Core, SleepClampsTheWakeTime) {
    struct Case {
        int64_t ahead; // wake time relative to now
        uint32_t armed;
    } cases[] = {{0, 2}, {-100, 2}, {2, 2}, {3, 3}, {3600, 3600}, {3601, 2}};
    for (const Case &c : cases) {
        sim::set_rtc(kTenOClock);
        sleep_hibernates(DEPLOYED, (uint32_t)(kTenOClock + c.ahead));
        EXPECT_EQ(HibernateRTCMatchGet(0), kTenOClock + c.armed) << c.ahead;
        EXPECT_EQ(HibernateWakeGet(), HIBERNATE_WAKE_PIN | HIBERNATE_WAKE_RTC);
        EXPECT_EQ(sys_samp.state, DEPLOYED);
    }
    EXPECT_EQ(take(), ""); // normal output, no test mode: silent

    // Polled: pin wake only, no RTC match armed.
    HibernateRTCMatchSet(0, 0);
    sleep_hibernates(DEPLOYED, 0);
    EXPECT_EQ(HibernateWakeGet(), HIBERNATE_WAKE_PIN);
    EXPECT_EQ(HibernateRTCMatchGet(0), 0u);
    EXPECT_EQ(take(), "\r\n\r\nSleeping in polled mode..\r\n\r\n\r\n");

    // Idle in normal output: a single star.
    sleep_hibernates(IDLE, 0);
    EXPECT_EQ(take(), "*");
    EXPECT_EQ(HibernateWakeGet(), HIBERNATE_WAKE_PIN);
    EXPECT_EQ(fram32(0), 0u); // stored before the power goes

    sys_data.output = VERBOSE;
    sleep_hibernates(IDLE, 0);
    EXPECT_EQ(take(), "\r\n\r\nSleeping...*hit any key to wake\r\n\r\n\r\n");
    sim::set_rtc(kTenOClock);
    sleep_hibernates(DEPLOYED, kTenOClock + 60);
    EXPECT_EQ(take(), "\r\n\r\nSleeping until 03/05/24 10:01:00");
}

TEST_F(Core, DeploymentDialogueWithADelayedPumpAndTheCardOff) {
    init_sys_data_default();
    sys_data.sampling_period = 60;
    sys_data.pump1_ontime = 5;
    sys_data.app_cfg[APPCFG_MICROSD_ENABLE] = 0;
    sim::set_rtc(kTenOClock);
    take();
    // Test mode, a delay, in minutes (Enter: the default), 15; Enter keeps the note.
    sim::console_feed("y\ry\r\r15\r\r");
    hibernates(deploy_start);
    std::string out = take();
    scenario::expect_in(
        out, {"SBE pump will run and must be immersed at start time!\r\n Delayed start "
              "feature is disabled... Next Seawick release should have it, feedback on "
              "delay parm entry is requested. \r\n",
              "// MicroSD Logging:  \t0\r\n", "Pump test mode active\r\n", "Enter delay [0] min: ",
              "Pump start delay is 15 minutes, pump starts at 03/05/24 10:15:00\r\n",
              "Starting deployment...       Hit a key, then type 'stop' to end "
              "deployment.  Ctrl-X <Enter> to terminate pump cycle\r\n"});
    EXPECT_EQ(out.find("f_open error"), std::string::npos); // the card is off: never touched
    EXPECT_TRUE(std::filesystem::is_empty(sim::card_dir()));
    EXPECT_EQ(sys_data.test_mode, 1u);
    EXPECT_EQ(sys_samp.start_pump_cntdown, 900u);
    EXPECT_EQ(sys_data.start_pump_time, kTenOClock + 900);
    EXPECT_EQ(sys_data.deploy_time, kTenOClock + 1);
    EXPECT_EQ(sys_samp.state, DEPLOYED);
    EXPECT_EQ(sys_samp.nextWakeUp, kTenOClock);
    EXPECT_EQ(HibernateRTCMatchGet(0), kTenOClock + 2);
}

TEST_F(Core, WakeClassification) {
    struct Case {
        uint32_t status;
        deploy_state before;
        uint32_t source;
        deploy_state after;
        bool rtcSetUp;
        bool warm = true; // false: a cold start, the module was not running
    } cases[] = {
        {0x18, DEPLOYED, WAKE_KEY, DEPLOYED, false},
        {0x11, DEPLOYED, WAKE_RTC, DEPLOYED, false},
        {0x10, DEPLOYED, WAKE_RTC, DEPLOYED, true},
        {0x10, IDLE, WAKE_NOTSET, IDLE, true},
        {0x50, DEPLOYED, WAKE_NOTSET, IDLE, true},
        {0x90, DEPLOYED, WAKE_NOTSET, IDLE, true},
        {0x00, DEPLOYED, WAKE_NOTSET, IDLE, true},
        {0x00, DEPLOYED, WAKE_NOTSET, DEPLOYED, true, false},
    };
    for (const Case &c : cases) {
        sim::reset_board();
        sim::state().active_at_start = c.warm;
        sim::state().module_enabled = c.warm;
        sim::state().hib_status = c.status;
        sim::state().rtc_trim = 0;
        sys_samp.state = c.before;
        EXPECT_EQ(wake_handler(), c.source) << std::hex << c.status;
        EXPECT_EQ(sys_samp.state, c.after) << std::hex << c.status;
        EXPECT_EQ(sim::state().hib_status, 0u) << "status cleared";
        EXPECT_EQ(sim::state().rtc_trim == 0x7FFF, c.rtcSetUp) << std::hex << c.status;
        EXPECT_TRUE(!c.rtcSetUp || sim::state().rtc_enabled) << std::hex << c.status;
    }
}

// A host at a deployed instrument: commands are prefixes, "pumpon" is offered
// but refused, "ss" insists on "sl", and "stop" with trailing text ends it all.
TEST(CoreScenario, DeployedCommandLoop) {
    scenario::Board b;
    auto r = b.run(scenario::deploy_script(600) +
                       "10 x\n12 pumpon\\r\n13 TS\\r\n14 ss\\r\n15 xx\\r\n16 ss\\r\n17 sl\\r\n"
                       "30 x\n32 stopnow\\r\n",
                   200);
    scenario::expect_in(r.out, {"pumpon\r\n\rNAK\r\n", "TS\r\n\rNAK\r\n"}); // no case folding here
    EXPECT_NE(r.out.find("\r\nexpected sl, received xx"), std::string::npos);
    EXPECT_EQ(r.out.find("Enter command"), std::string::npos); // normal output: no prompt
    EXPECT_EQ(r.out.back(), '*');
    auto f = b.fram();
    EXPECT_EQ(scenario::u32(f, 64 + 0), 0u); // IDLE after "stopnow"
    // Deployed at 4 s: the first sample plans 4 + 600, the key wake that
    // resumed keeps that slot; "stop" leaves the plan alone.
    EXPECT_EQ(scenario::u32(f, 64 + 4), 4u + 600u);
}

} // namespace
