// The microSD card under the FAT module: SD version 1, SD version 2 standard
// capacity and SDHC/SDXC cards in SPI mode on SSI0, drive 0 only.
// Owns: the SSI0 bit rate, PA3 as a software chip select (one command and its
// data stay inside one low period), the card's start-up, single and multiple
// block reads and writes, and the disk-I/O entry points.
// Does not: route the SSI0 pins or set up the card-detect input PA6 (the
// firmware's start-up does both), cache sectors, check CRCs (SPI mode leaves
// them off), know MMC cards, or see a write-protect switch (microSD has none).
// Every wait on the card is bounded by a count of polls with a pause between;
// each poll also clocks a byte, so a time-out lasts at least its nominal value.
#include "diskio.h"
#include "gpio.h"
#include "ssi.h"
#include "sysctl.h"

namespace {

// ---- timing ----------------------------------------------------------------
const uint32_t kSlowHz = 400000u;          // identification clock (at most 400 kHz)
const uint32_t kFastHz = 12500000u;        // data clock, half the card's 25 MHz
const uint32_t kPowerUpMs = 2u;            // supply settles before the first clocks
const uint32_t kWakeBytes = 10u;           // 80 clocks with CS and MOSI high
const uint32_t kIdleTries = 10u;           // CMD0 attempts
const uint32_t kOpCondTimeoutMs = 1000u;   // ACMD41 until the card leaves idle
const uint32_t kReadyTimeoutMs = 500u;     // card busy before a command, CTRL_SYNC
const uint32_t kReadTokenTimeoutMs = 200u; // data token of a read (cards: 100 ms)
const uint32_t kWriteBusyTimeoutMs = 500u; // programming a block (SDXC: 500 ms)
const uint32_t kPollUs = 20u;              // pause between two polls of a waiting card
const uint32_t kPollsPerMs = 1000u / kPollUs;
const uint32_t kResponseBytes = 10u;    // R1 comes within 8 bytes (NCR)
const uint32_t kDataResponseBytes = 8u; // bytes to find a write's data response
const bool kPreErase = true;            // ACMD23 before a multi-block write

// ---- wiring ----------------------------------------------------------------
const uint32_t kSsi = SSI0_BASE;
const uint32_t kCsPort = GPIO_PORTA_BASE;
const uint8_t kCsPin = GPIO_PIN_3;
const uint32_t kDetectPort = GPIO_PORTA_BASE;
const uint8_t kDetectPin = GPIO_PIN_6; // low = card present

// ---- protocol --------------------------------------------------------------
const uint32_t kSectorBytes = 512u;
const uint8_t kAppCmd = 0x80u;        // flag: send CMD55 first
const uint8_t CMD0 = 0u;              // GO_IDLE_STATE
const uint8_t CMD8 = 8u;              // SEND_IF_COND
const uint8_t CMD9 = 9u;              // SEND_CSD
const uint8_t CMD12 = 12u;            // STOP_TRANSMISSION
const uint8_t CMD16 = 16u;            // SET_BLOCKLEN
const uint8_t CMD17 = 17u;            // READ_SINGLE_BLOCK
const uint8_t CMD18 = 18u;            // READ_MULTIPLE_BLOCK
const uint8_t CMD24 = 24u;            // WRITE_BLOCK
const uint8_t CMD25 = 25u;            // WRITE_MULTIPLE_BLOCK
const uint8_t CMD55 = 55u;            // APP_CMD
const uint8_t CMD58 = 58u;            // READ_OCR
const uint8_t ACMD23 = kAppCmd | 23u; // SET_WR_BLK_ERASE_COUNT
const uint8_t ACMD41 = kAppCmd | 41u; // SD_SEND_OP_COND

const uint8_t kR1Idle = 0x01u;
const uint8_t kR1Illegal = 0x04u;
const uint8_t kNoResponse = 0xFFu;
const uint32_t kIfCondArg = 0x1AAu; // 2.7-3.6 V, check pattern 0xAA
const uint32_t kHcs = 0x40000000u;  // ACMD41: host takes high capacity
const uint8_t kOcrCcs = 0x40u;      // OCR byte 0: card is block addressed
const uint8_t kTokenStart = 0xFEu;  // read data, single-block write data
const uint8_t kTokenMulti = 0xFCu;  // multi-block write data
const uint8_t kTokenStop = 0xFDu;   // end of a multi-block write
const uint8_t kDataAccepted = 0x05u;

DSTATUS s_status = STA_NOINIT;
bool s_blockAddressed;
DWORD s_sectors;
DWORD s_eraseSectors;

uint8_t xfer(uint8_t out) {
    SSIDataPut(kSsi, out);
    uint32_t in;
    SSIDataGet(kSsi, &in);
    return (uint8_t)in;
}

void pause_us(uint32_t us) {
    uint32_t counts = (uint32_t)((uint64_t)SysCtlClockGet() * us / 3000000u);
    SysCtlDelay(counts > 0u ? counts : 1u);
}

bool card_present(void) {
    return GPIOPinRead(kDetectPort, kDetectPin) == 0;
}

void set_clock(uint32_t hz) {
    SSIDisable(kSsi);
    SSIConfigSetExpClk(kSsi, SysCtlClockGet(), SSI_FRF_MOTO_MODE_0, SSI_MODE_MASTER, hz, 8u);
    SSIEnable(kSsi);
    uint32_t junk;
    for (uint32_t i = 0; i < 8u && SSIDataGetNonBlocking(kSsi, &junk); i++) {
    }
}

// A busy card holds its output low; 0xFF means it can take a command.
bool wait_ready(uint32_t timeoutMs) {
    for (uint32_t i = 0; i < timeoutMs * kPollsPerMs; i++) {
        if (xfer(0xFFu) == 0xFFu) {
            return true;
        }
        pause_us(kPollUs);
    }
    return false;
}

// One byte after CS goes high lets the card let go of its output line.
void deselect(void) {
    GPIOPinWrite(kCsPort, kCsPin, kCsPin);
    xfer(0xFFu);
}

void select(void) {
    GPIOPinWrite(kCsPort, kCsPin, 0u);
    xfer(0xFFu);
}

// Sends one command and returns its R1 (kNoResponse when none came). The
// card stays selected for the data or the rest of the response.
uint8_t send_one(uint8_t cmd, uint32_t arg) {
    // CMD12 goes in the middle of a read; CMD0 goes to a card in any state.
    if (cmd != CMD12) {
        deselect();
        select();
        if (cmd != CMD0 && !wait_ready(kReadyTimeoutMs)) {
            return kNoResponse;
        }
    }
    // The CRC counts only until the card is in SPI mode, and for CMD8.
    uint8_t crc = cmd == CMD0 ? 0x95u : cmd == CMD8 ? 0x87u : 0x01u;
    xfer((uint8_t)(0x40u | cmd));
    xfer((uint8_t)(arg >> 24));
    xfer((uint8_t)(arg >> 16));
    xfer((uint8_t)(arg >> 8));
    xfer((uint8_t)arg);
    xfer(crc);
    if (cmd == CMD12) {
        xfer(0xFFu); // stuff byte: the tail of the data being read
    }
    uint8_t r = kNoResponse;
    for (uint32_t i = 0; i < kResponseBytes && (r & 0x80u) != 0u; i++) {
        r = xfer(0xFFu);
    }
    return r;
}

// A command, led by CMD55 when it is an application command.
uint8_t send_cmd(uint8_t cmd, uint32_t arg) {
    if ((cmd & kAppCmd) != 0u) {
        uint8_t r = send_one(CMD55, 0u);
        if (r > kR1Idle) {
            return r;
        }
    }
    return send_one((uint8_t)(cmd & ~kAppCmd), arg);
}

void receive_bytes(uint8_t *buf, uint32_t n) {
    for (uint32_t i = 0; i < n; i++) {
        buf[i] = xfer(0xFFu);
    }
}

// A data block of a read: token, data, CRC (not checked).
bool receive_block(uint8_t *buf, uint32_t n) {
    uint8_t token = 0xFFu;
    for (uint32_t i = 0; i < kReadTokenTimeoutMs * kPollsPerMs; i++) {
        token = xfer(0xFFu);
        if (token != 0xFFu) {
            break;
        }
        pause_us(kPollUs);
    }
    if (token != kTokenStart) {
        return false; // time-out or an error token
    }
    receive_bytes(buf, n);
    xfer(0xFFu);
    xfer(0xFFu);
    return true;
}

// A data block of a write and the card's answer; the stop token instead ends
// a multi-block write. The card's busy time is waited for by the next call.
bool send_block(const uint8_t *buf, uint8_t token) {
    if (!wait_ready(kWriteBusyTimeoutMs)) {
        return false;
    }
    xfer(token);
    if (token == kTokenStop) {
        xfer(0xFFu); // busy starts one byte after the stop token
        return true;
    }
    for (uint32_t i = 0; i < kSectorBytes; i++) {
        xfer(buf[i]);
    }
    xfer(0xFFu); // CRC
    xfer(0xFFu);
    for (uint32_t i = 0; i < kDataResponseBytes; i++) {
        uint8_t r = xfer(0xFFu);
        if ((r & 0x11u) == 0x01u) { // xxx0sss1
            return (r & 0x1Fu) == kDataAccepted;
        }
    }
    return false;
}

DWORD bits(const uint8_t *csd, uint32_t msb, uint32_t lsb) {
    DWORD v = 0u;
    for (uint32_t b = msb + 1u; b-- > lsb;) {
        v = (v << 1) | ((csd[15u - b / 8u] >> (b % 8u)) & 1u);
    }
    return v;
}

// Capacity and erase block from the CSD (version 1: standard capacity,
// version 2: high and extended capacity). False for a CSD we cannot read.
bool parse_csd(const uint8_t *csd) {
    uint64_t sectors;
    DWORD structure = bits(csd, 127u, 126u);
    if (structure == 1u) {
        sectors = ((uint64_t)bits(csd, 69u, 48u) + 1u) << 10;
    } else if (structure == 0u) {
        DWORD readBlLen = bits(csd, 83u, 80u);
        if (readBlLen < 9u || readBlLen > 11u) {
            return false;
        }
        DWORD shift = bits(csd, 49u, 47u) + 2u + readBlLen - 9u;
        sectors = ((uint64_t)bits(csd, 73u, 62u) + 1u) << shift;
    } else {
        return false;
    }
    s_sectors = sectors > 0xFFFFFFFFu ? 0xFFFFFFFFu : (DWORD)sectors;
    DWORD writeBlLen = bits(csd, 25u, 22u);
    DWORD eraseShift = writeBlLen >= 9u && writeBlLen <= 11u ? writeBlLen - 9u : 0u;
    s_eraseSectors = (bits(csd, 45u, 39u) + 1u) << eraseShift;
    return true;
}

bool start_card(void) {
    uint8_t r = kNoResponse;
    for (uint32_t i = 0; i < kIdleTries && r != kR1Idle; i++) {
        r = send_cmd(CMD0, 0u);
    }
    if (r != kR1Idle) {
        return false;
    }
    bool v2;
    r = send_cmd(CMD8, kIfCondArg);
    if (r == kR1Idle) {
        uint8_t r7[4];
        receive_bytes(r7, sizeof r7);
        if ((r7[2] & 0x0Fu) != 0x01u || r7[3] != (uint8_t)kIfCondArg) {
            return false; // wrong voltage range or a garbled echo
        }
        v2 = true;
    } else if (r == (kR1Idle | kR1Illegal)) {
        v2 = false; // before version 2: no CMD8, no high capacity
    } else {
        return false;
    }
    r = kNoResponse;
    for (uint32_t i = 0; i < kOpCondTimeoutMs; i++) {
        r = send_cmd(ACMD41, v2 ? kHcs : 0u);
        if (r != kR1Idle) {
            break;
        }
        pause_us(1000u);
    }
    if (r != 0u) {
        return false;
    }
    s_blockAddressed = false;
    if (v2) {
        if (send_cmd(CMD58, 0u) != 0u) {
            return false;
        }
        uint8_t ocr[4];
        receive_bytes(ocr, sizeof ocr);
        s_blockAddressed = (ocr[0] & kOcrCcs) != 0u;
    }
    if (!s_blockAddressed && send_cmd(CMD16, kSectorBytes) != 0u) {
        return false;
    }
    uint8_t csd[16];
    return send_cmd(CMD9, 0u) == 0u && receive_block(csd, sizeof csd) && parse_csd(csd);
}

// Why the card cannot be used now, or RES_OK.
DRESULT usable(BYTE pdrv) {
    if (pdrv != 0u) {
        return RES_PARERR;
    }
    if (!card_present()) {
        s_status |= STA_NOINIT | STA_NODISK;
    }
    return (s_status & STA_NOINIT) != 0u ? RES_NOTRDY : RES_OK;
}

DWORD card_address(DWORD sector) {
    return s_blockAddressed ? sector : sector * kSectorBytes;
}

} // namespace

