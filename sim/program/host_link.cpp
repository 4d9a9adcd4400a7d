// The far end of the console line in a live run: this terminal (raw mode,
// Ctrl-] quits) or a pseudo-terminal for a host program. While the board
// hibernates, a byte on the line is what wakes it (and is lost).
#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
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

} // namespace sim
