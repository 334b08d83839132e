"""An update through the window beside the same from a shell."""

import os
import subprocess
import zipfile

import drives
from drives import GIBIBYTE, MEGABYTE
from measuring import Comparison, Side, compare, run

REQUIRED = ('windows/Tessarine.exe', 'windows/platforms/qwindows.dll', 'linux/Tessarine',
            'linux/Tessarine-Linux.sh', 'linux/qt.conf', 'linux/lib/libssl.so.3',
            'linux/plugins/tls/libqopensslbackend.so')


def make_package(path, size):
    """A package of so many bytes, which can't be compressed: twenty libraries."""
    with zipfile.ZipFile(path, 'w') as package:
        for name in REQUIRED:
            package.writestr(f'Tessarine/{name}', name)
        for number in range(20):
            package.writestr(f'Tessarine/windows/library-{number}.dll', os.urandom(size // 20))


def prepare(drive):
    """A drive as an older preparation has left it."""
    drives.empty(drive)
    for bundle in ('windows', 'linux'):
        (drive / 'Tessarine' / bundle).mkdir(parents=True)
    run('sync', '-f', drive)


def ended(build, way, drive, package):
    """What the update prints. The server's own copy must not keep the disk at work, just before."""
    return run(build / 'bench/update_bench', way, drive, package, stdout=subprocess.PIPE, text=True,
               env={**os.environ, 'TMPDIR': str(package.parent)}).stdout


def update(build, rounds):
    for size in (50, 500):
        with drives.tmpfs(2 * GIBIBYTE) as place, drives.ext4(2 * GIBIBYTE) as drive:
            package = place / 'package.zip'
            make_package(package, size * MEGABYTE)
            peaks = []

            def by(way):
                words = ended(build, way, drive, package).split()
                if way == 'ours':
                    peaks.append(float(words[0]) * MEGABYTE / package.stat().st_size)
                return float(words[1])

            yield compare(f'update with a package of {size} MB',
                          [Side('ours', lambda: by('ours')), Side('a script', lambda: by('script'))],
                          rounds, before=lambda: prepare(drive))
            yield Comparison(f'peak memory of an update with {size} MB', '× the package',
                             {'ours': peaks}, {})
