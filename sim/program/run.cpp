// A whole run of fenwa-sim: the script or the live console, the board and its
// state folder, the power cycles, and the summary of how it went.
#include <fcntl.h>
#include <sys/mman.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <sstream>

#include "energy.h"
#include "hibernate.h"
#include "program.h"

namespace sim {

namespace fs = std::filesystem;

std::string fmt_time(double s) {
    char b[64];
    long t = long(s);
    std::snprintf(b, sizeof b, "%ldd %02ld:%02ld:%02ld", t / 86400, t / 3600 % 24, t / 60 % 60,
                  t % 60);
    return b;
}

void Run::msg(const std::string &m) {
    res.messages += m + "\n";
    std::string line = "fenwa-sim: " + m + (g_raw ? "\r\n" : "\n");
    if (progress) {
        line = "\r\033[K" + line;
    }
    ssize_t r = write(2, line.data(), line.size());
    (void)r;
}

void Run::show_progress(bool final) {
    if (!progress) {
        return;
    }
    int64_t w = mono_ns();
    if (!final && w - last_progress < 250000000) {
        return;
    }
    last_progress = w;
    double t = double(s.now) / double(kCpuHz);
    std::string e = energy_progress(energy_summary(s, o.env, o.battery_mah));
    char b2[256];
    if (o.for_seconds >= 0) {
        std::snprintf(b2, sizeof b2, "\r\033[K[fenwa-sim] %s of %s simulated, %d power cycles%s%s",
                      fmt_time(t).c_str(), fmt_time(o.for_seconds).c_str(), res.cycles, e.c_str(),
                      final ? "\n" : "");
    } else {
        std::snprintf(b2, sizeof b2, "\r\033[K[fenwa-sim] %s simulated, %d power cycles%s%s",
                      fmt_time(t).c_str(), res.cycles, e.c_str(), final ? "\n" : "");
    }
    ssize_t r = write(2, b2, std::strlen(b2));
    (void)r;
}

// The summary of a run for a harness: one "key = value" line each. Add a
// key here and it is in every --result file.
std::vector<std::pair<std::string, std::string>> summary_lines(const RunResult &res,
                                                               const Run &run) {
    std::vector<std::pair<std::string, std::string>> kv;
    auto add = [&kv](const char *k, const std::string &v) { kv.emplace_back(k, v); };
    char secs[64];
    std::snprintf(secs, sizeof secs, "%.6f", res.seconds);
    add("seconds", secs);
    add("power_cycles", std::to_string(res.cycles));
    add("samples", std::to_string(res.samples));
    add("stop", res.stop);
    add("board", res.board.empty() ? "unknown" : res.board);
    add("power", res.power.empty() ? "unknown" : res.power);
    // how the power cycles ended, each kind once with its count, in order of first end
    std::string ends;
    std::vector<std::pair<EndReason, int>> counts;
    for (EndReason e : res.ends) {
        auto it = std::find_if(counts.begin(), counts.end(),
                               [e](const std::pair<EndReason, int> &c) { return c.first == e; });
        if (it == counts.end()) {
            counts.emplace_back(e, 1);
        } else {
            it->second++;
        }
    }
    for (auto &c : counts) {
        ends += (ends.empty() ? "" : ", ") + std::string(to_string(c.first)) + " " +
                std::to_string(c.second);
    }
    add("ends", ends.empty() ? "none" : ends);
    add("crashed", res.crashed ? "1" : "0");
    add("rtc", std::to_string(res.rtc));
    add("exit", std::to_string(res.exit_code));
    std::istringstream energy(energy_result(energy_summary(run.s, run.o.env, run.o.battery_mah)));
    for (std::string l; std::getline(energy, l);) {
        size_t eq = l.find(" = ");
        kv.emplace_back(l.substr(0, eq), l.substr(eq + 3));
    }
    return kv;
}

void write_summary(const std::string &path, RunResult &res, const Run &run) {
    if (path.empty()) {
        return;
    }
    std::string t;
    for (auto &kv : summary_lines(res, run)) {
        t += kv.first + " = " + kv.second + "\n";
    }
    if (!write_file_atomic(path, t.data(), t.size())) {
        std::string m =
            "fenwa-sim: cannot write the summary " + path + ": " + std::strerror(errno) + "\n";
        ssize_t r = write(2, m.data(), m.size());
        (void)r;
        if (res.exit_code == 0) {
            res.exit_code = 1;
        }
    }
}

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
        write_summary(o.result_path, res, run);
        restore_tty();
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
            run.msg("console on this terminal; Ctrl-] or Ctrl-C stops (twice: cuts the power)");
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
    install_energy_hooks(b);
    b.input_fd = con.in_fd;
    b.quit_key = con.quit_key;
    {
        std::error_code ec;
        b.card_root = fs::absolute(fs::path(o.state_dir) / "card", ec).string();
    }

    s.cut_at =
        o.cut_at_seconds >= 0 ? uint64_t(std::llround(o.cut_at_seconds * double(kCpuHz))) : kNever;
    s.stop_requested = false;
    s.stop_asked = false;
    s.save_errno = 0;
    b.state_fd = folder.board_fd();
    if (!s.hibernating && !s.power_off && s.module_enabled) {
        // The power was cut while the board was awake: the hibernation module
        // ran on from its backup cell, and shows only its write-complete bit.
        run.msg("the board's power was cut while it was awake: it starts again with its "
                "hibernation module running");
        s.active_at_start = true;
        s.hib_status = HIBERNATE_INT_WR_COMPLETE;
    } else if (!s.hibernating) {
        // switched off (or new): the batteries went in again
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

    run.power_cycles();
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
    close_pty(con);

    res.board = b.deployed() ? "deployed" : "idle";
    res.power = s.hibernating ? "hibernating" : (s.power_off ? "off" : "awake");
    b.state_fd = -1;
    folder.close();
    write_summary(o.result_path, res, run);
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
        if (k == "power_cycles") {
            res.cycles = std::atoi(v.c_str());
        } else if (k == "ends") {
            std::istringstream es(v);
            for (std::string part; std::getline(es, part, ',');) {
                size_t sp = part.find_last_of(' ');
                std::string name = part.substr(part.find_first_not_of(' '), std::string::npos);
                name = name.substr(0, name.find_last_of(' '));
                int n = sp == std::string::npos ? 0 : std::atoi(part.c_str() + sp + 1);
                for (int e = 0; e <= int(EndReason::PowerCut); ++e) {
                    if (name == to_string(EndReason(e))) {
                        res.ends.insert(res.ends.end(), size_t(n), EndReason(e));
                    }
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
        } else if (k == "samples") {
            res.samples = std::strtoull(v.c_str(), nullptr, 10);
        } else if (k == "board") {
            res.board = v;
        } else if (k == "power") {
            res.power = v;
        } else if (k.compare(0, 7, "energy_") == 0) {
            res.energy += line + "\n";
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
