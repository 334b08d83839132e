"""How long the window stands still while a large file reaches a slow drive, and during a fetch.

A gap lies between two turns of the event loop, the last one before the work's end.
"""

import subprocess

import drives
import update
from drives import GIBIBYTE, MEGABYTE
from measuring import Comparison, run

GOALS = {20: 0.5, 5: None}  # longest gap in seconds, by MB/s


def gaps(what, rounds, work, before, goal=None, at_least=0.0):
    """The longest one, and what 99 of 100 are below, of each round, which takes so many seconds."""
    longest, most = [], []
    for _ in range(rounds):
        before()
        gap, shorter, seconds = map(float, work().split())
        assert seconds > at_least, f'{what}: {seconds} s'
        longest.append(gap)
        most.append(shorter)
    yield Comparison(f'{what}: longest gap', 's', {'ours': longest}, {}, at_most=goal)
    yield Comparison(f'{what}: 99 of 100 gaps', 's', {'ours': most}, {})


def responsiveness(build, rounds):
    with drives.tmpfs(2 * GIBIBYTE) as place, drives.ext4(2 * GIBIBYTE) as drive:
        drives.fill(place, 1, 1000 * MEGABYTE)
        copy = [build / 'bench/deployment_bench', 'copy', place / '0/file-0', drive / 'Tessarine']
        for rate, goal in GOALS.items():
            with drives.limited(drive, rate * MEGABYTE) as prefix:
                yield from gaps(f'copy of 1 GB to a drive of {rate} MB/s', min(rounds, 2),
                                lambda: run(*prefix, *copy, stdout=subprocess.PIPE, text=True).stdout,
                                lambda: drives.empty(drive), goal, 0.9 * 1000 / rate)
    with drives.tmpfs(2 * GIBIBYTE) as place, drives.ext4(2 * GIBIBYTE) as drive:
        package = place / 'package.zip'
        update.make_package(package, 500 * MEGABYTE)
        yield from gaps('fetch of a package of 500 MB', rounds,
                        lambda: update.ended(build, 'fetch', drive, package), lambda: update.prepare(drive))
