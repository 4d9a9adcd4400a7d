// The EEPROM controller and hibernation module drivers (platform/tm4c123)
// against register-level models of the two modules, after the data sheet.
// chip.h hands every register access to chip_reg_read/chip_reg_write below;
// SysCtlDelay only counts, so every time-out ends in virtual time.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "core/system.h"
#include "eeprom.h"
#include "hibernate.h"
#include "sysctl.h"

namespace {

constexpr uint32_t EE = 0x400AF000u;
constexpr uint32_t EESIZE = EE + 0x00u, EEBLOCK = EE + 0x04u, EEOFFSET = EE + 0x08u;
constexpr uint32_t EERDWR = EE + 0x10u, EERDWRINC = EE + 0x14u, EEDONE = EE + 0x18u;
constexpr uint32_t EESUPP = EE + 0x1Cu;
constexpr uint32_t SREEPROM = 0x400FE558u, PREEPROM = 0x400FEA58u, PRHIB = 0x400FEA14u;
constexpr uint32_t HIB = 0x400FC000u;
constexpr uint32_t HIBRTCC = HIB + 0x00u, HIBRTCM0 = HIB + 0x04u, HIBRTCLD = HIB + 0x0Cu;
constexpr uint32_t HIBCTL = HIB + 0x10u, HIBIM = HIB + 0x14u, HIBRIS = HIB + 0x18u;
constexpr uint32_t HIBMIS = HIB + 0x1Cu, HIBIC = HIB + 0x20u, HIBRTCT = HIB + 0x24u;

constexpr uint32_t kWorking = 0x01u, kNoPerm = 0x10u, kWrBusy = 0x20u;
constexpr uint32_t kEretry = 0x04u, kPretry = 0x08u;
constexpr uint32_t kRtcEn = 1u << 0, kHibReq = 1u << 1, kClk32En = 1u << 6, kVdd3On = 1u << 8;
constexpr uint32_t kOscDrv = 1u << 17, kWrc = 1u << 31;
constexpr uint32_t kHibInts = 0x1Du; // RTCALT0, LOWBAT, EXTW, WC
constexpr uint32_t kCtl = kClk32En | kRtcEn | kVdd3On;

// 2 KB as 32 blocks of 16 words, behind the block/offset window.
struct EepromModel {
    static constexpr uint32_t kBlocks = 32u, kBlockWords = 16u;
    std::array<uint32_t, kBlocks * kBlockWords> words;
    uint32_t block = 0, offset = 0, done = 0;
    // How the controller behaves.
    uint32_t busyReads = 2;         // EEDONE reads still WORKING (power-up work first)
    uint32_t busyReadsPerWrite = 3; // after each word program
    uint32_t stickAfter = ~0u;      // programs after which it never finishes again
    bool stuck = false, neverReady = false, inReset = false;
    uint32_t supp = 0, suppAfterReset = 0;
    uint32_t notReadyReads = 0, notReadyReadsAfterReset = 3;
    // What it saw.
    uint32_t eedoneReads = 0, programs = 0, resets = 0, dataAccesses = 0;
    uint32_t badBlocks = 0, busyWrites = 0, notReadyAccesses = 0;

