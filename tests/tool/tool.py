"""The tool as a user starts it, in a folder of the test's own. TORVEX_TOOL is its path."""

import glob
import json
import os
import pathlib
import subprocess
import tempfile
import unittest

root = pathlib.Path(__file__).resolve().parents[2]
tool = os.path.abspath(os.environ.get("TORVEX_TOOL", root / "build/release/torvex"))


def write(name, text):
    pathlib.Path(name).write_text(text, encoding="utf-8")
    return name


def read(name):
    return pathlib.Path(name).read_text(encoding="utf-8")


def start(*arguments, **options):
    return subprocess.Popen([tool, *map(str, arguments)], text=True, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, **options)


def started_run(*arguments, **options):
    """A run whose approach has begun."""
    process, said = start("run", *arguments, **options), ""
    while "approach" not in said and (byte := process.stdout.read(1)):
        said += byte
    return process


class ToolTest(unittest.TestCase):
    """The folder is the current one while a test runs; its name is that of the device pool."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="torvex-test-")
        self.addCleanup(folder.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(folder.name)
        self.pool = os.path.basename(folder.name)

    def said(self, status, *arguments, **options):
        """Both outputs of a command that must end with this status."""
        process = start(*arguments, **options)
        said = process.communicate()[0]
        self.assertEqual(process.returncode, status, said)
        return said

    def said_by_run(self, status, *arguments, **options):
        """The same of a run in simulated time."""
        return self.said(status, "run", *arguments, "--clock", "simulated", "--pool", self.pool,
                         **options)

    def document(self, status, *arguments):
        """The object that a command prints, and what it says on standard error."""
        done = subprocess.run([tool, *map(str, arguments), "--json"], text=True, capture_output=True,
                              check=False)
        self.assertEqual(done.returncode, status, done.stderr)
        return json.loads(done.stdout), done.stderr

    def outcome(self, *arguments, clock="simulated", status=0):
        return self.document(status, "run", *arguments, "--clock", clock, "--pool", self.pool)

    def pool_exists(self):
        return bool(glob.glob("/dev/shm/torvex*." + self.pool))
