// The simulated board itself: clock, UART, FRAM, card, power cycles through the
// supervisor, the state folder across runs and the pty link.
#include <gtest/gtest.h>

#include <signal.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ff.h"
#include "hibernate.h"
#include "host_link.h"
#include "i2c.h"
#include "interrupt.h"
#include "scenario.h"
#include "sim.h"
#include "sysctl.h"
#include "typist.h"
#include "uart.h"

namespace {

namespace fs = std::filesystem;
using scenario::slurp;

int g_ticks = 0;
void count_tick() {
    ++g_ticks;
}

class SimBoard : public ::testing::Test {
  protected:
    void SetUp() override {
        sim::reset_board();
        g_ticks = 0;
    }
    void TearDown() override { sim::reset_board(); }
};

std::string g_rx;
void uart3_test_isr() {
    uint32_t st = UARTIntStatus(UART3_BASE, true);
    UARTIntClear(UART3_BASE, st);
    while (UARTCharsAvail(UART3_BASE)) {
        g_rx += char(UARTCharGetNonBlocking(UART3_BASE));
    }
}

void uart_on(uint32_t base, uint32_t baud) {
    UARTClockSourceSet(base, UART_CLOCK_PIOSC);
    UARTConfigSetExpClk(base, 16000000, baud, UART_CONFIG_WLEN_8);
    UARTFIFOLevelSet(base, UART_FIFO_TX1_8, UART_FIFO_RX1_8);
    UARTEnable(base);
}

} // namespace

TEST_F(SimBoard, SysTickRunsEveryMillisecondAndWaitsWhileMasked) {
    sim::set_irq_handler(FAULT_SYSTICK, count_tick);
    SysTickPeriodSet(50000);
    SysTickEnable();
    SysTickIntEnable();
    sim::advance_ms(100);
    EXPECT_EQ(g_ticks, 100);
    SysCtlDelay(16667 * 10); // 10 ms of busy waiting: the ticks still come
    EXPECT_EQ(g_ticks, 110);
    EXPECT_NEAR(sim::now_seconds(), 0.110, 0.0001);

    for (int i = 0; i < 3; ++i) {
        uint64_t before = sim::now_cycles();
        SysCtlSleep();
        EXPECT_LE(sim::now_cycles() - before, sim::kCyclesPerMs + 100)
            << "idle returns within a millisecond";
    }
    EXPECT_GE(g_ticks, 111);
    EXPECT_LE(g_ticks, 113);
    g_ticks = 0;

    EXPECT_FALSE(IntMasterDisable()) << "was enabled";
    EXPECT_TRUE(IntMasterDisable()) << "was disabled";
    sim::advance_ms(5);
    EXPECT_EQ(g_ticks, 0) << "nothing is taken while masked";
    EXPECT_TRUE(IntMasterEnable());
    EXPECT_EQ(g_ticks, 1) << "the pending tick is taken, once, at once";
    EXPECT_GE(sim::irq_count(FAULT_SYSTICK), 112u);
}

