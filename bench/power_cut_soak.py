#!/usr/bin/env python3
"""Power-cut soak of the simulated board (not part of ctest).

Deploys a new board with a 20 s sampling period, then again and again starts
fenwa-sim on its state folder and kills it with SIGKILL at a random instant
(a power cut), and checks the card after every cut:

- no sample line already on the card is lost or changed by a later cut,
- sample numbers never go back,
- a number repeats at most once per cut (a cut between the card append and
  the FRAM store: the sample is taken again after the power comes back).

    bench/power_cut_soak.py [--cuts N] [--realtime] [--seed S] [--sim PATH]

Fast time (default): each cut falls 20 to 400 ms of wall time after the
start, a few hundred wake-ups in. Real time: 1 to 45 s after the start.
Exit status 0 when every check held.
"""
import argparse
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
DEPLOY = "1 period 20\\r\n2 \\r\n2.1 \\r\n2.2 \\r\n2.3 \\r\n3 x\n4 4\\r\n4.2 \\r\n"
SAMPLE = re.compile(rb"^#(\d{7})\t")


def card(state):
    try:
        with open(os.path.join(state, "card", "NONAME.TXT"), "rb") as f:
            return f.read()
    except FileNotFoundError:
        return b""


def numbers(data):
    out = []
    for line in data.split(b"\n"):
        m = SAMPLE.match(line)
        if m:
            out.append(int(m.group(1)))
    return out


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--cuts", type=int, default=100)
    ap.add_argument("--realtime", action="store_true")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--sim", default=os.path.join(HERE, "..", "build", "host", "fenwa-sim"))
    ap.add_argument("--keep", action="store_true", help="keep the state folder")
    a = ap.parse_args()
    rng = random.Random(a.seed)
    work = tempfile.mkdtemp(prefix="fenwa-soak-")
    state = os.path.join(work, "state")
    script = os.path.join(work, "deploy.txt")
    with open(script, "w") as f:
        f.write(DEPLOY)
    env = dict(os.environ, TZ="UTC")
    r = subprocess.run([a.sim, "--state", state, "--script", script, "--for", "10"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env=env)
    if r.returncode != 0:
        sys.exit("deployment failed: " + r.stderr.decode())

    mode = ["--realtime"] if a.realtime else ["--fast"]
    before = card(state)
    problems = []
    repeats = 0
    t0 = time.time()
    for cut in range(1, a.cuts + 1):
        p = subprocess.Popen([a.sim, "--state", state, "--for", "100000000"] + mode,
                             stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                             stderr=subprocess.DEVNULL, env=env)
        time.sleep(rng.uniform(1, 45) if a.realtime else rng.uniform(0.02, 0.4))
        p.send_signal(signal.SIGKILL)
        p.wait()
        after = card(state)
        if not after.startswith(before):
            problems.append("cut %d: lines already on the card were lost or changed" % cut)
        nums = numbers(after)
        # what this run added, against the last number before it
        old = len(numbers(before))
        for i in range(max(old, 1), len(nums)):
            if nums[i] < nums[i - 1]:
                problems.append("cut %d: number %d after %d" % (cut, nums[i], nums[i - 1]))
            elif nums[i] > nums[i - 1] + 1:
                problems.append("cut %d: numbers %d..%d lost" % (cut, nums[i - 1] + 1, nums[i] - 1))
        # a repeat may only be the first line after the cut before
        rep = sum(1 for i in range(max(old, 1), len(nums)) if nums[i] == nums[i - 1])
        if rep > 1 or (rep == 1 and nums[old] != nums[old - 1]):
            problems.append("cut %d: %d repeats" % (cut, rep))
        repeats += rep
        before = after
    # the last cut's repeat shows only after a resume: one more clean run
    subprocess.run([a.sim, "--state", state, "--for", "60", "--fast"], stdin=subprocess.DEVNULL,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, env=env)
    after = card(state)
    nums = numbers(after)
    old = len(numbers(before))
    repeats += sum(1 for i in range(max(old, 1), len(nums)) if nums[i] == nums[i - 1])
    if not after.startswith(before):
        problems.append("resume: lines already on the card were lost or changed")
    lines = len(nums)
    distinct = len(set(nums))
    lost = (max(nums) + 1 - distinct) if nums else 0
    print("power-cut soak, %s time, seed %d" % ("real" if a.realtime else "fast", a.seed))
    print("  cuts                 %d" % a.cuts)
    print("  sample lines         %d" % lines)
    print("  distinct numbers     %d (0..%d)" % (distinct, max(nums) if nums else -1))
    print("  repeated numbers     %d" % repeats)
    print("  lost numbers         %d" % lost)
    print("  wall time            %.1f s" % (time.time() - t0))
    for p in problems[:20]:
        print("  PROBLEM: " + p)
    if a.keep:
        print("  state folder         " + state)
    else:
        shutil.rmtree(work, ignore_errors=True)
    sys.exit(1 if problems or lost else 0)


if __name__ == "__main__":
    main()
