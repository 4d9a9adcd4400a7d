// The card's disk layer (platform/tm4c123/sd_spi.cpp) against a model of a
// microSD card in SPI mode. The SSI0, GPIO and system-control calls it makes
// land in the fakes below, which clock each byte through the model and keep a
// virtual clock, so every time-out ends in virtual time.
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "diskio.h"
#include "gpio.h"
#include "hibernate.h"
#include "ssi.h"
#include "sysctl.h"

namespace {

const uint32_t kClockHz = 50000000u;

struct CardModel {
    // What kind of card, and how it misbehaves.
    bool present = true;
    bool answers = true;      // false: never drives its output (no card behind the socket)
    bool v2 = true;           // answers CMD8
    bool highCapacity = true; // block addressed (CCS)
    int busyPolls = 3;        // ACMD41 answers idle this many times
    int accessBytes = 3;      // 0xFF bytes before a read's data token
    int writeBusyBytes = 4;   // busy bytes after each written block
    bool busyForever = false; // never finishes programming a block
    uint8_t readToken = 0xFE; // anything else is an error token
    uint8_t dataResponse = 0x05;
    uint8_t echoFlip = 0;         // bits flipped in CMD8's echo of the check pattern
    std::vector<uint8_t> illegal; // commands answered "illegal command"
    std::vector<uint8_t> csd;

    // What the card saw.
    std::vector<std::string> log;
    std::map<uint32_t, std::vector<uint8_t>> sectors;
    int wakeBytes = 0; // bytes clocked with CS high before the first command

    // Protocol state.
    bool idle = true, appNext = false, streaming = false;
    uint32_t streamSector = 0;
    int opCondPolls = 0;
    std::vector<uint8_t> cmd;
    std::deque<uint8_t> out;
    enum { kCommand, kWriteToken, kWriteData } rx = kCommand;
    bool multiWrite = false;
    uint32_t writeSector = 0;
    std::vector<uint8_t> block;
    int busy = 0;

    std::vector<uint8_t> sector(uint32_t s) {
        if (sectors.count(s) == 0) {
            std::vector<uint8_t> d(512);
            for (size_t i = 0; i < d.size(); i++) {
                d[i] = (uint8_t)(s * 7u + i);
            }
            return d;
        }
        return sectors[s];
    }

    void queueBlock(const std::vector<uint8_t> &data) {
        out.insert(out.end(), (size_t)accessBytes, 0xFF);
        out.push_back(readToken);
        if (readToken == 0xFE) {
            out.insert(out.end(), data.begin(), data.end());
            out.push_back(0x12); // CRC, not checked by the host
            out.push_back(0x34);
        }
    }

    static uint8_t crc7(const uint8_t *p, size_t n) {
        uint8_t crc = 0;
        for (size_t i = 0; i < n; i++) {
            for (int b = 7; b >= 0; b--) {
                bool top = ((crc >> 6) ^ (p[i] >> b)) & 1u;
                crc = (uint8_t)((crc << 1) & 0x7F);
                if (top) {
                    crc ^= 0x09;
                }
            }
        }
        return (uint8_t)((crc << 1) | 1u);
    }

    bool addressToSector(uint32_t arg, uint32_t *s) {
        if (highCapacity) {
            *s = arg;
            return true;
        }
        *s = arg / 512u;
        return arg % 512u == 0;
    }

