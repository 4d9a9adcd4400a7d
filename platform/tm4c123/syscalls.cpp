// The C library's system calls on the bare chip. There are no files and no
// processes: the console goes through the firmware's own UART driver, never
// through stdout. The only memory the library gets is the fixed arena of the
// linker script: printing a float and localtime() take blocks from it, so
// refusing all memory would abort them. It never grows past that.
#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include "hibernate.h"
#include "sysctl.h"

#undef errno
extern "C" int errno;

extern "C" {
extern char _libc_arena_start[], _libc_arena_end[];

void *_sbrk(ptrdiff_t incr) {
    static char *brk = _libc_arena_start;
    if (incr < 0 || incr > _libc_arena_end - brk) {
        errno = ENOMEM;
        return reinterpret_cast<void *>(-1);
    }
    char *prev = brk;
    brk += incr;
    return prev;
}

// Bytes written to stdout or stderr are dropped: nothing on the board reads them.
_READ_WRITE_RETURN_TYPE _write(int fd, const void *buf, size_t nbyte) {
    return static_cast<_READ_WRITE_RETURN_TYPE>(nbyte);
}

_READ_WRITE_RETURN_TYPE _read(int fd, void *buf, size_t nbyte) {
    return 0;
}

int _close(int fd) {
    errno = EBADF;
    return -1;
}

_off_t _lseek(int fd, _off_t offset, int whence) {
    return 0;
}

int _fstat(int fd, struct stat *st) {
    st->st_mode = S_IFCHR;
    return 0;
}

int _isatty(int fd) {
    return 1;
}

pid_t _getpid(void) {
    return 1;
}

int _kill(int pid, int sig) {
    errno = EINVAL;
    return -1;
}

// abort() and exit() end here: restart the controller, which resumes from its
// stored state as after any other reset.
void _exit(int status) {
    SysCtlReset();
}

// time() reads the hibernation module's clock.
int _gettimeofday(struct timeval *tv, void *tz) {
    if (tv != nullptr) {
        tv->tv_sec = static_cast<time_t>(HibernateRTCGet());
        tv->tv_usec = 0;
    }
    return 0;
}
}
