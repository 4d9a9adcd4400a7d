#!/usr/bin/env python3
"""Boots the emulator image on QEMU's LM3S6965 evaluation board and talks to
it on UART0 as an operator would: start-up, "version", "period 20" and
"getperiod", a hibernation ended by a console byte (the board restarts and
keeps its EEPROM and FRAM: no new defaults, the period still 20), a "t0"
sample (no ADC on that board: its readings show the no-conversion value),
then four carriage returns and a key for the main menu.
The FRAM is QEMU's 32 KB I2C memory at 0x50 (same protocol), backed by a
zeroed file as a new board's FRAM.

Exits 0 when every reply came, 1 with the transcript when one did not, 77
(skipped) when qemu-system-arm is not installed. Ends by itself: every wait
has a limit and the emulator is killed at the end.

  boot_test.py --elf build/qemu/fenwa.elf [--qemu qemu-system-arm] [--log FILE]
"""
import argparse
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

SKIP = 77


class Board:
    def __init__(self, cmd):
        self.proc = subprocess.Popen(cmd, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                     stderr=subprocess.STDOUT)
        self.seen = b""
        self.mark = 0  # replies are looked for after this point

    def pump(self, seconds):
        end = time.monotonic() + seconds
        while True:
            left = end - time.monotonic()
            if left <= 0:
                return
            ready, _, _ = select.select([self.proc.stdout], [], [], left)
            if not ready:
                return
            chunk = os.read(self.proc.stdout.fileno(), 4096)
            if not chunk:
                raise RuntimeError("the emulator stopped")
            self.seen += chunk

    def expect(self, pattern, seconds, what):
        """Waits until pattern (bytes regex) shows after the mark; moves the mark past it."""
        end = time.monotonic() + seconds
        rx = re.compile(pattern)
        while True:
            m = rx.search(self.seen, self.mark)
            if m:
                self.mark = m.end()
                return m
            left = end - time.monotonic()
            if left <= 0:
                raise AssertionError(f"no {what} within {seconds} s (looked for {pattern!r})")
            self.pump(min(left, 0.2))

    def type(self, text):
        self.proc.stdin.write(text.encode())
        self.proc.stdin.flush()

    def close(self):
        if self.proc.poll() is None:
            self.proc.kill()
        self.proc.wait()


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--elf", required=True)
    ap.add_argument("--qemu", default="qemu-system-arm")
    ap.add_argument("--log")
    ap.add_argument("qemu_args", nargs="*", help="extra emulator arguments")
    args = ap.parse_args()

    qemu = shutil.which(args.qemu)
    if qemu is None:
        print(f"SKIP: {args.qemu} is not installed (Debian package qemu-system-arm)")
        return SKIP

    # Without a backing file QEMU clears the device at every reset, and an
    # emulated hibernation is a reset.
    workdir = tempfile.TemporaryDirectory(prefix="fenwa-qemu-")
    fram = os.path.join(workdir.name, "fram.bin")
    with open(fram, "wb") as f:
        f.write(bytes(32768))
    cmd = [qemu, "-M", "lm3s6965evb", "-display", "none", "-monitor", "none", "-serial", "stdio",
           "-kernel", args.elf,
           "-drive", f"file={fram},if=none,format=raw,id=fram",
           "-device", "at24c-eeprom,bus=i2c,address=0x50,rom-size=32768,drive=fram"] + args.qemu_args
    board = Board(cmd)
    steps = [
        # (text to type or None, reply pattern, seconds, what)
        (None, rb"Defaults assigned", 30, "start-up message for a new FRAM"),
        (None, rb"\r\n>", 30, "first prompt"),
        ("version\r", rb"version\r\nFenwa v5\.0\.3 ZEP3 123g revB\r\n", 10, "version reply"),
        (None, rb"\r\n>", 10, "prompt after version"),
        ("period 20\r", rb"period 20\r\n\r\n>", 10, "prompt after period 20"),
        ("getperiod\r", rb"getperiod\r\n20\r\n>", 10, "period read back"),
        ("sleep\r", rb"sleep\r\n\*", 10, "hibernation"),
        ("pause", 1.0, None, None),
        ("x", rb"f_mount error[^\r]*\r\n\r\n>", 30, "restart after the wake-up byte"),
        ("absent", rb"Defaults assigned", None, "FRAM kept through the hibernation"),
        ("getperiod\r", rb"getperiod\r\n20\r\n>", 10, "period kept through the hibernation"),
        ("t0\r", rb"ADS1248 no DRDY", 30, "no-ADC notice"),
        (None, rb"\r\n#0000000\t\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\t[^\r\n]*-999\.0[^\r\n]*\r\n", 120,
         "sample line with the no-conversion value"),
        (None, rb"\r\n>", 10, "prompt after the sample"),
        ("\r", rb">", 5, "prompt 1"),
        ("\r", rb">", 5, "prompt 2"),
        ("\r", rb">", 5, "prompt 3"),
        ("\r", rb">", 5, "prompt 4"),
        ("x", rb"Main Menu -- Fenwa v5\.0\.3 ZEP3 123g revB", 10, "main menu"),
        (None, rb"Enter Selection: ", 10, "menu prompt"),
    ]
    ok = True
    try:
        since = 0
        for text, pattern, seconds, what in steps:
            if text == "pause":
                board.pump(pattern)
                continue
            if text == "absent":
                if re.search(pattern, board.seen[since:board.mark]):
                    raise AssertionError(f"{pattern!r} came again: {what} failed")
                print(f"ok   {what}")
                continue
            since = board.mark
            if text is not None:
                board.type(text)
            board.expect(pattern, seconds, what)
            print(f"ok   {what}")
    except (AssertionError, RuntimeError) as e:
        ok = False
        print(f"FAIL {e}")
    finally:
        board.pump(0.3)
        board.close()
        workdir.cleanup()
        transcript = board.seen.decode("latin-1")
        if args.log:
            with open(args.log, "w", encoding="latin-1") as f:
                f.write(transcript)
        if not ok:
            print("---- console transcript ----")
            print(transcript.replace("\r\n", "\n").replace("\r", "\n"))
    return 0 if ok else 1


if __name__ == "__main__":
    sys.exit(main())
