"""What a drive was told to write, in order, and what stands on it after a power cut.

The format is that of Linux's dm-log-writes, as QEMU's driver blklogwrites makes it:
https://docs.kernel.org/admin-guide/device-mapper/log-writes.html
"""

import itertools
import random
import struct

SECTOR = 512
ENTRY = struct.Struct('<QQQQ')  # first sector, number of sectors, flags, length of a mark
FLUSH, DISCARD, MARK = 1, 4, 8


def read(log, begin=0, end=None):
    """The steps of a log between two lengths of its file: (sector, bytes), or None for a flush."""
    steps = []
    with open(log, 'rb') as file:
        position = max(begin, SECTOR)
        file.seek(position)
        while position < (end or 1 << 62):
            entry = file.read(SECTOR)
            if len(entry) < SECTOR:
                break
            sector, count, flags, _ = ENTRY.unpack_from(entry)
            if flags & FLUSH:
                steps.append(None)
            size = 0 if flags & (DISCARD | MARK) else count * SECTOR
            if size:
                steps.append((sector, file.read(size)))
            position += SECTOR + size
    return steps


def prefixes(steps):
    """Each cut of a drive that writes in order: the sectors since the cut before, one at a time."""
    for step in steps:
        if step is None:
            continue
        sector, content = step
        for offset in range(0, len(content), SECTOR):
            yield sector + offset // SECTOR, content[offset:offset + SECTOR]


def stretches(steps):
    """The writes between one flush and the next, each time."""
    stretch = []
    for step in steps + [None]:
        if step is not None:
            stretch.append(step)
        elif stretch:
            yield stretch
            stretch = []


def subsets(stretch, count, seed):
    """Parts of what a drive may still hold in its cache: lists of (sector, bytes), no two the same.

    All of them if there are no more than `count`, else that many at random.
    """
    sectors = list(prefixes(stretch))
    if 2 ** len(sectors) <= count:
        for kept in itertools.product((False, True), repeat=len(sectors)):
            yield list(itertools.compress(sectors, kept))
        return
    chance = random.Random(seed)
    seen = set()
    while len(seen) < count:
        share = chance.random()
        kept = tuple(chance.random() < share for _ in sectors)
        if kept not in seen:
            seen.add(kept)
            yield list(itertools.compress(sectors, kept))
