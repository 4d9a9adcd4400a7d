// The card: mount at start-up, FatFs result names, the file primitives of
// every writer, the error log, data paging to the host ("gdata"), the
// snapshot service and the operator's card command line. Files are opened,
// used and closed within one call; nothing stays open between operations.
#include "files/microsd.h"

#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "core/calendar.h"
#include "board/board_util.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "files/cmdline.h"
#include "files/ymodem.h"
#include "gpio.h"
#include "hibernate.h"
#include "measure/sample.h"
#include "ssi.h"
#include "sysctl.h"

#define ERROR_STAMP_SIZE 50u

namespace {

const uint32_t kCardSpiBitRate = 1000000u; // the card's SPI clock during start-up
const uint32_t kAppendSettleMs = 500u;     // the card settles after open
const uint32_t kGdataPiece = 80u;          // "gdata" sends the data file in pieces of this
const uint32_t kCatPiece = 79u;            // "cat" sends a file in pieces of this
const int kTxRoomNeeded = 81;              // room in the console ring before a piece goes
const uint32_t kSnapshotMax = 239u;        // bytes of the snapshot line shown
const uint32_t kSnapshotMinRead = 5u;      // a shorter snapshot is no sample line
const uint32_t kFileNameSize = sizeof(sys_data.fileName);
const uint32_t kFmtBufSize = 256u; // sd_fprintf's line limit (255 characters)

} // namespace

// The one volume and the command line's shared objects.
static FATFS g_sFatFs;
static FIL g_sFileObject;
static DIR g_sDirObject;
static FILINFO g_sFileInfo;
static char g_cCwdBuf[SD_PATH_BUF_SIZE] = "/";
static char g_cTmpBuf[SD_PATH_BUF_SIZE];
static char g_cTmpBuf2[SD_PATH_BUF_SIZE];
static char g_cCmdBuf[SD_CMD_BUF_SIZE];

// ---- mount and result names --------------------------------------------------

void init_uSDCard(void) {
    // SSI0 on port A: clock PA2, select PA3, receive PA4, transmit PA5.
    SysCtlPeripheralEnable(SYSCTL_PERIPH_SSI0);
    SysCtlPeripheralEnable(SYSCTL_PERIPH_GPIOA);
    GPIOPinConfigure(GPIO_PA2_SSI0CLK);
    GPIOPinConfigure(GPIO_PA3_SSI0FSS);
    GPIOPinConfigure(GPIO_PA4_SSI0RX);
    GPIOPinConfigure(GPIO_PA5_SSI0TX);
    GPIOPinTypeSSI(GPIO_PORTA_BASE, GPIO_PIN_2 | GPIO_PIN_3 | GPIO_PIN_4 | GPIO_PIN_5);
    SSIConfigSetExpClk(SSI0_BASE, SysCtlClockGet(), SSI_FRF_MOTO_MODE_0, SSI_MODE_MASTER,
                       kCardSpiBitRate, 8u);
    SSIEnable(SSI0_BASE);
    uint32_t junk;
    while (SSIDataGetNonBlocking(SSI0_BASE, &junk)) {
    }

    FRESULT r = f_mount(&g_sFatFs, "", 0);
    if (r != FR_OK) {
        uprintf("f_mount error: %s\r\n", StringFromFresult(r));
    }
}

typedef struct {
    FRESULT iFresult;
    const char *pcResultStr;
} tFresultString;