    EepromModel() { words.fill(0xFFFFFFFFu); }
    uint32_t &cur() { return words[block * kBlockWords + offset]; }
    bool ready() const { return !neverReady && !inReset && notReadyReads == 0u; }
    bool working() { return stuck || (busyReads > 0u && (busyReads--, true)); }
    // The offset wraps within the block; the block never steps.
    void step(uint32_t addr) { offset = addr == EERDWRINC ? (offset + 1u) % kBlockWords : offset; }
    uint32_t read(uint32_t addr) {
        if (addr == PREEPROM) {
            return neverReady || inReset ? 0u : notReadyReads > 0u ? (notReadyReads--, 0u) : 1u;
        }
        if (addr == SREEPROM) {
            return inReset ? 1u : 0u;
        }
        notReadyAccesses += ready() ? 0u : 1u;
        if (addr == EERDWR || addr == EERDWRINC) {
            dataAccesses++;
            uint32_t v = cur();
            step(addr);
            return v;
        }
        if (addr == EEDONE) {
            eedoneReads++;
            return working() ? kWorking : done;
        }
        if (addr == EESIZE || addr == EESUPP) {
            return addr == EESUPP ? supp : (kBlocks << 16) | (kBlocks * kBlockWords);
        }
        ADD_FAILURE() << "EEPROM read at " << std::hex << addr;
        return 0u;
    }
    void write(uint32_t addr, uint32_t v) {
        if (addr == SREEPROM && (v & 1u) != 0u) {
            inReset = true;
        } else if (addr == SREEPROM && inReset) {
            inReset = false;
            resets++;
            block = offset = 0u;
            busyReads = 2u;
            notReadyReads = notReadyReadsAfterReset;
            supp = suppAfterReset;
        }
        if (addr == SREEPROM) {
            return;
        }
        notReadyAccesses += ready() ? 0u : 1u;
        if (addr == EEBLOCK) {
            // The chip takes a block past the last one as block 0.
            badBlocks += v >= kBlocks ? 1u : 0u;
            block = v < kBlocks ? v : 0u;
        } else if (addr == EEOFFSET) {
            offset = v & 0xFu;
        } else if (addr != EERDWR && addr != EERDWRINC) {
            ADD_FAILURE() << "EEPROM write at " << std::hex << addr;
        } else if (dataAccesses++, stuck || busyReads > 0u) {
            busyWrites++;
            done = kWrBusy;
        } else {
            cur() = v;
            step(addr);
            done = 0u;
            busyReads = busyReadsPerWrite;
            stuck = ++programs >= stickAfter;
        }
    }
};

// Registers in the 32 kHz domain: after each write WRC reads low a few times.
struct HibModel {
    bool gateOpen = true;
    bool deadOscillator = false; // once CLK32EN is set, no write completes
    uint32_t ctl = 0, rtc = 0, match = 0, im = 0, ris = 0, trim = 0x7FFFu;
    uint32_t wrcLowReads = 0, wrcReadsPerWrite = 3;
    uint32_t writeFaults = 0, readFaults = 0, gateFaults = 0, ctlReads = 0, requests = 0;
    std::vector<std::pair<uint32_t, uint32_t>> writes;

    bool wrc() const { return wrcLowReads == 0u && !(deadOscillator && (ctl & kClk32En) != 0u); }
    uint32_t read(uint32_t addr) {
        if (addr == PRHIB || !gateOpen) {
            gateFaults += addr == PRHIB ? 0u : 1u; // a bus fault on the chip
            return gateOpen ? 1u : 0u;
        }
        if (addr == HIBCTL) {
            ctlReads++;
            uint32_t v = ctl | (wrc() ? kWrc : 0u);
            wrcLowReads -= wrcLowReads > 0u ? 1u : 0u;
            return v;
        }
        readFaults += wrc() ? 0u : 1u;
        const std::pair<uint32_t, uint32_t> regs[] = {{HIBRTCC, rtc},     {HIBRTCM0, match},
                                                      {HIBIM, im},        {HIBRIS, ris},
                                                      {HIBMIS, ris & im}, {HIBRTCT, trim}};
        for (const auto &r : regs) {
            if (r.first == addr) {
                return r.second;
            }
        }
        ADD_FAILURE() << "hibernation read at " << std::hex << addr;
        return 0u;
    }
    void write(uint32_t addr, uint32_t v) {
        if (!gateOpen || !wrc()) {
            (gateOpen ? writeFaults : gateFaults)++; // the write is lost
            return;
        }
        writes.emplace_back(addr, v);
        wrcLowReads = wrcReadsPerWrite;
        requests += addr == HIBCTL && (v & kHibReq) != 0u ? 1u : 0u;
        std::pair<uint32_t, uint32_t *> regs[] = {{HIBRTCLD, &rtc}, {HIBRTCM0, &match},
                                                  {HIBCTL, &ctl},   {HIBIM, &im},
                                                  {HIBIC, &ris},    {HIBRTCT, &trim}};
        for (auto &r : regs) {
            if (r.first == addr) {
                // Write-complete is read-only, the mask holds this part's sources,
                // a clear takes bits away, the trim is 16 bits.
                *r.second = addr == HIBCTL    ? v & ~kWrc
                            : addr == HIBIM   ? v & kHibInts
                            : addr == HIBIC   ? ris & ~v
                            : addr == HIBRTCT ? v & 0xFFFFu
                                              : v;
                return;
            }
        }
        ADD_FAILURE() << "hibernation write at " << std::hex << addr;
    }
    void tick(uint32_t seconds) {
        for (uint32_t s = 0; s < seconds && (ctl & kRtcEn) != 0u; s++) {
            ris |= ++rtc == match ? 1u : 0u;
        }
    }
};

EepromModel ee;
HibModel hib;
uint64_t g_delayCounts = 0;

bool is_hib(uint32_t addr) {
    return addr == PRHIB || (addr >= HIB && addr < HIB + 0x1000u);
}

// Virtual time spent in SysCtlDelay: 3 cycles a count at 50 MHz.
double delay_ms() {
    return (double)g_delayCounts * 3.0 / 50000.0;
}

class ChipTest : public ::testing::Test {
  protected:
    void SetUp() override { ee = EepromModel(), hib = HibModel(), g_delayCounts = 0; }
    // No driver writes over a write still completing, or reads before it ends.
    void TearDown() override { EXPECT_EQ(hib.writeFaults + hib.readFaults, 0u); }
};

} // namespace

