// A small table-driven command processor: splits a line into words at blanks
// and calls the handler whose name matches the first word. Owns no table and
// prints nothing; the caller reports the results.
#pragma once
#include <stdint.h>

// Words a line may hold, command name included.
#define CMDLINE_MAX_ARGS 8

// Results besides a handler's own.
#define CMDLINE_BAD_CMD (-1)
#define CMDLINE_TOO_MANY_ARGS (-2)

typedef int (*pfnCmdLine)(int argc, char *argv[]);

typedef struct {
    const char *pcCmd;  // the command word
    pfnCmdLine pfnCmd;  // its handler
    const char *pcHelp; // help text shown behind the word
} tCmdLineEntry;

// Splits `line` in place (blanks become terminators). An empty line gives 0;
// an unknown first word CMDLINE_BAD_CMD; more than CMDLINE_MAX_ARGS words
// CMDLINE_TOO_MANY_ARGS; otherwise the handler's result. The table ends with
// an entry whose pcCmd is null.
int CmdLineProcess(char *line, const tCmdLineEntry *table);
