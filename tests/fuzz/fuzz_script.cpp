// The simulator's console script reader ("SECONDS TEXT" lines, C escapes).
#include <string>
#include <vector>

#include "fuzz_board.h"
#include "sim.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<sim::ScriptByte> out;
    std::string err;
    if (!sim::parse_script(std::string(reinterpret_cast<const char *>(data), size), out, err) &&
        err.empty()) {
        __builtin_trap(); // a refused script says why
    }
    return 0;
}