    void command() {
        uint8_t c = cmd[0] & 0x3F;
        uint32_t arg = (uint32_t)cmd[1] << 24 | cmd[2] << 16 | cmd[3] << 8 | cmd[4];
        bool app = appNext;
        appNext = false;
        char text[32];
        snprintf(text, sizeof text, "%sCMD%u %X", app ? "A" : "", c, arg);
        log.push_back(text);
        out.clear(); // a new command ends whatever was still to come
        streaming = false;
        if (c == 12) { // the read stops here; one stuff byte, R1, a little busy
            out.assign({0x3C, 0x00, 0x00, 0x00});
            return;
        }
        out.push_back(0xFF); // NCR
        uint8_t r1 = idle ? 0x01 : 0x00;
        if ((c == 0 || c == 8) && crc7(cmd.data(), 5) != cmd[5]) {
            out.push_back(r1 | 0x08);
            return;
        }
        for (uint8_t i : illegal) {
            if (i == c) {
                out.push_back(r1 | 0x04);
                return;
            }
        }
        uint32_t s = 0;
        switch (c) {
        case 0:
            idle = true;
            opCondPolls = 0;
            out.push_back(0x01);
            break;
        case 8:
            if (!v2) {
                out.push_back(r1 | 0x04);
                break;
            }
            out.insert(out.end(),
                       {r1, 0x00, 0x00, (uint8_t)(arg >> 8 & 0x0F), (uint8_t)(arg ^ echoFlip)});
            break;
        case 55:
            appNext = true;
            out.push_back(r1);
            break;
        case 41:
            if (app && ++opCondPolls > busyPolls && (!highCapacity || (arg & 0x40000000u))) {
                idle = false;
            }
            out.push_back(app ? (idle ? 0x01 : 0x00) : (r1 | 0x04));
            break;
        case 58:
            out.insert(out.end(),
                       {r1, (uint8_t)(idle || !highCapacity ? 0x80 : 0xC0), 0xFF, 0x80, 0x00});
            break;
        case 9:
            out.push_back(r1);
            queueBlock(csd);
            break;
        case 16:
        case 23:
            out.push_back(r1);
            break;
        case 17:
        case 18:
            if (!addressToSector(arg, &s)) {
                out.push_back(0x20); // address error
                break;
            }
            out.push_back(r1);
            queueBlock(sector(s));
            streaming = c == 18;
            streamSector = s + 1;
            break;
        case 24:
        case 25:
            if (!addressToSector(arg, &s)) {
                out.push_back(0x20);
                break;
            }
            out.push_back(r1);
            writeSector = s;
            multiWrite = c == 25;
            rx = kWriteToken;
            break;
        default:
            out.push_back(r1 | 0x04);
        }
    }

    uint8_t exchange(uint8_t in, bool selected) {
        uint8_t o = 0xFF;
        if (!out.empty()) {
            o = out.front();
            out.pop_front();
        } else if (busy > 0 || busyForever) {
            busy -= busy > 0 ? 1 : 0;
            o = 0x00;
        } else if (streaming) {
            queueBlock(sector(streamSector++));
            o = out.front();
            out.pop_front();
        }
        if (!selected) {
            if (log.empty()) {
                wakeBytes++;
            }
            return 0xFF;
        }
        if (rx == kWriteToken) {
            if (in == 0xFD && multiWrite) {
                rx = kCommand;
                out.push_back(0xFF);
                busy = writeBusyBytes;
            } else if (in == (multiWrite ? 0xFC : 0xFE)) {
                rx = kWriteData;
                block.clear();
            }
        } else if (rx == kWriteData) {
            block.push_back(in);
            if (block.size() == 514) {
                if (dataResponse == 0x05) {
                    sectors[writeSector++] = std::vector<uint8_t>(block.begin(), block.end() - 2);
                }
                out.push_back(dataResponse);
                busy = writeBusyBytes;
                rx = multiWrite ? kWriteToken : kCommand;
            }
        } else if (!cmd.empty() || (in & 0xC0) == 0x40) {
            cmd.push_back(in);
            if (cmd.size() == 6) {
                command();
                cmd.clear();
            }
        }
        return answers ? o : 0xFF;
    }
};

CardModel *g_card;
bool g_csHigh = true;
bool g_csOutput = false;
std::deque<uint32_t> g_rx;
std::vector<uint32_t> g_bitRates;
uint32_t g_bitRate = 0;
uint64_t g_ns = 0; // virtual time

// CSD version 2 with C_SIZE, or version 1 with C_SIZE, C_SIZE_MULT, READ_BL_LEN.
std::vector<uint8_t> csdV2(uint32_t cSize) {
    std::vector<uint8_t> c(16, 0);
    c[0] = 0x40;
    c[5] = 0x59;
    c[7] = (uint8_t)(cSize >> 16 & 0x3F);
    c[8] = (uint8_t)(cSize >> 8);
    c[9] = (uint8_t)cSize;
    c[10] = 0x3F; // SECTOR_SIZE 0x7F
    c[11] = 0x80;
    c[12] = 0x02; // WRITE_BL_LEN 9
    c[13] = 0x40;
    return c;
}

std::vector<uint8_t> csdV1(uint32_t cSize, uint32_t mult, uint32_t readBlLen) {
    std::vector<uint8_t> c(16, 0);
    c[5] = (uint8_t)(0x50 | readBlLen);
    c[6] = (uint8_t)(cSize >> 10 & 0x03);
    c[7] = (uint8_t)(cSize >> 2);
    c[8] = (uint8_t)(cSize << 6);
    c[9] = (uint8_t)(mult >> 1 & 0x03);
    c[10] = (uint8_t)(mult << 7 | 0x1F); // SECTOR_SIZE 0x3F: 64 blocks
    c[11] = 0x80;
    c[12] = 0x02; // WRITE_BL_LEN 9
    c[13] = 0x40;
    return c;
}

} // namespace