#define FRESULT_ENTRY(f)                                                                           \
    { (f), (#f) }

static const tFresultString g_sFresultStrings[] = {
    FRESULT_ENTRY(FR_OK),
    FRESULT_ENTRY(FR_DISK_ERR),
    FRESULT_ENTRY(FR_INT_ERR),
    FRESULT_ENTRY(FR_NOT_READY),
    FRESULT_ENTRY(FR_NO_FILE),
    FRESULT_ENTRY(FR_NO_PATH),
    FRESULT_ENTRY(FR_INVALID_NAME),
    FRESULT_ENTRY(FR_DENIED),
    FRESULT_ENTRY(FR_EXIST),
    FRESULT_ENTRY(FR_INVALID_OBJECT),
    FRESULT_ENTRY(FR_WRITE_PROTECTED),
    FRESULT_ENTRY(FR_INVALID_DRIVE),
    FRESULT_ENTRY(FR_NOT_ENABLED),
    FRESULT_ENTRY(FR_NO_FILESYSTEM),
    FRESULT_ENTRY(FR_MKFS_ABORTED),
    FRESULT_ENTRY(FR_TIMEOUT),
    FRESULT_ENTRY(FR_LOCKED),
    FRESULT_ENTRY(FR_NOT_ENOUGH_CORE),
    FRESULT_ENTRY(FR_TOO_MANY_OPEN_FILES),
    FRESULT_ENTRY(FR_INVALID_PARAMETER),
};

const char *StringFromFresult(FRESULT fresult) {
    for (const tFresultString &e : g_sFresultStrings) {
        if (e.iFresult == fresult) {
            return e.pcResultStr;
        }
    }
    return "UNKNOWN ERROR CODE";
}

// ---- file primitives -------------------------------------------------------------

uint32_t sd_fprintf(FIL *fil, const char *format, ...) {
    char line[kFmtBufSize];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(line, sizeof line, format, ap);
    va_end(ap);
    if (n < 0) {
        return 0;
    }
    UINT len = (UINT)strlen(line);
    UINT written = 0;
    FRESULT r = f_write(fil, line, len, &written);
    if (r != FR_OK) {
        uprintf("f_write error: %s\r\n", StringFromFresult(r));
    }
    return written;
}

// The data file's name, terminated even when the stored field is not.
static void data_file_name(char *out) {
    memcpy(out, sys_data.fileName, kFileNameSize);
    out[kFileNameSize] = 0;
}

void appendBufferToSDCard(const char *buffer) {
    // A switched-off card is never touched.
    if (sys_data.app_cfg[APPCFG_MICROSD_ENABLE] == 0u || buffer == NULL) {
        return;
    }
    char name[kFileNameSize + 1u];
    data_file_name(name);
    FIL fil;
    memset(&fil, 0, sizeof fil);
    FRESULT r = f_open(&fil, name, FA_READ | FA_WRITE | FA_OPEN_ALWAYS);
    if (r != FR_OK) {
        uprintf("f_open error: %s\r\n", StringFromFresult(r));
    }
    delay_msec(kAppendSettleMs);
    r = f_lseek(&fil, f_size(&fil));
    if (r != FR_OK) {
        uprintf("f_lseek error: %s\r\n", StringFromFresult(r));
    }
    UINT written = 0;
    r = f_write(&fil, buffer, (UINT)strlen(buffer), &written);
    if (r != FR_OK) {
        uprintf("f_write error: %s\r\n", StringFromFresult(r));
    }
    r = f_close(&fil);
    if (r != FR_OK) {
        uprintf("f_close error: %s\r\n", StringFromFresult(r));
    }
}

// ---- error log ---------------------------------------------------------------------

// One entry of the error log: CR LF, the local date and time, a blank, then the
// caller's text as it stands (the caller brings any line end). Each step is
// tried even after an earlier one failed, and each failure is reported; the
// log never logs its own failures.
void error_store(const char *error_buff) {
    if (sys_data.app_cfg[APPCFG_MICROSD_ENABLE] == 0u) {
        uprintf("error_stor() not supported with microSD_flg=0 disabled\r\n");
        return;
    }
    if (error_buff == NULL) {
        error_buff = "";
    }
    FIL fil;
    memset(&fil, 0, sizeof fil);
    FRESULT r = f_open(&fil, "Error.txt", FA_WRITE | FA_OPEN_ALWAYS);
    if (r != FR_OK) {
        uprintf("Error.txt f_open error: %s\r\n", StringFromFresult(r));
    }
    r = f_lseek(&fil, f_size(&fil));
    if (r != FR_OK) {
        uprintf("Error.txt f_lseek error: %s\r\n", StringFromFresult(r));
    }

    char stamp[ERROR_STAMP_SIZE];
    format_time(stamp, sizeof stamp, "\r\n%Y/%m/%d %H:%M:%S ", (int64_t)HibernateRTCGet());
    UINT written = 0;
    r = f_write(&fil, stamp, (UINT)strlen(stamp), &written);
    if (r != FR_OK) {
        uprintf("Error.txt f_write error: %s\r\n", StringFromFresult(r));
    }
    r = f_write(&fil, error_buff, (UINT)strlen(error_buff), &written);
    if (r != FR_OK) {
        uprintf("Error.txt f_write error: %s\r\n", StringFromFresult(r));
    }
    r = f_close(&fil);
    if (r != FR_OK) {
        uprintf("Error.txt f_close error: %s\r\n", StringFromFresult(r));
    }
}

// ---- data paging and snapshot --------------------------------------------------

// Until the console ring has room for one more piece.
static void wait_tx_room(void) {
    while (UARTTxBytesFree() < kTxRoomNeeded) {
        SysCtlSleep();
    }
}

// Sends the data file from where the last retrieval stopped to its end. A key
// press ends it at the next line end, and the next retrieval starts there.
void get_data(void) {
    UARTEchoSet(false);
    char name[kFileNameSize + 1u];
    data_file_name(name);
    FIL fil;
    memset(&fil, 0, sizeof fil);
    // The messages name the error log although the data file is read; the
    // host side knows them so.
    FRESULT r = f_open(&fil, name, FA_READ | FA_OPEN_ALWAYS);
    if (r != FR_OK) {
        uprintf("Error.txt f_open error: %s", StringFromFresult(r));
        prn_nl();
        UARTEchoSet(true);
        return;
    }
    r = f_lseek(&fil, sys_samp.next_gdata_fptr);
    if (r != FR_OK) {
        uprintf("Error.txt f_lseek error: %s", StringFromFresult(r));
        prn_nl();
        f_close(&fil);
        UARTEchoSet(true);
        return;
    }

    char piece[kGdataPiece + 1u];
    bool interrupted = false;
    for (;;) {
        UINT got = 0;
        r = f_read(&fil, piece, kGdataPiece, &got);
        if (r != FR_OK) {
            uprintf("Error.txt f_read error: %s", StringFromFresult(r));
            prn_nl();
        }
        piece[got] = 0;
        wait_tx_room();
        uprintf("%s", piece);
        if (kbhit()) {
            interrupted = true;
            break;
        }
        if (got < kGdataPiece) {
            break;
        }
    }

    DWORD resume = f_tell(&fil);
    if (interrupted) {
        // Finish the line under way, one character at a time; the rest of the
        // last piece is left for the next retrieval.
        for (;;) {
            DWORD start = f_tell(&fil);
            UINT got = 0;
            r = f_read(&fil, piece, kGdataPiece, &got);
            uprintf("Error.txt f_read error: %s", StringFromFresult(r));
            prn_nl();
            bool lineEnd = false;
            for (UINT i = 0; i < got; i++) {
                uprintf("%c", piece[i]);
                if (piece[i] == '\n') {
                    resume = start + i + 1u;
                    lineEnd = true;
                    break;
                }
            }
            if (lineEnd) {
                break;
            }
            resume = f_tell(&fil);
            if (got < kGdataPiece) {
                break;
            }
        }
    }
    sys_samp.next_gdata_fptr = resume;
    f_close(&fil);
    UARTEchoSet(true);
}

// The last sample line kept on the card, then a new sample.
void sendlast_takesample(void) {
    if (sys_data.app_cfg[APPCFG_MICROSD_ENABLE] == 0u) {
        uprintf("void sendlast_takesample(void) is not supported with microSD disabled\r\n");
        return;
    }
    uprintf("WEND TODO:  Sendlast_takesample is not done yet\r\n");

    FIL fil;
    memset(&fil, 0, sizeof fil);
    FRESULT r = f_open(&fil, "snapshot.txt", FA_READ);
    if (r != FR_OK) {
        // No snapshot yet: a sample makes one.
        get_sample(0, 1);
        r = f_open(&fil, "snapshot.txt", FA_READ);
        if (r != FR_OK) {
            uprintf("f_open error snapshot.txt: %s\r\n", StringFromFresult(r));
            error_store("f_open error on snapshot.txt");
            return;
        }
    }

    char line[kSnapshotMax + 1u];
    UINT got = 0;
    r = f_read(&fil, line, kSnapshotMax, &got);
    if (r != FR_OK) {
        uprintf("f_read error snapshot.txt\r\n");
    }
    if (got < kSnapshotMinRead) {
        uprintf("bad read size (less than 5)\r\n");
    } else {
        line[got] = 0;
        uprintf("%s", line);
    }
    r = f_close(&fil);
    if (r != FR_OK) {
        uprintf("f_close error snapshot.txt: %s\r\n", StringFromFresult(r));
        error_store("f_close error");
    }
    get_sample(0, 1);
}

// ---- card command line -----------------------------------------------------------

static int Cmd_ys(int argc, char *argv[]);
static int Cmd_yr(int argc, char *argv[]);

static const tCmdLineEntry g_psCmdTable[] = {
    {"help", Cmd_help, "  : Display list of commands"},
    {"h", Cmd_help, "  : Alias for help"},
    {"?", Cmd_help, "  : Alias for help"},
    {"ls", Cmd_ls, "  : Display list of files"},
    {"mkdir", Cmd_mkdir, "  : Make new directory"},
    {"chdir", Cmd_cd, "  : Change directory"},
    {"cd", Cmd_cd, "  : Alias for chdir"},
    {"pwd", Cmd_pwd, "  : Display current working directory"},
    {"cat", Cmd_cat, "  : Display contents of a text file"},
    {"rm", Cmd_rm, "  : Remove a file or directory"},
    {"mv", Cmd_mv, "  : Rename or move a file or directory"},
    {"ys", Cmd_ys, "  : Send file via YMODEM"},
    {"yr", Cmd_yr, "  : Receive file via YMODEM"},
    {"exit", Cmd_exit, "  : Exit the file viewer"},
    {nullptr, nullptr, nullptr},
};

static bool at_root(void) {
    return strcmp(g_cCwdBuf, "/") == 0;
}

// The current directory, a "/" unless it is the root, and `name`, into `out`
// (SD_PATH_BUF_SIZE bytes). False, reported, when that would not fit.
static bool build_path(char *out, const char *name) {
    size_t cwdLen = strlen(g_cCwdBuf);
    size_t nameLen = strlen(name);
    if (cwdLen + nameLen + 2u > SD_PATH_BUF_SIZE) {
        uprintf("Resulting path name is too long\r\n");
        return false;
    }
    size_t n = 0;
    memcpy(out, g_cCwdBuf, cwdLen);
    n += cwdLen;
    if (!at_root()) {
        out[n++] = '/';
    }
    memcpy(out + n, name, nameLen);
    out[n + nameLen] = 0;
    return true;
}

// The word names its missing argument instead of guessing one.
static bool has_args(int argc, char *argv[], int needed, const char *what) {
    if (argc >= needed) {
        return true;
    }
    uprintf("%s: %s\r\n", argv[0], what);
    return false;
}

int Cmd_help(int argc, char *argv[]) {
    uprintf("\r\nAvailable commands\r\n");
    uprintf("------------------\r\n");
    for (const tCmdLineEntry *e = g_psCmdTable; e->pcCmd != nullptr; e++) {
        uprintf("%s%s\r\n", e->pcCmd, e->pcHelp);
    }
    return 0;
}

int Cmd_ls(int argc, char *argv[]) {
    FRESULT r = f_opendir(&g_sDirObject, g_cCwdBuf);
    if (r != FR_OK) {
        return r;
    }
    uint32_t files = 0;
    uint32_t dirs = 0;
    for (;;) {
        r = f_readdir(&g_sDirObject, &g_sFileInfo);
        if (r != FR_OK) {
            f_closedir(&g_sDirObject);
            return r;
        }
        if (g_sFileInfo.fname[0] == 0) {
            break;
        }
        BYTE a = g_sFileInfo.fattrib;
        if (a & AM_DIR) {
            dirs++;
        } else {
            files++;
        }
        WORD d = g_sFileInfo.fdate;
        WORD t = g_sFileInfo.ftime;
        uprintf("%c%c%c%c%c %u/%02u/%02u %02u:%02u %9u  %s\r\n", (a & AM_DIR) ? 'D' : '-',
                (a & AM_RDO) ? 'R' : '-', (a & AM_HID) ? 'H' : '-', (a & AM_SYS) ? 'S' : '-',
                (a & AM_ARC) ? 'A' : '-', (unsigned)((d >> 9) + 1980u), (unsigned)((d >> 5) & 15u),
                (unsigned)(d & 31u), (unsigned)(t >> 11), (unsigned)((t >> 5) & 63u),
                (unsigned)g_sFileInfo.fsize, g_sFileInfo.fname);
    }
    f_closedir(&g_sDirObject);
    uprintf("\r\n%4u File(s)\r\n%4u Dir(s)", (unsigned)files, (unsigned)dirs);

    DWORD freeClusters = 0;
    FATFS *fs = nullptr;
    r = f_getfree("/", &freeClusters, &fs);
    if (r != FR_OK || fs == nullptr) {
        uprintf("\r\n\r\nf_getfree error! ");
        return r != FR_OK ? r : FR_INT_ERR;
    }
    // Sectors of 512 bytes: two make a kilobyte.
    uprintf("\r\n%10uK bytes free\r\n", (unsigned)((uint64_t)freeClusters * fs->csize / 2u));
    return 0;
}

int Cmd_cd(int argc, char *argv[]) {
    if (!has_args(argc, argv, 2, "directory name needed")) {
        return 0;
    }
    const char *arg = argv[1];
    if (arg[0] == '/') {
        if (strlen(arg) + 1u > SD_PATH_BUF_SIZE) {
            uprintf("Resulting path name is too long\r\n");
            return 0;
        }
        snprintf(g_cTmpBuf, sizeof g_cTmpBuf, "%s", arg);
    } else if (strcmp(arg, "..") == 0) {
        // Drop the last element; the root stays the root.
        snprintf(g_cTmpBuf, sizeof g_cTmpBuf, "%s", g_cCwdBuf);
        char *slash = strrchr(g_cTmpBuf, '/');
        if (slash == nullptr || slash == g_cTmpBuf) {
            snprintf(g_cTmpBuf, sizeof g_cTmpBuf, "/");
        } else {
            *slash = 0;
        }
    } else if (!build_path(g_cTmpBuf, arg)) {
        return 0;
    }

    FRESULT r = f_opendir(&g_sDirObject, g_cTmpBuf);
    if (r != FR_OK) {
        uprintf("cd: %s\r\n", g_cTmpBuf);
        return r;
    }
    f_closedir(&g_sDirObject);
    snprintf(g_cCwdBuf, sizeof g_cCwdBuf, "%s", g_cTmpBuf);
    return 0;
}

int Cmd_pwd(int argc, char *argv[]) {
    uprintf("%s\r\n", g_cCwdBuf);
    return 0;
}

int Cmd_cat(int argc, char *argv[]) {
    if (!has_args(argc, argv, 2, "file name needed") || !build_path(g_cTmpBuf, argv[1])) {
        return 0;
    }
    FRESULT r = f_open(&g_sFileObject, g_cTmpBuf, FA_READ);
    if (r != FR_OK) {
        return r;
    }
    char piece[kCatPiece + 1u];
    for (;;) {
        UINT got = 0;
        r = f_read(&g_sFileObject, piece, kCatPiece, &got);
        if (r != FR_OK) {
            prn_nl();
            f_close(&g_sFileObject);
            return r;
        }
        piece[got] = 0;
        wait_tx_room();
        uprintf("%s", piece);
        if (got < kCatPiece || kbhit()) {
            break;
        }
    }
    f_close(&g_sFileObject);
    return 0;
}

int Cmd_mkdir(int argc, char *argv[]) {
    if (!has_args(argc, argv, 2, "directory name needed") || !build_path(g_cTmpBuf, argv[1])) {
        return 0;
    }
    FRESULT r = f_mkdir(g_cTmpBuf);
    if (r != FR_OK) {
        prn_nl();
        return r;
    }
    return 0;
}

int Cmd_rm(int argc, char *argv[]) {
    if (!has_args(argc, argv, 2, "name needed") || !build_path(g_cTmpBuf, argv[1])) {
        return 0;
    }
    FRESULT r = f_unlink(g_cTmpBuf);
    if (r != FR_OK) {
        prn_nl();
        return r;
    }
    return 0;
}

int Cmd_mv(int argc, char *argv[]) {
    if (!has_args(argc, argv, 3, "old and new name needed") || !build_path(g_cTmpBuf, argv[1]) ||
        !build_path(g_cTmpBuf2, argv[2])) {
        return 0;
    }
    FRESULT r = f_rename(g_cTmpBuf, g_cTmpBuf2);
    if (r != FR_OK) {
        prn_nl();
        return r;
    }
    return 0;
}

int Cmd_exit(int argc, char *argv[]) {
    return SD_CMD_EXIT;
}

// The transfer reports its own ending; the command line just goes on. A name
// below a sub-directory is handed over from the root, without its first "/".
static int Cmd_ys(int argc, char *argv[]) {
    if (argc < 2 || at_root()) {
        ymodem_send(argc, argv);
        return 0;
    }
    if (!build_path(g_cTmpBuf, argv[1])) {
        return 0;
    }
    char *args[] = {argv[0], g_cTmpBuf + 1, nullptr};
    ymodem_send(2, args);
    return 0;
}

static int Cmd_yr(int argc, char *argv[]) {
    calFileFlg = 0; // a file to store, not calibration data to parse
    ymodem_receive_into(g_cCwdBuf);
    return 0;
}

void viewFiles(void) {
    uprintf("\r\n\r\nUnix-like command line. Type 'help' for list of commands\r\n");
    for (;;) {
        uprintf("\r\n%s> ", g_cCwdBuf);
        getUserInput(g_cCmdBuf, sizeof g_cCmdBuf);
        int r = CmdLineProcess(g_cCmdBuf, g_psCmdTable);
        if (r == CMDLINE_BAD_CMD) {
            uprintf("Bad command!\r\n");
        } else if (r == CMDLINE_TOO_MANY_ARGS) {
            uprintf("Too many arguments for command processor!\r\n");
        } else if (r == SD_CMD_EXIT) {
            return;
        } else if (r != 0) {
            uprintf("Command returned error code %s\r\n", StringFromFresult((FRESULT)(r & 0xFF)));
        }
    }
}
