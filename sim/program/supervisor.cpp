// Power cycles of a run. The supervisor never runs firmware code: it forks one
// child per power cycle, so every wake-up starts from the program image's
// initial values, and keeps what survives (BoardState) in shared memory and
// in the state folder. Between cycles it plays the hibernation module: it
// lets time pass to the RTC match or the next console byte (which is lost).
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sched.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "board.h"
#include "core/system.h"
#include "hibernate.h"
#include "sysctl.h"

int fenwa_firmware_main(void);

namespace sim {

namespace fs = std::filesystem;

namespace {

volatile sig_atomic_t g_stop = 0; // supervisor: stop the run
volatile pid_t g_child = -1;
bool g_raw = false; // the terminal is in raw mode: "\r\n" line ends
termios g_saved_tty;
int g_tty_fd = -1;

void restore_tty() {
    if (g_tty_fd >= 0) {
        tcsetattr(g_tty_fd, TCSAFLUSH, &g_saved_tty);
        g_tty_fd = -1;
        g_raw = false;
    }
}

void on_stop_signal(int) {
    g_stop = 1;
    if (g_child > 0) {
        kill(g_child, SIGTERM);
    }
}

// ---- child side -------------------------------------------------------------

void child_stop_signal(int) {
    child_stop_requested = 1;
}

void child_crash_signal(int sig) {
    Board &b = board();
    const std::string &p = b.console->pending();
    if (b.console->out_fd() >= 0 && !p.empty()) {
        ssize_t r = write(b.console->out_fd(), p.data(), p.size());
        (void)r;
    }
    raise(sig); // SA_RESETHAND: the default action now
}

void child_signals() {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    static char altstack[64 * 1024];
    stack_t ss{};
    ss.ss_sp = altstack;
    ss.ss_size = sizeof altstack;
    sigaltstack(&ss, nullptr);
    struct sigaction sa {};
    sa.sa_handler = child_crash_signal;
    sa.sa_flags = SA_ONSTACK | SA_RESETHAND;
    for (int s : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT}) {
        sigaction(s, &sa, nullptr);
    }
    struct sigaction st {};
    st.sa_handler = child_stop_signal;
    sigaction(SIGTERM, &st, nullptr);
    sigaction(SIGINT, &st, nullptr);
    sigaction(SIGHUP, &st, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

// One power cycle: the processor starts from reset and runs the entry point.
[[noreturn]] void child_main(Board &b, void (*entry)()) {
    child_stop_requested = 0;
    b.mode = Board::Mode::Child;
    b.power_on_reset();
    b.st->end_reason = EndReason::None;
    if (entry != nullptr) {
        entry();
    } else {
        fenwa_firmware_main();
    }
    // main returned: the processor idles until the cycle is ended from outside
    for (;;) {
        SysCtlSleep();
    }
}

// Waits for a child; forwards a stop request. Returns the wait status.
int wait_child(pid_t pid) {
    int status = 0;
    bool sent = false;
    int64_t since = 0;
    for (;;) {
        pid_t r = waitpid(pid, &status, g_stop && sent ? WNOHANG : 0);
        if (r == pid) {
            return status;
        }
        if (r < 0 && errno != EINTR) {
            return 0;
        }
        if (g_stop) {
            if (!sent) {
                kill(pid, SIGTERM);
                sent = true;
                since = mono_ns();
            } else if (mono_ns() - since > 2000000000) {
                kill(pid, SIGKILL); // stuck in a loop without platform calls
            } else {
                usleep(10000);
            }
        }
    }
}

// ---- power cycles forked ahead --------------------------------------------------
// In fast runs without a live console the process of the next power cycle is
// forked while the current one runs and waits on a pipe; it starts as soon as
// the current one has reported its end, while the kernel still tears that one
// down. The child sees the same memory either way: between power cycles the
// supervisor changes only BoardState (shared) and its own bookkeeping.
struct Spare {
    pid_t pid = -1;
    int go = -1;   // a byte starts the power cycle; end of file ends the process unused
    int done = -1; // the power cycle writes a byte when it ends
};

Spare fork_spare(Board &b, void (*entry)()) {
    Spare sp;
    int go[2], done[2];
    if (pipe2(go, O_CLOEXEC) != 0) {
        return sp;
    }
    if (pipe2(done, O_CLOEXEC) != 0) {
        close(go[0]);
        close(go[1]);
        return sp;
    }
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        close(go[1]);
        close(done[0]);
        child_signals();
        char c = 0;
        ssize_t n;
        do {
            n = read(go[0], &c, 1);
        } while (n < 0 && errno == EINTR);
        if (n != 1) {
            _exit(0); // not needed after all
        }
        close(go[0]);
        b.done_fd = done[1];
        child_main(b, entry);
    }
    close(go[0]);
    close(done[1]);
    if (pid < 0) {
        close(go[1]);
        close(done[0]);
        return sp;
    }
    sp.pid = pid;
    sp.go = go[1];
    sp.done = done[0];
    return sp;
}

// Starts a spare's power cycle; false when it is gone.
bool start_spare(Spare &sp) {
    char c = 1;
    ssize_t n;
    do {
        n = write(sp.go, &c, 1);
    } while (n < 0 && errno == EINTR);
    close(sp.go);
    sp.go = -1;
    return n == 1;
}

// Ends a spare that never started.
void drop_spare(Spare &sp) {
    if (sp.pid <= 0) {
        return;
    }
    if (sp.go >= 0) {
        close(sp.go);
    }
    close(sp.done);
    int status;
    while (waitpid(sp.pid, &status, 0) < 0 && errno == EINTR) {
    }
    sp = Spare();
}

// Reaps the power cycles that reported their end and have gone since; all of
// them when `wait` is set.
void reap(std::vector<pid_t> &exiting, bool wait) {
    for (size_t i = 0; i < exiting.size();) {
        int status;
        pid_t r;
        do {
            r = waitpid(exiting[i], &status, wait ? 0 : WNOHANG);
        } while (r < 0 && errno == EINTR);
        if (r == 0) {
            ++i;
        } else {
            exiting.erase(exiting.begin() + long(i));
        }
    }
}

// Waits for the end of a power cycle started from a spare. True when it
// reported its end (the process is reaped later); false when it died
// without a report, with its wait status in `status`.
bool wait_report(pid_t pid, int done, int &status) {
    bool sent = false;
    int64_t since = 0;
    for (;;) {
        char c;
        if (!g_stop) {
            ssize_t n = read(done, &c, 1);
            if (n == 1) {
                return true;
            }
            if (n < 0 && errno == EINTR) {
                continue;
            }
            status = wait_child(pid);
            return false;
        }
        // stopping: forward it, and give a stuck cycle 2 s
        if (!sent) {
            kill(pid, SIGTERM);
            sent = true;
            since = mono_ns();
        } else if (mono_ns() - since > 2000000000) {
            kill(pid, SIGKILL);
        }
        pollfd p{done, POLLIN, 0};
        if (poll(&p, 1, 10) > 0) {
            ssize_t n = read(done, &c, 1);
            if (n == 1) {
                return true;
            }
            if (n == 0 || errno != EINTR) {
                status = wait_child(pid);
                return false;
            }
        }
    }
}

std::string read_fd_all(int fd) {
    std::string s;
    lseek(fd, 0, SEEK_SET);
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) {
        s.append(buf, size_t(n));
    }
    return s;
}

std::string read_file(const std::string &p, bool &ok) {
    std::ifstream f(p, std::ios::binary);
    ok = bool(f);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

bool write_file_atomic(const std::string &p, const void *data, size_t n) {
    std::string tmp = p + ".tmp";
    {
        std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
        if (!f) {
            return false;
        }
        f.write(static_cast<const char *>(data), std::streamsize(n));
        if (!f) {
            return false;
        }
    }
    return std::rename(tmp.c_str(), p.c_str()) == 0;
}

// ---- state folder -------------------------------------------------------------

class Folder {
  public:
    explicit Folder(std::string dir) : dir_(std::move(dir)) {}

    // Loads the folder into s (a new folder is provisioned first).
    bool load(BoardState &s, bool blank_eeprom, std::string &log, std::string &err) {
        std::error_code ec;
        fs::create_directories(dir_, ec);
        if (!fs::is_directory(dir_)) {
            err = "cannot create state folder " + dir_;
            return false;
        }
        fs::create_directories(dir_ + "/card", ec);
        bool ok = false;
        std::string e = read_file(dir_ + "/eeprom.bin", ok);
        if (!ok) {
            std::array<uint8_t, kEepromBytes> img;
            img.fill(0xFF);
            std::string why;
            if (!blank_eeprom && !factory_eeprom(img, why)) {
                log += "factory EEPROM not made (" + why + "): the EEPROM is left erased\n";
            }
            std::memcpy(s.eeprom, img.data(), kEepromBytes);
            std::memset(s.fram, 0, kFramBytes);
            s.hibernating = false;
            log += "new board in " + dir_ + "\n";
            return save_images(s, true);
        }
        if (e.size() != kEepromBytes) {
            log += "eeprom.bin is " + std::to_string(e.size()) +
                   " bytes, not 4096: erased bytes fill it\n";
            e.resize(kEepromBytes, char(0xFF));
        }
        std::memcpy(s.eeprom, e.data(), kEepromBytes);
        std::string f = read_file(dir_ + "/fram.bin", ok);
        if (ok && f.size() != kFramBytes) {
            log += "fram.bin is " + std::to_string(f.size()) + " bytes, not 32768\n";
        }
        f.resize(kFramBytes, char(0));
        std::memcpy(s.fram, f.data(), kFramBytes);
        saved_eeprom_.assign(s.eeprom, s.eeprom + kEepromBytes);
        saved_fram_.assign(s.fram, s.fram + kFramBytes);
        load_board_txt(s);
        return true;
    }

    bool save(const BoardState &s, const std::string &last_end, uint64_t lifetime_cycles) {
        bool ok = save_images(s, false);
        std::ostringstream t;
        uint64_t into =
            uint64_t((int64_t(s.now) - s.rtc_base_cycles) % int64_t(kCpuHz) + int64_t(kCpuHz)) %
            kCpuHz;
        t << "# fenwa-sim board state (key = value). Remove it for a power-on reset.\n"
          << "power = " << (s.hibernating ? "hibernating" : "awake") << "\n"
          << "rtc = " << board().rtc_now() << "\n"
          << "rtc_subsecond_cycles = " << into << "\n"
          << "rtc_match = " << s.rtc_match << "\n"
          << "wake_flags = 0x" << std::hex << s.wake_flags << "\n"
          << "status = 0x" << s.hib_status << "\n"
          << "int_mask = 0x" << s.hib_int_mask << "\n"
          << "rtc_trim = 0x" << s.rtc_trim << "\n"
          << "clock_config = 0x" << s.clock_config << std::dec << "\n"
          << "module_running = " << (s.module_enabled ? 1 : 0) << "\n"
          << "rtc_enabled = " << (s.rtc_enabled ? 1 : 0) << "\n"
          << "power_cycles = " << lifetime_cycles << "\n"
          << "last_end = " << last_end << "\n";
        std::string txt = t.str();
        return write_file_atomic(dir_ + "/board.txt", txt.data(), txt.size()) && ok;
    }

    uint64_t lifetime_cycles = 0;

  private:
    bool save_images(const BoardState &s, bool force) {
        bool ok = true;
        if (force || saved_eeprom_.size() != kEepromBytes ||
            std::memcmp(saved_eeprom_.data(), s.eeprom, kEepromBytes) != 0) {
            ok &= write_file_atomic(dir_ + "/eeprom.bin", s.eeprom, kEepromBytes);
            saved_eeprom_.assign(s.eeprom, s.eeprom + kEepromBytes);
        }
        if (force || saved_fram_.size() != kFramBytes ||
            std::memcmp(saved_fram_.data(), s.fram, kFramBytes) != 0) {
            ok &= write_file_atomic(dir_ + "/fram.bin", s.fram, kFramBytes);
            saved_fram_.assign(s.fram, s.fram + kFramBytes);
        }
        return ok;
    }

    void load_board_txt(BoardState &s) {
        std::ifstream f(dir_ + "/board.txt");
        std::map<std::string, std::string> kv;
        std::string line;
        while (std::getline(f, line)) {
            size_t eq = line.find('=');
            if (line.empty() || line[0] == '#' || eq == std::string::npos) {
                continue;
            }
            auto trim = [](std::string x) {
                size_t a = x.find_first_not_of(" \t\r"), b = x.find_last_not_of(" \t\r");
                return a == std::string::npos ? std::string() : x.substr(a, b - a + 1);
            };
            kv[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
        }
        auto num = [&](const char *k, uint64_t dflt) -> uint64_t {
            auto it = kv.find(k);
            return it == kv.end() ? dflt : std::strtoull(it->second.c_str(), nullptr, 0);
        };
        s.hibernating = kv["power"] == "hibernating";
        s.rtc_base = uint32_t(num("rtc", 0));
        s.rtc_base_cycles = -int64_t(num("rtc_subsecond_cycles", 0) % kCpuHz);
        s.rtc_match = uint32_t(num("rtc_match", 0));
        s.wake_flags = uint32_t(num("wake_flags", 0));
        s.hib_status = uint32_t(num("status", 0));
        s.hib_int_mask = uint32_t(num("int_mask", 0));
        s.rtc_trim = uint32_t(num("rtc_trim", 0x7FFF));
        s.clock_config = uint32_t(num("clock_config", 0));
        s.module_enabled = num("module_running", 0) != 0;
        s.rtc_enabled = num("rtc_enabled", 0) != 0;
        s.match_armed = s.rtc_match > s.rtc_base;
        lifetime_cycles = num("power_cycles", 0);
    }

    std::string dir_;
    std::vector<uint8_t> saved_eeprom_, saved_fram_;
};

// ---- console of a run -----------------------------------------------------------

struct Console {
    int in_fd = -1;
    int out_fd = -1;
    bool quit_key = false;
    bool capture = false;
    int pty_slave = -1;
    std::string pty_name;
};

bool open_pty(Console &c, std::string &err) {
    int m = posix_openpt(O_RDWR | O_NOCTTY);
    if (m < 0 || grantpt(m) != 0 || unlockpt(m) != 0) {
        err = std::string("cannot open a pseudo-terminal: ") + std::strerror(errno);
        return false;
    }
    const char *name = ptsname(m);
    if (name == nullptr) {
        err = "ptsname failed";
        return false;
    }
    c.pty_name = name;
    // hold the far side open so the line survives clients coming and going
    c.pty_slave = open(name, O_RDWR | O_NOCTTY);
    if (c.pty_slave >= 0) {
        termios t;
        if (tcgetattr(c.pty_slave, &t) == 0) {
            cfmakeraw(&t);
            tcsetattr(c.pty_slave, TCSANOW, &t);
        }
    }
    fcntl(m, F_SETFL, fcntl(m, F_GETFL) | O_NONBLOCK);
    c.in_fd = c.out_fd = m;
    return true;
}

void raw_terminal(int fd) {
    if (tcgetattr(fd, &g_saved_tty) != 0) {
        return;
    }
    termios t = g_saved_tty;
    cfmakeraw(&t);
    if (tcsetattr(fd, TCSAFLUSH, &t) == 0) {
        g_tty_fd = fd;
        g_raw = true;
        std::atexit(restore_tty);
    }
}

std::string fmt_time(double s) {
    char b[64];
    long t = long(s);
    std::snprintf(b, sizeof b, "%ldd %02ld:%02ld:%02ld", t / 86400, t / 3600 % 24, t / 60 % 60,
                  t % 60);
    return b;
}

struct Run {
    const Options &o;
    RunResult &res;
    Board &b;
    BoardState &s;
    Console con;
    std::vector<ScriptByte> script;
    bool script_mode = false;
    bool progress = false;
    int64_t last_progress = 0;

    void msg(const std::string &m) {
        res.messages += m + "\n";
        std::string line = "fenwa-sim: " + m + (g_raw ? "\r\n" : "\n");
        if (progress) {
            line = "\r\033[K" + line;
        }
        ssize_t r = write(2, line.data(), line.size());
        (void)r;
    }

    void show_progress(bool final) {
        if (!progress) {
            return;
        }
        int64_t w = mono_ns();
        if (!final && w - last_progress < 250000000) {
            return;
        }
        last_progress = w;
        double t = double(s.now) / double(kCpuHz);
        char b2[160];
        if (o.for_seconds >= 0) {
            std::snprintf(b2, sizeof b2,
                          "\r\033[K[fenwa-sim] %s of %s simulated, %d power cycles%s",
                          fmt_time(t).c_str(), fmt_time(o.for_seconds).c_str(), res.cycles,
                          final ? "\n" : "");
        } else {
            std::snprintf(b2, sizeof b2, "\r\033[K[fenwa-sim] %s simulated, %d power cycles%s",
                          fmt_time(t).c_str(), res.cycles, final ? "\n" : "");
        }
        ssize_t r = write(2, b2, std::strlen(b2));
        (void)r;
    }

    uint64_t virt_from_wall(int64_t wall) const {
        int64_t d = (wall - s.rt_wall_base_ns) / 20;
        return d < 0 ? s.rt_cycles_base : s.rt_cycles_base + uint64_t(d);
    }
    int64_t wall_of(uint64_t cycles) const {
        return s.rt_wall_base_ns + int64_t(cycles - s.rt_cycles_base) * 20;
    }

    // Real time: wait until the clock reaches `until` or a byte arrives.
    // Returns 1 for a byte (the clock then stands at its arrival), 0 at
    // `until`, -1 when the run is to stop (quit key, signal).
    int wait_real(uint64_t until, bool &quit) {
        for (;;) {
            if (g_stop) {
                return -1;
            }
            int64_t now = mono_ns();
            int64_t left = until == kNever ? -1 : wall_of(until) - now;
            if (until != kNever && left <= 0) {
                s.now = std::max(s.now, until);
                return 0;
            }
            int ms = left < 0 ? 200 : int(std::min<int64_t>(left / 1000000 + 1, 200));
            if (con.in_fd < 0) {
                usleep(useconds_t(ms) * 1000);
                continue;
            }
            pollfd p{con.in_fd, POLLIN, 0};
            int r = poll(&p, 1, ms);
            if (r > 0) {
                uint8_t buf[256];
                ssize_t n = read(con.in_fd, buf, sizeof buf);
                if (n <= 0) {
                    if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
                        con.in_fd = -1;
                        b.input_fd = -1;
                    }
                    continue;
                }
                for (ssize_t i = 0; i < n; ++i) {
                    if (con.quit_key && buf[i] == 0x1D) {
                        quit = true;
                        return -1;
                    }
                }
                s.now = std::max(s.now, virt_from_wall(mono_ns()));
                return 1; // the rest of the burst arrives while the board is still unpowered
            }
        }
    }

    // The board hibernates: let time pass to its wake-up. False when the run ends.
    bool wait_for_wake() {
        for (;;) {
            if (g_stop) {
                res.stop = "stopped";
                return false;
            }
            const bool live = con.in_fd >= 0;
            const bool pin = (s.wake_flags & HIBERNATE_WAKE_PIN) != 0;
            const bool rtc_ok =
                (s.wake_flags & HIBERNATE_WAKE_RTC) != 0 && s.rtc_match > b.rtc_now();
            const uint64_t t_rtc = rtc_ok ? b.rtc_cycle_of(s.rtc_match) : kNever;
            const uint64_t limit = s.deadline;
            if (script_mode && b.console->script_done() && o.for_seconds < 0 && !live) {
                res.stop = "script done";
                return false;
            }
            const uint64_t t_pin = pin ? b.console->next_byte_at() : kNever;
            uint64_t t = std::min(t_rtc, t_pin);
            bool by_live = false;
            if (s.realtime || (live && std::min(t, limit) == kNever)) {
                if (!s.realtime) {
                    // fast time, nothing scheduled: wait for a key, time runs with the wall clock
                    s.rt_wall_base_ns = mono_ns();
                    s.rt_cycles_base = s.now;
                }
                bool quit = false;
                int r = wait_real(std::min(t, limit), quit);
                if (r < 0) {
                    res.stop = quit ? "quit" : "stopped";
                    return false;
                }
                if (r == 1) {
                    if (!pin) {
                        continue; // the line is not a wake source: the board sleeps on
                    }
                    by_live = true;
                }
            }
            if (!by_live) {
                if (t == kNever || t > limit) {
                    if (limit != kNever) {
                        s.now = std::max(s.now, limit);
                        res.stop = "time up";
                    } else {
                        msg("the board sleeps with no wake source armed: only a power-on reset "
                            "wakes it "
                            "(remove board.txt from the state folder)");
                        res.stop = "asleep";
                    }
                    return false;
                }
                s.now = std::max(s.now, t);
            }
            uint32_t status = 0;
            if (by_live || t_pin <= t) {
                if (!by_live) {
                    b.console->take_byte(); // the byte that wakes the board is lost
                }
                status |= HIBERNATE_INT_PIN_WAKE;
            }
            if (!by_live && t_rtc <= t) {
                status |= HIBERNATE_INT_RTC_MATCH_0;
                s.match_armed = false;
            }
            s.hib_status = status | HIBERNATE_INT_WR_COMPLETE;
            s.hibernating = false;
            s.active_at_start = true;
            return true;
        }
    }
};

} // namespace

// ---- scripts ------------------------------------------------------------------

bool parse_script(const std::string &text, std::vector<ScriptByte> &out, std::string &err) {
    out.clear();
    std::istringstream in(text);
    std::string line;
    int n = 0;
    while (std::getline(in, line)) {
        ++n;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        const char *start = line.c_str() + first;
        char *end = nullptr;
        double secs = std::strtod(start, &end);
        if (end == start || !std::isfinite(secs) || secs < 0) {
            err = "script line " + std::to_string(n) + ": expected SECONDS TEXT";
            return false;
        }
        std::string raw;
        if (*end == ' ' || *end == '\t') {
            raw = std::string(end + 1);
        } else if (*end != '\0') {
            err = "script line " + std::to_string(n) + ": expected a blank after the seconds";
            return false;
        }
        uint64_t at = uint64_t(std::llround(secs * double(kCpuHz)));
        for (size_t i = 0; i < raw.size(); ++i) {
            char c = raw[i];
            if (c == '\\' && i + 1 < raw.size()) {
                char e = raw[++i];
                switch (e) {
                case 'r':
                    c = '\r';
                    break;
                case 'n':
                    c = '\n';
                    break;
                case 't':
                    c = '\t';
                    break;
                case '\\':
                    c = '\\';
                    break;
                case 'e':
                    c = 0x1B;
                    break;
                case 'b':
                    c = 0x08;
                    break;
                case 'a':
                    c = 0x07;
                    break;
                case 'f':
                    c = 0x0C;
                    break;
                case 'v':
                    c = 0x0B;
                    break;
                case '0':
                    c = 0;
                    break;
                case '\'':
                    c = '\'';
                    break;
                case '"':
                    c = '"';
                    break;
                case 'x': {
                    int v = 0, digits = 0;
                    while (digits < 2 && i + 1 < raw.size() && std::isxdigit(uint8_t(raw[i + 1]))) {
                        char h = raw[++i];
                        v = v * 16 +
                            (std::isdigit(uint8_t(h)) ? h - '0' : (std::tolower(h) - 'a' + 10));
                        ++digits;
                    }
                    if (digits == 0) {
                        out.push_back({at, uint8_t('\\')});
                        c = 'x';
                    } else {
                        c = char(v);
                    }
                    break;
                }
                default:
                    out.push_back({at, uint8_t('\\')});
                    c = e;
                    break;
                }
            }
            out.push_back({at, uint8_t(c)});
        }
    }
    return true;
}

// ---- the factory image -----------------------------------------------------------

bool factory_eeprom(std::array<uint8_t, kEepromBytes> &image, std::string &err) {
    image.fill(0xFF);
    BoardState *shared = map_state();
    fflush(nullptr);
    pid_t pid = fork();
    if (pid < 0) {
        err = "fork failed";
        munmap(shared, sizeof *shared);
        return false;
    }
    if (pid == 0) {
        child_signals();
        int devnull = open("/dev/null", O_WRONLY);
        Board &b = board();
        b.st = shared;
        b.console = std::make_shared<ConsoleLine>(shared);
        b.console->set_output(devnull, false);
        for (auto &u : b.uarts) {
            u.dev.reset();
        }
        b.uarts[0].dev = b.console;
        b.i2c.devices.clear();
        install_board_devices(b);
        b.input_fd = -1;
        b.mode = Board::Mode::Child;
        b.power_on_reset();
        shared->deadline = 120 * kCpuHz;
        // The console already runs at the default rate: the defaults routine
        // then has nothing to announce or drain.
        sys_data.baud_rate = 115200;
        init_sys_data_default();
        static_assert(sizeof(sys_data) == 1352, "configuration record size");
        std::memcpy(shared->eeprom + SYS_DATA_EEPROM_ADDR, &sys_data, sizeof sys_data);
        shared->end_reason = EndReason::Returned;
        _exit(0);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    bool ok = WIFEXITED(status) && shared->end_reason == EndReason::Returned;
    if (ok) {
        std::memcpy(image.data(), shared->eeprom, kEepromBytes);
    } else {
        err = WIFSIGNALED(status)
                  ? std::string("the defaults routine crashed: ") + strsignal(WTERMSIG(status))
                  : std::string("the defaults routine did not return");
    }
    munmap(shared, sizeof *shared);
    return ok;
}

// ---- run_cycle --------------------------------------------------------------------

CycleResult run_cycle(const std::function<void()> &fn) {
    CycleResult cr;
    Board &b = board();
    char path[] = "/tmp/fenwa-cycle-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        cr.reason = EndReason::Crash;
        return cr;
    }
    unlink(path);
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        child_signals();
        b.console->set_output(fd, false);
        b.mode = Board::Mode::Child;
        b.power_on_reset();
        b.st->end_reason = EndReason::None;
        fn();
        b.end_cycle(EndReason::Returned);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status)) {
        cr.reason = EndReason::Crash;
        cr.signal = WTERMSIG(status);
    } else {
        cr.reason = b.st->end_reason;
    }
    cr.output = read_fd_all(fd);
    close(fd);
    return cr;
}

