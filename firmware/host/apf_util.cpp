// Float-controller record: its start-up values, the default sets written to
// FRAM on a fresh board, the development defaults of the main loop; the
// float controller's error log "ERROR.LOG", its data files "PROFnnnn.log" and
// record transfer on the card; the header block ("H, " lines) that answers
// "c" and heads each data file; and the link primitives of the exchange with
// the float controller. The record's FRAM transfers are board/i2c_fram's; the
// commands that read and change the record are host/apf_cmd's. This board
// carries no spectrometer (host/spectrometer), and the header says so.
#include "host/apf_util.h"

#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "board/board_util.h"
#include "board/i2c_fram.h"
#include "board/uartstdio.h"
#include "console/user_io.h"
#include "core/system.h"
#include "ff.h"
#include "hibernate.h"
#include "host/serial_cmd_fxn.h"
#include "measure/sample.h"
#include "sysctl.h"

apfGlobals apf;
apfRtcTime rtc;

namespace {

constexpr int kErrDefaultsLoaded = APF_ERR_DEFAULTS_LOADED;
constexpr int kErrLogOpen = APF_ERR_FILE_OPEN;

// Name of the program image as the header shows it (upper-cased there).
const char kAppFileName[] = "fenwa.bin";

constexpr uint32_t kCardMinFreeBytes = 5000; // below this a data file is not opened
constexpr uint32_t kRecsLineBuf = 2048;      // line length the record count reads by
constexpr uint32_t kSendLineMax = 1024;      // one transferred record line at most
constexpr uint32_t kGetStrMaxBytes = 4096;   // a reply that never ends is given up
constexpr uint32_t kLogFileNameSize = 64;

// Error numbers are grouped: -1xx system, -2xx nitrate, -3xx pH.
bool in_group(int ecode, int hundreds) {
    return ecode <= -hundreds && ecode > -(hundreds + 100);
}

struct tm calendar(uint32_t secs) {
    time_t t = (time_t)secs;
    struct tm out;
    const struct tm *cal = localtime(&t);
    if (cal != nullptr) {
        out = *cal;
    } else {
        memset(&out, 0, sizeof(out));
    }
    return out;
}

// Card size and free space in bytes; FR_OK when the card answered.
FRESULT get_storage_stat(uint64_t *total, uint64_t *free) {
    FATFS *fs = nullptr;
    DWORD freeClusters = 0;
    *total = 0;
    *free = 0;
    FRESULT r = f_getfree("", &freeClusters, &fs);
    if (r != FR_OK || fs == nullptr) {
        return r != FR_OK ? r : FR_NOT_READY;
    }
    uint64_t clusterBytes = (uint64_t)fs->csize * 512u;
    *total = (fs->n_fatent > 2 ? (uint64_t)(fs->n_fatent - 2) : 0u) * clusterBytes;
    *free = (uint64_t)freeClusters * clusterBytes;
    return FR_OK;
}

void console_write(const char *text, uint32_t n) {
    if (n > 0) {
        UARTwrite(text, n);
    }
}

} // namespace

// ---- start-up ----------------------------------------------------------------

void init_zep(void) {
    apf.sys_por_flag = 1;
    if (mmsDbgFlg == 1) {
        uprintf("  Orvik Sensor Controller v3 Initializing...");
    }
    init_apf_global_vars();
    IOPwrUp();
    Zcoefs = LoadIsusZCoefs(ZeissCoefs);
    if (Zcoefs > 0) {
        InitLambdaArray(ZeissCoefs);
        if (mmsDbgFlg == 1) {
            uprintf("DBG: ECoefs commented out");
            prn_nl();
            wait_consoleTx();
        }
    }
    if (mmsDbgFlg == 1) {
        uprintf("DBG: not calling DisplaySystemInfo, type sys.  Not calling SyncNextSample (ever)");
        prn_nl();
        wait_consoleTx();
    }
}