// C linkage whatever the module's diskio.h says: ff.c is C.
extern "C" {

DSTATUS disk_initialize(BYTE pdrv) {
    if (pdrv != 0u) {
        return STA_NOINIT;
    }
    s_status = STA_NOINIT;
    if (!card_present()) {
        s_status |= STA_NODISK;
        return s_status;
    }
    GPIOPinTypeGPIOOutput(kCsPort, kCsPin);
    GPIOPinWrite(kCsPort, kCsPin, kCsPin);
    set_clock(kSlowHz);
    pause_us(kPowerUpMs * 1000u);
    for (uint32_t i = 0; i < kWakeBytes; i++) {
        xfer(0xFFu);
    }
    bool ok = start_card();
    deselect();
    if (ok) {
        set_clock(kFastHz);
        s_status = 0u;
    }
    return s_status;
}

DSTATUS disk_status(BYTE pdrv) {
    if (pdrv != 0u) {
        return STA_NOINIT;
    }
    usable(pdrv);
    return s_status;
}

DRESULT disk_read(BYTE pdrv, BYTE *buff, DWORD sector, UINT count) {
    if (buff == nullptr || count == 0u) {
        return RES_PARERR;
    }
    DRESULT why = usable(pdrv);
    if (why != RES_OK) {
        return why;
    }
    bool ok = false;
    if (count == 1u) {
        ok = send_cmd(CMD17, card_address(sector)) == 0u && receive_block(buff, kSectorBytes);
    } else if (send_cmd(CMD18, card_address(sector)) == 0u) {
        ok = true;
        for (; count > 0u; count--, buff += kSectorBytes) {
            if (!receive_block(buff, kSectorBytes)) {
                ok = false;
                break;
            }
        }
        // R1b: the card may stay busy a little after stopping.
        if (send_cmd(CMD12, 0u) != 0u || !wait_ready(kReadyTimeoutMs)) {
            ok = false;
        }
    }
    deselect();
    return ok ? RES_OK : RES_ERROR;
}

DRESULT disk_write(BYTE pdrv, const BYTE *buff, DWORD sector, UINT count) {
    if (buff == nullptr || count == 0u) {
        return RES_PARERR;
    }
    DRESULT why = usable(pdrv);
    if (why != RES_OK) {
        return why;
    }
    if ((s_status & STA_PROTECT) != 0u) {
        return RES_WRPRT;
    }
    bool ok = false;
    if (count == 1u) {
        ok = send_cmd(CMD24, card_address(sector)) == 0u && send_block(buff, kTokenStart);
    } else {
        if (kPreErase) {
            send_cmd(ACMD23, count); // a hint only: its failure changes nothing
        }
        if (send_cmd(CMD25, card_address(sector)) == 0u) {
            ok = true;
            for (; count > 0u; count--, buff += kSectorBytes) {
                if (!send_block(buff, kTokenMulti)) {
                    ok = false;
                    break;
                }
            }
            if (!send_block(nullptr, kTokenStop)) {
                ok = false;
            }
        }
    }
    // The block is on the card only when the busy time is over: the board
    // may lose power (hibernate) right after.
    if (!wait_ready(kWriteBusyTimeoutMs)) {
        ok = false;
    }
    deselect();
    return ok ? RES_OK : RES_ERROR;
}

DRESULT disk_ioctl(BYTE pdrv, BYTE cmd, void *buff) {
    DRESULT why = usable(pdrv);
    if (why != RES_OK) {
        return why;
    }
    if (cmd == CTRL_SYNC) {
        select();
        bool ok = wait_ready(kReadyTimeoutMs);
        deselect();
        return ok ? RES_OK : RES_ERROR;
    }
    if (buff == nullptr) {
        return RES_PARERR;
    }
    switch (cmd) {
    case GET_SECTOR_COUNT:
        *(DWORD *)buff = s_sectors;
        return RES_OK;
    case GET_SECTOR_SIZE:
        *(WORD *)buff = (WORD)kSectorBytes;
        return RES_OK;
    case GET_BLOCK_SIZE:
        *(DWORD *)buff = s_eraseSectors;
        return RES_OK;
    default:
        return RES_PARERR;
    }
}

} // extern "C"