TEST_F(SimBoard, UartPacesBothDirectionsAndRaisesItsInterrupts) {
    auto line = std::make_shared<sim::Typist>(std::vector<sim::Typist::Step>{}, 5, 9600);
    sim::attach_serial(UART3_BASE, line);
    uart_on(UART3_BASE, 9600);
    const uint64_t byte = sim::kCpuHz * 10 / 9600;

    // transmit: one byte shifting plus a 16-byte FIFO, one byte per byte time
    int queued = 0;
    while (UARTCharPutNonBlocking(UART3_BASE, uint8_t('a' + queued))) {
        ++queued;
    }
    EXPECT_EQ(queued, 17);
    EXPECT_TRUE(UARTBusy(UART3_BASE));
    EXPECT_NE(UARTIntStatus(UART3_BASE, false) & UART_INT_TX, 0u)
        << "a byte left an almost empty FIFO";
    UARTIntClear(UART3_BASE, UART_INT_TX);
    sim::advance_cycles(byte * 16 + byte / 2);
    EXPECT_EQ(line->seen, "abcdefghijklmnop");
    sim::advance_ms(30);
    EXPECT_EQ(line->seen, "abcdefghijklmnopq");
    EXPECT_FALSE(UARTBusy(UART3_BASE));
    EXPECT_NE(UARTIntStatus(UART3_BASE, false) & UART_INT_TX, 0u);

    // receive: interrupt-driven, paced at the line rate
    sim::set_irq_handler(INT_UART3, uart3_test_isr);
    UARTIntEnable(UART3_BASE, UART_INT_RX | UART_INT_RT);
    IntEnable(INT_UART3);
    line->type("hello");
    sim::advance_cycles(byte * 2 + byte / 2);
    EXPECT_EQ(g_rx, "he");
    sim::advance_ms(10);
    EXPECT_EQ(g_rx, "hello");
    EXPECT_GE(sim::irq_count(INT_UART3), 5u);
    // a host answering each line the board ends, then giving up after a quiet spell
    line->reply_per_line({"ok"});
    line->then_after_quiet("!", 5);
    UARTCharPutNonBlocking(UART3_BASE, '\r');
    sim::advance_ms(6);
    EXPECT_EQ(g_rx, "hellook") << "the last text waits for the quiet spell";
    sim::advance_ms(10);
    EXPECT_EQ(g_rx, "hellook!");
    EXPECT_TRUE(line->done());

    // a masked port keeps 16 bytes and loses the rest; a disabled one hears nothing
    IntDisable(INT_UART3);
    line->type(std::string(20, 'x'));
    sim::advance_ms(30);
    int kept = 0;
    while (UARTCharGetNonBlocking(UART3_BASE) >= 0) {
        ++kept;
    }
    EXPECT_EQ(kept, 16);
    UARTDisable(UART3_BASE);
    line->type("lost");
    sim::advance_ms(10);
    UARTEnable(UART3_BASE);
    EXPECT_FALSE(UARTCharsAvail(UART3_BASE));
}

TEST_F(SimBoard, FramAnswersWritesAndRepeatedStartReads) {
    auto step = [](uint32_t cmd) {
        I2CMasterControl(I2C0_BASE, cmd);
        int polls = 0;
        while (I2CMasterBusy(I2C0_BASE)) {
            ++polls;
        }
        EXPECT_EQ(polls, 1) << cmd;
        return I2CMasterErr(I2C0_BASE);
    };
    // sends `bytes` to 0x50 from a start, ending with a stop when `stop`
    auto send = [&](std::vector<uint8_t> bytes, bool stop) {
        I2CMasterSlaveAddrSet(I2C0_BASE, 0x50, false);
        for (size_t i = 0; i < bytes.size(); ++i) {
            I2CMasterDataPut(I2C0_BASE, bytes[i]);
            EXPECT_EQ(step(i == 0                          ? I2C_MASTER_CMD_BURST_SEND_START
                           : i + 1 == bytes.size() && stop ? I2C_MASTER_CMD_BURST_SEND_FINISH
                                                           : I2C_MASTER_CMD_BURST_SEND_CONT),
                      I2C_MASTER_ERR_NONE);
        }
    };
    I2CMasterInitExpClk(I2C0_BASE, 50000000, false);
    sim::i2c_log_clear();
    uint64_t t0 = sim::now_cycles();
    send({0x12, 0x34, 0xAA, 0xBB, 0xCC}, true);
    // about 9 bit times at 100 kHz per byte, plus the address
    EXPECT_NEAR(double(sim::now_cycles() - t0) / sim::kCpuHz, 6 * 9 / 100e3, 80e-6);
    EXPECT_EQ(sim::state().fram[0x1234], 0xAA);
    EXPECT_EQ(sim::state().fram[0x1236], 0xCC);

    send({0x12, 0x34}, false);
    I2CMasterSlaveAddrSet(I2C0_BASE, 0x50, true);
    std::string got;
    for (uint32_t cmd : {I2C_MASTER_CMD_BURST_RECEIVE_START, I2C_MASTER_CMD_BURST_RECEIVE_CONT,
                         I2C_MASTER_CMD_BURST_RECEIVE_FINISH}) {
        step(cmd);
        got += char(I2CMasterDataGet(I2C0_BASE));
    }
    EXPECT_EQ(got, "\xAA\xBB\xCC");
    EXPECT_EQ(sim::i2c_log_text(), "[50 W] 12 34 AA BB CC P [50 W] 12 34 [50 R] AA BB CC P");

    // nobody at 0x51
    sim::i2c_log_clear();
    I2CMasterSlaveAddrSet(I2C0_BASE, 0x51, true);
    EXPECT_EQ(step(I2C_MASTER_CMD_SINGLE_RECEIVE), I2C_MASTER_ERR_ADDR_ACK);
    EXPECT_EQ(I2CMasterDataGet(I2C0_BASE), 0xFFu);
    EXPECT_EQ(sim::i2c_log_text(), "[51 R NACK]");
    EXPECT_FALSE(I2CMasterBusBusy(I2C0_BASE));
}

