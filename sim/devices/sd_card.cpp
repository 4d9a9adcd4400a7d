// The microSD card model (sd_card.h).
#include "sd_card.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace sim {

namespace {
const uint32_t kSector = 512u;

uint8_t crc7(const uint8_t *p, size_t n) {
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
} // namespace

std::vector<uint8_t> SdCard::csdV2(uint32_t cSize) {
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

std::vector<uint8_t> SdCard::csdV1(uint32_t cSize, uint32_t mult, uint32_t readBlLen) {
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

bool SdCard::openImage(const std::string &path, std::string &err) {
    int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    struct stat sb;
    if (fd < 0 || ::fstat(fd, &sb) != 0) {
        err = path + ": " + std::strerror(errno);
        if (fd >= 0) {
            ::close(fd);
        }
        return false;
    }
    // C_SIZE counts units of 512 KiB: a card of whole units, at most the file.
    uint64_t units = uint64_t(sb.st_size) / (1024u * kSector);
    if (!S_ISREG(sb.st_mode) || units == 0 || units > 0x400000u) {
        err = path + ": not a card image (a file of 512 KiB to 2 TiB)";
        ::close(fd);
        return false;
    }
    if (imageFd >= 0) {
        ::close(imageFd);
    }
    imageFd = fd;
    v2 = highCapacity = true;
    csd = csdV2(uint32_t(units - 1));
    return true;
}

std::vector<uint8_t> SdCard::sector(uint32_t s) {
    std::vector<uint8_t> d(kSector);
    if (imageFd >= 0) {
        // past the end of the file (or a failed read) reads as erased
        ssize_t n = ::pread(imageFd, d.data(), kSector, off_t(s) * kSector);
        if (n < ssize_t(kSector)) {
            std::memset(d.data() + (n > 0 ? n : 0), 0xFF, kSector - size_t(n > 0 ? n : 0));
        }
        return d;
    }
    if (sectors.count(s) == 0) {
        for (size_t i = 0; i < d.size(); i++) {
            d[i] = (uint8_t)(s * 7u + i);
        }
        return d;
    }
    return sectors[s];
}

void SdCard::store(uint32_t s, std::vector<uint8_t> data) {
    if (imageFd >= 0) {
        // a lost write shows as a sector that kept its old contents
        (void)!::pwrite(imageFd, data.data(), kSector, off_t(s) * kSector);
        return;
    }
    sectors[s] = std::move(data);
}

void SdCard::queueBlock(const std::vector<uint8_t> &data) {
    out.insert(out.end(), (size_t)accessBytes, 0xFF);
    out.push_back(readToken);
    if (readToken == 0xFE) {
        out.insert(out.end(), data.begin(), data.end());
        out.push_back(0x12); // CRC, not checked by the host
        out.push_back(0x34);
    }
}

bool SdCard::addressToSector(uint32_t arg, uint32_t *s) const {
    if (highCapacity) {
        *s = arg;
        return true;
    }
    *s = arg / kSector;
    return arg % kSector == 0;
}

void SdCard::command() {
    uint8_t c = cmd[0] & 0x3F;
    uint32_t arg = (uint32_t)cmd[1] << 24 | cmd[2] << 16 | cmd[3] << 8 | cmd[4];
    bool app = appNext;
    appNext = false;
    if (logging) {
        char text[32];
        snprintf(text, sizeof text, "%sCMD%u %X", app ? "A" : "", c, arg);
        log.push_back(text);
    }
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

uint8_t SdCard::exchange(uint8_t in, bool selected) {
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
        if (log.empty() && logging) {
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
                store(writeSector++, std::vector<uint8_t>(block.begin(), block.end() - 2));
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

} // namespace sim
