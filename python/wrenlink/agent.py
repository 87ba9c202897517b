"""The agent half: one connection to the agent on the phone, as a context manager.

Threads. The file calls (``open`` and the file objects, ``delete``, ``mkdir``, ``exists``) lock
each exchange inside the library, so threads may share an Agent for them. Ping, the media
calls and the scan calls lock nothing in the library: the Agent runs them one at a time under a
lock of its own and holds the connection's lock around them, so that no other thread's file
exchange slips in between. A running scan holds both only for its start exchange; its control
calls (``stop_scan``, ``pause_scan``, ``resume_scan``, ``erase``) and any other call may be made
while it runs, from another thread or from its callbacks.

Time limits: there are none. ``close()`` from another thread makes a waiting call fail at once
(with EBADF), and the connection is dead from then on.
"""

from __future__ import annotations

import ctypes
import errno
import os
import threading
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Callable, Generator, Iterator, Optional

from . import _blocks, scan as _scan
from ._abi import MediaRecord, lib
from .errors import AgentConnectError, PingError, agent_error, check_status
from .remote_file import RemoteFile

@dataclass(frozen=True)
class MediaItem:
    """One item of the phone's media catalogue. The library copies the values from the agent's
    reply; the names say what the reference agent puts there."""

    id: int
    path: str
    size: int
    name: str
    mtime: int
    mime_type: str


