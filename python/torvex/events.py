"""The outcome of commands."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass, field
from types import TracebackType
from typing import Any

from .door import Stream


@dataclass(frozen=True)
class Event:
    """One event. `kind` is one of those of docs/api.md: taken, reached, cleared, late, limited,
    refused, guarded, held, ... Fields that do not apply to the kind are None. Times are
    milliseconds of machine time. `fields` has all fields, as the machine sent them."""

    number: int
    kind: str
    machine_ms: int
    request: int | None = None
    key: str | None = None
    count: int | None = None
    by: str | None = None
    reason: str | None = None
    amount: float | None = None
    fields: dict[str, Any] = field(default_factory=dict, repr=False)

    @staticmethod
    def from_fields(fields: dict[str, Any]) -> Event:
        """From a line that the machine sent."""
        return Event(fields["number"], fields["kind"], fields["machine_ms"],
                     *(fields.get(name) for name in ("request", "key", "count", "by", "reason",
                                                     "amount")), fields)


class Events(Iterator[Event]):
    """Events as they arrive, until the machine ends. If you do not read to the end, close it or use
    it in a `with` block; otherwise a keyboard interrupt could be lost."""

    def __init__(self, stream: Stream) -> None:
        self._stream = stream

    def __next__(self) -> Event:
        if (fields := self._stream.next()) is None:
            raise StopIteration
        return Event.from_fields(fields)

    def __enter__(self) -> Events:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self.close()

    def close(self) -> None:
        """Closes the connection; no more events arrive."""
        self._stream.close()
