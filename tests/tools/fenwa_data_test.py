#!/usr/bin/env python3
"""tools/fenwa_data.py on a card file with two deployments.

    fenwa_data_test.py core|pandas|plot     (exit 77: a needed package is missing)
"""
import datetime as dt
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "tools"))
import fenwa_data  # noqa: E402

UTC = dt.timezone.utc
BANNER = "//--**************************************************"


def block(meta, titles):
    return (["", "", "//++************** Deployment Settings ***************"]
            + ["// %s" % m for m in meta]
            + ["// A -- Sample Num               = 1", "//      Vrse Std                 = 1",
               BANNER, "", "", "\t".join(titles)])


# Deployment 1: clock time, a dropped row, the picoPH's duplicate and blank titles.
# Deployment 2: epoch milliseconds, an SBE37's text columns.
FILE = (block(["Sampling period (s)\t600", "Time zone:       \tLocal"],
              [" SampNum", "     MM/DD/YYYY HH:MM:SS", " TC_Dfet", "pHintEst", "0 ", "0 ", " "])
        + ["#0000000\t09/21/2026 14:13:57\t  15.000\t   8.000\t0\t0\t",
           "#0000001\t09/21/2026 14:23:24\t  15.250",
           "#0000002\t09/21/2026 14:33:24\t  15.500\t   7.990\t1\t2\t"]
        + block(["Sampling period (s)\t60"],
                ["Epoch millisec", " TC_Dfet", "pHextEst", "TC_MCat", "Date_MC", "Time_MC"])
        + ["1790000000000\t   9.125\t   8.100\t 9.1250\t01 Sep 2026\t12:00:00",
           "1790000060500\t   9.250\t   8.050\tn/a\t01 Sep 2026\t12:01:00"])
LINES = [l + "\r\n" for l in FILE]

CSV1 = ("SampNum,time,TC_Dfet,pHintEst,0,0.1\n"
        "0,2026-09-21T14:13:57Z,15.0,8.0,0,0\n"
        "2,2026-09-21T14:33:24Z,15.5,7.99,1,2\n")


class Core(unittest.TestCase):
    def setUp(self):
        self.deps = fenwa_data.read(LINES)

    def test_tables(self):
        d1, d2 = self.deps
        cases = [  # (deployment, what, expected)
            (d1, "columns", ["SampNum", "time", "TC_Dfet", "pHintEst", "0", "0.1"]),
            (d1, "meta", {"Sampling period (s)": "600", "Time zone": "Local"}),
            (d1, "fields", ["A -- Sample Num               = 1",
                            "Vrse Std                 = 1"]),
            (d1, "rows", [[0, dt.datetime(2026, 9, 21, 14, 13, 57, tzinfo=UTC), 15.0, 8.0, 0, 0],
                          [2, dt.datetime(2026, 9, 21, 14, 33, 24, tzinfo=UTC), 15.5, 7.99, 1, 2]]),
            (d1, "bad", [(13, "3 fields, 6 titles")]),
            (d2, "columns", ["time", "TC_Dfet", "pHextEst", "TC_MCat", "Date_MC", "Time_MC"]),
            (d2, "rows", [[dt.datetime(2026, 9, 21, 14, 13, 20, tzinfo=UTC), 9.125, 8.1, 9.125,
                           "01 Sep 2026", "12:00:00"],
                          [dt.datetime(2026, 9, 21, 14, 14, 20, 500000, tzinfo=UTC), 9.25, 8.05,
                           "n/a", "01 Sep 2026", "12:01:00"]]),
        ]
        for d, what, want in cases:
            with self.subTest(deployment=d.number, what=what):
                self.assertEqual(getattr(d, what), want)

    def test_csv_and_cli(self):
        with tempfile.TemporaryDirectory() as tmp:
            path = os.path.join(tmp, "NONAME.TXT")
            with open(path, "w", newline="") as f:
                f.writelines(LINES)
            self.assertEqual(fenwa_data.main([path, "--csv", os.path.join(tmp, "o")]), 0)
            with open(os.path.join(tmp, "o-1.csv")) as f:
                self.assertEqual(f.read(), CSV1)
            self.assertTrue(os.path.exists(os.path.join(tmp, "o-2.csv")))
            empty = os.path.join(tmp, "empty.txt")
            open(empty, "w").close()
            self.assertEqual(fenwa_data.main([empty]), 1)
            self.assertEqual(fenwa_data.main([os.path.join(tmp, "absent")]), 1)


class Pandas(unittest.TestCase):
    def test_frames(self):
        import pandas as pd

        f1, f2 = fenwa_data.frames(LINES)
        self.assertEqual(str(f1["time"].dtype), "datetime64[ns, UTC]")
        self.assertEqual(f1["pHintEst"].tolist(), [8.0, 7.99])
        self.assertEqual(f2["time"].iloc[1], pd.Timestamp("2026-09-21 14:14:20.5", tz="UTC"))
        self.assertEqual(f2.attrs["meta"]["Sampling period (s)"], "60")


class Plot(unittest.TestCase):
    def test_png(self):
        with tempfile.TemporaryDirectory() as tmp:
            png = os.path.join(tmp, "p.png")
            fenwa_data.plot(fenwa_data.read(LINES), png)
            with open(png, "rb") as f:
                self.assertEqual(f.read(8), b"\x89PNG\r\n\x1a\n")


if __name__ == "__main__":
    part = sys.argv[1] if len(sys.argv) > 1 else "core"
    need = {"pandas": "pandas", "plot": "matplotlib"}.get(part)
    if need:
        try:
            __import__(need)
        except ImportError:
            print("skipped: python3-%s is not installed" % need)
            sys.exit(77)
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(
        {"core": Core, "pandas": Pandas, "plot": Plot}[part])
    ok = unittest.TextTestRunner(verbosity=1).run(suite).wasSuccessful()
    sys.exit(0 if ok else 1)
