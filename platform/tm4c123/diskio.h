/* The FAT module's disk-I/O interface: what it calls to reach the card.
   Kept to the names, values and argument types the module's own diskio.h
   uses, so either header serves; the module's comes first when it is given.
   Plain C: the module includes it from ff.c. */
#ifndef _DISKIO_DEFINED
#define _DISKIO_DEFINED

#include "ff.h" /* BYTE, WORD, UINT, DWORD */

#ifdef __cplusplus
extern "C" {
#endif

#define _USE_WRITE 1
#define _USE_IOCTL 1

/* Status of the drive (bit set) */
typedef BYTE DSTATUS;

#define STA_NOINIT 0x01  /* not initialised */
#define STA_NODISK 0x02  /* no card in the slot */
#define STA_PROTECT 0x04 /* write protected */

/* Result of a disk function */
typedef enum {
    RES_OK = 0, /* done */
    RES_ERROR,  /* read or write error */
    RES_WRPRT,  /* write protected */
    RES_NOTRDY, /* not initialised or no card */
    RES_PARERR  /* bad argument */
} DRESULT;

DSTATUS disk_initialize(BYTE pdrv);
DSTATUS disk_status(BYTE pdrv);
DRESULT disk_read(BYTE pdrv, BYTE *buff, DWORD sector, UINT count);
DRESULT disk_write(BYTE pdrv, const BYTE *buff, DWORD sector, UINT count);
DRESULT disk_ioctl(BYTE pdrv, BYTE cmd, void *buff);

/* Time stamp of new and changed files: bits 31-25 year since 1980, 24-21
   month, 20-16 day, 15-11 hour, 10-5 minute, 4-0 seconds/2. */
DWORD get_fattime(void);

/* disk_ioctl commands the module uses */
#define CTRL_SYNC 0         /* finish any pending write */
#define GET_SECTOR_COUNT 1  /* DWORD: number of sectors */
#define GET_SECTOR_SIZE 2   /* WORD: bytes per sector */
#define GET_BLOCK_SIZE 3    /* DWORD: erase block, in sectors */
#define CTRL_ERASE_SECTOR 4 /* not supported here */

#ifdef __cplusplus
}
#endif

#endif
