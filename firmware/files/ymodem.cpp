// YMODEM over the console line: the sender of a card file, the receiver of a
// batch onto the card, and the calibration-file receive that parses the file
// instead of storing it. Owns the packet buffer, the module's file object and
// the calibration switch calFileFlg. Does not own the card command line (it
// calls in here) nor the calibration parser (console/cal_coeff).
//
// Habits of this receiver and sender that terminal programs have lived with
// for years and that stay as they are:
// - every data block goes out with 1024 bytes; after a short last read the
//   rest of the buffer still holds the previous block's bytes (the receiver
//   cuts the file to the size announced in block 0);
// - the complement byte of the block number is never compared;
// - at the end of a batch the received file is opened again in create-always
//   mode, stretched to the announced size and cut there;
// - a write error on the card is never reported (only the open is checked).
#include "files/ymodem.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/cal_coeff.h"
#include "console/user_io.h"
#include "core/system.h"
#include "ff.h"
#include "files/config.h"
#include "files/microsd.h"
#include "hw_types.h"
#include "sysctl.h"
#include "uart.h"

int calFileFlg = 0;

namespace {

// ---- timing and limits ---------------------------------------------------------
constexpr uint32_t kByteTimeoutS = 10;     // any awaited byte
constexpr uint32_t kHandshakeTries = 30;   // sender: one "C" a second
constexpr uint32_t kBlock0Tries = 11;      // sender: block 0 with name and size
constexpr uint32_t kBlockSends = 12;       // sender: sends of one data block
constexpr uint32_t kEndSends = 12;         // sender: EOT and the closing block 0
constexpr uint32_t kSendNameMax = 30;      // sender: characters of the name taken
constexpr uint32_t kBlock0NameMax = 110;   // name characters that fit in block 0
constexpr uint32_t kRecvNameMax = 64;      // receiver: name characters kept
constexpr uint32_t kRecvDirMax = 80;       // receiver: directory characters kept
constexpr uint32_t kSizeTextMax = 16;      // receiver: size text characters kept
constexpr uint32_t kSizeLimitKB = 1000000; // shown in the too-large message
constexpr uint32_t kBlock0Len = 128;
constexpr uint32_t kBlockLen = 1024;
constexpr uint32_t kHead = 3; // header byte, block number, complement
constexpr uint32_t kCalBlocks = (YM_CAL_MAX_SIZE + kBlock0Len - 1u) / kBlock0Len;
constexpr uint32_t kDbgText = 160; // one debug-console line

// Endings of a receive, by the reason printed; kBatchDone is the end of a
// batch, which prints nothing.
enum Reason : int {
    kBatchDone = -2,
    kOpenError = 0,
    kWriteError = 1,
    kTooLarge = 2,
    kPacketTimeout = 3,
    kNoText = 4, // cancelled, refused calibration file, parsed calibration file
};

uint8_t packet_data[YM_PACKET_SIZE];
FIL FileObject;

// The data part of the packet buffer.
uint8_t *data_part(void) {
    return packet_data + kHead;
}

// ---- debug console ----------------------------------------------------------------

void ymodem_debug(const char *format, ...) __attribute__((format(printf, 1, 2)));
void ymodem_debug(const char *format, ...) {
    char text[kDbgText];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(text, sizeof text, format, ap);
    va_end(ap);
    if (n <= 0) {
        return;
    }
    size_t len = (size_t)n < sizeof text ? (size_t)n : sizeof text - 1u;
    ssize_t written = write(2, text, len);
    (void)written;
}

// ---- the line ----------------------------------------------------------------------

// One raw byte through the UART FIFO. Console text still in the ring goes
// first, so nothing interleaves with the packet bytes.
void ymodem_putc(uint8_t c) {
    UARTFlushTx(false);
    while (!UARTCharPutNonBlocking(UART0_BASE, c)) {
        SysCtlSleep();
    }
}

void ymodem_write(const uint8_t *buf, uint32_t len) {
    for (uint32_t i = 0; i < len; i++) {
        ymodem_putc(buf[i]);
    }
}

// Reads bytes until `want` arrives (true) or `seconds` pass (false); other
// bytes are passed over. The millisecond stopwatch is only read, never reset:
// the command receiver keeps its own time with it.
bool wait_for(uint8_t want, uint32_t seconds) {
    uint32_t start = Timer_1ms(0);
    while (Timer_1ms(0) - start <= seconds * 1000u) {
        if (!UARTrdy()) {
            SysCtlSleep();
        } else if (UARTgetc() == want) {
            return true;
        }
    }
    return false;
}

// Waits for ACK, passing over stray bytes (a receiver may have asked with
// "C" more than once); false on NAK, CAN or the time-out.
bool wait_ack(uint32_t seconds) {
    uint32_t start = Timer_1ms(0);
    while (Timer_1ms(0) - start <= seconds * 1000u) {
        if (!UARTrdy()) {
            SysCtlSleep();
            continue;
        }
        unsigned char c = UARTgetc();
        if (c == YM_ACK) {
            return true;
        }
        if (c == YM_NAK || c == YM_CAN) {
            return false;
        }
    }
    return false;
}

// ---- packets ----------------------------------------------------------------------

// Block 0 goes as SOH with 128 bytes, every other block as STX with 1024.
// `data` may be the data part of the packet buffer itself.
void send_packet(const uint8_t *data, uint32_t block_no) {
    uint32_t len = block_no == 0u ? kBlock0Len : kBlockLen;
    packet_data[0] = (uint8_t)(block_no == 0u ? YM_SOH : YM_STX);
    packet_data[1] = (uint8_t)(block_no & 0xFFu);
    packet_data[2] = (uint8_t)((block_no ^ 0xFFu) & 0xFFu);
    if (data != data_part()) {
        memmove(data_part(), data, len);
    }
    uint16_t crc = crc16(data_part(), len);
    packet_data[kHead + len] = (uint8_t)(crc >> 8);
    packet_data[kHead + len + 1u] = (uint8_t)(crc & 0xFFu);
    ymodem_write(packet_data, kHead + len + 2u);
}

// Name, NUL, size in decimal, zeros to 128 bytes; no name: 128 zeros, the
// block that ends a batch.
void send_packet0(const char *filename, uint32_t size) {
    uint8_t *d = data_part();
    memset(d, 0, kBlock0Len);
    if (filename != nullptr && filename[0] != 0) {
        size_t n = strnlen(filename, kBlock0NameMax);
        memcpy(d, filename, n);
        u32_to_str(size, (char *)d + n + 1u);
    }
    send_packet(d, 0);
}

// The open file as blocks 1, 2, ... then EOT and the closing block 0.
int send_data_packets(void) {
    uint32_t block = 1;
    UINT got = 0;
    do {
        got = 0;
        FRESULT fr = f_read(&FileObject, data_part(), kBlockLen, &got);
        if (fr != FR_OK) {
            ymodem_debug("f_read error: %s\r\n", StringFromFresult(fr));
            return -1;
        }
        uint32_t sends = 0;
        for (;;) {
            ymodem_debug("sending block %d\n", (int)block);
            send_packet(data_part(), block);
            int answer = getchar_timed(kByteTimeoutS);
            ymodem_debug("response = %02X\n", (unsigned)(answer & 0xFF));
            if (answer == YM_ACK) {
                ymodem_debug("sent block %d\n", (int)block);
                break;
            }
            if (answer == YM_CAN) {
                return -1;
            }
            if (++sends >= kBlockSends) {
                return -1;
            }
        }
        block++;
    } while (got == kBlockLen);

    // EOT until it is acknowledged; silence means the receiver is done.
    bool acked = false;
    for (uint32_t i = 0; i < kEndSends && !acked; i++) {
        ymodem_putc(YM_EOT);
        int answer = getchar_timed(kByteTimeoutS);
        if (answer < 0) {
            return 0;
        }
        acked = answer == YM_ACK;
    }
    if (!acked || !wait_for(YM_CRC, kByteTimeoutS)) {
        return 0;
    }
    for (uint32_t i = 0; i < kEndSends; i++) {
        send_packet0(nullptr, 0);
        int answer = getchar_timed(kByteTimeoutS);
        if (answer < 0 || answer == YM_ACK) {
            break;
        }
    }
    return 0;
}

// ---- sending ----------------------------------------------------------------------

int send_file(const char *name) {
    char filename[kSendNameMax + 1u];
    UARTEchoSet(false);
    strncpy(filename, name, kSendNameMax);
    filename[kSendNameMax] = 0;
    ymodem_debug("\n\nfilename = %s\n", filename);

    FRESULT fr = f_open(&FileObject, filename, FA_READ);
    if (fr != FR_OK) {
        ymodem_debug("f_open error: %s\n", StringFromFresult(fr));
    } else {
        uint32_t size = (uint32_t)f_size(&FileObject);
        ymodem_debug("File size = %lu\n", (unsigned long)size);
        uprintf("Ymodem sending %s, %lu bytes...\r\n", filename, (unsigned long)size);
        UARTFlushTx(false);
        delay_sec(1);
        UARTFlushRx();

        bool ready = false;
        for (uint32_t i = 0; i < kHandshakeTries && !ready; i++) {
            ymodem_putc(YM_CRC);
            ready = wait_for(YM_CRC, 1);
        }
        if (ready) {
            for (uint32_t i = 0; i < kBlock0Tries; i++) {
                send_packet0(filename, size);
                if (!wait_ack(kByteTimeoutS) || !wait_for(YM_CRC, kByteTimeoutS)) {
                    continue;
                }
                if (send_data_packets() != 0) {
                    break;
                }
                uprintf("\r\nSent: %s\r\n", filename);
                f_close(&FileObject);
                UARTEchoSet(true);
                return 0;
            }
        }
    }

    ymodem_putc(YM_CAN);
    ymodem_putc(YM_CAN);
    delay_sec(1);
    uprintf("\nYmodem aborted\n");
    f_close(&FileObject);
    UARTEchoSet(true);
    return -1;
}

// The word after the command in a one-text command line, or "".
void second_word(const char *line, char *word, uint32_t size) {
    word[0] = 0;
    if (line == nullptr) {
        return;
    }
    const char *p = line;
    while (*p != 0 && *p != ' ') {
        p++;
    }
    while (*p == ' ') {
        p++;
    }
    uint32_t n = 0;
    while (p[n] != 0 && p[n] != ' ' && p[n] != '\r' && p[n] != '\n' && n + 1u < size) {
        word[n] = p[n];
        n++;
    }
    word[n] = 0;
}

const char *name_or_data_file(const char *name) {
    if (name == nullptr || name[0] == 0) {
        return sys_data.fileName;
    }
    return name;
}

// ---- receiving --------------------------------------------------------------------

struct Receiver {
    char filename[kRecvNameMax + 1u];
    char path[kRecvDirMax + 1u + kRecvNameMax + 1u]; // where the file goes
    uint32_t size;
    uint32_t expected; // next block number
    uint32_t canPairs;
    // A calibration file that comes in 128-byte blocks (senders use them
    // for short files) is gathered here until the announced size is in.
    char calText[kCalBlocks * kBlock0Len + 1u];
    uint32_t calLen;
};

Receiver rx;
const char *s_rxDir = nullptr; // directory of the card command line; null = root

// A timed byte; -1 after the byte time-out.
int next_byte(void) {
    return getchar_timed(kByteTimeoutS);
}

// Reads the rest of a packet whose header byte came; false on a time-out.
bool read_packet(uint8_t header, uint32_t len) {
    packet_data[0] = header;
    for (uint32_t i = 1; i < kHead + len + 2u; i++) {
        int c = next_byte();
        if (c < 0) {
            return false;
        }
        packet_data[i] = (uint8_t)c;
    }
    return true;
}

// Name and size of block 0. The size text follows the name's NUL and ends at
// a blank.
void take_name_and_size(void) {
    const char *d = (const char *)data_part();
    size_t nameLen = strnlen(d, kBlock0Len);
    size_t keep = nameLen < kRecvNameMax ? nameLen : kRecvNameMax;
    memcpy(rx.filename, d, keep);
    rx.filename[keep] = 0;
    // Below the root the directory leads, without its first "/", as the card
    // command line hands paths over.
    const char *dir = s_rxDir;
    while (dir != nullptr && *dir == '/') {
        dir++;
    }
    if (dir == nullptr || *dir == 0) {
        memcpy(rx.path, rx.filename, keep + 1u);
    } else {
        size_t dirLen = strnlen(dir, kRecvDirMax);
        memcpy(rx.path, dir, dirLen);
        rx.path[dirLen] = '/';
        memcpy(rx.path + dirLen + 1u, rx.filename, keep + 1u);
    }
    char sizeText[kSizeTextMax + 1u];
    uint32_t n = 0;
    for (size_t i = nameLen + 1u; i < kBlock0Len && n < kSizeTextMax; i++) {
        if (d[i] == ' ' || d[i] == 0) {
            break;
        }
        sizeText[n++] = d[i];
    }
    sizeText[n] = 0;
    rx.size = str_to_u32(sizeText);
}

// A calibration file must be named *.cal (over 4 characters from the last
// point) and be no larger than YM_CAL_MAX_SIZE.
bool cal_file_acceptable(void) {
    const char *dot = strrchr(rx.filename, '.');
    if (dot == nullptr || strncmp(dot, ".cal", 4) != 0) {
        return false;
    }
    return rx.size <= YM_CAL_MAX_SIZE;
}

// End of the batch: the stored name is opened again in create-always mode,
// stretched to the announced size and cut there.
void finish_batch(void) {
    f_close(&FileObject);
    f_open(&FileObject, rx.path, FA_READ | FA_WRITE | FA_CREATE_ALWAYS);
    FRESULT fr = f_lseek(&FileObject, rx.size);
    if (fr != FR_OK) {
        ymodem_debug("f_lseek error: %s\n", StringFromFresult(fr));
    }
    fr = f_truncate(&FileObject);
    if (fr != FR_OK) {
        ymodem_debug("f_truncate error: %s\n", StringFromFresult(fr));
    }
    f_close(&FileObject);
}

// Block 0 of a file (not the empty one). Returns -1 to go on, or the reason
// that ends the transfer.
int on_block0(void) {
    take_name_and_size();
    if (calFileFlg != 0) {
        if (!cal_file_acceptable()) {
            calFileFlg = 0;
            return kNoText;
        }
        rx.calLen = 0;
    }
    if (rx.size > YM_MAX_SIZE) {
        return kTooLarge;
    }
    if (calFileFlg == 0) {
        ymodem_debug("\n\nOpening filename = %s\n", rx.path);
        FRESULT fr = f_open(&FileObject, rx.path, FA_READ | FA_WRITE | FA_CREATE_ALWAYS);
        if (fr != FR_OK) {
            ymodem_debug("f_open error: %s\n", StringFromFresult(fr));
            return kOpenError;
        }
    }
    ymodem_putc(YM_ACK);
    ymodem_putc(YM_CRC);
    return -1;
}

// A data block of `len` bytes. Returns -1 to go on, or the ending's reason.
int on_data_block(uint32_t len) {
    if (calFileFlg != 0) {
        const char *text = rx.calText;
        if (len == kBlockLen && rx.calLen == 0u) {
            // The first block holds the whole file: parsed where it lies, the
            // CRC already checked makes room for the terminator.
            packet_data[kHead + kBlockLen] = 0;
            text = (const char *)data_part();
        } else {
            uint32_t room = (uint32_t)sizeof rx.calText - 1u - rx.calLen;
            uint32_t take = len < room ? len : room;
            memcpy(rx.calText + rx.calLen, data_part(), take);
            rx.calLen += take;
            rx.calText[rx.calLen] = 0;
            if (rx.calLen < rx.size && take == len) {
                ymodem_putc(YM_ACK);
                return -1;
            }
        }
        parse_cal_packet(text);
        set_cal_filename(rx.filename);
        return kNoText;
    }
    UINT written = 0;
    f_write(&FileObject, data_part(), len, &written);
    ymodem_putc(YM_ACK);
    return -1;
}

// After the first EOT: NAK it, and NAK everything but a second EOT.
// Returns -1 when the second EOT came, or the ending's reason.
int on_eot(void) {
    ymodem_putc(YM_NAK);
    for (;;) {
        int c = next_byte();
        if (c < 0) {
            return kPacketTimeout;
        }
        if (c == YM_EOT) {
            break;
        }
        ymodem_putc(YM_NAK);
    }
    ymodem_putc(YM_ACK);
    f_close(&FileObject);
    rx.expected = 0;
    ymodem_putc(YM_CRC);
    return -1;
}

// The batch loop from the first byte on. Returns kBatchDone at the end of
// the batch, or the ending's reason.
int receive_batch(void) {
    int c = next_byte();
    for (;;) {
        if (c < 0) {
            return kPacketTimeout;
        }
        int end = -1;
        if (c == YM_CAN) {
            if (next_byte() == YM_CAN && ++rx.canPairs >= 2u) {
                return kNoText;
            }
            ymodem_putc(YM_NAK);
        } else if (c == YM_SOH || c == YM_STX) {
            uint32_t len = c == YM_SOH ? kBlock0Len : kBlockLen;
            if (!read_packet((uint8_t)c, len)) {
                return kPacketTimeout;
            }
            bool good = crc16(data_part(), len + 2u) == 0u &&
                        packet_data[1] == (uint8_t)(rx.expected & 0xFFu);
            if (!good) {
                ymodem_putc(YM_NAK);
            } else if (rx.expected == 0u) {
                const uint8_t *d = data_part();
                if (d[0] == 0 && d[1] == 0 && d[2] == 0 && d[3] == 0) {
                    ymodem_putc(YM_ACK);
                    finish_batch();
                    return kBatchDone;
                }
                end = on_block0();
                rx.expected++;
            } else {
                end = on_data_block(len);
                rx.expected++;
            }
        } else if (c == YM_EOT) {
            end = on_eot();
        } else if (c == 'Q' || c == 'S' || c == 'q' || c == 's' || c == 3) {
            return kPacketTimeout;
        }
        if (end >= 0) {
            return end;
        }
        c = next_byte();
    }
}

int receive(void) {
    uprintf("Ymodem rcv:\r\n");
    memset(&rx, 0, sizeof rx);
    UARTEchoSet(false);
    // "C" once a second until the sender answers.
    while (!UARTrdy()) {
        ymodem_putc(YM_CRC);
        uint32_t start = Timer_1ms(0);
        while (!UARTrdy() && Timer_1ms(0) - start < 1000u) {
            SysCtlSleep();
        }
    }
    int reason = receive_batch();
    if (reason != kBatchDone) {
        ymodem_putc(YM_CAN);
        ymodem_putc(YM_CAN);
        delay_sec(1);
        if (calFileFlg == 0) {
            uprintf("\r\nYmodem aborted: ");
            switch (reason) {
            case kOpenError:
                uprintf("File open error\r\n");
                break;
            case kWriteError:
                uprintf("File write error\r\n");
                break;
            case kTooLarge:
                uprintf("File size larger than: %d kB\r\n", (int)kSizeLimitKB);
                break;
            case kPacketTimeout:
                uprintf("Packet timeout error\r\n");
                break;
            default:
                break;
            }
            f_close(&FileObject);
        }
    }
    UARTEchoSet(true);
    calFileFlg = 0;
    return reason == kBatchDone ? 0 : -1;
}

} // namespace

