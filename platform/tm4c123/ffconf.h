/* The FAT module's configuration for the instrument's card (FatFs R0.16).
   Used in place of the module's own ffconf.h: the build includes this file
   ahead of every unit (-include), and ff.h reads no other once FFCONF_DEF is
   defined. What the firmware needs and no more: 8.3 names in code page 437,
   one volume on 512-byte sectors, f_gets, f_mkdir, f_rename, f_getfree,
   f_truncate. Paths are whole: the card command line keeps its own current
   folder, so the module keeps none. */
#ifndef FENWA_FFCONF_H
#define FENWA_FFCONF_H

#define FFCONF_DEF 80386 /* R0.16 */

/* ---- functions ---------------------------------------------------------- */
#define FF_FS_READONLY 0
#define FF_FS_MINIMIZE 0 /* f_getfree, f_truncate, f_unlink, f_mkdir, f_rename, f_lseek */
#define FF_USE_FIND 0
#define FF_USE_MKFS 0 /* the technician formats the card on a PC */
#define FF_USE_FASTSEEK 0
#define FF_USE_EXPAND 0
#define FF_USE_CHMOD 0
#define FF_USE_LABEL 0
#define FF_USE_FORWARD 0
#define FF_USE_STRFUNC 1 /* f_gets (config and calibration files); no LF to CRLF */
#define FF_PRINT_LLI 0
#define FF_PRINT_FLOAT 0
#define FF_STRF_ENCODE 0

/* ---- names -------------------------------------------------------------- */
#define FF_CODE_PAGE 437
#define FF_USE_LFN 0 /* 8.3 names only: no long-name tables in flash */
#define FF_MAX_LFN 255
#define FF_LFN_UNICODE 0
#define FF_LFN_BUF 255
#define FF_SFN_BUF 12
#define FF_FS_RPATH 0
#define FF_PATH_DEPTH 10

/* ---- volume ------------------------------------------------------------- */
#define FF_VOLUMES 1
#define FF_STR_VOLUME_ID 0
#define FF_VOLUME_STRS "SD"
#define FF_MULTI_PARTITION 0
#define FF_MIN_SS 512
#define FF_MAX_SS 512
#define FF_LBA64 0 /* cards up to 2 TB, MBR only */
#define FF_MIN_GPT 0x10000000
#define FF_USE_TRIM 0

/* ---- system ------------------------------------------------------------- */
/* One sector buffer for the volume, none per open file: a FIL is about 40
   bytes instead of 550, and the firmware keeps several on the stack. Files
   are written in lines and read in lines; the shared window costs little. */
#define FF_FS_TINY 1
#define FF_FS_EXFAT 0
#define FF_FS_NORTC 0 /* stamps from the hibernation clock (get_fattime) */
#define FF_NORTC_MON 1
#define FF_NORTC_MDAY 1
#define FF_NORTC_YEAR 2025
#define FF_FS_CRTIME 0
#define FF_FS_NOFSINFO 0
#define FF_FS_LOCK 0 /* no file stays open between operations */
#define FF_FS_REENTRANT 0
#define FF_FS_TIMEOUT 1000

#endif
