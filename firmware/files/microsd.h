// The card: mount at start-up, FatFs result names, the small file
// primitives every writer shares, the error log, data paging to the host, the
// snapshot service, and the operator's card command line. No file stays open
// between operations. The data-file headers are files/config's; transfers
// over the console line are files/ymodem's.
#pragma once
#include <stdint.h>
#include "ff.h"

// Card command line: current directory and scratch path, command line.
#define SD_PATH_BUF_SIZE 80u
#define SD_CMD_BUF_SIZE 64u
// Handler result that ends the command line.
#define SD_CMD_EXIT (-5)

void init_uSDCard(void);
const char *StringFromFresult(FRESULT fresult);

// Formats (at most 255 characters) and writes with f_write; reports a failed
// write. Returns the bytes written.
uint32_t sd_fprintf(FIL *fil, const char *format, ...) __attribute__((format(printf, 2, 3)));
// Appends a NUL-terminated text to the data file (open, seek to the end,
// write, close); every failing step is reported and the next one attempted.
void appendBufferToSDCard(const char *buffer);

void error_store(const char *error_buff);
void get_data(void);
void sendlast_takesample(void);

void viewFiles(void);
int Cmd_help(int argc, char *argv[]);
int Cmd_ls(int argc, char *argv[]);
int Cmd_cd(int argc, char *argv[]);
int Cmd_pwd(int argc, char *argv[]);
int Cmd_cat(int argc, char *argv[]);
int Cmd_mkdir(int argc, char *argv[]);
int Cmd_rm(int argc, char *argv[]);
int Cmd_mv(int argc, char *argv[]);
int Cmd_exit(int argc, char *argv[]);
