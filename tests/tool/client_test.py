#!/usr/bin/env python3
"""Clients of a running machine: the tool's subcommands, and the Python package."""

import http.client
import itertools
import os
import signal
import subprocess
import sys
import time
import unittest
import unittest.mock

from door_test import DoorTest, WebSocket, BySocket
from tool import read, root, start, write

sys.path.insert(0, str(root / "python"))
import torvex  # noqa: E402

swing = """
batches:
- {at: 0, key: a/Value, items: [{time: 0.3, value: 0.3}, {time: 3, value: -0.3}]}
- {at: 0.1, trajectory_file: b.yaml}
"""
side = "{joint_names: [b], points: [{positions: [0.2], velocities: [0.1], time_from_start: 0.4}]}"


# Registers, and commands an axis without end; or, told to, sends half a request and nothing more.
owner = """
import socket, sys
from torvex.door import Door, socket_of
door, lease_ms, isCut = Door("m"), int(sys.argv[1]), sys.argv[2] == "cut"
commander = door.ask("POST", "/v1/commanders", {"name": "lost", "axes": ["a"], "lease_ms": lease_ms})["key"]
print("owns", flush=True)
for i in range(30 if isCut else 10 ** 6):
    item = {"time": 60 if i == 0 else 90, "value": 60}
    door.ask("POST", "/v1/batches", {"commander": commander, "batches": [{"key": "a/Value", "items": [item]}]})
with socket.socket(socket.AF_UNIX) as half:
    half.connect(socket_of("m"))
    half.sendall(b"POST /v1/batches HTTP/1.1\\r\\nContent-Length: 99\\r\\n\\r\\n{")
    half.recv(1)
"""


