"""Shows each running cache, and with a device as argument flushes it first."""

from __future__ import annotations

import sys

import vemoflashcache


def main() -> int:
    """What the first argument names is flushed."""
    try:
        if len(sys.argv) > 1:
            print("flushed" if vemoflashcache.flush(sys.argv[1]) else "cancelled")
        for cache in vemoflashcache.caches():
            mode = cache.write_mode.name.lower() if cache.write_mode is not None else "unknown"
            print(f"{cache.ssd} {cache.volume} {mode} {cache.size_bytes} bytes, "
                  f"{vemoflashcache.dirty_blocks(cache)} dirty blocks")
    except vemoflashcache.Error as error:
        print(f"show_caches: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
