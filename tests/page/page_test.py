#!/usr/bin/env python3
"""The page of a running machine, as a person meets it in a browser."""

import csv
import glob
import json
import os
import pathlib
import re
import subprocess
import sys
import threading
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "tool"))
from door_test import DoorTest, free_port  # noqa: E402
from tool import read, root, tool, write  # noqa: E402

sys.path.insert(0, str(root / "python"))
import torvex  # noqa: E402
from browser import Browser  # noqa: E402
from selenium.webdriver.common.action_chains import ActionChains  # noqa: E402
from selenium.webdriver.common.keys import Keys  # noqa: E402

odd = """<script>alert('x')<b>"&amp;"""
machine_text = """
name: m
urdf: m.urdf
actuators:
- {name: b, minimum: -1, maximum: 1, maximum_velocity: 2}
"""
urdf_text = """<robot name="m">
<link name="base"><visual><geometry><sphere radius="0.02"/></geometry></visual></link>
<link name="bar"><visual><origin xyz="0 0.5 0"/><geometry><box size="0.1 1 0.1"/></geometry></visual></link>
<joint name="arm" type="revolute"><parent link="base"/><child link="bar"/><axis xyz="1 0 0"/>
<limit lower="-1.5" upper="1.5" velocity="3" effort="1"/></joint>
</robot>"""
swing = "joint_names: [arm]\npoints:\n- {positions: [0.5], time_from_start: 1}\n- {positions: [0.4], time_from_start: 60}\n"
wrong = "joint_names: [arm]\npoints:\n- {positions: [0.5, 0], time_from_start: 1}\n"


