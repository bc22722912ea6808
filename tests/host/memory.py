#!/usr/bin/env python3
"""memory.py SHORT_OF_MEMORY STEP [realtime]: runs whose memory gives out, each at the allocation
STEP behind that of the one before, in simulated time, or in real time with a picture. They
must end with an error that is said, and leave whole files or none, and no pool."""

import glob
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "tool"))
from tool import ToolTest, read, write  # noqa: E402

program, step = os.path.abspath(sys.argv[1]), int(sys.argv[2])
realtime = "realtime" in sys.argv
clock = ("--cycle", "1ms", "--plot", "picture.svg") if realtime else ("--clock", "simulated")
inputs = [pathlib.Path(__file__).with_name("memory") / f"{name}.yaml" for name in ("machine", "motion")]


def is_whole(trace, whole):
    """In real time each trace has its own length."""
    head, *lines = trace.split("\n")
    return trace == whole or (realtime and head.startswith("time_ms,") and lines[-1:] == [""] and
                              lines[-2].count(",") == head.count(","))


class Memory(ToolTest):
    def attempt(self, number, extent):
        """One run, over an old trace: status, what it said, trace, preference file."""
        for name in ("trace.csv", "picture.svg"):
            write(name, "old")
        shutil.rmtree("made", ignore_errors=True)
        done = subprocess.run(
            [program, str(number), extent, "run", *inputs, *clock, "--pool", self.pool,
             "--trace", "trace.csv", "--export", "MainBoard=board.xml",
             "--directory", "made"], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            check=False)
        board = read("made/board.xml") if os.path.exists("made/board.xml") else None
        return done.returncode, done.stdout, read("trace.csv"), board

    def judge(self, attempt, whole):
        status, said, trace, board = attempt
        self.assertIn(status % 100 if status > 0 else status, (0, 1, 2), "the run broke off")
        if status % 100 > 0:
            self.assertIn("torvex: error: ", said)
            self.assertTrue(trace == "old" or is_whole(trace, whole[2]), "half a trace")
            self.assertIn(board, (None, whole[3]))
        else:
            self.assertTrue(is_whole(trace, whole[2]) and board == whole[3], "not all is written")
        picture = read("picture.svg")
        self.assertTrue(picture == "old" or "</svg>" in picture, "half a picture")
        left = glob.glob("**/*-part*", recursive=True)
        self.assertFalse(left or self.pool_exists(), left)

    def test_gives_out_at_every_allocation(self):
        whole, places = self.attempt(0, "once"), 0
        self.assertEqual(whole[0], 0, whole[1])
        self.assertTrue(whole[2] != "old" and whole[3])
        for extent in ("once", "on"):
            number, status = 1, 100
            while status >= 100:
                attempt = self.attempt(number, extent)
                with self.subTest(allocation=number, extent=extent, said=attempt[1]):
                    self.judge(attempt, whole)
                status, number = attempt[0], number + step
                places += status >= 100
            self.assertEqual(status, 0, "it fails with memory enough")
            self.assertGreater(number, 1000, "too few allocations")
        print(f"{places} places")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
