// Deployment benchmark: the simulated instrument deployed with a 10-minute
// period and left alone for 30 days (4,320 wake-ups, each a reset, a default
// sample and a card append), or a year with --year, in fast virtual time
// through the fenwa-sim program. Reports wall time, simulated-to-wall ratio
// and the peak memory of the simulator's processes.
//
//   fenwa_bench_deploy [--year | --days N] [--period SECONDS] [--keep]
#include <strings.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "sim.h"

namespace {

// The deployment comes from the operator's menu: period, then "4 -- Deploy";
// the deployment note times out after 30 s and the first sample follows.
std::string deploy_script(unsigned period) {
    std::ostringstream s;
    s << "1 period " << period << "\\r\n"
      << "2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n";
    return s.str();
}

const double kDeployDoneSeconds = 40.0; // script, note timeout and first sample

// Sample lines in the data file (the card keeps 8.3 names in upper case).
size_t count_sample_lines(const std::string &cardDir, const std::string &name) {
    namespace fs = std::filesystem;
    std::error_code ec;
    for (auto &e : fs::directory_iterator(cardDir, ec)) {
        std::string n = e.path().filename().string();
        if (strcasecmp(n.c_str(), name.c_str()) != 0) {
            continue;
        }
        std::ifstream in(e.path(), std::ios::binary);
        size_t lines = 0;
        for (std::string line; std::getline(in, line);) {
            if (!line.empty() && line[0] == '#') {
                lines++;
            }
        }
        return lines;
    }
    return 0;
}

void usage(const char *prog) {
    std::fprintf(stderr, "usage: %s [--year | --days N] [--period SECONDS] [--keep]\n", prog);
}

} // namespace

int main(int argc, char **argv) {
    double days = 30;
    unsigned period = 600;
    bool keep = false;
    for (int i = 1; i < argc; i++) {
        std::string a = argv[i];
        if (a == "--year") {
            days = 365;
        } else if (a == "--days" && i + 1 < argc) {
            days = std::atof(argv[++i]);
        } else if (a == "--period" && i + 1 < argc) {
            period = (unsigned)std::atoi(argv[++i]);
        } else if (a == "--keep") {
            keep = true;
        } else {
            usage(argv[0]);
            return 2;
        }
    }
    if (days <= 0 || period < 10 || period > 3600) {
        usage(argv[0]);
        return 2;
    }

    char tmpl[] = "/tmp/fenwa-bench-XXXXXX";
    char *dir = mkdtemp(tmpl);
    if (dir == nullptr) {
        std::perror("mkdtemp");
        return 1;
    }

    sim::Options o;
    o.state_dir = std::string(dir) + "/state";
    o.script = deploy_script(period);
    o.for_seconds = kDeployDoneSeconds + days * 86400.0;
    o.progress = 0;

    auto t0 = std::chrono::steady_clock::now();
    sim::RunResult r = sim::run(o);
    auto t1 = std::chrono::steady_clock::now();
    double wall = std::chrono::duration<double>(t1 - t0).count();

    struct rusage ru {};
    getrusage(RUSAGE_CHILDREN, &ru);
    double peakMiB = (double)ru.ru_maxrss / 1024.0; // kilobytes on Linux

    size_t lines = count_sample_lines(o.state_dir + "/card", "noname.txt");
    size_t expected = (size_t)(days * 86400.0 / period);

    std::printf("deployment benchmark: %.0f days, period %u s\n", days, period);
    std::printf("  power cycles          %d\n", r.cycles);
    std::printf("  sample lines on card  %zu (expected about %zu)\n", lines, expected);
    std::printf("  simulated time        %.0f s (%.2f days)\n", r.seconds, r.seconds / 86400.0);
    std::printf("  wall time             %.3f s\n", wall);
    std::printf("  simulated / wall      %.0f\n", wall > 0 ? r.seconds / wall : 0.0);
    std::printf("  wall per wake-up      %.1f us\n", lines > 0 ? wall * 1e6 / (double)lines : 0.0);
    std::printf("  peak memory (child)   %.1f MiB\n", peakMiB);
    std::printf("  console output        %zu bytes\n", r.output.size());
    std::printf("  stop                  %s, exit %d\n", r.stop.c_str(), r.exit_code);
    if (r.exit_code != 0 || r.crashed) {
        std::fprintf(stderr, "%s\n", r.messages.c_str());
    }

    if (keep) {
        std::printf("  state folder          %s\n", o.state_dir.c_str());
    } else {
        std::error_code ec;
        std::filesystem::remove_all(dir, ec);
    }
    bool ok = r.exit_code == 0 && !r.crashed && lines + 2 >= expected;
    return ok ? 0 : 1;
}
