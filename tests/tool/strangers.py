#!/usr/bin/env python3
"""strangers.py TOOL: what another user of the computer lays in its way. Needs root, who runs the
tool here, and nobody, who is the other one."""

import contextlib
import fcntl
import os
import pwd
import resource
import signal
import stat
import subprocess
import sys
import tempfile

tool = os.path.abspath(sys.argv[1])
try:
    nobody = pwd.getpwnam("nobody").pw_uid
    subprocess.run([tool, "--version"], user=nobody, check=True, capture_output=True)
except (KeyError, PermissionError, subprocess.SubprocessError) as reason:
    print(f"strangers: skipped: it needs root, and nobody who may run the tool ({reason})")
    sys.exit(77)

wrong = tried = 0
folder = tempfile.mkdtemp(prefix="torvex-test-")
os.chdir(folder)
os.chmod(folder, 0o755)
name = os.path.basename(folder)
pool, foreign = f"/dev/shm/torvex.0.{name}", f"/dev/shm/torvex.{nobody}.{name}"
os.mkdir("shared")
os.chmod("shared", 0o1777)
motion = "joint_names: [a]\npoints:\n- {positions: [1], time_from_start: 0.2}\n"
for path, text in {"m.yaml": "actuators: [{name: a}]\n", "t.yaml": motion, "t.csv.torvex-part": motion,
                   "long.yaml": motion.replace("0.2", "60"), "victim": "root's"}.items():
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


class Stranger:
    """Another user's process, which has run some code, and stays until it is dismissed."""

    def __init__(self, code):
        done, tell = os.pipe()
        self.process = os.fork()
        if self.process == 0:
            os.setgroups([])
            os.setgid(65534)
            os.setuid(nobody)
            exec(code, {"os": os, "fcntl": fcntl})
            os.write(tell, b"1")
            signal.pause()
        os.close(tell)
        os.read(done, 1)
        os.close(done)

    def dismiss(self):
        os.kill(self.process, signal.SIGKILL)
        os.waitpid(self.process, 0)


def torvex(*arguments, **options):
    with contextlib.suppress(subprocess.TimeoutExpired):
        return subprocess.run([tool, *arguments], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              check=False, timeout=60, **options)
    return subprocess.CompletedProcess(arguments, -1, "it hung")


def run(*arguments, **options):
    motions = [a for a in arguments if a.endswith((".yaml", ".torvex-part")) and a == arguments[0]] or ["t.yaml"]
    rest = arguments[1:] if motions[0] in arguments[:1] else arguments
    return torvex("run", "m.yaml", *motions, "--clock", "simulated", "--pool", name, *rest, **options)


