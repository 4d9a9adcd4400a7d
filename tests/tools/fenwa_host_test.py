#!/usr/bin/env python3
"""tools/fenwa_host.py against `fenwa-sim --pty` in real time: what a data logger does.

    fenwa_host_test.py FENWA_SIM     (exit 77: pyserial or lrzsz missing)
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools"))
try:
    import fenwa_host
except ImportError:
    print("skipped: python3-serial is not installed")
    sys.exit(77)
if shutil.which("rb") is None:
    print("skipped: lrzsz (rb) is not installed")
    sys.exit(77)

RTC = 1790000000  # 2026-09-21 14:13:20 UTC


def main(sim):
    tmp = tempfile.mkdtemp(prefix="fenwa-host-")
    state = os.path.join(tmp, "state")
    proc = subprocess.Popen([sim, "--state", state, "--pty", "--rtc", str(RTC)],
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    failures = []

    def check(what, got, want):
        ok = want(got) if callable(want) else got == want
        print("%-28s %s %r" % (what, "ok  " if ok else "FAIL", got))
        if not ok:
            failures.append(what)

    try:
        m = re.match(rb"pty: (\S+)", proc.stdout.readline())
        f = fenwa_host.Fenwa(m.group(1).decode())
        f.wake()
        check("version", f.version(), "Fenwa v5.0.3 ZEP3 123g revB")
        check("set the clock", f.set_clock(RTC + 3600), RTC + 3600)
        check("read the clock", f.get_clock(), lambda t: RTC + 3600 <= t < RTC + 3700)
        check("sensor type", f.float_cmd("q"), "ACK,Q,4")
        check("mode after a start", f.float_cmd("mode,?"), "ACK,MODE?,1")
        check("mode out of range", f.float_cmd("mode,7"), "NAK,MODE,RangeErr [0,2]: 7")
        line = f.sample()
        check("pH sample", line, lambda l: re.match(r"#0000000\t09/21/2026 15:1\d:\d\d\t", l))
        check("mode after the sample", f.float_cmd("mode,?"), "ACK,MODE?,0")
        card = os.path.join(state, "card", "NONAME.TXT")
        got = f.fetch(os.path.join(tmp, "fetched"))
        with open(got, "rb") as a, open(card, "rb") as b:
            check("YMODEM fetch", a.read() == b.read(), True)
        head = f.deploy(20)
        check("deployment header", head.count("//++**"), 1)
        f.read_until(b"#0000002", 60.0)  # a few samples on the card
        time.sleep(2.0)
        lines = [l for l in f.gdata().splitlines() if l.startswith("#")]
        with open(card, "rb") as c:
            on_card = [l for l in c.read().decode("latin-1").splitlines() if l.startswith("#")]
        check("gdata pages the samples", lines, lambda v: len(v) >= 3 and v == on_card[1:len(v) + 1])
        f.stop()
        check("stopped: prompt again", f.version(), "Fenwa v5.0.3 ZEP3 123g revB")
        f.close()
    except fenwa_host.FenwaError as e:
        failures.append(str(e))
        print("FAIL", e)
    finally:
        proc.terminate()
        proc.wait(30)
        shutil.rmtree(tmp, ignore_errors=True)
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
