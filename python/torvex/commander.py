"""One owner of axes."""

from __future__ import annotations

import threading
import time
from contextlib import suppress
from queue import Empty, SimpleQueue
from types import TracebackType

from .door import Door
from .errors import TorvexError
from .events import Event, Events
from .machine import Machine, Outcome, Taken


class Commander(Machine):
    """Owns axes during its `with` block: nobody else commands them, except a commander of higher
    priority. It has all methods of `Machine`.

    The machine takes the axes back `lease` seconds after the last renewal. `on_loss` sets what
    happens then: "stop" ramps them to rest, "run_out" lets the waiting points run out. Each call
    renews the lease, and so does `alive()`. A thread sends the renewals, but only while the block
    makes calls or waits for points. So a block that hangs loses its axes after at most 1.5 leases.
    At the end of the block the axes are given back at once, and `on_loss` applies to them. With
    "stop" the waiting points are cleared: call `wait()` first, if they are to be reached.
    """

    def __init__(self, door: Door, axes: list[str] | str, *, lease: float, priority: int,
                 on_loss: str, name: str) -> None:
        super().__init__(Door(door.address, door.token))
        self._lease = lease
        self._registration = {"name": name, "axes": axes, "priority": priority,
                              "lease_ms": round(lease * 1000), "on_loss": on_loss}
        self._key: str | None = None
        self._sent: list[Taken] = []
        self._since = 0
        self._waits = False
        self._renewed = 0.0
        # No threading.Event: one whose method is interrupted may stay locked.
        self._has_progress = False
        self._ending: SimpleQueue[None] = SimpleQueue()
        self._registered: SimpleQueue[None] = SimpleQueue()
        self._failure: Exception | None = None
        self._thread = threading.Thread(target=self._live, name="torvex-lease", daemon=True)
        self.lost: TorvexError | None = None

    def __enter__(self) -> Commander:
        try:
            self._thread.start()
            self._registered.get()
            if self._failure is not None:
                raise self._failure
        except BaseException:
            self._end()
            raise
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:
        self._end()
        if error is None and self.lost is None and self._failure is not None:
            raise self._failure

    def _end(self) -> None:
        self._ending.put(None)
        if self._thread.is_alive():
            self._thread.join()
        self.close()

    def alive(self) -> None:
        """The block still makes progress. Raises the error that ended the lease, if any."""
        self._progressed()
        if self.lost is None and time.monotonic() - self._renewed > self._lease / 2:
            self._send_renewal()
        if self.lost is not None:
            raise self.lost

    def wait(self) -> Outcome:
        """Waits until each point sent so far was reached, cleared or refused."""
        sent, self._sent = self._sent, []
        with self.events(self._since) as events:
            return self._follow(sent, events)

    def _follow(self, taken: list[Taken], events: Events) -> Outcome:
        self._waits = True
        try:
            outcome = super()._follow(taken, events)
        finally:
            self._waits = False
        self.alive()
        return outcome

    def _saw(self, event: Event) -> None:
        self._since = event.number + (event.kind not in ("begins", "missed"))

    def _live(self) -> None:
        """The thread's: an interrupt of the caller's finds no registration half made, and no axes
        half given back."""
        try:
            self._register()
            self._registered.put(None)
            self._renew()
            self._door.ask("DELETE", f"/v1/commanders/{self._key}")
        except Exception as error:  # the caller raises it
            self._failure = error
        finally:
            self._registered.put(None)
            self.close()

    def _register(self) -> None:
        with self.events(follow=False) as events:
            self._since = next(events).number
        self._key = self._door.ask("POST", "/v1/commanders", self._registration)["key"]
        self._renewed = time.monotonic()

    def _renew(self) -> None:
        while self.lost is None:
            with suppress(Empty):
                return self._ending.get(timeout=self._lease / 4)
            if self._has_progress or self._waits:
                self._has_progress = False
                self._send_renewal()

    def _send_renewal(self) -> None:
        try:
            self._door.ask("POST", f"/v1/commanders/{self._key}/renew")
            self._renewed = time.monotonic()
        except TorvexError as error:
            self.lost = error

    def _commander(self) -> dict[str, str | None]:
        self.alive()
        return {"commander": self._key}

    def _note(self, taken: Taken) -> None:
        if taken.points:
            self._sent.append(taken)

    def _progressed(self) -> None:
        self._has_progress = True
