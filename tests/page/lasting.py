#!/usr/bin/env python3
"""A page that stays open: 30 traces of 60 s at 1 kHz, beside a listener that reads nothing. Tells the
memory of server and page each minute, and the latency of the cycle without and with them.
lasting.py [MINUTES]"""

import os
import pathlib
import re
import socket
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tool"))
from door_test import free_port  # noqa: E402
from tool import root, start, write  # noqa: E402

sys.path.insert(0, str(root / "python"))
import torvex  # noqa: E402
from browser import Browser  # noqa: E402

axes = [f"a{i:02}" for i in range(30)]
minutes = float(sys.argv[1]) if len(sys.argv) > 1 else 10.0
mib = 2**20


def memory(pids):
    """Of all these processes, in MiB."""
    texts = [pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text(encoding="utf-8") for pid in pids]
    return sum(int(re.search(r"Pss: +(\d+)", text)[1]) for text in texts) / 1024


def served():
    process = start("serve", "m.yaml", "--cycle", "1ms", "--http", free_port(), "--pool", os.path.basename(os.getcwd()))
    while "?link=" not in (line := process.stdout.readline()):
        pass
    return process, re.search(r"http://\S+", line)[0], torvex.connect("m")


def ended(process, machine):
    """What its health said at last, of the latency in microseconds."""
    latency = machine.health()["latency_ns"]
    process.terminate()
    process.wait()
    return {name: round(ns / 1000) for name, ns in latency.items()}


def move(machine, seconds):
    end, target = time.monotonic() + seconds, 0.8
    while time.monotonic() < end:
        for axis in axes:
            machine.send(axis, [(1.0, target)], mode="replace")
        target = -target
        time.sleep(1)


def watch(browser, process, link, machine):
    browser.get(link)
    browser.until(lambda: browser("clock").text)
    for axis in axes:
        browser.execute_script("arguments[0].value = arguments[1]; arguments[0].dispatchEvent(new Event('change'))",
                               browser("scope-add"), axis + "/Value")
    browser.until(lambda: len(browser.find_elements("css selector", "#legend li")) == len(axes))
    for _ in range(3):
        browser("scope-out").click()
    with socket.socket(socket.AF_UNIX) as silent:
        silent.connect("torvex/m.sock")
        silent.sendall(b"GET /v1/events HTTP/1.1\r\nHost: x\r\n\r\n")
        seen = []
        for minute in range(round(minutes)):
            move(machine, 60)
            heap = browser.execute_script("return performance.memory.usedJSHeapSize") / mib
            seen.append((memory([process.pid]), memory(browser.renderers()), heap))
            print("minute {}: server {:.1f} MiB, page {:.1f} MiB, {:.1f} of them its script's".format(minute + 1, *seen[-1]), flush=True)
    assert browser.console() == []
    # The scope is full after a minute, its arrays after two.
    for (server, _, heap) in seen[3:]:
        assert server < seen[2][0] + 4 and heap < seen[2][2] + 20, "memory is not flat"


with tempfile.TemporaryDirectory() as folder:
    os.chdir(folder)
    os.environ["XDG_RUNTIME_DIR"] = folder
    write("m.yaml", "name: m\nactuators:\n" + "".join(
        f"- {{name: {axis}, minimum: -1, maximum: 1, maximum_velocity: 10}}\n" for axis in axes))
    machine = served()
    move(machine[2], 60)
    alone = ended(machine[0], machine[2])
    process, link, client = served()
    # What the driver writes down of the network would grow in the page's memory.
    browser = Browser(logged=("browser",))
    try:
        watch(browser, process, link, client)
    finally:
        browser.quit()
        beside = ended(process, client)
    print(f"latency in us: without a page {alone}, with it {beside}")
