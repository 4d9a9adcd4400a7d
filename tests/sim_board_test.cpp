// The simulated board itself: clock and SysTick, UART pacing and interrupts,
// the FRAM on I2C, the card's names and open modes, and power cycles through
// the supervisor (hibernation, wake sources, resets, crashes), the state
// folder across runs (stops, cuts, the lock, damaged files) and the pty link.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "ff.h"
#include "host_link.h"
#include "scenario.h"
#include "hibernate.h"
#include "hw_types.h"
#include "i2c.h"
#include "interrupt.h"
#include "sim.h"
#include "sysctl.h"
#include "uart.h"

namespace {

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

// A far end of a serial line: sends what it is told at its own rate and
// records what it receives with the time it arrived.
class Line : public sim::SerialDevice {
  public:
    explicit Line(uint32_t baud) : byte_(sim::kCpuHz * 10 / baud) {}
    void send(const std::string &s) {
        uint64_t t = std::max(sim::now_cycles(), free_);
        for (unsigned char c : s) {
            t += byte_;
            out_.push_back({t, c});
        }
        free_ = t;
        sim::line_changed();
    }
    uint64_t next_byte_at() override { return out_.empty() ? sim::kNever : out_.front().at; }
    uint8_t take_byte() override {
        uint8_t c = out_.front().byte;
        out_.pop_front();
        return c;
    }
    void receive(uint8_t byte, uint64_t at) override {
        got += char(byte);
        at_.push_back(at);
    }
    std::string got;
    std::vector<uint64_t> at_;

  private:
    uint64_t byte_;
    uint64_t free_ = 0;
    std::deque<sim::ScriptByte> out_;
};

std::string g_rx;
void uart3_test_isr() {
    uint32_t st = UARTIntStatus(UART3_BASE, true);
    UARTIntClear(UART3_BASE, st);
    while (UARTCharsAvail(UART3_BASE)) {
        g_rx += char(UARTCharGetNonBlocking(UART3_BASE));
    }
}

void uart3_9600() {
    UARTClockSourceSet(UART3_BASE, UART_CLOCK_PIOSC);
    UARTConfigSetExpClk(UART3_BASE, 16000000, 9600, UART_CONFIG_WLEN_8);
    UARTFIFOLevelSet(UART3_BASE, UART_FIFO_TX1_8, UART_FIFO_RX1_8);
    UARTEnable(UART3_BASE);
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
    auto line = std::make_shared<Line>(9600);
    sim::attach_serial(UART3_BASE, line);
    uart3_9600();
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
    sim::advance_ms(30);
    EXPECT_EQ(line->got, "abcdefghijklmnopq");
    ASSERT_EQ(line->at_.size(), 17u);
    EXPECT_NEAR(double(line->at_[16] - line->at_[0]), 16.0 * byte, 100.0);
    EXPECT_FALSE(UARTBusy(UART3_BASE));
    EXPECT_NE(UARTIntStatus(UART3_BASE, false) & UART_INT_TX, 0u);

    // receive: interrupt-driven, paced at the line rate
    sim::set_irq_handler(INT_UART3, uart3_test_isr);
    UARTIntEnable(UART3_BASE, UART_INT_RX | UART_INT_RT);
    IntEnable(INT_UART3);
    line->send("hello");
    sim::advance_cycles(byte * 2 + byte / 2);
    EXPECT_EQ(g_rx, "he");
    sim::advance_ms(10);
    EXPECT_EQ(g_rx, "hello");
    EXPECT_GE(sim::irq_count(INT_UART3), 5u);

    // a masked port keeps 16 bytes and loses the rest; a disabled one hears nothing
    IntDisable(INT_UART3);
    line->send(std::string(20, 'x'));
    sim::advance_ms(30);
    int kept = 0;
    while (UARTCharGetNonBlocking(UART3_BASE) >= 0) {
        ++kept;
    }
    EXPECT_EQ(kept, 16);
    UARTDisable(UART3_BASE);
    line->send("lost");
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
        return polls;
    };
    I2CMasterInitExpClk(I2C0_BASE, 50000000, false);
    sim::i2c_log_clear();
    uint64_t t0 = sim::now_cycles();
    const uint8_t w[] = {0x12, 0x34, 0xAA, 0xBB, 0xCC};
    I2CMasterSlaveAddrSet(I2C0_BASE, 0x50, false);
    for (size_t i = 0; i < sizeof w; ++i) {
        I2CMasterDataPut(I2C0_BASE, w[i]);
        EXPECT_EQ(step(i == 0              ? I2C_MASTER_CMD_BURST_SEND_START
                       : i + 1 == sizeof w ? I2C_MASTER_CMD_BURST_SEND_FINISH
                                           : I2C_MASTER_CMD_BURST_SEND_CONT),
                  1);
        EXPECT_EQ(I2CMasterErr(I2C0_BASE), I2C_MASTER_ERR_NONE);
    }
    // about 9 bit times at 100 kHz per byte, plus the address
    EXPECT_NEAR(double(sim::now_cycles() - t0) / sim::kCpuHz, 6 * 9 / 100e3, 80e-6);
    EXPECT_EQ(sim::state().fram[0x1234], 0xAA);
    EXPECT_EQ(sim::state().fram[0x1236], 0xCC);

