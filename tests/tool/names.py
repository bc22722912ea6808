#!/usr/bin/env python3
"""names.py TOOL: a machine with a name for every control and format character of Unicode, and
every command on it, also on a terminal. None of them may come out raw, and no name may end a
line."""

import fcntl
import os
import pathlib
import pty
import re
import struct
import subprocess
import sys
import tempfile
import termios
import threading
import unicodedata

tool = sys.argv[1]
hidden = [chr(c) for c in range(1, 0x110000) if unicodedata.category(chr(c)) in ("Cc", "Cf", "Zl", "Zp")]
# What the views themselves send.
steering = re.compile(r"\x1b\[(\?\d+[hl]|\d*[AHJK])|\r")


def yaml(text):
    return '"' + "".join(f"\\U{ord(c):08x}" for c in text) + '"'


def on_terminal(command):
    """What the command writes to a terminal of 400 lines."""
    main, end = pty.openpty()
    fcntl.ioctl(end, termios.TIOCSWINSZ, struct.pack("4H", 400, 200, 0, 0))
    said = bytearray()

    def read():
        try:
            while block := os.read(main, 1 << 16):
                said.extend(block)
        except OSError:
            pass

    process = subprocess.Popen(command, stdin=end, stdout=end, stderr=end)
    os.close(end)
    reader = threading.Thread(target=read)
    reader.start()
    process.wait()
    reader.join()
    return steering.sub("", said.decode())


def piped(command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    return done.stdout.decode()


def outputs(folder, mark):
    """What every command says of a machine with names that end with each of the characters."""
    names = [f"n{number}{mark(c)}" for number, c in enumerate(hidden)]
    machine, motion, wrong = folder / f"m{mark(chr(7))}.yaml", folder / f"t{mark(chr(10))}.yaml", folder / "w.yaml"
    machine.write_text("name: " + yaml("x" + mark("\x1b")) + "\nactuators:\n" + "".join(
        f"- {{name: {yaml(n)}, value: 0, maximum: 0.5}}\n" for n in names))
    motion.write_text("joint_names: [" + ", ".join(map(yaml, names)) + "]\npoints:\n"
                      f"- {{positions: {[1] * len(names)}, time_from_start: 0.3}}\n")
    wrong.write_text("joint_names: [" + yaml("no" + mark("\n") + mark("\u202e")) + "]\n")
    pool = folder.name
    trace, picture = folder / "t.csv", folder / "p.svg"
    run = [tool, "run", machine, motion, "--pool", pool]
    simulated = run + ["--clock", "simulated"]
    said = [piped([tool, "list", machine]), piped([tool, "list", machine, "--json"]),
            piped([tool, "check", machine, motion]), piped([tool, "check", machine, wrong]),
            piped(simulated + ["--trace", trace, "--plot", picture]), piped(simulated + ["--json"]),
            piped(simulated + ["--cycle", mark("\x9b")]), piped([tool, "watch", "--pool", mark("\x9b")])]
    living = subprocess.Popen(run + ["--approach", "20000"], stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    while (line := living.stdout.readline()) and b"approach" not in line:
        pass
    watch = [tool, "watch", "--pool", pool]
    said += [piped(watch + ["--once"]), piped(watch + ["--once", "--json"]),
             piped(watch + ["k" + mark("\u200f")])]
    threading.Timer(1, living.terminate).start()
    screen = on_terminal(watch)
    living.stdout.read()
    living.wait()
    said += [trace.read_text(), "".join(re.findall(r"(?s)<text>.*?</text>", picture.read_text()))]
    return said, [screen, on_terminal(run)]


with tempfile.TemporaryDirectory(prefix="torvex-test-") as first, \
        tempfile.TemporaryDirectory(prefix="torvex-test-") as second:
    plain, _ = outputs(pathlib.Path(first), lambda c: "")
    marked, screens = outputs(pathlib.Path(second), lambda c: c)
wrong = 0
for number, text in enumerate(marked + screens):
    raw = {f"U+{ord(c):04X}" for c in (set(text) & set(hidden)) - {"\n"}}
    lines = text.count("\n") - plain[number].count("\n") if number < len(plain) else 0
    if raw or lines or not text:
        wrong += 1
        print(f"output {number}: raw {sorted(raw)[:9]}, {lines} lines more\n{text[:300]!r}")
print(f"names: {len(hidden)} characters in {len(marked + screens)} outputs, {wrong} wrong")
sys.exit(wrong > 0)
