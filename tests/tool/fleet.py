#!/usr/bin/env python3
"""fleet.py [STARTS] [apart]: two machines play as one: STARTS (5) common starts within one cycle; refused, cancelled,
held and stopped together. With "apart" the clocks of the second are 100,000 s ahead, for which it needs root."""

import contextlib
import csv
import functools
import os
import queue
import re
import signal
import socket
import subprocess
import sys
import threading
import time
import unittest

from door_test import BySocket, DoorTest, free_port
from tool import start, tool, write

starts = int((sys.argv[1:] + ["5"])[0])
ahead_ns = 100_000 * 10**9 if "apart" in sys.argv else 0
cycle_ns = 10**7


@contextlib.contextmanager
def hold_ups():
    """Yields a list with the longest time, in seconds, that this computer kept a thread from its turn meanwhile."""
    longest, over = [0.0], threading.Event()

    def watch():
        before = time.monotonic()
        while not over.wait(0.005):
            longest[0], before = max(longest[0], time.monotonic() - before - 0.005), time.monotonic()

    watcher = threading.Thread(target=watch)
    watcher.start()
    try:
        yield longest
    finally:
        over.set()
        watcher.join()


def repeated_when_held_up(test):
    """The times of this test are met by a computer that lets threads run: another try, twice at most, where it did not."""
    @functools.wraps(test)
    def tried(self):
        for left in (2, 1, 0):
            with hold_ups() as longest:
                try:
                    return test(self)
                except AssertionError as error:
                    if left == 0 or longest[0] < 0.03:
                        raise
                    print(f"again, threads waited for up to {longest[0] * 1000:.0f} ms: {error}")
        return None
    return tried


class Relay:
    """Between a client and the socket of a machine: what the machine says comes later, or, once cut, never."""

    def __init__(self, path, target, delay):
        self.target, self.delay, self.cut = target, delay, threading.Event()
        self.listening = socket.socket(socket.AF_UNIX)
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        self.listening.bind(path)
        self.listening.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            with contextlib.suppress(OSError):
                client, _ = self.listening.accept()
                machine = socket.socket(socket.AF_UNIX)
                machine.connect(self.target)
                for source, sink, delay in ((client, machine, 0), (machine, client, self.delay)):
                    waiting = queue.Queue()
                    threading.Thread(target=self.receive, args=(source, waiting, delay), daemon=True).start()
                    threading.Thread(target=self.send, args=(waiting, sink), daemon=True).start()

    def receive(self, source, waiting, delay):
        data = b"x"
        while data:
            try:
                data = source.recv(65536)
            except OSError:
                data = b""
            waiting.put((time.monotonic() + delay, data))

    def send(self, waiting, sink):
        while True:
            due, data = waiting.get()
            time.sleep(max(0, due - time.monotonic()))
            with contextlib.suppress(OSError):
                if self.cut.is_set():
                    continue
                sink.sendall(data) if data else sink.shutdown(socket.SHUT_WR)


