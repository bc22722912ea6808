#!/usr/bin/env python3
"""kill.py [COUNT] [SEED]: kills the tool COUNT (8) times at random moments, drawn from SEED (1).
Its files are then old ones or new ones, and the next run works. Half as often it kills a machine that is
served, under load: its clients say so, and the next one is there at once."""

import glob
import os
import random
import sys
import threading
import time
import unittest

from door_test import DoorTest
from tool import ToolTest, read, root, start, write

sys.path.insert(0, str(root / "python"))
import torvex  # noqa: E402

count, seed = (int(text) for text in (sys.argv[1:] + ["8", "1"][len(sys.argv) - 1:]))
files = ("t.csv", "p.svg", "p.xml")


class Kill(ToolTest):
    def setUp(self):
        super().setUp()
        preferences = "".join(f"- {{owner: a, name: /{i}, type: 8, value: x}}\n" for i in range(300))
        write("machine.yaml", "actuators: [{name: a}]\npreferences:\n" + preferences)
        write("motion.yaml", "joint_names: [a]\npoints:\n- {positions: [0], time_from_start: 0}\n"
              "- {positions: [7], time_from_start: 30}\n")
        self.run_command = ("run", "machine.yaml", "motion.yaml", "--clock", "simulated", "--cycle",
                            "1ms", "--pool", self.pool, "--trace", "t.csv", "--plot", "p.svg",
                            "--export", "a=p.xml", "--directory", ".")

    def expect_recovery(self, whole):
        """The next run replaces what was left behind, says so, and leaves nothing itself."""
        leftover = self.pool_exists()
        said = self.said(0, *self.run_command)
        self.assertTrue(not leftover or "a killed process left" in said, said)
        self.assertEqual([read(file) for file in files], whole)
        self.assertFalse(self.pool_exists() or glob.glob("*.torvex-part*"))

    def test_leaves_old_files_or_new_ones(self):
        began = time.monotonic()
        self.said(0, *self.run_command)
        duration = time.monotonic() - began
        whole, new, draw = [read(file) for file in files], 0, random.Random(seed)
        for number in range(count):
            for file in files:
                write(file, "old")
            exports = draw.random() < 0.25
            process = start(*(("export", "machine.yaml", "a", "p.xml", "--directory", ".") if exports
                              else self.run_command))
            time.sleep(draw.uniform(0, duration / 8 if exports else duration))
            process.kill()
            said = process.communicate()[0]
            with self.subTest(seed=seed, kill=number, said=said):
                self.assertIn(process.returncode, (-9, 0))
                for file, content in zip(files, whole):
                    new += read(file) == content
                    self.assertIn(read(file), ("old", content), file)
                if draw.random() < 0.5:
                    self.expect_recovery(whole)
        self.expect_recovery(whole)
        print(f"kills: {count}; {new} files were new, all others old")


class KillServed(DoorTest):
    def listen(self, machine):
        with machine.events() as events:
            list(events)

    def command(self, machine):
        while True:
            machine.send("a", [(0.5, 0.1), (1, 0.2)])

    def load(self, use, said):
        """What a client says in the end."""
        try:
            use(torvex.connect("m"))
        except torvex.TorvexError as error:
            said.append(error)

    def test_is_served_again_at_once(self):
        draw = random.Random(seed)
        for number in range(count // 2):
            starting = start("serve", "m.yaml", "--pool", self.pool)
            time.sleep(draw.uniform(0, 0.05))
            starting.kill()
            starting.communicate()
            said, uses = [], (self.command, self.command, self.listen)
            clients = [threading.Thread(target=self.load, args=(use, said)) for use in uses]
            with self.subTest(seed=seed, kill=number), self.served() as process:
                for client in clients:
                    client.start()
                time.sleep(draw.uniform(0, 0.3))
                process.kill()
                for client in clients:
                    client.join()
            for error in said:
                self.assertIsInstance(error, (torvex.ConnectionLost, torvex.NotRunning))
            self.assertEqual(len(said), len(uses))
        with self.served():
            self.assertEqual(torvex.connect("m")["a/Value"], 0)
        self.assertEqual(os.listdir("torvex"), [])
        self.assertFalse(self.pool_exists())


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
