"""The small drives on which the commands run one after the other, and what they hold."""

import contextlib
import dataclasses
import errno
import fcntl
import os
import pathlib
import re
import shutil
import stat
import struct
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / 'support'))

from drive_calls import calls_in  # noqa: E402

MEBIBYTE = 1048576
STATE = 'Tessarine/update-state.json'
PROGRAMS = ('Tessarine', 'Tessarine-Linux.sh')

# What becomes of the drive itself at a call: full; read-only as the user or as the kernel makes it;
# pulled out; on a medium that takes nothing new any more, or that has lost everything.
FULL, REMOUNTED, READ_ONLY = 'full drive', 'remounted drive', 'read-only drive'
PULLED, FAILING, LOST = 'pulled drive', 'failing drive', 'lost drive'
OF_ANY_DRIVE = (FULL, REMOUNTED)
OF_DRIVE = (*OF_ANY_DRIVE, READ_ONLY, PULLED, FAILING, LOST)
EXT4_IOC_SHUTDOWN, WITHOUT_FLUSH = 0x8004587D, 2  # linux/fs/ext4/ext4.h
BLKFLSBUF = 0x1261  # linux/fs.h
FILLERS = ('filler', 'another filler')
# A drive's directories are listed in the order of their names' hashes: each drive gets the same one.
HASH_SEED = 'a0a0a0a0-a0a0-4a0a-a0a0-a0a0a0a0a0a0'


@dataclasses.dataclass(frozen=True)
class Entry:
    mode: int
    content: bytes
    modified: int = dataclasses.field(compare=False)


def entry_at(path):
    status = path.lstat()
    content = path.read_bytes() if stat.S_ISREG(status.st_mode) else b''
    if path.name.startswith('update-state.json'):
        content = re.sub(rb'"installedAt": "[^"]*"', b'', content)
    return Entry(status.st_mode, content, status.st_mtime_ns)


def tree(root):
    return {str(path.relative_to(root)): entry_at(path) for path in root.rglob('*')}


def below(entries, directory):
    return {name.removeprefix(f'{directory}/'): entry for name, entry in entries.items()
            if name.startswith(f'{directory}/')}


def contents(entries):
    return {name: entry.content for name, entry in entries.items()}


def differing_names(entries, expected):
    return sorted(name for name in {*entries, *expected} if entries.get(name) != expected.get(name))


def differences(entries, expected):
    """What differs between two trees, in a line."""
    return ', '.join(differing_names(entries, expected)[:5])


def write_all(root, files):
    for name, text in files.items():
        path = root / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding='utf-8')
        if path.name in PROGRAMS:
            path.chmod(0o755)


def fill(path):
    with contextlib.suppress(OSError), path.open('wb', buffering=0) as filler:
        while filler.write(bytes(MEBIBYTE)):
            pass


