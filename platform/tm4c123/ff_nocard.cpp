// The card layer of an image built without the FAT module: every call reports
// FR_NOT_READY, as with no card in the slot, and leaves its outputs empty.
#include "ff.h"

FRESULT f_mount(FATFS *fs, const TCHAR *path, BYTE opt) {
    return FR_NOT_READY;
}
FRESULT f_open(FIL *fp, const TCHAR *path, BYTE mode) {
    return FR_NOT_READY;
}
FRESULT f_close(FIL *fp) {
    return FR_NOT_READY;
}

FRESULT f_read(FIL *fp, void *buff, UINT btr, UINT *br) {
    if (br != nullptr) {
        *br = 0u;
    }
    return FR_NOT_READY;
}

FRESULT f_write(FIL *fp, const void *buff, UINT btw, UINT *bw) {
    if (bw != nullptr) {
        *bw = 0u;
    }
    return FR_NOT_READY;
}

FRESULT f_lseek(FIL *fp, DWORD ofs) {
    return FR_NOT_READY;
}
FRESULT f_truncate(FIL *fp) {
    return FR_NOT_READY;
}
FRESULT f_sync(FIL *fp) {
    return FR_NOT_READY;
}
FRESULT f_opendir(DIR *dp, const TCHAR *path) {
    return FR_NOT_READY;
}
FRESULT f_closedir(DIR *dp) {
    return FR_NOT_READY;
}

FRESULT f_readdir(DIR *dp, FILINFO *fno) {
    if (fno != nullptr) {
        fno->fname[0] = '\0';
    }
    return FR_NOT_READY;
}

FRESULT f_stat(const TCHAR *path, FILINFO *fno) {
    return FR_NOT_READY;
}
FRESULT f_unlink(const TCHAR *path) {
    return FR_NOT_READY;
}
FRESULT f_rename(const TCHAR *path_old, const TCHAR *path_new) {
    return FR_NOT_READY;
}
FRESULT f_mkdir(const TCHAR *path) {
    return FR_NOT_READY;
}

FRESULT f_getfree(const TCHAR *path, DWORD *nclst, FATFS **fatfs) {
    if (nclst != nullptr) {
        *nclst = 0u;
    }
    if (fatfs != nullptr) {
        *fatfs = nullptr;
    }
    return FR_NOT_READY;
}

char *f_gets(char *buff, int len, FIL *fp) {
    return nullptr;
}
