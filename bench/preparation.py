"""What a preparation costs beside copying by hand, and beside the least that a copy can be."""

import contextlib
import os

import drives
from drives import GIBIBYTE
from measuring import Side, compare, seconds_by, seconds_of

# Number and size of the bundle's files.
BUNDLES = {'300 files of 1 MB': (300, 1_000_000),
           '5,000 files of 20 KB': (5000, 20_000),
           'one file of 1 GB': (1, 1_000_000_000)}
FEWER = {'300 files of 1 MB': (300, 1_000_000),
         '1,000 files of 20 KB': (1000, 20_000),
         'one file of 1 GB': (1, 1_000_000_000)}


def bundle(place, count, size):
    """A complete source, and the executable that a preparation is told."""
    source = place / 'source'
    drives.fill(source, count, size)
    (source / 'qt.conf').write_text('[Paths]\n', encoding='ascii')
    return source, source / 'Tessarine'


def room(count, size):
    """Of a drive for such a bundle, which may take a quarter of it."""
    return max(GIBIBYTE, 5 * count * size)


def first_preparations(build, source, executable, drive, slow=None):
    """Ours and the others, each onto an empty drive. What is slow is so for all."""
    target = drive / 'Tessarine/linux'
    environment = {**os.environ, **({'LD_PRELOAD': str(slow)} if slow else {})}

    def by_hand(*copy):
        target.parent.mkdir()
        return seconds_of('sh', '-c', f'{" ".join(copy)} && sync -f "$2"', 'sh', source, target,
                          env=environment)

    def by_program(*command):
        target.parent.mkdir()
        return seconds_by(*command, source, target, env=environment)

    return [Side('ours', lambda: seconds_by(build / 'bench/deployment_bench', 'prepare', drive,
                                            executable, env=environment)),
            Side('the limit', lambda: by_program(build / 'bench/copy_limit'), goal=1 / 0.95),
            Side('the limit, with `QSaveFile`',
                 lambda: by_program(build / 'bench/deployment_bench', 'save')),
            Side('`rsync -aL --fsync`',
                 lambda: by_hand('rsync -aL --fsync "$1/" "$2"'), goal=1),
            Side('`cp -rL`, `sync -f`', lambda: by_hand('cp -rL "$1" "$2"'))]


def situations(build):
    """Name, file system, what goes on there, preloaded library, bundles."""
    nothing = contextlib.nullcontext
    yield 'in memory', drives.tmpfs, nothing, None, BUNDLES
    yield 'idle disk', drives.ext4, nothing, None, BUNDLES
    yield 'busy disk', drives.ext4, drives.busy, None, FEWER
    yield 'flush takes 5 ms', drives.ext4, nothing, build / 'bench/libslow_flush.so', FEWER


def first(build, rounds):
    for where, file_system, meanwhile, slow, bundles in situations(build):
        for what, (count, size) in bundles.items():
            with drives.tmpfs(2 * GIBIBYTE) as place, file_system(room(count, size)) as drive:
                source, executable = bundle(place, count, size)
                with meanwhile(drive):
                    yield compare(f'{what}, {where}',
                                  first_preparations(build, source, executable, drive, slow),
                                  rounds, before=lambda: drives.empty(drive))


def second(build, rounds):
    """Nothing to do: every file is in place, with its size."""
    for what, (count, size) in BUNDLES.items():
        with drives.tmpfs(2 * GIBIBYTE) as place, drives.ext4(room(count, size)) as drive:
            source, executable = bundle(place, count, size)
            sides = [Side('ours', lambda: seconds_by(build / 'bench/deployment_bench', 'prepare', drive, executable)),
                     Side('`rsync -aL`', lambda: seconds_of('rsync', '-aL', f'{source}/', drive / 'Tessarine/linux'),
                          goal=1)]
            for side in sides:  # the first time there is something to do
                side.run()
            yield compare(f'nothing to do, {what}', sides, 3 * rounds)


def growth(build, rounds):
    """How the cost grows with the number of files."""
    for count in (10, 100, 1000, 5000):
        with drives.tmpfs(2 * GIBIBYTE) as place, drives.ext4(GIBIBYTE) as drive:
            source, executable = bundle(place, count, 20_000)
            yield compare(f'{count:,} files of 20 KB',
                          first_preparations(build, source, executable, drive), rounds,
                          before=lambda: drives.empty(drive), curve='preparation', size=count)