    I2CMasterDataPut(I2C0_BASE, 0x12);
    step(I2C_MASTER_CMD_BURST_SEND_START);
    I2CMasterDataPut(I2C0_BASE, 0x34);
    step(I2C_MASTER_CMD_BURST_SEND_CONT);
    I2CMasterSlaveAddrSet(I2C0_BASE, 0x50, true);
    std::string got;
    step(I2C_MASTER_CMD_BURST_RECEIVE_START);
    got += char(I2CMasterDataGet(I2C0_BASE));
    step(I2C_MASTER_CMD_BURST_RECEIVE_CONT);
    got += char(I2CMasterDataGet(I2C0_BASE));
    step(I2C_MASTER_CMD_BURST_RECEIVE_FINISH);
    got += char(I2CMasterDataGet(I2C0_BASE));
    EXPECT_EQ(got, "\xAA\xBB\xCC");
    EXPECT_EQ(sim::i2c_log_text(), "[50 W] 12 34 AA BB CC P [50 W] 12 34 [50 R] AA BB CC P");

    // nobody at 0x51
    sim::i2c_log_clear();
    I2CMasterSlaveAddrSet(I2C0_BASE, 0x51, true);
    step(I2C_MASTER_CMD_SINGLE_RECEIVE);
    EXPECT_EQ(I2CMasterErr(I2C0_BASE), I2C_MASTER_ERR_ADDR_ACK);
    EXPECT_EQ(I2CMasterDataGet(I2C0_BASE), 0xFFu);
    EXPECT_EQ(sim::i2c_log_text(), "[51 R NACK]");
    EXPECT_FALSE(I2CMasterBusBusy(I2C0_BASE));
}

