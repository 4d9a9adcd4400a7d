// The far end of the console line in a live run: this terminal (raw mode,
// Ctrl-] or Ctrl-C stops) or a pseudo-terminal for a host program. While the board
// hibernates, a byte on the line is what wakes it (and is lost).
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <cerrno>
#include <cstring>

#include "program.h"

namespace sim {

bool g_raw = false;

namespace {
termios g_saved_tty;
int g_tty_fd = -1;
} // namespace

void restore_tty() {
    if (g_tty_fd >= 0) {
        tcsetattr(g_tty_fd, TCSAFLUSH, &g_saved_tty);
        g_tty_fd = -1;
        g_raw = false;
    }
}

bool open_pty(Console &c, std::string &err) {
    int m = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
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
    c.pty_slave = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (c.pty_slave >= 0) {
        termios t;
        if (tcgetattr(c.pty_slave, &t) == 0) {
            cfmakeraw(&t);
            tcsetattr(c.pty_slave, TCSANOW, &t);
        }
    }
    fcntl(m, F_SETFL, fcntl(m, F_GETFL) | O_NONBLOCK);
    c.pty_master = m;
    c.relay = std::make_unique<PtyRelay>();
    if (!c.relay->start(m, err)) {
        return false;
    }
    c.in_fd = c.relay->board_in();
    c.out_fd = c.relay->board_out();
    return true;
}

void close_pty(Console &c) {
    if (c.relay) {
        c.relay->stop();
        c.relay.reset();
    }
    for (int *fd : {&c.pty_slave, &c.pty_master}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
    c.in_fd = c.out_fd = -1;
}

bool PtyRelay::start(int master, std::string &err) {
    master_ = master;
    if (pipe2(in_, O_CLOEXEC) != 0 || pipe2(out_, O_CLOEXEC) != 0) {
        err = std::string("cannot make the pty relay: ") + std::strerror(errno);
        return false;
    }
    // room for a long burst either way; the board side of the input is polled
    fcntl(in_[0], F_SETPIPE_SZ, 1 << 20);
    fcntl(out_[0], F_SETPIPE_SZ, 1 << 20);
    fcntl(in_[0], F_SETFL, fcntl(in_[0], F_GETFL) | O_NONBLOCK);
    fcntl(out_[0], F_SETFL, fcntl(out_[0], F_GETFL) | O_NONBLOCK);
    tin_ = std::thread([this] { in_loop(); });
    tout_ = std::thread([this] { out_loop(); });
    return true;
}

void PtyRelay::stop() {
    if (!tin_.joinable()) {
        return;
    }
    quit_ = true;
    tin_.join();
    tout_.join();
    for (int *fd : {&in_[0], &in_[1], &out_[0], &out_[1]}) {
        if (*fd >= 0) {
            close(*fd);
            *fd = -1;
        }
    }
}

void PtyRelay::in_loop() {
    uint8_t buf[4096];
    while (!quit_) {
        pollfd p{master_, POLLIN, 0};
        if (poll(&p, 1, 50) <= 0) {
            continue;
        }
        ssize_t n = read(master_, buf, sizeof buf);
        if (n <= 0) {
            if (n < 0 && errno != EAGAIN && errno != EINTR) {
                usleep(50000); // no client (EIO): wait for one
            }
            continue;
        }
        for (ssize_t off = 0; off < n && !quit_;) {
            ssize_t w = write(in_[1], buf + off, size_t(n - off));
            if (w > 0) {
                off += w;
            } else if (w < 0 && errno != EINTR) {
                return;
            }
        }
    }
}

void PtyRelay::out_loop() {
    std::string held; // sent by the board, not yet taken by the client
    size_t head = 0;
    uint64_t dropped = 0;
    bool board_done = false;
    int64_t quit_since = 0;
    auto say = [](const std::string &m) {
        std::string line = "fenwa-sim: " + m + (g_raw ? "\r\n" : "\n");
        ssize_t r = write(2, line.data(), line.size());
        (void)r;
    };
    for (;;) {
        if (quit_ && quit_since == 0) {
            quit_since = mono_ns();
        }
        const bool pending = head < held.size();
        if (quit_ && (!pending || mono_ns() - quit_since > 2000000000) &&
            (board_done || mono_ns() - quit_since > 100000000)) {
            break;
        }
        pollfd p[2] = {{out_[0], POLLIN, 0}, {master_, short(pending ? POLLOUT : 0), 0}};
        poll(p, 2, 50);
        char buf[65536];
        ssize_t n;
        while ((n = read(out_[0], buf, sizeof buf)) > 0) {
            size_t room = kHoldBytes - std::min(kHoldBytes, held.size() - head);
            size_t keep = std::min(room, size_t(n));
            if (keep < size_t(n)) {
                if (dropped == 0) {
                    say("the pty client has not read " + std::to_string(kHoldBytes >> 20) +
                        " MiB of console output: newer output is dropped until it reads");
                }
                dropped += uint64_t(size_t(n) - keep);
            }
            held.append(buf, keep);
        }
        if (n == 0) {
            board_done = true;
        }
        if (head < held.size()) {
            ssize_t w = write(master_, held.data() + head, held.size() - head);
            if (w > 0) {
                head += size_t(w);
            }
        }
        if (head == held.size() || head > (1u << 20)) {
            held.erase(0, head);
            head = 0;
        }
        if (held.empty() && dropped != 0) {
            say(std::to_string(dropped) + " bytes of console output were dropped");
            dropped = 0;
        }
    }
    if (head < held.size()) {
        say(std::to_string(held.size() - head) +
            " bytes of console output were not read by the pty client before the end");
    }
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

uint64_t Run::virt_from_wall(int64_t wall) const {
    int64_t d = (wall - s.rt_wall_base_ns) / 20;
    return d < 0 ? s.rt_cycles_base : s.rt_cycles_base + uint64_t(d);
}
int64_t Run::wall_of(uint64_t cycles) const {
    return s.rt_wall_base_ns + int64_t(cycles - s.rt_cycles_base) * 20;
}

// Real time: wait until the clock reaches `until` or a byte arrives.
// Returns 1 for a byte (the clock then stands at its arrival), 0 at
// `until`, -1 when the run is to stop (quit key, signal).
int Run::wait_real(uint64_t until, bool &quit) {
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
                if (con.quit_key && (buf[i] == 0x1D || buf[i] == 0x03)) {
                    quit = true;
                    return -1;
                }
            }
            s.now = std::max(s.now, virt_from_wall(mono_ns()));
            return 1; // the rest of the burst arrives while the board is still unpowered
        }
    }
}

} // namespace sim
