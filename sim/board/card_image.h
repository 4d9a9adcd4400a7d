// The card as a FAT image file: the firmware's FAT calls go through FatFs
// R0.16, our disk layer (platform/tm4c123/sd_spi.cpp) and SSI0 to the SPI-mode
// card model (sim/devices/sd_card.h), whose sectors are the file's. Built
// only with FatFs (FENWA_CARD_IMAGE); card.cpp hands every call here while an
// image is in the slot.
#pragma once
#include <string>

#include "ff.h"

namespace sim::image {

bool open(const std::string &path, std::string &err); // puts the image in the slot
bool on();                                            // an image is in the slot

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
FRESULT f_readdir(DIR *dp, FILINFO *fno);
FRESULT f_stat(const TCHAR *path, FILINFO *fno);
FRESULT f_unlink(const TCHAR *path);
FRESULT f_rename(const TCHAR *path_old, const TCHAR *path_new);
FRESULT f_mkdir(const TCHAR *path);
FRESULT f_getfree(const TCHAR *path, DWORD *nclst, FATFS **fatfs);
char *f_gets(char *buff, int len, FIL *fp);

} // namespace sim::image
