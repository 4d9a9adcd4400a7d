// The microSD card behind the FAT file API: a host folder whose files are the
// card's files. Names follow a FAT volume without long names: 8.3, upper
// case on disk, looked up without regard to case. A file written by the
// firmware gets the simulated RTC as its modification time, so runs repeat.
// Card absent, disk error and card full are knobs of BoardState.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <vector>

#include "board.h"
#include "card_image.h"
#include "ff.h"
#include "host_dir.h"
#include "sim.h"

// With an image in the slot every call goes to the FAT module (card_image.cpp).
#if FENWA_CARD_IMAGE
#define IMAGE_CARD(call)                                                                           \
    if (sim::image::on()) {                                                                        \
        return sim::image::call;                                                                   \
    }
#else
#define IMAGE_CARD(call)
#endif

namespace {

using sim::Board;
using sim::board;

constexpr uint32_t kClusterBytes = 64 * 512;                     // csize 64, 512-byte sectors
constexpr uint32_t kClusters = 65536;                            // a 2 GB card
constexpr BYTE kWritten = 0x20;                                  // file modified since open or sync
constexpr uint64_t kCardCallCycles = 50 * sim::kCpuHz / 1000000; // 50 us a call
constexpr uint64_t kCardByteCycles = sim::kCpuHz / 1000000;      // 1 us a byte

std::set<int> g_open; // host descriptors held by FIL objects
uint32_t g_free_cache = 0;

void card_time(uint64_t bytes) {
    Board &b = board();
    uint64_t busy = kCardCallCycles + bytes * kCardByteCycles;
    sim::supply_add(*b.st, sim::kSupplyCard, busy);
    b.advance_to(b.now() + busy);
}

FRESULT ready(bool need_mount = true) {
    Board &b = board();
    b.call();
    if (b.st->card_absent) {
        return FR_NOT_READY;
    }
    if (b.st->card_error) {
        return FR_DISK_ERR;
    }
    if (need_mount && b.mounted == nullptr) {
        return FR_NOT_ENABLED;
    }
    return FR_OK;
}

std::string upper(std::string s) {
    for (char &c : s) {
        if (c >= 'a' && c <= 'z') {
            c = char(c - 'a' + 'A');
        }
    }
    return s;
}

// One path component as a FAT short name; false when it is not one.
bool short_name(const std::string &in, std::string &out) {
    static const char kBad[] = "\"*+,:;<=>?[]|\x7F";
    std::string body, ext;
    bool in_ext = false;
    for (unsigned char c : in) {
        if (c == '.') {
            if (in_ext) {
                return false;
            }
            in_ext = true;
            continue;
        }
        if (c < 0x20 || std::strchr(kBad, c) != nullptr || c == '/' || c == '\\') {
            return false;
        }
        std::string &part = in_ext ? ext : body;
        part.push_back(char(c));
        if (part.size() > (in_ext ? 3u : 8u)) {
            return false;
        }
    }
    if (body.empty()) {
        return false;
    }
    out = upper(body) + (ext.empty() ? "" : "." + upper(ext));
    return true;
}

// A path as the firmware gives it: optional "0:", separators '/' or '\\',
// relative to the root; the path ends at the first control character or blank.
FRESULT split(const TCHAR *path, std::vector<std::string> &parts) {
    parts.clear();
    if (path == nullptr) {
        return FR_INVALID_NAME;
    }
    const char *p = path;
    if (p[0] >= '0' && p[0] <= '9' && p[1] == ':') {
        if (p[0] != '0') {
            return FR_INVALID_DRIVE;
        }
        p += 2;
    }
    std::string cur;
    for (;; ++p) {
        unsigned char c = static_cast<unsigned char>(*p);
        if (c <= ' ' || c == '/' || c == '\\') {
            if (!cur.empty()) {
                std::string n;
                if (!short_name(cur, n)) {
                    return FR_INVALID_NAME;
                }
                parts.push_back(n);
                cur.clear();
            }
            if (c <= ' ') {
                break;
            }
            continue;
        }
        cur.push_back(char(c));
        if (cur.size() > 255) {
            return FR_INVALID_NAME;
        }
    }
    return FR_OK;
}

bool host_stat(const std::string &p, struct stat &sb) {
    return ::stat(p.c_str(), &sb) == 0;
}

// The entries of a host folder that the card shows (valid short names, once
// each), sorted: (short name, host name).
std::vector<std::pair<std::string, std::string>> listing(const std::string &dir) {
    std::vector<std::pair<std::string, std::string>> v;
    for (std::string &name : sim::host_dir_names(dir)) {
        std::string sn;
        if (name.empty() || name[0] == '.' || !short_name(name, sn)) {
            continue;
        }
        v.push_back({sn, std::move(name)});
    }
    std::sort(v.begin(), v.end());
    v.erase(std::unique(v.begin(), v.end(),
                        [](const auto &a, const auto &b) { return a.first == b.first; }),
            v.end());
    return v;
}

// Host name of short name `sn` in host folder `dir`: the upper-case name, or
// any spelling of it put there from outside.
bool find(const std::string &dir, const std::string &sn, std::string &host) {
    struct stat sb;
    if (host_stat(dir + "/" + sn, sb)) {
        host = dir + "/" + sn;
        return true;
    }
    for (auto &e : listing(dir)) {
        if (e.first == sn) {
            host = dir + "/" + e.second;
            return true;
        }
    }
    return false;
}

// Host folder of the first n components (all must be folders).
FRESULT folder(const std::vector<std::string> &parts, size_t n, std::string &host) {
    host = board().card_path();
    for (size_t i = 0; i < n; ++i) {
        std::string next;
        struct stat sb;
        if (!find(host, parts[i], next) || !host_stat(next, sb) || !S_ISDIR(sb.st_mode)) {
            return FR_NO_PATH;
        }
        host = next;
    }
    return FR_OK;
}

// Components of a path that names an entry, and the host folder it sits in.
FRESULT parent(const TCHAR *path, std::vector<std::string> &parts, std::string &dir) {
    FRESULT r = split(path, parts);
    if (r != FR_OK) {
        return r;
    }
    if (parts.empty()) {
        return FR_INVALID_NAME;
    }
    return folder(parts, parts.size() - 1, dir);
}

// The entry a path names: its name, host path and attributes (FR_NO_FILE when there is none).
FRESULT entry(const TCHAR *path, std::string &name, std::string &host, struct stat &sb) {
    FRESULT r = ready();
    std::vector<std::string> parts;
    std::string dir;
    if (r != FR_OK || (r = parent(path, parts, dir)) != FR_OK) {
        return r;
    }
    name = parts.back();
    return find(dir, name, host) && host_stat(host, sb) ? FR_OK : FR_NO_FILE;
}

uint64_t clusters_of(uint64_t bytes) {
    return (bytes + kClusterBytes - 1) / kClusterBytes;
}

uint64_t used_clusters(const std::string &dir) {
    uint64_t used = 1; // the folder itself
    for (auto &e : listing(dir)) {
        std::string p = dir + "/" + e.second;
        struct stat sb;
        if (!host_stat(p, sb)) {
            continue;
        }
        used += S_ISDIR(sb.st_mode) ? used_clusters(p) : clusters_of(uint64_t(sb.st_size));
    }
    return used;
}

uint32_t free_clusters() {
    if (board().st->card_full) {
        return 0;
    }
    uint64_t used = used_clusters(board().card_path());
    g_free_cache = used >= kClusters ? 0 : uint32_t(kClusters - used);
    return g_free_cache;
}

// Clusters a file may still take: 0 on a full card.
uint64_t clusters_available(uint64_t need) {
    if (board().st->card_full) {
        return 0;
    }
    if (g_free_cache < need) {
        free_clusters();
    }
    return std::min<uint64_t>(need, g_free_cache);
}

void take_clusters(uint64_t n) {
    g_free_cache = n > g_free_cache ? 0 : g_free_cache - uint32_t(n);
}

void fat_time(time_t t, WORD &date, WORD &tim) {
    struct tm tm;
    gmtime_r(&t, &tm);
    if (tm.tm_year < 80) {
        date = (0 << 9) | (1 << 5) | 1; // the FAT epoch, 1980-01-01
        tim = 0;
        return;
    }
    date = WORD(((tm.tm_year - 80) << 9) | ((tm.tm_mon + 1) << 5) | tm.tm_mday);
    tim = WORD((tm.tm_hour << 11) | (tm.tm_min << 5) | (tm.tm_sec / 2));
}

void fill(FILINFO *fno, const std::string &sn, const struct stat &sb) {
    if (fno == nullptr) {
        return;
    }
    std::memset(fno, 0, sizeof *fno);
    bool dir = S_ISDIR(sb.st_mode);
    fno->fsize = dir ? 0 : DWORD(sb.st_size);
    fat_time(sb.st_mtime, fno->fdate, fno->ftime);
    fno->fattrib = dir ? AM_DIR : AM_ARC;
    if ((sb.st_mode & S_IWUSR) == 0) {
        fno->fattrib |= AM_RDO;
    }
    std::strncpy(fno->fname, sn.c_str(), sizeof fno->fname - 1);
}

void stamp_fd(int fd) {
    timespec ts[2];
    ts[0].tv_sec = 0;
    ts[0].tv_nsec = UTIME_OMIT;
    ts[1].tv_sec = time_t(board().rtc_now());
    ts[1].tv_nsec = 0;
    futimens(fd, ts);
}

void stamp_path(const std::string &p) {
    timespec ts[2];
    ts[0].tv_sec = 0;
    ts[0].tv_nsec = UTIME_OMIT;
    ts[1].tv_sec = time_t(board().rtc_now());
    ts[1].tv_nsec = 0;
    utimensat(AT_FDCWD, p.c_str(), ts, 0);
}

// The card is there, `fp` is a file open on it, and it was opened for `need`.
FRESULT open_file(FIL *fp, BYTE need = 0) {
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    if (fp == nullptr || fp->fs == nullptr || fp->fs != board().mounted ||
        g_open.count(fp->handle) == 0) {
        return FR_INVALID_OBJECT;
    }
    return (fp->flag & need) == need ? FR_OK : FR_DENIED;
}

} // namespace

