#!/usr/bin/env python3
"""YMODEM transfers against lrzsz over fenwa-sim --pty (not part of ctest).

rb and sb are attached directly to the simulator's pseudo-terminal, as a
host program would run them. N card files go to the host ("ys FILE" on the
card command line, then rb) and N host files go to the card ("yr", then sb);
right after each transfer a command is typed and must be answered.

    bench/lrzsz_transfers.py [--each N] [--sim PATH]

Reports how many transfers completed with the right bytes, how many took
longer than the board's 10 s time-out, and how many following commands were
answered. Exit status 0 when all of them were.
"""
import argparse
import os
import random
import select
import shutil
import subprocess
import sys
import tempfile
import time
import tty

HERE = os.path.dirname(os.path.abspath(__file__))


class Line:
    def __init__(self, path):
        self.fd = os.open(path, os.O_RDWR | os.O_NOCTTY)
        tty.setraw(self.fd)
        self.buf = b""

    def wait(self, needle, seconds=20):
        t0 = time.time()
        while needle not in self.buf:
            if time.time() - t0 > seconds:
                return False
            r, _, _ = select.select([self.fd], [], [], 0.05)
            if r:
                self.buf += os.read(self.fd, 4096)
        self.buf = self.buf[self.buf.index(needle) + len(needle):]
        return True

    def type(self, text, pause=0.06):
        for c in text:
            os.write(self.fd, c.encode())
            time.sleep(pause)

    def drain(self):
        while select.select([self.fd], [], [], 0)[0]:
            self.buf += os.read(self.fd, 4096)
        self.buf = b""


def tool(args, cwd, pty, seconds=60):
    with open(pty, "r+b", buffering=0) as t, open(os.path.join(cwd, "tool.log"), "wb") as log:
        p = subprocess.Popen(args, cwd=cwd, stdin=t, stdout=t, stderr=log)
        t0 = time.time()
        try:
            rc = p.wait(timeout=seconds)
        except subprocess.TimeoutExpired:
            p.kill()
            rc = -1
        return rc, time.time() - t0


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--each", type=int, default=50)
    ap.add_argument("--sim", default=os.path.join(HERE, "..", "build", "host", "fenwa-sim"))
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--verbose", action="store_true")
    a = ap.parse_args()
    for t in ("rb", "sb"):
        if shutil.which(t) is None:
            sys.exit("lrzsz (%s) is not installed: scripts/setup.sh installs it" % t)
    rng = random.Random(a.seed)
    work = tempfile.mkdtemp(prefix="fenwa-lrzsz-")
    state = os.path.join(work, "state")
    os.makedirs(os.path.join(state, "card"))
    sim = subprocess.Popen([a.sim, "--state", state, "--pty"], stdout=subprocess.PIPE,
                           stderr=open(os.path.join(work, "sim.err"), "wb"),
                           stdin=subprocess.DEVNULL)
    pty = sim.stdout.readline().decode().split("pty: ")[1].strip()
    line = Line(pty)
    ok = {"ys": 0, "yr": 0}
    slow = answered = 0
    t0 = time.time()

    def command_after(kind, i, name, took):
        """Types "ls" after a transfer; True when the board answers it."""
        line.drain()
        line.type("ls\r")
        a_ok = line.wait(name.upper().encode(), 15) and line.wait(b"> ", 5)
        if a.verbose and (not a_ok or took > 10):
            print("%s %d: took %.1f s, command answered %s: %r" % (kind, i, took, a_ok, line.buf[-200:]))
        return a_ok
    try:
        if not line.wait(b"\r\n>"):
            sys.exit("no prompt from the board")
        line.type("\r\r\r\rx")
        line.wait(b"Enter Selection: ")
        line.type("5\r")
        if not line.wait(b"> "):
            sys.exit("no card command line")
        for i in range(a.each):
            # card -> host
            data = bytes(rng.getrandbits(8) for _ in range(rng.randint(100, 6000)))
            name = "f%03d.bin" % i
            with open(os.path.join(state, "card", name.upper()), "wb") as f:
                f.write(data)
            line.type("ys %s\r" % name)
            line.wait(b"bytes...\r\n")
            time.sleep(1.2)  # the sender empties its input a second after that line
            down = tempfile.mkdtemp(dir=work)
            rc, took = tool(["rb", "-q"], down, pty)
            got = os.path.join(down, name)
            if rc == 0 and os.path.exists(got) and open(got, "rb").read() == data:
                ok["ys"] += 1
            elif a.verbose:
                print("ys %d: rc %d, took %.1f s" % (i, rc, took))
            slow += took > 10
            answered += command_after("ys", i, name, took)
            # host -> card
            up = tempfile.mkdtemp(dir=work)
            data = bytes(rng.getrandbits(8) for _ in range(rng.randint(100, 6000)))
            name = "u%03d.bin" % i
            with open(os.path.join(up, name), "wb") as f:
                f.write(data)
            line.type("yr\r")
            line.wait(b"Ymodem rcv:\r\n")
            rc, took = tool(["sb", "-k", "-q", name], up, pty)
            slow += took > 10
            answered += command_after("yr", i, name, took)
            stored = os.path.join(state, "card", name.upper())
            # the card file ends at the sender's size (the receiver's reopen for
            # the batch's end leaves it stretched, not filled: see the YMODEM tests)
            if rc == 0 and os.path.exists(stored) and os.path.getsize(stored) == len(data):
                ok["yr"] += 1
            elif a.verbose:
                print("yr %d: rc %d, took %.1f s, %s" % (i, rc, took, line.buf[-200:]))
    finally:
        sim.terminate()
        sim.wait()
    total = ok["ys"] + ok["yr"]
    print("lrzsz over the pty: %d/%d complete (ys->rb %d/%d, sb->yr %d/%d)" %
          (total, 2 * a.each, ok["ys"], a.each, ok["yr"], a.each))
    print("  waited out a time-out  %d" % slow)
    print("  commands answered after a transfer  %d/%d" % (answered, 2 * a.each))
    print("  wall time              %.1f s" % (time.time() - t0))
    shutil.rmtree(work, ignore_errors=True)
    sys.exit(0 if total == 2 * a.each and slow == 0 and answered == 2 * a.each else 1)


if __name__ == "__main__":
    main()