class Agent:
    """A connection to the agent at ``address`` (dotted IPv4) and ``port`` (a port that adb
    forwards to the agent, or the agent's own on this machine).

    Raises ``AgentConnectError`` (a ``ConnectionError``) when no connection can be made."""

    def __init__(self, address: str = "127.0.0.1", port: int = 10243) -> None:
        handle = lib.NetConnectionOpen(address.encode(), port)
        if not handle:
            raise AgentConnectError(address, port)
        self.handle: int = handle
        self.address = address
        self.port = port
        self._closed = False
        self._exchange = threading.Lock()

    def __enter__(self) -> Agent:
        return self

    def __exit__(self, *_exc: object) -> None:
        self.close()

    def __repr__(self) -> str:
        return f"<wrenlink.Agent {self.address}:{self.port}{' closed' if self._closed else ''}>"

    @property
    def closed(self) -> bool:
        return self._closed

    def close(self) -> None:
        """Closes the connection; safe from any thread and more than once. A call waiting on
        the connection fails at once; the files opened through it are closed with it."""
        self._closed = True
        lib.NetConnectionClose(self.handle)

    # -- ping and raw transfers ------------------------------------------------------------

    def ping(self) -> None:
        """Returns when the agent answered; raises ``PingError`` otherwise."""
        with self._exclusive():
            result = lib.TestPing(self.handle)
        if result != 0:
            raise PingError(result)

    def send(self, data: bytes, flags: int = 0) -> None:
        """Sends all of ``data`` on the connection (NetConnectionSend). A transfer that broke
        off, or a connection with a stored send error, raises ``AgentError`` with errno."""
        with self._exclusive():
            ctypes.set_errno(0)
            sent = lib.NetConnectionSend(self.handle, data, len(data), flags)
            failure = ctypes.get_errno()
        if sent != len(data):
            raise agent_error(failure or errno.EINVAL, "NetConnectionSend")

    def recv(self, length: int, flags: int = 0) -> bytes:
        """Receives exactly ``length`` bytes (NetConnectionRecv). The peer's close first raises
        ``ConnectionResetError`` (an ``AgentError``), another failure ``AgentError`` with errno."""
        buffer = ctypes.create_string_buffer(length)
        with self._exclusive():
            ctypes.set_errno(0)
            got = lib.NetConnectionRecv(self.handle, buffer, length, flags)
            failure = ctypes.get_errno()
        if got != length:
            raise agent_error(failure or errno.ECONNRESET, "NetConnectionRecv")
        return buffer.raw

    # -- remote files and paths ------------------------------------------------------------

    def open(self, path: str | bytes | os.PathLike[str], mode: str = "r") -> RemoteFile:
        """Opens a file on the phone with an fopen-style mode ("r", "w", "a", then any of "+",
        "b", "t", "e", "x" for the reference agent) as an unbuffered ``io.RawIOBase``.
        A refusal raises ``AgentError`` (``FileNotFoundError``, ``IsADirectoryError`` ...)."""
        return RemoteFile(self, path, mode)

    def delete(self, path: str | bytes | os.PathLike[str]) -> None:
        """Deletes a file, a link or an empty directory on the phone."""
        check_status(lib.NFCFileRefDelete(self.handle, os.fsencode(path)), "NFCFileRefDelete")

    def mkdir(self, path: str | bytes | os.PathLike[str]) -> None:
        """Makes one directory (``FileExistsError`` when it is there)."""
        check_status(lib.NFCFileRefMkDir(self.handle, os.fsencode(path)), "NFCFileRefMkDir")

    def exists(self, path: str | bytes | os.PathLike[str]) -> bool:
        """NFCFileRefAccess: True for 0, False for ENOENT; any other status raises."""
        status = lib.NFCFileRefAccess(self.handle, os.fsencode(path))
        if status == errno.ENOENT:
            return False
        check_status(status, "NFCFileRefAccess")
        return True

    # -- media catalogue -------------------------------------------------------------------

    def images(self) -> list[MediaItem]:
        return self._media_list(lib.NMCListImages, "NMCListImages")

    def music(self) -> list[MediaItem]:
        return self._media_list(lib.NMCListMusics, "NMCListMusics")

    def videos(self) -> list[MediaItem]:
        return self._media_list(lib.NMCListVideo, "NMCListVideo")

    def add_image(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCAddImage, "NMCAddImage", path)

    def delete_image(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCDelImage, "NMCDelImage", path)

    def add_music(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCAddMusic, "NMCAddMusic", path)

    def delete_music(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCDelMusic, "NMCDelMusic", path)

    def add_video(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCAddIVideo, "NMCAddIVideo", path)

    def delete_video(self, path: str | bytes | os.PathLike[str]) -> None:
        self._media_change(lib.NMCDelIVideo, "NMCDelIVideo", path)

    # -- scan --------------------------------------------------------------------------------

    def scan(self,
             on_item: Optional[Callable[[_scan.ScanItem], object]] = None,
             on_progress: Optional[Callable[[_scan.ScanProgress], object]] = None,
             on_code: Optional[Callable[[_scan.ScanCode], object]] = None) -> Optional[int]:
        """Scans the phone on this thread, calling back here as events come; the event
        connection goes to 127.0.0.1:10244. Returns the scan's code: 0 complete, ECANCELED after
        a stop, None when the agent sent none. Raises ``AgentError`` when the scan could not
        start (EBUSY while another runs), or for a failure code (EINVAL, 22: the event stream
        broke). A callback that raises stops the scan; its exception is raised here."""
        return _scan.run_scan(self, on_item, on_progress, on_code)

    def scan_events(self, max_queued: int = 1024) -> Generator[_scan.ScanEvent, None, Optional[int]]:
        """The scan as a generator of ``ScanItem``, ``ScanProgress`` and ``ScanCode`` events,
        run on a worker thread and handed over through a queue of ``max_queued`` events (the
        scan waits while it is full). Closing the generator early (``break``, ``close()``) stops
        the scan and waits for the worker. Failures raise as in ``scan`` once the events before
        them were read."""
        return _scan.scan_events(self, max_queued)

    def stop_scan(self) -> None:
        """Stops the running scan (``AgentError`` ESRCH when none runs)."""
        self._control(lib.NDDStopScan, "NDDStopScan")

    def pause_scan(self) -> None:
        """Pauses the running scan; returns once it has parked."""
        self._control(lib.NDDPauseScan, "NDDPauseScan")

    def resume_scan(self) -> None:
        self._control(lib.NDDResumeScan, "NDDResumeScan")

    def erase(self, path: str | bytes | os.PathLike[str]) -> None:
        """NDDEraseFile: deletes one file (not a directory), with or without a scan running."""
        with self._exclusive():
            status = lib.NDDEraseFile(self.handle, os.fsencode(path))
        check_status(status, "NDDEraseFile")

    # -- internals ---------------------------------------------------------------------------

    @contextmanager
    def _exclusive(self) -> Iterator[None]:
        with self._exchange:
            lib.NetConnectionLock(self.handle)
            try:
                yield
            finally:
                lib.NetConnectionUnlock(self.handle)

    def _hold_for_scan(self) -> Callable[[], None]:
        """Takes what ``_exclusive`` takes and returns a function that gives it back once."""
        self._exchange.acquire()
        lib.NetConnectionLock(self.handle)
        held = [True]

        def release() -> None:
            if held[0]:
                held[0] = False
                lib.NetConnectionUnlock(self.handle)
                self._exchange.release()

        return release

    def _control(self, function: Callable[[int], int], name: str) -> None:
        with self._exclusive():
            status = function(self.handle)
        check_status(status, name)

    def _media_change(self, function: Callable[[int, bytes], int], name: str,
                      path: str | bytes | os.PathLike[str]) -> None:
        with self._exclusive():
            status = function(self.handle, os.fsencode(path))
        check_status(status, name)

    def _media_list(self, function: Callable[..., int], name: str) -> list[MediaItem]:
        head = MediaRecord()
        count = ctypes.c_uint32(0)
        with self._exclusive():
            status = function(self.handle, ctypes.byref(head), ctypes.byref(count))
        if status != 0:
            raise agent_error(status, name)
        if count.value == 0:
            return []
        _blocks.taken(4 * count.value)  # each record and its three texts
        return _take_media_list(head)


def _take_media_list(head: MediaRecord) -> list[MediaItem]:
    """Copies the records after ``head`` and gives every record and text back, whatever happens."""
    items: list[MediaItem] = []
    node = head.next
    try:
        while node:
            record = node.contents
            items.append(MediaItem(record.value1, _text(record.text1), record.value2, _text(record.text2),
                                   record.value3, _text(record.text3)))
            node = record.next
    finally:
        node = head.next
        while node:
            record = node.contents
            following = record.next
            for text in (record.text1, record.text2, record.text3):
                _blocks.give_back(text)
            _blocks.give_back(ctypes.addressof(record))
            node = following
    return items


def _text(address: Optional[int]) -> str:
    return os.fsdecode(ctypes.string_at(address)) if address else ""