FRESULT f_mount(FATFS *fs, const TCHAR *path, BYTE opt) {
    IMAGE_CARD(f_mount(fs, path, opt));
    FRESULT r = ready(false);
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> parts;
    if (path != nullptr && (r = split(path, parts)) != FR_OK) {
        return r;
    }
    Board &b = board();
    if (fs == nullptr) {
        b.mounted = nullptr;
        return FR_OK;
    }
    struct stat sb;
    if (!host_stat(b.card_path(), sb)) {
        ::mkdir(b.card_path().c_str(), 0777);
    }
    card_time(512);
    fs->fs_type = 3; // FAT32
    fs->csize = 64;
    fs->n_fatent = kClusters + 2;
    // Free clusters are counted when an allocation first needs them or
    // f_getfree asks, as after a FAT module's delayed mount, not at every
    // wake-up.
    fs->free_clust = 0xFFFFFFFFu;
    g_free_cache = 0;
    b.mounted = fs;
    return FR_OK;
}

FRESULT f_open(FIL *fp, const TCHAR *path, BYTE mode) {
    IMAGE_CARD(f_open(fp, path, mode));
    if (fp == nullptr) {
        return FR_INVALID_OBJECT;
    }
    fp->fs = nullptr;
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> parts;
    std::string dir;
    if ((r = parent(path, parts, dir)) != FR_OK) {
        return r;
    }
    mode &= FA_READ | FA_WRITE | FA_CREATE_ALWAYS | FA_OPEN_ALWAYS | FA_CREATE_NEW;
    card_time(0);
    std::string host;
    bool exists = find(dir, parts.back(), host);
    struct stat sb {};
    if (exists && !host_stat(host, sb)) {
        return FR_DISK_ERR;
    }
    int flags = O_CLOEXEC | ((mode & FA_WRITE) ? O_RDWR : O_RDONLY);
    if (mode & (FA_CREATE_ALWAYS | FA_OPEN_ALWAYS | FA_CREATE_NEW)) {
        if (exists) {
            if (S_ISDIR(sb.st_mode) || (sb.st_mode & S_IWUSR) == 0) {
                return FR_DENIED;
            }
            if (mode & FA_CREATE_NEW) {
                return FR_EXIST;
            }
            if (mode & FA_CREATE_ALWAYS) {
                flags |= O_TRUNC;
                mode |= kWritten;
            }
        } else {
            host = dir + "/" + parts.back();
            flags |= O_CREAT;
            mode |= kWritten;
        }
    } else {
        if (!exists || S_ISDIR(sb.st_mode)) {
            return FR_NO_FILE;
        }
        if ((mode & FA_WRITE) && (sb.st_mode & S_IWUSR) == 0) {
            return FR_DENIED;
        }
    }
    if (flags & (O_TRUNC | O_CREAT)) {
        flags = (flags & ~O_RDONLY) | O_RDWR; // the host must write to create or empty it
    }
    int fd = ::open(host.c_str(), flags, 0666);
    if (fd < 0) {
        return errno == EACCES ? FR_DENIED : FR_DISK_ERR;
    }
    struct stat now {};
    fstat(fd, &now);
    g_open.insert(fd);
    fp->fs = board().mounted;
    fp->flag = mode;
    fp->fptr = 0;
    fp->fsize = DWORD(now.st_size);
    fp->handle = fd;
    return FR_OK;
}

