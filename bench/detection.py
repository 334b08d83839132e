"""What the list of drives costs beside lsblk, on machines with more and more drives.

In processor time: neither side waits for anything.
"""

import contextlib
import os
import pathlib
import string
import subprocess

from measuring import Side, compare, processor_seconds_of, run, seconds_by

SIZES = (10, 100, 1000, 5000)


def disk_names():
    """sda, sdb, ..., sdz, sdaa, ... as the kernel counts."""
    names = ['sd']
    while True:
        names = [name + letter for name in names for letter in string.ascii_lowercase]
        yield from names


@contextlib.contextmanager
def over(*directories):
    """An empty file system over each of the directories. For a mount namespace of one's own."""
    for directory in directories:
        run('mount', '-t', 'tmpfs', 'bench', directory)
    try:
        yield
    finally:
        for directory in reversed(directories):
            run('umount', '--recursive', directory)


def write(directory, **attributes):
    for name, text in attributes.items():
        (directory / name).write_text(f'{text}\n', encoding='ascii')


def add_device(directory, number):
    """What a kernel says of a disk or a partition, as far as either side asks for it."""
    directory.mkdir(parents=True)
    for listing in ('holders', 'slaves'):
        (directory / listing).mkdir()
    major, minor = 8 + number // 256, number % 256
    write(directory, dev=f'{major}:{minor}', size=4194304, ro=0)
    name = directory.name
    pathlib.Path('/sys/class/block', name).symlink_to(directory)
    pathlib.Path(f'/sys/dev/block/{major}:{minor}').symlink_to(directory)
    os.mknod(f'/dev/{name}', 0o600 | 0o060000, os.makedev(0, 0))


def add_usb_disk(name, number, mounted):
    """A disk with one partition, which has a label or is mounted."""
    scsi = pathlib.Path(f'/sys/devices/pci0000:00/0000:00:14.0/usb2/2-{number}/2-{number}:1.0/host{number}/'
                        f'target{number}:0:0/{number}:0:0:0')
    disk, partition = scsi / 'block' / name, scsi / 'block' / name / f'{name}1'
    add_device(disk, 2 * number)
    add_device(partition, 2 * number + 1)
    write(scsi, type=0)
    write(disk, removable=1)
    write(partition, partition=1, start=2048)
    (disk / 'device').symlink_to(scsi)
    (disk / 'queue').mkdir()
    write(disk / 'queue', rotational=0)
    pathlib.Path('/sys/block', name).symlink_to(disk)
    if mounted:
        place = pathlib.Path('/media', name)
        place.mkdir()
        run('mount', '--no-mtab', '-t', 'tmpfs', f'/dev/{name}1', place)
    else:
        pathlib.Path(f'/dev/disk/by-label/PEN-{number}').symlink_to(f'../../{name}1')


@contextlib.contextmanager
def machine_with(count, mounted):
    """Half of the devices are disks, and each has one of the other half as its partition."""
    with over('/sys', '/dev', '/media'):
        os.mknod('/dev/null', 0o666 | 0o020000, os.makedev(1, 3))
        for directory in ('/sys/block', '/sys/class/block', '/sys/dev/block', '/dev/disk/by-label'):
            os.makedirs(directory)
        for number, name in zip(range(count // 2), disk_names()):
            add_usb_disk(name, number, number < mounted)
        yield


def listed_by_lsblk():
    listing = subprocess.run(['lsblk', '-J'], stdout=subprocess.PIPE, text=True, check=True).stdout
    return listing.count('"name"')


def detection(build, rounds):
    for count in SIZES:
        yield listing(build, rounds, count, 1, curve='detection', size=count)
    yield listing(build, rounds, 1000, 100)


def listing(build, rounds, count, mounted, **place):
    with machine_with(count, mounted):
        assert listed_by_lsblk() == count
        return compare(
            f'list of {count:,} block devices, {mounted} mounted',
            [Side('ours', lambda: seconds_by(build / 'bench/detection_bench', count // 2)),
             Side('`lsblk -J`', lambda: processor_seconds_of('lsblk', '-J'), goal=1)],
            4 * rounds, **place)
