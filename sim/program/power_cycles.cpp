// Power cycles of a run. The supervisor never runs firmware code: it forks one
// child per power cycle, so every wake-up starts from the program image's
// initial values, and keeps what survives (BoardState) in shared memory and
// in the state folder. Between cycles it plays the hibernation module: it
// lets time pass to the RTC match or the next console byte (which is lost).
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "board/i2c_fram.h"
#include "core/system.h"
#include "energy.h"
#include "hibernate.h"
#include "program.h"
#include "sysctl.h"

int fenwa_firmware_main(void);

namespace sim {

volatile sig_atomic_t g_stop = 0;
volatile pid_t g_child = -1;

// The first request stops the run (a deployed board first runs on to its
// next hibernation), the second cuts the power at once.
void on_stop_signal(int) {
    if (g_stop < 2) {
        g_stop = g_stop + 1;
    }
    forward_stop(g_child);
}

void forward_stop(pid_t pid) {
    static volatile pid_t told = -1; // the power cycle already asked to stop
    if (pid <= 0 || g_stop == 0) {
        return;
    }
    if (g_stop >= 2) {
        kill(pid, SIGKILL); // the power goes: nothing more is written
    } else if (told != pid) {
        told = pid;
        kill(pid, SIGTERM);
    }
}

namespace {

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

} // namespace

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

namespace {

// One power cycle: the processor starts from reset and runs the entry point.
[[noreturn]] void child_main(Board &b, void (*entry)()) {
    child_stop_requested = b.st->stop_asked ? 1 : 0;
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
    for (;;) {
        forward_stop(pid);
        pid_t r = waitpid(pid, &status, 0);
        if (r == pid) {
            return status;
        }
        if (r < 0 && errno != EINTR) {
            return 0;
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
    for (;;) {
        forward_stop(pid);
        char c;
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
}

} // namespace

// The board hibernates: let time pass to its wake-up. False when the run ends.
bool Run::wait_for_wake() {
    for (;;) {
        if (g_stop) {
            res.stop = "stopped";
            return false;
        }
        const bool live = con.in_fd >= 0;
        const bool pin = (s.wake_flags & HIBERNATE_WAKE_PIN) != 0;
        const bool rtc_ok = (s.wake_flags & HIBERNATE_WAKE_RTC) != 0 && s.rtc_match > b.rtc_now();
        const uint64_t t_rtc = rtc_ok ? b.rtc_cycle_of(s.rtc_match) : kNever;
        const uint64_t limit = std::min(s.deadline, s.cut_at);
        if (script_mode && b.console->script_done() && o.for_seconds < 0 && o.cut_at_seconds < 0 &&
            !live) {
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
                    // a cut while hibernating: the module runs on from its backup cell
                    res.stop = limit == s.cut_at ? "power cut" : "time up";
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

namespace {
uint32_t sample_counter(const BoardState &s) {
    uint32_t n = 0;
    std::memcpy(&n, s.fram + FRAM_ADDR_SYS_SAMP + 12, sizeof n);
    return n;
}
} // namespace

// Runs power cycles until the run ends. The board's state is in the folder
// all along; the supervisor's part is the wake-up (power = awake, written
// before the cycle starts) and the end of the run.
void Run::power_cycles() {
    // fork ahead only where nothing but BoardState changes between cycles
    const bool ahead = !s.realtime && b.input_fd < 0;
    const uint64_t deadline = s.deadline;
    Spare spare;
    std::vector<pid_t> exiting; // reported their end, not yet reaped
    uint32_t counter = sample_counter(s);
    for (;;) {
        if (g_stop >= 2 || (g_stop && s.hibernating)) {
            res.stop = g_stop >= 2 ? "power cut" : "stopped";
            break;
        }
        if (s.hibernating && !wait_for_wake()) {
            break;
        }
        s.end_reason = EndReason::None;
        s.cycle_index++;
        s.lifetime_cycles++;
        s.hibernating = false;
        s.power_off = false;
        s.stop_asked = g_stop != 0;
        b.save_clock();
        energy_cycle_start(s);
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
                msg(std::string("fork failed: ") + std::strerror(errno));
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
        energy_cycle_end(s);
        res.cycles++;
        uint32_t c = sample_counter(s);
        res.samples += c >= counter ? c - counter : c; // a new deployment counts from 0
        counter = c;
        EndReason r = s.end_reason;
        if (WIFSIGNALED(status) && (g_stop >= 2 || s.end_reason == EndReason::PowerCut)) {
            r = EndReason::PowerCut;
        } else if (WIFSIGNALED(status)) {
            r = EndReason::Crash;
            msg("power cycle " + std::to_string(res.cycles) +
                " crashed: " + strsignal(WTERMSIG(status)) + " at " +
                std::to_string(double(s.now) / double(kCpuHz)) + " s");
        } else if (r == EndReason::None) {
            r = EndReason::Crash;
            msg("power cycle " + std::to_string(res.cycles) +
                " ended without a reason (exit status " +
                std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
        }
        res.ends.push_back(r);
        s.last_end = r;
        if (r != EndReason::Hibernated) {
            s.hibernating = false;
        }
        if (s.save_errno != 0) {
            msg(std::string("cannot write board.txt: ") + std::strerror(s.save_errno) +
                ": the board's state is not kept");
            res.exit_code = 1;
            res.stop = "error";
            break;
        }
        show_progress(false);
        if (r == EndReason::Hibernated) {
            if (s.stop_requested || g_stop) {
                res.stop = s.now >= deadline ? "time up" : "stopped";
                break;
            }
            continue;
        }
        if (r == EndReason::Reset) {
            s.active_at_start = s.module_enabled;
            s.hib_status = 0;
            continue;
        }
        if (r == EndReason::TimeUp) {
            res.stop = s.now >= deadline ? "time up" : "idle after the script";
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
    // An awake board that was stopped is switched off (its next start is a
    // power-on); one whose power was cut keeps its hibernation module, which
    // runs on from the backup cell.
    const bool cut = res.stop == "power cut" || s.last_end == EndReason::PowerCut;
    if (!s.hibernating && !cut) {
        s.power_off = true;
    }
    if (cut) {
        res.stop = "power cut";
    }
    b.save_clock(true);
    if (s.save_errno != 0 && res.exit_code == 0) {
        msg(std::string("cannot write board.txt: ") + std::strerror(s.save_errno) +
            ": the board's state is not kept");
        res.exit_code = 1;
    }
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

} // namespace sim
