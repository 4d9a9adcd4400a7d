#!/usr/bin/env python3
"""Power cut at every write point of a deployment's first power cycles.

  bench/power_cut_sweep.py SIM [--first N] [--last N] [--step K] [--seconds S] [--keep DIR]

SIM is the fenwa-sim program. A new board is deployed from the operator's
menu with a 20 s period and left to sample for S simulated seconds (default
100: the deployment, the file headers and a few sample appends). A run with
FENWA_CUT_LOG counts its write points (EEPROM programs, FRAM write
transactions, card writes and closes). Then, for each N, the same run on a
copy of the new board with FENWA_CUT_AT=N: the Nth write point is torn (its
first half lands) and the power goes for the whole simulator at once. The
board is then resumed (a run of its own on the same folder) and checked:

  back      the resumed run (a minute, nobody typing) ends normally and the
            board speaks: a deployed board samples on, an idle one prompts
  eeprom    the configuration record carries its version text, and every
            word of it is the one before the cut, the one the uncut run ends
            with, or the default record's
  fram      the sampling state carries its marker after the resume
  card      every line on the card when the power went (the torn tail aside)
            is still there, unchanged and in order
  torn      no line glues two samples: every sample line has the column count
            of the header's column line
  numbers   sample numbers on the card never go back

Prints one line per N that fails and a summary "N/N cuts pass"; exits 1 when
any fails. Standard library only.
"""
import argparse
import os
import shutil
import struct
import subprocess
import sys
import tempfile

VERSION = b"Fenwa v5.0.3 ZEP3 123g revB"
REC, REC_SIZE, VER_OFF = 1024, 1352, 600
SAMP_ADDR, SAMP_MARKER_OFF, SAMP_MARKER = 64, 40, 0x55AA55AA
DEPLOY = "1 period 20\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n"


def run(sim, state, seconds, script=None, env_extra=None):
    env = dict(os.environ, TZ="UTC")
    env.pop("FENWA_CUT_AT", None)
    env.pop("FENWA_CUT_LOG", None)
    env.update(env_extra or {})
    args = [sim, "--state", state, "--fast", "--for", str(seconds)]
    if script is not None:
        args += ["--script", "-"]
    p = subprocess.run(args, input=(script or "").encode(), env=env,
                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=600)
    return p.returncode, p.stdout.decode("latin-1"), p.stderr.decode("latin-1")


def data_lines(state):
    """The data file's lines (the card's one .TXT other than Error.txt)."""
    card = os.path.join(state, "card")
    names = sorted(n for n in os.listdir(card)
                   if n.upper().endswith(".TXT") and n.upper() != "ERROR.TXT")
    if not names:
        return b"", []
    with open(os.path.join(card, names[0]), "rb") as f:
        raw = f.read()
    return raw, raw.split(b"\n")


def record(state):
    with open(os.path.join(state, "eeprom.bin"), "rb") as f:
        return f.read()[REC:REC + REC_SIZE]


def marker(state):
    with open(os.path.join(state, "fram.bin"), "rb") as f:
        f.seek(SAMP_ADDR + SAMP_MARKER_OFF)
        return struct.unpack("<I", f.read(4))[0]


def number(t):
    """The sample number of a sample line ("#0000007\t..."), else None."""
    head = t.split(b"\t", 1)[0]
    return int(head[1:]) if head[:1] == b"#" and head[1:].isdigit() else None


def samples(lines):
    """(column count of the column line, sample lines) of a data file."""
    cols, out = None, []
    for ln in lines:
        t = ln.rstrip(b"\r")
        if not t.strip() or t.startswith(b"//"):
            continue
        if number(t) is not None:
            out.append(t)
        elif cols is None:
            cols = t.count(b"\t") + 1
    return cols, out


def check(sim, pristine, base_rec, n, work, seconds):
    problems = []
    st = os.path.join(work, "b%d" % n)
    shutil.copytree(pristine, st)
    before = record(st)
    code, _, _ = run(sim, st, seconds, DEPLOY, {"FENWA_CUT_AT": str(n)})
    if code not in (137, -9):
        problems.append("no cut: status %d" % code)
    raw_cut, lines_cut = data_lines(st)
    torn = bool(raw_cut) and not raw_cut.endswith(b"\n")
    complete = lines_cut[:-1]  # the last piece is a torn line or empty
    code, out, err = run(sim, st, 60, "")
    if code != 0 or not out.strip():
        problems.append("back: status %d, %s" % (code, err.strip().splitlines()[-1:] or ""))
    rec = record(st)
    if rec[VER_OFF:VER_OFF + len(VERSION)] != VERSION:
        problems.append("eeprom: version text lost")
    for w in range(0, REC_SIZE, 4):
        word = rec[w:w + 4]
        if word not in (before[w:w + 4], base_rec[w:w + 4]):
            problems.append("eeprom: word at %d neither old nor new" % (REC + w))
            break
    if marker(st) != SAMP_MARKER:
        problems.append("fram: sampling state marker 0x%08x" % marker(st))
    _, lines_after = data_lines(st)
    if lines_after[:len(complete)] != complete:
        problems.append("card: an earlier line changed or went")
    cols, samp = samples(lines_after)
    for s in samp:
        if cols is not None and s.count(b"\t") + 1 > cols:
            problems.append("torn: glued line %r" % s[:40])
            break
    nums = [number(s) for s in samp if s.count(b"\t") + 1 == cols]
    if any(b < a for a, b in zip(nums, nums[1:])):
        problems.append("numbers: went back %s" % nums)
    shutil.rmtree(st, ignore_errors=True)
    return problems, torn


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("sim")
    ap.add_argument("--first", type=int, default=1)
    ap.add_argument("--last", type=int, default=0, help="0: every write point")
    ap.add_argument("--step", type=int, default=1, help="cut at every STEPth write point")
    ap.add_argument("--seconds", type=float, default=100)
    ap.add_argument("--keep", help="work in this folder and keep it")
    a = ap.parse_args()
    work = a.keep or tempfile.mkdtemp(prefix="fenwa-cut-")
    os.makedirs(work, exist_ok=True)
    try:
        pristine = os.path.join(work, "new")
        shutil.rmtree(pristine, ignore_errors=True)
        run(a.sim, pristine, 1)  # a new board, provisioned
        base = os.path.join(work, "base")
        shutil.rmtree(base, ignore_errors=True)
        shutil.copytree(pristine, base)
        log = os.path.join(work, "writes.log")
        if os.path.exists(log):
            os.remove(log)
        run(a.sim, base, a.seconds, DEPLOY, {"FENWA_CUT_LOG": log})
        with open(log) as f:
            points = [ln.split() for ln in f if ln.strip()]
        kinds = {}
        for p in points:
            kinds[p[1]] = kinds.get(p[1], 0) + 1
        print("write points: %d (%s)" % (len(points), ", ".join(
            "%s %d" % kv for kv in sorted(kinds.items()))))
        last = a.last or len(points)
        failed = torn = 0
        cuts = range(a.first, last + 1, a.step)
        for n in cuts:
            problems, was_torn = check(a.sim, pristine, record(base), n, work, a.seconds)
            torn += was_torn
            if problems:
                failed += 1
                print("cut %d (%s): %s" % (n, " ".join(points[n - 1][1:]), "; ".join(problems)))
        total = len(cuts)
        print("%d/%d cuts pass (%d left a torn line on the card)" % (total - failed, total, torn))
        return 1 if failed else 0
    finally:
        if not a.keep:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
