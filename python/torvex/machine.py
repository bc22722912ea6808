"""A running machine, as a client sees it."""

from __future__ import annotations

import os
from collections.abc import Iterable
from contextlib import suppress
from dataclasses import dataclass, field, fields
from pathlib import Path
from typing import Any

from .door import Door
from .errors import ConnectionLost, Refused, TorvexError
from .events import Event, Events

Point = tuple[float, float]
Value = float | int | str | None


@dataclass(frozen=True)
class Axis:
    """One actuator. A missing limit is None; `maximum_velocity` is in units per second;
    `interpolation` is linear or step; `joint` and `kind` (revolute, continuous, prismatic) are
    those of the URDF; `owner`, `held`, `waiting` and `counts` (points = reached + cleared +
    refused + waiting; also late and limited) are as at the time of the request."""

    name: str
    key: str
    type: str
    minimum: float | None
    maximum: float | None
    maximum_velocity: float | None
    interpolation: str
    sensor: str | None
    joint: str | None
    kind: str | None
    owner: str | None
    held: str | None
    waiting: int
    counts: dict[str, int]


@dataclass(frozen=True)
class Taken:
    """What the machine took. `request` is its number in events (None for a dry run and for
    immediate stops). The others count points. `batches` has the answer for each batch and axis."""

    request: int | None
    points: int
    late: int
    limited: int
    batches: list[dict[str, Any]] = field(repr=False)

    def axes(self) -> set[str]:
        """The names of its actuators."""
        return {_name(axis["key"]) for batch in self.batches for axis in batch["axes"]}

    @staticmethod
    def from_answer(answer: dict[str, Any]) -> Taken:
        """From an answer of the machine."""
        axes = [axis for batch in answer["batches"] for axis in batch["axes"]]
        points, late, limited = (sum(axis[name] for axis in axes)
                                 for name in ("points", "late", "limited"))
        return Taken(answer["request"], points, late, limited, answer["batches"])


@dataclass(frozen=True)
class Outcome:
    """The outcome of the points of a request; each point is counted once. `by` tells what cleared
    the latest of the cleared points: batch, stop, hold, commander, guard, others."""

    points: int
    reached: int
    cleared: int
    refused: int
    by: str | None


