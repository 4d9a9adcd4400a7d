// The simulated card counts its free clusters when an allocation first needs
// them, not at f_mount: the count must still follow the files as they grow,
// go away and change between power cycles.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>

#include "ff.h"
#include "sim.h"

namespace {

namespace fs = std::filesystem;

constexpr uintmax_t kCluster = 32768; // 64 sectors of 512 bytes
constexpr uintmax_t kClusters = 65536;

// Fills the card with a sparse file so that `free_clusters` stay free next
// to what the other files hold (`others` clusters; the root folder takes one).
void fill_card(uintmax_t free_clusters, uintmax_t others) {
    fs::path big = fs::path(sim::card_dir()) / "BIG.DAT";
    std::ofstream(big, std::ios::app).close();
    std::error_code ec;
    fs::resize_file(big, (kClusters - 1 - others - free_clusters) * kCluster, ec);
    ASSERT_FALSE(ec) << ec.message();
}

uintmax_t log_size() {
    std::error_code ec;
    uintmax_t n = fs::file_size(fs::path(sim::card_dir()) / "LOG.TXT", ec);
    return ec ? 0 : n;
}

// Appends `bytes` to LOG.TXT on the mounted card: how many it took.
size_t append(size_t bytes) {
    static FIL f;
    static char block[8192];
    size_t done = 0;
    if (f_open(&f, "LOG.TXT", FA_WRITE | FA_OPEN_ALWAYS) != FR_OK ||
        f_lseek(&f, f_size(&f)) != FR_OK) {
        return 0;
    }
    for (UINT n = 1; done < bytes && n > 0; done += n) {
        UINT want = UINT(std::min(bytes - done, sizeof block));
        if (f_write(&f, block, want, &n) != FR_OK) {
            break;
        }
    }
    f_close(&f);
    return done;
}

// One power cycle: mount, append `bytes` to LOG.TXT.
void append_cycle(size_t bytes) {
    sim::CycleResult r = sim::run_cycle([bytes] {
        static FATFS vol;
        if (f_mount(&vol, "", 0) == FR_OK) {
            append(bytes);
        }
    });
    EXPECT_EQ(r.reason, sim::EndReason::Returned);
}

TEST(CardFreeCount, FollowsTheFiles) {
    sim::reset_board();
    FATFS vol;
    ASSERT_EQ(f_mount(&vol, "", 1), FR_OK);
    fill_card(2, 0);
    EXPECT_EQ(append(3 * kCluster), 2 * kCluster) << "the two free clusters, then the card is full";
    DWORD free_clusters = 1;
    FATFS *fsp = nullptr;
    ASSERT_EQ(f_getfree("", &free_clusters, &fsp), FR_OK);
    EXPECT_EQ(free_clusters, 0u);

    ASSERT_EQ(f_unlink("BIG.DAT"), FR_OK);
    ASSERT_EQ(f_getfree("", &free_clusters, &fsp), FR_OK);
    EXPECT_EQ(free_clusters, kClusters - 1 - 2);
    EXPECT_EQ(append(3 * kCluster), 3 * kCluster) << "room again after the delete";
    sim::reset_board();
}

TEST(CardFreeCount, NewInEveryPowerCycle) {
    sim::reset_board();
    fill_card(3, 0);
    append_cycle(5 * kCluster);
    EXPECT_EQ(log_size(), 3 * kCluster) << "three clusters were free";
    append_cycle(1000);
    EXPECT_EQ(log_size(), 3 * kCluster) << "the next wake-up finds the card full";

    // the card is emptied between two wake-ups: the next one sees the room
    fs::remove(fs::path(sim::card_dir()) / "BIG.DAT");
    append_cycle(kCluster);
    EXPECT_EQ(log_size(), 4 * kCluster);

    // and filled again but for one cluster
    fill_card(1, 4);
    append_cycle(3 * kCluster);
    EXPECT_EQ(log_size(), 5 * kCluster);
    sim::reset_board();
}

} // namespace
