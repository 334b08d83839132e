#!/usr/bin/python3 -B
"""Lets each call that a command makes on a drive fail, and be its last, and looks at what is left.

A preparation and an update run on small drives, first undisturbed under strace(1), which lists their
calls; then once for each call and each error that it may meet, once for each write that takes half
of its bytes, and once for each call with the process killed in front of it. Behind each call, too,
the program is stopped until the drive itself is full, or read-only, or gone. After each run all that
must hold on a user's drive is checked on the whole tree. A fault in unzip is one of the update.

  unshare --mount --pid --fork --kill-child --mount-proc fault_sweep.py BINARY-DIRECTORY [COMMANDS]

COMMANDS is a pattern of names such as "update, ext4"; all without it. Of a command "in short" the first,
the middle and the last call of each kind is met.
"""

import collections
import concurrent.futures
import contextlib
import dataclasses
import os
import pathlib
import queue
import re
import subprocess
import sys
import tempfile

from small_drive import SmallDrive
from faults import ERRORS, HALF, KILL
from preparation import (COMPLETE_WINDOWS, OLDER, WINDOWS, Assembly, AssemblyInWindow, Preparation,
                         PreparationInWindow, Registration)
from update import INSTALLED, WITHOUT_WINDOWS, Update, Vendor


def short_choice(faults):
    """Of each kind of call the first, the middle and the last one, with one error each and the rest."""
    by_verb = collections.defaultdict(dict)
    for fault in faults:
        by_verb[fault.call.verb].setdefault(fault.call, []).append(fault)
    for verb, calls in by_verb.items():
        chosen = list(calls)
        for turn, call in enumerate(dict.fromkeys((chosen[0], chosen[len(chosen) // 2], chosen[-1]))):
            error = ERRORS[verb][turn % len(ERRORS[verb])]
            yield from (fault for fault in calls[call] if fault.kind in (error, KILL, HALF) or fault.is_of_drive)


@dataclasses.dataclass
class Tally:
    faults: int = 0
    kills: int = 0
    kept: int = 0
    not_compared: int = 0
    missed: list = dataclasses.field(default_factory=list)
    broken: list = dataclasses.field(default_factory=list)

    def add(self, command, fault, broken):
        if broken is None:
            self.missed.append(f'{command.name}: {fault}: not met')
            return
        self.kills += fault.kind == KILL
        self.faults += fault.kind != KILL
        self.kept += not broken
        self.broken += [f'{command.name}: {fault}: {what}' for what in broken]

    def __str__(self):
        return (f'{self.faults:6} faults {self.kills:6} kills {self.kept:6} runs kept every invariant'
                f' {self.not_compared:4} trees not compared {len(self.missed):4} missed')


class Sweep:
    """All commands on all kinds of drives. Needs root and a mount namespace of its own."""

    def __init__(self, binaries, directory, workers):
        self.binaries, self.workers = pathlib.Path(binaries).resolve(), workers
        # Shared, so that no command keeps a drive that is unmounted.
        subprocess.run(['mount', '--make-shared', '-t', 'tmpfs', 'tmpfs', directory], check=True)
        self.directory = pathlib.Path(directory)
        self.vendor = Vendor(self.binaries, self.directory)

    def commands(self):
        sources = self.directory / 'sources'
        for kind, how in (('tmpfs', {}), ('ext4', {'on_ext4': True}), ('tmpfs as on FAT', {'as_on_fat': True})):
            yield Preparation(f'preparation, new, {kind}', self.binaries, sources, WINDOWS, **how)
            yield Preparation(f'preparation, older bundles, {kind}', self.binaries, sources, COMPLETE_WINDOWS, OLDER,
                              **how)
            yield Update(f'update, {kind}', self.binaries, self.vendor, INSTALLED, **how)
        yield Assembly('preparation, assembled, tmpfs', self.binaries, sources)
        yield Assembly('preparation, assembled, ext4', self.binaries, sources, on_ext4=True)
        for kind, how in (('tmpfs', {}), ('ext4', {'on_ext4': True})):
            yield PreparationInWindow(f'preparation in the window, {kind}', self.binaries, sources, **how)
            yield AssemblyInWindow(f'preparation in the window, assembled, {kind}, in short', self.binaries, sources,
                                   in_short=True, **how)
            yield Registration(f'state after preparation, {kind}', self.binaries, sources, **how)
        yield PreparationInWindow('preparation in the window, tmpfs as on FAT, in short', self.binaries, sources,
                                  in_short=True, as_on_fat=True)
        yield Update('update, no windows, tmpfs', self.binaries, self.vendor, WITHOUT_WINDOWS)
        yield Update('unzip, tmpfs', self.binaries, self.vendor, INSTALLED, in_unzip=True)
        yield Update('unzip, ext4', self.binaries, self.vendor, INSTALLED, in_unzip=True, on_ext4=True)

    def run(self, command, choose=list):
        tally = Tally()
        with contextlib.ExitStack() as stack, concurrent.futures.ThreadPoolExecutor(self.workers) as pool:
            drives = queue.SimpleQueue()
            for number in range(self.workers):
                directory = self.directory / f'{command.name.replace(" ", "-")}-{number}'
                drive = SmallDrive(directory, command.on_ext4)
                stack.callback(drive.close)
                drives.put(drive)
            drive = drives.get()
            faults = list(choose(command.learn(drive)))
            drives.put(drive)

            def attempt(fault):
                drive = drives.get()
                try:
                    return command.attempt(drive, fault)
                finally:
                    drives.put(drive)
            for fault, broken in zip(faults, pool.map(attempt, faults), strict=True):
                tally.add(command, fault, broken)
            tally.not_compared = len(command.not_compared)
        return tally


def main():
    pattern = sys.argv[2] if len(sys.argv) > 2 else ''
    total = Tally()
    with tempfile.TemporaryDirectory() as directory:
        sweep = Sweep(sys.argv[1], directory, 4 * os.cpu_count())
        with sweep.vendor:
            for command in sweep.commands():
                if not re.search(pattern, command.name):
                    continue
                tally = sweep.run(command, short_choice if command.in_short else list)
                print(f'{tally}  {command.name}', *tally.broken, *tally.missed, sep='\n    ', flush=True)
                for field in ('faults', 'kills', 'kept', 'not_compared', 'missed', 'broken'):
                    setattr(total, field, getattr(total, field) + getattr(tally, field))
        subprocess.run(['umount', '--lazy', directory], check=True)
    print(f'{total}  in all')
    return 1 if total.broken or total.missed else 0


if __name__ == '__main__':
    sys.exit(main())
