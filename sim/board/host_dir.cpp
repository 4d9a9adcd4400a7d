// Names in a host folder. Plain readdir, bound with the program at start-up,
// where std::filesystem would bind its library calls again in every power
// cycle's process.
#include "host_dir.h"

#include <dirent.h>

#include <cstring>

namespace sim {

std::vector<std::string> host_dir_names(const std::string &dir) {
    std::vector<std::string> names;
    DIR *d = opendir(dir.c_str());
    if (d == nullptr) {
        return names;
    }
    while (const dirent *e = readdir(d)) {
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0) {
            names.emplace_back(e->d_name);
        }
    }
    closedir(d);
    return names;
}

} // namespace sim
