"""A file on the phone, opened through the agent, as a Python raw file object."""

from __future__ import annotations

import ctypes
import io
import os
from typing import TYPE_CHECKING

from ._abi import lib
from .errors import check_status

if TYPE_CHECKING:
    from .agent import Agent

# One exchange moves at most this much: the reference agent answers a read with at most 16 MiB,
# and a write request's length must stay well under 2 GiB.
CHUNK = 16 * 1024 * 1024
# What readall asks for per exchange (the default would ask for 8 KiB at a time).
READALL_CHUNK = 1024 * 1024


class RemoteFile(io.RawIOBase):
    """An open file on the phone (``Agent.open``). Unbuffered: each ``read``/``readinto`` is one
    read exchange (so it may return fewer bytes than asked; ``b""`` at the end), each ``write``
    sends everything (in pieces of 16 MiB) or raises. ``seek`` and ``tell`` ask the agent.
    Wrap it in ``io.BufferedReader`` or ``io.BufferedWriter`` for small reads or writes.

    The file's exchanges lock the connection, so threads may share one Agent; one file object
    belongs to one thread at a time. Every failure raises ``AgentError`` (see its subclasses);
    after a failed transfer the connection refuses every later file call."""

    def __init__(self, agent: Agent, path: str | bytes | os.PathLike[str], mode: str) -> None:
        super().__init__()
        self._agent = agent
        self.name = os.fsdecode(path)
        self.mode = mode
        self._readable = mode[:1] == "r" or "+" in mode
        self._writable = mode[:1] in ("w", "a") or "+" in mode
        self._ref: int | None = None
        handle = ctypes.c_void_p()
        check_status(lib.NFCFileRefOpen(agent.handle, os.fsencode(path), mode.encode(), ctypes.byref(handle)),
                     "NFCFileRefOpen")
        self._ref = handle.value

    def readable(self) -> bool:
        self._checkClosed()
        return self._readable

    def writable(self) -> bool:
        self._checkClosed()
        return self._writable

    def seekable(self) -> bool:
        self._checkClosed()
        return True

    def readinto(self, buffer: bytearray | memoryview) -> int:  # type: ignore[override]
        self._check_open(self._readable, "reading")
        view = memoryview(buffer).cast("B")
        count = min(len(view), CHUNK)
        if count == 0:
            return 0
        target = (ctypes.c_char * count).from_buffer(view)
        length = ctypes.c_int32(count)
        try:
            check_status(lib.NFCFileRefRead(self._agent.handle, self._ref, target, ctypes.byref(length)),
                         "NFCFileRefRead")
        finally:
            del target
            view.release()
        return length.value

    def readall(self) -> bytes:
        parts = []
        while True:
            part = self.read(READALL_CHUNK)
            if not part:
                return b"".join(parts)
            parts.append(part)

    def write(self, data: bytes | bytearray | memoryview) -> int:  # type: ignore[override]
        self._check_open(self._writable, "writing")
        view = memoryview(data).cast("B")
        for start in range(0, len(view), CHUNK):
            piece = view[start:start + CHUNK]
            source = bytes(piece) if piece.readonly else (ctypes.c_char * len(piece)).from_buffer(piece)
            check_status(lib.NFCFileRefWrite(self._agent.handle, self._ref, source, len(piece)),
                         "NFCFileRefWrite")
        return len(view)

    def tell(self) -> int:
        """The agent's position of the file: after the last byte read or written (in "a" mode
        after the last byte written, the end)."""
        self._check_open(True, "")
        position = ctypes.c_int64()
        check_status(lib.NFCFileRefTell(self._agent.handle, self._ref, ctypes.byref(position)), "NFCFileRefTell")
        return position.value

    def seek(self, offset: int, whence: int = os.SEEK_SET) -> int:
        self._check_open(True, "")
        check_status(lib.NFCFileRefSeek(self._agent.handle, self._ref, offset, whence), "NFCFileRefSeek")
        return offset if whence == os.SEEK_SET else self.tell()

    def close(self) -> None:
        """Closes the remote file and releases its handle. On a connection with a stored error the
        library keeps the handle and this raises that error; once the Agent is closed, the agent
        has closed the file with the connection and nothing is sent (the handle's few bytes stay
        with the library)."""
        if self.closed:
            return
        ref, self._ref = self._ref, None
        super().close()
        if ref is not None and not self._agent.closed:
            check_status(lib.NFCFileRefClose(self._agent.handle, ref), "NFCFileRefClose")

    def _check_open(self, allowed: bool, what: str) -> None:
        self._checkClosed()
        if not allowed:
            raise io.UnsupportedOperation(f"{self.name} is not open for {what} (mode {self.mode!r})")
