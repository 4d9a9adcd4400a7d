// The energy account: supplies' on-times over power cycles, the charge they
// cost with the table of currents, its overrides, and a deployment's figures.
#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>
#include <string>

#include "energy.h"
#include "sim.h"

namespace {

using sim::BoardState;
constexpr uint64_t kHz = sim::kCpuHz;

struct Step {
    double at; // seconds
    int what;  // supply, or -1 cycle start, -2 cycle end
    bool on;
};

void play(BoardState &s, std::initializer_list<Step> steps) {
    for (const Step &st : steps) {
        s.now = uint64_t(st.at * kHz);
        if (st.what == -1) {
            sim::energy_cycle_start(s);
        } else if (st.what == -2) {
            sim::energy_cycle_end(s);
        } else {
            sim::supply_switch(s, sim::Supply(st.what), st.on);
        }
    }
}

TEST(Energy, OnTimesAddUpOverCyclesAndCountSamplingCycles) {
    BoardState s{};
    play(s, {
                {0, -1, true},
                {1, sim::kSupplyCard, true}, // no sample: the front end stays off
                {5, -2, false},
                {600, -1, true},
                {600.5, sim::kSupplyIso, true},
                {601, sim::kSupplyCtd, true},
                {602, sim::kSupplyIso, false},
                {602, sim::kSupplyIso, false}, // off twice: once
                {603, -2, false},
                {1200, -1, true},
                {1200, sim::kSupplyIso, true},
                {1202, -2, false}, // the end switches it off
            });
    sim::supply_add(s, sim::kSupplyCard, kHz / 100);
    const double want[sim::kSupplies] = {5 + 3 + 2, 1.5 + 2, 2, 0, 0, 4 + 0.01};
    for (int i = 0; i < sim::kSupplies; ++i) {
        EXPECT_DOUBLE_EQ(double(s.supply_on[i]) / kHz, want[i]) << "supply " << i;
    }
    EXPECT_EQ(s.samples, 2u);
    EXPECT_EQ(s.first_sample_at, 600 * kHz);
}

TEST(Energy, ChargeFromTheFirstSampleOn) {
    BoardState s{};
    // set-up awake 100 s, then 10 samples every 600 s, each 2 s awake, 1.5 s front end
    play(s, {{0, -1, true}, {100, -2, false}});
    for (double t = 600; t < 6600; t += 600) {
        play(s, {{t, -1, true},
                 {t, sim::kSupplyIso, true},
                 {t + 1.5, sim::kSupplyIso, false},
                 {t + 2, -2, false}});
    }
    s.now = 6600 * kHz; // ten whole periods after the first sample
    sim::Environment e;
    sim::EnergySummary m = sim::energy_summary(s, e, 1000);
    const double sleep = 0.0016 + 0.030, per = 2 * 32.0 + 1.5 * 10.0 + 598 * sleep;
    EXPECT_EQ(m.samples, 10u);
    EXPECT_NEAR(m.awake_per_sample, 2.0, 1e-9);
    EXPECT_NEAR(m.mAs_per_sample, per, 1e-6);
    EXPECT_NEAR(m.mAh_per_day, per * 144 / 3600, 1e-6);
    EXPECT_NEAR(m.days, 1000 / (per * 144 / 3600), 1e-6);
    EXPECT_NEAR(m.mAs, 100 * 32.0 + 500 * sleep + 10 * per, 1e-6);
    EXPECT_EQ(sim::energy_progress(m), ", 97.897 mAs/sample, 3.92 mAh/day, 255 days");
    e.ctd = "sbe37"; // the CTD sleeps on its own current when its port is off
    EXPECT_NEAR(sim::energy_summary(s, e, 0).mAs_per_sample, per + 600 * 0.030, 1e-6);
}

TEST(Energy, CurrentsOverriddenFromAFile) {
    const std::vector<sim::Current> saved = sim::currents();
    const struct {
        const char *text;
        const char *err; // "" = accepted
    } cases[] = {
        {"# comment\n\ncpu.run = 20   # measured\npump = 250\n", ""},
        {"cpu.run 20\n", ":1: expected \"key = milliamperes\""},
        {"cpu.run = -1\n", ":1: expected \"key = milliamperes\""},
        {"cpu.run = 2x\n", ":1: expected \"key = milliamperes\""},
        {"\nlamp = 3\n", ":2: no current called 'lamp'"},
    };
    const std::string path = testing::TempDir() + "currents.txt";
    for (const auto &c : cases) {
        FILE *f = std::fopen(path.c_str(), "w");
        std::fputs(c.text, f);
        std::fclose(f);
        std::string err;
        EXPECT_EQ(sim::load_currents(path, err), *c.err == '\0') << c.text;
        EXPECT_EQ(err, *c.err ? path + c.err : "") << c.text;
    }
    EXPECT_EQ(sim::currents()[0].mA, 20.0);
    EXPECT_EQ(sim::currents()[0].source, "overridden in " + path);
    std::string err;
    EXPECT_FALSE(sim::load_currents(path + ".absent", err));
    EXPECT_EQ(err, "--currents: cannot read " + path + ".absent");
    sim::currents() = saved;
}

} // namespace
