#!/usr/bin/env python3
"""Takes the picture of the page for the documents: the example in mid-wave. picture.py FILE"""

import os
import re
import socket
import subprocess
import sys
import tempfile

from browser import Browser

example = "examples/humanoid/"
moment = 3.6


def take(browser, served, file):
    line = ""
    while "?link=" not in line:
        line = served.stdout.readline()
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
        "width": 1280, "height": 800, "deviceScaleFactor": 1, "mobile": False})
    browser.get(re.search(r"http://\S+", line)[0])
    browser.waits_for("motion-list", "wave.yaml")
    browser.find_element("xpath", "//button[text()='wave.yaml']").click()
    browser.waits_for("motion-verdict", "Fits")
    browser.find_element("xpath", "//button[text()='right_shoulder_pitch']").click()
    browser("axis-scope").click()
    browser("motion-play").click()
    begin = browser.until(lambda: browser.execute_script(
        "return document.getElementById('motion-progress').hidden ? 0 : parseFloat(document.getElementById('clock').textContent)"))
    browser.until(lambda: float(browser("clock").text.split()[0]) > begin + moment)
    browser.save_screenshot(file)


with tempfile.TemporaryDirectory() as folder, socket.socket() as free:
    free.bind(("127.0.0.1", 0))
    port = free.getsockname()[1]
    free.close()
    served = subprocess.Popen(
        ["build/release/torvex", "serve", example + "humanoid.yaml", "--http", str(port), "--motions", example,
         "--pool", os.path.basename(folder)],
        env={**os.environ, "XDG_RUNTIME_DIR": folder}, text=True, stdout=subprocess.PIPE)
    browser = Browser()
    try:
        take(browser, served, sys.argv[1])
    finally:
        browser.quit()
        served.terminate()
        served.wait()