// Rebuilds the RAM view after a reset; the record is not stored back here.
void init_apf_global_vars(void) {
    fram_apf_vars_retrieve();
    apf.isus_reset_flag = 1; // each data file gets its header before the next record
    apf.dura_reset_flag = 1;
    apf.sys_reset_time = HibernateRTCGet();
    apf.sys_reset_ctr++;
    if (apf.sys_por_flag == 1) {
        apf.sys_por_ctr++;
    }
    apf.sys_sensor_mode = 0;
    apf.gotSample = 0;
    apf.CTD_Time = 0;
    apf.CTD_Temp = -1.0f;
    apf.CTD_Salinity = -1.0f;
    apf.CTD_Depth = -1.0f;
    apf.acquire_time = -1.0f;
    apf.isus_fit_pixels = apf.isus_pixel_end - apf.isus_pixel_beg + 1;
}

void dev_init_apf_vars(void) {
    sys_data.app_cfg[11] = 0;
    apf.sys_sensor_mode = 1;
}

// ---- defaults ----------------------------------------------------------------

void SetSysDefaultsIntoNVRAM(void) {
    apf.sys_slog_delay = 4;
    apf.sys_sensor_type = 4;
    apf.sys_delay_hour = 3;
    apf.sys_deploy_mode = 1;
    apf.sys_data_mode = 1;
    apf.sys_time_type = 1;
    apf.sys_file_ctr = 1;
    apf.sys_sync_hour = 6;
    apf.sys_df_limit = 5;
    apf.sys_sf_limit = 256;
    apf.sys_ef_limit = 256;
    apf.sys_serial_num = 777;
    apf.sys_apf_tmout = 10;
    apf.sys_tzoffset = 8;
    apf.sys_sleep_period = 60;
    apf.sys_pump_period = 60;
    apf.sendlast_byteCnt = 0;
    apf.sys_reset_ctr = 0;
    apf.sys_reset_time = 0;
    apf.sys_por_ctr = 0;
    apf.sys_watchdog_enable = 0;
    apf.sys_message_enable = 0;
    apf.sys_pump_enable = 0;
    apf.sys_sync_min = 0;
    apf.sys_last_doy = 0;
    apf.sys_last_error = 0;
    apf.sys_error_ctr = 0;
    apf.sys_error_time = 0;
    prn_nl();
    uprintf("\n  System Default Values loaded into FRAM!\n");
    prn_nl();
}

void SetIsusDefaultsIntoNVRAM(void) {
    apf.isus_tcomp_mode = 1;
    apf.isus_warm_shut = 1;
    apf.isus_dark_num = 1;
    apf.isus_bsl_model = 1;
    apf.isus_ref_limit = 5000;
    apf.isus_salfit_mode = 0;
    apf.isus_pre_scans = 2;
    apf.isus_fit_concs = 2;
    apf.isus_scan_num = 3;
    apf.isus_pixel_beg = 17;
    apf.isus_pixel_end = 87;
    apf.isus_datpixel_beg = 17;
    apf.isus_datpixel_end = 87;
    apf.isus_warm_lamp = 3;
    apf.isus_ref_samples = 15;
    apf.isus_clean_lamp = 30;
    apf.isus_spec_period = 1000;
    apf.isus_scans_per_dc = 25;
    apf.isus_samps_per_clean = 24;
    apf.no3_span = 45;
    apf.no3_offset = 5;
    apf.isus_error_ctr = 0;
    apf.isus_error_time = 0;
    apf.isus_sample_ctr = 0;
    apf.isus_sample_time = 0;
    prn_nl();
    uprintf("  ISUS Default Values loaded into FRAM!");
    prn_nl();
}

void SetDuraDefaultsIntoNVRAM(void) {
    apf.dura_led_enable = 1;
    apf.dura_atod_readings = 10;
    apf.dura_samps_per_cal = 250;
    apf.dura_atod_delay = 100;
    apf.dura_error_ctr = 0;
    apf.dura_error_time = 0;
    apf.dura_sample_ctr = 0;
    apf.dura_sample_time = 0;
    prn_nl();
    uprintf("  DuraFET Default Values loaded into FRAM!");
    prn_nl();
}