TEST_F(SimBoard, CardKeepsShortNamesAndTheFatOpenModes) {
    namespace fs = std::filesystem;
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
    UARTClockSourceSet(UART0_BASE, UART_CLOCK_PIOSC);
    UARTConfigSetExpClk(UART0_BASE, 16000000, 115200, UART_CONFIG_WLEN_8);
    UARTEnable(UART0_BASE);
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

struct TempDir {
    std::string path;
    TempDir() {
        char t[] = "/tmp/fenwa-simtest-XXXXXX";
        path = mkdtemp(t);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
};

} // namespace

TEST(SimSupervisor, HibernationWakesByRtcAndByKeyAndResumesAcrossRuns) {
    TempDir dir;
    sim::Options o;
    o.state_dir = dir.path + "/state";
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
    std::ifstream bt(o.state_dir + "/board.txt");
    std::string board((std::istreambuf_iterator<char>(bt)), {});
    EXPECT_NE(board.find("power = hibernating"), std::string::npos) << board;
    struct stat sb;
    ASSERT_EQ(stat((o.state_dir + "/eeprom.bin").c_str(), &sb), 0);
    EXPECT_EQ(sb.st_size, 4096);

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
}

TEST(SimSupervisor, ACrashedPowerCycleEndsTheRunWithAnError) {
    TempDir dir;
    sim::Options o;
    o.state_dir = dir.path + "/state";
    o.entry = crasher;
    o.blank_eeprom = true;
    sim::RunResult r = sim::run(o);
    EXPECT_TRUE(r.crashed);
    EXPECT_NE(r.exit_code, 0);
    EXPECT_EQ(r.output, "about to fail\n");
    EXPECT_NE(r.messages.find("crashed"), std::string::npos) << r.messages;
}

TEST(SimSupervisor, TheProgramProvisionsAFactoryBoard) {
    TempDir dir;
    sim::Options o;
    o.state_dir = dir.path + "/state";
    o.script = "1 version\\r\n";
    o.for_seconds = 3;
    sim::RunResult r = sim::run(o);
    ASSERT_EQ(r.exit_code, 0) << r.messages;
    EXPECT_GE(r.cycles, 1);
    EXPECT_NE(r.output.find("Fenwa v5.0.3 ZEP3 123g revB"), std::string::npos) << r.output;
    std::ifstream e(o.state_dir + "/eeprom.bin", std::ios::binary);
    std::string img((std::istreambuf_iterator<char>(e)), {});
    ASSERT_EQ(img.size(), 4096u);
    EXPECT_EQ(img.substr(1024 + 600, 28), std::string("Fenwa v5.0.3 ZEP3 123g revB", 28));
    EXPECT_EQ(img.substr(0, 1024), std::string(1024, '\xFF'));
    std::ifstream f(o.state_dir + "/fram.bin", std::ios::binary);
    std::string fram((std::istreambuf_iterator<char>(f)), {});
    EXPECT_EQ(fram.size(), 32768u);
    EXPECT_TRUE(std::filesystem::is_directory(o.state_dir + "/card"));
}

// ---- the state folder across runs ---------------------------------------------

namespace {

// Deploys a new board with a 20 s period; its samples fall 20 s apart.
const char kDeploy20[] = "1 period 20\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n";

std::string slurp(const std::string &p) {
    std::ifstream f(p, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(f)), {});
}

// The card's sample lines must number 0, 1, 2... and, from the second on,
// lie 20 s apart: what a deployment left alone writes. Returns the count.
size_t check_grid(const scenario::Board &b) {
    std::istringstream in(b.cardFile("NONAME.TXT"));
    size_t n = 0;
    long last = -1;
    for (std::string l; std::getline(in, l);) {
        unsigned num, mo, d, y, h, mi, sec;
        if (std::sscanf(l.c_str(), "#%u\t%u/%u/%u %u:%u:%u", &num, &mo, &d, &y, &h, &mi, &sec) !=
            7) {
            continue;
        }
        long t = long(h) * 3600 + mi * 60 + sec;
        EXPECT_EQ(num, n) << l;
        if (n >= 2) {
            EXPECT_EQ(t - last, 20) << l;
        }
        last = t;
        ++n;
    }
    return n;
}

pid_t start_sim(const std::vector<std::string> &args) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
        std::vector<char *> argv{const_cast<char *>(FENWA_SIM_PATH)};
        for (auto &a : args) {
            argv.push_back(const_cast<char *>(a.c_str()));
        }
        argv.push_back(nullptr);
        execv(FENWA_SIM_PATH, argv.data());
        _exit(127);
    }
    return pid;
}

int wait_sim(pid_t pid) {
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// The pid holding the state folder's lock (0: none) as a second simulator sees it.
pid_t holder(const std::string &dir) {
    int fd = open((dir + "/board.txt").c_str(), O_RDWR);
    if (fd < 0) {
        return 0;
    }
    struct flock fl {};
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_len = 1;
    fcntl(fd, F_GETLK, &fl);
    close(fd);
    return fl.l_type == F_UNLCK ? 0 : fl.l_pid;
}

bool wait_until(const std::function<bool()> &done) {
    for (int i = 0; i < 600 && !done(); ++i) {
        usleep(50000);
    }
    return done();
}

} // namespace

