"""The exceptions of the wrenlink module.

Every failure the library reports becomes one of these, carrying the result value of the call
and the name of the C function that gave it:

- ``AgentError`` (an ``OSError``): an agent call's status. ``status`` is the value, ``name`` its
  name (``AgentBadMagic``, ``AgentShortPayload``, ``AgentBadCrc``, or the errno name such as
  ``ENOENT``), ``errno`` the errno value where the status is one. The common errno values come as
  subclasses that are also Python's own ``OSError`` subclasses, so ``except FileNotFoundError``
  catches an agent's ENOENT; the three library codes come as ``AgentProtocolError``.
- ``AgentConnectError`` (a ``ConnectionError``): no connection could be opened.
- ``PingError`` (a ``ConnectionError``): TestPing's negative results.
- ``AdbError``: an adb-half result that the library documents as a failure.
- ``LibraryNotFoundError`` (an ``ImportError``): the shared library could not be loaded.

A block the library could not allocate surfaces as Python's ``MemoryError``.
"""

from __future__ import annotations

import errno as _errno
import os

AGENT_BAD_MAGIC = 0xE0000001
AGENT_SHORT_PAYLOAD = 0xE0000002
AGENT_BAD_CRC = 0xE0000003

_LIBRARY_CODES = {
    AGENT_BAD_MAGIC: ("AgentBadMagic", "a reply header arrived whole, but its magic is wrong"),
    AGENT_SHORT_PAYLOAD: ("AgentShortPayload", "a reply's payload did not arrive in full or was malformed"),
    AGENT_BAD_CRC: ("AgentBadCrc", "the CRC of a reply payload does not match its header"),
}


class WrenlinkError(Exception):
    """The base of every error raised by this module."""


class LibraryNotFoundError(WrenlinkError, ImportError):
    """libWrenlink could not be loaded (see ``wrenlink._abi`` for where it is looked for)."""


def status_name(status: int) -> str | None:
    """The name of an agent status: a library code's, an errno value's, or None."""
    if status in _LIBRARY_CODES:
        return _LIBRARY_CODES[status][0]
    return _errno.errorcode.get(status)


class AgentError(WrenlinkError, OSError):
    """An agent call failed with ``status`` (also a scan's failure code)."""

    status: int
    name: str | None
    function: str

    def __init__(self, status: int, function: str) -> None:
        self.status = status
        self.name = status_name(status)
        self.function = function
        if status in _LIBRARY_CODES:
            self.reason = _LIBRARY_CODES[status][1]
            super().__init__(self.reason)
        elif status in _errno.errorcode:
            self.reason = os.strerror(status)
            super().__init__(status, self.reason)
        else:
            self.reason = "the agent's own status"
            super().__init__(self.reason)

    def __str__(self) -> str:
        label = self.name or f"0x{self.status:08X}"
        return f"{self.function}: {label} ({self.status}): {self.reason}"


class AgentProtocolError(AgentError):
    """AgentBadMagic, AgentShortPayload or AgentBadCrc: the agent's reply was not well formed.
    The connection is out of step after it: close it and open another."""


class AgentFileNotFoundError(AgentError, FileNotFoundError):
    """ENOENT."""


class AgentFileExistsError(AgentError, FileExistsError):
    """EEXIST."""


class AgentPermissionError(AgentError, PermissionError):
    """EACCES or EPERM."""


class AgentIsADirectoryError(AgentError, IsADirectoryError):
    """EISDIR."""


class AgentNotADirectoryError(AgentError, NotADirectoryError):
    """ENOTDIR."""


class AgentConnectionResetError(AgentError, ConnectionResetError):
    """ECONNRESET: the peer closed the connection."""


class AgentInterruptedError(AgentError, InterruptedError):
    """EINTR: a signal without SA_RESTART cut a receive; the connection is unusable."""


_BY_ERRNO: dict[int, type[AgentError]] = {
    _errno.ENOENT: AgentFileNotFoundError,
    _errno.EEXIST: AgentFileExistsError,
    _errno.EACCES: AgentPermissionError,
    _errno.EPERM: AgentPermissionError,
    _errno.EISDIR: AgentIsADirectoryError,
    _errno.ENOTDIR: AgentNotADirectoryError,
    _errno.ECONNRESET: AgentConnectionResetError,
    _errno.EINTR: AgentInterruptedError,
}


def agent_error(status: int, function: str) -> AgentError:
    """The exception for a failed agent call, of the most specific class for its status."""
    if status in _LIBRARY_CODES:
        return AgentProtocolError(status, function)
    return _BY_ERRNO.get(status, AgentError)(status, function)


def check_status(status: int, function: str) -> None:
    """Raises for any status other than AgentSuccess."""
    if status != 0:
        raise agent_error(status, function)


class AgentConnectError(WrenlinkError, ConnectionError):
    """NetConnectionOpen gave NULL: the address is not a dotted IPv4 text, or the socket or the
    connect failed. The library says which on stderr (perror); it leaves no errno to read."""

    def __init__(self, address: str, port: int) -> None:
        self.address = address
        self.port = port
        self.function = "NetConnectionOpen"
        super().__init__(f"NetConnectionOpen: no connection to {address}:{port} "
                         f"(a bad address, or the connect failed: see stderr)")


class PingError(WrenlinkError, ConnectionError):
    """TestPing gave ``result``: -2 nothing was sent (an earlier send failed on this connection,
    or it is closed), -3 the receive failed, -4 a wrong answer or the peer closed first."""

    _REASONS = {
        -2: "nothing was sent: an earlier send failed on this connection",
        -3: "the receive failed",
        -4: "a wrong answer, or the peer closed first",
    }

    def __init__(self, result: int) -> None:
        self.result = result
        self.function = "TestPing"
        super().__init__(f"TestPing: {result}: {self._REASONS.get(result, 'unknown result')}")


class AdbError(WrenlinkError):
    """An adb-half function gave ``result``, which its documentation names a failure;
    ``meaning`` says which, ``text`` holds the tool's words where the call returns them."""

    def __init__(self, function: str, result: int, meaning: str, text: str = "") -> None:
        self.function = function
        self.result = result
        self.meaning = meaning
        self.text = text
        message = f"{function}: {result}: {meaning}"
        super().__init__(message + (f": {text.strip()}" if text.strip() else ""))