void SetDefaultsIntoNVRAM(void) {
    SetSysDefaultsIntoNVRAM();
    SetIsusDefaultsIntoNVRAM();
    SetDuraDefaultsIntoNVRAM();
    fram_apf_vars_store();
    LogErrorMsg("Default variable values were loaded into RTC NV SRAM", kErrDefaultsLoaded,
                apf.sys_message_enable);
}

// ---- error log -----------------------------------------------------------------

int LogErrorMsg(const char *emsg, int ecode, int outp) {
    if (mmsDbgFlg == 1) {
        uprintf("DBG: LogErrorMsg imp in progress, in LogErrorMsg apf_util");
        prn_nl();
    }
    if (emsg == nullptr) {
        emsg = "";
    }
    uint32_t when;
    if (in_group(ecode, 100)) {
        when = HibernateRTCGet();
        apf.sys_error_time = (uint16_t)when;
        apf.sys_last_error = (uint16_t)ecode;
        apf.sys_error_ctr++;
    } else if (in_group(ecode, 200)) {
        when = HibernateRTCGet();
        apf.isus_error_time = when;
        apf.isus_error_ctr++;
        apf.isus_last_error = (uint32_t)ecode;
    } else if (in_group(ecode, 300)) {
        when = HibernateRTCGet();
        apf.dura_error_time = when;
        apf.dura_error_ctr++;
        apf.dura_last_error = (uint32_t)ecode;
    } else {
        rtc.current_time = HibernateRTCGet();
        when = rtc.current_time;
    }

    FIL f;
    FRESULT r = f_open(&f, "ERROR.LOG", FA_WRITE | FA_OPEN_ALWAYS);
    if (r == FR_OK) {
        r = f_lseek(&f, f_size(&f)); // append
        if (r != FR_OK) {
            f_close(&f);
        }
    }
    if (r != FR_OK) {
        apf.sys_error_time = (uint16_t)HibernateRTCGet();
        apf.sys_last_error = (uint16_t)kErrLogOpen;
        apf.sys_error_ctr++;
        return -1;
    }

    time_t t = (time_t)when;
    struct tm tmv;
    const struct tm *cal = localtime(&t);
    if (cal != nullptr) {
        tmv = *cal;
    } else {
        memset(&tmv, 0, sizeof(tmv));
    }
    char line[256];
    int n =
        snprintf(line, sizeof(line), "E, %02d/%02d/%02d %02d:%02d:%02d, %d, %s\n", tmv.tm_mon + 1,
                 tmv.tm_mday, tmv.tm_year + 1900, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, ecode, emsg);
    if (n < 0) {
        n = 0;
    } else if ((size_t)n >= sizeof(line)) {
        n = (int)sizeof(line) - 1;
    }
    UINT written = 0;
    f_write(&f, line, (UINT)n, &written);
    f_close(&f);

    if (outp == 1) {
        uprintf("%02d/%02d/%02d %02d:%02d:%02d, %d, %s", tmv.tm_mon + 1, tmv.tm_mday,
                tmv.tm_year + 1900, tmv.tm_hour, tmv.tm_min, tmv.tm_sec, ecode, emsg);
        prn_nl();
    }
    fram_apf_vars_store();
    return 0;
}

// ---- data files ----------------------------------------------------------------

