"""What can go wrong between a client and a machine."""

from __future__ import annotations

from typing import Any


class TorvexError(Exception):
    """Any of the errors below."""


class NotRunning(TorvexError):
    """No machine runs at this address."""


class ConnectionLost(TorvexError):
    """The machine ended, or closed the connection, before it answered. Whether it took the request
    is not known; its events tell."""


class Refused(TorvexError):
    """The machine refused a whole request. `reason` is one of `owned`, `held`, `guard`, `full`,
    `too_fast` and the others of docs/api.md, `path` the field with the fault, `status` the status
    of HTTP. The others are None if they do not apply to the reason."""

    def __init__(self, status: int, error: dict[str, Any]) -> None:
        self.status = status
        self.reason: str = error.get("reason", "internal")
        self.path: str = error.get("path", "")
        self.message: str = error.get("message", f"status {status}")
        self.key: str | None = error.get("key")
        self.owner: str | None = error.get("owner")
        self.room: int | None = error.get("room")
        self.figure: float | None = error.get("figure")
        self.limit: float | None = error.get("limit")
        self.file: str | None = error.get("file")
        self.line: int | None = error.get("line")
        self.column: int | None = error.get("column")
        self.errors: list[dict[str, Any]] = error.get("errors", [])
        places = [self.file, self.line, self.column] if self.file else [self.path]
        where = "".join(f"{place}:" for place in places if place) + " "
        super().__init__(f"{where}{self.message} ({self.reason})".lstrip())