// ---- public -----------------------------------------------------------------------

uint16_t crc16(const uint8_t *buf, uint32_t count) {
    uint16_t crc = 0;
    for (uint32_t i = 0; i < count; i++) {
        crc = (uint16_t)(crc ^ ((uint16_t)buf[i] << 8));
        for (int bit = 0; bit < 8; bit++) {
            crc = (crc & 0x8000u) != 0u ? (uint16_t)((crc << 1) ^ 0x1021u) : (uint16_t)(crc << 1);
        }
    }
    return crc;
}

uint32_t u32_to_str(uint32_t value, char *buf) {
    char rev[10];
    uint32_t n = 0;
    do {
        rev[n++] = (char)('0' + value % 10u);
        value /= 10u;
    } while (value != 0u);
    for (uint32_t i = 0; i < n; i++) {
        buf[i] = rev[n - 1u - i];
    }
    buf[n] = 0;
    return n;
}

uint32_t str_to_u32(const char *str) {
    uint32_t v = 0;
    for (; *str >= '0' && *str <= '9'; str++) {
        uint32_t digit = (uint32_t)(*str - '0');
        if (v > (0xFFFFFFFFu - digit) / 10u) {
            return 0xFFFFFFFFu;
        }
        v = v * 10u + digit;
    }
    return v;
}

int ymodem_send(int argc, char *argv[]) {
    const char *name = (argc >= 2 && argv != nullptr) ? argv[1] : nullptr;
    return send_file(name_or_data_file(name));
}

int ymodem_send(int argc, const char *argv) {
    char name[kSendNameMax + 1u];
    second_word(argv, name, sizeof name);
    return send_file(name_or_data_file(name));
}

int ymodem_receive(int argc, char *argv[]) {
    return receive();
}

int ymodem_receive(int argc, const char *argv) {
    return receive();
}

int ymodem_receive_into(const char *dir) {
    s_rxDir = dir;
    int r = receive();
    s_rxDir = nullptr;
    return r;
}
