// Inside of the fenwa-sim program: what its parts share. The run (run.cpp)
// sets up a board and its console, the state folder (state_dir.cpp) keeps what
// survives between runs, the host link (host_link.cpp) is the terminal or pty
// at the far end of the console line, and the power-cycle control
// (power_cycles.cpp) forks one process per power cycle and plays the
// hibernation module between them. Only the supervisor process uses these.
#pragma once
#include <signal.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "board.h"

namespace sim {

// ---- power cycles (power_cycles.cpp) ----------------------------------------
extern volatile sig_atomic_t g_stop; // the run is asked to stop
extern volatile pid_t g_child;       // the power cycle running now
void on_stop_signal(int);
void child_signals(); // a power cycle's process: its signal handling

// ---- state folder (state_dir.cpp) --------------------------------------------
std::string read_fd_all(int fd);
std::string read_file(const std::string &p, bool &ok);
bool write_file_atomic(const std::string &p, const void *data, size_t n);

class Folder {
  public:
    explicit Folder(std::string dir) : dir_(std::move(dir)) {}
    // Loads the folder into s (a new folder is provisioned first).
    bool load(BoardState &s, bool blank_eeprom, std::string &log, std::string &err);
    bool save(const BoardState &s, const std::string &last_end, uint64_t lifetime_cycles);
    uint64_t lifetime_cycles = 0;

  private:
    bool save_images(const BoardState &s, bool force);
    void load_board_txt(BoardState &s);
    std::string dir_;
    std::vector<uint8_t> saved_eeprom_, saved_fram_;
};

// ---- host link (host_link.cpp) -----------------------------------------------
extern bool g_raw; // the terminal is in raw mode: "\r\n" line ends
void restore_tty();
void raw_terminal(int fd);

struct Console {
    int in_fd = -1;
    int out_fd = -1;
    bool quit_key = false;
    bool capture = false;
    int pty_slave = -1;
    std::string pty_name;
};
bool open_pty(Console &c, std::string &err);

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
    void power_cycles(Folder &folder);         // power_cycles.cpp
};

} // namespace sim
