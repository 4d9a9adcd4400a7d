// Table-driven command processor of the card command line.
#include "files/cmdline.h"

#include <string.h>

int CmdLineProcess(char *line, const tCmdLineEntry *table) {
    char *argv[CMDLINE_MAX_ARGS + 1];
    int argc = 0;
    bool findWord = true;

    for (char *p = line; p != nullptr && *p != 0; p++) {
        if (*p == ' ') {
            *p = 0;
            findWord = true;
            continue;
        }
        if (findWord) {
            if (argc >= CMDLINE_MAX_ARGS) {
                return CMDLINE_TOO_MANY_ARGS;
            }
            argv[argc++] = p;
            findWord = false;
        }
    }
    if (argc == 0) {
        return 0;
    }
    argv[argc] = nullptr;

    for (const tCmdLineEntry *e = table; e != nullptr && e->pcCmd != nullptr; e++) {
        if (strcmp(argv[0], e->pcCmd) == 0) {
            return e->pfnCmd(argc, argv);
        }
    }
    return CMDLINE_BAD_CMD;
}
