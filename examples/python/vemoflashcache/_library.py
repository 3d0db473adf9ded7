"""The library as ctypes sees it: records and prototypes as vemoflashcache.h declares them."""

from __future__ import annotations

import ctypes
from typing import TYPE_CHECKING

# What it stands on is loaded first, so that its symbols are there by name.
core = ctypes.CDLL("libvemocore.so.6", mode=ctypes.RTLD_GLOBAL)
library = ctypes.CDLL("libvemoflashcache.so.1")


class CountStat(ctypes.Structure):
    """FLASHCACHE_COUNT_STAT"""

    _fields_ = [
        ("ReadHitPercent", ctypes.c_uint32),
        ("WriteHitPercent", ctypes.c_uint32),
        ("Reads", ctypes.c_uint64),
        ("Writes", ctypes.c_uint64),
        ("ReadHits", ctypes.c_uint64),
        ("WriteHits", ctypes.c_uint64),
        ("UncachedSeqReads", ctypes.c_uint64),
        ("UncachedSeqWrites", ctypes.c_uint64),
        ("WriteMissSSD", ctypes.c_uint64),
    ]


class Stat(ctypes.Structure):
    """FLASHCACHE_STAT"""


if TYPE_CHECKING:
    StatPointer = ctypes._Pointer[Stat]
else:
    StatPointer = ctypes.POINTER(Stat)

Stat._fields_ = [
    ("SSDDevPath", ctypes.c_char_p),
    ("SpacePath", ctypes.c_char_p),
    ("WriteMode", ctypes.c_int32),
    ("ReclaimPolicy", ctypes.c_int32),
    ("FallowDelay", ctypes.c_int32),
    ("DirtyThreshPct", ctypes.c_int32),
    ("CountStat", CountStat),
    ("TotalBlocks", ctypes.c_uint64),
    ("CachedBlocks", ctypes.c_uint64),
    ("SupportPin", ctypes.c_int32),
    ("Next", ctypes.POINTER(Stat)),
    ("BlockSizeKB", ctypes.c_int32),
]

core.VLIBCErrGet.argtypes = []
core.VLIBCErrGet.restype = ctypes.c_int
library.VEMOFlashCacheStatGet.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.POINTER(Stat))]
library.VEMOFlashCacheStatGet.restype = ctypes.c_int
library.VEMOFlashCacheStatFree.argtypes = [ctypes.POINTER(ctypes.POINTER(Stat))]
library.VEMOFlashCacheStatFree.restype = None
library.VEMOFlashCacheDirtyBlockGet.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
library.VEMOFlashCacheDirtyBlockGet.restype = ctypes.c_int
library.VEMOFlashCacheHandleStateGet.argtypes = [ctypes.c_char_p, ctypes.c_char_p]
library.VEMOFlashCacheHandleStateGet.restype = ctypes.c_int32
library.VEMOFlashCacheFlush.argtypes = [ctypes.c_char_p]
library.VEMOFlashCacheFlush.restype = ctypes.c_int
library.VEMOFlashCacheFlushCancel.argtypes = [ctypes.c_char_p]
library.VEMOFlashCacheFlushCancel.restype = ctypes.c_int
