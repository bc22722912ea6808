#!/usr/bin/env python3
"""fleet.py [HOURS] [SEED]: what `torvex fleet` can expect of networks that were not there to be tried: how well clocks
are known, how many machines begin together, and how often a lease runs out although nothing is broken. HOURS (20) of one
machine are simulated for each row. Prints tables in Markdown; figures of docs/network.md."""

import math
import random
import statistics
import sys

hours, seed = (kind(text) for kind, text in zip((float, int), (sys.argv[1:] + ["20", "1"][len(sys.argv) - 1:])))
ask_every, window, drift, first_exchanges = 0.05, 64, 1e-4, 16
lease, renew_every, cycle = 1.0, 0.25, 0.010
least_retry = 0.2  # of TCP in Linux; each further one takes twice as long
sizes = (2, 5, 10, 20, 50, 100)

# One way: the least, what waits on the way at the mean, and how much longer the way back is.
networks = {
    "one switch": (0.00005, 0.00003, 0.0),
    "a few switches, busy": (0.0002, 0.0003, 0.0),
    "radio": (0.0015, 0.003, 0.0005),
    "routed, 20 ms away": (0.010, 0.002, 0.003),
    "routed, 100 ms away": (0.050, 0.005, 0.010),
}


class Way:
    """What TCP makes of a network that loses packets."""

    def __init__(self, draw, network, loss):
        self.draw, self.loss = draw, loss
        self.least, self.jitter, self.further = networks[network]

    def delay(self, is_back=False):
        delay, retry = 0.0, max(least_retry, 4 * self.least)
        while self.draw.random() < self.loss:
            delay, retry = delay + retry, 2 * retry
        return delay + self.least + (self.further if is_back else 0) + self.draw.expovariate(1 / self.jitter)


def bounds_of(way, machines):
    """How well clocks are known after some exchanges, and how wrong the middle was."""
    bounds, errors = [], []
    for _ in range(machines):
        now, best = 0.0, (math.inf, 0.0)
        for _ in range(first_exchanges):
            there, back = way.delay(), way.delay(True)
            now += there + back
            best = min(best, ((there + back) / 2, (back - there) / 2))
            if now > 1:
                break
        bounds.append(best[0] + drift * now)
        errors.append(abs(best[1]))
    return bounds, errors


def apart(draw, bounds):
    """How far apart the first cycles may be at the best moment: as `findCommonStart` has it."""
    phases = sorted((draw.uniform(0, cycle), bound) for bound in bounds)
    best = math.inf
    for i in range(len(phases)):
        turned = phases[i:] + [(phase + cycle, bound) for phase, bound in phases[:i]]
        latest = max(phase + bound for phase, bound in turned)
        best = min(best, latest - min(phase - bound for phase, bound in turned))
    return best


def leases_of(way, seconds):
    """How often a lease ends, and how often an answer does not come within it, though nothing is broken."""
    now, renewed_at_machine, renew_due, expired, silent = 0.0, 0.0, 0.0, 0, 0
    while now < seconds:
        there, back = way.delay(), way.delay(True)
        if now >= renew_due:
            expired += now + there - renewed_at_machine > lease
            renewed_at_machine, renew_due = now + there, now + renew_every
        silent += there + back > lease
        now += max(ask_every, there + back)
    return expired, silent


def row(*cells):
    print("| " + " | ".join(str(cell) for cell in cells) + " |")


def head(*cells):
    row(*cells)
    print("|" + "---|" * len(cells))


def common_starts(draw):
    head("network", "clock known to within, median (ms)", "99 % (ms)", "off by, 99 % (ms)",
         *(f"{size} begin" for size in sizes))
    for network in networks:
        way = Way(draw, network, 0.0)
        bounds, errors = bounds_of(way, 2000)
        share = []
        for size in sizes:
            tries = [apart(draw, draw.choices(bounds, k=size)) <= cycle for _ in range(max(2000 // size, 100))]
            share.append(f"{100 * statistics.mean(tries):.0f} %")
        hundredths = statistics.quantiles(bounds, n=100)
        row(network, f"{1000 * hundredths[49]:.3f}", f"{1000 * hundredths[98]:.3f}",
            f"{1000 * statistics.quantiles(errors, n=100)[98]:.3f}", *share)


def lost_leases(draw):
    head("network", "packets lost", "leases ended, an hour of one machine", "of ten", "of a hundred")
    for network in ("one switch", "radio", "routed, 100 ms away"):
        for loss in (0.001, 0.01, 0.02, 0.05, 0.1):
            ended = sum(leases_of(Way(draw, network, loss), hours * 3600)) / hours
            row(network, f"{100 * loss:g} %", *(f"{n * ended:.2g}" if ended else f"< {n / hours:.2g}" for n in (1, 10, 100)))


def main():
    draw = random.Random(seed)
    print(f"cycle {1000 * cycle:g} ms, {first_exchanges} exchanges; lease {lease:g} s, renewed every {renew_every:g} s; "
          f"{hours:g} hours of one machine, seed {seed}\n")
    common_starts(draw)
    print()
    lost_leases(draw)


if __name__ == "__main__":
    main()