FIL *OpenApfLogFile(int select) {
    static FIL s_file;
    static char s_name[kLogFileNameSize];
    uint64_t total = 0, freeBytes = 0;
    bool known = get_storage_stat(&total, &freeBytes) == FR_OK;
    memset(s_name, 0, sizeof(s_name));
    if (known && freeBytes < kCardMinFreeBytes) {
        char msg[80];
        snprintf(msg, sizeof(msg), "FLASH Card is Full with %lu Bytes Remaining",
                 (unsigned long)(uint32_t)freeBytes); // below kCardMinFreeBytes
        if (mmsDbgFlg == 1) {
            uprintf("DBG: FLASH Card is Full with %lu Bytes Remaining in apf_util",
                    (unsigned long)(uint32_t)freeBytes);
            prn_nl();
        }
        LogErrorMsg(msg, APF_ERR_CARD_FULL, apf.sys_message_enable);
        return nullptr;
    }
    if (select != 1 && select != 2) {
        return nullptr;
    }
    // One file per power-cycle count; the count stops at 9999 for the name.
    uint32_t n = apf.sys_por_ctr < 9999u ? apf.sys_por_ctr : 9999u;
    snprintf(s_name, sizeof(s_name), "PROF%04lu.log", (unsigned long)n);
    FRESULT r = f_open(&s_file, s_name, FA_READ | FA_WRITE | FA_OPEN_ALWAYS);
    if (r == FR_OK) {
        r = f_lseek(&s_file, f_size(&s_file)); // append
        if (r != FR_OK) {
            f_close(&s_file);
        }
    }
    if (r != FR_OK) {
        char msg[kLogFileNameSize + 32];
        snprintf(msg, sizeof(msg), "File Open Failure on file: %s", s_name);
        LogErrorMsg(msg, APF_ERR_FILE_OPEN, apf.sys_message_enable);
        return nullptr;
    }
    return &s_file;
}

// ---- record transfer -----------------------------------------------------------

// Counts lines as a reader with a 2048-byte line buffer would: a line longer
// than the buffer counts once per buffer-full. The names carry a drive prefix
// that the transfer itself does not use; the two were always named so.
int32_t CalcRecsPending(int select) {
    const char *name;
    if (select == 0) {
        name = "C:\\OFFLOAD.DAT";
    } else if (select == 1) {
        name = "C:\\ERROR.LOG";
    } else {
        return -1;
    }
    FIL f;
    if (f_open(&f, name, FA_READ) != FR_OK) {
        return 0;
    }
    int32_t lines = 0;
    uint32_t inLine = 0;
    char chunk[64];
    for (;;) {
        UINT got = 0;
        if (f_read(&f, chunk, sizeof(chunk), &got) != FR_OK || got == 0) {
            break;
        }
        for (UINT i = 0; i < got; i++) {
            inLine++;
            if (chunk[i] == '\n' || inLine == kRecsLineBuf - 1) {
                lines++;
                inLine = 0;
            }
        }
    }
    if (inLine > 0) {
        lines++;
    }
    f_close(&f);
    return lines;
}

int32_t SendRecords(int select, uint32_t *fpos) {
    const char *name;
    if (select == 0) {
        name = "OFFLOAD.DAT";
    } else if (select == 1) {
        name = "ERROR.LOG";
    } else {
        return -1;
    }
    FIL f;
    if (f_open(&f, name, FA_READ) != FR_OK) {
        return -1;
    }
    uint32_t pos = fpos != nullptr ? *fpos : 0;
    if (pos != 0 && f_lseek(&f, pos) != FR_OK) {
        f_close(&f);
        return -1;
    }
    uprintf("DBG working around SRAM limit apfutil");
    prn_nl();
    // The shared print buffer holds the line (1024 characters and the NUL).
    char *line = prnBuf;
    static_assert(PRN_BUF_SIZE > kSendLineMax, "record line buffer");
    if (f_gets(line, (int)kSendLineMax + 1, &f) != nullptr) {
        console_write(line, (uint32_t)strlen(line));
    }
    if (fpos != nullptr) {
        *fpos = f_tell(&f);
    }
    bool done = f_eof(&f);
    f_close(&f);
    if (!done) {
        return 0;
    }
    f_unlink(name);
    if (fpos != nullptr) {
        *fpos = 0;
    }
    uprintf("EOF");
    prn_nl();
    return 1;
}

// ---- link primitives -----------------------------------------------------------

