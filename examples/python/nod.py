#!/usr/bin/env python3
"""Nods once, then turns the head to and fro, until the machine ends or Ctrl-C.

While `torvex serve examples/humanoid/humanoid.yaml` runs:  python3 examples/python/nod.py humanoid
"""

import math
import sys
import time

import torvex

PERIOD_SECONDS = 0.05


def nod(commander: torvex.Commander) -> None:
    """Sends one batch, and waits for its outcome."""
    commander.send("head_pitch", [(0.5, 0.2), (1.0, -0.2), (1.5, 0.0)])
    outcome = commander.wait()
    print(f"nodded: {outcome.reached} of {outcome.points} points reached")


def follow(commander: torvex.Commander) -> None:
    """Streams: each batch replaces the waiting points, a little ahead of now."""
    begin = time.monotonic()
    while True:
        target = 0.3 * math.sin(time.monotonic() - begin)
        commander.send("head_yaw", [(0.1, target)], mode="replace")
        time.sleep(PERIOD_SECONDS)


def main() -> int:
    machine = torvex.connect(sys.argv[1] if len(sys.argv) > 1 else "humanoid")
    print("head_yaw is at", machine["head_yaw/Value"])
    try:
        # In this block nobody else may command the head. At its end the head stops.
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