TEST_F(SimBoard, CardKeepsShortNamesAndTheFatOpenModes) {
    FATFS vol;
    FIL f;
    UINT n = 0;
    EXPECT_EQ(f_open(&f, "X.TXT", FA_READ), FR_NOT_ENABLED) << "nothing mounted yet";
    ASSERT_EQ(f_mount(&vol, "", 1), FR_OK);
    EXPECT_EQ(vol.csize, 64);

    struct {
        const char *path;
        FRESULT open; // FA_WRITE | FA_CREATE_ALWAYS
    } names[] = {
        {"log.txt", FR_OK},
        {"0:/DATA1.CSV", FR_OK},
        {"/NOEXT", FR_OK},
        {"toolongname.txt", FR_INVALID_NAME},
        {"a.text", FR_INVALID_NAME},
        {"a.b.c", FR_INVALID_NAME},
        {"bad*.txt", FR_INVALID_NAME},
        {"", FR_INVALID_NAME},
        {"1:X.TXT", FR_INVALID_DRIVE},
        {"NODIR/X.TXT", FR_NO_PATH},
    };
    for (auto &c : names) {
        FRESULT r = f_open(&f, c.path, FA_WRITE | FA_CREATE_ALWAYS);
        EXPECT_EQ(r, c.open) << c.path;
        if (r == FR_OK) {
            f_close(&f);
        }
    }
    EXPECT_TRUE(fs::exists(sim::card_dir() + "/LOG.TXT")) << "upper case on the card";
    EXPECT_TRUE(fs::exists(sim::card_dir() + "/DATA1.CSV"));

    sim::set_rtc(1704067200 + 3661); // 2024-01-01 01:01:01
    ASSERT_EQ(f_open(&f, "Log.Txt", FA_WRITE | FA_OPEN_EXISTING), FR_OK) << "any case finds it";
    ASSERT_EQ(f_write(&f, "hello\n", 6, &n), FR_OK);
    EXPECT_EQ(n, 6u);
    EXPECT_EQ(f_read(&f, nullptr, 1, &n), FR_DENIED) << "opened without FA_READ";
    f_close(&f);
    FILINFO fi;
    ASSERT_EQ(f_stat("LOG.TXT", &fi), FR_OK);
    EXPECT_EQ(fi.fsize, 6u);
    EXPECT_STREQ(fi.fname, "LOG.TXT");
    EXPECT_EQ(fi.fattrib, AM_ARC);
    EXPECT_EQ(fi.fdate, ((2024 - 1980) << 9) | (1 << 5) | 1);
    EXPECT_EQ(fi.ftime, (1 << 11) | (1 << 5) | 0);

    struct {
        BYTE mode;
        FRESULT r;
        DWORD size; // after opening
    } modes[] = {
        {FA_READ, FR_OK, 6},
        {FA_READ | FA_WRITE | FA_OPEN_ALWAYS, FR_OK, 6},
        {FA_WRITE | FA_CREATE_NEW, FR_EXIST, 0},
        {FA_WRITE | FA_CREATE_ALWAYS, FR_OK, 0},
    };
    for (auto &m : modes) {
        FRESULT r = f_open(&f, "LOG.TXT", m.mode);
        EXPECT_EQ(r, m.r) << int(m.mode);
        if (r == FR_OK) {
            EXPECT_EQ(f_size(&f), m.size) << int(m.mode);
            f_close(&f);
        }
    }
    EXPECT_EQ(f_open(&f, "MISSING.TXT", FA_READ), FR_NO_FILE);
    EXPECT_EQ(f_open(&f, "NEW.TXT", FA_WRITE | FA_OPEN_ALWAYS), FR_OK);
    f_close(&f);
    EXPECT_EQ(f_mkdir("SUB"), FR_OK);
    EXPECT_EQ(f_rename("NEW.TXT", "SUB/MOVED.TXT"), FR_OK);
    DIR d;
    ASSERT_EQ(f_opendir(&d, "/SUB"), FR_OK);
    ASSERT_EQ(f_readdir(&d, &fi), FR_OK);
    EXPECT_STREQ(fi.fname, "MOVED.TXT");
    ASSERT_EQ(f_readdir(&d, &fi), FR_OK);
    EXPECT_EQ(fi.fname[0], 0);
    EXPECT_EQ(f_unlink("SUB"), FR_DENIED) << "not empty";

    // a full card takes what fits in the file's last cluster, then nothing
    sim::state().card_full = true;
    ASSERT_EQ(f_open(&f, "LOG.TXT", FA_WRITE | FA_OPEN_ALWAYS), FR_OK);
    std::string block(40000, 'z');
    ASSERT_EQ(f_write(&f, block.data(), UINT(block.size()), &n), FR_OK);
    EXPECT_EQ(n, 0u) << "an empty file owns no cluster";
    f_close(&f);
    DWORD free_clusters = 1;
    FATFS *fsp = nullptr;
    EXPECT_EQ(f_getfree("", &free_clusters, &fsp), FR_OK);
    EXPECT_EQ(free_clusters, 0u);
    sim::state().card_full = false;

    sim::state().card_absent = true;
    EXPECT_EQ(f_mount(&vol, "", 1), FR_NOT_READY);
    EXPECT_EQ(f_stat("LOG.TXT", &fi), FR_NOT_READY);
    sim::state().card_absent = false;
    sim::state().card_error = true;
    EXPECT_EQ(f_open(&f, "LOG.TXT", FA_READ), FR_DISK_ERR);
}

