"""What becomes of commands."""

from __future__ import annotations

from dataclasses import dataclass, field
from typing import Any


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
