// Feeds every file of the given corpus folders (or single files) to the fuzz
// target once, in name order: the checked-in corpora replayed in the
// sanitizer build without libFuzzer.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_board.h"

namespace fs = std::filesystem;

int main(int argc, char **argv) {
    std::vector<fs::path> files;
    for (int i = 1; i < argc; i++) {
        if (fs::is_directory(argv[i])) {
            for (const auto &e : fs::directory_iterator(argv[i])) {
                if (e.is_regular_file()) {
                    files.push_back(e.path());
                }
            }
        } else {
            files.emplace_back(argv[i]);
        }
    }
    std::sort(files.begin(), files.end());
    for (const auto &p : files) {
        std::ifstream f(p, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size());
    }
    std::printf("%zu inputs replayed\n", files.size());
    return files.empty() ? 1 : 0;
}
