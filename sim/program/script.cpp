// Timed console scripts: "SECONDS TEXT" lines with C escapes.
#include <cctype>
#include <cmath>
#include <cstdlib>
#include <sstream>

#include "sim.h"

namespace sim {

bool parse_script(const std::string &text, std::vector<ScriptByte> &out, std::string &err) {
    out.clear();
    std::istringstream in(text);
    std::string line;
    int n = 0;
    while (std::getline(in, line)) {
        ++n;
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        size_t first = line.find_first_not_of(" \t");
        if (first == std::string::npos || line[first] == '#') {
            continue;
        }
        const char *start = line.c_str() + first;
        char *end = nullptr;
        double secs = std::strtod(start, &end);
        if (end == start || !std::isfinite(secs) || secs < 0) {
            err = "script line " + std::to_string(n) + ": expected SECONDS TEXT";
            return false;
        }
        std::string raw;
        if (*end == ' ' || *end == '\t') {
            raw = std::string(end + 1);
        } else if (*end != '\0') {
            err = "script line " + std::to_string(n) + ": expected a blank after the seconds";
            return false;
        }
        uint64_t at = uint64_t(std::llround(secs * double(kCpuHz)));
        for (size_t i = 0; i < raw.size(); ++i) {
            char c = raw[i];
            if (c == '\\' && i + 1 < raw.size()) {
                char e = raw[++i];
                switch (e) {
                case 'r':
                    c = '\r';
                    break;
                case 'n':
                    c = '\n';
                    break;
                case 't':
                    c = '\t';
                    break;
                case '\\':
                    c = '\\';
                    break;
                case 'e':
                    c = 0x1B;
                    break;
                case 'b':
                    c = 0x08;
                    break;
                case 'a':
                    c = 0x07;
                    break;
                case 'f':
                    c = 0x0C;
                    break;
                case 'v':
                    c = 0x0B;
                    break;
                case '0':
                    c = 0;
                    break;
                case '\'':
                    c = '\'';
                    break;
                case '"':
                    c = '"';
                    break;
                case 'x': {
                    int v = 0, digits = 0;
                    while (digits < 2 && i + 1 < raw.size() && std::isxdigit(uint8_t(raw[i + 1]))) {
                        char h = raw[++i];
                        v = v * 16 +
                            (std::isdigit(uint8_t(h)) ? h - '0' : (std::tolower(h) - 'a' + 10));
                        ++digits;
                    }
                    if (digits == 0) {
                        out.push_back({at, uint8_t('\\')});
                        c = 'x';
                    } else {
                        c = char(v);
                    }
                    break;
                }
                default:
                    out.push_back({at, uint8_t('\\')});
                    c = e;
                    break;
                }
            }
            out.push_back({at, uint8_t(c)});
        }
    }
    return true;
}

} // namespace sim
