#!/usr/bin/env python3
"""Runs kolm bench shortly and looks at what it reports.

Usage: bench_test.py KOLM
"""

import json
import os
import subprocess
import sys
import unittest

KOLM = os.path.abspath(sys.argv.pop(1))


def run(*arguments):
    return subprocess.run([KOLM, *arguments], capture_output=True, text=True, timeout=120)


def effects():
    return [line.split()[1] for line in run("effects").stdout.splitlines()[1:]]


class Bench(unittest.TestCase):
    def test_json(self):
        outcome = run("bench", "--sizes", "64x48,320x240", "--seconds", "0.001", "--json")
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        report = json.loads(outcome.stdout)
        self.assertEqual(f"kolm {report['version']}\n", run("--version").stdout)
        self.assertEqual(report["seconds"], 0.001)
        for width, height in ((64, 48), (320, 240)):
            rows = [row for row in report["results"]
                    if (row["width"], row["height"]) == (width, height)]
            names = [row["operation"] for row in rows]
            self.assertEqual([name for name in names if name != "track"],
                             effects() + ["background-scale", "background-blend"])
            for row in rows:
                self.assertGreater(row["microseconds"], 0)
                self.assertGreater(row["memcpy_microseconds"], 0)
                # Both numbers are rounded to the fourth digit.
                self.assertAlmostEqual(row["frames_per_second"] * row["microseconds"] / 1e6, 1,
                                       delta=0.01)
                self.assertAlmostEqual(
                    row["ratio"] * row["memcpy_microseconds"] / row["microseconds"], 1, delta=0.01)
        parameters = {row["operation"]: row.get("parameter") for row in report["results"]}
        self.assertEqual(parameters["box-blur"], 2)
        self.assertIsNone(parameters["sepia"])

    def test_slow_work_takes_longer(self):
        outcome = run("bench", "--sizes", "640x480", "--seconds", "0.02", "--json")
        times = {row["operation"]: row["microseconds"]
                 for row in json.loads(outcome.stdout)["results"]}
        self.assertGreater(times["box-blur"], times["pixelate"])

    def test_table(self):
        outcome = run("bench", "--sizes", "64x48", "--seconds", "0")
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        head, *rows = outcome.stdout.splitlines()
        self.assertEqual(head.split(),
                         "size operation us/frame frames/s memcpy us ratio".split())
        self.assertGreaterEqual(len(rows), 20)
        for row in rows:
            size, operation, *numbers = row.split()
            self.assertEqual(size, "64x48")
            self.assertEqual(len(numbers), 4)
            for number in numbers:
                self.assertGreaterEqual(float(number), 0)
        self.assertEqual(rows[4].split()[1], "box-blur:2")

    def test_wrong_sizes(self):
        for sizes in ("641x480", "640", "0x0", "640x", "x480", "640x480x3", "-2x4", "100000x2",
                      "640x480,1x1", "30000x30000"):
            outcome = run("bench", "--sizes=" + sizes)
            self.assertEqual(outcome.returncode, 2, sizes)
            self.assertIn("expected WIDTHxHEIGHT", outcome.stderr)
            self.assertEqual(outcome.stdout, "")

    def test_wrong_seconds(self):
        for seconds in ("nan", "inf", "-1", "3601", "x"):
            outcome = run("bench", "--seconds", seconds)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""))
            self.assertIn(f"'{seconds}' cannot be used; expected a number from 0 to 3600",
                          outcome.stderr)


if __name__ == "__main__":
    unittest.main()
