#!/usr/bin/env python3
"""Read a Fenwa card data file into one table per deployment.

Every deployment appends a header block (lines starting "//", closed by the
"//--****" banner), a column-title line, then one tab-separated sample line
per sample. A file may hold any number of deployments.

    fenwa_data.py NONAME.TXT                      # summary of each deployment
    fenwa_data.py NONAME.TXT --csv out --png plot.png

--csv PREFIX writes PREFIX-1.csv, PREFIX-2.csv ... (one per deployment);
--png draws pH and temperature over time. Standard library only, except
the plot (matplotlib); `frames()` gives pandas tables when pandas is there.
"""

import argparse
import csv
import datetime as dt
import re
import sys

UTC = dt.timezone.utc

# Columns that are text, not numbers (the SBE37's own date and time, part numbers).
TEXT_COLUMNS = {"Date_MC", "Time_MC", "OCR_PN", "Opt_PN", "Cond_PN", "MEA"}
TIME_TITLES = {"MM/DD/YYYY HH:MM:SS": "clock", "Epoch millisec": "epoch_ms"}
PH_COLUMNS = ("pHextEst", "pHintEst", "pH")
TEMP_COLUMNS = ("TC_Dfet", "TC_MCat", "Temp")


class Deployment:
    """One header block and the sample lines that follow it."""

    def __init__(self, number, line):
        self.number = number  # 1, 2, ... in file order
        self.first_line = line  # 1-based line of the header block's start
        self.meta = {}  # "Sampling period (s)" -> "600", ...
        self.fields = []  # enabled-field list lines, as written
        self.titles = []  # column titles, stripped
        self.columns = []  # unique column names (duplicates get ".1", ".2")
        self.rows = []  # typed values, one list per sample line
        self.bad = []  # (line number, reason) of lines that did not fit

    @property
    def time_column(self):
        for name in self.columns:
            if name == "time":
                return name
        return None

    def column(self, name):
        i = self.columns.index(name)
        return [r[i] for r in self.rows]

    def first_of(self, names):
        for n in names:
            if n in self.columns:
                return n
        return None


def _unique(titles):
    seen, out = {}, []
    for i, t in enumerate(titles):
        name = "time" if t in TIME_TITLES else (t or "col%d" % (i + 1))
        if name in seen:
            seen[name] += 1
            name = "%s.%d" % (name, seen[name])
        else:
            seen[name] = 0
        out.append(name)
    return out


def _value(title, text, line_no):
    s = text.strip()
    kind = TIME_TITLES.get(title)
    if kind == "clock":
        # the board writes its clock; deployments in the simulator and at sea run on UTC
        return dt.datetime.strptime(s, "%m/%d/%Y %H:%M:%S").replace(tzinfo=UTC)
    if kind == "epoch_ms":
        return dt.datetime.fromtimestamp(int(s) / 1000.0, UTC)
    if title == "SampNum":
        return int(s.lstrip("#"))
    if title in TEXT_COLUMNS or s == "":
        return s
    try:
        return int(s) if re.fullmatch(r"[-+]?\d+", s) else float(s)
    except ValueError:
        return s  # an instrument's odd field stays text


def read(path_or_lines):
    """Deployments of a data file (a path, or an iterable of text lines)."""
    if isinstance(path_or_lines, str):
        with open(path_or_lines, "rb") as f:
            lines = f.read().decode("latin-1").splitlines()
    else:
        lines = list(path_or_lines)
    deps, cur, state = [], None, "none"
    for n, raw in enumerate(lines, 1):
        line = raw.rstrip("\r\n")
        if line.startswith("//"):
            if state != "header":
                cur = Deployment(len(deps) + 1, n)
                deps.append(cur)
                state = "header"
            body = line[2:].strip()
            if body.startswith("--*"):
                state = "title"
            elif body.startswith("++*"):
                pass
            elif "\t" in line:
                key, _, val = line[2:].partition("\t")
                cur.meta[key.strip().rstrip(":").strip()] = val.strip()
            elif " = " in body:
                cur.fields.append(body)
            continue
        if line.strip() == "":
            continue
        if cur is None:
            continue  # lines before any header block belong to no deployment
        if state == "title":
            cur.titles = [t.strip() for t in line.split("\t")]
            while cur.titles and cur.titles[-1] == "" and len(cur.titles) > 1:
                cur.titles.pop()
            cur.columns = _unique(cur.titles)
            state = "rows"
            continue
        if state != "rows":
            cur.bad.append((n, "sample line inside the header block"))
            continue
        parts = line.split("\t")
        while len(parts) > len(cur.titles) and parts[-1].strip() == "":
            parts.pop()
        if len(parts) != len(cur.titles):
            cur.bad.append((n, "%d fields, %d titles" % (len(parts), len(cur.titles))))
            continue
        try:
            cur.rows.append([_value(t, p, n) for t, p in zip(cur.titles, parts)])
        except ValueError as e:
            cur.bad.append((n, str(e)))
    return deps


