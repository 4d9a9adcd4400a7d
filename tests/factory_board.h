// A board that has not run yet, its factory EEPROM record changed first.
#pragma once
#include <array>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "scenario.h"
#include "sim.h"

#include "core/system.h"

inline void factory_board(const scenario::Board &b, const std::function<void(systemData &)> &f) {
    std::array<uint8_t, sim::kEepromBytes> img;
    std::string why;
    ASSERT_TRUE(sim::factory_eeprom(img, why)) << why;
    systemData d;
    memcpy(&d, &img[SYS_DATA_EEPROM_ADDR], sizeof d);
    f(d);
    memcpy(&img[SYS_DATA_EEPROM_ADDR], &d, sizeof d);
    std::filesystem::create_directories(b.dir());
    b.writeEeprom(std::vector<uint8_t>(img.begin(), img.end()));
}