// ---- the platform calls the disk layer makes --------------------------------

void SSIConfigSetExpClk(uint32_t base, uint32_t clk, uint32_t protocol, uint32_t mode,
                        uint32_t bitRate, uint32_t dataWidth) {
    EXPECT_EQ(base, SSI0_BASE);
    EXPECT_EQ(clk, kClockHz);
    EXPECT_EQ(dataWidth, 8u);
    g_bitRate = bitRate;
    g_bitRates.push_back(bitRate);
}
void SSIEnable(uint32_t base) {}
void SSIDisable(uint32_t base) {}
void SSIDataPut(uint32_t base, uint32_t data) {
    EXPECT_EQ(base, SSI0_BASE);
    g_ns += 8000000000ull / g_bitRate;
    g_rx.push_back(g_card->exchange((uint8_t)data, !g_csHigh));
}
void SSIDataGet(uint32_t base, uint32_t *data) {
    ASSERT_FALSE(g_rx.empty()) << "read with nothing sent";
    *data = g_rx.front();
    g_rx.pop_front();
}
int32_t SSIDataGetNonBlocking(uint32_t base, uint32_t *data) {
    if (g_rx.empty()) {
        return 0;
    }
    SSIDataGet(base, data);
    return 1;
}
void GPIOPinTypeGPIOOutput(uint32_t port, uint8_t pins) {
    g_csOutput = port == GPIO_PORTA_BASE && pins == GPIO_PIN_3;
}
void GPIOPinWrite(uint32_t port, uint8_t pins, uint8_t val) {
    ASSERT_EQ(port, GPIO_PORTA_BASE);
    ASSERT_EQ(pins, GPIO_PIN_3);
    g_csHigh = (val & GPIO_PIN_3) != 0;
}
int32_t GPIOPinRead(uint32_t port, uint8_t pins) {
    EXPECT_EQ(port, GPIO_PORTA_BASE);
    EXPECT_EQ(pins, GPIO_PIN_6);
    return g_card->present ? 0 : GPIO_PIN_6;
}
uint32_t SysCtlClockGet(void) {
    return kClockHz;
}
void SysCtlDelay(uint32_t count) {
    g_ns += (uint64_t)count * 3u * 1000000000ull / kClockHz;
}
uint32_t HibernateRTCGet(void) {
    return 1700000000u; // 2023-11-14 22:13:20 UTC
}

