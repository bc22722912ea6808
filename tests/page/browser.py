"""A browser without a window for all tests of the page, and what it said and asked for."""

import json
import os
import signal
import tempfile
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

arguments = [
    "--headless=new", "--no-sandbox", "--disable-background-networking", "--disable-component-update",
    "--disable-sync", "--disable-quic", "--no-first-run", "--disable-dev-shm-usage",
    "--use-angle=swiftshader", "--enable-unsafe-swiftshader", "--window-size=1280,800"]


class Browser(webdriver.Chrome):
    def __init__(self, logged=("browser", "performance")):
        self.folder = tempfile.TemporaryDirectory(prefix="torvex-browser-", ignore_cleanup_errors=True)
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for argument in (*arguments, "--user-data-dir=" + self.folder.name):
            options.add_argument(argument)
        options.set_capability("goog:loggingPrefs", dict.fromkeys(logged, "ALL"))
        super().__init__(service=Service("/usr/bin/chromedriver"), options=options)
        self.set_script_timeout(30)

    def quit(self):
        super().quit()
        self.folder.cleanup()

    def __call__(self, name):
        return self.find_element(By.ID, name)

    def until(self, holds, seconds=15):
        """What `holds` gives, as soon as that is true."""
        end = time.monotonic() + seconds
        while not (found := holds()):
            if time.monotonic() > end:
                raise AssertionError(f"{holds} never held; the page says: {self('said').text!r}")
            time.sleep(0.02)
        return found

    def waits_for(self, name, text):
        return self.until(lambda: text in self(name).text and self(name).text)

    def row(self, axis):
        """The cells of an axis by class, and its slider."""
        path = f"//tbody/tr[th/button[text()={json.dumps(axis)}]]"
        return self.find_element(By.XPATH, path)

    def slider(self, axis):
        return self.row(axis).find_element(By.TAG_NAME, "input")

    def pixel(self, name, x=0.5, y=0.5, size=1):
        """What an element looks like in its middle, or elsewhere: in parts of its width and height."""
        area = self(name).rect
        clip = {"x": area["x"] + int(x * area["width"]), "y": area["y"] + int(y * area["height"]), "width": size, "height": size, "scale": 1}
        return self.execute_cdp_cmd("Page.captureScreenshot", {"clip": clip})["data"]

    def drop(self, **files):
        self.execute_script("""
            const data = new DataTransfer();
            for (const [name, text] of Object.entries(arguments[0])) {
              data.items.add(new File([text], name));
            }
            window.dispatchEvent(new DragEvent('drop', {dataTransfer: data, bubbles: true, cancelable: true}));
        """, {name.replace("_", "."): text for name, text in files.items()})

    def console(self):
        return [entry["message"] for entry in self.get_log("browser")]

    def addresses(self):
        """All that any page asked for since the last call."""
        events = [json.loads(entry["message"])["message"] for entry in self.get_log("performance")]
        return [event["params"]["request"]["url"] if "request" in event["params"] else event["params"]["url"]
                for event in events if event["method"] in ("Network.requestWillBeSent", "Network.webSocketCreated")]

    def renderers(self):
        """The processes that run pages of this browser."""
        found = []
        for pid in filter(str.isdigit, os.listdir("/proc")):
            try:
                with open(f"/proc/{pid}/cmdline", "rb") as file:
                    command = file.read()
            except OSError:
                continue
            if b"--type=renderer" in command and self.folder.name.encode() in command:
                found.append(int(pid))
        return found

    def signal_renderers(self, number):
        pids = self.renderers()
        for pid in pids:
            os.kill(pid, number)
        return len(pids)

    def freeze(self):
        return self.signal_renderers(signal.SIGSTOP)

    def thaw(self):
        return self.signal_renderers(signal.SIGCONT)
