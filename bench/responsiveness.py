"""How long the window stands still while a large file reaches a slow drive, and during a fetch.

A gap lies between two turns of the event loop, the last one before the work's end.
"""

import subprocess

import drives
import update
from measuring import Comparison

MEGABYTE = 1_000_000
RATES = (20, 5)  # MB/s


def gaps(what, rounds, command, before):
    """The longest one, and what 99 of 100 are below, of each round."""
    longest, most = [], []
    for _ in range(rounds):
        before()
        seen = subprocess.run([str(word) for word in command], check=True, stdout=subprocess.PIPE,
                              text=True).stdout.split()
        longest.append(float(seen[0]))
        most.append(float(seen[1]))
    yield Comparison(f'{what}: longest gap', 's', {'ours': longest}, {})
    yield Comparison(f'{what}: 99 of 100 gaps', 's', {'ours': most}, {})


def responsiveness(build, rounds):
    with drives.scratch('/dev/shm') as place, drives.ext4(2 << 30) as drive:
        drives.fill(place, 1, 1000 * MEGABYTE)
        copy = [build / 'bench/deployment_bench', 'copy', place / '0/file-0', drive / 'Tessarine']
        for rate in RATES:
            with drives.limited(drive, rate * MEGABYTE):
                yield from gaps(f'copy of 1 GB to a drive of {rate} MB/s', min(rounds, 2), copy,
                                lambda: drives.empty(drive))
    with drives.scratch('/dev/shm') as place, drives.ext4(4 << 30) as drive:
        package = place / 'package.zip'
        update.make_package(package, 500 * MEGABYTE)
        fetch = [build / 'bench/update_bench', 'fetch', drive, package]
        yield from gaps('fetch of a package of 500 MB', rounds, fetch, lambda: update.prepare(drive))
