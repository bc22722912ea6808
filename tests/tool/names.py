#!/usr/bin/env python3
"""A machine with a name for every control and format character of Unicode, and every command on
it, also on a terminal. None of them may come out raw, and no name may end a line."""

import contextlib
import os
import pty
import re
import threading
import unicodedata
import unittest

from tool import ToolTest, read, start, started_run, tool, write

hidden = [chr(c) for c in range(1, 0x110000) if unicodedata.category(chr(c)) in ("Cc", "Cf", "Zl", "Zp")]
# What the views themselves send.
steering = re.compile(r"\x1b\[(\?\d+[hl]|\d*[AHJK])|\r")


def yaml(text):
    return '"' + "".join(f"\\U{ord(c):08x}" for c in text) + '"'


def on_terminal(*arguments):
    """What the tool writes to a terminal of 400 lines."""
    child, terminal = pty.fork()
    if child == 0:
        sized = ["sh", "-c", 'stty rows 400 cols 200 && exec "$0" "$@"', tool]
        os.execvp("sh", sized + list(arguments))
    said = b""
    with contextlib.suppress(OSError):  # that is how a terminal ends
        while block := os.read(terminal, 1 << 16):
            said += block
    os.close(terminal)
    os.waitpid(child, 0)
    return steering.sub("", said.decode())


def piped(*arguments):
    return start(*arguments).communicate()[0]


class Names(ToolTest):
    def outputs(self, mark):
        """What every command says of a machine with names that end with each of the characters."""
        names = [f"n{number}{mark(c)}" for number, c in enumerate(hidden)]
        machine = write(f"m{mark(chr(7))}.yaml", "name: " + yaml("x" + mark("\x1b")) + "\nactuators:\n" + "".join(
            f"- {{name: {yaml(n)}, value: 0, maximum: 0.5}}\n" for n in names))
        motion = write(f"t{mark(chr(10))}.yaml", "joint_names: [" + ", ".join(map(yaml, names)) + "]\npoints:\n"
                       f"- {{positions: {[1] * len(names)}, time_from_start: 0.3}}\n")
        wrong = write("w.yaml", "joint_names: [" + yaml("no" + mark("\n") + mark("\u202e")) + "]\n")
        run, watch = (machine, motion, "--pool", self.pool), ("watch", "--pool", self.pool)
        simulated, recording = ("run", *run, "--clock", "simulated"), f"r{mark(chr(10))}.mcap"
        door, client = f"./d{mark(chr(10))}.sock", ("--machine", f"./d{mark(chr(10))}.sock")
        fleet = write("f.yaml", "machines:\n" + "".join(
            f"- {{name: {yaml(n)}, socket: {yaml(n + '.sock')}}}\n" for n in ("d" + mark("\n"), "e" + mark("\a"))))
        said = [piped("list", machine), piped("list", machine, "--json"),
                piped("check", machine, motion), piped("check", machine, wrong),
                piped(*simulated, "--trace", "t.csv", "--plot", "p.svg", "--record", recording),
                piped("info", recording), piped("replay", recording), piped(*simulated, "--json"),
                piped(*simulated, "--cycle", mark("\x9b")), piped("watch", "--pool", mark("\x9b"))]
        os.truncate(recording, os.path.getsize(recording) // 2)
        said += [piped("convert", recording, "c.csv"), piped("get", "a", "--machine", "no" + mark("\n"))]
        living = started_run(*run, "--approach", "20s", "--serve", "--socket", door)
        while " ms ago" not in piped(*watch, "--once"):  # until its first cycle
            self.assertIsNone(living.poll())
        said += [piped(*watch, "--once"), piped(*watch, "--once", "--json"), piped(*watch, "k" + mark("\u200f")),
                 piped("get", "*", *client), piped("hold", "no" + mark("\n"), *client), piped("fleet", "ps", fleet)]
        events = piped("events", "--once", *client)
        threading.Timer(1, living.terminate).start()
        screen = on_terminal(*watch)
        living.communicate()
        said += [read("t.csv"), "".join(re.findall(r"(?s)<text>.*?</text>", read("p.svg")))]
        return said, [screen, on_terminal("run", *run), events]

    def test_come_out_raw_nowhere(self):
        plain, _ = self.outputs(lambda c: "")
        marked, screens = self.outputs(lambda c: c)
        for number, text in enumerate(marked + screens):
            with self.subTest(output=number, text=text[:300]):
                self.assertFalse((set(text) & set(hidden)) - {"\n"} or not text)
                if number < len(plain):
                    self.assertEqual(text.count("\n"), plain[number].count("\n"))


if __name__ == "__main__":
    unittest.main()