int MatchACK(char *text) {
    if (text == nullptr) {
        return -1;
    }
    char *cr = strchr(text, '\r');
    if (cr != nullptr) {
        *cr = 0;
    }
    char *lf = strchr(text, '\n');
    if (lf != nullptr) {
        *lf = 0;
    }
    for (char *p = text; *p != 0; p++) {
        if (*p >= 'a' && *p <= 'z') {
            *p = (char)(*p - 'a' + 'A');
        }
    }
    if (strlen(text) != 3) {
        return -1;
    }
    if (strstr(text, "ACK") != nullptr) {
        return 6;
    }
    if (strstr(text, "NAK") != nullptr) {
        return 21;
    }
    return -1;
}

namespace {

// Waits for one console byte; false when timeout_ms passed without one.
bool byte_within(uint32_t timeout_ms) {
    uint32_t start = Timer_1ms(0);
    while (!UARTrdy()) {
        if (Timer_1ms(0) - start >= timeout_ms) {
            return false;
        }
        SysCtlSleep();
    }
    return true;
}

} // namespace

// The line is stored as far as the buffer goes; further bytes are still
// taken (and counted) up to the line end, so the reply's length is kept.
int UART_GetStr_timeout(char *buffer, uint32_t size, uint32_t timeout_ms) {
    uint32_t taken = 0;
    uint32_t stored = 0;
    if (buffer != nullptr && size > 0) {
        buffer[0] = 0;
    }
    while (taken < kGetStrMaxBytes) {
        wdog_pet();
        if (!byte_within(timeout_ms)) {
            return -1;
        }
        char c = (char)getChar();
        taken++;
        if (buffer != nullptr && stored + 1 < size) {
            buffer[stored++] = c;
            buffer[stored] = 0;
        }
        if (c == '\r' || c == '\n' || c == 0) {
            return (int)taken;
        }
    }
    return -1;
}

// The time-out runs from the last letter taken. The shared millisecond
// stopwatch is read, not restarted, so the watchdog figures stay true.
int waitACK(uint32_t timeout_ms) {
    char got[3];
    uint32_t n = 0;
    for (;;) {
        wdog_pet();
        if (!byte_within(timeout_ms)) {
            return -1;
        }
        unsigned char c = (unsigned char)getChar();
        if (c < 'A' || c > 'z') {
            uprintf("DBG: illegal char %c", c);
            return 0;
        }
        c = (unsigned char)(c & ~0x20u);
        if (n == sizeof(got)) {
            uprintf("DBG: string too big, %c", c);
            return 0;
        }
        uprintf("DBG: good char %c", c);
        prn_nl();
        got[n++] = (char)c;
        if (n == sizeof(got) && memcmp(got, "ACK", sizeof(got)) == 0) {
            uprintf("DBG: good ACK");
            prn_nl();
            return 1;
        }
    }
}

// ---- header block ----------------------------------------------------------------

namespace {

// The header is built in the shared print buffer and goes out in pieces.
class HeaderBlock {
  public:
    HeaderBlock(int printFlg, FIL *file) : print_(printFlg == 1), file_(file) { clear(); }

    void add(const char *format, ...) __attribute__((format(printf, 2, 3))) {
        if (n_ >= kCap - 1) {
            return;
        }
        va_list ap;
        va_start(ap, format);
        int r = vsnprintf(prnBuf + n_, kCap - n_, format, ap);
        va_end(ap);
        if (r > 0) {
            n_ += (uint32_t)r;
            if (n_ > kCap - 1) {
                n_ = kCap - 1;
            }
        }
    }

    void time(uint32_t secs) {
        struct tm t = calendar(secs);
        add("%02d/%02d/%02d %02d:%02d:%02d", t.tm_mon + 1, t.tm_mday, t.tm_year + 1900, t.tm_hour,
            t.tm_min, t.tm_sec);
    }

    // Line end of the stored newline mode. An unknown mode gives back the
    // index itself, which is added as it always was; the buffer end bounds it.
    void nl() {
        if (n_ + 3 > kCap) {
            return;
        }
        n_ += sprn_nl(prnBuf, n_);
        if (n_ > kCap - 1) {
            n_ = kCap - 1;
        }
    }

