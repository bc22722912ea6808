#!/usr/bin/env python3
"""commanders.py [SECONDS] [SEED]: for so long (2) the command line, Python and curl send random batches, drawn
from SEED (1), to axes of their own, to each other's, and to one that nobody owns. Each point is accounted for,
and nothing moves that its owner did not command."""

import collections
import csv
import json
import random
import signal
import subprocess
import sys
import threading
import time
import unittest

from door_test import DoorTest
from tool import root, start, write

sys.path.insert(0, str(root / "python"))
import torvex  # noqa: E402

seconds, seed = (int(text) for text in (sys.argv[1:] + ["2", "1"][len(sys.argv) - 1:]))
# What its owner commands an axis to; others try what lies outside. Still axes are owned, and never commanded.
bands = {"play": (0, 0.2), "python": (0, 0.3), "curl": (0, 0.4), "free": (-0.4, 0.4), "still_python": (0, 0),
         "still_curl": (0, 0)}
own = {"python": "python", "curl": "curl", "line": "free"}


class Commanders(DoorTest):
    def setUp(self):
        super().setUp()
        write("m.yaml", "name: m\nactuators:\n" + "".join(
            f"- {{name: {axis}, minimum: -1, maximum: 1, maximum_velocity: 8}}\n" for axis in bands))
        self.sent, self.refused, self.answers = collections.Counter(), collections.Counter(), {}
        self.lock, self.end = threading.Lock(), time.monotonic() + seconds
        self.together = threading.Barrier(len(own))

    def note(self, batches, answer, reason, isForeign):
        """What a client asked for, and was answered."""
        self.assertIn(reason, ("owned",) if isForeign else ("", "too_fast"))
        with self.lock:
            for batch in batches:
                self.sent[batch["key"][:-6]] += len(batch["items"])
                self.refused[batch["key"][:-6]] += len(batch["items"]) if reason else 0
            if answer:
                self.answers[answer["request"]] = sum(axis["points"] for batch in answer["batches"]
                                                      for axis in batch["axes"])

    def drawn(self, draw, client, most=3):
        """Batches; whether they are for axes of others, too."""
        axes = [own[client]] + draw.sample([axis for axis in bands if axis != "still_" + client], draw.choice((0, 0, 1, 2)))
        axes = [draw.choice(axes) for _ in range(draw.randint(1, most))]
        batches = []
        for axis in axes:
            low, high = bands[axis] if axis == own[client] else (-1, 1)
            times = sorted(draw.sample(range(500), draw.randint(1, 6)))
            batches.append({"key": axis + "/Value", "mode": draw.choice(("merge", "replace", "clear_after", "clear_before")),
                            "items": [{"time": t / 1000, "value": round(draw.uniform(low, high), 4)} for t in times]})
        return batches, any(axis != own[client] for axis in axes)

    def python(self, draw):
        with torvex.connect("m").command(["python", "still_python"], name="python") as commander:
            self.together.wait()
            while time.monotonic() < self.end:
                batches, isForeign = self.drawn(draw, "python")
                try:
                    taken = commander.batches(batches)
                    answer = {"request": taken.request, "batches": taken.batches}
                    self.note(batches, answer, "", isForeign)
                except torvex.Refused as refused:
                    self.note(batches, None, refused.reason, isForeign)
            self.together.wait()

    def curl_to(self, path, body):
        said = subprocess.run(["curl", "-sS", "--unix-socket", self.path, "http://localhost/v1/" + path, "-d", json.dumps(body),
                               "-H", "Content-Type: application/json"], capture_output=True, check=True).stdout
        return json.loads(said)

    def curl(self, draw):
        owner = self.curl_to("commanders", {"name": "curl", "axes": ["curl", "still_curl"], "lease_ms": 1000 * seconds + 60000})
        self.together.wait()
        while time.monotonic() < self.end:
            batches, isForeign = self.drawn(draw, "curl")
            answer = self.curl_to("batches", {"batches": batches, "commander": owner["key"]})
            error = answer.get("error")
            self.note(batches, None if error else answer, error["reason"] if error else "", isForeign)
        self.together.wait()

    def line(self, draw):
        self.together.wait()
        while time.monotonic() < self.end:
            batches, isForeign = self.drawn(draw, "line", most=1)
            batch = batches[0]
            process = start("send", batch["key"], *(f"{item['value']}@{item['time']}" for item in batch["items"]),
                            "--mode", batch["mode"])
            said = process.communicate()[0]
            reason = "" if process.returncode == 0 else "owned" if "belongs to" in said else "too_fast"
            self.note(batches, None, reason, isForeign)
        self.together.wait()

    def test_account_for_every_point(self):
        draw, faults = random.Random(seed), []

        def guarded(client):
            try:
                getattr(self, client)(random.Random(f"{seed}{client}"))
            except BaseException as error:
                faults.append(error)
                self.together.abort()

        with self.served("--guard", "off", "--trace", "t.csv"):
            machine, events = torvex.connect("m"), []
            listener = threading.Thread(target=lambda: events.extend(machine.events(since=0)))
            listener.start()
            points = [{"time": 0.05 * i, "value": round(draw.uniform(*bands["play"]), 3)} for i in range(1, 40 * seconds + 100)]
            play = start("play", write("play.yaml", json.dumps({"batches": [{"at": 0, "key": "play/Value", "items": points}]})))
            while machine.axes()["play"].owner is None:
                pass
            clients = [threading.Thread(target=guarded, args=(client,)) for client in own]
            for client in clients:
                client.start()
            for client in clients:
                client.join()
            play.send_signal(signal.SIGINT)
            play.communicate()
            while any(axis.waiting for axis in machine.axes().values()):
                pass
            axes = machine.axes()
        listener.join()
        for fault in faults:
            raise fault
        self.sent["play"] += len(points)
        self.check_sums(axes, events)
        self.check_paths()
        print(f"{sum(self.sent.values())} points, {sum(self.refused.values())} of them refused; {len(events)} events")

    def check_sums(self, axes, events):
        kinds = ("reached", "cleared", "refused")
        self.assertEqual([event.number for event in events[1:]], [*range(len(events) - 1)])
        of_axis, of_request = collections.Counter(), collections.Counter()
        for event in events[1:]:
            if event.kind in kinds:
                of_axis[event.kind == "refused" or event.key.split("/")[2], event.kind] += event.count
                of_request[event.request] += event.count
        for name, axis in axes.items():
            counts = axis.counts
            self.assertEqual((counts["points"], counts["refused"]), (self.sent[name], self.refused[name]), name)
            self.assertEqual([counts[kind] for kind in kinds[:2]], [of_axis[name, kind] for kind in kinds[:2]], name)
            self.assertEqual(counts["points"], sum(counts[kind] for kind in kinds), name)
        self.assertEqual(of_axis[True, "refused"], sum(self.refused.values()))
        for request, points in self.answers.items():
            self.assertEqual(of_request[request], points, request)

    def check_paths(self):
        with open("t.csv", encoding="utf-8", newline="") as file:
            rows = list(csv.DictReader(file))
        for axis, (low, high) in bands.items():
            values = [float(row[axis + "/command"]) for row in rows]
            self.assertTrue(low - 1e-5 <= min(values) and max(values) <= high + 1e-5, axis)
            self.assertEqual(min(values) < max(values), low < high, axis)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
