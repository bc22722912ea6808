"""A machine that runs, as a client sees it."""

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
    """One actuator. Limits are None where there are none; `maximum_velocity` is in units a
    second; `interpolation` is linear or step; `joint` and `kind` (revolute, continuous, prismatic)
    are those of the URDF; `owner`, `held`, `waiting` and `counts` (points = reached + cleared +
    refused + waiting; of these late, limited) are as they were when asked."""

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
    """What the machine took: `request` is the number that events of it carry (None for a dry
    run), the others count points. `batches` has the answer for each batch and axis."""

    request: int | None
    points: int
    late: int
    limited: int
    batches: list[dict[str, Any]] = field(repr=False)

    def axes(self) -> set[str]:
        """The names of the actuators that it concerns."""
        return {_name(axis["key"]) for batch in self.batches for axis in batch["axes"]}

    @staticmethod
    def from_answer(answer: dict[str, Any]) -> Taken:
        """From what the machine answered."""
        axes = [axis for batch in answer["batches"] for axis in batch["axes"]]
        points, late, limited = (sum(axis[name] for axis in axes)
                                 for name in ("points", "late", "limited"))
        return Taken(answer["request"], points, late, limited, answer["batches"])


@dataclass(frozen=True)
class Outcome:
    """What became of the points of a request, each of which is counted once. `by` tells who
    cleared the latest of those that were cleared: batch, stop, hold, commander, guard, others."""

    points: int
    reached: int
    cleared: int
    refused: int
    by: str | None


class Machine:
    """Commands one machine and reads its values. Any thread; requests take turns.

    Each method raises `Refused` where the machine refuses, `NotRunning` and `ConnectionLost` where
    it does not answer. Commands are taken on axes that nobody owns: `command` makes an owner.
    """

    def __init__(self, door: Door) -> None:
        self._door = door

    @property
    def name(self) -> str:
        """The machine's name."""
        return str(self.describe()["name"])

    def describe(self) -> dict[str, Any]:
        """All that the machine says of itself, as `GET /v1/machine` has it."""
        return dict(self._door.ask("GET", "/v1/machine"))

    def axes(self) -> dict[str, Axis]:
        """The actuators, by name."""
        known = [each.name for each in fields(Axis)]
        return {axis["name"]: Axis(**{name: axis[name] for name in known})
                for axis in self.describe()["axes"]}

    def __getitem__(self, key: str) -> Value:
        """The present value of an attribute: a number, a text, None where it holds none. Raises
        `KeyError` where the machine has no such key."""
        values = self.values(key)
        if len(values) != 1:
            raise KeyError(f"{key} is a pattern; ask for values()")
        return next(iter(values.values()))

    def values(self, *keys: str) -> dict[str, Value]:
        """Values of one cycle by full key, of these keys and patterns (`*/Value`); without any,
        of all attributes. Raises `KeyError` for a key that the machine does not have."""
        try:
            return dict(self._door.ask("GET", "/v1/values", query={"key": keys})["values"])
        except Refused as error:
            if error.reason == "unknown":
                raise KeyError(error.message) from error
            raise

    def send(self, axis: str, points: Iterable[Point], mode: str = "merge", *,
             at: float | None = None, interpolation: str | None = None,
             dry_run: bool = False) -> Taken:
        """Commands one actuator: points of (seconds from now, value), in rising time. `mode` says
        what becomes of points that wait (merge, replace, clear_after, clear_before); with `at`,
        machine time in seconds, the batch counts from then. `dry_run` answers and does nothing."""
        items = [{"time": time, "value": value} for time, value in points]
        batch = {"key": axis if axis.endswith("/Value") else f"{axis}/Value", "items": items,
                 "mode": mode, "at": at, "interpolation": interpolation}
        return self.batches([{name: value for name, value in batch.items() if value is not None}],
                            dry_run=dry_run)

    def batches(self, batches: list[dict[str, Any]], *, dry_run: bool = False) -> Taken:
        """Commands batches as motion files have them; all are taken or none."""
        return self._command({"batches": batches, "dry_run": dry_run})

    def play(self, path: str | os.PathLike[str], motion: str | None = None, *,
             interpolation: str = "message", wait: bool = True) -> Outcome | Taken:
        """Plays a motion file, or one of the named motions in it, from where the machine stands: its
        first point is approached. Waits for its end and returns what became of its points, or what
        was taken where it is not to wait. Left by an exception while it waits, it stops the axes of
        the motion."""
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
                    with suppress(TorvexError):  # what it was left by counts
                        self.stop(*taken.axes())
                raise

    def stop(self, *axes: str) -> None:
        """Brings these axes to rest along a ramp, all without any, and clears what waits there."""
        self._command({"batches": [{"stop": list(axes) or "all"}]})

    def hold(self, *axes: str) -> None:
        """Brings these axes to rest, all without any, and has everything refused there until
        `release`. Anyone may hold, whoever owns the axes."""
        self._door.ask("POST", "/v1/hold", _axes(axes))

    def release(self, *axes: str) -> None:
        """Ends holds of these axes, of all without any, and frees those that the guard holds.
        Nothing is resumed."""
        self._door.ask("POST", "/v1/release", _axes(axes))

    def command(self, axes: Iterable[str] | None = None, *, lease: float = 1.0,
                priority: int = 50, on_loss: str = "stop", name: str | None = None) -> Commander:
        """An owner of these axes, of all without any, for a `with` block: see `Commander`."""
        from .commander import Commander
        return Commander(self._door, list(axes) if axes is not None else "all", lease=lease,
                         priority=priority, on_loss=on_loss,
                         name=name or f"python-{os.getpid()}")

    def events(self, since: int | None = None, *, follow: bool = True) -> Events:
        """What becomes of commands, from now on, or from the event with number `since` on. The
        first event is `begins`, which is there when this returns. Ends with the machine, or with
        `follow=False` after the latest event. To be closed: `with machine.events() as events:`."""
        query = {"since": since, "follow": None if follow else "false"}
        return Events(self._door.stream("/v1/events", query))

    def health(self) -> dict[str, Any]:
        """Cycles, overruns, latencies."""
        return dict(self._door.ask("GET", "/v1/health"))

    def close(self) -> None:
        """Closes the connection; the next request makes another."""
        self._door.close()

    def _ask_with_files(self, path: str, body: dict[str, Any]) -> Any:
        """The machine asks for the files that motion files name, one by one."""
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
        """Reads events until each point of these requests was told."""
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