    // One piece out, then wait until the transmitter has drained.
    void flush() {
        if (print_) {
            console_write(prnBuf, n_);
            wait_consoleTx();
        }
        if (file_ != nullptr && n_ > 0) {
            UINT written = 0;
            f_write(file_, prnBuf, n_, &written);
        }
        clear();
    }

  private:
    static constexpr uint32_t kCap = PRN_BUF_SIZE;

    void clear() {
        memset(prnBuf, 0, sizeof(prnBuf));
        n_ = 0;
    }

    bool print_;
    FIL *file_;
    uint32_t n_ = 0;
};

void str_upper(char *s) {
    for (; *s != 0; s++) {
        if (*s >= 'a' && *s <= 'z') {
            *s = (char)(*s - 'a' + 'A');
        }
    }
}

const char *baseline_model(uint32_t model) {
    switch (model) {
    case 1:
        return "(ax + b)";
    case 2:
        return "(ax^2 + bx + c)";
    case 3:
        return "exp(ax + b)";
    case 4:
        return "exp(ax^2 + bx + c)";
    default:
        return nullptr;
    }
}

void header_general(HeaderBlock &h) {
    h.add("H, Datalogger Serial Num , SN:%04hu", (unsigned short)apf.sys_serial_num);
    h.nl();
    char app[sizeof(kAppFileName)];
    memcpy(app, kAppFileName, sizeof(app));
    str_upper(app);
    h.add("H, Application      Name , %s", app);
    h.nl();
    h.add("H, App Build        Date , %s, %s", __DATE__, __TIME__);
    h.nl();
    h.add("H, Power Up Time   (GMT) , ");
    h.time(apf.sys_reset_time);
    h.nl();
    rtc.current_time = HibernateRTCGet();
    h.add("H, Current  Time   (GMT) , ");
    h.time(rtc.current_time);
    h.nl();
    rtc.alarm_time = 0; // no alarm is kept: the line shows the time origin
    h.add("H, Alarm    Time   (GMT) , ");
    h.time(rtc.alarm_time);
    h.nl();
    h.add("H, Power Active  Timeout , %hu", (unsigned short)apf.sys_apf_tmout);
    h.nl();
    char boardSN[sizeof(sys_data.board_SN) + 1];
    memcpy(boardSN, sys_data.board_SN, sizeof(sys_data.board_SN));
    boardSN[sizeof(sys_data.board_SN)] = 0;
    h.add("H, ZEP3 Info, S/N:%s- Seawick:%s", boardSN, FIRMWARE_VERSION);
    h.nl();
    uint64_t total = 0, freeBytes = 0;
    get_storage_stat(&total, &freeBytes);
    // In kilobytes: a card above 2 GB still fits the field.
    uint64_t kb = total / 1024u;
    h.add("H, Compact FLASH    Size , %lu", (unsigned long)(kb > 0xFFFFFFFFu ? 0xFFFFFFFFu : kb));
    h.nl();
    double left = total > 0 ? 100.0 * (double)freeBytes / (double)total : 0.0;
    h.add("H, Compact FLASH    Left , %.2f%%", left);
    h.nl();
    h.add("H, Power Cycle   Counter , %lu", (unsigned long)apf.sys_por_ctr);
    h.nl();
    h.add("H, System Reset  Counter , %lu", (unsigned long)apf.sys_reset_ctr);
    h.nl();
    h.add("H, System Error  Counter , %lu", (unsigned long)apf.sys_error_ctr);
    h.nl();
    h.add("H, Last System     Error , %d", (int)apf.sys_last_error);
    h.nl();
    // The error time is a 16-bit field read as 32 bits: the file counter that
    // follows it forms the upper half. Kept as the header always showed it.
    uint32_t errTime;
    memcpy(&errTime, reinterpret_cast<const uint8_t *>(&apf) + offsetof(apfGlobals, sys_error_time),
           sizeof(errTime));
    h.add("H, Last System ErrorTime , ");
    h.time(errTime);
    h.nl();
}

// Nitrate lines up to the temperature-compensation line.
void header_nitrate_first(HeaderBlock &h) {
    h.add("H, ISUS  Error   Counter , %lu", (unsigned long)apf.isus_error_ctr);
    h.nl();
    h.add("H, Last ISUS       Error , %d", (int)apf.isus_last_error);
    h.nl();
    h.add("H, Last ISUS Error  Time , ");
    h.time(apf.isus_error_time);
    h.nl();
    h.add("H, ISUS Sample   Counter , %lu", (unsigned long)apf.isus_sample_ctr);
    h.nl();
    h.add("H, Last Sample Rec. Time , ");
    h.time(apf.isus_sample_time);
    h.nl();
    // Lamp odometer: hours, minutes, seconds of the lamp's elapsed seconds.
    uint32_t elp = apf.isus_lamp_elp;
    h.add("H, Fiberlite    Odometer , %02lu:%02lu:%02lu", (unsigned long)(elp / 3600u),
          (unsigned long)((elp % 3600u) / 60u), (unsigned long)(elp % 60u));
    h.nl();
    h.add("H, Fiberlite      Cycles , %hu", (unsigned short)apf.isus_lamp_evt);
    h.nl();
    h.add("H, Spec Intensity LampON , %hu", (unsigned short)apf.isus_ref_limit);
    h.nl();
    h.add("H, Spec Integration Time , %lu", (unsigned long)apf.isus_spec_period);
    h.nl();
    h.add("H, Spec Pre  scans taken , %hu", (unsigned short)apf.isus_pre_scans);
    h.nl();
    h.add("H, Spec Lite scans taken , %hu", (unsigned short)apf.isus_scan_num);
    h.nl();
    h.add("H, Spec Dark scans taken , %hu", (unsigned short)apf.isus_dark_num);
    h.nl();
    if (Zcoefs < 1) {
        h.add("H, Zceof File    Error   , ZCoefs = %d", (int)Zcoefs);
        h.nl();
    }
    if (Ecoefs == (int32_t)ISUS_ECOEF_ROWS) {
        h.add("H, Calibration      Date , %s", isusCalDate);
    } else {
        h.add("H, Eceof File    Error   , ECoefs = %d", (int)Ecoefs);
    }
    h.nl();
    h.add("H, Sw Calibration   Temp , %.2f", isusCalTemp);
    h.nl();
    h.add("H, Wavelength Fit  Range , %.3f <-> %.3f",
          CellNumToLambda(apf.isus_pixel_beg, ZeissCoefs),
          CellNumToLambda(apf.isus_pixel_end, ZeissCoefs));
    h.nl();
    h.add("H, Pixel Fit       Range , %d <-> %d", (int)apf.isus_pixel_beg, (int)apf.isus_pixel_end);
    h.nl();
    h.add("H, Fitted Concentrations , %d", (int)apf.isus_fit_concs);
    h.nl();
    // An unknown model leaves the label without its line end.
    h.add("H, Baseline        Model , ");
    const char *model = baseline_model(apf.isus_bsl_model);
    if (model != nullptr) {
        h.add("%s", model);
        h.nl();
    }
    h.add("H, Br Temp  Compensation , %s", apf.isus_tcomp_mode == 1 ? "ENABLED" : "DISABLED");
    h.nl();
}

void header_nitrate_rest(HeaderBlock &h) {
    h.add("H, Bromide Term in Model , %s", apf.isus_salfit_mode == 1
                                               ? "will be FIT (to absorbance data)"
                                               : "will be FIXED (to external CTD value)");
    h.nl();
    if (Zcoefs > 0) {
        h.add("H, Zeiss Coefficient Vals, ");
        for (uint32_t i = 0; i < ISUS_ZCOEF_COUNT; i++) {
            h.add(i + 1 < ISUS_ZCOEF_COUNT ? "%e," : "%e", ZeissCoefs[i]);
        }
        h.nl();
    }
}

void header_ph(HeaderBlock &h) {
    h.add("H, DURA  Error   Counter , %lu", (unsigned long)apf.dura_error_ctr);
    h.nl();
    h.add("H, Last DURA       Error , %d", (int)apf.dura_last_error);
    h.nl();
    h.add("H, Last DURA Error  Time , ");
    h.time(apf.dura_error_time);
    h.nl();
    h.add("H, DURA Sample   Counter , %lu", (unsigned long)apf.dura_sample_ctr);
    h.nl();
    h.add("H, Last Sample Rec. Time , ");
    h.time(apf.dura_sample_time);
    h.nl();
    h.add("H, AtoD Reads per Sample , %hu", (unsigned short)apf.dura_atod_readings);
    h.nl();
    h.add("H, AtoD Reading    Delay , %hu", (unsigned short)apf.dura_atod_delay);
    h.nl();
    h.add("H, Samps per AtoD  Recal , %lu", (unsigned long)apf.dura_samps_per_cal);
    h.nl();
}

} // namespace

