// Scenario harness: runs the fenwa-sim program on a fresh (or given) board
// state folder with a timed console script, and gives back the console bytes
// and the board's stored images.
#pragma once
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace scenario {

struct Run {
    std::string out; // every console byte, in order
    std::string err; // the simulator's own messages
    int status = -1; // exit status of fenwa-sim
};

class Board {
  public:
    Board(); // a new, empty state folder (provisioned as a factory board on first run)
    ~Board();
    Board(const Board &) = delete;
    Board &operator=(const Board &) = delete;

    // Runs fenwa-sim --script on this board. `script` is in the script format
    // ("SECONDS TEXT" lines). `extra` are further command-line options. A run
    // that does not end with status `want` fails the test (with the program's messages).
    Run run(const std::string &script, double forSeconds = 0,
            const std::vector<std::string> &extra = {}, int want = 0);

    const std::string &dir() const { return dir_; }
    std::vector<uint8_t> eeprom() const;
    std::vector<uint8_t> fram() const;
    std::string cardFile(const std::string &name) const; // "" when missing
    void writeEeprom(const std::vector<uint8_t> &image) const;
    void writeFram(const std::vector<uint8_t> &image) const;

  private:
    std::string dir_;
};

// Little-endian field readers for the stored images.
uint32_t u32(const std::vector<uint8_t> &img, size_t off);
float f32(const std::vector<uint8_t> &img, size_t off);
std::string cstr(const std::vector<uint8_t> &img, size_t off, size_t width);

// Number of non-overlapping occurrences of `needle` in `hay`.
size_t count(const std::string &hay, const std::string &needle);

// Each of `needles` occurs in `hay` (a test failure names each one missing).
void expect_in(const std::string &hay, std::initializer_list<std::string> needles);

// The console script that deploys a new board from the menu with a sampling
// period of `seconds` (deployed at about 4 s, the first sample 2 s later).
std::string deploy_script(int seconds);

// A whole file ("" when missing).
std::string slurp(const std::string &path);

// Starts `args` (a path, or a name looked up in PATH) in a child process that
// first runs `setup` (its redirections); the child's pid.
pid_t spawn(const std::vector<std::string> &args, const std::function<void()> &setup = {});
// fenwa-sim with `args`, its standard streams on /dev/null.
pid_t start_sim(const std::vector<std::string> &args);
// Waits for a child: its exit status, or 128 + the signal that ended it.
int finish(pid_t pid);

} // namespace scenario

// In-process bench: the firmware in the test process on the simulated board.
namespace bench {

// A board just powered: console rings emptied (firmware RAM outlives a board
// reset), 1 ms tick, console at 115200 baud, interrupts on, nothing sent yet.
void power_up();
// Console bytes sent so far, once the transmitter has drained.
std::string take();
// A file on the card by its name, whatever case the card keeps it in ("" when missing).
std::string card(const std::string &name);

} // namespace bench
