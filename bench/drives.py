"""Empty file systems of several kinds, and what makes them slow."""

import contextlib
import os
import pathlib
import subprocess
import tempfile
import threading

from measuring import run

MEBIBYTE = 1 << 20
GIBIBYTE = 1 << 30
CGROUPS = pathlib.Path('/sys/fs/cgroup')


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
    """On a loop device over a file on the machine's disk."""
    with scratch() as place:
        image = place / 'image'
        image.touch()
        os.truncate(image, size)
        run('/sbin/mkfs.ext4', '-q', '-m', '0', '-E', 'lazy_itable_init=0,lazy_journal_init=0', image)
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

    neighbour = threading.Thread(target=write)
    neighbour.start()
    try:
        yield
    finally:
        at_end.set()
        neighbour.join()


@contextlib.contextmanager
def limited(drive, rate):
    """At most so many bytes a second reach the drive."""
    device = os.stat(drive).st_dev
    number = f'{os.major(device)}:{os.minor(device)}'
    throttle = CGROUPS / 'blkio/blkio.throttle.write_bps_device'
    if throttle.exists():
        with limit(throttle, f'{number} {rate}', f'{number} 0'):
            yield
    else:
        with own_cgroup() as group, limit(group / 'io.max', f'{number} wbps={rate}', f'{number} wbps=max'):
            yield


@contextlib.contextmanager
def limit(file, text, end):
    file.write_text(text, encoding='ascii')
    try:
        yield
    finally:
        file.write_text(end, encoding='ascii')


@contextlib.contextmanager
def own_cgroup():
    """This process and the programs that it starts, beside all others (cgroups(7), version 2).

    What is written later than it was asked for counts as theirs only with their memory.
    """
    old = CGROUPS / pathlib.Path('/proc/self/cgroup').read_text(encoding='ascii').strip().partition('::/')[2]
    (CGROUPS / 'cgroup.subtree_control').write_text('+io +memory', encoding='ascii')
    group = CGROUPS / f'bench-{os.getpid()}'
    group.mkdir()
    try:
        (group / 'cgroup.procs').write_text(str(os.getpid()), encoding='ascii')
        yield group
    finally:
        (old / 'cgroup.procs').write_text(str(os.getpid()), encoding='ascii')
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
        subprocess.run(['rm', '-rf', drive / entry], check=True)
    run('sync', '-f', drive)
