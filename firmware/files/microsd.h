// The card: error log, data paging to the host, the card command line.
#pragma once
#include <stdint.h>
#include "ff.h"

void init_uSDCard(void);
void error_store(const char *error_buff);
void get_data(void);
void viewFiles(void);
int Cmd_ls(int argc, char *argv[]);
const char *StringFromFresult(FRESULT fresult);
