#!/usr/bin/env python3
"""The bridge to ROS 2 and a plain program of DDS, each in a network namespace of its own, joined by
a pair of interfaces: no packet leaves them. wire.py [PERCENT of packets that get lost]"""

import contextlib
import json
import os
import pathlib
import queue
import re
import signal
import subprocess
import sys
import threading
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tool"))
from tool import ToolTest, tool, write  # noqa: E402

peer_program = os.environ.get("BRIDGE_PEER", "build/release/bridge_peer")
lost_percent = 0
endings = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)
ends_with_test = ("setpriv", "--pdeathsig", "KILL")
machine_text = """
name: m-1
actuators:
- {name: a, minimum: -1, maximum: 1, maximum_velocity: 2}
- {name: b, minimum: -1, maximum: 1, maximum_velocity: 2}
- {name: s, type: 2, minimum: 0, maximum: 9}
sensors:
- {name: a/Sensor, actuator: a}
"""


def fail(number, _):
    """On the first signal, after which all is cleaned up."""
    for ending in endings:
        signal.signal(ending, signal.SIG_IGN)
    sys.exit(128 + number)


class Namespaces:
    """Two of them, which end with this object."""

    def __enter__(self):
        self.holders = [subprocess.Popen([*ends_with_test, "unshare", "--net", "sh", "-c", "echo; exec sleep 600"],
                                         stdout=subprocess.PIPE) for _ in range(2)]
        for holder in self.holders:
            holder.stdout.readline()
        one, other = (str(holder.pid) for holder in self.holders)
        subprocess.run(["ip", "link", "add", "wire", "netns", one, "type", "veth", "peer", "name", "wire",
                        "netns", other], check=True)
        for number in range(2):
            self.run(number, f"ip link set lo up && ip addr add 10.77.0.{number + 1}/24 dev wire && ip link set wire up")
            if lost_percent:
                self.run(number, "nft add table inet t && nft add chain inet t i '{ type filter hook input priority 0; }'"
                         f" && nft add rule inet t i meta l4proto udp numgen random mod 100 '<' {lost_percent} drop")
        for number in range(2):  # they come up a little later
            self.run(number, "timeout 20 sh -c 'until ip link show wire | grep -q state.UP; do sleep 0.02; done'")
        return self

    def __exit__(self, *error):
        for holder in self.holders:
            holder.kill()
            holder.wait()
            holder.stdout.close()

    def inside(self, number, *command):
        return ["nsenter", f"--net=/proc/{self.holders[number].pid}/ns/net", *map(str, command)]

    def run(self, number, command):
        subprocess.run(self.inside(number, "sh", "-c", command), check=True)


class Listened:
    """A process whose lines are kept as they come."""

    def __init__(self, command):
        self.process = subprocess.Popen([*ends_with_test, *command], text=True, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.lines, self.said = queue.Queue(), []
        threading.Thread(target=self.listen, daemon=True).start()

    def listen(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))

    def tell(self, *words):
        self.process.stdin.write(" ".join(map(str, words)) + "\n")
        self.process.stdin.flush()

    def until(self, wanted, seconds=None):
        """The first line from now on that is wanted, and is then behind."""
        end = time.monotonic() + (seconds or (90 if lost_percent else 20))
        while True:
            try:
                line = self.lines.get(timeout=max(end - time.monotonic(), 0.001))
            except queue.Empty:
                raise AssertionError("not heard:\n" + "\n".join(self.said[-20:])) from None
            if not line.startswith(("measured", "commanded")):
                self.said.append(line)
            if wanted(line):
                return line

    def end(self, how=signal.SIGTERM):
        self.process.send_signal(how)
        self.process.wait(30)
        self.process.stdin.close()
        self.process.stdout.close()
        return self.process.returncode


def position(kind, joint, value):
    """Whether a line tells it."""
    def told(line):
        words = line.split()
        return words[:1] == [kind] and joint in words and abs(float(words[words.index(joint) + 1]) - value) < 1e-3
    return told


def event(kind, text=""):
    def told(line):
        return line.startswith("event ") and json.loads(line[6:])["kind"] == kind and text in line
    return told


