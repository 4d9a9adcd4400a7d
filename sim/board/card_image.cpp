// The card as a FAT image file (card_image.h). FatFs R0.16's declarations
// sit in namespace ff, apart from the firmware's own FAT types: the firmware
// keeps its FATFS, FIL and DIR, and each one it uses is shadowed here by the
// module's object of the same address. Every sector the module reads or
// writes travels as SPI bytes through sd_spi.cpp to the card model, so a
// power cut lands where it would on the board.
#include "card_image.h"

#include <cstring>
#include <map>
#include <memory>

#include "board.h"
#include "gpio.h"
#include "sd_card.h"
#include "ssi.h"

// The module's ff.h defines these macros for its own types.
#undef FA_READ
#undef FA_OPEN_EXISTING
#undef FA_WRITE
#undef FA_CREATE_NEW
#undef FA_CREATE_ALWAYS
#undef FA_OPEN_ALWAYS
#undef AM_RDO
#undef AM_HID
#undef AM_SYS
#undef AM_VOL
#undef AM_DIR
#undef AM_ARC
#undef f_size
#undef f_tell
#undef f_eof
namespace ff {
#include FENWA_FATFS_H
} // namespace ff

namespace sim::image {

namespace {

// The card on SSI0, selected by PA3 low; PA6 (the slot's switch) is the
// board's. The knobs --card-absent and --card-error act on it too.
class CardOnSsi0 : public SpiDevice {
  public:
    SdCard card;
    uint32_t transfer(uint32_t out, uint64_t) override {
        bool selected = (gpio_levels(GPIO_PORTA_BASE) & GPIO_PIN_3) == 0;
        const BoardState &st = *board().st;
        card.present = !st.card_absent;
        // a failing card: every block read or written comes back with an error
        card.readToken = st.card_error ? 0x08 : 0xFE;
        card.dataResponse = st.card_error ? 0x0D : 0x05;
        return card.present ? card.exchange(uint8_t(out), selected) : 0xFFu;
    }
};

std::shared_ptr<CardOnSsi0> g_card;
ff::FATFS g_fs;
FATFS *g_mounted = nullptr; // the firmware's, mirrored from g_fs
std::map<const FIL *, ff::FIL> g_files;
std::map<const DIR *, ff::DIR> g_dirs;

FRESULT res(ff::FRESULT r) {
    return FRESULT(int(r)); // one numbering
}

void mirror_fs() {
    if (g_mounted != nullptr) {
        g_mounted->fs_type = g_fs.fs_type;
        g_mounted->csize = BYTE(g_fs.csize);
        g_mounted->n_fatent = g_fs.n_fatent;
        g_mounted->free_clust = g_fs.free_clst;
    }
}

ff::FIL *file(FIL *fp) {
    auto it = fp != nullptr ? g_files.find(fp) : g_files.end();
    return it == g_files.end() ? nullptr : &it->second;
}

FRESULT mirrored(FIL *fp, ff::FIL *f, ff::FRESULT r) {
    fp->fptr = f->fptr;
    fp->fsize = f->obj.objsize;
    return res(r);
}

} // namespace

bool open(const std::string &path, std::string &err) {
    auto dev = std::make_shared<CardOnSsi0>();
    dev->card.logging = false;
    if (!dev->card.openImage(path, err)) {
        return false;
    }
    g_card = dev;
    attach_spi(SSI0_BASE, dev);
    return true;
}

bool on() {
    SsiPort *s = g_card ? board().ssi_port(SSI0_BASE) : nullptr;
    return s != nullptr && s->dev == g_card;
}

FRESULT f_mount(FATFS *fs, const TCHAR *path, BYTE opt) {
    board().call();
    g_files.clear();
    g_dirs.clear();
    g_mounted = fs;
    ff::FRESULT r = ff::f_mount(fs != nullptr ? &g_fs : nullptr, path, opt);
    mirror_fs();
    return res(r);
}

FRESULT f_open(FIL *fp, const TCHAR *path, BYTE mode) {
    board().call();
    if (fp == nullptr) {
        return FR_INVALID_OBJECT;
    }
    ff::FIL &f = g_files[fp];
    ff::FRESULT r = ff::f_open(&f, path, mode);
    fp->fs = r == ff::FR_OK ? g_mounted : nullptr;
    fp->handle = -1;
    if (r != ff::FR_OK) {
        g_files.erase(fp);
        fp->fptr = fp->fsize = 0;
        return res(r);
    }
    mirror_fs();
    return mirrored(fp, &f, r);
}

FRESULT f_close(FIL *fp) {
    board().call();
    ff::FIL *f = file(fp);
    if (f == nullptr) {
        return FR_INVALID_OBJECT;
    }
    ff::FRESULT r = ff::f_close(f);
    if (r == ff::FR_OK) {
        g_files.erase(fp);
        fp->fs = nullptr;
    }
    return res(r);
}

FRESULT f_read(FIL *fp, void *buff, UINT btr, UINT *br) {
    board().call();
    ff::FIL *f = file(fp);
    if (f == nullptr) {
        if (br != nullptr) {
            *br = 0;
        }
        return FR_INVALID_OBJECT;
    }
    return mirrored(fp, f, ff::f_read(f, buff, btr, br));
}

FRESULT f_write(FIL *fp, const void *buff, UINT btw, UINT *bw) {
    board().call();
    ff::FIL *f = file(fp);
    if (f == nullptr) {
        if (bw != nullptr) {
            *bw = 0;
        }
        return FR_INVALID_OBJECT;
    }
    return mirrored(fp, f, ff::f_write(f, buff, btw, bw));
}

FRESULT f_lseek(FIL *fp, DWORD ofs) {
    board().call();
    ff::FIL *f = file(fp);
    return f == nullptr ? FR_INVALID_OBJECT : mirrored(fp, f, ff::f_lseek(f, ofs));
}

FRESULT f_truncate(FIL *fp) {
    board().call();
    ff::FIL *f = file(fp);
    return f == nullptr ? FR_INVALID_OBJECT : mirrored(fp, f, ff::f_truncate(f));
}

FRESULT f_sync(FIL *fp) {
    board().call();
    ff::FIL *f = file(fp);
    return f == nullptr ? FR_INVALID_OBJECT : mirrored(fp, f, ff::f_sync(f));
}

FRESULT f_opendir(DIR *dp, const TCHAR *path) {
    board().call();
    if (dp == nullptr) {
        return FR_INVALID_OBJECT;
    }
    ff::FRESULT r = ff::f_opendir(&g_dirs[dp], path);
    dp->fs = r == ff::FR_OK ? g_mounted : nullptr;
    if (r != ff::FR_OK) {
        g_dirs.erase(dp);
    }
    return res(r);
}

FRESULT f_closedir(DIR *dp) {
    board().call();
    auto it = dp != nullptr ? g_dirs.find(dp) : g_dirs.end();
    if (it == g_dirs.end()) {
        return FR_INVALID_OBJECT;
    }
    ff::FRESULT r = ff::f_closedir(&it->second);
    g_dirs.erase(it);
    dp->fs = nullptr;
    return res(r);
}

namespace {
void copy_info(FILINFO *to, const ff::FILINFO &from) {
    to->fsize = DWORD(from.fsize);
    to->fdate = from.fdate;
    to->ftime = from.ftime;
    to->fattrib = from.fattrib;
    static_assert(sizeof to->fname == sizeof from.fname, "8.3 names on both sides");
    std::memcpy(to->fname, from.fname, sizeof to->fname);
}
} // namespace

FRESULT f_readdir(DIR *dp, FILINFO *fno) {
    board().call();
    auto it = dp != nullptr ? g_dirs.find(dp) : g_dirs.end();
    if (it == g_dirs.end()) {
        if (fno != nullptr) {
            fno->fname[0] = '\0';
        }
        return FR_INVALID_OBJECT;
    }
    ff::FILINFO info{};
    ff::FRESULT r = ff::f_readdir(&it->second, fno != nullptr ? &info : nullptr);
    if (fno != nullptr) {
        copy_info(fno, info);
    }
    return res(r);
}

FRESULT f_stat(const TCHAR *path, FILINFO *fno) {
    board().call();
    ff::FILINFO info{};
    ff::FRESULT r = ff::f_stat(path, &info);
    if (fno != nullptr && r == ff::FR_OK) {
        copy_info(fno, info);
    }
    return res(r);
}

FRESULT f_unlink(const TCHAR *path) {
    board().call();
    ff::FRESULT r = ff::f_unlink(path);
    mirror_fs();
    return res(r);
}

FRESULT f_rename(const TCHAR *path_old, const TCHAR *path_new) {
    board().call();
    return res(ff::f_rename(path_old, path_new));
}

FRESULT f_mkdir(const TCHAR *path) {
    board().call();
    ff::FRESULT r = ff::f_mkdir(path);
    mirror_fs();
    return res(r);
}

FRESULT f_getfree(const TCHAR *path, DWORD *nclst, FATFS **fatfs) {
    board().call();
    ff::FATFS *fs = nullptr;
    DWORD n = 0;
    ff::FRESULT r = ff::f_getfree(path, &n, &fs);
    mirror_fs();
    if (nclst != nullptr) {
        *nclst = r == ff::FR_OK ? n : 0;
    }
    if (fatfs != nullptr) {
        *fatfs = r == ff::FR_OK ? g_mounted : nullptr;
    }
    return res(r);
}

char *f_gets(char *buff, int len, FIL *fp) {
    board().call();
    ff::FIL *f = file(fp);
    if (f == nullptr) {
        return nullptr;
    }
    char *s = ff::f_gets(buff, len, f);
    mirrored(fp, f, ff::FR_OK);
    return s;
}

} // namespace sim::image