TEST(SimScript, TimesAndEscapes) {
    std::vector<sim::ScriptByte> b;
    std::string err;
    ASSERT_TRUE(
        sim::parse_script("# comment\n\n12.5 period 20\\r\n1 a\\x41\\\\\\t\\n\n2\n", b, err))
        << err;
    std::string text;
    for (auto &x : b) {
        text += char(x.byte);
    }
    EXPECT_EQ(text, "period 20\ra"
                    "A\\\t\n");
    EXPECT_EQ(b.front().at, 625000000u);
    EXPECT_EQ(b.back().at, 50000000u);
    EXPECT_FALSE(sim::parse_script("x text\n", b, err));
    EXPECT_FALSE(sim::parse_script("3text\n", b, err));
}

// ---- power cycles through the supervisor -------------------------------------

namespace {

void say(const std::string &s) {
    uart_on(UART0_BASE, 115200);
    for (char c : s) {
        while (!UARTCharPutNonBlocking(UART0_BASE, uint8_t(c))) {
            SysCtlSleep();
        }
    }
    while (UARTBusy(UART0_BASE)) {
        SysCtlSleep();
    }
}

int g_boots = 0; // RAM: back to its image value at every power cycle

// Reports how it woke, then sleeps ten seconds (pin or RTC wake).
void wake_reporter() {
    ++g_boots;
    uint32_t active = HibernateIsActive();
    HibernateEnableExpClk(SysCtlClockGet());
    uint32_t st = HibernateIntStatus(false);
    HibernateIntClear(st);
    char line[80];
    std::snprintf(line, sizeof line, "boot %d active %u status %02x rtc %u\n", g_boots,
                  unsigned(active), unsigned(st), unsigned(HibernateRTCGet()));
    say(line);
    HibernateRTCMatchSet(0, HibernateRTCGet() + 10);
    HibernateWakeSet(HIBERNATE_WAKE_PIN | HIBERNATE_WAKE_RTC);
    HibernateRequest();
    say("hibernation failed\n");
    SysCtlReset();
}

void crasher() {
    say("about to fail\n");
    raise(SIGSEGV);
}

} // namespace

