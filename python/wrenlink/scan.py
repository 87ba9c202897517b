"""The agent's disk scan: events, the blocking run with callbacks, and the generator form.

NDDStartScan blocks its calling thread and calls back on it. The callbacks here never let an
exception reach the library: a callback that raises stops the scan, and the exception is raised
again once NDDStartScan has returned.
"""

from __future__ import annotations

import errno
import os
import queue
import threading
from dataclasses import dataclass
from typing import TYPE_CHECKING, Callable, Generator, Optional, Union

from ._abi import CodeCallback, FoundItemCallback, ProgressCallback, lib
from .errors import AgentError, agent_error

if TYPE_CHECKING:
    from .agent import Agent


@dataclass(frozen=True)
class ScanItem:
    """A found file. The library gives the text no meaning; the reference agent sends
    "<size>\\t<mtime>\\t<MIME type>\\t<phone path>" (see ``fields``)."""

    text: str

    @property
    def fields(self) -> list[str]:
        return self.text.split("\t")


@dataclass(frozen=True)
class ScanProgress:
    """Files done of the total."""

    done: int
    total: int


@dataclass(frozen=True)
class ScanCode:
    """The scan's result code: 0 complete, ECANCELED (125) after a stop, or a failure."""

    code: int


ScanEvent = Union[ScanItem, ScanProgress, ScanCode]
_ENDINGS = (0, errno.ECANCELED)


def run_scan(agent: Agent,
             on_item: Optional[Callable[[ScanItem], object]] = None,
             on_progress: Optional[Callable[[ScanProgress], object]] = None,
             on_code: Optional[Callable[[ScanCode], object]] = None) -> Optional[int]:
    """Runs a scan on this thread; see ``Agent.scan``."""
    raised: list[BaseException] = []
    codes: list[int] = []
    release = agent._hold_for_scan()

    def guarded(handler: Callable[[], object]) -> None:
        # The start exchange is over once an event comes: others may use the connection.
        release()
        if raised:
            return
        try:
            handler()
        except BaseException as error:  # noqa: B036 - it is raised again on this thread
            raised.append(error)
            try:
                agent.stop_scan()
            except AgentError:
                pass  # the scan was ending anyway; the callback's exception is what counts

    def item(text: bytes, _user: int) -> None:
        guarded(lambda: on_item and on_item(ScanItem(os.fsdecode(text))))

    def progress(done: int, total: int, _user: int) -> None:
        guarded(lambda: on_progress and on_progress(ScanProgress(done, total)))

    def code(value: int, _user: int) -> None:
        codes.append(value)
        guarded(lambda: on_code and on_code(ScanCode(value)))

    callbacks = (FoundItemCallback(item), CodeCallback(code), ProgressCallback(progress))
    try:
        status = lib.NDDStartScan(agent.handle, None, *callbacks, 0)
    finally:
        release()
    if status != 0:
        raise agent_error(status, "NDDStartScan")
    if raised:
        raise raised[0]
    final = codes[-1] if codes else None
    if final not in (None, *_ENDINGS):
        raise agent_error(final, "NDDStartScan (the scan's code)")
    return final


def scan_events(agent: Agent, max_queued: int = 1024) -> Generator[ScanEvent, None, Optional[int]]:
    """The generator form; see ``Agent.scan_events``."""
    events: queue.Queue[object] = queue.Queue(max_queued)
    closing = threading.Event()
    done = object()
    outcome: dict[str, object] = {}

    def put(event: object) -> None:
        # A consumer that stopped reading sets `closing`: drop events instead of waiting.
        while not closing.is_set():
            try:
                events.put(event, timeout=0.05)
                return
            except queue.Full:
                pass

    def work() -> None:
        try:
            outcome["code"] = run_scan(agent, put, put, put)
        except BaseException as error:  # noqa: B036 - handed to the consumer's thread
            outcome["error"] = error
        finally:
            put(done)

    worker = threading.Thread(target=work, name="wrenlink-scan", daemon=True)
    worker.start()
    finished = False
    try:
        while True:
            event = events.get()
            if event is done:
                finished = True
                break
            yield event  # type: ignore[misc]
    finally:
        if not finished:
            _stop_early(agent, closing, events, worker)
        worker.join()
    error = outcome.get("error")
    if isinstance(error, BaseException):
        raise error
    return outcome.get("code")  # type: ignore[return-value]


def _stop_early(agent: Agent, closing: threading.Event, events: queue.Queue[object],
                worker: threading.Thread) -> None:
    closing.set()
    while True:  # a callback waiting on a full queue gets its place and returns
        try:
            events.get_nowait()
        except queue.Empty:
            break
    try:
        agent.stop_scan()
    except AgentError as error:
        if error.status != errno.ESRCH:  # ESRCH: the scan had ended by itself
            worker.join()
            raise
