#!/usr/bin/env python3
"""The tool from end to end."""

import copy
import csv
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import struct
import subprocess
import unittest
import xml.etree.ElementTree

import jsonschema

from tool import ToolTest, read, root, start, started_run, tool, write

example = root / "examples/humanoid"
humanoid, wave, greeting = (example / f"{name}.yaml" for name in ("humanoid", "wave", "greeting"))
urdf = ("<robot name='r'><joint name='a' type='revolute'>"
        "<limit lower='-9' upper='9' velocity='9'/></joint>{}</robot>")
arguments_file = pathlib.Path(__file__).with_name("bad_arguments.txt")


def motion_of(*points):
    """A trajectory of the joint a: values and times."""
    return write("m.yaml", "joint_names: [a]\npoints:\n" + "".join(
        f"- {{positions: [{value}], time_from_start: {time}}}\n" for value, time in points))


def rows(name="t.csv"):
    """The head of a trace and the numbers of each row."""
    with open(name, encoding="utf-8") as file:
        head, *lines = csv.reader(file)
    return head, [[float(cell) for cell in line] for line in lines]


def commanded():
    """The commands of each cycle in the trace by their columns, and the time of the motion."""
    head, lines = rows()
    return {name: [line[number] for line in lines] for number, name in enumerate(head)
            if name == "motion_ms" or name.endswith("/command")}


def exported(name):
    """The entries of a preference file, as lists of texts."""
    tree = xml.etree.ElementTree.parse(name).getroot()[0]
    return [[element.get("value") for element in entry] for entry in tree]


def single(value):
    """In single precision."""
    return struct.unpack("f", struct.pack("f", value))[0]


def objects(value):
    """The value and all in it that is an object."""
    if isinstance(value, dict):
        yield value
    for part in value.values() if isinstance(value, dict) else value:
        if isinstance(part, (dict, list)):
            yield from objects(part)


def documented_keys():
    """The keys in the tables of the pages on files, by the heading that names what has them."""
    keys = {}
    for page in ("machines", "motions"):
        for section in re.split("^#+ ", read(root / f"docs/{page}.md"), flags=re.M)[1:]:
            if table := re.search(r"^\| key \|.*\n\|-.*\n((\|.*\n)+)", section, re.M):
                cells = " ".join(row.split("|")[1] for row in table[1].splitlines())
                keys[section.split("\n")[0].lower()] = sorted(re.findall("`(.*?)`", cells))
    return keys


