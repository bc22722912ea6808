"""Where a machine listens, and requests to it."""

from __future__ import annotations

import http.client
import json
import os
import select
import socket
import threading
from typing import Any
from urllib.parse import quote, urlencode, urlsplit

from .errors import ConnectionLost, NotRunning, Refused

ANSWER_SECONDS = 15.0  # more than the machine allows itself


class UnixConnection(http.client.HTTPConnection):
    """HTTP over a Unix socket."""

    def __init__(self, path: str, timeout: float) -> None:
        super().__init__("localhost", timeout=timeout)
        self.path = path

    def connect(self) -> None:
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(self.timeout)
        self.sock.connect(self.path)


def socket_of(name: str) -> str:
    """Where the machine of this name listens, when this user started it."""
    if folder := os.environ.get("XDG_RUNTIME_DIR"):
        return f"{folder}/torvex/{name}.sock"
    folder = f"/run/user/{os.geteuid()}"
    if os.geteuid() == 0 and not os.path.isdir(folder):
        folder = "/run"
    return f"{folder}/torvex/{name}.sock"


class Stream:
    """Objects as they come, until the machine ends. What it holds is closed by `close`, at its end
    and by an exception: Python drops an interrupt that comes while it frees what is still open."""

    def __init__(self, connection: http.client.HTTPConnection,
                 response: http.client.HTTPResponse) -> None:
        self._connection = connection
        self._response = response
        self._lines: list[bytes] = []
        self._rest = b""

    def next(self) -> dict[str, Any] | None:
        """None at the end."""
        try:
            while not self._lines:
                chunk = self._response.read1(65536)
                if not chunk:
                    self.close()
                    return None
                *lines, self._rest = (self._rest + chunk).split(b"\n")
                self._lines = lines[::-1]
            return dict(json.loads(self._lines.pop()))
        except (OSError, http.client.HTTPException, ValueError) as error:
            self.close()
            raise ConnectionLost("the machine ended without a word") from error
        except BaseException:
            self.close()
            raise

    def close(self) -> None:
        """Ends the connection; nothing comes any more."""
        self._lines.clear()
        self._response.close()
        self._connection.close()


class Door:
    """One connection to a machine, made when it is needed. Any thread; one request at a time."""

    def __init__(self, address: str, token: str | None = None) -> None:
        """`address` is the machine's name, the path of its socket, or http://HOST:PORT."""
        self.address = address
        self.token = token
        self._lock = threading.Lock()
        self._connection: http.client.HTTPConnection | None = None

    def ask(self, method: str, path: str, body: Any = None, *,
            query: dict[str, Any] | None = None) -> Any:
        """What the machine answers; `body` is sent as JSON. Raises `Refused`, `NotRunning`,
        `ConnectionLost`."""
        with self._lock:
            connection = self._usable()
            try:
                self._send(connection, method, path + _query(query), body)
                with connection.getresponse() as response:
                    answer = response.read()
            except (OSError, http.client.HTTPException) as error:
                self._drop()
                raise ConnectionLost(f"{self.address}: {error or 'closed'}") from error
            except BaseException:
                self._drop()  # half used: the next request needs another
                raise
        return _checked(response.status, answer)

    def stream(self, path: str, query: dict[str, Any] | None = None) -> Stream:
        """The objects of an answer that does not end, on a connection of its own, which is open
        when this returns."""
        connection = self._open()
        try:
            self._send(connection, "GET", path + _query(query))
            response = connection.getresponse()
            if response.status != http.client.OK:
                _checked(response.status, response.read())
            if connection.sock is not None:
                connection.sock.settimeout(None)  # there may be nothing to tell for hours
        except (OSError, http.client.HTTPException) as error:
            connection.close()
            raise ConnectionLost(f"{self.address}: {error or 'closed'}") from error
        except BaseException:
            connection.close()
            raise
        return Stream(connection, response)

    def close(self) -> None:
        """Ends the connection; the next request makes another."""
        with self._lock:
            self._drop()

    def _usable(self) -> http.client.HTTPConnection:
        """One that the machine has not closed meanwhile: so nothing is ever sent twice."""
        if self._connection is not None and self._connection.sock is not None:
            if not select.select([self._connection.sock], [], [], 0)[0]:
                return self._connection
        self._drop()
        self._connection = self._open()
        return self._connection

    def _open(self) -> http.client.HTTPConnection:
        if self.address.startswith("http://"):
            url = urlsplit(self.address)
            connection = http.client.HTTPConnection(url.hostname or "localhost", url.port,
                                                    timeout=ANSWER_SECONDS)
        else:
            path = self.address if "/" in self.address else socket_of(self.address)
            connection = UnixConnection(path, ANSWER_SECONDS)
        try:
            connection.connect()
        except OSError as error:
            connection.close()
            is_named = "/" not in self.address and isinstance(error, FileNotFoundError)
            raise NotRunning((f"no machine '{self.address}' runs; " if is_named else
                              f"no machine answers at {self.address}: {error.strerror}; ") +
                             "start one with 'torvex serve'") from error
        return connection

    def _send(self, connection: http.client.HTTPConnection, method: str, path: str,
              body: Any = None) -> None:
        headers = {"Authorization": f"Bearer {self.token}"} if self.token else {}
        content: bytes | None = None
        if body is not None:
            content = json.dumps(body, allow_nan=False).encode()
            headers["Content-Type"] = "application/json"
        connection.request(method, path, content, headers)

    def _drop(self) -> None:
        if self._connection is not None:
            self._connection.close()
            self._connection = None


def _query(query: dict[str, Any] | None) -> str:
    given = {name: value for name, value in (query or {}).items() if value is not None}
    return "?" + urlencode(given, doseq=True, quote_via=quote) if given else ""


def _checked(status: int, answer: bytes) -> Any:
    try:
        value = json.loads(answer)
    except ValueError:
        value = {}
    if 200 <= status < 300:
        return value
    raise Refused(status, value.get("error", {}) if isinstance(value, dict) else {})