TEST(SimSupervisor, HibernationWakesResetsAndCrashesAcrossRuns) {
    scenario::Board b;
    sim::Options o;
    o.state_dir = b.dir();
    o.entry = wake_reporter;
    o.blank_eeprom = true;
    o.rtc = 1000;
    o.script = "25 k\n"; // a key at 25 s: lost, but it wakes the board
    o.for_seconds = 40;
    sim::RunResult r = sim::run(o);
    EXPECT_EQ(r.exit_code, 0) << r.messages;
    EXPECT_EQ(r.output, "boot 1 active 0 status 00 rtc 1000\n"
                        "boot 1 active 1 status 11 rtc 1010\n"
                        "boot 1 active 1 status 11 rtc 1020\n"
                        "boot 1 active 1 status 18 rtc 1025\n"
                        "boot 1 active 1 status 11 rtc 1035\n");
    EXPECT_EQ(r.cycles, 5);
    EXPECT_EQ(r.stop, "time up");
    EXPECT_EQ(r.power, "hibernating");
    EXPECT_EQ(r.rtc, 1040u);
    for (auto e : r.ends) {
        EXPECT_EQ(e, sim::EndReason::Hibernated);
    }
    scenario::expect_in(slurp(b.dir() + "/board.txt"), {"power = hibernating"});
    EXPECT_EQ(b.eeprom().size(), 4096u);

    // the next run finds it asleep: no time passed, it wakes at its match
    o.rtc = -1;
    o.script.clear();
    o.for_seconds = 6;
    r = sim::run(o);
    EXPECT_EQ(r.output, "boot 1 active 1 status 11 rtc 1045\n");
    EXPECT_EQ(r.rtc, 1046u);

    // with hibernation failing, the code's own reset follows: a warm start
    o.hib_fail = true;
    o.script = "0.1 k\n";
    o.for_seconds = 0.5;
    r = sim::run(o);
    EXPECT_EQ(r.output.rfind("boot 1 active 1 status 18 rtc 1046\nhibernation failed\n"
                             "boot 1 active 1 status 00 rtc 1046\nhibernation failed\n",
                             0),
              0u)
        << r.output;
    ASSERT_GE(r.ends.size(), 2u);
    EXPECT_EQ(r.ends[0], sim::EndReason::Reset);
    EXPECT_EQ(r.stop, "time up");

    // a crashed power cycle ends the run with an error
    o.entry = crasher;
    r = sim::run(o);
    EXPECT_TRUE(r.crashed);
    EXPECT_NE(r.exit_code, 0);
    EXPECT_EQ(r.output, "about to fail\n");
    EXPECT_NE(r.messages.find("crashed"), std::string::npos) << r.messages;
}

// ---- the state folder across runs ---------------------------------------------

namespace {

// Sample lines numbered 0, 1, 2... 20 s apart from the second on; after a power
// cut (`cut`) the sample in flight may come again, once. Returns the count.
size_t check_grid(const scenario::Board &b, bool cut = false) {
    std::istringstream in(b.cardFile("NONAME.TXT"));
    size_t n = 0, repeats = 0;
    long last = -1, lastNum = -1;
    for (std::string l; std::getline(in, l);) {
        unsigned num, mo, d, y, h, mi, sec;
        if (std::sscanf(l.c_str(), "#%u\t%u/%u/%u %u:%u:%u", &num, &mo, &d, &y, &h, &mi, &sec) !=
            7) {
            continue;
        }
        long t = long(h) * 3600 + mi * 60 + sec;
        repeats += cut && long(num) == lastNum;
        EXPECT_EQ(num, n - repeats) << l;
        if (n >= 2 && !cut) {
            EXPECT_EQ(t - last, 20) << l;
        }
        last = t;
        lastNum = num;
        ++n;
    }
    EXPECT_LE(repeats, 1u);
    return n;
}

// A long fast run ended by `sig` once it wrote `more` samples: its exit status.
int interrupted_run(const scenario::Board &b, size_t more, int sig) {
    size_t n = check_grid(b);
    pid_t pid = scenario::start_sim({"--state", b.dir(), "--fast", "--for", "1000000"});
    for (int i = 0; i < 600 && check_grid(b) < n + more; ++i) {
        usleep(50000);
    }
    EXPECT_GE(check_grid(b), n + more);
    kill(pid, sig);
    return scenario::finish(pid);
}

} // namespace