FRESULT f_close(FIL *fp) {
    IMAGE_CARD(f_close(fp));
    if (fp != nullptr && fp->handle >= 0 && sim::write_point("card-close", 0, 1) == 0) {
        sim::power_cut_now();
    }
    FRESULT r = f_sync(fp);
    if (r != FR_OK) {
        return r;
    }
    g_open.erase(fp->handle);
    ::close(fp->handle);
    fp->handle = -1;
    fp->fs = nullptr;
    return FR_OK;
}

FRESULT f_read(FIL *fp, void *buff, UINT btr, UINT *br) {
    IMAGE_CARD(f_read(fp, buff, btr, br));
    if (br != nullptr) {
        *br = 0;
    }
    FRESULT r = open_file(fp, FA_READ);
    if (r != FR_OK) {
        return r;
    }
    UINT n = std::min<UINT>(btr, fp->fsize > fp->fptr ? fp->fsize - fp->fptr : 0);
    ssize_t got = n > 0 ? ::pread(fp->handle, buff, n, off_t(fp->fptr)) : 0;
    if (got < 0) {
        return FR_DISK_ERR;
    }
    fp->fptr += DWORD(got);
    if (br != nullptr) {
        *br = UINT(got);
    }
    card_time(uint64_t(got));
    return FR_OK;
}

