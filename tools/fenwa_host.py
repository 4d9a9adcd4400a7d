#!/usr/bin/env python3
"""Reference host driver for a Fenwa controller on a serial line (pyserial).

What a data logger or float controller does, with the timing the instrument
needs (README, "Driving the instrument from a program"):

    fenwa_host.py PORT version
    fenwa_host.py PORT clock [SECONDS]      # set the clock (default: now), read it back
    fenwa_host.py PORT sample               # one pH sample line (t0)
    fenwa_host.py PORT float LINE           # one float-controller line ("q", "mode,?", "rtc,?")
    fenwa_host.py PORT deploy [PERIOD]      # start a deployment from the menu
    fenwa_host.py PORT gdata                # new lines of the data file (a deployed board)
    fenwa_host.py PORT stop                 # end the deployment
    fenwa_host.py PORT fetch DIR            # the data file over YMODEM (lrzsz's rb)

PORT is a device (/dev/ttyUSB0) or the pty that `fenwa-sim --pty` prints.
"""

import argparse
import os
import re
import subprocess
import sys
import time

import serial  # Debian: python3-serial

PROMPT = b"\r\n>"
LINE_END_S = 0.25  # the board closes a command line 250 ms after its last byte


class FenwaError(Exception):
    pass


class Fenwa:
    def __init__(self, port, baud=115200, log=None):
        self.ser = serial.serial_for_url(port, baudrate=baud, timeout=0.05)
        self.log = log  # a file to copy the conversation to, or None

    def close(self):
        self.ser.close()

    # ---- the line ------------------------------------------------------------

    def read_until(self, pattern, timeout):
        """Bytes up to and including the first match of `pattern` (bytes, or a compiled regex)."""
        rx = re.compile(re.escape(pattern)) if isinstance(pattern, bytes) else pattern
        buf = b""
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            chunk = self.ser.read(256)
            if chunk:
                buf += chunk
                if self.log:
                    self.log.write(chunk.decode("latin-1"))
                m = rx.search(buf)
                if m:
                    return buf[: m.end()]
        raise FenwaError("no %r within %.0f s; got %r" % (rx.pattern, timeout, buf[-200:]))

    def read_quiet(self, quiet=1.5, limit=60):
        """Everything until the line stays quiet for `quiet` seconds."""
        buf = b""
        last = time.monotonic()
        end = last + limit
        while time.monotonic() < end and time.monotonic() - last < quiet:
            chunk = self.ser.read(256)
            if chunk:
                buf += chunk
                last = time.monotonic()
        return buf

    def send(self, text):
        self.ser.write(text.encode("ascii") if isinstance(text, str) else text)
        self.ser.flush()

    # ---- the conversation ----------------------------------------------------

    def wake(self, tries=6):
        """Until the prompt comes. An asleep board loses the byte that wakes it
        (its console is unpowered) and needs about a second to start."""
        for _ in range(tries):
            self.ser.reset_input_buffer()
            self.send(b"\r")
            try:
                self.read_until(b">", 2.0)
                return
            except FenwaError:
                continue
        raise FenwaError("no prompt after %d wake-ups" % tries)

    def command(self, line, timeout=10.0):
        """Send a command line (with CR) and return the reply without its echo and prompt.
        The reply is the text between the echo and the next prompt: a late prompt
        (a wake key the board took while it was still starting) comes before the
        echo and is passed over."""
        self.ser.reset_input_buffer()
        self.send(line + "\r")
        got = self.read_until(re.compile(re.escape(line.encode("ascii")) + rb"[\s\S]*?\r\n>"),
                              timeout)
        text = got.decode("latin-1")
        return text[text.find(line) + len(line):-3].strip("\r\n")

    def version(self):
        return self.command("version")

    def float_cmd(self, line, timeout=5.0):
        """One line of the float-controller dialect; its ACK/NAK reply line."""
        reply = self.command(line, timeout)
        for ln in reply.splitlines():
            if ln.startswith(("ACK", "NAK", "TINT")):
                return ln
        raise FenwaError("no ACK or NAK to %r: %r" % (line, reply))

    def set_clock(self, seconds=None):
        """Through "rtc,<seconds>" (UTC seconds): "settime" takes only months 10-12."""
        seconds = int(time.time()) if seconds is None else int(seconds)
        reply = self.float_cmd("rtc,%d" % seconds)
        m = re.fullmatch(r"ACK,(\d+),(\d+)", reply)
        if not m or int(m.group(1)) != seconds:
            raise FenwaError("clock not set: %r" % reply)
        return int(m.group(2))

    def get_clock(self):
        reply = self.float_cmd("rtc,?")
        m = re.fullmatch(r"ACK,RTC\?,(\d+)", reply)
        if not m:
            raise FenwaError("no clock in %r" % reply)
        return int(m.group(1))

    def sample(self, timeout=30.0):
        """One pH sample line. "mode,0" first: after a start "ts" would take the
        nitrate path; "t0" samples and stays awake ("ts" in mode 0 sleeps after)."""
        self.float_cmd("mode,0")
        reply = self.command("t0", timeout)
        lines = [l for l in reply.splitlines() if "\t" in l]
        if not lines:
            raise FenwaError("no sample line in %r" % reply)
        return lines[-1]

    def deploy(self, period, timeout=60.0):
        """Start a deployment from the operator's menu (four Enters, then any key);
        returns the header block and title line the board prints and writes."""
        self.command("period %d" % period)
        for _ in range(4):
            self.send(b"\r")
            time.sleep(LINE_END_S)
        self.send(b"x")
        self.read_until(b"Enter Selection: ", 10.0)
        self.send(b"4\r")  # a menu choice ends with Enter
        self.read_until(b"Enter keeps", 10.0)
        self.send(b"\r")  # keep the deployment note
        head = self.read_until(re.compile(rb"Starting deployment[^\n]*\n[\s\S]*?\r\n(?=\S)"), timeout)
        return head.decode("latin-1")

    def deployed(self, line, quiet=2.0, timeout=60.0):
        """One command to a deployed board: a byte wakes it (and is lost), then the
        line within the 5 s the board listens after its start."""
        self.ser.reset_input_buffer()
        self.send(b"\r")
        time.sleep(1.0)  # the board starts and flushes its input before it listens
        self.read_quiet(0.5, 5)
        self.send(line + "\r")
        text = self.read_quiet(quiet, timeout).decode("latin-1")
        if text.startswith(line):
            text = text[len(line):]
        return text.lstrip("\r\n")

    def gdata(self, timeout=60.0):
        """The data file's lines written since the last "gdata" (or the header);
        "go" then lets the board sleep on."""
        text = self.deployed("gdata", 2.0, timeout)
        self.send("go\r")
        return text

    def stop(self, tries=3):
        """End the deployment; the board then answers at its prompt. A deployed
        board gives no prompt and no reply to "stop", and a wake-up that falls
        into a sample is taken by the sample: try again until the prompt comes."""
        for _ in range(tries):
            self.deployed("stop", 1.0)
            try:
                self.wake(tries=2)
                return
            except FenwaError:
                continue
        raise FenwaError("the deployment did not stop")

    def fetch(self, dest, timeout=120.0):
        """The data file over YMODEM with lrzsz's rb; returns the file's path."""
        os.makedirs(dest, exist_ok=True)
        self.ser.reset_input_buffer()
        self.send("ys\r")
        head = self.read_until(re.compile(rb"Ymodem sending (\S+), (\d+) bytes\.\.\.\r\n"), 10.0)
        name, size = re.search(rb"Ymodem sending (\S+), (\d+) bytes", head).groups()
        # The board empties its input a second after that line and only then
        # asks with "C": a receiver started earlier has its first "C" thrown away.
        self.read_until(b"C", 5.0)
        fd = self.ser.fileno()
        os.set_blocking(fd, True)  # pyserial keeps the line non-blocking; rb expects a plain tty
        try:
            r = subprocess.run(["rb", "--ymodem", "--overwrite"], stdin=fd, stdout=fd,
                               stderr=subprocess.PIPE, cwd=dest, timeout=timeout)
        finally:
            os.set_blocking(fd, False)
        if r.returncode != 0:
            raise FenwaError("YMODEM failed (rb %d): %s" % (r.returncode, r.stderr.decode()))
        # The board ends with "Sent: NAME" and the prompt; its closing handshake
        # sometimes runs into its 10 s waits first. Stay quiet meanwhile: a byte
        # sent now would be taken as the receiver's answer.
        try:
            self.read_until(b">", 30.0)
        except FenwaError:
            self.wake()
        path = os.path.join(dest, name.decode().lower())
        if not os.path.exists(path):
            path = os.path.join(dest, name.decode())
        if not os.path.exists(path) or os.path.getsize(path) != int(size):
            raise FenwaError("YMODEM: %s is not the %s bytes announced" % (path, int(size)))
        return path


def main(argv=None):
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("port")
    ap.add_argument("what",
                    choices=["version", "clock", "sample", "float", "deploy", "gdata", "stop",
                             "fetch"])
    ap.add_argument("arg", nargs="?")
    a = ap.parse_args(argv)
    f = Fenwa(a.port)
    try:
        if a.what not in ("gdata", "stop"):
            f.wake()
        if a.what == "version":
            print(f.version())
        elif a.what == "clock":
            print(f.set_clock(a.arg))
        elif a.what == "sample":
            print(f.sample())
        elif a.what == "float":
            print(f.float_cmd(a.arg or "q"))
        elif a.what == "deploy":
            sys.stdout.write(f.deploy(int(a.arg or 600)))
        elif a.what == "gdata":
            sys.stdout.write(f.gdata())
        elif a.what == "stop":
            f.stop()
        elif a.what == "fetch":
            print(f.fetch(a.arg or "."))
    except (FenwaError, OSError, subprocess.SubprocessError) as e:
        print("fenwa_host: %s" % e, file=sys.stderr)
        return 1
    finally:
        f.close()
    return 0


if __name__ == "__main__":
    sys.exit(main())