class Client(DoorTest):
    def refused(self, reason, call, *arguments, **options):
        with self.assertRaises(torvex.Refused) as context:
            call(*arguments, **options)
        self.assertEqual(context.exception.reason, reason, context.exception)
        return context.exception

    def test_says_when_nothing_runs(self):
        self.assertIn("no machine runs", self.said(0, "ps"))
        for command in (["get", "a/Value"], ["hold"], ["events"], ["send", "a/Value", "1@1"]):
            self.assertIn("no machine runs", self.said(2, *command))
        with self.assertRaisesRegex(torvex.NotRunning, "no machine 'm' runs"):
            torvex.connect("m")

    def test_commands_from_the_command_line(self):
        with self.served():
            self.assertRegex(self.said(0, "ps"), r"m +\d+ .* 3 +runs +-")
            self.assertIn("taken: 2 points", self.said(0, "send", "a", "0.1@0.1", "0.2@0.3"))
            for wrong, *command in (("7@9: ", "send", "a", "7@9"), ("7: error: is not VALUE@SECONDS", "send", "a", "7"),
                                    ("a/Value: error: there is no such file", "send", "a/Value"),
                                    ("n: ", "stop", "a", "n"), ("n: ", "hold", "n"), ("--since: ", "events", "--since", "999")):
                self.assertTrue(self.said(2, *command).replace("torvex: error: ", "").startswith(wrong), command)
            self.assertIn("taken", self.said(0, "set", "s/Value", 4))
            self.assertIn("use 'torvex send", self.said(2, "set", "a/Value", 0.5))
            machine = torvex.connect("m")
            self.comes_to_rest(machine)
            self.assertEqual(self.said(0, "get", "a"), "0.2\n")
            self.assertEqual(self.said(0, "get", "--keys", "--actuators", "*"), "a/Value\nb/Value\ns/Value\n")
            self.assertEqual(self.said(0, "release"), "nothing was held\n")
            self.assertEqual(self.said(0, "get", "s/Value", "b/Value").split()[1::2], ["4", "0"])
            self.assertIn("did you mean 'a/Value'", self.said(2, "get", "a/Valu"))
            self.assertIn("held: 3 actuators", self.said(0, "hold"))
            self.assertIn("held", self.said(1, "send", "a/Value", "0@1"))
            self.assertIn("released: 1 actuator", self.said(0, "release", "a"))
            self.said(0, "send", "a/Value", "0@1")
            self.said(1, "send", "b/Value", "0@1")
            events = self.said(0, "events", "--once")
            for kind in ("taken", "reached", "held", "released"):
                self.assertRegex(events, rf"\n +\d+ +[\d.]+ {kind} ")

    def test_plays_motions_to_their_end_or_to_rest(self):
        write("m.motion.yaml", swing)
        write("b.yaml", side)
        with self.served():
            machine = torvex.connect("m")
            said = self.said(0, "play", "m.motion.yaml")
            self.assertIn("reached: 3 of 3 points", said)
            self.assertRegex(said, "^b.yaml:1:[0-9]+: warning: b has a velocity of 0.1 at the last point")
            self.assertAlmostEqual(machine["a/Value"], -0.3, 5)
            self.assertIn("bad.yaml:1:10: error: batches must", self.said(2, "play", write("bad.yaml", "batches: {}")))
            for ending in (signal.SIGINT, signal.SIGKILL):
                process = start("play", "m.motion.yaml")
                while not machine.axes()["a"].waiting:
                    time.sleep(0.01)
                begin = machine.health()["machine_ms"]
                while machine.health()["machine_ms"] < begin + 400:
                    time.sleep(0.01)
                self.refused("owned", machine.send, "a", [(1, 0)])
                process.send_signal(ending)
                process.communicate()
                self.comes_to_rest(machine)
                self.assertGreater(machine["a/Value"], -0.29, "it went on to its end")
                self.assertEqual(process.returncode, 130 if ending == signal.SIGINT else -9)

    def test_owns_axes_while_the_block_makes_progress(self):
        with self.served("--guard", "off"):
            machine = torvex.connect("m")
            with machine.command(["a"], lease=0.3) as commander:
                taken = commander.send("a", [(0.1, 0.1), (0.4, 0.2)])
                self.assertEqual((taken.points, taken.late, taken.limited), (2, 0, 0))
                self.refused("owned", machine.send, "a", [(1, 0)])
                self.refused("owned", machine.command(["a"]).__enter__)
                outcome = commander.wait()
                self.assertEqual((outcome.points, outcome.reached), (2, 2))
                commander.send("a", [(5, -0.8)])
                time.sleep(1)  # hangs for more than its lease
                self.refused("unknown", commander.alive)
                self.comes_to_rest(machine, seconds=2)
            machine.send("a", [(0.2, 0.1)], mode="replace")

    def test_holds_and_listens(self):
        with self.served():
            machine = torvex.connect("m")
            events = machine.events()
            self.assertEqual(next(events).kind, "begins")
            machine.send("b", [(0.1, 0.1)])
            machine.hold("b")
            self.assertEqual(machine.axes()["b"].held, "hold")
            refused = self.refused("held", machine.send, "b", [(1, 0)])
            self.assertTrue(refused.key.endswith("/b/Value"))
            machine.release()
            self.assertEqual(self.refused("invalid", machine.send, "b", [(-1, 0)]).path,
                             "/batches/0/items/0/time")
            seen = [next(events).kind for _ in range(4)]
            self.assertIn("held", seen)
            with self.assertRaises(KeyError):
                machine["none"]

    def test_loses_no_interrupt(self):
        freed, close = [], http.client.HTTPResponse.close

        def noted(response):  # an interrupt that comes while Python frees it is dropped
            freed.append(getattr(response, "_finalizing", False))
            close(response)

        with self.served(), unittest.mock.patch("http.client.HTTPResponse.close", noted):
            machine = torvex.connect("m")
            with machine.command(["a"], lease=20) as commander:
                commander.send("a", [(0.1, 0.1)])
                commander.wait()
                with unittest.mock.patch("http.client.HTTPConnection.getresponse", side_effect=KeyboardInterrupt):
                    self.assertRaises(KeyboardInterrupt, commander.values)
            self.assertIsNone(machine.axes()["a"].owner)
        self.assertEqual(set(freed), {False})

    def ended_of_owner(self, machine, ending, lease_ms):
        """When its latest batch was taken and when its axis came to rest, in machine time; none where a cycle
        came late or was not seen."""
        paces = ("overruns", "stalls", "stands")
        before = machine.health()
        process = subprocess.Popen([sys.executable, "-c", owner, str(lease_ms), ending], stdout=subprocess.PIPE,
                                   env={**os.environ, "PYTHONPATH": str(root / "python")})
        self.assertEqual(process.stdout.readline(), b"owns\n")
        live = WebSocket(BySocket(self.path), "/v1/live?key=a/Value&rate=1000")
        first = last = changed = live.message()
        wasSeen = True
        while last["cycle"] < changed["cycle"] + 100 or changed is first:
            message = live.message()
            if message["values"] != last["values"]:
                wasSeen = changed is first or message["cycle"] == last["cycle"] + 1
                changed = message
            last = message
            if ending != "cut" and message["cycle"] == first["cycle"] + 60:
                process.send_signal(getattr(signal, ending))
        process.kill()
        process.communicate()
        if not wasSeen or any(machine.health()[pace] != before[pace] for pace in paces):
            return None
        with machine.events(since=0, follow=False) as events:
            told = list(events)
        self.assertEqual([event.reason for event in told if event.kind == "lost"][-1], "expired")
        return max(event.machine_ms for event in told if event.kind == "taken"), changed["machine_ms"]

    def test_stops_the_axes_of_a_lost_owner_in_real_time(self):
        write("m.yaml", "name: m\nactuators: [{name: a, minimum: -99, maximum: 99, maximum_velocity: 2, maximum_acceleration: 20}]\n")
        lease_ms, ramp_ms, cycle_ms = 300, 50, 10
        with self.served():
            machine = torvex.connect("m")
            for ending in ("SIGKILL", "SIGSTOP", "cut"):
                with self.subTest(ending=ending):
                    tries = iter(lambda: self.ended_of_owner(machine, ending, lease_ms), 0)
                    taken, rest = next(filter(None, itertools.islice(tries, 20)))
                    self.assertLessEqual(rest, taken + lease_ms + ramp_ms + 2 * cycle_ms)
                    self.assertGreater(rest, taken + lease_ms)

    def test_says_when_the_machine_is_gone(self):
        with self.served() as process:
            machine = torvex.connect("m")
            events = machine.events()
            process.kill()
            with self.assertRaises(torvex.ConnectionLost):
                list(events)
            with self.assertRaises(torvex.TorvexError):
                machine.health()
            process.wait()
        with self.served():
            self.assertEqual(machine["a/Value"], 0)

    def test_example_runs(self):
        environment = {**os.environ, "PYTHONPATH": str(root / "python")}
        machine = str(root / "examples/humanoid/humanoid.yaml")
        with self.served(machine=machine):
            nod = subprocess.Popen([sys.executable, root / "examples/python/nod.py", "humanoid"],
                                   env=environment, text=True, stdout=subprocess.PIPE)
            self.assertIn("is at", nod.stdout.readline())
            self.assertIn("3 of 3 points reached", nod.stdout.readline())
            nod.send_signal(signal.SIGINT)
            self.assertEqual(nod.wait(10), 0)


if __name__ == "__main__":
    unittest.main()
