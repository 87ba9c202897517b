"""The blocks the library hands over (phone arrays, package texts, media records and their
texts). Every hand-over is counted where the library reports it, and every block is given back
through ``give_back``, which counts the WrenlinkFree calls: the two counts meet when nothing
leaked and nothing was freed twice.
"""

from __future__ import annotations

import threading

from ._abi import lib

_lock = threading.Lock()
_taken = 0
_freed = 0


def taken(count: int = 1) -> None:
    """Notes ``count`` blocks handed over by the library."""
    global _taken
    with _lock:
        _taken += count


def give_back(address: int | None) -> None:
    """WrenlinkFree of one block (None, a NULL, is skipped and not counted)."""
    global _freed
    if not address:
        return
    lib.WrenlinkFree(address)
    with _lock:
        _freed += 1


def counts() -> tuple[int, int]:
    """(blocks taken, blocks given back) since the module was loaded."""
    with _lock:
        return _taken, _freed
