// The host's side of the simulator's pseudo-terminal, for tests that drive
// fenwa-sim --pty as a host program would: a raw line to type on and read
// from, the simulator as a process, and lrzsz tools attached to the pty.
#pragma once
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace hostlink {

inline bool have(const char *tool) {
    std::string cmd = std::string("command -v ") + tool + " >/dev/null 2>&1";
    return std::system(cmd.c_str()) == 0;
}

inline double since(std::chrono::steady_clock::time_point t0) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

// The simulator's pseudo-terminal seen from the host's side.
class Line {
  public:
    explicit Line(const std::string &path) : path_(path) {
        fd_ = open(path.c_str(), O_RDWR | O_NOCTTY);
        if (fd_ >= 0) {
            termios t;
            tcgetattr(fd_, &t);
            cfmakeraw(&t);
            tcsetattr(fd_, TCSANOW, &t);
        }
    }
    ~Line() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    bool ok() const { return fd_ >= 0; }
    const std::string &path() const { return path_; }
    void type(const std::string &s) {
        ssize_t r = write(fd_, s.data(), s.size());
        (void)r;
    }
    // Reads until `needle` shows up in what was read since the last call.
    bool waitFor(const std::string &needle, double seconds) {
        auto t0 = std::chrono::steady_clock::now();
        for (;;) {
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
            pollfd pf{fd_, POLLIN, 0};
            if (poll(&pf, 1, int(left * 1000) + 1) > 0) {
                char buf[4096];
                ssize_t n = read(fd_, buf, sizeof buf);
                if (n > 0) {
                    got_.append(buf, size_t(n));
                }
            }
        }
    }
    // Which of the needles comes first (-1: none within the time).
    int waitForAny(const std::vector<std::string> &needles, double seconds) {
        auto t0 = std::chrono::steady_clock::now();
        while (since(t0) < seconds) {
            for (size_t i = 0; i < needles.size(); i++) {
                if (got_.find(needles[i]) != std::string::npos) {
                    return waitFor(needles[i], 0.1) ? int(i) : -1;
                }
            }
            pollfd pf{fd_, POLLIN, 0};
            if (poll(&pf, 1, 100) > 0) {
                char buf[4096];
                ssize_t n = read(fd_, buf, sizeof buf);
                if (n > 0) {
                    got_.append(buf, size_t(n));
                }
            }
        }
        return -1;
    }
    std::string transcript() const { return all_ + got_; }

  private:
    std::string path_;
    int fd_ = -1;
    std::string got_, all_;
};

// A process whose path to the pseudo-terminal comes on its standard output
// as "pty: /dev/pts/N".
class Instrument {
  public:
    // fenwa-sim itself, or (child != nullptr) a fork running child().
    Instrument(const std::vector<std::string> &args, void (*child)(const std::string &dir),
               const std::string &dir) {
        int pipefd[2];
        if (pipe(pipefd) != 0) {
            return;
        }
        errPath_ = dir + ".stderr";
        fflush(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(pipefd[1], 1);
            int err = open(errPath_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(err, 2);
            close(pipefd[0]);
            if (child != nullptr) {
                child(dir);
                _exit(0);
            }
            std::vector<char *> argv;
            for (const std::string &a : args) {
                argv.push_back(const_cast<char *>(a.c_str()));
            }
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(pipefd[1]);
        std::string text;
        auto t0 = std::chrono::steady_clock::now();
        while (since(t0) < 20 && text.find('\n', text.find("pty: ")) == std::string::npos) {
            pollfd pf{pipefd[0], POLLIN, 0};
            if (poll(&pf, 1, 200) > 0) {
                char buf[256];
                ssize_t n = read(pipefd[0], buf, sizeof buf);
                if (n <= 0) {
                    break;
                }
                text.append(buf, size_t(n));
            }
        }
        close(pipefd[0]);
        size_t p = text.find("pty: ");
        if (p != std::string::npos) {
            size_t e = text.find('\n', p);
            ptyPath_ = text.substr(p + 5, e - p - 5);
        }
    }
    ~Instrument() {
        if (pid_ > 0) {
            kill(pid_, SIGTERM);
            int status = 0;
            waitpid(pid_, &status, 0);
        }
    }
    const std::string &ptyPath() const { return ptyPath_; }
    std::string messages() const {
        std::ifstream f(errPath_, std::ios::binary);
        return std::string((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    }
    pid_t pid() const { return pid_; }
    // Asks it to stop (SIGTERM) and waits: its exit status (128 + signal when killed).
    int stop(int sig = SIGTERM) {
        if (pid_ <= 0) {
            return -1;
        }
        kill(pid_, sig);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    pid_t pid_ = -1;
    std::string ptyPath_;
    std::string errPath_;
};

// Runs an lrzsz tool in `dir` on the pseudo-terminal; its exit status, or -1
// when it had to be stopped.
inline int runTool(const std::vector<std::string> &args, const std::string &dir,
                   const std::string &pty, double seconds) {
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        if (chdir(dir.c_str()) != 0) {
            _exit(126);
        }
        int fd = open(pty.c_str(), O_RDWR | O_NOCTTY);
        int log = open("tool.log", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        dup2(fd, 0);
        dup2(fd, 1);
        dup2(log, 2);
        std::vector<char *> argv;
        for (const std::string &a : args) {
            argv.push_back(const_cast<char *>(a.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
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

} // namespace hostlink