// ---- a whole run ------------------------------------------------------------------

RunResult run_here(const Options &o, int out_fd) {
    RunResult res;
    Board &b = board();
    BoardState &s = *b.st;
    Run run{o, res, b, s, {}, {}, false, false, 0};

    run.script_mode = o.has_script || !o.script_path.empty();
    bool realtime = o.realtime < 0 ? !run.script_mode : o.realtime == 1;
    run.progress = o.progress < 0 ? (isatty(2) && run.script_mode) : o.progress == 1;

    auto fail = [&](const std::string &m, int code) {
        run.msg(m);
        res.exit_code = code;
        res.stop = "error";
        return res;
    };

    // the script
    if (run.script_mode) {
        std::string text = o.script;
        if (!o.script_path.empty()) {
            bool ok = false;
            text = o.script_path == "-" ? read_fd_all(0) : read_file(o.script_path, ok);
            if (o.script_path != "-" && !ok) {
                return fail("cannot read script " + o.script_path, 2);
            }
        }
        std::string err;
        if (!parse_script(text, run.script, err)) {
            return fail(err, 2);
        }
    }

    // the console line
    Console &con = run.con;
    if (run.script_mode) {
        con.out_fd = out_fd;
    } else if (o.pty) {
        std::string err;
        if (!open_pty(con, err)) {
            return fail(err, 1);
        }
        std::string line = "pty: " + con.pty_name + "\n";
        ssize_t r = write(1, line.data(), line.size());
        r = write(2, line.data(), line.size());
        (void)r;
    } else {
        con.in_fd = 0;
        con.out_fd = out_fd >= 0 ? out_fd : 1;
        if (isatty(0)) {
            raw_terminal(0);
            con.quit_key = true;
            run.msg("console on this terminal; Ctrl-] quits");
        }
    }
    if (con.out_fd < 0) {
        con.capture = true;
        con.out_fd = memfd_create("fenwa-console", 0);
    }

    // the board and its state
    default_state(s);
    Folder folder(o.state_dir);
    {
        std::string log, err;
        if (!folder.load(s, o.blank_eeprom, log, err)) {
            return fail(err, 1);
        }
        std::istringstream ls(log);
        for (std::string l; std::getline(ls, l);) {
            run.msg(l);
        }
    }
    if (o.rtc >= 0) {
        s.rtc_base = uint32_t(o.rtc);
        s.rtc_base_cycles = 0;
        s.match_armed = s.rtc_match > s.rtc_base;
    }
    s.now = 0;
    s.script_pos = 0;
    s.console_wire_free = 0;
    s.console_baud = 115200;
    s.card_absent = o.card_absent;
    s.card_full = o.card_full;
    s.card_error = o.card_error;
    s.eeprom_init_error = o.eeprom_error;
    s.hib_fail = o.hib_fail;
    s.deadline =
        o.for_seconds >= 0 ? uint64_t(std::llround(o.for_seconds * double(kCpuHz))) : kNever;
    s.script_mode = run.script_mode;
    s.script_guard = (run.script_mode && o.for_seconds < 0) ? 600 * kCpuHz : 0;
    s.realtime = realtime;
    s.rt_wall_base_ns = mono_ns();
    s.rt_cycles_base = 0;
    s.cycle_index = 0;

    b.mode = Board::Mode::Child;
    b.console = std::make_shared<ConsoleLine>(&s);
    b.console->set_script(run.script_mode ? &run.script : nullptr);
    b.console->set_output(con.out_fd, realtime && !con.capture);
    for (auto &u : b.uarts) {
        u.dev.reset();
    }
    b.uarts[0].dev = b.console;
    b.i2c.devices.clear();
    b.i2c.logging = false;
    set_environment(o.env);
    install_board_devices(b);
    b.input_fd = con.in_fd;
    b.quit_key = con.quit_key;
    {
        std::error_code ec;
        b.card_root = fs::absolute(fs::path(o.state_dir) / "card", ec).string();
    }
    if (std::string err; !o.card_image.empty() && !use_card_image(o.card_image, err)) {
        return fail(err, 2);
    }

    if (!s.hibernating) {
        // left awake (or new): the batteries went in again
        s.active_at_start = false;
        s.module_enabled = false;
        s.hib_status = 0;
        s.hib_int_mask = 0;
        s.rtc_match = 0;
        s.wake_flags = 0;
        s.match_armed = false;
    }

    struct sigaction sa {
    }, old_int{}, old_term{}, old_hup{};
    sa.sa_handler = on_stop_signal;
    sigaction(SIGINT, &sa, &old_int);
    sigaction(SIGTERM, &sa, &old_term);
    sigaction(SIGHUP, &sa, &old_hup);
    g_stop = 0;

    std::string last_end = "none";
    int64_t last_save = mono_ns();
    // fork ahead only where nothing but BoardState changes between cycles
    const bool ahead = !s.realtime && b.input_fd < 0;
    Spare spare;
    std::vector<pid_t> exiting; // reported their end, not yet reaped
    for (;;) {
        if (g_stop) {
            res.stop = "stopped";
            break;
        }
        if (s.hibernating && !run.wait_for_wake()) {
            break;
        }
        s.end_reason = EndReason::None;
        s.cycle_index++;
        pid_t pid = -1;
        int done = -1;
        if (ahead && spare.pid < 0) {
            spare = fork_spare(b, o.entry);
        }
        if (spare.pid > 0) {
            if (start_spare(spare)) {
                pid = spare.pid;
                done = spare.done;
                spare = Spare();
                sched_yield(); // let it have a processor before the next one is forked
            } else {
                drop_spare(spare);
            }
        }
        if (pid < 0) {
            fflush(nullptr);
            pid = fork();
            if (pid < 0) {
                run.msg(std::string("fork failed: ") + std::strerror(errno));
                res.exit_code = 1;
                break;
            }
            if (pid == 0) {
                child_signals();
                child_main(b, o.entry);
            }
        }
        g_child = pid;
        if (ahead) {
            spare = fork_spare(b, o.entry); // the next cycle's, while this one runs
        }
        reap(exiting, false);
        int status = 0;
        if (done < 0) {
            status = wait_child(pid);
        } else {
            if (wait_report(pid, done, status)) {
                exiting.push_back(pid);
            }
            close(done);
        }
        g_child = -1;
        res.cycles++;
        folder.lifetime_cycles++;
        EndReason r = s.end_reason;
        if (WIFSIGNALED(status)) {
            r = EndReason::Crash;
            run.msg("power cycle " + std::to_string(res.cycles) +
                    " crashed: " + strsignal(WTERMSIG(status)) + " at " +
                    std::to_string(double(s.now) / double(kCpuHz)) + " s");
        } else if (r == EndReason::None) {
            r = EndReason::Crash;
            run.msg("power cycle " + std::to_string(res.cycles) +
                    " ended without a reason (exit status " +
                    std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
        }
        res.ends.push_back(r);
        last_end = to_string(r);
        if (r != EndReason::Hibernated) {
            s.hibernating = false;
        }
        // save often enough that a killed run loses little, not after every
        // one of thousands of short cycles
        if (s.realtime || mono_ns() - last_save > 500000000) {
            folder.save(s, last_end, folder.lifetime_cycles);
            last_save = mono_ns();
        }
        run.show_progress(false);
        if (r == EndReason::Hibernated) {
            continue;
        }
        if (r == EndReason::Reset) {
            s.active_at_start = s.module_enabled;
            s.hib_status = 0;
            continue;
        }
        if (r == EndReason::TimeUp) {
            res.stop = s.now >= s.deadline ? "time up" : "idle after the script";
        } else if (r == EndReason::Crash) {
            res.crashed = true;
            res.stop = "crash";
        } else {
            res.stop = to_string(r);
        }
        break;
    }
    drop_spare(spare);
    reap(exiting, true);
    folder.save(s, last_end, folder.lifetime_cycles);
    run.show_progress(true);
    if (res.stop == "stopped") {
        run.msg("stopped at " + fmt_time(double(s.now) / double(kCpuHz)) + " simulated");
    }
    sigaction(SIGINT, &old_int, nullptr);
    sigaction(SIGTERM, &old_term, nullptr);
    sigaction(SIGHUP, &old_hup, nullptr);
    restore_tty();

    res.seconds = double(s.now) / double(kCpuHz);
    res.rtc = b.rtc_now();
    if (res.exit_code == 0 && res.crashed) {
        res.exit_code = 1;
    }
    if (con.capture) {
        res.output = read_fd_all(con.out_fd);
        close(con.out_fd);
    }
    if (!o.pty && con.in_fd > 2) {
        close(con.in_fd);
    }
    if (con.pty_slave >= 0) {
        close(con.pty_slave);
        close(con.in_fd);
    }

    if (!o.result_path.empty()) {
        std::ostringstream r;
        r << "cycles = " << res.cycles << "\n";
        for (EndReason e : res.ends) {
            r << "end = " << to_string(e) << "\n";
        }
        r << "stop = " << res.stop << "\n"
          << "crashed = " << (res.crashed ? 1 : 0) << "\n"
          << "seconds = " << res.seconds << "\n"
          << "rtc = " << res.rtc << "\n"
          << "exit = " << res.exit_code << "\n";
        std::string t = r.str();
        write_file_atomic(o.result_path, t.data(), t.size());
    }
    reset_board();
    return res;
}

// ---- a run in a fresh process -----------------------------------------------------

RunResult run_program(const Options &opts, const char *program) {
    RunResult res;
    char tmpl[] = "/tmp/fenwa-run-XXXXXX";
    char *dir = mkdtemp(tmpl);
    if (dir == nullptr) {
        res.exit_code = 1;
        res.messages = "cannot make a temporary folder";
        return res;
    }
    std::string d = dir;
    Options o = opts;
    o.result_path = d + "/result.txt";
    o.progress = 0;
    o.pty = false;
    if (o.script_path.empty()) {
        o.script_path = d + "/script.txt";
        write_file_atomic(o.script_path, o.script.data(), o.script.size());
    }
    o.has_script = true;
    std::string out_path = d + "/out.bin", err_path = d + "/err.txt";
    int out = open(out_path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    int err = open(err_path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        int devnull = open("/dev/null", O_RDONLY);
        dup2(devnull, 0);
        dup2(err, 2);
        if (program != nullptr) {
            dup2(out, 1);
            std::vector<std::string> args = to_args(o);
            args.insert(args.begin(), program);
            std::vector<char *> argv;
            for (auto &a : args) {
                argv.push_back(const_cast<char *>(a.c_str()));
            }
            argv.push_back(nullptr);
            execv(program, argv.data());
            std::fprintf(stderr, "fenwa-sim: cannot run %s: %s\n", program, std::strerror(errno));
            _exit(127);
        }
        RunResult r = run_here(o, out);
        _exit(r.exit_code);
    }
    int status = 0;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    res.exit_code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    res.output = read_fd_all(out);
    res.messages = read_fd_all(err);
    close(out);
    close(err);
    bool ok = false;
    std::istringstream in(read_file(o.result_path, ok));
    for (std::string line; std::getline(in, line);) {
        size_t eq = line.find(" = ");
        if (eq == std::string::npos) {
            continue;
        }
        std::string k = line.substr(0, eq), v = line.substr(eq + 3);
        if (k == "cycles") {
            res.cycles = std::atoi(v.c_str());
        } else if (k == "end") {
            for (int e = 0; e <= int(EndReason::Returned); ++e) {
                if (v == to_string(EndReason(e))) {
                    res.ends.push_back(EndReason(e));
                }
            }
        } else if (k == "stop") {
            res.stop = v;
        } else if (k == "crashed") {
            res.crashed = v == "1";
        } else if (k == "seconds") {
            res.seconds = std::atof(v.c_str());
        } else if (k == "rtc") {
            res.rtc = uint32_t(std::strtoul(v.c_str(), nullptr, 10));
        }
    }
    if (!ok && res.stop.empty()) {
        res.stop = "no result";
    }
    std::error_code ec;
    fs::remove_all(d, ec);
    return res;
}

} // namespace sim