TEST(SimStateFolder, AStoppedDeploymentResumesOnItsGrid) {
    // --for ends the run in the middle of the second sample: the board runs
    // on to its hibernation, the next run goes on from there.
    scenario::Board b;
    auto r = b.run(scenario::deploy_script(20), 24.5,
                   {"--result", b.dir() + "/../r.txt", "--battery-mAh", "1000"});
    scenario::expect_in(r.err, {"the deployed board runs on to its next hibernation"});
    std::string summary = slurp(b.dir() + "/../r.txt");
    EXPECT_EQ(summary.substr(0, summary.find("energy_")), // the energy account's keys follow
              "seconds = 26.481157\npower_cycles = 3\nsamples = 2\nstop = time up\n"
              "board = deployed\npower = hibernating\nends = hibernated 3\ncrashed = 0\n"
              "rtc = 26\nexit = 0\n");
    // and the energy account of the deployment
    scenario::expect_in(summary, {"\nenergy_samples = 2\n", "\nenergy_on_iso_s = "});
    auto key = [&](const std::string &k) {
        size_t at = summary.find("\n" + k + " = ");
        return at == std::string::npos ? -1.0 : std::stod(summary.substr(at + k.size() + 4));
    };
    EXPECT_GT(key("energy_mAh_per_day"), 0);
    EXPECT_NEAR(key("energy_days"), 1000 / key("energy_mAh_per_day"), 0.01); // the battery given
    b.run("", 70);
    EXPECT_EQ(check_grid(b), 5u);

    // SIGTERM at whatever instant of a long fast run: the same.
    scenario::Board c;
    c.run(scenario::deploy_script(20), 10);
    EXPECT_EQ(interrupted_run(c, 2, SIGTERM), 0);
    scenario::expect_in(slurp(c.dir() + "/board.txt"), {"power = hibernating"});
    size_t before = check_grid(c);
    c.run("", 100);
    EXPECT_EQ(check_grid(c), before + 5);

    // The batteries out and in again: the hibernation module's state is gone
    // and the board starts idle, its settings kept.
    fs::remove(c.dir() + "/board.txt");
    auto r2 = c.run("1 getperiod\\r\n", 5);
    scenario::expect_in(r2.out, {"getperiod\r\n20\r\n>"});
    EXPECT_EQ(scenario::u32(c.fram(), 64 + 0), 0u); // IDLE
}

TEST(SimStateFolder, ACutKeepsWhatTheBoardWroteAndTheDeploymentGoesOn) {
    scenario::Board b;
    b.run(scenario::deploy_script(20), 10);
    // the second sample starts at 14 s of this run: a cut half a second in
    b.run("", 30, {"--cut-power-at", "14.5", "--result", b.dir() + "/../r.txt"});
    scenario::expect_in(slurp(b.dir() + "/../r.txt"),
                        {"stop = power cut\nboard = deployed\npower = awake\n"});
    auto r = b.run("", 60);
    scenario::expect_in(r.err, {"power was cut while it was awake"});
    EXPECT_GE(check_grid(b), 4u);
    // a SIGKILL at whatever instant: the same
    interrupted_run(b, 3, SIGKILL);
    size_t n = check_grid(b);
    b.run("", 200);
    EXPECT_GE(check_grid(b, true), n + 9);
}

