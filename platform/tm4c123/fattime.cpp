// Time stamps of the FAT module's files, from the hibernation clock (seconds
// since 1970, UTC, as everywhere in the firmware). The calendar arithmetic is
// done here so the stamp needs neither the C library's time zone nor its heap.
#include "ff.h"
#include "diskio.h"
#include "hibernate.h"

// ff.c is C; some revisions declare this only in ff.h, some only in diskio.h.
extern "C" DWORD get_fattime(void) {
    uint32_t t = HibernateRTCGet();
    uint32_t secs = t % 86400u;
    // Civil date from days since 1970-01-01 (eras of 400 years from 0000-03-01).
    uint32_t z = t / 86400u + 719468u;
    uint32_t era = z / 146097u;
    uint32_t doe = z - era * 146097u;
    uint32_t yoe = (doe - doe / 1460u + doe / 36524u - doe / 146096u) / 365u;
    uint32_t doy = doe - (365u * yoe + yoe / 4u - yoe / 100u);
    uint32_t mp = (5u * doy + 2u) / 153u;
    uint32_t day = doy - (153u * mp + 2u) / 5u + 1u;
    uint32_t month = mp < 10u ? mp + 3u : mp - 9u;
    uint32_t year = yoe + era * 400u + (month <= 2u ? 1u : 0u);
    if (year < 1980u) {
        return (DWORD)((1u << 21) | (1u << 16)); // the FAT epoch, 1980-01-01
    }
    return (DWORD)(((year - 1980u) << 25) | (month << 21) | (day << 16) | ((secs / 3600u) << 11) |
                   ((secs / 60u % 60u) << 5) | (secs % 60u / 2u));
}
