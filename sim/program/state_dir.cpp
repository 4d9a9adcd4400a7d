// The state folder of a board: eeprom.bin, fram.bin, board.txt (the clock and
// the hibernation module) and card/. A new folder is provisioned as a board
// leaves the factory.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "program.h"

namespace sim {

namespace fs = std::filesystem;

std::string read_fd_all(int fd) {
    std::string s;
    lseek(fd, 0, SEEK_SET);
    char buf[65536];
    ssize_t n;
    while ((n = read(fd, buf, sizeof buf)) > 0) {
        s.append(buf, size_t(n));
    }
    return s;
}

std::string read_file(const std::string &p, bool &ok) {
    std::ifstream f(p, std::ios::binary);
    ok = bool(f);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

// Whole or not at all: a temporary file renamed over the old one, and no
// temporary left behind when it fails.
bool write_file_atomic(const std::string &p, const void *data, size_t n) {
    std::string tmp = p + ".tmp";
    bool ok;
    {
        std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
        if (!f) {
            return false;
        }
        f.write(static_cast<const char *>(data), std::streamsize(n));
        f.flush();
        ok = bool(f);
    }
    if (ok && std::rename(tmp.c_str(), p.c_str()) == 0) {
        return true;
    }
    int e = errno;
    std::remove(tmp.c_str());
    errno = e;
    return false;
}

namespace {
std::string sys_error(int e) {
    return std::strerror(e);
}
} // namespace

Folder::~Folder() {
    close();
}

// Maps one image file of the folder over `where`: a missing file gets
// `fresh`, a file of the wrong size is brought to `size` (filled with
// `fill`), and from then on every store of the board is in the file.
bool Folder::map_image(const char *name, uint8_t *where, size_t size, uint8_t fill,
                       const uint8_t *fresh, const char *missing_note, std::string &log,
                       std::string &err) {
    const std::string path = dir_ + "/" + name;
    struct stat st {};
    bool exists = lstat(path.c_str(), &st) == 0;
    if (exists && !S_ISREG(st.st_mode)) {
        err = path + " is not a regular file (" +
              (S_ISDIR(st.st_mode) ? std::string("a folder") : std::string("not a file")) +
              "): the board's state cannot be kept; move it away";
        return false;
    }
    int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd < 0) {
        err = "cannot open " + path + " for writing: " + sys_error(errno) +
              ": the board's state cannot be kept";
        return false;
    }
    bool ok = true;
    if (!exists) {
        if (missing_note != nullptr) {
            log += path + " is missing: " + missing_note + "\n";
        }
        ok = pwrite(fd, fresh, size, 0) == ssize_t(size);
    } else if (size_t(st.st_size) != size) {
        size_t have = size_t(st.st_size);
        log += path + " is " + std::to_string(have) + " bytes, not " + std::to_string(size) +
               (have < size
                    ? std::string(fill == 0xFF ? ": erased bytes fill it" : ": zero bytes fill it")
                    : std::string(": the bytes past ") + std::to_string(size) + " are cut off") +
               "\n";
        if (have < size) {
            std::vector<uint8_t> pad(size - have, fill);
            ok = pwrite(fd, pad.data(), pad.size(), off_t(have)) == ssize_t(pad.size());
        } else {
            ok = ftruncate(fd, off_t(size)) == 0;
        }
    }
    if (ok) {
        void *m = mmap(where, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
        ok = m != MAP_FAILED;
    }
    if (!ok) {
        err =
            "cannot write " + path + ": " + sys_error(errno) + ": the board's state cannot be kept";
    }
    ::close(fd);
    return ok;
}

bool Folder::lock(std::string &err) {
    const std::string path = dir_ + "/board.txt";
    struct stat st {};
    if (lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
        err = path + " is not a regular file: the board's state cannot be kept; move it away";
        return false;
    }
    fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
    if (fd_ < 0) {
        err = "cannot open " + path + " for writing: " + sys_error(errno) +
              ": the board's state cannot be kept";
        return false;
    }
    // A record lock on board.txt: the holder is the supervisor, and a second
    // simulator can ask who it is.
    struct flock fl {};
    fl.l_type = F_WRLCK;
    fl.l_whence = SEEK_SET;
    fl.l_len = 1;
    if (fcntl(fd_, F_SETLK, &fl) != 0) {
        struct flock who = fl;
        fcntl(fd_, F_GETLK, &who);
        err = "the state folder " + dir_ + " is in use by another fenwa-sim (process " +
              std::to_string(who.l_type == F_UNLCK ? -1 : int(who.l_pid)) + ")";
        ::close(fd_);
        fd_ = -1;
        return false;
    }
    // A second lock belongs to the open file, which every power cycle shares:
    // it goes only when the last process of the run is gone, so a run started
    // right after a kill never meets a power cycle still on its way out.
    struct flock cycles = fl;
    cycles.l_start = 1;
    for (int i = 0; fcntl(fd_, F_OFD_SETLK, &cycles) != 0; ++i) {
        if (i == 200) {
            err = "the state folder " + dir_ +
                  " is still in use by a power cycle of a fenwa-sim that has ended";
            ::close(fd_);
            fd_ = -1;
            return false;
        }
        usleep(10000);
    }
    return true;
}

bool Folder::load(BoardState &s, bool blank_eeprom, std::string &log, std::string &err) {
    std::error_code ec;
    fs::create_directories(dir_, ec);
    if (!fs::is_directory(dir_)) {
        err = "cannot create the state folder " + dir_ + ": " +
              (ec ? ec.message() : std::string("a file is in the way"));
        return false;
    }
    bool fresh_board = !fs::exists(dir_ + "/eeprom.bin") && !fs::exists(dir_ + "/fram.bin") &&
                       !fs::exists(dir_ + "/board.txt");
    if (!lock(err)) {
        return false;
    }
    if (!fs::is_directory(dir_ + "/card") && !fs::create_directories(dir_ + "/card", ec)) {
        err = "cannot make the card folder " + dir_ + "/card: " + ec.message();
        return false;
    }
    std::array<uint8_t, kEepromBytes> img;
    img.fill(0xFF);
    if (!fs::exists(dir_ + "/eeprom.bin") && !blank_eeprom) {
        std::string why;
        if (!factory_eeprom(img, why)) {
            log += "factory EEPROM not made (" + why + "): the EEPROM is left erased\n";
        }
    }
    static const uint8_t zeros[kFramBytes] = {};
    if (!map_image("eeprom.bin", s.eeprom, kEepromBytes, 0xFF, img.data(),
                   fresh_board ? nullptr
                               : (blank_eeprom ? "an erased EEPROM is written"
                                               : "a factory EEPROM is written"),
                   log, err) ||
        !map_image("fram.bin", s.fram, kFramBytes, 0, zeros,
                   fresh_board ? nullptr
                               : "a zeroed FRAM is written (the firmware assigns its defaults)",
                   log, err)) {
        close();
        return false;
    }
    mapped_ = &s;
    if (fresh_board) {
        log += "new board in " + dir_ + "\n";
        s.hibernating = false;
        s.power_off = true;
        return true;
    }
    load_board_txt(s, log);
    return true;
}

void Folder::close() {
    if (mapped_ != nullptr) {
        // the board's memory becomes its own again (the files keep the state)
        for (auto [p, n] : {std::pair<uint8_t *, size_t>{mapped_->eeprom, kEepromBytes},
                            std::pair<uint8_t *, size_t>{mapped_->fram, kFramBytes}}) {
            std::vector<uint8_t> copy(p, p + n);
            mmap(p, n, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_FIXED, -1, 0);
            std::memcpy(p, copy.data(), n);
        }
        mapped_ = nullptr;
    }
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

void Folder::load_board_txt(BoardState &s, std::string &log) {
    std::string text;
    char buf[4096];
    ssize_t n;
    off_t at = 0;
    while ((n = pread(fd_, buf, sizeof buf, at)) > 0) {
        text.append(buf, size_t(n));
        at += n;
    }
    s.board_txt_len = uint32_t(text.size());
    const std::string path = dir_ + "/board.txt";
    if (text.empty()) {
        log += path + " is missing or empty: a power-on start\n";
        s.hibernating = false;
        s.power_off = true;
        return;
    }
    std::map<std::string, std::string> kv;
    std::istringstream in(text);
    std::string line;
    int ln = 0;
    auto trim = [](std::string x) {
        size_t a = x.find_first_not_of(" \t\r"), b = x.find_last_not_of(" \t\r");
        return a == std::string::npos ? std::string() : x.substr(a, b - a + 1);
    };
    while (std::getline(in, line)) {
        ++ln;
        std::string t = trim(line);
        if (t.empty() || t[0] == '#') {
            continue;
        }
        size_t eq = t.find('=');
        if (eq == std::string::npos) {
            log += path + " line " + std::to_string(ln) + " is not \"key = value\": ignored\n";
            continue;
        }
        kv[trim(t.substr(0, eq))] = trim(t.substr(eq + 1));
    }
    bool bad = false;
    auto num = [&](const char *k, uint64_t dflt, const char *what) -> uint64_t {
        auto it = kv.find(k);
        if (it == kv.end()) {
            log += path + " has no " + k + ": " + what + "\n";
            bad = true;
            return dflt;
        }
        const char *p = it->second.c_str();
        char *end = nullptr;
        errno = 0;
        uint64_t v = std::strtoull(p, &end, 0);
        if (end == p || *end != '\0' || errno != 0 || it->second[0] == '-') {
            log += path + ": \"" + k + " = " + it->second + "\" is not a number: " + what + "\n";
            bad = true;
            return dflt;
        }
        return v;
    };
    const std::string power = kv.count("power") ? kv["power"] : "";
    s.hibernating = power == "hibernating";
    s.power_off = power == "off";
    if (power != "hibernating" && power != "awake" && power != "off") {
        log += path + ": power = \"" + power +
               "\" is not hibernating, awake or off: a power-on start\n";
        s.power_off = true;
    }
    s.rtc_base = uint32_t(num("rtc", 0, "the clock starts at 0 (1970) and a power-on start"));
    s.rtc_base_cycles = -int64_t(num("rtc_subsecond_cycles", 0, "0 used") % kCpuHz);
    s.rtc_match = uint32_t(num("rtc_match", 0, "no match"));
    s.wake_flags = uint32_t(num("wake_flags", 0, "no wake source"));
    s.hib_status = uint32_t(num("status", 0, "0 used"));
    s.hib_int_mask = uint32_t(num("int_mask", 0, "0 used"));
    s.rtc_trim = uint32_t(num("rtc_trim", 0x7FFF, "0x7fff used"));
    s.clock_config = uint32_t(num("clock_config", 0, "0 used"));
    s.module_enabled = num("module_running", 0, "a stopped module") != 0;
    s.rtc_enabled = num("rtc_enabled", 0, "a stopped clock") != 0;
    s.match_armed = s.rtc_match > s.rtc_base;
    s.lifetime_cycles = num("power_cycles", 0, "counted from 0");
    if (bad && !s.power_off) {
        log += path + ": a damaged clock state: a power-on start\n";
        s.hibernating = false;
        s.power_off = true;
    }
}

} // namespace sim