TEST(SimStateFolder, DamagedStateFilesAreNamedWithWhatWasDone) {
    auto set_line = [](const std::string &dir, const std::string &key, const std::string &v) {
        std::string t = slurp(dir + "/board.txt");
        size_t a = t.find("\n" + key + " = ") + 1, e = t.find('\n', a);
        std::ofstream(dir + "/board.txt") << t.substr(0, a) + key + " = " + v + t.substr(e);
    };
    // a refused folder (status 1) keeps its damage; otherwise both images
    // have their sizes again
    struct Case {
        std::function<void(const std::string &)> damage;
        int status;
        std::string file, message; // file: the state file named
    } cases[] = {
        {[&](auto &d) { set_line(d, "rtc", "noon"); }, 0, "board.txt",
         ": \"rtc = noon\" is not a number: the clock starts at 0 (1970) and a power-on start"},
        {[&](auto &d) { set_line(d, "power", "asleep"); }, 0, "board.txt",
         ": power = \"asleep\" is not hibernating, awake or off: a power-on start"},
        {[](auto &d) { fs::remove(d + "/board.txt"); }, 0, "board.txt",
         " is missing or empty: a power-on start"},
        {[](auto &d) { fs::resize_file(d + "/eeprom.bin", 100); }, 0, "eeprom.bin",
         " is 100 bytes, not 4096: erased bytes fill it"},
        {[](auto &d) { fs::resize_file(d + "/fram.bin", 40000); }, 0, "fram.bin",
         " is 40000 bytes, not 32768: the bytes past 32768 are cut off"},
        {[](auto &d) { fs::remove(d + "/fram.bin"); }, 0, "fram.bin",
         " is missing: a zeroed FRAM is written (the firmware assigns its defaults)"},
        {[](auto &d) { fs::remove(d + "/eeprom.bin"); }, 0, "eeprom.bin",
         " is missing: a factory EEPROM is written"},
        {[](auto &d) { fs::remove(d + "/eeprom.bin"), fs::create_directory(d + "/eeprom.bin"); }, 1,
         "eeprom.bin",
         " is not a regular file (a folder): the board's state cannot be kept; move it away"},
    };
    for (auto &c : cases) {
        scenario::Board b;
        b.run("1 period 33\\r\n", 2);
        c.damage(b.dir());
        auto r = b.run("1 getperiod\\r\n", 2, {}, c.status);
        scenario::expect_in(r.err, {"fenwa-sim: " + b.dir() + "/" + c.file + c.message});
        std::error_code ec;
        EXPECT_EQ(fs::file_size(b.dir() + "/eeprom.bin", ec), c.status ? uintmax_t(-1) : 4096);
        EXPECT_EQ(fs::file_size(b.dir() + "/fram.bin", ec), 32768u);
        for (auto &e : fs::directory_iterator(b.dir())) {
            EXPECT_TRUE(e.path().extension() != ".tmp") << e.path();
        }
    }
    // no folder can be made where a file is
    scenario::Board b;
    b.run("1 version\\r\n", 1);
    auto r = b.run("1 version\\r\n", 1, {"--state", b.dir() + "/eeprom.bin/x"}, 1);
    EXPECT_EQ(
        r.err.rfind("fenwa-sim: cannot create the state folder " + b.dir() + "/eeprom.bin/x: ", 0),
        0u)
        << r.err;
}

// ---- the host link over the pty ---------------------------------------------------

namespace {

// Lines of 40 bytes, numbered.
std::string numbered_lines(int n, const std::string &end) {
    std::string s;
    char l[32];
    for (int i = 0; i < n; i++) {
        std::snprintf(l, sizeof l, "line %05d ", i);
        s += l + std::string(40 - 11 - end.size(), '.') + end;
    }
    return s;
}

// Types `command`, stops reading for a while once `marker` came, then reads to `end`.
std::string paused_read(hostlink::Line &line, const std::string &command, const std::string &marker,
                        const std::string &end) {
    hostlink::typeSlowly(line, command);
    EXPECT_TRUE(line.waitFor(marker, 20)) << line.transcript().substr(0, 500);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(line.waitFor(end, 60));
    return line.transcript();
}

} // namespace

