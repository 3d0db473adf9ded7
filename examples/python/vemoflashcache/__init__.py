"""SSD caches of a storage appliance, by its library libvemoflashcache.

    import vemoflashcache
    for cache in vemoflashcache.caches():
        print(cache.ssd, cache.volume, cache.read_hits)

Functions that fail raise Error; nothing here keeps anything of the library's after it has returned.
"""

from __future__ import annotations

import ctypes
import dataclasses
import enum
from typing import Iterator

from . import _library

__all__ = ["Cache", "Error", "HandleState", "WriteMode", "caches", "dirty_blocks", "flush", "cancel_flush",
           "handle_state"]


class WriteMode(enum.IntEnum):
    """What becomes of a write."""

    THRU = 0
    BACK = 1
    AROUND = 2


class HandleState(enum.IntEnum):
    """How a cache is run."""

    FLUSH = 0
    NORMAL = 1
    REPAIRING = 2
    STOP_WRITEBACK = 3


class Error(Exception):
    """A call failed; `code` is what the platform recorded, 0 where it recorded nothing."""

    def __init__(self, what: str, code: int) -> None:
        super().__init__(f"{what} [0x{code:04X}]; the system log says more" if code else what)
        self.code = code


@dataclasses.dataclass(frozen=True)
class Cache:
    """A running cache, as it was when it was asked for."""

    ssd: str
    volume: str
    write_mode: WriteMode | None
    total_blocks: int
    cached_blocks: int
    block_bytes: int
    reads: int
    writes: int
    read_hits: int
    write_hits: int

    @property
    def size_bytes(self) -> int:
        """The size of the cache."""
        return self.total_blocks * self.block_bytes


def _failed(what: str) -> Error:
    return Error(what, int(_library.core.VLIBCErrGet()))


def _short(device: str) -> bytes:
    return device.rsplit("/", 1)[-1].encode()


def _walk(first: _library.StatPointer) -> Iterator[Cache]:
    link = first
    while link:
        stat = link.contents
        counts = stat.CountStat
        known = stat.WriteMode in set(WriteMode)
        yield Cache(
            ssd=stat.SSDDevPath.decode(),
            volume=stat.SpacePath.decode(),
            write_mode=WriteMode(stat.WriteMode) if known else None,
            total_blocks=stat.TotalBlocks,
            cached_blocks=stat.CachedBlocks,
            block_bytes=stat.BlockSizeKB * 1024,
            reads=counts.Reads,
            writes=counts.Writes,
            read_hits=counts.ReadHits,
            write_hits=counts.WriteHits,
        )
        link = stat.Next


def caches() -> list[Cache]:
    """All running caches; fails when one of them cannot be described, as a write-through cache never can."""
    head = _library.StatPointer()
    if _library.library.VEMOFlashCacheStatGet(None, ctypes.byref(head)) < 0:
        raise _failed("the caches cannot be described")
    try:
        return list(_walk(head))
    finally:
        _library.library.VEMOFlashCacheStatFree(ctypes.byref(head))


def dirty_blocks(cache: Cache) -> int:
    """How many of its blocks are not on the volume yet."""
    count = int(_library.library.VEMOFlashCacheDirtyBlockGet(_short(cache.ssd), _short(cache.volume)))
    if count < 0:
        raise _failed(f"the dirty blocks of {cache.ssd} cannot be counted")
    return count


def handle_state(cache: Cache) -> HandleState | None:
    """How it is run; None when its knobs make up no known state."""
    state = int(_library.library.VEMOFlashCacheHandleStateGet(cache.ssd.encode(), cache.volume.encode()))
    return HandleState(state) if state in set(HandleState) else None


def flush(device: str) -> bool:
    """Writes back all that is dirty, for as long as it takes. False when somebody cancelled it."""
    result = int(_library.library.VEMOFlashCacheFlush(device.encode()))
    if result < 0:
        raise _failed(f"the flush of {device} failed")
    return result == 1


def cancel_flush(device: str) -> bool:
    """Asks the flush of a cache to stop. False when it was done already."""
    result = int(_library.library.VEMOFlashCacheFlushCancel(device.encode()))
    if result < 0:
        raise _failed(f"there is no flush of {device}")
    return result == 1