def write_csv(dep, path):
    with open(path, "w", newline="") as f:
        w = csv.writer(f, lineterminator="\n")
        w.writerow(dep.columns)
        for r in dep.rows:
            w.writerow([v.strftime("%Y-%m-%dT%H:%M:%SZ") if isinstance(v, dt.datetime) else v
                        for v in r])


def frames(path_or_lines):
    """One pandas DataFrame per deployment (needs pandas); metadata in .attrs."""
    import pandas as pd

    out = []
    for d in read(path_or_lines):
        df = pd.DataFrame(d.rows, columns=d.columns)
        if "time" in df.columns:
            df["time"] = pd.to_datetime(df["time"], utc=True)
        df.attrs["meta"] = dict(d.meta)
        df.attrs["deployment"] = d.number
        out.append(df)
    return out


def plot(deps, png, title=None):
    import matplotlib

    matplotlib.use("Agg")
    import matplotlib.pyplot as plt

    fig, (ax_ph, ax_t) = plt.subplots(2, 1, sharex=True, figsize=(8, 4.5), dpi=80)
    for d in deps:
        tcol = d.time_column
        x = d.column(tcol) if tcol else d.column(d.columns[0])
        label = "deployment %d" % d.number
        for ax, names in ((ax_ph, PH_COLUMNS), (ax_t, TEMP_COLUMNS)):
            col = d.first_of(names)
            if col:
                ax.plot(x, d.column(col), ".-", ms=2, lw=0.8, label=label)
    ax_ph.set_ylabel("pH")
    ax_t.set_ylabel("temperature (°C)")
    ax_t.set_xlabel("time (UTC)")
    for ax in (ax_ph, ax_t):
        ax.grid(True, lw=0.3)
        ax.ticklabel_format(axis="y", useOffset=False)
    if len(deps) > 1:
        ax_ph.legend(fontsize="small")
    if title:
        ax_ph.set_title(title)
    fig.autofmt_xdate()
    fig.tight_layout()
    fig.savefig(png)
    plt.close(fig)


def main(argv=None):
    ap = argparse.ArgumentParser(description="Fenwa card data file to tables, CSV and a plot")
    ap.add_argument("file")
    ap.add_argument("--csv", metavar="PREFIX", help="write PREFIX-N.csv for deployment N")
    ap.add_argument("--png", metavar="FILE", help="plot pH and temperature to this PNG")
    ap.add_argument("--title", help="title of the plot")
    a = ap.parse_args(argv)
    try:
        deps = read(a.file)
    except OSError as e:
        print("fenwa_data: %s" % e, file=sys.stderr)
        return 1
    if not deps:
        print("fenwa_data: %s holds no deployment header" % a.file, file=sys.stderr)
        return 1
    for d in deps:
        t = d.column("time") if d.time_column else []
        span = " %s .. %s" % (t[0].isoformat(), t[-1].isoformat()) if t else ""
        print("deployment %d (line %d): %d samples, %d columns%s"
              % (d.number, d.first_line, len(d.rows), len(d.columns), span))
        for n, why in d.bad[:5]:
            print("  line %d skipped: %s" % (n, why))
        if a.csv:
            write_csv(d, "%s-%d.csv" % (a.csv, d.number))
    if a.png:
        try:
            plot(deps, a.png, a.title)
        except ImportError:
            print("fenwa_data: the plot needs matplotlib (Debian: python3-matplotlib)",
                  file=sys.stderr)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