class Fleet(DoorTest):
    def setUp(self):
        super().setUp()
        for name in "ab":
            write(name + ".yaml", f"name: {name}\nactuators: [{{name: x, minimum: -1, maximum: 1, maximum_velocity: 2}}]\n")
        for name, value, seconds in (("up", 0.1, 0.1), ("down", 0, 0.1), ("long", 1, 20)):
            write(name + ".yaml", f"batches: [{{at: 0, key: x/Value, items: [{{time: {seconds}, value: {value}}}]}}]\n")
        write("slow.yaml", "machines: [{name: a}, {name: b, socket: slow.sock}]\n")
        write("cut.yaml", "machines: [{name: a, axes: [x]}, {name: b, socket: cut.sock}]\nall_or_none: true\n")

    @contextlib.contextmanager
    def fleet(self):
        port, processes = free_port(), {}
        write("fleet.yaml", f"machines:\n- {{name: a, tcp: '127.0.0.1:{port}', token_file: torvex/a.token}}\n"
              "- {name: b, motions: [up.yaml]}\n")
        apart = ["unshare", "--time", "--monotonic", "100000", "--boottime", "100000"] if ahead_ns else []
        try:
            for name, more, before in (("a", ["--http", str(port)], []), ("b", [], apart)):
                processes[name] = subprocess.Popen(
                    [*before, tool, "serve", name + ".yaml", "--pool", self.pool + name, "--trace", name + ".csv", *more],
                    text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
                while f"{name}.sock" not in processes[name].stdout.readline():
                    self.assertIsNone(processes[name].poll())
            yield processes
        finally:
            for process in processes.values():
                process.send_signal(signal.SIGTERM)
                process.communicate()

    def of(self, name, target):
        return self.asked("GET", target, connection=BySocket(f"torvex/{name}.sock"))[1]

    def axis(self, name):
        return self.of(name, "/v1/machine")["axes"][0]

    def until(self, holds):
        for _ in range(3000):
            if holds():
                return
            time.sleep(0.01)
        self.fail("not within 30 s")

    def played(self, motion):
        """The output of a common start. One that was cancelled, since a machine came late, is tried again."""
        for _ in range(10):
            process = start("fleet", "play", "fleet.yaml", motion)
            said = process.communicate()[0]
            if process.returncode == 0:
                return said
            self.assertRegex(said, "stood still|is paused|was paused|not answered|in time|arrived after|its lease ended|cleared")
        self.fail("ten starts were cancelled: " + said)

    def moment(self, process):
        """At which a common start is to be, in machine time of the first one."""
        said = process.stdout.readline()
        self.assertRegex(said, "a at [0-9.]+ s")
        return 1000 * float(re.search(r"a at ([\d.]+) s", said)[1])

    def moments(self, name):
        """When the register began to move, on this computer's clock less where machine time was 0."""
        with open(name + ".csv", encoding="utf-8", newline="") as file:
            rows = [(int(float(row["time_ms"])), row["x/command"]) for row in csv.DictReader(file)]
        values = [value for _, value in rows]
        return {ms for i, (ms, value) in enumerate(rows) if i > 1 and value != values[i - 1] and values[i - 1] == values[i - 2]}

    @repeated_when_held_up
    def test_begins_together_or_not_at_all(self):
        begun = []
        with self.fleet() as processes:
            for i in range(starts):
                said = self.played(("up.yaml", "down.yaml")[i % 2])
                at = dict(re.findall(r"(\w) at ([\d.]+) s", said))
                zeros = {name: self.of(name, "/v1/clock")["machine_zero_ns"] for name in "ab"}
                within = cycle_ns if "skipped" in said else 10**6 * float(re.search(r"at most ([\d.]+) ms apart", said)[1])
                begun.append((zeros, {name: 1000 * float(at[name]) for name in "ab"}, within))
            listed = self.said(0, "fleet", "ps", "fleet.yaml")
            ahead, bound = map(float, re.search(r"(?m)^b +ok .* ([-\d.]+) +([\d.]+) +/", listed).groups())
            self.assertLessEqual(abs(ahead - ahead_ns / 1e9), bound / 1e3 + 1e-6)
            self.refuses_a_clock_that_is_not_known()
            self.cancels_when_one_is_out(processes["b"])
            self.says_what_the_machines_warn_of()
            self.stops_all()
            self.holds_the_others_when_one_is_lost()
        moments, apart = {name: self.moments(name) for name in "ab"}, []
        for zeros, at, within in begun:
            first = {name: min(ms for ms in moments[name] if ms >= at[name]) for name in "ab"}
            self.assertLess(max(first[name] - at[name] for name in "ab"), 20)  # the approach is one cycle
            apart.append(abs(zeros["a"] + first["a"] * 10**6 - (zeros["b"] - ahead_ns + first["b"] * 10**6)))
            self.assertLessEqual(apart[-1], within)
        print(f"{starts} common starts, at most {max(apart) / 1e6:.3f} ms apart, {sum(apart) / starts / 1e6:.3f} ms at the mean; "
              f"b is ahead by {ahead} s, known to within {bound} ms")

    def refuses_a_clock_that_is_not_known(self):
        Relay("slow.sock", "torvex/b.sock", 0.05)
        before = {name: self.axis(name)["counts"] for name in "ab"}
        said = self.said(1, "fleet", "play", "slow.yaml", "up.yaml")
        bound, = re.search(r"b: its clock is known only to within ([\d.]+) ms", said).groups()
        self.assertGreaterEqual(float(bound), 25)
        self.assertEqual({name: self.axis(name)["counts"] for name in "ab"}, before)
        print("50 ms of delay on one side:", said.splitlines()[0])

    def cancels_when_one_is_out(self, machine):
        """Stopped or held before the start; or cut off so late that the end of its lease alone keeps it from beginning."""
        relay = Relay("cut.sock", "torvex/b.sock", 0)
        for fleet, before_ms, out, fault, end in (
                ("fleet.yaml", 2000, lambda: machine.send_signal(signal.SIGSTOP), "b: it has not answered for",
                 "b: has not answered the cancellation.*nothing begins on the other"),
                ("fleet.yaml", 2000, lambda: self.said(0, "hold", "--machine", "b"), "b: 1 point cleared.*hold", "cancelled on all machines"),
                ("cut.yaml", 250, relay.cut.set, "b: (it has not answered for|did not answer in time)",
                 "b: has not answered the cancellation")):
            for _ in range(5):
                relay.cut.clear()
                before = {name: self.axis(name)["counts"] for name in "ab"}
                process = start("fleet", "play", fleet, "long.yaml", "--at", "3")
                at = self.moment(process)
                self.until(lambda: self.of("a", "/v1/clock")["machine_ms"] >= at - before_ms)
                out()
                said = process.communicate()[0]
                machine.send_signal(signal.SIGCONT)
                self.said(0, "release", "--machine", "b")
                if not re.match("torvex: error: a: (it|1 point cleared|did not answer)", said):
                    break  # else the computer was too busy
            self.assertEqual(process.returncode, 1, said)
            self.assertRegex(said, f"(?s){fault}.*{end}")
            for name in "ab":
                self.until(lambda: self.axis(name)["owner"] is None)
                counts = self.axis(name)["counts"]
                self.assertEqual([counts[kind] - before[name][kind] for kind in ("points", "cleared", "reached")], [1, 1, 0], name)
            print("one is out before the start:", said.splitlines()[0])

    def says_what_the_machines_warn_of(self):
        write("steep.yaml", "batches: [{at: 0, key: x/Value, items: [{time: 0.1, value: 1}]}, "
              "{at: 1, trajectory_file: noted.yaml}]")
        write("noted.yaml", "{joint_names: [x], points: [{positions: [1], effort: [1], time_from_start: 1}]}")
        said = self.said(1, "fleet", "play", "fleet.yaml", "steep.yaml", "--at", "0.001")
        for name in "ab":
            self.assertRegex(said, f"steep.yaml:1:[0-9]+: warning: {name}: x moves [0-9.]+ a second .* above its limit 2")
            self.assertIn(f"note: {name}: noted.yaml: the key effort is ignored", said)
        self.assertIn("--at must be at least", said)

    def stops_all(self):
        process = start("fleet", "play", "fleet.yaml", "a=long.yaml", "b=long.yaml")
        self.until(lambda: all(self.axis(name)["target"] == 1 for name in "ab"))
        process.send_signal(signal.SIGINT)
        self.assertIn("ramp to rest", process.communicate()[0])
        self.assertEqual(process.returncode, 130)
        self.assertEqual([self.axis(name)["owner"] for name in "ab"], [None, None])

    def holds_the_others_when_one_is_lost(self):
        for after_ms, fault in ((0, "b: (has not answered for .* since before the start|lost)"), (500, "b: lost")):
            relay = Relay("cut.sock", "torvex/b.sock", 0)
            process = start("fleet", "play", "cut.yaml", "long.yaml")
            at = self.moment(process)
            self.until(lambda: self.of("a", "/v1/clock")["machine_ms"] >= at + after_ms)
            relay.cut.set()
            said = process.communicate()[0]
            self.assertEqual(process.returncode, 1, said)
            self.assertRegex(said, f"(?s){fault}.*\na: held until")
            self.until(lambda: self.axis("b")["waiting"] == 0)
            self.assertEqual((self.axis("a")["held"], self.axis("b")["held"]), ("hold", None))
            self.assertIn("a: released: 1 actuator", self.said(0, "fleet", "release", "fleet.yaml"))
            self.assertIn("b: stopped", self.said(0, "fleet", "stop", "fleet.yaml"))

    def test_says_what_is_wrong_in_the_file(self):
        for line, fault in (("- {name: a, tcp: 'x:9', token_file: t}", "2:18: error: tcp must be an IP address"),
                            ("- {name: a, tcp: '127.0.0.1:9'}", "2:3: error: tcp needs token_file"),
                            ("- {name: a, tcp: '::1:9', token_file: t}", "2:18: error: tcp must be an IP address"),
                            ("- {name: a, tcp: '127.0.0.1:9', token_file: t}", "2:45: error: the token file 't' cannot be read"),
                            (f"- {{name: a, socket: {'s' * 120}}}", "2:3: error: the path of its socket has 120"),
                            ("- {name: a}\n- {name: b, socket: torvex/a.sock}\n- {name: c, socket: torvex/a.sock}",
                             "4:3: error: 'b' and 'c' are the same machine"),
                            ("- {name: a/b}", "2:10: error: the name of a machine"),
                            ("- {name: a}\n- {name: a}", "3:10: error: a second machine is named 'a'"),
                            ("- {socket: x}", "2:3: error: the key 'name' is missing"),
                            ("- {name: a}\nall: 1", "3:1: error: unknown key 'all'")):
            self.assertIn("bad.yaml:" + fault, self.said(2, "fleet", "ps", write("bad.yaml", "machines:\n" + line + "\n")))
        for arguments, fault in ((["pss"], "did you mean 'ps'"), (["ps", "m"], "for 'fleet play'"),
                                 (["play"], "there is nothing to play"), (["play", "c=m"], "no machine 'c'"),
                                 (["hold", "--at", "5"], "for 'fleet play'"), (["hold", "--json"], "for 'fleet ps'")):
            write("good.yaml", "machines: [{name: a}]\n")
            self.assertIn(fault, self.said(2, "fleet", arguments[0], "good.yaml", *arguments[1:]))
        self.assertIn('"state": "no answer"', self.said(1, "fleet", "ps", "good.yaml", "--json"))
        self.assertIn("torvex: error: a: no machine answers", self.said(1, "fleet", "hold", "good.yaml"))


if __name__ == "__main__":
    if ahead_ns and os.geteuid() != 0:
        print("skipped: the clocks of a time namespace need root")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