def unmount(directory):
    # A child that is just being started may still hold what its parent had open.
    while subprocess.run(['umount', directory], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        time.sleep(0.01)


def wait_until_free(device):
    """A file system goes with the last process that had a file of it open, which may just be ending."""
    while True:
        try:
            os.close(os.open(device, os.O_RDONLY | os.O_EXCL))
            return
        except OSError as error:
            if error.errno != errno.EBUSY:
                raise
            time.sleep(0.01)


class SmallDrive:
    """Where one run after the other takes place: a drive, and strace's file beside it."""

    def __init__(self, directory, on_ext4):
        self.root, self.trace, self.spoiled = directory / 'drive', directory / 'trace', directory / 'spoiled'
        self._medium, self._on_ext4, self._is_damaged = directory / 'medium', on_ext4, False
        self._image = self._medium / 'image'
        self.root.mkdir(parents=True)
        self._medium.mkdir()
        subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=17M', 'tmpfs', self._medium], check=True)
        if on_ext4:
            self._make_image()
            # One device for good: a new one for the same file could show what the file held before.
            self._device = subprocess.run(['losetup', '--find', '--show', self._image], check=True,
                                          stdout=subprocess.PIPE, text=True).stdout.strip()
            # From now on it goes with whoever has it open last, be it that this process is killed.
            self._open_device = os.open(self._device, os.O_RDONLY)
            subprocess.run(['losetup', '--detach', self._device], check=True)
        self._make()

    def _make(self):
        if not self._on_ext4:
            subprocess.run(['mount', '-t', 'tmpfs', '-o', 'size=16M', 'tmpfs', self.root], check=True)
            return
        self._give_room()
        self._make_image()
        subprocess.run(['/usr/sbin/mkfs.ext4', '-q', '-F', '-m', '0', '-E', f'hash_seed={HASH_SEED}', self._device],
                       check=True)
        self._mount()

    def _make_image(self):
        self._image.write_bytes(b'')
        os.truncate(self._image, 16 * MEBIBYTE)

    def _mount(self):
        subprocess.run(['mount', '-o', 'errors=remount-ro', self._device, self.root], check=True)

    def lay_out(self, files):
        if self._is_damaged:
            self._take_away()
            self._make()
            self._is_damaged = False
        for path in self.root.iterdir():
            shutil.rmtree(path) if path.is_dir() else path.unlink()
        write_all(self.root, files)
        self.trace.unlink(missing_ok=True)
        self.spoiled.unlink(missing_ok=True)

    def spoil(self, kind):
        """Lets the drive fill, fail or go."""
        if kind == FULL:
            fill(self.root / 'filler')
            return
        if kind == REMOUNTED:
            self._remount('ro')
            return
        self._is_damaged = True
        if kind in (FAILING, LOST):
            # A write that is under way takes room for itself again: the second time there is none.
            for name in FILLERS:
                if kind == LOST:
                    os.truncate(self._image, 0)
                fill(self._medium / name)
            return
        number = os.stat(self.root).st_dev
        device = pathlib.Path(f'/sys/dev/block/{os.major(number)}:{os.minor(number)}').resolve().name
        if kind == READ_ONLY:
            pathlib.Path(f'/sys/fs/ext4/{device}/trigger_fs_error').write_text('1', encoding='ascii')
            return
        root = os.open(self.root, os.O_RDONLY)
        fcntl.ioctl(root, EXT4_IOC_SHUTDOWN, struct.pack('I', WITHOUT_FLUSH))
        os.close(root)

    def mend(self, kind):
        """Gives the user the drive again, checked, with what its medium has."""
        if kind == LOST:
            return
        self._give_room()
        if kind == REMOUNTED:
            self._remount('rw')
        elif self._is_damaged:
            self._take_away()
            # As the kernel says: a drive that it made read-only may become so again.
            done = subprocess.run(['/usr/sbin/e2fsck', '-fy', self._device], stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, check=False)
            assert done.returncode in (0, 1), f'e2fsck ended with {done.returncode}'
            self._mount()
            # Stays if the check has put anything there.
            with contextlib.suppress(OSError):
                (self.root / 'lost+found').rmdir()
        (self.root / 'filler').unlink(missing_ok=True)

    def calls(self):
        """What strace saw of the last run."""
        with self.trace.open(encoding='utf-8', errors='replace') as lines:
            return list(calls_in(lines, self.root))

    def close(self):
        unmount(self.root)
        if self._on_ext4:
            os.close(self._open_device)
        unmount(self._medium)

    def _take_away(self):
        """After that nothing is known of the drive but what its medium has."""
        unmount(self.root)
        wait_until_free(self._device)
        fcntl.ioctl(self._open_device, BLKFLSBUF)

    def _give_room(self):
        for name in FILLERS:
            (self._medium / name).unlink(missing_ok=True)

    def _remount(self, how):
        subprocess.run(['mount', '-o', f'remount,{how}', self.root], check=True)
