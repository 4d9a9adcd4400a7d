#!/usr/bin/env python3
"""Soak: a deployed simulated board through many wake-ups, seeded.

  bench/soak.py SIM [--wakeups N] [--seed S] [--keep DIR]

The board is deployed with a 20 s period and run in segments on one state
folder. Each segment is one fenwa-sim run of a random length with a random
device fault (CTD and instrument silent, late, garbage or long replies, or
none), random key wakes followed by a host command, and, one segment in
four, a power cut at a random write point (FENWA_CUT_AT), after which the
board resumes on its own. A board whose sampling state says idle is deployed
again.
After every segment:

  run       a segment without a cut ends with status 0, a cut one by the cut
  eeprom    the configuration record carries its version text
  fram      the sampling state carries its marker
  card      every complete line already on the card is still there, unchanged
  torn      no line glues two samples (column count of the column line)
  numbers   within a deployment, sample numbers never go back

Wake-ups are counted as the sample lines on the card plus the key wakes.
Prints the figures; exits 1 at the first broken invariant.
"""
import argparse
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import power_cut_sweep as pcs  # noqa: E402

COMMANDS = ["version", "getperiod", "gettime", "ts", "h", "e", "c", "p", "rtc,?", "mode,?",
            "getfilename", "stat", "ls", "zz"]
FAULTS = ["", "", "", "silent", "late", "garbage", "long"]


def deployed(state):
    """The sampling state in FRAM says deployed (a cut board resumes on its own)."""
    try:
        with open(os.path.join(state, "fram.bin"), "rb") as f:
            f.seek(pcs.SAMP_ADDR)
            return f.read(4) == b"\x01\x00\x00\x00"
    except OSError:
        return False


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("sim")
    ap.add_argument("--wakeups", type=int, default=100000)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--keep", help="work in this folder and keep it")
    a = ap.parse_args()
    rng = random.Random(a.seed)
    work = a.keep or tempfile.mkdtemp(prefix="fenwa-soak-")
    st = os.path.join(work, "board")
    shutil.rmtree(st, ignore_errors=True)
    t0 = time.monotonic()
    segments = cuts = keys = deploys = 0
    kept = []  # complete card lines so far
    samples_seen = 0
    try:
        while samples_seen + keys < a.wakeups:
            segments += 1
            seconds = rng.choice([200, 600, 2000, 6000, 20000])
            script = []
            if not deployed(st):
                script.append(pcs.DEPLOY)
                deploys += 1
            t = 60.0
            while True:
                t += rng.expovariate(1.0 / 900.0)
                if t > seconds - 30:
                    break
                script.append("%.1f x\n%.1f %s\\r\n" % (t, t + 1.0, rng.choice(COMMANDS)))
                keys += 1
            env = {}
            cut = rng.random() < 0.25
            if cut:
                # some six write points a wake-up: anywhere in the segment
                env["FENWA_CUT_AT"] = str(rng.randint(1, int(seconds / 20 * 6)))
            fault = rng.choice(FAULTS)
            extra = ["--seed", str(segments)]
            if fault:
                extra += ["--ctd", "sbe37", "--ctd-fault", fault,
                          "--inst", "optode", "--inst-fault", fault]
            code, out, err = run(a.sim, st, seconds, "".join(script), env, extra)
            problems = []
            if code == 137 or code == -9:
                cuts += 1
            elif code != 0:
                problems.append("run: status %d: %s" % (code, err.strip()[-200:]))
            if os.path.exists(os.path.join(st, "eeprom.bin")):
                rec = pcs.record(st)
                if rec[pcs.VER_OFF:pcs.VER_OFF + len(pcs.VERSION)] != pcs.VERSION:
                    problems.append("eeprom: version text lost")
                if pcs.marker(st) != pcs.SAMP_MARKER and not cut:
                    problems.append("fram: marker 0x%08x" % pcs.marker(st))
            _, lines = pcs.data_lines(st)
            if lines[:len(kept)] != kept:
                problems.append("card: an earlier line changed or went")
            cols, samp = pcs.samples(lines)
            last = -1
            for ln in lines:
                s = ln.rstrip(b"\r")
                if s.startswith(b"//"):
                    last = -1  # a new deployment's header
                    continue
                num = pcs.number(s)
                if num is None or cols is None:
                    continue
                n = s.count(b"\t") + 1
                if n > cols:
                    problems.append("torn: glued line %r" % s[:40])
                    break
                if n == cols:
                    if num < last:
                        problems.append("numbers: %d after %d" % (num, last))
                        break
                    last = num
            kept = lines[:-1]
            samples_seen = len(samp)
            if problems:
                print("segment %d (seed %d): %s" % (segments, a.seed, "; ".join(problems)))
                return 1
        wall = time.monotonic() - t0
        print("soak seed %d: %d wake-ups (%d samples on the card, %d key wakes with a host "
              "command), %d segments, %d power cuts, %d deployments, %.0f s wall: all invariants "
              "held" % (a.seed, samples_seen + keys, samples_seen, keys, segments, cuts, deploys,
                        wall))
        return 0
    finally:
        if not a.keep:
            shutil.rmtree(work, ignore_errors=True)


def run(sim, state, seconds, script, env_extra, extra):
    env = dict(os.environ, TZ="UTC")
    env.pop("FENWA_CUT_AT", None)
    env.update(env_extra)
    p = subprocess.run([sim, "--state", state, "--fast", "--for", str(seconds), "--script", "-"]
                       + extra, input=script.encode(), env=env, stdout=subprocess.PIPE,
                       stderr=subprocess.PIPE, timeout=3600)
    return p.returncode, p.stdout.decode("latin-1"), p.stderr.decode("latin-1")


if __name__ == "__main__":
    sys.exit(main())
