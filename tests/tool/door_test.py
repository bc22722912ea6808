#!/usr/bin/env python3
"""The door of a running machine, as clients meet it."""

import base64
import contextlib
import http.client
import json
import os
import pathlib
import re
import signal
import socket
import struct
import threading
import time
import unittest

import jsonschema
import yaml

from tool import ToolTest, read, root, start, write

document = yaml.safe_load((root / "docs/openapi.yaml").read_text(encoding="utf-8"))
machine_text = """
name: m
actuators:
- {name: a, minimum: -1, maximum: 1, maximum_velocity: 2}
- {name: b, minimum: -1, maximum: 1, maximum_velocity: 2}
- {name: s, type: 2, minimum: 0, maximum: 9}
"""


def resolved(node):
    """The parts of the document that the references name."""
    while "$ref" in node and node["$ref"].startswith("#/"):
        target = document
        for name in node["$ref"][2:].split("/"):
            target = target[name]
        node = {**target, **{key: value for key, value in node.items() if key != "$ref"}}
    return node


def assert_no_text_is_cut(node):
    """A text with a comma in braces, without quotes, ends there; the rest is a key of nothing."""
    if isinstance(node, dict):
        assert None not in node.values(), node
        node = list(node.values())
    for part in node if isinstance(node, list) else []:
        assert_no_text_is_cut(part)


assert_no_text_is_cut(document)


def validate(schema, value):
    jsonschema.Draft202012Validator({**schema, "components": document["components"]}).validate(value)


def by_http(host, port):
    return http.client.HTTPConnection(host, port, timeout=20)


def free_port():
    with socket.socket() as free:
        free.bind(("127.0.0.1", 0))
        return free.getsockname()[1]


class BySocket(http.client.HTTPConnection):
    def __init__(self, path):
        super().__init__("localhost", timeout=20)
        self.path = path

    def connect(self):
        self.sock = socket.socket(socket.AF_UNIX)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


class WebSocket:
    """Of text messages, each in one frame."""

    def __init__(self, connection, target):
        key = base64.b64encode(os.urandom(16)).decode()
        connection.request("GET", target, headers={
            "Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
            "Sec-WebSocket-Key": key})
        self.socket = connection.sock
        answer = b""
        while not answer.endswith(b"\r\n\r\n"):
            answer += self.socket.recv(1)
        assert answer.startswith(b"HTTP/1.1 101"), answer

    def received(self, count):
        data = b""
        while len(data) < count:
            part = self.socket.recv(count - len(data))
            if not part:
                raise EOFError
            data += part
        return data

    def message(self):
        first, length = self.received(2)
        if length == 126:
            length, = struct.unpack(">H", self.received(2))
        payload = self.received(length)
        return json.loads(payload) if first == 0x81 else self.message()

    def send(self, text):
        mask, data = os.urandom(4), text.encode()
        masked = bytes(byte ^ mask[i % 4] for i, byte in enumerate(data))
        self.socket.sendall(struct.pack("BB", 0x81, 0x80 | len(data)) + mask + masked)


class DoorTest(ToolTest):
    def setUp(self):
        super().setUp()
        write("m.yaml", machine_text)
        os.environ["XDG_RUNTIME_DIR"] = os.getcwd()
        self.path = "torvex/m.sock"

    @contextlib.contextmanager
    def served(self, *arguments, machine="m.yaml"):
        process = start("serve", machine, "--pool", self.pool, *arguments)
        said = ""
        while ".sock" not in said and (line := process.stdout.readline()):
            said += line
        try:
            yield process
        finally:
            process.send_signal(signal.SIGTERM)
            said += process.communicate()[0]
        self.assertIn(process.returncode, (0, -signal.SIGKILL), said)

    def asked(self, method, target, body=None, connection=None, **headers):
        """The status and the answer, which is as the document says."""
        connection = connection or BySocket(self.path)
        if isinstance(body, (dict, list)):
            body, headers = json.dumps(body), {"Content-Type": "application/json", **headers}
        connection.request(method, target, body, headers)
        answer = connection.getresponse()
        content = json.loads(answer.read())
        connection.close()
        path = re.sub("/commanders/[0-9a-f]+", "/commanders/{key}", target.split("?")[0])
        operation = document["paths"].get(path, {}).get(method.lower())
        if operation is None:
            schema = {"$ref": "#/components/schemas/error"}
        else:
            responses = operation["responses"]
            response = resolved(responses.get(str(answer.status), responses["default"]))
            schema = response["content"]["application/json"]["schema"]
        validate(schema, content)
        return answer.status, content

    def reason(self, *arguments, **options):
        status, content = self.asked(*arguments, **options)
        error = content["error"]
        self.assertTrue(error["message"])
        return status, error["reason"], error["path"]

    def comes_to_rest(self, machine, key="a/Value", seconds=4):
        """The value at which the register stays for a while, which it must before so long."""
        end, seen = time.monotonic() + seconds, []
        while time.monotonic() < end and (len(seen) < 30 or len(set(seen[-30:])) > 1):
            seen.append(machine[key])
            time.sleep(0.01)
        self.assertEqual(len(set(seen[-30:])), 1, seen[-30:])
        return seen[-1]


