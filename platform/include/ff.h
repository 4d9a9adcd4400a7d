// The FAT file API of the microSD card (the generic FAT module's interface and
// result numbering, revision 0.10 style, 8.3 names only).
// Contract: every call blocks until the card answers; none may be called from
// an interrupt handler. With no card every call returns FR_NOT_READY.
#pragma once
#include <stddef.h>
#include <stdint.h>

typedef char TCHAR;
typedef unsigned int UINT;
typedef uint8_t BYTE;
typedef uint16_t WORD;
typedef uint32_t DWORD;

typedef enum {
    FR_OK = 0,
    FR_DISK_ERR,
    FR_INT_ERR,
    FR_NOT_READY,
    FR_NO_FILE,
    FR_NO_PATH,
    FR_INVALID_NAME,
    FR_DENIED,
    FR_EXIST,
    FR_INVALID_OBJECT,
    FR_WRITE_PROTECTED,
    FR_INVALID_DRIVE,
    FR_NOT_ENABLED,
    FR_NO_FILESYSTEM,
    FR_MKFS_ABORTED,
    FR_TIMEOUT,
    FR_LOCKED,
    FR_NOT_ENOUGH_CORE,
    FR_TOO_MANY_OPEN_FILES,
    FR_INVALID_PARAMETER
} FRESULT;

#define FA_READ 0x01u
#define FA_OPEN_EXISTING 0x00u
#define FA_WRITE 0x02u
#define FA_CREATE_NEW 0x04u
#define FA_CREATE_ALWAYS 0x08u
#define FA_OPEN_ALWAYS 0x10u

#define AM_RDO 0x01u
#define AM_HID 0x02u
#define AM_SYS 0x04u
#define AM_VOL 0x08u
#define AM_DIR 0x10u
#define AM_ARC 0x20u

typedef struct {
    BYTE fs_type; // 0 = not mounted
    BYTE csize;   // sectors per cluster
    DWORD n_fatent;
    DWORD free_clust;
} FATFS;

typedef struct {
    FATFS *fs;
    BYTE flag;
    DWORD fptr;     // read/write pointer
    DWORD fsize;    // file size
    int32_t handle; // back end's handle
} FIL;

typedef struct {
    FATFS *fs;
    int32_t handle; // back end's handle
    DWORD index;
    char path[80];
} DIR;

typedef struct {
    DWORD fsize;
    WORD fdate; // bits 15-9 year since 1980, 8-5 month, 4-0 day
    WORD ftime; // bits 15-11 hour, 10-5 minute, 4-0 seconds/2
    BYTE fattrib;
    TCHAR fname[13];
} FILINFO;

#define f_size(fp) ((fp)->fsize)
#define f_tell(fp) ((fp)->fptr)
#define f_eof(fp) ((fp)->fptr == (fp)->fsize)

FRESULT f_mount(FATFS *fs, const TCHAR *path, BYTE opt);
FRESULT f_open(FIL *fp, const TCHAR *path, BYTE mode);
FRESULT f_close(FIL *fp);
FRESULT f_read(FIL *fp, void *buff, UINT btr, UINT *br);
FRESULT f_write(FIL *fp, const void *buff, UINT btw, UINT *bw);
FRESULT f_lseek(FIL *fp, DWORD ofs);
FRESULT f_truncate(FIL *fp);
FRESULT f_sync(FIL *fp);
FRESULT f_opendir(DIR *dp, const TCHAR *path);
FRESULT f_closedir(DIR *dp);
FRESULT f_readdir(DIR *dp, FILINFO *fno); // fno->fname[0] == 0 at the end
FRESULT f_stat(const TCHAR *path, FILINFO *fno);
FRESULT f_unlink(const TCHAR *path);
FRESULT f_rename(const TCHAR *path_old, const TCHAR *path_new);
FRESULT f_mkdir(const TCHAR *path);
FRESULT f_getfree(const TCHAR *path, DWORD *nclst, FATFS **fatfs);
char *f_gets(char *buff, int len, FIL *fp);
