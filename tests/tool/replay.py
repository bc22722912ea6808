#!/usr/bin/env python3
"""replay.py [RUNS] [SEED]: so many machines (3) live in real time under three commanders that are drawn from SEED (1),
who send, hold, release, stop and come back; some of the processes are stopped meanwhile. A replay of each recording
has the same trace, to the bit."""

import os
import random
import signal
import sys
import threading
import time
import unittest

from door_test import DoorTest
from tool import read, write

runs, seed = (int(text) for text in (sys.argv[1:] + ["3", "1"][len(sys.argv) - 1:]))
machine = """
name: m
maximum_acceleration: 20
actuators:
- {name: a, minimum: -1, maximum: 1, maximum_velocity: 8}
- {name: b, minimum: -1, maximum: 1, maximum_velocity: 8}
- {name: c, minimum: -1, maximum: 1, maximum_velocity: 3}
- {name: d, type: 2, minimum: 0, maximum: 99}
- {name: e, minimum: -1, maximum: 1, maximum_velocity: 8}
sensors:
- {name: a/Sensor, actuator: a}
- {name: e/Sensor, actuator: e, multiplier: 0.5}
"""
# Of the commanders, and the axis that nobody owns.
axes = {"one": ["a", "d"], "two": ["b"], "three": ["c"]}


class Replay(DoorTest):
    def setUp(self):
        super().setUp()
        write("m.yaml", machine)

    def batch(self, draw, axis):
        if axis == "d":
            items = [{"time": t / 1000, "value": draw.randint(0, 99)} for t in sorted(draw.sample(range(400), 3))]
        else:
            items = [{"time": t / 1000, "value": draw.uniform(-1.1, 1.1)}
                     for t in sorted(draw.sample(range(400), draw.randint(1, 40)))]
            for item in items if draw.random() < 0.3 else []:
                item["velocity"] = draw.uniform(-3, 3)
        batch = {"key": axis + "/Value", "items": items,
                 "mode": draw.choice(("merge", "replace", "clear_after", "clear_before"))}
        if draw.random() < 0.3:
            batch["interpolation"] = "smooth"
        if draw.random() < 0.1:
            batch["at"] = draw.uniform(0, 1)
        return batch

    def command(self, draw, name, end):
        def register():
            # A short lease runs out now and then.
            body = {"name": name, "axes": axes[name], "lease_ms": draw.choice((60, 5000)),
                    "on_loss": draw.choice(("stop", "run_out")), "priority": draw.randint(0, 3)}
            return self.asked("POST", "/v1/commanders", body)[1].get("key")

        key = register()
        while time.monotonic() < end:
            if key is None:
                key = register()
            what = draw.random()
            if what < 0.05:
                self.asked("POST", "/v1/hold", {"axes": draw.choice((axes[name], "all"))})
            elif what < 0.2:
                self.asked("POST", "/v1/release", {"axes": "all"})
            elif what < 0.25:
                self.asked("POST", "/v1/batches", {"batches": [{"stop": axes[name]}], "commander": key})
            else:
                wanted = axes[name] if draw.random() < 0.7 else ["e"]
                body = {"batches": [self.batch(draw, axis) for axis in wanted]}
                answer = self.asked("POST", "/v1/batches", {**body, "commander": key} if wanted[0] != "e" else body)
                if answer[1].get("error", {}).get("reason") == "unknown":
                    key = None
            time.sleep(draw.choice((0, 0, 0.01, 0.04)))

    def live(self, draw):
        """A machine that is recorded while three command it."""
        options = ["--cycle", draw.choice(("2ms", "5ms", "10ms", "20ms")), "--late", draw.choice(("stand", "catch-up")),
                   "--guard", draw.choice(("hold", "warn", "off"))]
        with self.served("--record", "r.mcap", "--trace", "t.csv", "--no-strict", *options) as process:
            end = time.monotonic() + 0.7
            clients = [threading.Thread(target=self.command, args=(random.Random(draw.random()), name, end))
                       for name in axes]
            for client in clients:
                client.start()
            while draw.random() < 0.6:
                time.sleep(draw.uniform(0, 0.3))
                process.send_signal(signal.SIGSTOP)
                time.sleep(draw.uniform(0, 0.3))
                process.send_signal(signal.SIGCONT)
            for client in clients:
                client.join()
        return options

    def test_does_the_same_again(self):
        draw, cycles, kinds = random.Random(seed), 0, {}
        for run in range(runs):
            options = self.live(draw)
            result, _ = self.document(0, "replay", "r.mcap", "--trace", "again.csv")
            self.assertEqual(read("again.csv"), read("t.csv"), (run, options))
            cycles += result["compared"]
            for kind, count in self.document(0, "info", "r.mcap")[0]["events"].items():
                kinds[kind] = kinds.get(kind, 0) + count
            os.remove("r.mcap")
        for kind in ("taken", "cleared", "registered"):
            self.assertGreater(kinds[kind], 0)
        print(f"{runs} runs, {cycles} cycles, events: {kinds}")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