class Page(DoorTest):
    @classmethod
    def setUpClass(cls):
        cls.browser = Browser()
        cls.addClassCleanup(cls.browser.quit)

    def setUp(self):
        super().setUp()
        write("m.yaml", machine_text)
        write("m.urdf", urdf_text)

    def opened(self, process, port):
        """The page, by the link that the machine prints."""
        line = ""
        while "?link=" not in line:
            line = process.stdout.readline()
        browser = self.browser
        browser.console(), browser.addresses()
        browser.get(re.search(r"http://\S+", line)[0])
        browser.until(lambda: browser("clock").text)
        self.addCleanup(browser.get, "about:blank")
        self.assertEqual(browser.current_url, f"http://127.0.0.1:{port}/")
        return browser

    def taken(self, browser):
        browser("take").click()
        return re.search(r"page-\w+", browser.waits_for("commander", "You are"))[0]

    def in_pool(self, key):
        """What any process reads in the shared memory of the machine."""
        said = subprocess.run([tool, "watch", key, "--pool", self.pool, "--once", "--json"], text=True,
                              capture_output=True, check=True).stdout
        return next(iter(json.loads(said)["values"].values()))

    def test_shows_a_machine_and_asks_nobody_else(self):
        port = free_port()
        write("m.yaml", machine_text + f"- {{name: {json.dumps(odd)}, minimum: 0, maximum: 1}}\n")
        write("m.urdf", urdf_text.replace("</link>", "<visual><geometry><mesh filename='package://p/gone.stl'/></geometry></visual></link>", 1))
        os.makedirs("packages/p")
        with self.served("--http", port, "--package-path", "packages") as process:
            browser = self.opened(process, port)
            names = [cell.text for cell in browser.find_elements("css selector", "tbody th")]
            self.assertEqual(names, ["arm", "b", odd])
            torvex.connect("m").send(odd, [(0.1, 0.5)])
            browser.waits_for("event-list", odd)
            self.assertEqual(len(browser.find_elements("tag name", "script")), 4)
            self.assertEqual(browser.title, "m – torvex")
            browser.until(lambda: browser.find_elements("css selector", "#legend .value")[-1].text == "0.5000")
            self.assertEqual(browser.console(), [])
            hosts = {host for address in browser.addresses() for host in re.findall(r"^(?:http|ws)s?://([^/]+)", address)}
            self.assertEqual(hosts, {f"127.0.0.1:{port}"})

    def test_a_slider_moves_the_register_and_the_picture(self):
        port = free_port()
        with self.served("--http", port) as process:
            browser, machine = self.opened(process, port), torvex.connect("m")
            ground = browser.pixel("view", 0.01)
            browser.until(lambda: browser.pixel("view") != ground)
            lying = browser.pixel("view")
            browser.row("b").find_element("tag name", "button").click()
            for x, axis in ((0.01, "b"), (0.5, "arm")):
                area = browser("view").rect
                ActionChains(browser).move_to_element_with_offset(
                    browser("view"), int((x - 0.5) * area["width"]), 0).click().perform()
                self.assertEqual(browser("jog-name").text, axis)
            self.assertFalse(browser.slider("arm").is_enabled())
            self.taken(browser)
            browser.until(browser.slider("arm").is_enabled)
            browser("jog-velocity").send_keys(Keys.CONTROL, "a", Keys.NULL, "2.5", Keys.ENTER)
            browser.slider("arm").send_keys(Keys.END)
            browser.until(lambda: browser.row("arm").find_element("css selector", "td.target").text == "1.5000")
            browser.until(lambda: self.in_pool("arm/Value") == 1.5)
            browser.until(lambda: browser.pixel("view") != lying)
            self.assertEqual(machine["b/Value"], 0)
            browser("jog-down").send_keys(Keys.ENTER)
            browser.slider("arm").send_keys(Keys.HOME, Keys.PAGE_UP)
            self.assertLess(self.comes_to_rest(machine, "arm/Value"), -1)
            browser("go-value").send_keys("0", Keys.ENTER)
            browser.until(lambda: machine["arm/Value"] == 0)
            browser.until(lambda: browser.pixel("view") == lying)

    def test_a_page_that_is_hidden_closed_or_frozen_gives_its_axes_back(self):
        port = free_port()
        with self.served("--http", port) as process:
            browser, machine = self.opened(process, port), torvex.connect("m")
            events = machine.events()

            def moves_until(leaves):
                machine.send("arm", [(0.8, 0)], mode="replace")
                browser.until(lambda: machine["arm/Value"] == 0)
                name = self.taken(browser)
                browser("jog-velocity").send_keys(Keys.CONTROL, "a", Keys.NULL, "0.2", Keys.ENTER)
                browser.slider("arm").send_keys(Keys.END)
                browser.until(lambda: machine["arm/Value"] > 0.1)
                leaves()
                self.assertLess(self.comes_to_rest(machine, "arm/Value"), 1.4)
                return next(event for event in events if event.kind == "lost" and event.fields["name"] == name).reason

            self.assertEqual(moves_until(lambda: browser.switch_to.new_window("tab")), "resigned")
            browser.close()
            browser.switch_to.window(browser.window_handles[0])
            try:
                self.assertEqual(moves_until(lambda: self.assertGreater(browser.freeze(), 0)), "expired")
            finally:
                browser.thaw()
            browser.waits_for("said", "heard nothing")

            def close():
                page = browser.current_window_handle
                browser.switch_to.new_window("window")
                other = browser.current_window_handle
                browser.switch_to.window(page)
                browser.close()
                browser.switch_to.window(other)

            self.assertIn(moves_until(close), ("resigned", "expired"))

    def test_a_second_page_is_told_who_owns_the_axes(self):
        port = free_port()
        with self.served("--http", port) as process:
            browser = self.opened(process, port)
            name, first = self.taken(browser), browser.current_window_handle
            browser.switch_to.new_window("window")
            browser.get(f"http://127.0.0.1:{port}/")
            browser.until(lambda: name in browser.row("b").text)
            browser("take").click()
            browser.waits_for("said", f"owned by {name}")
            browser.close()
            browser.switch_to.window(first)

    def test_hold_by_the_space_bar_beats_a_streaming_client(self):
        answers, is_ending, port = [], threading.Event(), free_port()

        def stream():
            machine = torvex.connect("m")
            while not is_ending.is_set():
                try:
                    machine.send("arm", [(0.6, 0.5 if len(answers) % 20 < 10 else -0.5)], mode="replace")
                    answers.append(None)
                except torvex.Refused as refused:
                    answers.append(refused.reason)

        with self.served("--http", port) as process:
            browser, machine = self.opened(process, port), torvex.connect("m")
            browser("scope-add").send_keys("a b ")
            self.assertEqual(browser("scope-add").get_attribute("value"), "a b ")
            self.assertEqual(machine.health()["status"], "ok")
            streaming = threading.Thread(target=stream)
            streaming.start()
            try:
                browser.until(lambda: abs(machine["arm/Value"]) > 0.05)
                browser("take").send_keys(Keys.SPACE)
                browser.waits_for("hold", "HELD")
                self.comes_to_rest(machine, "arm/Value")
                count = len(answers)
                browser.until(lambda: len(answers) > count + 5)
                self.assertEqual(set(answers[count:]), {"held"})
                browser("release").click()
                browser("release-yes").click()
                browser.until(lambda: answers[-1] is None)
            finally:
                is_ending.set()
                streaming.join()

    def test_motions_are_checked_shown_played_and_stopped(self):
        write("folder.yaml", swing)
        port = free_port()
        with self.served("--http", port, "--motions", ".") as process:
            browser, machine = self.opened(process, port), torvex.connect("m")
            browser.drop(bad_yaml=wrong)
            self.assertRegex(browser.waits_for("motion-places", "bad.yaml"), r"bad\.yaml:3:\d+\n.*positions")
            self.assertFalse(browser("motion-play").is_enabled())
            browser.drop(good_yaml=swing)
            browser.waits_for("motion-verdict", "Fits: 1 axis")
            still = browser.pixel("view", 0.5, 0.2, 100)
            browser("motion-preview").click()
            browser.until(lambda: browser.pixel("view", 0.5, 0.2, 100) != still)
            self.assertEqual(machine["arm/Value"], 0)
            browser("preview-end").click()
            browser.find_element("xpath", "//button[text()='folder.yaml']").click()
            browser.waits_for("motion-verdict", "Fits")
            browser("motion-play").click()
            browser.until(lambda: machine["arm/Value"] > 0.2)
            browser.until(lambda: machine["arm/Value"] > 0.2)
            browser("motion-stop").click()
            self.assertGreater(self.comes_to_rest(machine, "arm/Value"), 0.1)
            self.assertEqual(machine.axes()["arm"].waiting, 0)
            self.assertEqual(machine.axes()["arm"].owner, re.search(r"page-\w+", browser("commander").text)[0])
            browser.drop(again_yaml=swing)
            browser.waits_for("motion-name", "again.yaml")
            browser.waits_for("motion-verdict", "Fits")

    def downloaded(self, browser):
        """The rows of the scope's window."""
        browser.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": os.getcwd()})
        browser("scope-csv").click()
        name = browser.until(lambda: glob.glob("scope-*.csv"))[0]
        return list(csv.DictReader(read(name).splitlines()))

    def test_the_scope_stands_on_a_crossing_and_keeps_what_a_naive_model_keeps(self):
        port = free_port()
        with self.served("--http", port) as process:
            browser, machine = self.opened(process, port), torvex.connect("m")
            for name, keys in (("scope-in", [Keys.ENTER] * 3), ("trigger-summary", [Keys.ENTER]), ("trigger-edge", ["falling"]),
                               ("trigger-level", [Keys.CONTROL, "a", Keys.NULL, "0.3", Keys.TAB])):
                browser(name).send_keys(*keys)
            self.assertEqual((browser("scope-span").text, browser("trigger-summary").text), ("1.25 s", "Trigger: falling"))
            machine.send("arm", [(0.4, 0.6), (0.8, 0), (2, 0.2)])
            browser.until(lambda: abs(machine["arm/Value"] - 0.2) < 1e-6)
            rows = [(int(row["machine_ms"]), float(row["arm/Value"])) for row in self.downloaded(browser)]
            begin, crossed = rows[0][0], [now[0] for last, now in zip(rows, rows[1:]) if last[1] > 0.3 >= now[1]]
            self.assertEqual((len(crossed), rows), (1, sorted(rows)))
            self.assertAlmostEqual(crossed[0] - begin, 250, delta=20)
            self.assertAlmostEqual(rows[-1][0] - begin, 1250, delta=20)
            self.assertAlmostEqual(max(rows, key=lambda row: row[1])[0], crossed[0] - 200, delta=20)
            self.assertEqual(browser.execute_async_script("""
                const done = arguments[arguments.length - 1];
                import('/ring.js').then(({Ring}) => {
                  let seed = 7;
                  const random = (below) => (seed = (seed * 48271) % 2147483647) % below;
                  const ring = new Ring(10, 100000);
                  ring.add('a');
                  const times = [], values = [];
                  for (let timeMs = 0; times.length < 40000;) {
                    timeMs += 10;
                    times.push(timeMs);
                    values.push(random(50) === 0 ? null : Math.fround(random(1000) / 7));
                    if (times.length % 1000 === 0) {
                      const begin = times.length - 1000;
                      ring.append(['a'], times.slice(begin), values.slice(begin).map((each) => [each]));
                    }
                  }
                  const faults = [];
                  if (ring.first < 10 || ring.end !== values.length || ring.end - ring.first < 10000) {
                    faults.push([ring.first, ring.end]);
                  }
                  for (let round = 0; round < 2000; ++round) {
                    const begin = ring.first + random(ring.end - ring.first);
                    const end = begin + random(Math.min(9000, ring.end - begin + 1));
                    const naive = values.slice(begin, end).filter((value) => value !== null);
                    ring.extent(ring.traces.get('a'), begin, end);
                    if (ring.low !== Math.min(...naive) || ring.high !== Math.max(...naive) || ring.at(times[begin] - 3) !== begin) {
                      faults.push([begin, end, ring.low, ring.high]);
                    }
                  }
                  done(faults);
                });
            """), [])


if __name__ == "__main__":
    unittest.main()
