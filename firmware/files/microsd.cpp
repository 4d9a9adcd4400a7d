// The card: mount at start-up; error log and card command line to come.
#include "files/microsd.h"
#include "console/user_io.h"

static FATFS g_sFatFs;

void init_uSDCard(void) {
    FRESULT r = f_mount(&g_sFatFs, "", 1);
    if (r != FR_OK) {
        uprintf("f_mount error: %s\r\n", StringFromFresult(r));
    }
}

void error_store(const char *) {
    not_built_yet("error_store");
}
void get_data(void) {
    not_built_yet("get_data");
}
void viewFiles(void) {
    not_built_yet("viewFiles");
}
int Cmd_ls(int, char *[]) {
    not_built_yet("Cmd_ls");
    return 0;
}

const char *StringFromFresult(FRESULT fresult) {
    static const char *const names[] = {"FR_OK",
                                        "FR_DISK_ERR",
                                        "FR_INT_ERR",
                                        "FR_NOT_READY",
                                        "FR_NO_FILE",
                                        "FR_NO_PATH",
                                        "FR_INVALID_NAME",
                                        "FR_DENIED",
                                        "FR_EXIST",
                                        "FR_INVALID_OBJECT",
                                        "FR_WRITE_PROTECTED",
                                        "FR_INVALID_DRIVE",
                                        "FR_NOT_ENABLED",
                                        "FR_NO_FILESYSTEM",
                                        "FR_MKFS_ABORTED",
                                        "FR_TIMEOUT",
                                        "FR_LOCKED",
                                        "FR_NOT_ENOUGH_CORE",
                                        "FR_TOO_MANY_OPEN_FILES",
                                        "FR_INVALID_PARAMETER"};
    unsigned idx = (unsigned)fresult;
    if (idx < sizeof(names) / sizeof(names[0])) {
        return names[idx];
    }
    return "UNKNOWN ERROR CODE";
}
