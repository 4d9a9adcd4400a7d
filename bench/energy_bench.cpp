// Energy table: what a deployment costs in battery, for the default sensor
// package, with an SBE37 on the CTD port, with an optode on the instrument
// port, and with a 10-second pump run, at sampling periods of 60, 600 and
// 3600 s. Each row deploys a new board from the operator's menu and runs it
// for two simulated days; the figures count from the first sample on.
//
//   fenwa_bench_energy [--days N] [--battery-mAh MAH]
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "core/system.h"
#include "sim.h"

namespace {

struct Package {
    const char *name;
    const char *ctd, *inst; // the models on the ports
    uint8_t ctd_code, inst_code;
    uint32_t pump_s; // pump run per sample (0: none)
};

const Package kPackages[] = {
    {"default", "none", "none", 5, 0, 0},
    {"SBE37 CTD", "sbe37", "none", 6, 0, 0},
    {"optode", "none", "optode", 5, 1, 0},
    {"pump 10 s", "none", "none", 5, 0, 10},
};
const unsigned kPeriods[] = {60, 600, 3600};

// The configuration record lies at EEPROM byte 1024 (the state folder's eeprom.bin).
void patch_record(const std::string &path, const Package &p) {
    std::fstream f(path, std::ios::in | std::ios::out | std::ios::binary);
    auto put = [&f](size_t off, const void *v, size_t n) {
        f.seekp(std::streamoff(1024 + off));
        f.write(static_cast<const char *>(v), std::streamsize(n));
    };
    put(offsetof(systemData, data_cfg) + CFG_UART4_INST, &p.ctd_code, 1);
    put(offsetof(systemData, data_cfg) + CFG_UART3_INST, &p.inst_code, 1);
    uint32_t type = p.pump_s > 0 ? 1u : 0u;
    put(offsetof(systemData, pump_seq_type), &type, 4);
    put(offsetof(systemData, pump1_ontime), &p.pump_s, 4);
}

double key(const std::string &lines, const char *k) {
    std::istringstream in(lines);
    for (std::string l; std::getline(in, l);) {
        if (l.compare(0, std::strlen(k), k) == 0 && l.compare(std::strlen(k), 3, " = ") == 0) {
            return std::atof(l.c_str() + std::strlen(k) + 3);
        }
    }
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    double days = 2, battery = 10000;
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        if (a == "--days" && i + 1 < argc) {
            days = std::atof(argv[++i]);
        } else if (a == "--battery-mAh" && i + 1 < argc) {
            battery = std::atof(argv[++i]);
        } else {
            std::fprintf(stderr, "usage: %s [--days N] [--battery-mAh MAH]\n", argv[0]);
            return 2;
        }
    }
    char tmpl[] = "/tmp/fenwa-energy-XXXXXX";
    char *dir = mkdtemp(tmpl);
    if (dir == nullptr || days <= 0) {
        return 1;
    }
    std::printf(
        "| Package | Period (s) | Awake per sample (s) | Charge per sample (mAs) | mAh per day "
        "| Days on %.0f mAh | Pump on per sample (s) |\n|---|---|---|---|---|---|---|\n",
        battery);
    int failures = 0;
    for (const Package &p : kPackages) {
        for (unsigned period : kPeriods) {
            sim::Options o;
            o.state_dir = std::string(dir) + "/state";
            std::error_code ec;
            std::filesystem::remove_all(o.state_dir, ec);
            o.for_seconds = 1; // a new board: the default record
            o.progress = 0;
            sim::run(o);
            patch_record(o.state_dir + "/eeprom.bin", p);
            std::ostringstream s;
            s << "1 period " << period << "\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n";
            if (p.pump_s > 0) { // no pump test mode, no delayed start
                s << "5 n\\r\n6 n\\r\n";
            }
            o.script = s.str();
            o.for_seconds = 40 + days * 86400.0;
            o.env.ctd = p.ctd;
            o.env.inst = p.inst;
            o.battery_mah = battery;
            sim::RunResult r = sim::run(o);
            double n = key(r.energy, "energy_samples");
            if (r.exit_code != 0 || n < 1) {
                failures++;
            }
            std::printf("| %s | %u | %.2f | %.1f | %.2f | %.0f | %.1f |\n", p.name, period,
                        key(r.energy, "energy_awake_per_sample_s"),
                        key(r.energy, "energy_mAs_per_sample"), key(r.energy, "energy_mAh_per_day"),
                        key(r.energy, "energy_days"),
                        n > 0 ? key(r.energy, "energy_on_pump_s") / n : 0.0);
            std::fflush(stdout);
        }
    }
    std::error_code ec;
    std::filesystem::remove_all(dir, ec);
    return failures == 0 ? 0 : 1;
}