class Machine:
    """Commands one machine and reads its values. Any thread; one request at a time.

    Each method raises `Refused` if the machine refuses, and `NotRunning` or `ConnectionLost` if it
    does not answer. Commands are taken only on axes that nobody owns. To own axes, use `command`.
    """

    def __init__(self, door: Door) -> None:
        self._door = door

    @property
    def name(self) -> str:
        """The machine's name."""
        return str(self.describe()["name"])

    def describe(self) -> dict[str, Any]:
        """The answer to `GET /v1/machine`."""
        return dict(self._door.ask("GET", "/v1/machine"))

    def axes(self) -> dict[str, Axis]:
        """The actuators, by name."""
        known = [each.name for each in fields(Axis)]
        return {axis["name"]: Axis(**{name: axis[name] for name in known})
                for axis in self.describe()["axes"]}

    def __getitem__(self, key: str) -> Value:
        """The present value of an attribute: a number, a text, or None if it has no value. Raises
        `KeyError` if the machine has no such key."""
        values = self.values(key)
        if len(values) != 1:
            raise KeyError(f"{key} is a pattern; use values()")
        return next(iter(values.values()))

    def values(self, *keys: str) -> dict[str, Value]:
        """Values of one cycle, by full key: of these keys and patterns (`*/Value`), by default of
        all attributes. Raises `KeyError` for a key that the machine does not have."""
        try:
            return dict(self._door.ask("GET", "/v1/values", query={"key": keys})["values"])
        except Refused as error:
            if error.reason == "unknown":
                raise KeyError(error.message) from error
            raise

    def send(self, axis: str, points: Iterable[Point], mode: str = "merge", *,
             at: float | None = None, interpolation: str | None = None,
             dry_run: bool = False) -> Taken:
        """Commands one actuator: points of (seconds from now, value), in rising time. `mode` sets
        what happens to the waiting points (merge, replace, clear_after, clear_before). With `at`,
        machine time in seconds, the batch is handed over then and its times count from then.
        `dry_run` only answers and changes nothing."""
        items = [{"time": time, "value": value} for time, value in points]
        batch = {"key": axis if axis.endswith("/Value") else f"{axis}/Value", "items": items,
                 "mode": mode, "at": at, "interpolation": interpolation}
        return self.batches([{name: value for name, value in batch.items() if value is not None}],
                            dry_run=dry_run)

    def batches(self, batches: list[dict[str, Any]], *, dry_run: bool = False) -> Taken:
        """Sends batches with the keys of motion files; all are taken or none. Without `at`, the
        times of their points count from now."""
        return self._command({"batches": batches, "dry_run": dry_run})

    def play(self, path: str | os.PathLike[str], motion: str | None = None, *,
             interpolation: str = "message", wait: bool = True) -> Outcome | Taken:
        """Plays a motion file, or one of the named motions in it. The machine approaches its first
        point from the present position. Waits for the end and returns the outcome of the points, or
        without `wait` what was taken. If an exception ends the waiting, the axes of the motion are
        stopped."""
        name = os.fspath(path)
        body = {"motions": [f"{name}:{motion}" if motion else name],
                "files": {name: Path(name).read_text(encoding="utf-8")},
                "interpolation": interpolation, **self._commander()}
        if not wait:
            return self._played(body)
        taken = None
        with self.events() as events:
            try:
                taken = self._played(body)
                return self._follow([taken], events)
            except BaseException:
                if taken is not None:
                    with suppress(TorvexError):  # the first exception counts
                        self.stop(*taken.axes())
                raise

    def stop(self, *axes: str) -> None:
        """Clears the waiting points of these axes (default: all) and ramps them to rest."""
        self._command({"batches": [{"stop": list(axes) or "all"}]})

    def hold(self, *axes: str) -> None:
        """Ramps these axes (default: all) to rest, and refuses all commands for them until
        `release`. Anyone may hold, whoever owns the axes."""
        self._door.ask("POST", "/v1/hold", _axes(axes))

    def release(self, *axes: str) -> None:
        """Releases these axes (default: all), also those that the guard holds. Nothing is
        resumed."""
        self._door.ask("POST", "/v1/release", _axes(axes))

    def command(self, axes: Iterable[str] | None = None, *, lease: float = 1.0,
                priority: int = 50, on_loss: str = "stop", name: str | None = None) -> Commander:
        """An owner of these axes (default: all) for a `with` block, see `Commander`."""
        from .commander import Commander
        return Commander(self._door, list(axes) if axes is not None else "all", lease=lease,
                         priority=priority, on_loss=on_loss,
                         name=name or f"python-{os.getpid()}")

    def events(self, since: int | None = None, *, follow: bool = True) -> Events:
        """The outcome of commands, from now on, or from the event with number `since` on. The first
        event is `begins`, which is there when this returns: no later event is missed. It ends with
        the machine, or with `follow=False` after the latest event. Close it afterwards: `with machine.events() as events:`."""
        query = {"since": since, "follow": None if follow else "false"}
        return Events(self._door.stream("/v1/events", query))

    def health(self) -> dict[str, Any]:
        """Cycles, overruns, latencies."""
        return dict(self._door.ask("GET", "/v1/health"))

    def close(self) -> None:
        """Closes the connection; the next request opens another one."""
        self._door.close()

    def _ask_with_files(self, path: str, body: dict[str, Any]) -> Any:
        """Also sends the files that motion files name; the machine asks for them one by one."""
        while True:
            try:
                return self._door.ask("POST", path, body)
            except Refused as error:
                if error.reason != "needs_file" or error.file in body["files"]:
                    raise
                body["files"][str(error.file)] = Path(str(error.file)).read_text(encoding="utf-8")

    def _commander(self) -> dict[str, Any]:
        return {}

    def _note(self, taken: Taken) -> None:
        """A request was taken."""

    def _command(self, body: dict[str, Any]) -> Taken:
        taken = Taken.from_answer(self._door.ask("POST", "/v1/batches",
                                                 {**body, **self._commander()}))
        self._note(taken)
        return taken

    def _played(self, body: dict[str, Any]) -> Taken:
        taken = Taken.from_answer(self._ask_with_files("/v1/motions", body))
        self._note(taken)
        return taken

    def _saw(self, event: Event) -> None:
        """An event was read while points are waited for."""

    def _follow(self, taken: list[Taken], events: Events) -> Outcome:
        """Reads events until the outcome of each point of these requests is known."""
        counts = {"reached": 0, "cleared": 0, "refused": 0}
        points = sum(request.points for request in taken)
        numbers = {request.request for request in taken}
        by = None
        while sum(counts.values()) < points:
            event = next(events, None)
            if event is None:
                raise ConnectionLost("the machine ended before the motion did")
            self._saw(event)
            if event.kind == "missed":
                raise ConnectionLost("too many events were missed, so the outcome is not known")
            if event.request in numbers and event.kind in counts:
                counts[event.kind] += event.count or 0
                by = event.by or by
        return Outcome(points, counts["reached"], counts["cleared"], counts["refused"], by)


def _name(key: str) -> str:
    return key.removeprefix("Device/SubDeviceList/").removesuffix("/Value")


def _axes(axes: tuple[str, ...]) -> dict[str, Any]:
    return {"axes": list(axes)} if axes else {}


def connect(machine: str, *, token: str | None = None) -> Machine:
    """The machine of this name that this user runs; or the path of its socket; or
    http://HOST:PORT, with the token that `torvex serve --http` wrote. Raises `NotRunning` where
    none answers."""
    connected = Machine(Door(machine, token))
    connected.health()
    return connected