class Tool(ToolTest):
    maxDiff = None

    def test_reads_the_keys_that_are_documented(self):
        for number, text in enumerate((
                "{x: 0, actuators: [{x: 0}], devices: [{x: 0, attributes: [{x: 0}]}], "
                "joints: [{x: 0}], sensors: [{x: 0}], preferences: [{x: 0}]}",
                "actuators: [{name: a}]",
                "{x: 0, batches: [{x: 0, at: 0, key: a/Value, items: [{x: 0}]}]}",
                "{x: 0, joint_names: [a], points: [{x: 0, time_from_start: {x: 0}}], header: {x: 0}}",
                "motions: {m: {x: 0, joints: [a]}}")):
            write(f"{number}.yaml", text)
        said = self.said(2, "check", "0.yaml", "1.yaml")
        said += self.said(2, "check", "1.yaml", "2.yaml", "3.yaml", "4.yaml:m")
        told = re.findall("unknown key 'x' in (.*); known are (.*)", said)
        self.assertEqual(documented_keys(), {kind: sorted(known.split(", ")) for kind, known in told})

    def test_commands_the_same_at_every_try_and_every_start(self):
        first = None
        for start_tick in ("0", "0", "0x7FFFF000", "0xFFFFF000"):
            outcome, _ = self.outcome(humanoid, wave, greeting, "--start", start_tick, "--trace", "t.csv")
            first = first or read("t.csv")
            self.assertTrue(read("t.csv") == first, start_tick)
            self.assertIsNone(outcome["latency_ns"])
            self.assertEqual(outcome["warnings"], [], "it asks nothing of the machine")
        self.assertGreater(len(first), 100000)

    def test_follows_the_line_in_real_time(self):
        outcome, _ = self.outcome(write("r.urdf", urdf.format("")), motion_of((0.3, 0), (-2.7, 0.9)),
                                  "--cycle", "1ms", "--trace", "t.csv", clock="realtime")
        trace = rows()[1]
        for time, motion, command, *_ in trace:
            share = min(max(motion / 900, 0), 1)
            self.assertEqual(time - motion, 659)
            s = min(time / 659, 1)
            approached = 0.3 * s * s * s * (10 - 15 * s + 6 * s * s)
            self.assertAlmostEqual(command, approached - 3 * share, delta=1e-5, msg=time)
        self.assertGreaterEqual(trace[-1][1], 900)
        self.assertEqual(single(trace[-1][2]), single(-2.7))
        cycles = outcome["cycles"] + outcome["overruns"] + outcome["stalled_ms"]
        self.assertGreaterEqual(cycles, 1559)
        self.assertLessEqual(outcome["latency_ns"]["p50"], outcome["latency_ns"]["p99.9"])
        self.assertLessEqual(outcome["cycle_duration_ns"]["p99.9"], outcome["cycle_duration_ns"]["max"])
        axis = outcome["axes"][0]
        self.assertEqual((axis["verdict"], axis["reached"]), ("reached", 2))
        self.assertEqual(single(axis["command"]), single(-2.7))

    def test_refuses_bad_input_before_anything_moves(self):
        write("r.urdf", urdf.format(""))
        motion_of((1, 1))
        write("w.yaml", "joint_names: [a, b]\n")
        os.symlink("t.csv", "link.csv")
        os.mkfifo("pipe")
        write("free.yaml", "actuators: [{name: a}, {name: b, value: 0.7, maximum: 0.7}]\n")
        write("h.yaml", "joint_names: [a]\npoints:\n- {positions: [0], time_from_start: 0}\n"
              "- {positions: [3e38], time_from_start: 1}\n")
        items = ", ".join(f"{{time: {i}e-3, value: 0}}" for i in range(300))
        write("c.yaml", "lists:\n" + f"- {{at: 0, mode: merge, key: a/Value, items: [{items}]}}\n" * 2)
        cases = read(arguments_file).removesuffix("\n").split("\n\n")[1:]
        self.assertGreater(len(cases), 20)
        for case in cases:
            arguments, expected = case.split("\n", 1)
            arguments = shlex.split(arguments)
            if arguments[0] == "run" and len(arguments) < 5:
                arguments += ["--trace", "t.csv"]
            if arguments[0] in ("run", "serve") and "--pool" not in arguments:
                arguments[1:1] = ["--pool", self.pool]
            said = self.said(2, *arguments)
            self.assertTrue(said.startswith(expected), f"{said}\nexpected {expected}")
        self.assertFalse(list(pathlib.Path().glob("t.csv*")))
        with open("o.csv", "w", encoding="utf-8") as out:
            done = subprocess.run([tool, "run", "r.urdf", "m.yaml", "--trace", "o.csv"], stdout=out, stderr=subprocess.PIPE,
                                  text=True, check=False)
        self.assertEqual((done.returncode, done.stderr), (
            2, "o.csv: error: the trace would replace what goes to standard output\n"))

    def test_says_that_it_waits_for_an_input(self):
        os.mkfifo("pipe")
        process = start("list", "pipe")
        self.assertEqual(process.stdout.readline(), "torvex: waits for what is to be written to pipe\n")
        write("pipe", "actuators: [{name: a}]\n")
        self.assertIn("a/Maximum", process.communicate()[0])

    def test_says_what_the_limits_change_as_check_words_it(self):
        for actuator, points, finding, target, command, verdict in (
                ("type: 7, minimum: -0.5, maximum: 0.5, maximum_velocity: 1", [(0.9, 0.1)],
                 "m.yaml:3:3: KIND: a is commanded to 0.9 at 0.100 s, above its maximum 0.5\n",
                 0.9, 0.5, "limited"),
                ("type: 7, maximum_velocity: 1", [(0, 0), (5, 0.1)],
                 "m.yaml:4:3: KIND: a moves 50 a second to reach 5 at 0.100 s, above its limit 1\n",
                 5, 5, "reached"),
                ("type: 7, law: step, maximum: 10", [("1e9", 0)],
                 "m.yaml:3:3: KIND: a is commanded to 1e+09 at 0.000 s, above its maximum 10\n",
                 1e9, 10, "limited"),
                ("type: 1", [(16777217, 0)], "", 16777217, 16777217, "reached"),
                ("type: 1, maximum: 16777217", [(16777218, 0)],
                 "m.yaml:3:3: KIND: a is commanded to 16777218 at 0.000 s, above its maximum 16777217\n",
                 16777218, 16777217, "limited")):
            files = write("r.yaml", f"actuators: [{{name: a, {actuator}}}]\n"), motion_of(*points)
            warning = finding.replace("KIND", "warning")
            self.assertTrue(self.said(1 if finding else 0, "check", *files).startswith(warning))
            if finding:
                refused = self.said_by_run(2, *files, "--trace", "s.csv", "--strict")
                self.assertEqual(refused, finding.replace("KIND", "error"))
                self.assertFalse(os.path.exists("s.csv"))
            else:
                self.said_by_run(0, *files, "--strict")
            if "a second" in finding:
                outcome, said = self.outcome(*files, status=1)
                self.assertEqual(outcome["axes"][0]["verdict"], "held")
                self.assertIn("the guard brought it to rest", said)
            outcome, said = self.outcome(*files, "--trace", "t.csv", "--guard", "off")
            axis = outcome["axes"][0]
            self.assertEqual((axis["target"], axis["command"], axis["verdict"]),
                             (target, command, verdict))
            self.assertEqual(len(outcome["warnings"]), 1 if finding else 0)
            self.assertIn(warning, said)
            self.assertEqual(rows()[1][-1][2], command)

    def test_traces_the_sensors_of_joints_that_follow_others(self):
        follower = ("<joint name='m' type='revolute'><limit lower='-9' upper='9' velocity='9'/>"
                    "<mimic joint='a' multiplier='-2' offset='0.5'/></joint>")
        self.said_by_run(0, write("r.urdf", urdf.format(follower)), motion_of((1, 1)), "--trace", "t.csv")
        head, trace = rows()
        self.assertEqual(head, ["time_ms", "motion_ms", "a/command", "a/measured", "m/measured"])
        self.assertAlmostEqual(trace[-1][4], -1.5, delta=0.01)

    def test_draws_what_it_did(self):
        command = (humanoid, wave, greeting, "--plot", "p.svg")
        environment = {**os.environ, "LC_ALL": "C"}
        self.assertNotIn("warning", self.said_by_run(0, *command, env=environment))
        picture = read("p.svg")
        self.assertTrue(picture.startswith("<?xml"))
        for text in (">humanoid: wave.yaml, greeting.yaml<", ">right_ankle_roll (limit",
                     ">chest_light<", ">clear_after<", "</svg>"):
            self.assertIn(text, picture)
        said = self.said_by_run(2, *command, env={**environment, "PATH": os.getcwd()})
        self.assertTrue(said.startswith("p.svg: error: cannot be drawn: gnuplot is not installed"), said)
        self.assertTrue(read("p.svg") == picture)

    def test_exports_preferences_and_replaces_no_input(self):
        machine = ("actuators: [{name: a}]\ndevices: [{name: D}, {name: E}]\npreferences:\n"
                   "- {owner: D, name: /D/0, type: 1, value: 7}\n"
                   "- {owner: D, name: /D/1, type: 1, value: 9}\n")
        write("m.yaml", machine)
        for status, expected, *arguments in (
                (0, "D: keys exported: 2, to made/d.xml\n", "D", "d.xml", "--directory", "made"),
                (0, "E has no preferences in use: nothing was written",
                 "E", "e.xml", "--directory", "made"),
                (2, "", "d", "d.xml"), (2, "", "D", "../d.xml"),
                (2, "", "D", "x", "--directory", "made/d.xml"),
                (2, "", "D", "m.yaml", "--directory", "none/..")):
            said = self.said(status, "export", "m.yaml", *arguments)
            self.assertTrue(said.startswith(expected), said)
        self.assertEqual(exported("made/d.xml"), [["Key1", "", "7", "D/0"], ["Key2", "", "9", "D/1"]])
        self.assertFalse(os.path.exists("made/e.xml"))
        self.assertEqual(read("m.yaml"), machine)

    def test_exports_the_live_pool_at_the_end_of_a_run(self):
        command = [humanoid, wave, greeting, "--directory", ".", "--export", "MainBoard=board.xml",
                   "--export"]
        self.said_by_run(0, *command, "head_yaw=head.xml")
        self.assertEqual([entry[2] for entry in exported("board.xml")],
                         ["70", "0.8", "en", 'Hello, <you> & "others"'])
        self.assertEqual(exported("head.xml")[0][2], "0.0125")
        for wrong, expected in (
                ("nobody=head.xml", "torvex: error: machine 'humanoid' has no device"),
                ("head_yaw=board.xml",
                 "./board.xml: error: the preference file of head_yaw would replace the")):
            said = self.said_by_run(2, *command, wrong)
            self.assertTrue(said.startswith(expected), said)

    def test_records_what_it_traces_and_draws(self):
        command = (humanoid, wave, greeting, "--record", "r.mcap", "--record-attributes", "torso_*")
        self.said_by_run(0, *command, "--trace", "t.csv", "--plot", "p.svg", "--plot-velocity")
        recording = pathlib.Path("r.mcap").read_bytes()
        self.said_by_run(0, *command)
        self.assertEqual(pathlib.Path("r.mcap").read_bytes(), recording)
        self.said(0, "convert", "r.mcap", "c.csv")
        self.assertEqual(read("c.csv"), read("t.csv"))
        self.said(0, "replay", "r.mcap", "--trace", "c.csv")
        self.assertEqual(read("c.csv"), read("t.csv"))
        self.assertEqual(self.document(0, "replay", "r.mcap", "--until", "1")[0]["last_ms"], 1000)
        self.said(0, "plot", "r.mcap", "q.svg", "--plot-velocity")
        self.assertEqual(read("q.svg"), read("p.svg"))
        info = self.document(0, "info", "r.mcap")[0]
        columns = commanded()
        self.assertEqual((info["rows"], info["gaps"]["count"], info["whole"]),
                         (len(columns["motion_ms"]), 0, True))
        self.assertEqual([file["name"] for file in info["attachments"]], ["humanoid.urdf", "humanoid.yaml"])
        self.assertEqual([topic["messages"] for topic in info["topics"][:2]], [info["rows"]] * 2)
        self.assertGreater(info["topics"][3]["messages"], 100)
        self.assertEqual(info["events"]["cleared"], 3)
        self.assertIn("left_gripper", self.said(0, "info", "r.mcap"))
        for size in (len(recording) // 2, 100):
            pathlib.Path("half.mcap").write_bytes(recording[:size])
            self.said(1 if size > 100 else 2, "convert", "half.mcap", "c.csv")
            self.said(1 if size > 100 else 2, "replay", "half.mcap", "--trace", "half.csv")
            self.assertEqual(read("half.csv"), read("c.csv"))
        self.assertTrue(read("t.csv").startswith(read("c.csv")))
        self.assertGreater(len(rows("c.csv")[1]), info["rows"] // 4)

    def test_says_why_standard_output_cannot_be_written(self):
        for command in ("--help",), ("--version",), ("help", "run"), ("check", humanoid, wave), ("list", humanoid):
            with open("/dev/full", "w", encoding="utf-8") as full:
                done = subprocess.run([tool, *command], stdout=full, stderr=subprocess.PIPE, text=True, check=False)
            self.assertEqual((done.returncode, done.stderr), (
                1, "torvex: error: standard output cannot be written: No space left on device\n"), command)

    def test_runs_on_when_a_recording_ends_early(self):
        said = self.said_by_run(1, humanoid, wave, "--record", "/dev/full")
        self.assertIn("error: the recording was not written: /dev/full: No space left", said)
        run = started_run(humanoid, wave, "--pool", self.pool, "--record", "r.mcap")
        while not os.path.exists("r.mcap"):
            self.assertIsNone(run.poll())
        begin = os.path.getsize("r.mcap")
        self.assertIn("another process is writing it", self.said(
            2, "run", humanoid, wave, "--trace", "r.mcap", "--pool", self.pool + "-other"))
        while os.path.getsize("r.mcap") == begin:  # until the first chunk
            self.assertIsNone(run.poll())
        run.kill()
        run.communicate()
        info = self.document(1, "info", "r.mcap")[0]
        self.assertFalse(info["whole"])
        self.assertGreater(info["rows"], 0)

    def test_ends_when_asked_in_real_time(self):
        command = (humanoid, wave, greeting, "--trace", "t.csv", "--pool", self.pool)
        for number in (signal.SIGINT, signal.SIGTERM):
            run = started_run(*command)
            self.said(2, "run", *command)  # its pool is taken
            self.said(0, "run", *command[:3], "--clock", "simulated", "--pool", self.pool + "-other")
            run.send_signal(number)
            said = run.communicate()[0]
            self.assertEqual(run.returncode, 128 + number, said)
            self.assertTrue(read("t.csv").startswith("time_ms,motion_ms,"))
            self.assertTrue(read("t.csv").endswith("\n"))
            self.assertFalse(self.pool_exists() or os.path.exists("t.csv.torvex-part"))

    def test_stops_with_a_ramp(self):
        write("stop.yaml", "batches: [{at: 2.4, stop: all}]")
        self.said_by_run(0, humanoid, wave, "stop.yaml", "--trace", "t.csv")
        self.said(0, "check", humanoid, wave, "stop.yaml")
        columns = commanded()
        moment = columns["motion_ms"].index(2400)
        for name, path in columns.items():
            steps = [path[i + 1] - path[i] for i in range(moment - 2, len(path) - 1)]
            for before, after in zip(steps, steps[1:]):
                self.assertLessEqual(abs(after - before), abs(steps[0]) * 0.01 / 0.25 + 1e-6, name)
            self.assertEqual(set(steps[28:]), {steps[0] if name == "motion_ms" else 0})

    def test_lists_what_the_library_sees(self):
        attributes = json.loads(self.said(0, "list", humanoid, "--json"))
        self.assertEqual(attributes[9], {
            "index": 9, "type": 7, "meaning": "float", "key": "Device/SubDeviceList/torso_pitch/Value",
            "container": "sub-device", "actuator": True, "interpolation": "linear", "minimum": -0.35,
            "maximum": 0.75, "maximum_velocity": 2.0})
        self.assertEqual(attributes[0]["key"], "Device/DeviceList/MainBoard/Version")
        self.assertEqual(attributes[113]["interpolation"], "step")
        self.assertIsNone(attributes[113]["maximum_velocity"])

    def test_completes_what_shells_ask_for(self):
        lines = (("torvex fle", "fleet"), ("torvex fleet ", "ps play hold release stop"), ("torvex fleet hold ", ""),
                 ("torvex fleet hold --a", "--at"), ("torvex help wat", "watch"), ("torvex run --l", "--late"),
                 ("torvex serve --no", "--no-strict"), ("torvex bridge ", "ros2"), ("torvex run --cycle ", ""),
                 ("torvex run --clock s", "simulated"), ("torvex run --clock=s", "simulated"),
                 ("torvex get m", "my\\ arm:1"), ("torvex get my\\ arm:", "1"), ("torvex get 'my a", "my arm:1"),
                 ("torvex stop --machine b a", "a:--machine-b"), ("torvex bridge ros2 ", "left"))
        tool = """torvex() { case $* in ps) echo machine; echo 'left 7';; *) echo 'my arm:1'; echo "a:${*: -2:1}-${*: -1}";; esac; }
                  compopt() { :; }; COMP_WORDBREAKS=$' \\t\\n"\\'@><=;|&(:'; """
        for words, wanted in lines:
            script = (self.said(0, "completion", "bash") + tool +
                      f"COMP_LINE={shlex.quote(words)}; COMP_POINT=${{#COMP_LINE}}; _torvex; echo ${{COMPREPLY[*]}}")
            self.assertEqual(subprocess.run(["bash", "-c", script], text=True, capture_output=True,
                                            check=True).stdout.strip(), wanted, words)
        if shutil.which("zsh"):
            subprocess.run(["zsh", "-n", write("_torvex", self.said(0, "completion", "zsh"))], check=True)
        if shutil.which("fish"):
            source = "function torvex; test $argv[1] = ps; and printf 'machine\\nleft 7\\n'; or echo my arm:1; end\n"
            for words, wanted in lines[:2] + lines[3:11]:  # files follow the third
                script = self.said(0, "completion", "fish") + source + f"complete -C {shlex.quote(words)}"
                said = subprocess.run(["fish", "-c", script], text=True, capture_output=True, check=True).stdout
                self.assertEqual(sorted(line.split("\t")[0].split("=")[-1] for line in said.splitlines()),
                                 sorted(wanted.split()), words)

    def test_watches_a_running_machine_until_it_ends_in_real_time(self):
        machine = write("m.yaml", read(humanoid).replace("name: humanoid", f"name: {self.pool}")
                        .replace("urdf: ", f"urdf: {humanoid.parent}/"))
        run = started_run(machine, wave, "--trace", "t.csv")  # the pool has the machine's name
        self.said(2, "watch", "nope/Value", "--pool", self.pool)
        watch = start("watch", "torso_yaw/Value", "--json", "--pool", self.pool)
        seen = set()
        while len(seen) < 3 and (line := watch.stdout.readline()):
            seen.add(json.loads(line)["values"]["Device/SubDeviceList/torso_yaw/Value"])
        run.send_signal(signal.SIGTERM)
        self.assertIn("left", run.communicate()[0])
        self.assertEqual(run.returncode, 143)
        for path in commanded().values():
            steps = [after - before for before, after in zip(path[-30:], path[-29:])]
            self.assertLess(max(abs(b - a) for a, b in zip(steps, steps[1:])), 1e-3)
        self.assertEqual(steps[-1], 0)
        watch.communicate()
        self.assertEqual((watch.returncode, len(seen)), (0, 3))
        self.said(2, "watch", "--pool", self.pool)

    def test_tells_outcomes_by_their_schemas(self):
        def told(status, command, *arguments):
            document, _ = self.document(status, command, *arguments)
            validators[command].validate(document)
            return document

        validators = {}
        for command in ("run", "check"):
            schema = json.loads(read(root / f"docs/{command}.schema.json"))
            jsonschema.Draft202012Validator.check_schema(schema)
            validators[command] = jsonschema.Draft202012Validator(schema)
        write("machine.yaml", "devices: [{name: D}]\nactuators:\n"
              "- {name: a, type: 7, minimum: -0.5, maximum: 0.5, maximum_velocity: 1}\n"
              "- {name: b, type: 1}\n")
        write("motion.yaml", "lists:\n"
              "- {at: 0, mode: merge, key: a/Value, items: [{time: 0.6, value: 0.9}]}\n"
              "- {at: 0, mode: merge, key: b/Value, items: [{time: 0.5, value: 1}]}\n"
              "- {at: 0.1, mode: replace, key: b/Value, items: []}\n")
        write("wrong.yaml", "joint_names: [a, x, y]\n")
        validators["run"].validate(self.outcome(humanoid, wave, greeting, "--trace", "t.csv")[0])
        limited, _ = self.outcome("machine.yaml", "motion.yaml", "--export", "D=d.xml", clock="realtime")
        validators["run"].validate(limited)
        self.assertEqual([axis["verdict"] for axis in limited["axes"]], ["limited", "stopped"])
        self.assertGreater(limited["latency_ns"]["max"], 0)
        self.assertIn(2, [finding["line"] for finding in limited["warnings"]])
        self.assertEqual(told(1, "check", "machine.yaml", "motion.yaml")["counts"],
                         {"batches": 3, "points": 2, "actuators": 2, "warnings": 1, "errors": 0})
        refused = told(2, "check", "machine.yaml", "wrong.yaml", "motion.yaml")
        self.assertEqual([error["column"] for error in refused["errors"]], [1, 18, 21])
        self.assertEqual((refused["machine"], refused["counts"]["batches"]), ("machine", None))
        write("noted.yaml", "joint_names: [a]\n"
              "points: [{positions: [0], efforts: [1], time_from_start: 1}]\n")
        self.assertEqual(self.said(0, "check", "machine.yaml", "noted.yaml"),
                         "note     noted.yaml: the key efforts is ignored\n"
                         "machine: 1 batch for 1 actuator: 0 findings\n")
        nothing = told(2, "check", "none.yaml", "motion.yaml")
        self.assertEqual((nothing["machine"], nothing["errors"][0]["file"]), (None, "none.yaml"))
        for command, document in (("run", limited), ("check", refused)):
            for number, original in enumerate(objects(document)):
                for key in original:
                    broken, more = copy.deepcopy(document), {**document, key + "_": 0}
                    del list(objects(broken))[number][key]
                    self.assertFalse(validators[command].is_valid(broken), f"accepted without {key}")
                    self.assertFalse(validators[command].is_valid(more), "accepted with more")


if __name__ == "__main__":
    unittest.main()