FRESULT f_write(FIL *fp, const void *buff, UINT btw, UINT *bw) {
    IMAGE_CARD(f_write(fp, buff, btw, bw));
    if (bw != nullptr) {
        *bw = 0;
    }
    FRESULT r = open_file(fp, FA_WRITE);
    if (r != FR_OK) {
        return r;
    }
    uint64_t want_end = uint64_t(fp->fptr) + btw;
    if (want_end > 0xFFFFFFFFull) {
        want_end = 0xFFFFFFFFull; // FAT files stop at 4 GB
    }
    uint64_t have = clusters_of(fp->fsize);
    uint64_t need = clusters_of(want_end) > have ? clusters_of(want_end) - have : 0;
    uint64_t got_clusters = need > 0 ? clusters_available(need) : 0;
    uint64_t end = std::min(want_end, (have + got_clusters) * kClusterBytes);
    UINT n = end > fp->fptr ? UINT(end - fp->fptr) : 0;
    UINT lands = n > 0 ? sim::write_point("card-write", fp->fptr, n) : 0;
    if (lands < n) {
        if (lands > 0 && ::pwrite(fp->handle, buff, lands, off_t(fp->fptr)) < 0) {
            lands = 0;
        }
        sim::power_cut_now();
    }
    ssize_t put = n > 0 ? ::pwrite(fp->handle, buff, n, off_t(fp->fptr)) : 0;
    if (put < 0) {
        return FR_DISK_ERR;
    }
    take_clusters(got_clusters);
    fp->fptr += DWORD(put);
    if (fp->fptr > fp->fsize) {
        fp->fsize = fp->fptr;
    }
    if (put > 0) {
        fp->flag |= kWritten;
    }
    if (bw != nullptr) {
        *bw = UINT(put);
    }
    card_time(uint64_t(put));
    return FR_OK;
}