void print_write_isusdura_header(int printFlg, int unused, int smode, FIL *file) {
    HeaderBlock h(printFlg, file);
    header_general(h);
    h.flush();
    if (smode == 1) {
        header_nitrate_first(h);
    }
    h.flush();
    if (smode == 1) {
        header_nitrate_rest(h);
    } else if (smode == 2) {
        header_ph(h);
    }
    h.flush();
}

void print_isus_header(void) {
    print_write_isusdura_header(1, 0, 1, nullptr);
}

void print_dura_header(void) {
    print_write_isusdura_header(1, 0, 2, nullptr);
}

// ---- system information ("sys") --------------------------------------------------

void DisplaySystemInfo(void) {
    struct tm up = calendar(apf.sys_reset_time);
    struct tm now = calendar(HibernateRTCGet());
    uprintf("System  : %s, logger S/N %04u", FIRMWARE_VERSION, (unsigned)apf.sys_serial_num);
    prn_nl();
    uprintf("Sensor  : type %u, mode %u, integration time %lu ms", (unsigned)apf.sys_sensor_type,
            (unsigned)apf.sys_sensor_mode, (unsigned long)apf.isus_spec_period);
    prn_nl();
    uprintf("Starts  : power cycles %lu, resets %lu, last %02d/%02d/%04d %02d:%02d:%02d",
            (unsigned long)apf.sys_por_ctr, (unsigned long)apf.sys_reset_ctr, up.tm_mon + 1,
            up.tm_mday, up.tm_year + 1900, up.tm_hour, up.tm_min, up.tm_sec);
    prn_nl();
    uprintf("Clock   : %02d/%02d/%04d %02d:%02d:%02d", now.tm_mon + 1, now.tm_mday,
            now.tm_year + 1900, now.tm_hour, now.tm_min, now.tm_sec);
    prn_nl();
    uprintf("Errors  : system %u (last %d), nitrate %lu, pH %lu", (unsigned)apf.sys_error_ctr,
            (int)(int16_t)apf.sys_last_error, (unsigned long)apf.isus_error_ctr,
            (unsigned long)apf.dura_error_ctr);
    prn_nl();
    uprintf("Samples : nitrate %lu, pH %lu", (unsigned long)apf.isus_sample_ctr,
            (unsigned long)apf.dura_sample_ctr);
    prn_nl();
    uprintf("CTD     : %lu, %.4f, %.4f, %.2f", (unsigned long)apf.CTD_Time, (double)apf.CTD_Temp,
            (double)apf.CTD_Salinity, (double)apf.CTD_Depth);
    prn_nl();
    uprintf("Spectro : none fitted, ZCoefs = %d", (int)Zcoefs);
    prn_nl();
    uint64_t total = 0, freeBytes = 0;
    if (get_storage_stat(&total, &freeBytes) == FR_OK) {
        uprintf("Card    : %lu kB, %lu kB free", (unsigned long)(total / 1024u),
                (unsigned long)(freeBytes / 1024u));
    } else {
        uprintf("Card    : not ready");
    }
    prn_nl();
}