def started(*arguments, **options):
    """A run that is under way."""
    process = subprocess.Popen([tool, "run", "m.yaml", "long.yaml", "--pool", name, *arguments], text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    while (line := process.stdout.readline()) and "approach" not in line:
        pass
    return process


def killed_run(**options):
    """Leaves a pool behind."""
    process = started(**options)
    process.kill()
    process.wait()


def expect(what, done, status, text, *conditions):
    global wrong, tried
    tried += 1
    if done.returncode != status or text not in done.stdout or not all(conditions):
        wrong += 1
        print(f"{what}: status {done.returncode}, {conditions}\n{done.stdout}")


def modes(path):
    found = os.stat(path)
    return found.st_uid, oct(stat.S_IMODE(found.st_mode))


def content(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def outputs():
    Stranger(f"os.symlink('{folder}/victim', 'shared/t.csv'); os.symlink('{folder}', 'shared/there')").dismiss()
    for link in ("shared/t.csv", "shared/there/victim"):
        expect("a link in the way", run("--trace", link), 2, "symbolic link", content("victim") == "root's")
    os.unlink("shared/t.csv")
    Stranger("open('shared/t.csv', 'w'); os.chmod('shared/t.csv', 0o4777)").dismiss()
    expect("a file with a set-id bit", run("--trace", "shared/t.csv"), 0, "cycles   ", modes("shared/t.csv") == (0, "0o644"))
    os.unlink("shared/t.csv")
    Stranger("os.mkfifo('shared/t.csv')").dismiss()
    expect("a pipe", run("--trace", "shared/t.csv"), 2, "it is a pipe of another user")
    expect("part names", run("--trace", "t.torvex-part", "--plot", "t"), 0, "",
           content("t.torvex-part").startswith("time_ms"), content("t").startswith("<?xml"))
    expect("a motion like a part", run("t.csv.torvex-part", "--trace", "t.csv"), 0, "", content("t.csv.torvex-part") == motion)
    expect("standard output", run("--trace", "-"), 0, "time_ms,motion_ms,a/command\n")
    expect("standard output twice", run("--trace", "-", "--json"), 2, "/dev/stdout: error: holds the JSON object")


def pools():
    for what, options, mode, expected in (("the umask", [], 0o027, "0o640"), ("a strict one", [], 0o277, "0o600"),
                                          ("--pool-mode", ["--pool-mode", "604"], 0o077, "0o604")):
        process = started(*options, umask=mode)
        found = modes(pool)
        process.send_signal(signal.SIGTERM)
        done = subprocess.CompletedProcess([], 143, process.communicate()[0])
        expect(what, done, 143, "", found == (0, expected), not os.path.exists(pool))
    killed_run()
    stranger = Stranger(f"file = open('{pool}', 'rb'); fcntl.lockf(file, fcntl.LOCK_SH)")
    expect("a lock for reading", run(), 0, "in place of one that a killed process left", not os.path.exists(pool))
    stranger.dismiss()
    killed_run(user=nobody, umask=0o277)
    expect("a killed run of another", run(), 0, "cycles   ")
    expect("another's pool by its name", torvex("watch", "--once", "--pool", f"{nobody}:{name}"), 2, "runs no more")
    expect("another's name", torvex("run", "m.yaml", "t.yaml", "--pool", f"{nobody}:{name}"), 2, "who alone can make it")
    expect("his own next run", run(user=nobody), 0, "in place of one", not os.path.exists(foreign))
    for what, code in (("an empty file", f"open('{pool}', 'w')"), ("a pipe", f"os.mkfifo('{pool}')"),
                       ("a link", f"os.symlink('{folder}/victim', '{pool}')")):
        Stranger(code).dismiss()
        expect(f"{what} as a pool", run(), 2, "belongs to user 'nobody'")
        expect(f"watching {what}", torvex("watch", "--pool", name), 2, "")
        os.unlink(pool)
    machine = started()
    watch = subprocess.Popen([tool, "watch", "--json", "--pool", name], stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, text=True)
    watch.stdout.readline()
    machine.send_signal(signal.SIGSTOP)
    os.truncate(pool, 0)
    said = watch.communicate(timeout=60)[0]
    expect("a pool cut short", subprocess.CompletedProcess([], watch.returncode, said), 2, "cut short")
    machine.kill()
    machine.wait()
    os.unlink(pool)


def confined():
    """As a service may be: nobody, without capabilities or new privileges."""
    limits = ["setpriv", f"--reuid={nobody}", "--regid=65534", "--clear-groups", "--no-new-privs", "--bounding-set=-all"]
    done = subprocess.run([*limits, tool, "run", "m.yaml", "t.yaml", "--pool", name, "--trace", "shared/n.csv"],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    expect("a confined run", done, 0, "cycles   ", modes("shared/n.csv") == (nobody, "0o644"), not os.path.exists(foreign))


def descriptors():
    """The sanitizers need some of their own: without, they see faults where none are."""
    with open(tool, "rb") as file:
        if b"libasan" in file.read():
            return
    for most in range(3, 13):
        done = run("--trace", "d.csv", preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (most, most)))
        expect(f"{most} descriptors", done, done.returncode, "", done.returncode in (0, 1, 2, 127), not os.path.exists(pool))


try:
    outputs()
    pools()
    confined()
    descriptors()
finally:
    subprocess.run(["rm", "-rf", folder, pool, foreign], check=False)
print(f"strangers: {tried} tried, {wrong} wrong")
sys.exit(wrong > 0)
