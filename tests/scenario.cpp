#include "scenario.h"

#include <gtest/gtest.h>

#include "sim.h"

#include "board/uartstdio.h"
#include "interrupt.h"
#include "sysctl.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace fs = std::filesystem;

namespace scenario {

namespace {
std::vector<uint8_t> readAll(const fs::path &p) {
    std::ifstream f(p, std::ios::binary);
    return std::vector<uint8_t>((std::istreambuf_iterator<char>(f)),
                                std::istreambuf_iterator<char>());
}
void writeAll(const fs::path &p, const std::vector<uint8_t> &v) {
    std::ofstream f(p, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char *>(v.data()), static_cast<std::streamsize>(v.size()));
}
template <class T> T field(const std::vector<uint8_t> &img, size_t off) {
    T v = 0;
    if (off + sizeof v <= img.size()) {
        std::memcpy(&v, img.data() + off, sizeof v);
    }
    return v;
}
} // namespace

Board::Board() {
    char tmpl[] = "/tmp/fenwa-scenario-XXXXXX";
    char *d = mkdtemp(tmpl);
    if (d == nullptr) {
        std::abort();
    }
    dir_ = std::string(d) + "/state";
}

Board::~Board() {
    std::error_code ec;
    fs::remove_all(fs::path(dir_).parent_path(), ec);
}

Run Board::run(const std::string &script, double forSeconds, const std::vector<std::string> &extra,
               int want) {
    const fs::path top = fs::path(dir_).parent_path();
    const std::string scriptPath = top / "script.txt", outPath = top / "stdout.txt",
                      errPath = top / "stderr.txt";
    std::ofstream(scriptPath) << script;
    std::vector<std::string> args = {FENWA_SIM_PATH, "--state", dir_, "--script", scriptPath};
    if (forSeconds > 0) {
        std::ostringstream s;
        s << forSeconds;
        args.insert(args.end(), {"--for", s.str()});
    }
    args.insert(args.end(), extra.begin(), extra.end());
    Run r;
    r.status = finish(spawn(args, [&] {
        dup2(open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
        dup2(open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
        setenv("TZ", "UTC", 1);
    }));
    r.out = slurp(outPath);
    r.err = slurp(errPath);
    EXPECT_EQ(r.status, want) << "fenwa-sim: " << r.err;
    return r;
}

std::vector<uint8_t> Board::eeprom() const {
    return readAll(fs::path(dir_) / "eeprom.bin");
}
std::vector<uint8_t> Board::fram() const {
    return readAll(fs::path(dir_) / "fram.bin");
}
void Board::writeEeprom(const std::vector<uint8_t> &image) const {
    writeAll(fs::path(dir_) / "eeprom.bin", image);
}
void Board::writeFram(const std::vector<uint8_t> &image) const {
    writeAll(fs::path(dir_) / "fram.bin", image);
}

std::string Board::cardFile(const std::string &name) const {
    return slurp(dir_ + "/card/" + name);
}

uint32_t u32(const std::vector<uint8_t> &img, size_t off) {
    return field<uint32_t>(img, off);
}
float f32(const std::vector<uint8_t> &img, size_t off) {
    return field<float>(img, off);
}
std::string cstr(const std::vector<uint8_t> &img, size_t off, size_t width) {
    std::string s;
    for (size_t i = off; i < off + width && i < img.size() && img[i] != 0; ++i) {
        s.push_back(static_cast<char>(img[i]));
    }
    return s;
}
size_t count(const std::string &hay, const std::string &needle) {
    size_t n = 0;
    for (size_t p = hay.find(needle); p != std::string::npos;
         p = hay.find(needle, p + needle.size())) {
        ++n;
    }
    return n;
}

void expect_in(const std::string &hay, std::initializer_list<std::string> needles) {
    for (const std::string &n : needles) {
        EXPECT_NE(hay.find(n), std::string::npos) << "missing: " << n << "\nin: " << hay;
    }
}

std::string deploy_script(int seconds) {
    return "1 period " + std::to_string(seconds) +
           "\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n";
}

std::string slurp(const std::string &path) {
    auto v = readAll(path);
    return std::string(v.begin(), v.end());
}

pid_t spawn(const std::vector<std::string> &args, const std::function<void()> &setup) {
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        if (setup) {
            setup();
        }
        std::vector<char *> argv;
        for (const std::string &a : args) {
            argv.push_back(const_cast<char *>(a.c_str()));
        }
        argv.push_back(nullptr);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    return pid;
}

pid_t start_sim(const std::vector<std::string> &args) {
    std::vector<std::string> all{FENWA_SIM_PATH};
    all.insert(all.end(), args.begin(), args.end());
    return spawn(all, [] {
        int null = open("/dev/null", O_RDWR);
        dup2(null, 0);
        dup2(null, 1);
        dup2(null, 2);
    });
}

int finish(pid_t pid) {
    int st = 0;
    waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

} // namespace scenario

namespace bench {

void power_up() {
    UARTFlushTx(true);
    UARTFlushRx();
    sim::reset_board();
    SysTickPeriodSet(SysCtlClockGet() / 1000u);
    SysTickEnable();
    SysTickIntEnable();
    UARTStdioConfig(0, 115200, 16000000);
    IntMasterEnable();
    sim::console_take();
}

std::string take() {
    wait_consoleTx();
    return sim::console_take();
}

std::string card(const std::string &name) {
    std::error_code ec;
    for (auto &e : fs::directory_iterator(sim::card_dir(), ec)) {
        if (strcasecmp(e.path().filename().c_str(), name.c_str()) == 0) {
            return scenario::slurp(e.path());
        }
    }
    return "";
}

} // namespace bench
