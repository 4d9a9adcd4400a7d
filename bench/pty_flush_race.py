#!/usr/bin/env python3
"""A pty client that writes a byte and exits as lrzsz does (tcdrain, then
TCIOFLUSH) loses that byte whenever the kernel has not yet moved it to the
master side; a reader always blocked on the master cannot prevent it.

Usage: pty_flush_race.py [TRIALS]   prints how many bytes the master received.
"""
import os, pty, sys, termios, threading, tty

def trial(master, slave_name):
    got = []
    def reader():
        try:
            got.append(os.read(master, 16))
        except OSError:
            pass
    t = threading.Thread(target=reader)
    t.start()
    pid = os.fork()
    if pid == 0:
        fd = os.open(slave_name, os.O_RDWR | os.O_NOCTTY)
        os.write(fd, b"\x06")          # rb's last ACK
        termios.tcdrain(fd)            # returns at once on a pty
        termios.tcflush(fd, termios.TCIOFLUSH)
        os._exit(0)
    os.waitpid(pid, 0)
    t.join(0.5)
    if t.is_alive():                   # nothing came: wake the reader
        os.write(keep, b"\x00")
        t.join()
        return False
    return bool(got and got[0].startswith(b"\x06"))

n = int(sys.argv[1]) if len(sys.argv) > 1 else 200
received = 0
for _ in range(n):
    master, slave = pty.openpty()
    tty.setraw(slave)
    name = os.ttyname(slave)
    keep = slave
    if trial(master, name):
        received += 1
    os.close(master); os.close(slave)
print(f"{received} of {n} bytes reached the master; {n - received} were flushed away")