TEST(SimStateFolder, AStoppedDeploymentResumesOnItsGrid) {
    // --for ends the run in the middle of the second sample: the board runs
    // on to its hibernation, the next run goes on from there.
    scenario::Board b;
    auto r = b.run(kDeploy20, 24.5, {"--result", b.dir() + "/../r.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(r.err.find("the deployed board runs on to its next hibernation"), std::string::npos)
        << r.err;
    std::string summary = slurp(b.dir() + "/../r.txt");
    EXPECT_EQ(summary.substr(0, summary.find("energy_")), // the energy account's keys follow
              "seconds = 26.481157\npower_cycles = 3\nsamples = 2\nstop = time up\n"
              "board = deployed\npower = hibernating\nends = hibernated 3\ncrashed = 0\n"
              "rtc = 26\nexit = 0\n");
    ASSERT_EQ(b.run("", 70).status, 0);
    EXPECT_EQ(check_grid(b), 5u);

    // SIGTERM at whatever instant of a long fast run: the same.
    scenario::Board c;
    ASSERT_EQ(c.run(kDeploy20, 10).status, 0);
    pid_t pid = start_sim({"--state", c.dir(), "--fast", "--for", "1000000"});
    ASSERT_TRUE(wait_until([&] { return check_grid(c) >= 3; }));
    kill(pid, SIGTERM);
    EXPECT_EQ(wait_sim(pid), 0);
    EXPECT_NE(slurp(c.dir() + "/board.txt").find("power = hibernating"), std::string::npos);
    size_t before = check_grid(c);
    ASSERT_EQ(c.run("", 100).status, 0);
    EXPECT_EQ(check_grid(c), before + 5);
}

TEST(SimStateFolder, ACutKeepsWhatTheBoardWroteAndTheDeploymentGoesOn) {
    scenario::Board b;
    ASSERT_EQ(b.run(kDeploy20, 10).status, 0);
    // the second sample starts at 14 s of this run: a cut half a second in
    auto r = b.run("", 30, {"--cut-power-at", "14.5", "--result", b.dir() + "/../r.txt"});
    ASSERT_EQ(r.status, 0) << r.err;
    std::string res = slurp(b.dir() + "/../r.txt");
    EXPECT_NE(res.find("stop = power cut\nboard = deployed\npower = awake\n"), std::string::npos)
        << res;
    r = b.run("", 60);
    EXPECT_NE(r.err.find("power was cut while it was awake"), std::string::npos) << r.err;
    EXPECT_GE(check_grid(b), 4u);
    // a SIGKILL at whatever instant: the same
    pid_t pid = start_sim({"--state", b.dir(), "--fast", "--for", "1000000"});
    size_t n = check_grid(b);
    ASSERT_TRUE(wait_until([&] { return check_grid(b) >= n + 3; }));
    kill(pid, SIGKILL);
    wait_sim(pid);
    n = check_grid(b);
    ASSERT_EQ(b.run("", 200).status, 0);
    // the sample in flight when the power went may come again, once
    std::istringstream in(b.cardFile("NONAME.TXT"));
    size_t lines = 0, repeats = 0;
    long last = -1;
    for (std::string l; std::getline(in, l);) {
        long num;
        if (std::sscanf(l.c_str(), "#%ld", &num) == 1) {
            repeats += num == last;
            EXPECT_TRUE(num == last || num == last + 1) << l;
            last = num;
            ++lines;
        }
    }
    EXPECT_LE(repeats, 1u);
    EXPECT_GE(lines, n + 9);
}

TEST(SimStateFolder, OneSimulatorPerFolder) {
    scenario::Board b;
    ASSERT_EQ(b.run("1 version\\r\n", 2).status, 0);
    pid_t pid = start_sim({"--state", b.dir(), "--realtime", "--for", "600"});
    ASSERT_TRUE(wait_until([&] { return holder(b.dir()) == pid; }));
    auto r = b.run("1 version\\r\n", 2);
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.err, "fenwa-sim: the state folder " + b.dir() +
                         " is in use by another fenwa-sim (process " + std::to_string(pid) + ")\n");
    kill(pid, SIGTERM);
    EXPECT_EQ(wait_sim(pid), 0);
    EXPECT_EQ(b.run("1 version\\r\n", 2).status, 0);
}

TEST(SimStateFolder, DamagedStateFilesAreNamedWithWhatWasDone) {
    namespace fs = std::filesystem;
    auto set_line = [](const std::string &dir, const std::string &key, const std::string &v) {
        std::string t = slurp(dir + "/board.txt");
        size_t a = t.find("\n" + key + " = ") + 1, e = t.find('\n', a);
        std::ofstream(dir + "/board.txt") << t.substr(0, a) + key + " = " + v + t.substr(e);
    };
    auto resize = [](const std::string &p, size_t n) { fs::resize_file(p, n); };
    struct Case {
        std::function<void(const std::string &)> damage;
        int status;
        std::string file, message; // file: the state file named
        uintmax_t eeprom, fram;    // sizes afterwards
    } cases[] = {
        {[&](auto &d) { set_line(d, "rtc", "noon"); }, 0, "board.txt",
         ": \"rtc = noon\" is not a number: the clock starts at 0 (1970) and a power-on start",
         4096, 32768},
        {[&](auto &d) { set_line(d, "power", "asleep"); }, 0, "board.txt",
         ": power = \"asleep\" is not hibernating, awake or off: a power-on start", 4096, 32768},
        {[](auto &d) { fs::remove(d + "/board.txt"); }, 0, "board.txt",
         " is missing or empty: a power-on start", 4096, 32768},
        {[&](auto &d) { resize(d + "/eeprom.bin", 100); }, 0, "eeprom.bin",
         " is 100 bytes, not 4096: erased bytes fill it", 4096, 32768},
        {[&](auto &d) { resize(d + "/fram.bin", 40000); }, 0, "fram.bin",
         " is 40000 bytes, not 32768: the bytes past 32768 are cut off", 4096, 32768},
        {[](auto &d) { fs::remove(d + "/fram.bin"); }, 0, "fram.bin",
         " is missing: a zeroed FRAM is written (the firmware assigns its defaults)", 4096, 32768},
        {[](auto &d) { fs::remove(d + "/eeprom.bin"); }, 0, "eeprom.bin",
         " is missing: a factory EEPROM is written", 4096, 32768},
        {[](auto &d) {
             fs::remove(d + "/eeprom.bin");
             fs::create_directory(d + "/eeprom.bin");
         },
         1, "eeprom.bin",
         " is not a regular file (a folder): the board's state cannot be kept; move it away", 0,
         32768},
    };
    for (auto &c : cases) {
        scenario::Board b;
        ASSERT_EQ(b.run("1 period 33\\r\n", 2).status, 0);
        c.damage(b.dir());
        auto r = b.run("1 getperiod\\r\n", 2);
        EXPECT_EQ(r.status, c.status) << r.err;
        EXPECT_NE(r.err.find("fenwa-sim: " + b.dir() + "/" + c.file + c.message), std::string::npos)
            << r.err;
        std::error_code ec;
        EXPECT_EQ(fs::file_size(b.dir() + "/eeprom.bin", ec), c.eeprom ? c.eeprom : uintmax_t(-1));
        EXPECT_EQ(fs::file_size(b.dir() + "/fram.bin", ec), c.fram);
        for (auto &e : fs::directory_iterator(b.dir())) {
            EXPECT_TRUE(e.path().extension() != ".tmp") << e.path();
        }
    }
    // no folder can be made where a file is
    scenario::Board b;
    ASSERT_EQ(b.run("1 version\\r\n", 1).status, 0);
    auto r = b.run("1 version\\r\n", 1, {"--state", b.dir() + "/eeprom.bin/x"});
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(
        r.err.rfind("fenwa-sim: cannot create the state folder " + b.dir() + "/eeprom.bin/x: ", 0),
        0u)
        << r.err;
}

// ---- the host link over the pty ---------------------------------------------------

namespace {

using PtyLine = hostlink::Line;

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

// Types `command`, stops reading for a while once `marker` came, then reads
// on until `end`: what came in between is all there.
std::string paused_read(PtyLine &line, const std::string &command, const std::string &marker,
                        const std::string &end) {
    hostlink::typeSlowly(line, command);
    EXPECT_TRUE(line.waitFor(marker, 20)) << line.transcript().substr(0, 500);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_TRUE(line.waitFor(end, 60));
    return line.transcript();
}

} // namespace

TEST(SimHostLink, AClientThatStopsReadingGetsEveryByteAfterwards) {
    namespace fs = std::filesystem;
    // "cat" of a 100 kB file from the card command line
    scenario::Board idle;
    fs::create_directories(idle.dir() + "/card");
    std::string big = numbered_lines(2600, "\n");
    std::ofstream(idle.dir() + "/card/BIG.TXT", std::ios::binary) << big;
    {
        hostlink::Instrument sim({FENWA_SIM_PATH, "--state", idle.dir(), "--pty"}, nullptr,
                                 idle.dir());
        PtyLine line(sim.ptyPath());
        ASSERT_TRUE(line.waitFor("\r\n>", 20)) << sim.messages();
        hostlink::typeSlowly(line, "\r\r\r\rx");
        ASSERT_TRUE(line.waitFor("Enter Selection: ", 10));
        hostlink::typeSlowly(line, "5\r");
        ASSERT_TRUE(line.waitFor("> ", 10));
        std::string crlf;
        for (char c : big) {
            crlf += c == '\n' ? "\r\n" : std::string(1, c);
        }
        std::string t = paused_read(line, "cat big.txt\r", "line 00200", "\r\n/> ");
        EXPECT_NE(t.find("cat big.txt\r\n\r" + crlf), std::string::npos);
        EXPECT_EQ(sim.stop(), 0);
    }
    // "gdata" of a deployed board's 40 kB data file
    scenario::Board deployed;
    ASSERT_EQ(
        deployed
            .run("1 period 600\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n", 10)
            .status,
        0);
    std::string data = numbered_lines(1000, "\r\n");
    std::ofstream(deployed.dir() + "/card/NONAME.TXT", std::ios::binary) << data;
    auto fram = deployed.fram();
    std::memset(fram.data() + 64 + 8, 0, 4); // gdata from the file's start
    deployed.writeFram(fram);
    hostlink::Instrument sim({FENWA_SIM_PATH, "--state", deployed.dir(), "--pty"}, nullptr,
                             deployed.dir());
    PtyLine line(sim.ptyPath());
    hostlink::typeSlowly(line, "\r"); // wakes the board (and is lost)
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::string t = paused_read(line, "gdata\r", "line 00100", "line 00999 ");
    ASSERT_TRUE(line.waitFor("\r\n", 5));
    EXPECT_NE(line.transcript().find("gdata\r\n\r" + data), std::string::npos);
    EXPECT_EQ(sim.stop(), 0);
}

TEST(SimHostLink, YmodemWithLrzszOnThePty) {
    namespace fs = std::filesystem;
    if (!hostlink::have("sb") || !hostlink::have("rb")) {
        GTEST_SKIP() << "lrzsz (sb, rb) is not installed: scripts/setup.sh installs it";
    }
    scenario::Board b;
    fs::create_directories(b.dir() + "/card");
    hostlink::Instrument sim({FENWA_SIM_PATH, "--state", b.dir(), "--pty"}, nullptr, b.dir());
    PtyLine line(sim.ptyPath());
    ASSERT_TRUE(line.waitFor("\r\n>", 20)) << sim.messages();
    hostlink::typeSlowly(line, "\r\r\r\rx");
    ASSERT_TRUE(line.waitFor("Enter Selection: ", 10));
    hostlink::typeSlowly(line, "5\r");
    ASSERT_TRUE(line.waitFor("> ", 10));
    std::string host = fs::path(b.dir()).parent_path().string();
    for (int round = 0; round < 2; round++) {
        // card -> host
        std::string name = "f" + std::to_string(round) + ".txt";
        std::string data = numbered_lines(40 + 60 * round, "\r\n");
        std::ofstream(b.dir() + "/card/" + name, std::ios::binary) << data;
        hostlink::typeSlowly(line, "ys " + name + "\r");
        ASSERT_TRUE(line.waitFor(" bytes...\r\n", 10)) << line.transcript();
        std::this_thread::sleep_for(std::chrono::milliseconds(1200));
        std::string down = host + "/down" + std::to_string(round);
        fs::create_directories(down);
        EXPECT_EQ(hostlink::runTool({"rb", "-q"}, down, line.path(), 60), 0);
        EXPECT_EQ(slurp(down + "/" + name), data);
        // host -> card
        std::string up = host + "/up" + std::to_string(round);
        fs::create_directories(up);
        std::ofstream(up + "/u" + std::to_string(round) + ".bin", std::ios::binary) << data;
        hostlink::typeSlowly(line, "\r");
        ASSERT_TRUE(line.waitFor("> ", 15));
        hostlink::typeSlowly(line, "yr\r");
        ASSERT_TRUE(line.waitFor("Ymodem rcv:\r\n", 10)) << line.transcript();
        EXPECT_EQ(hostlink::runTool({"sb", "-k", "-q", "u" + std::to_string(round) + ".bin"}, up,
                                    line.path(), 60),
                  0);
        // the command right after is answered
        hostlink::typeSlowly(line, "ls\r");
        EXPECT_TRUE(line.waitFor("U" + std::to_string(round) + ".BIN", 15)) << line.transcript();
        EXPECT_EQ(fs::file_size(b.dir() + "/card/U" + std::to_string(round) + ".BIN"), data.size());
        ASSERT_TRUE(line.waitFor("> ", 15));
    }
}
