// The simulator's state-folder reader: board.txt as the input, with the
// EEPROM and FRAM images present, missing, short or long as its first byte
// says. A folder loads or is refused with a reason; no temporary file stays.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "fuzz_board.h"
#include "program.h"

namespace fs = std::filesystem;

namespace {

void image(const fs::path &p, int kind, size_t size, char fill) {
    if (kind == 0) {
        return; // missing
    }
    size_t n = kind == 1 ? size : kind == 2 ? size / 3 : size + 17;
    std::ofstream(p, std::ios::binary) << std::string(n, fill);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1 || size > 4096) {
        return -1;
    }
    static sim::BoardState *s = sim::map_state();
    static const fs::path dir =
        fs::temp_directory_path() / ("fenwa-fuzz-state-" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir / "card");
    image(dir / "eeprom.bin", data[0] & 3, sim::kEepromBytes, char(0xFF));
    image(dir / "fram.bin", (data[0] >> 2) & 3, sim::kFramBytes, 0);
    std::ofstream(dir / "board.txt", std::ios::binary)
        << std::string(reinterpret_cast<const char *>(data + 1), size - 1);
    {
        sim::Folder folder(dir.string());
        std::string log, err;
        // an erased EEPROM where none is: no factory image made in a child
        if (!folder.load(*s, true, log, err) && err.empty()) {
            std::fprintf(stderr, "fuzz invariant: a refused state folder says why\n");
            std::abort();
        }
        folder.close();
    }
    for (const auto &e : fs::directory_iterator(dir)) {
        std::string n = e.path().filename().string();
        if (n != "card" && n != "eeprom.bin" && n != "fram.bin" && n != "board.txt") {
            std::fprintf(stderr, "fuzz invariant: %s left in the state folder\n", n.c_str());
            std::abort();
        }
    }
    fs::remove_all(dir);
    return 0;
}
