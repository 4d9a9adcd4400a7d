// The state folder of a board: eeprom.bin, fram.bin, board.txt (the clock and
// the hibernation module) and card/. A new folder is provisioned as a board
// leaves the factory.
#include <unistd.h>

#include <cstdio>
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

bool write_file_atomic(const std::string &p, const void *data, size_t n) {
    std::string tmp = p + ".tmp";
    {
        std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
        if (!f) {
            return false;
        }
        f.write(static_cast<const char *>(data), std::streamsize(n));
        if (!f) {
            return false;
        }
    }
    return std::rename(tmp.c_str(), p.c_str()) == 0;
}

bool Folder::load(BoardState &s, bool blank_eeprom, std::string &log, std::string &err) {
    std::error_code ec;
    fs::create_directories(dir_, ec);
    if (!fs::is_directory(dir_)) {
        err = "cannot create state folder " + dir_;
        return false;
    }
    fs::create_directories(dir_ + "/card", ec);
    bool ok = false;
    std::string e = read_file(dir_ + "/eeprom.bin", ok);
    if (!ok) {
        std::array<uint8_t, kEepromBytes> img;
        img.fill(0xFF);
        std::string why;
        if (!blank_eeprom && !factory_eeprom(img, why)) {
            log += "factory EEPROM not made (" + why + "): the EEPROM is left erased\n";
        }
        std::memcpy(s.eeprom, img.data(), kEepromBytes);
        std::memset(s.fram, 0, kFramBytes);
        s.hibernating = false;
        log += "new board in " + dir_ + "\n";
        return save_images(s, true);
    }
    if (e.size() != kEepromBytes) {
        log += "eeprom.bin is " + std::to_string(e.size()) +
               " bytes, not 4096: erased bytes fill it\n";
        e.resize(kEepromBytes, char(0xFF));
    }
    std::memcpy(s.eeprom, e.data(), kEepromBytes);
    std::string f = read_file(dir_ + "/fram.bin", ok);
    if (ok && f.size() != kFramBytes) {
        log += "fram.bin is " + std::to_string(f.size()) + " bytes, not 32768\n";
    }
    f.resize(kFramBytes, char(0));
    std::memcpy(s.fram, f.data(), kFramBytes);
    saved_eeprom_.assign(s.eeprom, s.eeprom + kEepromBytes);
    saved_fram_.assign(s.fram, s.fram + kFramBytes);
    load_board_txt(s);
    return true;
}

bool Folder::save(const BoardState &s, const std::string &last_end, uint64_t lifetime_cycles) {
    bool ok = save_images(s, false);
    std::ostringstream t;
    uint64_t into =
        uint64_t((int64_t(s.now) - s.rtc_base_cycles) % int64_t(kCpuHz) + int64_t(kCpuHz)) % kCpuHz;
    t << "# fenwa-sim board state (key = value). Remove it for a power-on reset.\n"
      << "power = " << (s.hibernating ? "hibernating" : "awake") << "\n"
      << "rtc = " << board().rtc_now() << "\n"
      << "rtc_subsecond_cycles = " << into << "\n"
      << "rtc_match = " << s.rtc_match << "\n"
      << "wake_flags = 0x" << std::hex << s.wake_flags << "\n"
      << "status = 0x" << s.hib_status << "\n"
      << "int_mask = 0x" << s.hib_int_mask << "\n"
      << "rtc_trim = 0x" << s.rtc_trim << "\n"
      << "clock_config = 0x" << s.clock_config << std::dec << "\n"
      << "module_running = " << (s.module_enabled ? 1 : 0) << "\n"
      << "rtc_enabled = " << (s.rtc_enabled ? 1 : 0) << "\n"
      << "power_cycles = " << lifetime_cycles << "\n"
      << "last_end = " << last_end << "\n";
    std::string txt = t.str();
    return write_file_atomic(dir_ + "/board.txt", txt.data(), txt.size()) && ok;
}

bool Folder::save_images(const BoardState &s, bool force) {
    bool ok = true;
    if (force || saved_eeprom_.size() != kEepromBytes ||
        std::memcmp(saved_eeprom_.data(), s.eeprom, kEepromBytes) != 0) {
        ok &= write_file_atomic(dir_ + "/eeprom.bin", s.eeprom, kEepromBytes);
        saved_eeprom_.assign(s.eeprom, s.eeprom + kEepromBytes);
    }
    if (force || saved_fram_.size() != kFramBytes ||
        std::memcmp(saved_fram_.data(), s.fram, kFramBytes) != 0) {
        ok &= write_file_atomic(dir_ + "/fram.bin", s.fram, kFramBytes);
        saved_fram_.assign(s.fram, s.fram + kFramBytes);
    }
    return ok;
}

void Folder::load_board_txt(BoardState &s) {
    std::ifstream f(dir_ + "/board.txt");
    std::map<std::string, std::string> kv;
    std::string line;
    while (std::getline(f, line)) {
        size_t eq = line.find('=');
        if (line.empty() || line[0] == '#' || eq == std::string::npos) {
            continue;
        }
        auto trim = [](std::string x) {
            size_t a = x.find_first_not_of(" \t\r"), b = x.find_last_not_of(" \t\r");
            return a == std::string::npos ? std::string() : x.substr(a, b - a + 1);
        };
        kv[trim(line.substr(0, eq))] = trim(line.substr(eq + 1));
    }
    auto num = [&](const char *k, uint64_t dflt) -> uint64_t {
        auto it = kv.find(k);
        return it == kv.end() ? dflt : std::strtoull(it->second.c_str(), nullptr, 0);
    };
    s.hibernating = kv["power"] == "hibernating";
    s.rtc_base = uint32_t(num("rtc", 0));
    s.rtc_base_cycles = -int64_t(num("rtc_subsecond_cycles", 0) % kCpuHz);
    s.rtc_match = uint32_t(num("rtc_match", 0));
    s.wake_flags = uint32_t(num("wake_flags", 0));
    s.hib_status = uint32_t(num("status", 0));
    s.hib_int_mask = uint32_t(num("int_mask", 0));
    s.rtc_trim = uint32_t(num("rtc_trim", 0x7FFF));
    s.clock_config = uint32_t(num("clock_config", 0));
    s.module_enabled = num("module_running", 0) != 0;
    s.rtc_enabled = num("rtc_enabled", 0) != 0;
    s.match_armed = s.rtc_match > s.rtc_base;
    lifetime_cycles = num("power_cycles", 0);
}

} // namespace sim
