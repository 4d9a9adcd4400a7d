// Names in a host folder, read with readdir. Apart from card.cpp because the
// FAT API and <dirent.h> both name a type DIR.
#pragma once
#include <string>
#include <vector>

namespace sim {

// Every entry but "." and ".."; empty when the folder cannot be read.
std::vector<std::string> host_dir_names(const std::string &dir);

} // namespace sim