class Wire(ToolTest):
    @contextlib.contextmanager
    def bridge(self, spaces, *options, how=signal.SIGTERM, interface="wire"):
        bridge = Listened(spaces.inside(0, tool, "bridge", "ros2", "m-1", "--interface", interface, "--horizon", 5,
                                        *options))
        try:
            yield bridge
        finally:
            self.assertEqual(bridge.end(how), -how if how == signal.SIGKILL else 128 + how)

    @contextlib.contextmanager
    def served(self, file="m.yaml"):
        machine = Listened([tool, "serve", file, "--pool", self.pool])
        try:
            machine.until(lambda line: ".sock" in line)
            yield
        finally:
            machine.end()

    def test_trajectories_come_in_and_states_go_out(self):
        os.environ["XDG_RUNTIME_DIR"] = os.getcwd()
        write("m.yaml", machine_text)
        with Namespaces() as spaces:
            peer = Listened(spaces.inside(1, peer_program, 0, "wire", "m_1"))
            self.addCleanup(peer.end)
            with self.bridge(spaces) as bridge:
                bridge.until(lambda line: "waits for the machine" in line)
                with self.bridge(spaces, "--topics", "events=", how=signal.SIGINT) as other:
                    for each, one in ((bridge, other), (other, bridge)):
                        each.until(lambda line, one=one: f"another bridge (process {one.process.pid} on " in line
                                   and "m_1/joint_trajectory" in line and "taken by both" in line
                                   and "events" not in line)
                with self.served():
                    peer.until(position("measured", "a", 0))
                    self.commands(peer, bridge)
                bridge.until(lambda line: "it has ended" in line)
                peer.tell(0, 0, "a", 1, 0, 0)
                peer.until(event("not_taken", "does not run"))
                with self.served():
                    peer.until(event("begins"))
                    peer.until(position("commanded", "a", 0))
            with self.served():
                self.killed(spaces, peer)

    def sent(self, peer, *words, wanted=event("taken")):
        """As a node would that does not wait until the bridge has found it."""
        for _ in range(20):
            peer.tell(*words)
            with contextlib.suppress(AssertionError):
                return peer.until(wanted, 1)
        self.fail("never taken")

    def commands(self, peer, bridge):
        self.sent(peer, 0, 0, "a", 0.4, 0.3, 0.2, 0.8, 0.5, 0)
        bridge.until(lambda line: "2 points for 1 joint, from now on: taken at machine time" in line)
        peer.until(position("commanded", "a", 0.5))
        peer.until(position("measured", "a", 0.5))
        now = int(time.time())
        for words, why in (((now - 2, 0, "a", 1, 0, 0), "s ago; a stamp of 0 means now"),
                           ((now + 1000, 0, "a", 1, 0, 0), "beyond the horizon of 5 s"),
                           ((0, 0, "a\x1b", 1, 0, 0), "has no joint"),
                           ((0, 0, "a", 1, "nan", 0), "must be a finite number"),
                           ((0, 0, "a", 1, 7, 0), "beyond its limit 1"),
                           ((now, 4e9, "a", 1, 0, 0), "nanoseconds")):
            peer.tell(*(int(word) if isinstance(word, float) else word for word in words))
            peer.until(event("not_taken", why))
            self.assertNotIn("\x1b", bridge.until(lambda line: why in line))
        begins = int(time.time()) + (4 if lost_percent else 2)
        peer.tell(begins, 0, "a", 0, 0.5, 0, 1, -0.5, 0)
        peer.until(event("taken"))
        peer.until(lambda line: line.startswith("commanded") and not position("commanded", "a", 0.5)(line))
        peer.until(position("commanded", "a", -0.5))
        peer.tell(0, 0, "s", 0.1, 7, 0)
        peer.until(position("commanded", "s", 7))
        peer.tell(0, 0, "a", 9, 1, 0)
        peer.until(event("taken"))
        peer.tell(0, 0, "a")
        peer.until(event("stopped"))

    def killed(self, spaces, peer):
        """The points that the machine has run out, and nothing jumps; the next bridge goes on."""
        with self.bridge(spaces, how=signal.SIGKILL):
            peer.until(position("measured", "a", 0))
            self.sent(peer, 0, 0, "a", 2, 0.8, 0)
        with self.bridge(spaces):
            peer.until(position("measured", "a", 0.8))
            self.assertNotIn("guarded", self.said(0, "events", "--once"))
            self.sent(peer, 0, 0, "a", 1, 0, 0)
            peer.until(position("measured", "a", 0))

    def test_takes_nothing_by_another_interface_and_ends_with_its_own(self):
        if lost_percent:
            self.skipTest("packets are counted")
        with Namespaces() as spaces:
            spaces.run(0, f"ip link add side type veth peer name side netns /proc/{spaces.holders[1].pid}/ns/net")
            for number in range(2):
                spaces.run(number, f"ip addr add 10.78.0.{number + 1}/24 dev side && ip link set side up")
            for interface, dropped in (("lo", 2), ("wire", 1)):
                with self.bridge(spaces, how=signal.SIGHUP, interface=interface) as bridge:
                    bridge.until(lambda line: "waits for the machine" in line)
                    self.expect_drops(spaces, {dropped})
                    self.assertNotIn("DDS", "".join(bridge.said))
            bridge = Listened(spaces.inside(0, tool, "bridge", "ros2", "m-1", "--interface", "wire"))
            bridge.until(lambda line: "waits for the machine" in line)
            spaces.run(0, "ip link delete wire")
            bridge.until(lambda line: "network interface is gone" in line)
            self.assertEqual((bridge.process.wait(20), bridge.end()), (1, 1))

    def expect_drops(self, spaces, wanted):
        """Of packets from both networks, at each socket that is bound to no address."""
        def drops():
            said = subprocess.run(spaces.inside(0, "ss", "-HOuanm"), text=True, capture_output=True, check=True).stdout
            return dict(re.findall(r" 0\.0\.0\.0:(74\d\d) .*,d(\d+)\)", said))
        self.assertGreaterEqual(len(ports := drops()), 2)
        for port in ports:
            for net in (77, 78):
                spaces.run(1, f"bash -c 'printf RTPS > /dev/udp/10.{net}.0.1/{port}'")
        end = time.monotonic() + 20
        while {int(count) for count in drops().values()} != wanted:
            self.assertLess(time.monotonic(), end, drops())

    def test_takes_bursts_and_waits_for_nobody_who_reads_what_it_says(self):
        if lost_percent or not peer_program.endswith("bridge_peer"):
            self.skipTest("a burst is longer than what a writer keeps")
        os.environ["XDG_RUNTIME_DIR"] = os.getcwd()
        write("m.yaml", machine_text)
        write("m.urdf", "<robot name='m-1'><joint name='a' type='revolute'><limit lower='-1' upper='1' velocity='1'/>"
              "</joint></robot>")
        reader, full = os.pipe()
        os.set_blocking(full, False)
        with contextlib.suppress(BlockingIOError):
            while True:
                os.write(full, b"x")
        os.set_blocking(full, True)
        with Namespaces() as spaces:
            peer = Listened(spaces.inside(1, peer_program, 0, "wire", "m_1"))
            self.addCleanup(peer.end)
            with self.bridge(spaces, "--rate", 50) as bridge:
                with self.served("m.urdf"):
                    peer.until(lambda line: line.startswith("description <robot name='m-1'>"))
                with self.served():
                    peer.until(lambda line: line == "description ")  # not that of the machine before
                    peer.until(position("measured", "a", 0))
                    self.keeps_the_rate(peer, 50)
                    self.takes_a_burst(peer, bridge)
            with self.served():
                for closed, position_then in ((False, 0.2), (True, 0.4)):
                    self.moves_unread(spaces, peer, full, closed, position_then)
        os.close(reader)
        os.close(full)

    def keeps_the_rate(self, peer, rate_hz):
        """One late state may be caught up with; each cycle would be twice as often."""
        stamps = [float(peer.until(lambda line: line.startswith("measured")).split()[-1]) for _ in range(25)]
        self.assertGreaterEqual(stamps[-1] - stamps[0], 20 / rate_hz)

    def takes_a_burst(self, peer, bridge):
        self.sent(peer, 0, 0, "a", 0.1, 0, 0)
        for _ in range(60):
            peer.tell(0, 0, "b", 0.1, 0, 0)
        for _ in range(60):
            bridge.until(lambda line: "for 1 joint, from now on: " in line)

    def moves_unread(self, spaces, peer, full, is_closed, target):
        """A bridge whose outputs nobody reads, or that has none, does its work and ends."""
        command = spaces.inside(0, tool, "bridge", "ros2", "m-1", "--interface", "wire")
        closing = ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh"] if is_closed else []
        with subprocess.Popen([*ends_with_test, *closing, *command], stdout=full, stderr=full) as unread:
            try:
                self.sent(peer, 0, 0, "a", 0.5, target, 0, wanted=position("commanded", "a", target))
                if is_closed:  # else DDS would have its sockets there
                    self.assertEqual({os.readlink(f"/proc/{unread.pid}/fd/{number}") for number in range(3)}, {"/dev/null"})
                unread.terminate()
                self.assertEqual(unread.wait(20), 128 + signal.SIGTERM)
            finally:
                unread.kill()

    def test_refuses_what_it_cannot_do(self):
        self.assertIn("would both be the topic m_1/joint_states", self.said(2, "bridge", "ros2", "m-1", "m_1"))
        program = pathlib.Path(tool).with_name("torvex-bridge-ros2")
        configuration = {"machines": ["m"], "domain": 0, "interface": "none", "rate": 0, "horizon": 1, "sensor_data": False,
                         "topics": []}
        for status, argument in ((2, "{}"), (1, json.dumps(configuration))):
            self.assertEqual(subprocess.run([program, argument], check=False, capture_output=True).returncode, status)


if __name__ == "__main__":
    if os.geteuid() != 0 or subprocess.run(["unshare", "--net", "true"], check=False, capture_output=True).returncode:
        print("skipped: network namespaces need root")
        sys.exit(77)
    if len(sys.argv) > 1:
        lost_percent = int(sys.argv.pop())
    for ending in endings:
        signal.signal(ending, fail)
    unittest.main()