namespace {

class SdSpi : public ::testing::Test {
  protected:
    CardModel card;
    void SetUp() override {
        g_card = &card;
        g_csHigh = true;
        g_csOutput = false;
        g_rx.clear();
        g_bitRates.clear();
        g_bitRate = 1000000u; // as the firmware's start-up leaves SSI0
        g_ns = 0;
        card = CardModel();
        // Each test starts with a card just put in: the layer saw the slot empty.
        card.present = false;
        disk_status(0);
        card.present = true;
        card.csd = csdV2(15159); // 7.9 GB
    }
    void TearDown() override { EXPECT_TRUE(g_csHigh) << "card left selected"; }
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
    uint32_t sector5Arg;             // address argument the card sees for sector 5
};

TEST_F(SdSpi, InitialisesEachKindOfCardAndAddressesItsSectors) {
    const std::vector<InitCase> cases = {
        // clang-format off
        {"SDHC", true, true, csdV2(15159), 15160u * 1024u, 128u, "ACMD41 40000000",
         {"CMD58 0", "CMD9 0"}, 5u},
        {"SDSC v2", true, false, csdV1(3863, 7, 10), 3864u * 1024u, 64u, "ACMD41 40000000",
         {"CMD58 0", "CMD16 200", "CMD9 0"}, 5u * 512u},
        {"SDSC v1", false, false, csdV1(4095, 3, 9), 4096u * 32u, 64u, "ACMD41 0",
         {"CMD16 200", "CMD9 0"}, 5u * 512u},
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
        EXPECT_TRUE(g_csOutput);
        EXPECT_EQ(g_bitRates.front(), 400000u);
        EXPECT_EQ(g_bitRates.back(), 12500000u);
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
        char read[32];
        snprintf(read, sizeof read, "CMD17 %X", c.sector5Arg);
        EXPECT_EQ(cmds(at), std::vector<std::string>{read});
        EXPECT_EQ(std::vector<uint8_t>(buf, buf + 512), card.sector(5));
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
    DSTATUS init;           // disk_initialize's answer
    DRESULT read, write;    // then disk_read and disk_write of one sector
    bool commandsAfterInit; // whether the card is addressed after start-up
};

TEST_F(SdSpi, EveryFailureEndsWithItsResult) {
    const uint64_t kSecond = 1000000000ull;
    const std::vector<FaultCase> cases = {
        {"no card behind the socket", [](CardModel &c) { c.answers = false; }, STA_NOINIT,
         RES_NOTRDY, RES_NOTRDY, false},
        {"card detect says empty", [](CardModel &c) { c.present = false; }, STA_NOINIT | STA_NODISK,
         RES_NOTRDY, RES_NOTRDY, false},
        {"never leaves idle", [](CardModel &c) { c.busyPolls = 1 << 30; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY, false},
        {"MMC: ACMD41 illegal", [](CardModel &c) { c.v2 = false, c.illegal = {41}; }, STA_NOINIT,
         RES_NOTRDY, RES_NOTRDY, false},
        {"CMD8 echo garbled", [](CardModel &c) { c.echoFlip = 0x01; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY, false},
        {"CSD read illegal", [](CardModel &c) { c.illegal = {9}; }, STA_NOINIT, RES_NOTRDY,
         RES_NOTRDY, false},
        {"read command illegal", [](CardModel &c) { c.illegal = {17}; }, 0, RES_ERROR, RES_OK,
         true},
        {"read error token", [](CardModel &c) { c.readToken = 0x08; }, 0, RES_ERROR, RES_OK, true},
        {"no data token", [](CardModel &c) { c.accessBytes = 1 << 20; }, 0, RES_ERROR, RES_OK,
         true},
        {"write rejected (write error)", [](CardModel &c) { c.dataResponse = 0x0D; }, 0, RES_OK,
         RES_ERROR, true},
        {"write rejected (CRC)", [](CardModel &c) { c.dataResponse = 0x0B; }, 0, RES_OK, RES_ERROR,
         true},
        {"busy for ever after a write", [](CardModel &c) { c.writeBusyBytes = 1 << 30; }, 0, RES_OK,
         RES_ERROR, true},
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
        EXPECT_EQ(card.log.size() > at, c.commandsAfterInit);
        EXPECT_LT(g_ns, 5 * kSecond) << "took too long to give up";
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

    card.present = false;
    size_t at = card.log.size();
    EXPECT_EQ(disk_status(0), STA_NOINIT | STA_NODISK);
    EXPECT_EQ(disk_read(0, buf, 0, 1), RES_NOTRDY);
    EXPECT_EQ(disk_write(0, buf, 0, 1), RES_NOTRDY);
    EXPECT_EQ(disk_ioctl(0, CTRL_SYNC, nullptr), RES_NOTRDY);
    EXPECT_EQ(card.log.size(), at);
    // Put back: not ready until started again.
    card.present = true;
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
