"""Empty file systems of several kinds, and what makes them slow."""

import contextlib
import os
import pathlib
import tempfile
import threading
from concurrent import futures

from measuring import run

MEBIBYTE = 1 << 20
GIBIBYTE = 1 << 30
MEGABYTE = 1_000_000
CGROUPS = pathlib.Path('/sys/fs/cgroup')
THROTTLE = CGROUPS / 'blkio/blkio.throttle.write_bps_device'


@contextlib.contextmanager
def scratch():
    with tempfile.TemporaryDirectory(prefix='bench-') as path:
        yield pathlib.Path(path)


@contextlib.contextmanager
def mounted(*arguments):
    with scratch() as place:
        run('mount', *arguments, place)
        try:
            yield place
        finally:
            run('umount', place)


@contextlib.contextmanager
def tmpfs(size):
    with mounted('-t', 'tmpfs', '-o', f'size={size}', 'bench') as drive:
        yield drive


@contextlib.contextmanager
def ext4(size):
    """On a loop device over a file on the machine's disk, all of which has been written."""
    with scratch() as place:
        image = place / 'image'
        run('dd', 'if=/dev/zero', f'of={image}', 'bs=1M', f'count={size // MEBIBYTE}', 'conv=fsync', 'status=none')
        run('/sbin/mkfs.ext4', '-q', '-m', '0', '-E', 'nodiscard,lazy_itable_init=0,lazy_journal_init=0', image)
        with mounted('-o', 'loop', image) as drive:
            yield drive


@contextlib.contextmanager
def busy(drive):
    """Another program writes and syncs 4 MiB at a time on the same drive."""
    at_end = threading.Event()
    block = os.urandom(4 * MEBIBYTE)

    def write():
        with open(drive / '.neighbour', 'wb', buffering=0) as file:
            while not at_end.is_set():
                file.seek(0)
                file.write(block)
                os.fsync(file.fileno())

    with futures.ThreadPoolExecutor() as pool:
        neighbour = pool.submit(write)
        try:
            yield
        finally:
            at_end.set()
        neighbour.result()


@contextlib.contextmanager
def limited(drive, rate):
    """Yields what to put before a command for which at most so many bytes a second reach the drive."""
    device = os.stat(drive).st_dev
    number = f'{os.major(device)}:{os.minor(device)}'
    if THROTTLE.exists():
        with setting(THROTTLE, f'{number} {rate}', f'{number} 0'):
            yield []
    else:
        with cgroup() as group, setting(group / 'io.max', f'{number} wbps={rate}', f'{number} wbps=max'):
            yield ['sh', '-c', 'echo $$ >"$0/cgroup.procs"; exec "$@"', group]


@contextlib.contextmanager
def setting(file, begin, end):
    """Of the kernel: writes it, and writes its end."""
    file.write_text(begin, encoding='ascii')
    try:
        yield
    finally:
        file.write_text(end, encoding='ascii')


@contextlib.contextmanager
def cgroup():
    """A group of processes of its own (cgroups(7), version 2), which can be limited.

    What the kernel writes later than it was asked to is charged to a group only if its memory is, too.
    """
    enabled = CGROUPS / 'cgroup.subtree_control'
    missing = {'io', 'memory'} - set(enabled.read_text(encoding='ascii').split())
    group = CGROUPS / f'bench-{os.getpid()}'
    with setting(enabled, ' '.join(f'+{name}' for name in missing), ' '.join(f'-{name}' for name in missing)):
        group.mkdir()
        try:
            yield group
        finally:
            group.rmdir()


def fill(directory, count, size):
    """So many files of random bytes, a hundred to a directory."""
    for number in range(count):
        below = directory / f'{number // 100}'
        below.mkdir(parents=True, exist_ok=True)
        with open(below / f'file-{number}', 'wb') as file:
            for begin in range(0, size, MEBIBYTE):
                file.write(os.urandom(min(MEBIBYTE, size - begin)))


def empty(drive):
    """Removes what a turn left, so that the next one begins like it."""
    for entry in ('Tessarine', 'Tessarine-Linux.sh', 'Tessarine-Windows.bat'):
        run('rm', '-rf', drive / entry)
    run('sync', '-f', drive)
