"""What becomes of commands."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass, field
from types import TracebackType
from typing import Any

from .door import Stream


@dataclass(frozen=True)
class Event:
    """One event. `kind` is the machine's word: taken, reached, cleared, late, limited, refused,
    guarded, held, ...; a field that does not concern the kind is None. Times are milliseconds of
    machine time. `fields` has all of it, as the machine sent it."""

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
    """Events as they come; ends with the machine. Whoever does not read it to its end closes it,
    or uses it in a `with` block, so that an interrupt by the keyboard is never lost."""

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
        """Ends the connection; nothing comes any more."""
        self._stream.close()
