// The host's side of fenwa-sim --pty: a raw line to type on and read from,
// the simulator as a process, and lrzsz tools attached to the pty.
#pragma once
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "scenario.h"

namespace hostlink {

inline bool have(const char *tool) {
    return std::system((std::string("command -v ") + tool + " >/dev/null 2>&1").c_str()) == 0;
}

inline double since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// Appends what `fd` has within `ms` to `to`; false once it is closed.
inline bool readSome(int fd, std::string &to, int ms) {
    pollfd pf{fd, POLLIN, 0};
    if (poll(&pf, 1, ms) <= 0) {
        return true;
    }
    char buf[4096];
    ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) {
        to.append(buf, size_t(n));
    }
    return n > 0;
}

// The simulator's pseudo-terminal seen from the host's side.
class Line {
  public:
    explicit Line(const std::string &path)
        : path_(path), fd_(open(path.c_str(), O_RDWR | O_NOCTTY)) {
        termios t;
        if (fd_ >= 0 && tcgetattr(fd_, &t) == 0) {
            cfmakeraw(&t);
            tcsetattr(fd_, TCSANOW, &t);
        }
    }
    ~Line() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    const std::string &path() const { return path_; }
    void type(const std::string &s) {
        ssize_t r = write(fd_, s.data(), s.size());
        (void)r;
    }
    // Reads until `needle` shows up in what was read since the last call.
    bool waitFor(const std::string &needle, double seconds) {
        for (auto t0 = std::chrono::steady_clock::now();;) {
            size_t p = got_.find(needle);
            if (p != std::string::npos) {
                all_ += got_.substr(0, p + needle.size());
                got_.erase(0, p + needle.size());
                return true;
            }
            double left = seconds - since(t0);
            if (left <= 0) {
                return false;
            }
            readSome(fd_, got_, int(left * 1000) + 1);
        }
    }
    std::string transcript() const { return all_ + got_; }

  private:
    std::string path_;
    int fd_;
    std::string got_, all_;
};

// Runs an lrzsz tool in `dir` on the pseudo-terminal: its exit status (-1: stopped).
inline int runTool(const std::vector<std::string> &args, const std::string &dir,
                   const std::string &pty, double seconds) {
    pid_t pid = scenario::spawn(args, [&] {
        if (chdir(dir.c_str()) != 0) {
            _exit(126);
        }
        int fd = open(pty.c_str(), O_RDWR | O_NOCTTY);
        dup2(fd, 0);
        dup2(fd, 1);
        dup2(open("tool.log", O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
    });
    auto t0 = std::chrono::steady_clock::now();
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (since(t0) > seconds) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Types with a pause between the bytes, as a person would.
inline void typeSlowly(Line &line, const std::string &s) {
    for (char c : s) {
        line.type(std::string(1, c));
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
    }
}

// fenwa-sim --pty on a state folder, and the host's line to it. The path to
// the pseudo-terminal comes on the simulator's standard output as "pty: /dev/pts/N".
class Session {
  public:
    explicit Session(const std::string &state) : errPath_(state + ".stderr"), line(start(state)) {}
    ~Session() { stop(); }
    std::string messages() const { return scenario::slurp(errPath_); }
    pid_t pid() const { return pid_; }
    // Asks it to stop (SIGTERM) and waits: its exit status (128 + signal when killed).
    int stop() {
        if (pid_ <= 0) {
            return -1;
        }
        kill(pid_, SIGTERM);
        int status = scenario::finish(pid_);
        pid_ = -1;
        return status;
    }
    // Waits for the board's first prompt; four Enters and a key open the
    // menu, "5" the card command line.
    bool cardCommandLine() {
        if (!line.waitFor("\r\n>", 20)) {
            return false;
        }
        typeSlowly(line, "\r\r\r\rx");
        if (!line.waitFor("Enter Selection: ", 10)) {
            return false;
        }
        typeSlowly(line, "5\r");
        return line.waitFor("> ", 10);
    }

  private:
    pid_t pid_ = -1;
    std::string errPath_;

    // Starts the simulator: the path to its pseudo-terminal.
    std::string start(const std::string &dir) {
        int out[2];
        if (pipe(out) != 0) {
            return "";
        }
        pid_ = scenario::spawn({FENWA_SIM_PATH, "--state", dir, "--pty"}, [&] {
            dup2(out[1], 1);
            dup2(open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
            close(out[0]);
        });
        close(out[1]);
        std::string text;
        auto t0 = std::chrono::steady_clock::now();
        while (since(t0) < 20 && text.find('\n', text.find("pty: ")) == std::string::npos &&
               readSome(out[0], text, 200)) {
        }
        close(out[0]);
        size_t p = text.find("pty: ");
        return p == std::string::npos ? "" : text.substr(p + 5, text.find('\n', p) - p - 5);
    }

  public:
    Line line;
};

} // namespace hostlink
