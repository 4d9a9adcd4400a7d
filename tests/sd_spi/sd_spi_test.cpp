// The card's disk layer on the simulated board: SSI0 carries the microSD card
// model selected by PA3, so every time-out ends in virtual time.
#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "board.h"
#include "diskio.h"
#include "gpio.h"
#include "sd_card.h"
#include "sim.h"

namespace {

using CardModel = sim::SdCard;
const auto csdV2 = sim::SdCard::csdV2;
const auto csdV1 = sim::SdCard::csdV1;

// The card behind PA3 on SSI0, keeping the bit time of the first and last byte clocked.
struct CardOnSsi0 : sim::SpiDevice {
    CardModel *card = nullptr;
    uint64_t firstBit = 0, lastBit = 0;
    uint32_t transfer(uint32_t out, uint64_t) override {
        lastBit = sim::board().ssi_port(SSI0_BASE)->bit_cycles;
        firstBit = firstBit != 0 ? firstBit : lastBit;
        bool selected = (sim::gpio_levels(GPIO_PORTA_BASE) & GPIO_PIN_3) == 0;
        card->present = !sim::state().card_absent;
        return card->present ? card->exchange(uint8_t(out), selected) : 0xFFu;
    }
};

class SdSpi : public ::testing::Test {
  protected:
    CardModel card;
    std::shared_ptr<CardOnSsi0> bus;
    double t0 = 0;
    void SetUp() override {
        sim::reset_board();        // SSI0 at 1 MHz, as the firmware's start-up leaves it
        sim::set_rtc(1700000000u); // 2023-11-14 22:13:20 UTC
        card = CardModel();
        bus = std::make_shared<CardOnSsi0>();
        bus->card = &card;
        sim::attach_spi(SSI0_BASE, bus);
        // Each test starts with a card just put in: the layer saw the slot empty.
        sim::state().card_absent = true;
        disk_status(0);
        sim::state().card_absent = false;
        card.csd = csdV2(15159); // 7.9 GB
        t0 = sim::now_seconds();
    }
    // PA3 driven by the layer (port A is the board's first)
    static bool csIsOutput() { return (sim::board().gpio.dir[0] & GPIO_PIN_3) != 0; }
    void TearDown() override {
        EXPECT_FALSE(csIsOutput() && (sim::gpio_levels(GPIO_PORTA_BASE) & GPIO_PIN_3) == 0)
            << "card left selected";
    }
    std::vector<std::string> cmds(size_t from = 0) {
        return std::vector<std::string>(card.log.begin() + (long)from, card.log.end());
    }
    std::vector<uint8_t> pattern(uint8_t seed) {
        std::vector<uint8_t> d(512);
        for (size_t i = 0; i < d.size(); i++) {
            d[i] = (uint8_t)(seed + i * 13u);
        }
        return d;
    }
};

struct InitCase {
    const char *name;
    bool v2, highCapacity;
    std::vector<uint8_t> csd;
    DWORD sectors, eraseSectors;
    const char *opCond;              // ACMD41 as sent, four times (the card is busy thrice)
    std::vector<std::string> finish; // commands after ACMD41
    const char *read5;               // the card's read of sector 5 (block or byte address)
};

TEST_F(SdSpi, InitialisesEachKindOfCardAndAddressesItsSectors) {
    const std::vector<InitCase> cases = {
        // clang-format off
        {"SDHC", true, true, csdV2(15159), 15160u * 1024u, 128u, "ACMD41 40000000",
         {"CMD58 0", "CMD9 0"}, "CMD17 5"},
        {"SDSC v2", true, false, csdV1(3863, 7, 10), 3864u * 1024u, 64u, "ACMD41 40000000",
         {"CMD58 0", "CMD16 200", "CMD9 0"}, "CMD17 A00"},
        {"SDSC v1", false, false, csdV1(4095, 3, 9), 4096u * 32u, 64u, "ACMD41 0",
         {"CMD16 200", "CMD9 0"}, "CMD17 A00"},
        // clang-format on
    };
    for (const InitCase &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        card.v2 = c.v2;
        card.highCapacity = c.highCapacity;
        card.csd = c.csd;
        EXPECT_EQ(disk_status(0), STA_NOINIT | STA_NODISK);
        ASSERT_EQ(disk_initialize(0), 0);
        EXPECT_EQ(disk_status(0), 0);
        std::vector<std::string> want = {"CMD0 0", "CMD8 1AA"};
        for (int i = 0; i < 4; i++) {
            want.insert(want.end(), {"CMD55 0", c.opCond});
        }
        want.insert(want.end(), c.finish.begin(), c.finish.end());
        EXPECT_EQ(cmds(), want);
        EXPECT_GE(card.wakeBytes, 10);
        EXPECT_EQ(bus->firstBit, sim::kCpuHz / 400000u);
        EXPECT_TRUE(csIsOutput());
        DWORD n = 0, erase = 0;
        WORD size = 0;
        EXPECT_EQ(disk_ioctl(0, GET_SECTOR_COUNT, &n), RES_OK);
        EXPECT_EQ(disk_ioctl(0, GET_SECTOR_SIZE, &size), RES_OK);
        EXPECT_EQ(disk_ioctl(0, GET_BLOCK_SIZE, &erase), RES_OK);
        EXPECT_EQ(n, c.sectors);
        EXPECT_EQ(size, 512u);
        EXPECT_EQ(erase, c.eraseSectors);
        BYTE buf[512];
        size_t at = card.log.size();
        ASSERT_EQ(disk_read(0, buf, 5, 1), RES_OK);
        EXPECT_EQ(cmds(at), std::vector<std::string>{c.read5});
        EXPECT_EQ(std::vector<uint8_t>(buf, buf + 512), card.sector(5));
        EXPECT_EQ(bus->lastBit, sim::kCpuHz / 12500000u);
        TearDown();
    }
}

TEST_F(SdSpi, SingleAndMultiBlockDataMakeTheRoundTrip) {
    ASSERT_EQ(disk_initialize(0), 0);
    std::vector<uint8_t> three;
    for (uint8_t s = 1; s <= 3; s++) {
        std::vector<uint8_t> p = pattern(s);
        three.insert(three.end(), p.begin(), p.end());
    }
    size_t at = card.log.size();
    EXPECT_EQ(disk_write(0, pattern(9).data(), 100, 1), RES_OK);
    EXPECT_EQ(card.busy, 0) << "returned while the card was still programming";
    EXPECT_EQ(disk_write(0, three.data(), 200, 3), RES_OK);
    EXPECT_EQ(card.busy, 0) << "returned while the card was still programming";
    EXPECT_EQ(disk_ioctl(0, CTRL_SYNC, nullptr), RES_OK);
    EXPECT_EQ(cmds(at), (std::vector<std::string>{"CMD24 64", "CMD55 0", "ACMD23 3", "CMD25 C8"}));
    EXPECT_EQ(card.sectors[100], pattern(9));
    EXPECT_EQ(card.sectors[202], pattern(3));

    std::vector<uint8_t> back(4 * 512);
    at = card.log.size();
    EXPECT_EQ(disk_read(0, back.data(), 199, 4), RES_OK);
    EXPECT_EQ(cmds(at), (std::vector<std::string>{"CMD18 C7", "CMD12 0"}));
    EXPECT_EQ(std::vector<uint8_t>(back.begin(), back.begin() + 512), card.sector(199));
    EXPECT_EQ(std::vector<uint8_t>(back.begin() + 512, back.end()), three);
    // Still in step with the card after the stop.
    EXPECT_EQ(disk_read(0, back.data(), 100, 1), RES_OK);
    EXPECT_EQ(std::vector<uint8_t>(back.begin(), back.begin() + 512), pattern(9));
}

struct FaultCase {
    const char *name;
    std::function<void(CardModel &)> fault;
    DSTATUS init;        // disk_initialize's answer
    DRESULT read, write; // then disk_read and disk_write of one sector
};

TEST_F(SdSpi, EveryFailureEndsWithItsResult) {
    const std::vector<FaultCase> cases = {
        {"no card behind the socket", [](CardModel &c) { c.answers = false; }, STA_NOINIT,
         RES_NOTRDY, RES_NOTRDY},
        {"card detect says empty", [](CardModel &) { sim::state().card_absent = true; },
         STA_NOINIT | STA_NODISK, RES_NOTRDY, RES_NOTRDY},
        {"never leaves idle", [](CardModel &c) { c.busyPolls = 1 << 30; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY},
        {"MMC: ACMD41 illegal", [](CardModel &c) { c.v2 = false, c.illegal = {41}; }, STA_NOINIT,
         RES_NOTRDY, RES_NOTRDY},
        {"CMD8 echo garbled", [](CardModel &c) { c.echoFlip = 0x01; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY},
        {"CSD read illegal", [](CardModel &c) { c.illegal = {9}; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY},
        {"read command illegal", [](CardModel &c) { c.illegal = {17}; }, 0, RES_ERROR, RES_OK},
        {"read error token", [](CardModel &c) { c.readToken = 0x08; }, 0, RES_ERROR, RES_OK},
        {"no data token", [](CardModel &c) { c.accessBytes = 1 << 20; }, 0, RES_ERROR, RES_OK},
        {"write rejected (write error)", [](CardModel &c) { c.dataResponse = 0x0D; }, 0, RES_OK,
         RES_ERROR},
        {"write rejected (CRC)", [](CardModel &c) { c.dataResponse = 0x0B; }, 0, RES_OK, RES_ERROR},
        {"busy for ever after a write", [](CardModel &c) { c.writeBusyBytes = 1 << 30; }, 0, RES_OK,
         RES_ERROR},
    };
    for (const FaultCase &c : cases) {
        SCOPED_TRACE(c.name);
        SetUp();
        bool dataFault = c.init == 0;
        if (!dataFault) {
            c.fault(card);
        }
        EXPECT_EQ(disk_initialize(0), c.init);
        if (dataFault) {
            c.fault(card);
        }
        BYTE buf[512] = {};
        size_t at = card.log.size();
        EXPECT_EQ(disk_read(0, buf, 7, 1), c.read);
        EXPECT_EQ(disk_write(0, buf, 7, 1), c.write);
        EXPECT_EQ(card.log.size() > at, dataFault) << "the card addressed only once started";
        EXPECT_LT(sim::now_seconds() - t0, 5.0) << "took too long to give up";
        TearDown();
    }
}

TEST_F(SdSpi, MultiBlockFailuresStopTheTransfer) {
    ASSERT_EQ(disk_initialize(0), 0);
    std::vector<uint8_t> two(1024, 0x5A);
    size_t at = card.log.size();
    card.dataResponse = 0x0D;
    EXPECT_EQ(disk_write(0, two.data(), 50, 2), RES_ERROR);
    card.dataResponse = 0x05;
    card.readToken = 0x01;
    EXPECT_EQ(disk_read(0, two.data(), 50, 2), RES_ERROR);
    EXPECT_EQ(cmds(at),
              (std::vector<std::string>{"CMD55 0", "ACMD23 2", "CMD25 32", "CMD18 32", "CMD12 0"}));
    // The card still takes commands afterwards.
    card.readToken = 0xFE;
    EXPECT_EQ(disk_read(0, two.data(), 50, 2), RES_OK);
    EXPECT_EQ(card.sectors.count(50), 0u);
}

TEST_F(SdSpi, BusyCardMakesSyncFailAndRemovedCardIsNotReady) {
    ASSERT_EQ(disk_initialize(0), 0);
    card.busyForever = true;
    EXPECT_EQ(disk_ioctl(0, CTRL_SYNC, nullptr), RES_ERROR);
    card.busyForever = false;
    EXPECT_EQ(disk_ioctl(0, CTRL_SYNC, nullptr), RES_OK);
    EXPECT_EQ(disk_ioctl(0, 99, nullptr), RES_PARERR);
    EXPECT_EQ(disk_ioctl(1, CTRL_SYNC, nullptr), RES_PARERR);
    BYTE buf[512];
    EXPECT_EQ(disk_read(0, buf, 0, 0), RES_PARERR);

    sim::state().card_absent = true;
    size_t at = card.log.size();
    EXPECT_EQ(disk_status(0), STA_NOINIT | STA_NODISK);
    EXPECT_EQ(disk_read(0, buf, 0, 1), RES_NOTRDY);
    EXPECT_EQ(disk_write(0, buf, 0, 1), RES_NOTRDY);
    EXPECT_EQ(disk_ioctl(0, CTRL_SYNC, nullptr), RES_NOTRDY);
    EXPECT_EQ(card.log.size(), at);
    // Put back: not ready until started again.
    sim::state().card_absent = false;
    EXPECT_EQ(disk_status(0), STA_NOINIT | STA_NODISK);
    EXPECT_EQ(disk_initialize(0), 0);
    EXPECT_EQ(disk_read(0, buf, 0, 1), RES_OK);
}

TEST_F(SdSpi, FileTimeComesFromTheClock) {
    // 2023-11-14 22:13:20
    EXPECT_EQ(get_fattime(), (DWORD)((43u << 25) | (11u << 21) | (14u << 16) | (22u << 11) |
                                     (13u << 5) | (20u / 2u)));
}

} // namespace