uint32_t chip_reg_read(uint32_t addr) {
    return is_hib(addr) ? hib.read(addr) : ee.read(addr);
}
void chip_reg_write(uint32_t addr, uint32_t value) {
    is_hib(addr) ? hib.write(addr, value) : ee.write(addr, value);
}
// A driver wait that never ends fails the test instead of hanging it.
void SysCtlDelay(uint32_t count) {
    g_delayCounts += count;
    if (delay_ms() > 10000.0) {
        ADD_FAILURE() << "more than 10 s of busy waiting";
        std::abort();
    }
}

namespace {

// ---- EEPROM -----------------------------------------------------------------

// A case of a parameterised suite by its name.
template <class T> std::string named(const ::testing::TestParamInfo<T> &i) {
    return i.param.name;
}

struct InitFault {
    const char *name;
    std::function<void(EepromModel &)> setup;
    uint32_t result;
    uint32_t resets;       // resets done (before giving up)
    uint32_t maxDoneReads; // EEDONE polls: bounded, no hang
};

class EepromInitFault : public ChipTest, public ::testing::WithParamInterface<InitFault> {};

TEST_P(EepromInitFault, StartsOrReportsErrorWithinBoundedPolls) {
    GetParam().setup(ee);
    EXPECT_EQ(EEPROMInit(), GetParam().result);
    EXPECT_EQ(ee.resets, GetParam().resets);
    EXPECT_LE(ee.eedoneReads, GetParam().maxDoneReads);
    EXPECT_EQ(ee.notReadyAccesses, 0u);
    EXPECT_LT(delay_ms(), 2100.0);
    if (GetParam().result == EEPROM_INIT_OK) {
        EXPECT_EQ(EEPROMSizeGet(), 2048u);
    }
}

const InitFault kInitFaults[] = {
    {"Healthy", [](EepromModel &) {}, EEPROM_INIT_OK, 1u, 6u},
    {"EraseRetryAtPowerUp", [](EepromModel &m) { m.supp = kEretry; }, EEPROM_INIT_ERROR, 0u, 3u},
    {"ProgramRetryAfterReset", [](EepromModel &m) { m.suppAfterReset = kPretry; },
     EEPROM_INIT_ERROR, 1u, 6u},
    {"StaysWorking", [](EepromModel &m) { m.stuck = true; }, EEPROM_INIT_ERROR, 0u, 2000001u},
    {"NeverReady", [](EepromModel &m) { m.neverReady = true; }, EEPROM_INIT_ERROR, 0u, 0u},
    {"SlowAfterReset", [](EepromModel &m) { m.notReadyReadsAfterReset = 5000u; }, EEPROM_INIT_ERROR,
     1u, 3u},
};

INSTANTIATE_TEST_SUITE_P(Chip, EepromInitFault, ::testing::ValuesIn(kInitFaults), named<InitFault>);

// A configuration record with known fields over a byte pattern.
std::vector<uint32_t> record_words() {
    systemData rec;
    uint8_t *p = reinterpret_cast<uint8_t *>(&rec);
    for (size_t i = 0; i < sizeof rec; i++) {
        p[i] = (uint8_t)(i * 7u + 3u);
    }
    rec.baud_rate = 115200u;
    rec.pHOffset = -0.25f;
    memcpy(rec.firmware_version, FIRMWARE_VERSION, sizeof FIRMWARE_VERSION);
    std::vector<uint32_t> w(sizeof rec / 4u);
    memcpy(w.data(), &rec, sizeof rec);
    return w;
}

TEST_F(ChipTest, EepromRecordLandsWholeAtChipByteZero) {
    ASSERT_EQ(EEPROMInit(), EEPROM_INIT_OK);
    std::vector<uint32_t> rec = record_words();
    ASSERT_EQ(rec.size() * 4u, 1352u);
    EXPECT_EQ(EEPROMProgram(rec.data(), SYS_DATA_EEPROM_ADDR, 1352u), 0u);

    EXPECT_TRUE(std::equal(rec.begin(), rec.end(), ee.words.begin())); // word 0 is chip byte 0
    EXPECT_TRUE(
        std::all_of(ee.words.begin() + 338, ee.words.end(), [](uint32_t w) { return w == ~0u; }));
    EXPECT_EQ(ee.programs, 338u); // every word differed from the erased 0xFFFFFFFF
    EXPECT_EQ(ee.busyWrites + ee.badBlocks + ee.notReadyAccesses, 0u);

    std::vector<uint32_t> back(rec.size(), 0u);
    EEPROMRead(back.data(), SYS_DATA_EEPROM_ADDR, 1352u);
    EXPECT_EQ(back, rec);

    // Stored again: only the words that changed are programmed.
    ASSERT_EQ(EEPROMProgram(rec.data(), 1024u, 1352u), 0u);
    EXPECT_EQ(ee.programs, 338u);
    rec[200] ^= 1u;
    EXPECT_EQ(EEPROMProgram(rec.data(), 1024u, 1352u), 0u);
    EXPECT_EQ(ee.programs, 339u);
    EXPECT_EQ(ee.words[200], rec[200]);
}

struct Span {
    uint32_t address, count, status = kNoPerm; // what a program of the span reports
};

class EepromSpan : public ChipTest, public ::testing::WithParamInterface<Span> {};

// Spans that start inside a block and cross into the next ones; the last is
// the simulator's eeprom.bin from byte 1024 on, the chip's whole EEPROM.
TEST_P(EepromSpan, ReadsAndProgramsTheWordsItNames) {
    const uint32_t first = (GetParam().address - 1024u) / 4u, n = GetParam().count / 4u;
    std::vector<uint32_t> got(n, 0u), want(n), put(n);
    for (uint32_t i = 0; i < ee.words.size(); i++) {
        ee.words[i] = 0xC0DE0000u + i;
    }
    for (uint32_t i = 0; i < n; i++) {
        want[i] = 0xC0DE0000u + first + i, put[i] = 0xBEEF0000u + i;
    }
    EEPROMRead(got.data(), GetParam().address, GetParam().count);
    EXPECT_EQ(got, want);
    EXPECT_EQ(EEPROMProgram(put.data(), GetParam().address, GetParam().count), 0u);
    for (uint32_t w = 0; w < ee.words.size(); w++) {
        bool in = w >= first && w < first + n;
        ASSERT_EQ(ee.words[w], in ? put[w - first] : 0xC0DE0000u + w) << "word " << w;
    }
    EXPECT_EQ(ee.badBlocks + ee.busyWrites, 0u);
}

INSTANTIATE_TEST_SUITE_P(Chip, EepromSpan,
                         ::testing::Values(Span{1024u + 60u, 8u}, Span{1028u, 64u},
                                           Span{1024u + 188u, 72u}, Span{3072u - 8u, 8u},
                                           Span{3072u - 4u, 4u}, Span{1024u, 2048u}));

class EepromRefused : public ChipTest, public ::testing::WithParamInterface<Span> {};

// Below the window, past it, unaligned, odd counts, wrapping sums; and
// empty requests, which succeed.
TEST_P(EepromRefused, LeavesChipAndBufferUntouched) {
    std::vector<uint32_t> buf(600u, 0xA5A5A5A5u);
    EXPECT_EQ(EEPROMProgram(buf.data(), GetParam().address, GetParam().count), GetParam().status);
    EEPROMRead(buf.data(), GetParam().address, GetParam().count);
    EXPECT_TRUE(std::all_of(buf.begin(), buf.end(), [](uint32_t w) { return w == 0xA5A5A5A5u; }));
    EXPECT_TRUE(std::all_of(ee.words.begin(), ee.words.end(), [](uint32_t w) { return w == ~0u; }));
    EXPECT_EQ(ee.dataAccesses, 0u);
    EXPECT_EQ(EEPROMProgram(nullptr, GetParam().address, GetParam().count), kNoPerm);
    EEPROMRead(nullptr, GetParam().address, GetParam().count);
    EXPECT_EQ(ee.dataAccesses + ee.badBlocks, 0u);
}

INSTANTIATE_TEST_SUITE_P(Chip, EepromRefused,
                         ::testing::Values(Span{0u, 4u}, Span{1020u, 8u}, Span{1026u, 4u},
                                           Span{1024u, 6u}, Span{1024u, 3u}, Span{3068u, 8u},
                                           Span{3072u, 4u}, Span{1024u, 2052u},
                                           Span{0xFFFFFFFCu, 8u}, Span{1024u, 0xFFFFFFFCu},
                                           Span{1024u, 0u, 0u}, Span{2048u, 0u, 0u},
                                           Span{3072u, 0u, 0u}));

TEST_F(ChipTest, EepromProgramGivesUpOnStuckController) {
    ee.stickAfter = 5u;
    std::vector<uint32_t> rec = record_words();
    uint32_t status = EEPROMProgram(rec.data(), 1024u, 1352u);
    EXPECT_NE(status & kWorking, 0u);
    EXPECT_EQ(ee.programs, 5u);
    EXPECT_EQ(ee.busyWrites, 0u);
    EXPECT_EQ(ee.words[5], ~0u);
    EXPECT_LE(ee.eedoneReads, 2000001u + 5u * 4u);
}

// ---- hibernation module -----------------------------------------------------

struct HibCall {
    const char *name;
    std::function<void()> call;
    uint32_t startCtl, addr, value; // HIBCTL before; the one write expected
};

class HibWrite : public ChipTest, public ::testing::WithParamInterface<HibCall> {};

// Each call finds a write still completing: it waits before writing and after.
TEST_P(HibWrite, WaitsForWriteCompleteAroundItsWrite) {
    hib.ctl = GetParam().startCtl;
    hib.im = kHibInts;
    hib.wrcLowReads = 3u;
    GetParam().call();
    ASSERT_EQ(hib.writes.size(), 1u);
    EXPECT_EQ(hib.writes[0].first, GetParam().addr);
    EXPECT_EQ(hib.writes[0].second, GetParam().value);
    EXPECT_EQ(hib.requests, 0u);
    EXPECT_TRUE(hib.wrc());
}

const HibCall kHibCalls[] = {
    {"EnableClock", [] { HibernateEnableExpClk(50000000u); }, 0u, HIBCTL, kClk32En},
    {"RtcEnable", [] { HibernateRTCEnable(); }, kClk32En, HIBCTL, kClk32En | kRtcEn},
    {"RtcSet", [] { HibernateRTCSet(1700000000u); }, kCtl, HIBRTCLD, 1700000000u},
    {"MatchSet", [] { HibernateRTCMatchSet(0u, 1700000600u); }, kCtl, HIBRTCM0, 1700000600u},
    {"TrimSet", [] { HibernateRTCTrimSet(0x17FFFu); }, kCtl, HIBRTCT, 0x7FFFu},
    {"WakeSet", [] { HibernateWakeSet(HIBERNATE_WAKE_PIN | HIBERNATE_WAKE_RTC); }, kCtl, HIBCTL,
     kCtl | 0x18u},
    {"StaleRequestBit", [] { HibernateWakeSet(HIBERNATE_WAKE_PIN); }, kCtl | kHibReq, HIBCTL,
     kCtl | HIBERNATE_WAKE_PIN},
    {"WakeSetTakesOnlyWakeBits", [] { HibernateWakeSet(~HIBERNATE_WAKE_RTC & ~(1u << 9)); },
     kCtl | 0x18u, HIBCTL, kCtl | HIBERNATE_WAKE_PIN},
    {"RetentionOff", [] { HibernateGPIORetentionDisable(); }, kCtl, HIBCTL, kClk32En | kRtcEn},
    {"ClockConfig", [] { HibernateClockConfig(kOscDrv | 0x7u); }, kCtl, HIBCTL, kCtl | kOscDrv},
    {"IntClear", [] { HibernateIntClear(0xFFFFFFFFu); }, kCtl, HIBIC, kHibInts},
    {"IntDisable", [] { HibernateIntDisable(HIBERNATE_INT_RTC_MATCH_0); }, kCtl, HIBIM,
     kHibInts & ~1u},
};

INSTANTIATE_TEST_SUITE_P(Chip, HibWrite, ::testing::ValuesIn(kHibCalls), named<HibCall>);

TEST_F(ChipTest, HibernateRtcAndMatch) {
    HibernateEnableExpClk(50000000u);
    EXPECT_NE(HibernateIsActive(), 0u);
    HibernateRTCEnable();
    HibernateRTCSet(1700000000u);
    HibernateRTCMatchSet(0u, 1700000003u);
    HibernateRTCMatchSet(1u, 42u); // no second match register
    EXPECT_EQ(HibernateRTCGet(), 1700000000u);
    EXPECT_EQ(HibernateRTCMatchGet(0u), 1700000003u);
    EXPECT_EQ(HibernateRTCMatchGet(1u), 0u);
    EXPECT_EQ(HibernateIntStatus(false), 0u);
    hib.tick(3u);
    EXPECT_EQ(HibernateRTCGet(), 1700000003u);
    EXPECT_EQ(HibernateIntStatus(false), HIBERNATE_INT_RTC_MATCH_0);
    EXPECT_EQ(hib.writes.size(), 4u);
}

TEST_F(ChipTest, HibernateInterruptStatusMaskAndClear) {
    hib.ris = 0x01u | 0x08u | 0x10u | 0x40u; // RTCALT0, EXTW, WC and a bit this part lacks
    hib.im = 0x01u | 0x04u;
    EXPECT_EQ(HibernateIntStatus(false), 0x19u);
    EXPECT_EQ(HibernateIntStatus(true), HIBERNATE_INT_RTC_MATCH_0);
    HibernateIntClear(HIBERNATE_INT_PIN_WAKE);
    EXPECT_EQ(HibernateIntStatus(false), 0x11u);
    HibernateIntDisable(HIBERNATE_INT_RTC_MATCH_0);
    EXPECT_EQ(hib.im, (uint32_t)HIBERNATE_INT_LOW_BAT);
    EXPECT_EQ(HibernateIntStatus(true), 0u);
}

// The model never removes power: the request must come back after its wait.
TEST_F(ChipTest, HibernateRequestReturnsWhenPowerStays) {
    hib.ctl = kCtl | HIBERNATE_WAKE_RTC;
    EXPECT_EQ(HibernateWakeGet(), HIBERNATE_WAKE_RTC);
    HibernateRequest();
    EXPECT_EQ(hib.requests, 1u);
    EXPECT_EQ(hib.ctl, kCtl | HIBERNATE_WAKE_RTC | kHibReq);
    EXPECT_GE(delay_ms(), 100.0);
    EXPECT_LT(delay_ms(), 150.0);
}

TEST_F(ChipTest, HibernateClosedGateReadsZeroAndTouchesNothing) {
    hib.gateOpen = false;
    hib.ctl = kCtl | HIBERNATE_WAKE_PIN;
    hib.rtc = hib.match = hib.ris = hib.im = 0x11u;
    EXPECT_EQ(HibernateIsActive() | HibernateRTCGet() | HibernateRTCMatchGet(0u) |
                  HibernateWakeGet() | HibernateIntStatus(false) | HibernateIntStatus(true),
              0u);
    HibernateEnableExpClk(50000000u);
    HibernateRTCSet(5u);
    HibernateIntClear(0x1Du);
    HibernateRequest();
    EXPECT_EQ(hib.gateFaults, 0u);
    EXPECT_TRUE(hib.writes.empty());
}

// A crystal that never starts slows each call down but neither hangs the
// instrument nor writes over a write that never completed.
TEST_F(ChipTest, HibernateDeadOscillatorIsBoundedAndNeverWritesBlind) {
    hib.deadOscillator = true;
    HibernateEnableExpClk(50000000u);
    HibernateRTCEnable();
    HibernateRTCSet(7u);
    HibernateWakeSet(HIBERNATE_WAKE_RTC);
    HibernateIntClear(0x1Du);
    HibernateRequest();
    EXPECT_EQ(hib.writes.size(), 1u); // only the one that enabled the clock
    EXPECT_LT(delay_ms(), 1500.0 * 1.05 + 5 * 40.0 + 100.0);
    EXPECT_LT(hib.ctlReads, 1500000u + 5u * 40002u + 10u);
}

} // namespace