class Door(DoorTest):
    def test_answers_as_the_document_says(self):
        with self.served():
            status, machine = self.asked("GET", "/v1/machine")
            self.assertEqual((status, machine["name"], machine["cycle_ms"]), (200, "m", 10))
            axis = machine["axes"][2]
            self.assertEqual((axis["type"], axis["maximum"], axis["interpolation"]), ("integer", 9, "step"))
            status, values = self.asked("GET", "/v1/values?key=*/Value&key=a/Maximum")
            self.assertEqual(list(values["values"].values()), [0, 0, 0, 1])
            self.assertEqual(self.asked("GET", "/v1/health")[1]["status"], "ok")
            while (clock := self.asked("GET", "/v1/clock")[1])["sent_ns"] < (clock["machine_zero_ns"] or 1 << 62):
                pass  # the first cycle is yet to come
            clocks = [clock, self.asked("GET", "/v1/clock")[1]]
            asked = time.clock_gettime_ns(time.CLOCK_BOOTTIME)
            clocks.append(self.asked("GET", "/v1/clock")[1])
            stamps = [asked, clocks[2]["received_ns"], clocks[2]["sent_ns"], time.clock_gettime_ns(time.CLOCK_BOOTTIME)]
            self.assertEqual(stamps, sorted(stamps))
            for clock in clocks:  # the latest cycle has begun, and its end is not known yet
                self.assertGreaterEqual(clock["sent_ns"], clock["machine_zero_ns"] + clock["machine_ms"] * 10**6)
            self.assertEqual((clocks[0]["instance"], clocks[0]["cycle_ms"]), (machine["instance"], 10))
            for case in (
                    ("GET", "/v1/values?key=none", 404, "unknown", "?key"),
                    ("GET", "/v1/values?kay=a/Value", 400, "invalid", "?kay"),
                    ("GET", "/v1/live", 400, "invalid", ""), ("GET", "/v1/clock?x=1", 400, "invalid", "?x"),
                    ("GET", "/v1/live?rate=1e-15", 400, "invalid", "?rate"),
                    ("GET", "/v1/live?every_cycle=true&key=a/Maximum", 400, "invalid", "?key"),
                    ("GET", "/v1/description", 404, "unknown", ""),
                    ("GET", "/v1/values?key=*" + "&key=*" * 64, 400, "invalid", "?key"),
                    ("GET", "/v1/events?since=9", 400, "invalid", "?since"),
                    ("GET", "/v1/events?since=x", 400, "invalid", "?since"),
                    ("GET", "/v1/%zz", 400, "invalid", ""),
                    ("GET", "/v2", 404, "unknown", ""),
                    ("DELETE", "/v1/health", 405, "method", "")):
                self.assertEqual(self.reason(*case[:2]), case[2:], case)
            export = {"container": "a", "file": "a.xml"}
            self.assertEqual(self.asked("POST", "/v1/exports", export)[0], 200)
            write("note.txt", "no preferences")
            for body, path in (({**export, "extra": 1}, "/extra"), ({"container": "a"}, ""), ([], ""), *(
                    ({**export, "file": file}, "/file") for file in (5, "m.yaml", "note.txt", "torvex"))):
                self.assertEqual(self.reason("POST", "/v1/exports", body), (400, "invalid", path))
            self.assertEqual(self.reason("POST", "/v1/exports", "{}"), (415, "type", ""))
            with socket.socket(socket.AF_UNIX) as connection:
                connection.connect(self.path)
                connection.sendall(b"HEAD /v1/health HTTP/1.1\r\n\r\nHEAD /v1/health HTTP/1.0\r\n\r\n")
                self.assertRegex(connection.makefile().read(), r"^HTTP/1.1 405[^{]*\n\nHTTP/1.1 405[^{]*$")

    def test_shows_a_replay_that_nobody_commands(self):
        write("w.yaml", "batches: [{at: 0, key: a/Value, items: [{time: 60, value: 1}]}]")
        self.said_by_run(0, "m.yaml", "w.yaml", "--record", "r.mcap")
        replay = start("replay", "r.mcap", "--serve", "--speed", "1", "--pool", self.pool)
        while ".sock" not in replay.stdout.readline():
            self.assertIsNone(replay.poll())
        while not any(self.asked("GET", "/v1/values?key=a/Value")[1]["values"].values()):
            pass
        for target, body in (("batches", {"batches": [{"stop": "all"}]}), ("hold", {"axes": "all"}),
                             ("commanders", {"name": "n", "axes": ["a"]})):
            self.assertEqual(self.reason("POST", "/v1/" + target, body)[:2], (409, "replay"))
        replay.send_signal(signal.SIGTERM)
        self.assertIn("values   as recorded, in all", replay.communicate()[0])
        self.assertEqual(replay.returncode, 128 + signal.SIGTERM)

    def test_tells_values_and_events_to_who_listens(self):
        with self.served():
            live = WebSocket(BySocket(self.path), "/v1/live?key=a/Value&rate=1000")
            messages = [live.message() for _ in range(3)]
            for message in messages:
                validate({"$ref": "#/components/schemas/live"}, message)
            self.assertLess(messages[0]["cycle"], messages[2]["cycle"])
            every = WebSocket(BySocket(self.path), "/v1/live?key=?/Value&key=*/Maximum&every_cycle=true&rate=50")
            validate({"$ref": "#/components/schemas/liveKeys"}, keys := every.message())
            self.assertEqual([key[-7:] for key in keys["keys"]], ["a/Value", "b/Value", "s/Value"])
            cycles = []
            while len(cycles) < 40:
                validate({"$ref": "#/components/schemas/liveCycles"}, message := every.message())
                cycles += zip(message["cycles"], message["machine_ms"], map(tuple, message["values"]))
            first, ms, values = cycles[0]
            self.assertEqual(cycles, [(first + i, ms + 10 * i, values) for i in range(len(cycles))])
            self.assertEqual(values, (0, 0, 0))
            events = WebSocket(BySocket(self.path), "/v1/events")
            validate({"$ref": "#/components/schemas/event"}, begins := events.message())
            lines = BySocket(self.path)
            lines.request("GET", "/v1/events")
            self.assertEqual(json.loads((told := lines.getresponse()).readline())["instance"], begins["instance"])
        told.read()  # to the last chunk, or it raises
        self.assertIn(b"\x88\x02\x03\xe9", b"".join(iter(lambda: events.socket.recv(4096), b"")))

    def test_lets_nobody_in_who_may_not(self):
        port = free_port()
        with self.served("--http", port):
            token = pathlib.Path("torvex/m.token").read_text(encoding="utf-8").strip()
            bearer = {"Authorization": "Bearer " + token}
            for target, headers, status in (
                    ("/v1/values", bearer, 200), ("/v1/health", {}, 200), ("/v1/values", {}, 401),
                    ("/v1/values", {"Authorization": "Bearer " + "0" * 64}, 401),
                    ("/v1/values", {"Authorization": "Bearer "}, 401),
                    ("/v1/health", {"Host": "attacker.example"}, 403),
                    ("/v1/health", {"Host": f"localhost:{port}"}, 200),
                    ("/v1/values", {**bearer, "Origin": "http://attacker.example"}, 403),
                    ("/v1/values", {**bearer, "Origin": "null"}, 403),
                    ("/v1/values", {**bearer, "Origin": f"http://127.0.0.1:{port}"}, 200)):
                answered, _ = self.asked("GET", target, connection=by_http("127.0.0.1", port), **headers)
                self.assertEqual(answered, status, (target, headers))
            self.assertEqual(self.reason("GET", "/v1/health", Origin="http://attacker.example")[0], 403)
            for name in ("torvex/m.sock", "torvex/m.token", "torvex/m.lock"):
                self.assertEqual(os.stat(name).st_mode & 0o777, 0o600, name)
        self.assertEqual(os.listdir("torvex"), [])

    def test_lets_a_browser_in_by_a_link_once_and_then_by_its_cookie(self):
        port = free_port()
        own, neighbour = f"http://127.0.0.1:{port}", f"http://127.0.0.1:{port + 1}"

        def answer(method, target, **headers):
            connection = by_http("127.0.0.1", port)
            connection.request(method, target, headers=headers)
            answer = connection.getresponse()
            content = answer.read()
            connection.close()
            return answer, content

        with self.served("--http", port):
            link = self.said(0, "link").strip().removeprefix(own)
            entry, _ = answer("GET", link)
            cookie, *how = entry.getheader("Set-Cookie").split("; ")
            self.assertEqual((entry.status, entry.getheader("Location"), how),
                             (303, "/", ["HttpOnly", "SameSite=Strict", "Path=/"]))
            upgrade = {"Connection": "Upgrade", "Upgrade": "websocket", "Sec-WebSocket-Version": "13",
                       "Sec-WebSocket-Key": "dGhlIHNhbXBsZSBub25jZQ=="}
            known = {"Cookie": "other=1; " + cookie}
            for method, target, headers, status in (
                    ("GET", link, {}, 403), ("GET", link, known, 303), ("GET", "/?link=", {}, 403),
                    ("GET", "/?other=1", {}, 400), ("GET", "/", {}, 200), ("GET", "/none.js", {}, 401),
                    ("GET", "/three/three.min.js", {}, 200), ("GET", "/", {"Host": "attacker.example"}, 403),
                    ("GET", "/v1/machine", known, 200), ("GET", "/v1/machine", {"Cookie": "other=1"}, 401),
                    ("GET", "/v1/machine", {"Cookie": cookie[:-1]}, 401), ("POST", "/v1/links", {}, 401),
                    ("POST", "/v1/release", known, 403), ("POST", "/v1/release", {**known, "Origin": own}, 200),
                    ("POST", "/v1/release", {**known, "Origin": neighbour}, 403),
                    ("POST", "/v1/release", {**known, "Origin": f"http://localhost:{port}"}, 403),
                    ("GET", "/v1/events", {**known, **upgrade}, 403),
                    ("GET", "/v1/events", {**known, **upgrade, "Origin": neighbour}, 403)):
                got, content = answer(method, target, **headers)
                self.assertEqual(got.status, status, (method, target, headers, content))
            page, _ = answer("GET", "/")
            self.assertIn(f"default-src 'self'; connect-src 'self' ws://127.0.0.1:{port};",
                          page.getheader("Content-Security-Policy"))
            listening = by_http("127.0.0.1", port)
            listening.request("GET", "/v1/events", headers={**known, **upgrade, "Origin": own})
            self.assertEqual(listening.getresponse().status, 101)
            listening.close()
            self.assertEqual(self.asked("POST", "/v1/links")[0], 201)
        with self.served():
            self.assertEqual(self.reason("POST", "/v1/links"), (404, "unknown", ""))

    def test_bounds_what_a_client_may_ask_for(self):
        with self.served():
            self.assertEqual(self.reason("POST", "/v1/exports", "0" * (1 << 20) + "0"), (413, "too_large", ""))
            self.assertEqual(self.reason("GET", "/v1/health", **{"X": "y" * 9000}), (431, "header", ""))
            connections = []
            for sent in (b"", b"GET /v1/health HT", b"GET / HTTP/1.1\r\nContent-Length: 9\r\n\r\n12") * 330:
                connections.append(socket.socket(socket.AF_UNIX))
                connections[-1].connect(self.path)
                with contextlib.suppress(OSError):  # closed already
                    connections[-1].sendall(sent)
            self.assertEqual(self.asked("GET", "/v1/health")[0], 200)
            self.assertEqual(self.reason("GET", "/v1/machine"), (503, "busy", ""))
            for connection in connections:
                connection.close()
            while self.asked("GET", "/v1/machine")[0] != 200:
                pass
            with socket.socket(socket.AF_UNIX) as flood:
                flood.connect(self.path)
                sending = threading.Thread(target=flood.sendall, args=(b"GET /v1/values HTTP/1.1\r\n\r\n" * 10000,))
                sending.start()
                self.assertEqual(self.asked("POST", "/v1/hold")[0], 200)
                answers = b""
                while answers.count(b"HTTP/1.1 200 OK") < 10000 and (part := flood.recv(1 << 20)):
                    answers += part
                self.assertEqual((answers.count(b"HTTP/1.1 "), answers.count(b"HTTP/1.1 200 OK")), (10000, 10000))
                sending.join()
            for junk in (b"\0\1\2", b"GET / HTTP/9\r\n\r\n", b"GET /\r\n\r\n", b"X" * 20000):
                with socket.socket(socket.AF_UNIX) as connection:
                    connection.connect(self.path)
                    connection.sendall(junk)
                    self.assertRegex(connection.recv(100), b"^HTTP/1.1 4[03]")

    def test_is_one_door_and_outlives_a_kill(self):
        with self.served() as first:
            said = self.said(2, "serve", "m.yaml", "--pool", self.pool + "-2")
            self.assertIn("a running machine uses this socket", said)
            first.kill()
            first.wait()
        write("torvex/m.token", "0123456789abcdef\n")
        os.chmod("torvex/m.token", 0o600)
        with self.served("--http", free_port(), "--token-file", "torvex/m.token"):
            self.assertEqual(self.asked("GET", "/v1/health")[0], 200)
        self.assertEqual(os.listdir("torvex"), ["m.token"])
        self.assertIn("m.token: exists already",
                      self.said(2, "serve", "m.yaml", "--pool", self.pool, "--http", free_port()))
        write("torvex/m.lock", "notes")
        self.assertIn("m.lock: is not the lock", self.said(2, "serve", "m.yaml", "--pool", self.pool))
        os.unlink("torvex/m.lock")
        os.unlink("torvex/m.token")
        os.rename("torvex", "real")
        os.symlink("real", "torvex")
        self.assertIn("torvex", self.said(2, "serve", "m.yaml", "--pool", self.pool))
        os.unlink("torvex")
        os.rename("real", "torvex")
        os.chmod("torvex", 0o755)
        self.assertIn("chmod 700", self.said(2, "serve", "m.yaml", "--pool", self.pool))

    def sent(self, *batches, **more):
        return self.asked("POST", "/v1/batches", {"batches": batches, **more})

    def refused(self, *batches, **more):
        status, content = self.sent(*batches, **more)
        error = content["error"]
        return status, error["reason"], error["path"], error.get("owner", error.get("figure"))

    def told_until(self, events, end):
        """The events up to the first one that `end` holds of, as the document says each is."""
        told = []
        while not told or not end(told[-1]):
            told.append(events.message())
            validate({"$ref": "#/components/schemas/event"}, told[-1])
        return told

    def test_commands_and_accounts_for_each_point(self):
        with self.served():
            events = WebSocket(BySocket(self.path), "/v1/events")
            first = {"key": "a/Value", "items": [{"time": 0.1 * i, "value": 0.01 * i} for i in range(1, 6)]}
            second = {"trajectory": {"joint_names": ["b", "s"], "points": [
                {"positions": [0.05, 7], "time_from_start": 0.2}]}}
            status, dry = self.sent(first, second, dry_run=True)
            self.assertEqual((status, dry["request"]), (200, None))
            status, taken = self.sent(first, second)
            self.assertEqual([axis["points"] for batch in taken["batches"] for axis in batch["axes"]], [5, 1, 1])
            reached = 0
            told = self.told_until(events, lambda event: event["kind"] == "reached" and event["machine_ms"] >
                                   taken["machine_ms"] + 450)
            for event in told[1:]:
                if event["kind"] not in ("stalled", "starved"):
                    self.assertEqual(event["request"], taken["request"], event)
                reached += event["count"] if event["kind"] == "reached" else 0
            self.assertEqual(reached, 7)
            _, values = self.asked("GET", "/v1/values?key=?/Value")
            self.assertEqual([round(value, 6) for value in values["values"].values()], [0.05, 0.05, 7])
            self.assertEqual([event["number"] for event in told[1:]], [*range(told[1]["number"], told[-1]["number"] + 1)])
            again = WebSocket(BySocket(self.path), f"/v1/events?since={told[1]['number']}")
            self.assertEqual(self.told_until(again, lambda event: event == told[-1])[1:], told[1:])

    def test_refuses_all_of_a_request_and_says_which_field(self):
        good = {"key": "b/Value", "items": [{"time": 1, "value": 0.1}]}
        with self.served():
            for batch, expected in (
                    ({"key": "a/Value", "items": [{"time": 1, "value": 1.5}]},
                     (422, "beyond_limits", "/batches/1/items/0", 1.5)),
                    ({"trajectory": {"joint_names": ["a"], "points": [
                        {"positions": [0], "time_from_start": 1}, {"positions": [0.5], "time_from_start": 1.1}]}},
                     (422, "too_fast", "/batches/1/trajectory/points/1", 5)),
                    ({"key": "a/Value", "items": [{"time": 1 + i / 1000, "value": 0} for i in range(600)], "speed": 1},
                     None),
                    ({"key": "c/Value", "items": []}, (400, "invalid", "/batches/1/key", None)),
                    ({"stop": ["c"]}, (400, "invalid", "/batches/1/stop/0", None))):
                if expected:
                    status, reason, path, figure = self.refused(good, batch)
                    self.assertEqual((status, reason, path), expected[:3])
                    self.assertAlmostEqual(figure or 0, expected[3] or 0, 3)
            self.assertEqual(self.refused(good, commander="9"), (404, "unknown", "/commander", None))
            for key in ("9", ""):
                with self.assertRaisesRegex(AssertionError, "404"):
                    WebSocket(BySocket(self.path), "/v1/events?commander=" + key)
            _, machine = self.asked("GET", "/v1/machine")
            self.assertEqual([axis["waiting"] for axis in machine["axes"]], [0, 0, 0])
        with self.served("--no-strict"):
            _, taken = self.sent({"key": "a/Value", "items": [{"time": 1, "value": 1.5}]})
            self.assertEqual(taken["batches"][0]["axes"][0]["limited"], 1)

    def test_owners_holds_and_stops(self):
        move = {"key": "a/Value", "items": [{"time": 30, "value": 0.9}]}
        with self.served():
            status, owner = self.asked("POST", "/v1/commanders", {"name": "one", "axes": ["a"], "lease_ms": 60000})
            self.assertEqual((status, len(key := owner["key"])), (201, 32))
            self.assertEqual(self.refused(move), (409, "owned", "/batches/0", "one"))
            self.assertEqual(self.refused({"stop": ["a"]})[:2], (409, "owned"))
            self.assertEqual(self.asked("POST", "/v1/commanders", {"name": "two", "axes": "all"})[0], 409)
            self.assertEqual(self.sent(move, commander=owner["key"])[0], 200)
            self.assertEqual(self.refused(move, commander=str(owner["id"]))[:2], (404, "unknown"))
            self.assertEqual(self.asked("POST", f"/v1/commanders/{owner.pop('key')}/renew", {})[1], owner)
            lasting = BySocket(self.path)
            lasting.request("POST", "/v1/commanders", json.dumps(
                {"name": "high", "axes": ["a/Value"], "priority": 60, "ends_with_connection": True}),
                {"Content-Type": "application/json"})
            high = json.loads(lasting.getresponse().read())
            self.assertEqual(self.refused(move, commander=key)[3], "high")
            events = WebSocket(BySocket(self.path), "/v1/events")
            lasting.close()
            lost = self.told_until(events, lambda event: event["kind"] == "lost")[-1]
            self.assertEqual((lost["commander"], lost["name"], lost["reason"]), (high["id"], "high", "disconnected"))
            self.assertEqual(self.sent(move)[0], 200)
            self.assertEqual(self.asked("POST", "/v1/hold", {"axes": ["a"]})[1]["axes"], ["a"])
            self.assertEqual(self.refused(move)[:3], (409, "held", "/batches/0"))
            self.assertEqual(self.asked("GET", "/v1/health")[1]["status"], "held")
            self.assertEqual(self.asked("POST", "/v1/release")[0], 200)
            self.assertEqual(self.sent(move)[0], 200)
            self.assertEqual(self.sent({"stop": "all"})[0], 200)
            cleared = self.told_until(events, lambda event: event.get("by") == "stop")[-1]
            self.assertEqual((cleared["kind"], cleared["count"]), ("cleared", 1))
            at = self.sent(move)[1]["machine_ms"] + 300
            _, planned = self.sent({"stop": "all", "at": at / 1000})
            cleared = self.told_until(events, lambda event: event["kind"] == "cleared")[-1]
            self.assertEqual((cleared["by_batch"], cleared["count"]), (planned["batches"][0]["batch"], 1))
            self.assertGreaterEqual(cleared["machine_ms"], at - 20)
            self.assertEqual(self.reason("DELETE", "/v1/commanders/77"), (404, "unknown", ""))

    def test_hold_beats_a_client_that_streams(self):
        answers, isEnding = [], threading.Event()

        def stream():
            while not isEnding.is_set():
                target = 0.5 if len(answers) % 20 < 10 else -0.5
                answers.append(self.sent({"key": "a/Value", "mode": "replace", "items": [{"time": 0.6, "value": target}]})[0])

        with self.served():
            live = WebSocket(BySocket(self.path), "/v1/live?key=a/Value&rate=1000")
            streaming = threading.Thread(target=stream)
            streaming.start()
            try:
                def values(begin, end):
                    """Of the cycles between these moments."""
                    seen = set()
                    while (message := live.message())["machine_ms"] <= end:
                        seen.update(message["values"].values() if message["machine_ms"] >= begin else ())
                    return seen
                while abs(sum(live.message()["values"].values())) < 0.05:
                    pass
                held = self.asked("POST", "/v1/hold")[1]["machine_ms"]
                count = len(answers)
                self.assertEqual(len(values(held + 300, held + 600)), 1)
                released = self.asked("POST", "/v1/release")[1]["machine_ms"]
                self.assertEqual(set(answers[count + 1:-1]) - {200}, {409})
                self.assertGreater(len(values(released, released + 300)), 1)
            finally:
                isEnding.set()
                streaming.join()

    def test_plays_motion_files_from_where_it_stands(self):
        write("f.yaml", "joint_names: [a]\npoints: [{positions: [0.2], time_from_start: 0}, {positions: [0.3], time_from_start: 0.2}]\n")
        with self.served():
            self.assertIn("reached: 2 of 2", self.said(0, "play", "f.yaml"))
            self.assertIn("reached: 2 of 2", self.said(0, "play", "f.yaml"))
            body = {"motions": ["b.yaml"], "files": {"b.yaml": "batches: [{at: 0, trajectory_file: f.yaml}]"}}
            status, answer = self.asked("POST", "/v1/motions", body)
            self.assertEqual((status, answer["error"]["reason"], answer["error"]["file"]), (422, "needs_file", "f.yaml"))
            body["files"]["f.yaml"] = "joint_names: [x]"
            self.assertEqual(self.reason("POST", "/v1/motions", body), (400, "invalid", "/files"))

    def test_shows_a_machine_with_a_description(self):
        os.makedirs("packages/p/meshes/deep")
        os.makedirs("motions/sub.yaml")
        for name in ("packages/p/meshes/a.stl", "packages/p/meshes/deep/b.dae", "packages/outside.stl",
                     "motions/n.txt", "motions/m.json"):
            write(name, "solid " + name)
        write("secret.yaml", "key: none")
        os.symlink("../../outside.stl", "packages/p/meshes/link.stl")
        os.symlink("meshes", "packages/p/linked")
        os.mkfifo("packages/p/meshes/pipe.stl")
        os.symlink("../secret.yaml", "motions/secret.yaml")
        write("motions/fast.yaml", "joint_names: [a]\npoints:\n- {positions: [0.2], time_from_start: 1}\n"
              "- {positions: [0.4], time_from_start: 1.1}\n")
        text = write("m.urdf", """<robot name='m'><joint name='a' type='revolute'><limit lower='-1' upper='1'
            velocity='1'/></joint><joint name='t' type='prismatic'><mimic joint='a' multiplier='2'/></joint>
            <link name='l'><visual><geometry><mesh filename='package:///p/meshes/a.stl'/><mesh filename=
            "package://none/c.stl"/><mesh filename="package://p/gone.stl"/><mesh filename="package://p/meshes/link.stl"/></geometry></visual></link></robot>""") and read("m.urdf")
        with self.served("--package-path", "packages", "--motions", "motions", "--no-strict", machine="m.urdf"):
            _, machine = self.asked("GET", "/v1/machine")
            self.assertEqual((machine["axes"][0]["joint"], machine["axes"][0]["kind"]), ("a", "revolute"))
            self.assertEqual(self.asked("GET", "/v1/meshes")[1], {"meshes": ["p/meshes/a.stl"]})
            key = "Device/SubDeviceList/t/Sensor/Value"
            self.assertEqual(machine["followers"], [
                {"joint": "t", "follows": "a", "multiplier": 2, "offset": 0, "sensor": key}])
            for target, status, content in (
                    ("description", 200, text), ("meshes/p/meshes/a.stl", 200, "solid packages/p/meshes/a.stl"),
                    ("meshes/p/meshes/deep/b.dae", 200, "solid packages/p/meshes/deep/b.dae"),
                    ("meshes/p/meshes/%2e%2e/meshes/a.stl", 404, None), ("meshes/p%2fmeshes/../../outside.stl", 404, None),
                    ("meshes/../secret.yaml", 404, None), ("meshes//p/meshes/a.stl", 404, None),
                    ("meshes/p/meshes/link.stl", 404, None), ("meshes/p/linked/a.stl", 404, None),
                    ("meshes/p/meshes/pipe.stl", 404, None), ("meshes/p/meshes", 404, None),
                    ("meshes/p/meshes/a.stl?x=1", 400, None), ("meshes/", 404, None)):
                connection = BySocket(self.path)
                connection.request("GET", "/v1/" + target)
                answer = connection.getresponse()
                got = answer.read().decode()
                self.assertEqual((answer.status, got if content else None), (status, content), target)
                connection.close()
            _, listed = self.asked("GET", "/v1/motions")
            self.assertEqual([entry["name"] for entry in listed["motions"]], ["fast.yaml", "m.json"])
            for request, fault in (
                    ({"motions": ["secret.yaml"]}, ("secret.yaml", None)), ({"motions": ["../secret.yaml"]}, ("../secret.yaml", None)),
                    ({"motions": ["m.json"]}, ("m.json", 1)),
                    ({"motions": ["x"], "files": {"x": "joint_names: [a]\npoints:\n- {positions: [1, 2], time_from_start: 1}\n"}}, ("x", 3))):
                status, refused = self.asked("POST", "/v1/motions", {**request, "dry_run": True})
                self.assertEqual((status, refused["error"]["file"], refused["error"].get("line")), (400, *fault), refused)
            _, dry = self.asked("POST", "/v1/motions", {"motions": ["fast.yaml"], "dry_run": True})
            self.assertEqual([(each["file"], each["line"], each["column"]) for each in dry["warnings"]],
                             [("fast.yaml", 4, 3)])
            curve = dry["curve"]["Device/SubDeviceList/a/Value"]
            self.assertEqual((curve[0], curve[-1]), ([0, 0], [dry["duration_ms"], 0.4]))
            self.assertEqual([ms for ms, _ in curve], list(range(0, dry["duration_ms"] + 1, 10)))
            self.assertEqual(self.asked("GET", "/v1/values?key=a/Value")[1]["values"]["Device/SubDeviceList/a/Value"], 0)
            self.assertEqual(self.asked("POST", "/v1/motions", {"motions": ["fast.yaml"]})[0], 200)
            late = {"motions": ["fast.yaml"], "at": 0, "approach": 0.5}
            self.assertEqual(self.reason("POST", "/v1/motions", late), (409, "late", "/at"))
            _, later = self.asked("POST", "/v1/motions", {**late, "at": 1000.007})
            self.assertEqual(later["ends_ms"], 1000007 + 500 + 1100)
        with self.served("--motions", "motions", machine="m.urdf"):
            status, refused = self.asked("POST", "/v1/motions", {"motions": ["fast.yaml"], "dry_run": True})
            error = refused["error"]
            self.assertEqual((status, error["reason"], error["file"], error["line"], error["column"]),
                             (422, "too_fast", "fast.yaml", 4, 3))
        self.assertIn("none: error: cannot be read as a folder",
                      self.said(2, "serve", "m.urdf", "--motions", "none", "--pool", self.pool))

    def test_a_run_may_leave_the_door_open(self):
        write("f.yaml", "batches: [{at: 0, key: a/Value, items: [{time: 60, value: 0.3}]}]\n")
        run = start("run", "m.yaml", "f.yaml", "--serve", "--pool", self.pool, "--plot", "p.svg")
        said = ""
        while ".sock" not in said and (line := run.stdout.readline()):
            said += line
        move = {"key": "a/Value", "items": [{"time": 0.3, "value": 0.5}]}
        self.assertEqual(self.refused(move), (409, "owned", "/batches/0", "run"))
        status, machine = self.asked("GET", "/v1/machine")
        self.assertEqual([(each["name"], each["axes"], each["lease_ms"], each["counts"]["points"])
                          for each in machine["commanders"]], [("run", ["a"], None, 1)])
        self.assertEqual(self.sent({"key": "b/Value", "items": [{"time": 60, "value": 0.4}]})[0], 200)
        events = WebSocket(BySocket(self.path), "/v1/events?since=0")
        for ending in ("hold", "release"):
            self.assertEqual(self.asked("POST", "/v1/" + ending, {"axes": ["a"]})[0], 200)
        told = {event["kind"]: event for event in self.told_until(events, lambda event: event["kind"] == "lost")}
        self.assertEqual([told[kind]["name"] for kind in ("registered", "lost")], ["run", "run"])
        for batch in (move, {"stop": ["b"]}):
            self.assertEqual(self.sent(batch)[0], 200)
        said += run.communicate()[0]
        self.assertEqual(run.returncode, 0, said)
        self.assertRegex(said, r"(?m)^a .*0\.5")
        self.assertIn("--serve needs real time", self.said_by_run(2, "m.yaml", "f.yaml", "--serve"))

    def test_writes_the_ring_once_for_all_who_ask(self):
        with self.served() as process:
            self.assertEqual(self.reason("POST", "/v1/recordings"), (404, "unknown", ""))
            process.send_signal(signal.SIGUSR1)
            self.assertIn("SIGUSR1 asks for the ring: there is none", process.stdout.readline())
            self.assertEqual(self.asked("GET", "/v1/recordings")[1], {"folder": None, "files": [], "left_out": 0})
        with self.served("--record-ring", "1", "--record-folder", "made/ring") as process:
            events = WebSocket(BySocket(self.path), "/v1/events")
            status, file = self.asked("POST", "/v1/recordings")
            self.assertEqual((status, file["reason"], file["state"]), (202, "request", "waiting"))
            self.assertEqual(self.asked("POST", "/v1/hold", {})[0], 200)
            process.send_signal(signal.SIGUSR1)
            recorded = self.told_until(events, lambda event: event["kind"] == "recorded")[-1]
            self.assertRegex(recorded["file"], r"^m-\d{8}T\d{6}Z-[0-9a-f]{8}-request.mcap$")
            listed = self.asked("GET", "/v1/recordings")[1]
            self.assertEqual((listed["files"], listed["left_out"]),
                             ([{**file, "state": "written", "bytes": recorded["count"]}], 0))
            path = os.path.join(listed["folder"], recorded["file"])
            self.assertIn(f"recorded {path} (request)", process.stdout.readline())
            info = self.document(0, "info", path)[0]
            self.assertEqual((info["trigger"], info["trigger_ms"], info["whole"], info["last_ms"] >= file["until_ms"]),
                             ("request", file["machine_ms"], True, True))
            self.assertEqual(info["events"]["held"], 1)
            self.assertTrue(any(topic["topic"] == "m/journal" and topic["messages"] for topic in info["topics"]))
            self.assertIn("begins in the middle of a run", self.said(2, "replay", path))
            self.assertEqual(self.reason("POST", "/v1/recordings"), (429, "too_often", ""))
            process.send_signal(signal.SIGTERM)
            self.assertIn("1 request to write the ring refused", process.stdout.read())
        with self.served("--record-ring", "1", "--record-folder", "last") as process:
            process.send_signal(signal.SIGUSR1)
            process.send_signal(signal.SIGTERM)
            self.assertRegex(process.stdout.read(), r"recorded .*/last/m-.*-signal.mcap \(signal\)")
        self.assertEqual(os.listdir("made/ring"), [file["file"]])

    def test_tells_systemd_when_it_is_ready(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as manager:
            manager.bind("notify")
            manager.settimeout(20)
            os.environ["NOTIFY_SOCKET"] = os.path.abspath("notify")
            self.addCleanup(os.environ.pop, "NOTIFY_SOCKET")
            with self.served():
                self.assertEqual(manager.recv(100), b"READY=1")
            self.assertEqual(manager.recv(100), b"STOPPING=1")


if __name__ == "__main__":
    unittest.main()