FRESULT f_lseek(FIL *fp, DWORD ofs) {
    IMAGE_CARD(f_lseek(fp, ofs));
    FRESULT r = open_file(fp);
    if (r != FR_OK) {
        return r;
    }
    if (ofs > fp->fsize) {
        if ((fp->flag & FA_WRITE) == 0) {
            ofs = fp->fsize;
        } else {
            // a write-mode seek past the end stretches the file
            uint64_t have = clusters_of(fp->fsize);
            uint64_t need = clusters_of(ofs) - have;
            uint64_t got = clusters_available(need);
            ofs = DWORD(std::min<uint64_t>(ofs, (have + got) * kClusterBytes));
            if (ofs > fp->fsize) {
                if (::ftruncate(fp->handle, off_t(ofs)) != 0) {
                    return FR_DISK_ERR;
                }
                take_clusters(got);
                fp->fsize = ofs;
                fp->flag |= kWritten;
            }
        }
    }
    fp->fptr = ofs;
    card_time(0);
    return FR_OK;
}

FRESULT f_truncate(FIL *fp) {
    IMAGE_CARD(f_truncate(fp));
    FRESULT r = open_file(fp, FA_WRITE);
    if (r != FR_OK) {
        return r;
    }
    if (fp->fptr < fp->fsize) {
        if (::ftruncate(fp->handle, off_t(fp->fptr)) != 0) {
            return FR_DISK_ERR;
        }
        fp->fsize = fp->fptr;
        fp->flag |= kWritten;
        g_free_cache = 0; // recount on the next allocation
    }
    card_time(0);
    return FR_OK;
}

FRESULT f_sync(FIL *fp) {
    IMAGE_CARD(f_sync(fp));
    FRESULT r = open_file(fp);
    if (r != FR_OK) {
        return r;
    }
    if (fp->flag & kWritten) {
        stamp_fd(fp->handle);
        fp->flag &= BYTE(~kWritten);
    }
    card_time(512);
    return FR_OK;
}

FRESULT f_opendir(DIR *dp, const TCHAR *path) {
    IMAGE_CARD(f_opendir(dp, path));
    if (dp == nullptr) {
        return FR_INVALID_OBJECT;
    }
    dp->fs = nullptr;
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> parts;
    if ((r = split(path, parts)) != FR_OK) {
        return r;
    }
    std::string host;
    if ((r = folder(parts, parts.size(), host)) != FR_OK) {
        return r;
    }
    std::string rel = host.substr(board().card_path().size());
    if (rel.size() >= sizeof dp->path) {
        return FR_INVALID_NAME;
    }
    std::strncpy(dp->path, rel.c_str(), sizeof dp->path - 1);
    dp->path[sizeof dp->path - 1] = 0;
    dp->index = 0;
    dp->handle = 1;
    dp->fs = board().mounted;
    card_time(512);
    return FR_OK;
}

FRESULT f_closedir(DIR *dp) {
    IMAGE_CARD(f_closedir(dp));
    if (dp == nullptr || dp->fs == nullptr) {
        return FR_INVALID_OBJECT;
    }
    dp->fs = nullptr;
    board().call();
    return FR_OK;
}

FRESULT f_readdir(DIR *dp, FILINFO *fno) {
    IMAGE_CARD(f_readdir(dp, fno));
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    if (dp == nullptr || dp->fs == nullptr || dp->fs != board().mounted) {
        return FR_INVALID_OBJECT;
    }
    if (fno == nullptr) {
        dp->index = 0;
        return FR_OK;
    }
    std::string dir = board().card_path() + dp->path;
    auto entries = listing(dir);
    card_time(32);
    while (dp->index < entries.size()) {
        auto &e = entries[dp->index++];
        struct stat sb;
        if (host_stat(dir + "/" + e.second, sb)) {
            fill(fno, e.first, sb);
            return FR_OK;
        }
    }
    std::memset(fno, 0, sizeof *fno);
    return FR_OK;
}

