// Power cut at a write point, for the power-cut sweep (bench/power_cut_sweep.py
// and its short CTest slice). Every place the board stores something that
// outlives the power is a write point: an EEPROM program, an FRAM write
// transaction, a card write and a card close. With FENWA_CUT_LOG=FILE each
// power cycle appends one line per write point to FILE ("N kind address
// bytes"); with FENWA_CUT_AT=N the Nth write point of the run (counted from 1
// across its power cycles) is torn: the first half of it lands, then the power
// goes, for the whole simulator at once, exactly as a SIGKILL of it.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "board.h"

namespace sim {
bool g_power_cut_armed = false;
namespace {
uint64_t *g_count = nullptr; // shared by the power cycles of the run
uint64_t g_cut_at = 0;
int g_log = -1;
} // namespace

void power_cut_arm() {
    const char *at = std::getenv("FENWA_CUT_AT");
    const char *log = std::getenv("FENWA_CUT_LOG");
    if ((at == nullptr || *at == 0) && (log == nullptr || *log == 0)) {
        return;
    }
    if (g_count != nullptr) {
        return; // armed once, in the supervisor, before the first fork
    }
    void *p =
        mmap(nullptr, sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        return;
    }
    g_count = static_cast<uint64_t *>(p);
    *g_count = 0;
    g_power_cut_armed = true;
    g_cut_at = at != nullptr ? std::strtoull(at, nullptr, 10) : 0;
    if (log != nullptr && *log != 0 && g_log < 0) {
        g_log = open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    }
}

uint32_t write_point(const char *kind, uint32_t address, uint32_t units) {
    // only a power cycle of a run has a power to cut; unit tests run on
    if (g_count == nullptr || board().mode != Board::Mode::Child) {
        return units;
    }
    uint64_t n = ++*g_count;
    if (g_log >= 0) {
        dprintf(g_log, "%llu %s %u %u\n", (unsigned long long)n, kind, unsigned(address),
                unsigned(units));
    }
    return n == g_cut_at ? units / 2 : units;
}

void power_cut_now() {
    kill(getppid(), SIGKILL);
    kill(getpid(), SIGKILL);
    _exit(137);
}

} // namespace sim
