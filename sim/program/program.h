// Inside of the fenwa-sim program: what its parts share. The run (run.cpp)
// sets up a board and its console, the state folder (state_dir.cpp) keeps what
// survives between runs, the host link (host_link.cpp) is the terminal or pty
// at the far end of the console line, and the power-cycle control
// (power_cycles.cpp) forks one process per power cycle and plays the
// hibernation module between them. Only the supervisor process uses these.
#pragma once
#include <signal.h>
#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "board.h"

namespace sim {

// ---- power cycles (power_cycles.cpp) ----------------------------------------
extern volatile sig_atomic_t g_stop; // the run is asked to stop
extern volatile pid_t g_child;       // the power cycle running now
void on_stop_signal(int);
void forward_stop(pid_t pid); // passes the run's stop request on to a power cycle
void child_signals();         // a power cycle's process: its signal handling

// ---- state folder (state_dir.cpp) --------------------------------------------
std::string read_fd_all(int fd);
std::string read_file(const std::string &p, bool &ok);
bool write_file_atomic(const std::string &p, const void *data, size_t n);

// The state folder of a run: locked for this simulator, its images mapped
// into the board (every store lands in the file), board.txt kept open.
class Folder {
  public:
    explicit Folder(std::string dir) : dir_(std::move(dir)) {}
    ~Folder();
    Folder(const Folder &) = delete;
    Folder &operator=(const Folder &) = delete;
    // Locks the folder and maps it into s (a new folder is provisioned
    // first); what was repaired goes to `log`, why it failed to `err`.
    bool load(BoardState &s, bool blank_eeprom, std::string &log, std::string &err);
    int board_fd() const { return fd_; }
    void close(); // unmaps the images, releases the lock

  private:
    bool lock(std::string &err);
    bool map_image(const char *name, uint8_t *where, size_t size, uint8_t fill,
                   const uint8_t *fresh, const char *missing_note, std::string &log,
                   std::string &err);
    void load_board_txt(BoardState &s, std::string &log);
    std::string dir_;
    int fd_ = -1;
    BoardState *mapped_ = nullptr;
};

// ---- host link (host_link.cpp) -----------------------------------------------
extern bool g_raw; // the terminal is in raw mode: "\r\n" line ends
void restore_tty();
void raw_terminal(int fd);

// The pty's two directions, each relayed by a thread of the supervisor so
// that neither depends on what the firmware (or the client) is doing:
// - in: what the client writes is read off the pty as it arrives and queued
//   in a pipe the board reads at its line rate; a full pipe (1 MiB) stalls
//   the client, nothing is dropped.
// - out: what the board sends is held while the client does not read, up to
//   kHoldBytes; only beyond that are bytes dropped, and that is said on
//   stderr. At the end of a run the held bytes get 2 s to reach the client.
class PtyRelay {
  public:
    static constexpr size_t kHoldBytes = 64u << 20;
    ~PtyRelay() { stop(); }
    bool start(int master, std::string &err);
    int board_in() const { return in_[0]; }   // the board reads the client's bytes here
    int board_out() const { return out_[1]; } // and writes its own here
    void stop();

  private:
    void in_loop();
    void out_loop();
    int master_ = -1;
    int in_[2] = {-1, -1};
    int out_[2] = {-1, -1};
    std::thread tin_, tout_;
    std::atomic<bool> quit_{false};
};

struct Console {
    int in_fd = -1;
    int out_fd = -1;
    bool quit_key = false;
    bool capture = false;
    int pty_master = -1;
    int pty_slave = -1;
    std::string pty_name;
    std::unique_ptr<PtyRelay> relay;
};
bool open_pty(Console &c, std::string &err);
void close_pty(Console &c);

// ---- a run (run.cpp) ---------------------------------------------------------
std::string fmt_time(double s);

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

    void msg(const std::string &m); // run.cpp
    void show_progress(bool final); // run.cpp
    uint64_t virt_from_wall(int64_t wall) const;
    int64_t wall_of(uint64_t cycles) const;
    int wait_real(uint64_t until, bool &quit); // host_link.cpp
    bool wait_for_wake();                      // power_cycles.cpp
    void power_cycles();                       // power_cycles.cpp
};

// The --result file: summary_lines collects its "key = value" lines.
std::vector<std::pair<std::string, std::string>> summary_lines(const RunResult &res,
                                                               const Run &run);
void write_summary(const std::string &path, RunResult &res, const Run &run);

} // namespace sim