TEST(SimHostLink, OneSimulatorPerFolderAndAClientThatStopsReadingGetsEveryByte) {
    // "cat" of a 100 kB file from the card command line
    scenario::Board idle;
    fs::create_directories(idle.dir() + "/card");
    std::string big = numbered_lines(2600, "\n");
    std::ofstream(idle.dir() + "/card/BIG.TXT", std::ios::binary) << big;
    {
        hostlink::Session s(idle.dir());
        ASSERT_TRUE(s.cardCommandLine()) << s.messages() << s.line.transcript();
        auto r = idle.run("1 version\\r\n", 2, {}, 1); // it holds the folder
        EXPECT_EQ(r.err, "fenwa-sim: the state folder " + idle.dir() +
                             " is in use by another fenwa-sim (process " + std::to_string(s.pid()) +
                             ")\n");
        std::string crlf;
        for (char c : big) {
            crlf += c == '\n' ? "\r\n" : std::string(1, c);
        }
        std::string t = paused_read(s.line, "cat big.txt\r", "line 00200", "\r\n/> ");
        EXPECT_NE(t.find("cat big.txt\r\n\r" + crlf), std::string::npos);
        EXPECT_EQ(s.stop(), 0);
    }
    idle.run("1 version\\r\n", 2); // free again
    // "gdata" of a deployed board's 40 kB data file
    scenario::Board deployed;
    deployed.run(scenario::deploy_script(600), 10);
    std::string data = numbered_lines(1000, "\r\n");
    std::ofstream(deployed.dir() + "/card/NONAME.TXT", std::ios::binary) << data;
    auto fram = deployed.fram();
    std::memset(fram.data() + 64 + 8, 0, 4); // gdata from the file's start
    deployed.writeFram(fram);
    hostlink::Session s(deployed.dir());
    hostlink::typeSlowly(s.line, "\r"); // wakes the board (and is lost)
    std::this_thread::sleep_for(std::chrono::seconds(1));
    paused_read(s.line, "gdata\r", "line 00100", "line 00999 ");
    ASSERT_TRUE(s.line.waitFor("\r\n", 5));
    EXPECT_NE(s.line.transcript().find("gdata\r\n\r" + data), std::string::npos);
    EXPECT_EQ(s.stop(), 0);
}

TEST(SimHostLink, YmodemWithLrzszOnThePty) {
    if (!hostlink::have("sb") || !hostlink::have("rb")) {
        GTEST_SKIP() << "lrzsz (sb, rb) is not installed: scripts/setup.sh installs it";
    }
    scenario::Board b;
    fs::create_directories(b.dir() + "/card");
    hostlink::Session s(b.dir());
    ASSERT_TRUE(s.cardCommandLine()) << s.messages() << s.line.transcript();
    hostlink::Line &line = s.line;
    std::string host = fs::path(b.dir()).parent_path().string();
    for (int round = 0; round < 2; round++) {
        // card -> host
        const std::string n = std::to_string(round), name = "f" + n + ".txt";
        std::string data = numbered_lines(40 + 60 * round, "\r\n");
        for (int i = 0; round == 1 && i < 1024; i++) {
            data += char(i * 7); // every byte value both ways: XON/XOFF, ^C, CR, CAN
        }
        std::ofstream(b.dir() + "/card/" + name, std::ios::binary) << data;
        hostlink::typeSlowly(line, "ys " + name + "\r");
        ASSERT_TRUE(line.waitFor(" bytes...\r\n", 10)) << line.transcript();
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        const std::string down = host + "/down" + n, up = host + "/up" + n;
        fs::create_directories(down);
        EXPECT_EQ(hostlink::runTool({"rb", "-q"}, down, line.path(), 60), 0);
        EXPECT_EQ(slurp(down + "/" + name), data);
        // host -> card
        fs::create_directories(up);
        std::ofstream(up + "/u" + n + ".bin", std::ios::binary) << data;
        hostlink::typeSlowly(line, "\r");
        ASSERT_TRUE(line.waitFor("> ", 15));
        hostlink::typeSlowly(line, "yr\r");
        ASSERT_TRUE(line.waitFor("Ymodem rcv:\r\n", 10)) << line.transcript();
        EXPECT_EQ(hostlink::runTool({"sb", "-k", "-q", "u" + n + ".bin"}, up, line.path(), 60), 0);
        // the command right after is answered
        hostlink::typeSlowly(line, "ls\r");
        EXPECT_TRUE(line.waitFor("U" + n + ".BIN", 15)) << line.transcript();
        EXPECT_EQ(fs::file_size(b.dir() + "/card/U" + n + ".BIN"), data.size());
        ASSERT_TRUE(line.waitFor("> ", 15));
    }
}
