#!/usr/bin/env python3
"""Nods, and follows a hand that waves up and down, until the machine or Ctrl-C ends it.

Beside `torvex serve examples/humanoid/humanoid.yaml`:  python3 examples/python/nod.py humanoid
"""

import math
import sys
import time

import torvex

PERIOD_SECONDS = 0.05


def nod(commander: torvex.Commander) -> None:
    """One batch, and what became of its points."""
    commander.send("head_pitch", [(0.5, 0.2), (1.0, -0.2), (1.5, 0.0)])
    outcome = commander.wait()
    print(f"nodded: {outcome.reached} of {outcome.points} points reached")


def follow(commander: torvex.Commander) -> None:
    """A stream: each batch takes the place of what waits, a little ahead of now."""
    begin = time.monotonic()
    while True:
        target = 0.3 * math.sin(time.monotonic() - begin)
        commander.send("head_yaw", [(0.1, target)], mode="replace")
        time.sleep(PERIOD_SECONDS)


def main() -> int:
    machine = torvex.connect(sys.argv[1] if len(sys.argv) > 1 else "humanoid")
    print("head_yaw stands at", machine["head_yaw/Value"])
    try:
        # While the block makes calls, nobody else commands the head; when it ends, it stops.
        with machine.command(["head_yaw", "head_pitch"], lease=0.5, name="nod") as head:
            nod(head)
            follow(head)
    except KeyboardInterrupt:
        return 0
    except torvex.TorvexError as error:
        print(error, file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(main())
