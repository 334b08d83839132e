"""How long the window stands still while a large file reaches a slow drive.

A gap lies between two turns of the event loop, the last one before the copy's end.
"""

import subprocess

import drives
from measuring import Comparison

MEGABYTE = 1_000_000
RATES = {20: 1000, 5: 100}  # MB/s, and how many MB are copied


def responsiveness(build, rounds):
    for rate, size in RATES.items():
        with drives.scratch('/dev/shm') as place, drives.ext4(2 << 30) as drive:
            drives.fill(place, 1, size * MEGABYTE)
            longest, most = [], []
            for _ in range(min(rounds, 2)):
                drives.empty(drive)
                with drives.limited(drive, rate * MEGABYTE):
                    gaps = subprocess.run(
                        [build / 'bench/deployment_bench', 'copy', place / '0/file-0', drive / 'Tessarine'],
                        check=True, stdout=subprocess.PIPE, text=True).stdout.split()
                longest.append(float(gaps[0]))
                most.append(float(gaps[1]))
            what = f'copy of {size:,} MB to a drive of {rate} MB/s'
            yield Comparison(f'{what}: longest gap', 's', {'ours': longest}, {})
            yield Comparison(f'{what}: 99 of 100 gaps', 's', {'ours': most}, {})
