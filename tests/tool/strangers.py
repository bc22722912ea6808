#!/usr/bin/env python3
"""What another user of the computer lays in the tool's way. Needs root, who runs the tool here,
and nobody, who is the other one."""

import os
import pwd
import resource
import signal
import stat
import subprocess
import sys
import unittest

from tool import ToolTest, read, start, started_run, tool, write

try:
    nobody = pwd.getpwnam("nobody").pw_uid
    subprocess.run([tool, "--version"], user=nobody, check=True, capture_output=True)
except (KeyError, PermissionError, subprocess.SubprocessError) as reason:
    print(f"skipped: it needs root, and nobody who may run the tool ({reason})")
    sys.exit(77)

motion = "joint_names: [a]\npoints:\n- {positions: [1], time_from_start: 0.2}\n"


def modes(path):
    found = os.stat(path)
    return found.st_uid, oct(stat.S_IMODE(found.st_mode))


def lay(code, end=""):
    """Has nobody run this code. The process ends with its standard input."""
    code = f"import fcntl, os, sys; {code}; print(flush=True); sys.stdin.read()"
    process = subprocess.Popen(["/usr/bin/python3", "-c", code], user=nobody, group=65534, extra_groups=[],
                               stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "\n", code
    return process if end is None else process.communicate(end)


class Strangers(ToolTest):
    def setUp(self):
        super().setUp()
        os.chmod(".", 0o755)
        os.mkdir("shared")
        os.chmod("shared", 0o1777)
        for path, text in {"m.yaml": "actuators: [{name: a}]\n", "t.yaml": motion, "t.csv.torvex-part": motion,
                           "long.yaml": motion.replace("0.2", "60"), "victim": "root's"}.items():
            write(path, text)
        self.file = f"/dev/shm/torvex.0.{self.pool}"

    def expect(self, status, text, *arguments, motion_file="t.yaml", **options):
        """Of a run in simulated time."""
        self.assertIn(text, self.said_by_run(status, "m.yaml", motion_file, *arguments, **options))

    def started(self, *arguments, **options):
        return started_run("m.yaml", "long.yaml", "--pool", self.pool, *arguments, **options)

    def kill_a_run(self, **options):
        run = self.started(**options)
        run.kill()
        run.communicate()
        self.assertTrue(self.pool_exists())

    def test_cannot_have_outputs_written_elsewhere(self):
        here = os.getcwd()
        lay(f"os.symlink('{here}/victim', 'shared/t.csv'); os.symlink('{here}', 'shared/there')")
        for link in ("shared/t.csv", "shared/there/victim"):
            self.expect(2, "symbolic link", "--trace", link)
        self.assertEqual(read("victim"), "root's")
        os.unlink("shared/t.csv")
        lay("open('shared/t.csv', 'w'); os.chmod('shared/t.csv', 0o4777)")
        self.expect(0, "cycles   ", "--trace", "shared/t.csv")
        self.assertEqual(modes("shared/t.csv"), (0, "0o644"))
        holder = lay("file = open('shared/t.csv', 'rb'); fcntl.flock(file, fcntl.LOCK_EX)", end=None)
        self.expect(0, "cycles   ", "--trace", "shared/t.csv")
        holder.communicate()
        os.unlink("shared/t.csv")
        lay("os.mkfifo('shared/t.csv')")
        self.expect(2, "it is a pipe of another user", "--trace", "shared/t.csv")

    def test_outputs_go_where_they_are_to_whatever_their_name(self):
        self.expect(0, "", "--trace", "t.torvex-part", "--plot", "t")
        self.assertTrue(read("t.torvex-part").startswith("time_ms") and read("t").startswith("<?xml"))
        self.expect(0, "", "--trace", "t.csv", motion_file="t.csv.torvex-part")
        self.assertEqual(read("t.csv.torvex-part"), motion)
        self.expect(0, "time_ms,motion_ms,a/command\n", "--trace", "-")
        self.expect(2, "/dev/stdout: error: is used for the JSON object", "--trace", "-", "--json")

    def test_see_of_the_pool_what_they_may(self):
        for options, mask, expected in (([], 0o027, "0o640"), ([], 0o277, "0o600"),
                                        (["--pool-mode", "604"], 0o077, "0o604")):
            run = self.started(*options, umask=mask)
            self.assertEqual(modes(self.file), (0, expected))
            run.terminate()
            said = run.communicate()[0]
            self.assertEqual((run.returncode, self.pool_exists()), (143, False), said)

    def test_cannot_keep_the_pool(self):
        self.kill_a_run()
        holder = lay(f"file = open('{self.file}', 'rb'); fcntl.lockf(file, fcntl.LOCK_SH)", end=None)
        self.expect(0, "in place of one that a killed process left")
        self.assertFalse(self.pool_exists())
        holder.communicate()
        for what in (f"open('{self.file}', 'w')", f"os.mkfifo('{self.file}')",
                     f"os.symlink('{os.getcwd()}/victim', '{self.file}')"):
            lay(what)
            self.expect(2, "belongs to user 'nobody'")
            self.said(2, "watch", "--pool", self.pool)
            os.unlink(self.file)

    def test_have_pools_of_their_own(self):
        self.kill_a_run(user=nobody, umask=0o277)
        self.expect(0, "cycles   ")
        his = ("--pool", f"{nobody}:{self.pool}")
        self.assertIn("no longer runs", self.said(2, "watch", "--once", *his))
        self.assertIn("only that user can create it", self.said(2, "run", "m.yaml", "t.yaml", *his))
        self.expect(0, "in place of one", user=nobody)
        self.assertFalse(self.pool_exists())

    def test_watch_ends_when_the_pool_is_cut_short(self):
        machine = self.started()
        watch = start("watch", "--json", "--pool", self.pool)
        watch.stdout.readline()
        machine.send_signal(signal.SIGSTOP)
        os.truncate(self.file, 0)
        self.assertIn("cut short", watch.communicate()[0])
        self.assertEqual(watch.returncode, 2)
        machine.kill()
        machine.communicate()
        os.unlink(self.file)

    def test_run_confined_as_a_service_may_be(self):
        done = subprocess.run(
            ["setpriv", f"--reuid={nobody}", "--regid=65534", "--clear-groups", "--no-new-privs", "--bounding-set=-all",
             tool, "run", "m.yaml", "t.yaml", "--pool", self.pool, "--trace", "shared/n.csv"], check=False)
        self.assertEqual((done.returncode, modes("shared/n.csv")), (0, (nobody, "0o644")))
        self.assertFalse(self.pool_exists())

    def test_cannot_connect(self):
        door = start("serve", "m.yaml", "--socket", "shared/door/m.sock", "--pool", self.pool)
        said = ""
        while "m.sock" not in said and (line := door.stdout.readline()):
            said += line
        connect = "import socket; code = socket.socket(socket.AF_UNIX).connect_ex('shared/door/m.sock'); assert code == 13, code"
        lay(connect)
        os.chmod("shared/door", 0o755)
        lay(connect)
        door.terminate()
        self.assertIn("ended by signal 15", door.communicate()[0])
        lay("os.mkdir('shared/his', 0o700)")
        self.assertIn("belongs to the user", self.said(2, "serve", "m.yaml", "--pool", self.pool,
                                                       "--socket", "shared/his/m.sock"))

    def test_few_descriptors_leave_no_pool(self):
        with open(tool, "rb") as file:
            if b"libasan" in file.read():  # needs some of its own
                return
        for most in range(3, 13):
            run = start("run", "m.yaml", "t.yaml", "--clock", "simulated", "--pool", self.pool, "--trace", "d.csv",
                        preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))
            said = run.communicate()[0]
            self.assertIn(run.returncode, (0, 1, 2, 127), f"{most} descriptors: {said}")
            self.assertFalse(self.pool_exists())


if __name__ == "__main__":
    unittest.main()
