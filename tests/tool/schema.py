#!/usr/bin/env python3
"""schema.py TOOL ROOT: what --json prints against the schemas docs/*.schema.json of the tree ROOT."""

import copy
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

tool, root = (os.path.abspath(path) for path in sys.argv[1:3])


def validator(command):
    with open(os.path.join(root, f"docs/{command}.schema.json"), encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    return jsonschema.Draft202012Validator(schema)


def outcome(command, *arguments, status=0):
    run = subprocess.run([tool, command, *arguments, "--json"], check=False, capture_output=True)
    assert run.returncode == status, run
    document = json.loads(run.stdout)
    validator(command).validate(document)
    return document


def objects(value):
    """The value and all in it that is an object."""
    if isinstance(value, dict):
        yield value
    for part in value.values() if isinstance(value, dict) else value:
        if isinstance(part, (dict, list)):
            yield from objects(part)


def poorer(document):
    """The document with each member of each object in turn left out."""
    for number, original in enumerate(objects(document)):
        for key in original:
            broken = copy.deepcopy(document)
            del list(objects(broken))[number][key]
            yield key, broken


with tempfile.TemporaryDirectory(prefix="torvex-test-") as folder:
    os.chdir(folder)
    pool = os.path.basename(folder)
    with open("machine.yaml", "w", encoding="utf-8") as file:
        file.write("actuators:\n"
                   "- {name: a, type: 7, minimum: -0.5, maximum: 0.5, maximum_velocity: 1}\n"
                   "- {name: b, type: 1}\n"
                   "devices: [{name: D}]\n")
    with open("motion.yaml", "w", encoding="utf-8") as file:
        file.write("lists:\n"
                   "- {at: 0, mode: merge, key: a/Value, items: [{time: 0.6, value: 0.9}]}\n"
                   "- {at: 0, mode: merge, key: b/Value, items: [{time: 0.5, value: 1}]}\n"
                   "- {at: 0.1, mode: replace, key: b/Value, items: []}\n")
    humanoid = os.path.join(root, "examples/humanoid")
    with open("wrong.yaml", "w", encoding="utf-8") as file:
        file.write("joint_names: [a, x, y]\n")
    with open("noted.yaml", "w", encoding="utf-8") as file:
        file.write("joint_names: [a]\n"
                   "points: [{positions: [0], efforts: [1], time_from_start: 1}]\n")
    noted = subprocess.check_output([tool, "check", "machine.yaml", "noted.yaml"], text=True)
    example = outcome("run", *(f"{humanoid}/{name}.yaml" for name in ("humanoid", "wave", "greeting")),
                      "--clock", "simulated", "--pool", pool, "--trace", "t.csv")
    limited = outcome("run", "machine.yaml", "motion.yaml", "--pool", pool, "--export", "D=d.xml")

    checked = outcome("check", "machine.yaml", "motion.yaml", status=1)
    refused = outcome("check", "machine.yaml", "wrong.yaml", "motion.yaml", status=2)
    nothing = outcome("check", "none.yaml", "motion.yaml", status=2)

assert [axis["verdict"] for axis in limited["axes"]] == ["limited", "stopped"], limited["axes"]
assert example["latency_ns"] is None and limited["latency_ns"]["max"] > 0
assert {finding["line"] for finding in limited["warnings"]} >= {2}, limited["warnings"]
assert checked["counts"] == {"batches": 3, "points": 2, "actuators": 2, "warnings": 1, "errors": 0}
assert [error["column"] for error in refused["errors"]] == [1, 18, 21], refused
assert refused["machine"] == "machine" and refused["counts"]["batches"] is None, refused
assert noted == ("note     noted.yaml: efforts are ignored\n"
                 "machine: 1 batch for 1 actuator: 0 findings\n"), noted
assert nothing["machine"] is None and nothing["errors"][0]["file"] == "none.yaml", nothing
missing = [(command, document, *poor)
           for command, document in (("run", limited), ("check", refused))
           for poor in poorer(document)]
for command, document, key, broken in missing:
    assert not validator(command).is_valid(broken), f"accepted without {key}"
    assert not validator(command).is_valid({**document, key + "_": 0}), "accepted with more"
print(f"{len(missing)} poorer outcomes refused")