FRESULT f_stat(const TCHAR *path, FILINFO *fno) {
    IMAGE_CARD(f_stat(path, fno));
    std::string name, host;
    struct stat sb;
    FRESULT r = entry(path, name, host, sb);
    if (r != FR_OK) {
        return r;
    }
    card_time(32);
    fill(fno, name, sb);
    return FR_OK;
}

FRESULT f_unlink(const TCHAR *path) {
    IMAGE_CARD(f_unlink(path));
    std::string name, host;
    struct stat sb;
    FRESULT r = entry(path, name, host, sb);
    if (r != FR_OK) {
        return r;
    }
    if ((sb.st_mode & S_IWUSR) == 0) {
        return FR_DENIED;
    }
    if (S_ISDIR(sb.st_mode)) {
        if (!listing(host).empty() || ::rmdir(host.c_str()) != 0) {
            return FR_DENIED;
        }
    } else if (::unlink(host.c_str()) != 0) {
        return FR_DISK_ERR;
    }
    g_free_cache = 0;
    card_time(512);
    return FR_OK;
}

FRESULT f_rename(const TCHAR *path_old, const TCHAR *path_new) {
    IMAGE_CARD(f_rename(path_old, path_new));
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> from, to;
    if ((r = split(path_old, from)) != FR_OK || (r = split(path_new, to)) != FR_OK) {
        return r;
    }
    if (from.empty() || to.empty()) {
        return FR_INVALID_NAME;
    }
    std::string fdir, tdir, host, other;
    if ((r = folder(from, from.size() - 1, fdir)) != FR_OK) {
        return r;
    }
    struct stat sb;
    if (!find(fdir, from.back(), host) || !host_stat(host, sb)) {
        return FR_NO_FILE;
    }
    if ((r = folder(to, to.size() - 1, tdir)) != FR_OK) {
        return r;
    }
    if (find(tdir, to.back(), other)) {
        return FR_EXIST;
    }
    if (::rename(host.c_str(), (tdir + "/" + to.back()).c_str()) != 0) {
        return FR_DENIED;
    }
    card_time(512);
    return FR_OK;
}

FRESULT f_mkdir(const TCHAR *path) {
    IMAGE_CARD(f_mkdir(path));
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> parts;
    std::string dir, host;
    if ((r = parent(path, parts, dir)) != FR_OK) {
        return r;
    }
    if (find(dir, parts.back(), host)) {
        return FR_EXIST;
    }
    if (clusters_available(1) == 0) {
        return FR_DENIED;
    }
    host = dir + "/" + parts.back();
    if (::mkdir(host.c_str(), 0777) != 0) {
        return FR_DISK_ERR;
    }
    take_clusters(1);
    stamp_path(host);
    card_time(1024);
    return FR_OK;
}

FRESULT f_getfree(const TCHAR *path, DWORD *nclst, FATFS **fatfs) {
    IMAGE_CARD(f_getfree(path, nclst, fatfs));
    FRESULT r = ready();
    if (r != FR_OK) {
        return r;
    }
    std::vector<std::string> parts;
    if (path != nullptr && (r = split(path, parts)) != FR_OK) {
        return r;
    }
    Board &b = board();
    uint32_t f = free_clusters();
    b.mounted->free_clust = f;
    if (nclst != nullptr) {
        *nclst = f;
    }
    if (fatfs != nullptr) {
        *fatfs = b.mounted;
    }
    card_time(4096);
    return FR_OK;
}

char *f_gets(char *buff, int len, FIL *fp) {
    IMAGE_CARD(f_gets(buff, len, fp));
    if (buff == nullptr || len <= 0) {
        return nullptr;
    }
    int n = 0;
    while (n < len - 1) {
        char c;
        UINT got = 0;
        if (f_read(fp, &c, 1, &got) != FR_OK || got != 1) {
            break;
        }
        buff[n++] = c;
        if (c == '\n') {
            break;
        }
    }
    buff[n] = 0;
    return n > 0 ? buff : nullptr;
}

namespace sim {

bool card_image_built() {
    return FENWA_CARD_IMAGE != 0;
}

bool use_card_image(const std::string &path, std::string &err) {
#if FENWA_CARD_IMAGE
    return image::open(path, err);
#else
    err = std::string("--card-image ") + path + ": " + kCardImageHowTo;
    return false;
#endif
}

} // namespace sim
