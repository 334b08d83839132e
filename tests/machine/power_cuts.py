#!/usr/bin/python3
"""Every power cut: a preparation, a second one over an older bundle, and an update are recorded
write by write, and what stands on the drive after each cut is looked at.

A cut leaves the drive with the writes up to any sector of any of them; on a drive with a cache of
its own that is lost, also with any part of the writes since the last flush.
"""

import argparse
import ctypes
import hashlib
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import tempfile

import machine
import recording
from guest import ROOT, SUPPORT, be_vendor, mount, on_desktop, unmount

HOST = 'velmora.example'
SIZE = 40 << 20
MAKE = {'vfat': ['mkfs.vfat', '-F', '32', '-s', '8', '-n', 'PEN'], 'exfat': ['mkfs.exfat', '-c', '4096', '-L', 'PEN']}
BUNDLE_FILES = {
    'windows': ('Tessarine.exe', 'Qt6Core.dll', 'platforms/qwindows.dll'),
    'linux': ('Tessarine', 'Tessarine-Linux.sh', 'qt.conf', 'lib/libssl.so.3',
              'plugins/tls/libqopensslbackend.so'),
}
STATE = 'Tessarine/update-state.json'


def make_bundle(directory, kind, version):
    """A bundle of small files of its version's own; no two of them have the same size."""
    for number, name in enumerate(BUNDLE_FILES[kind]):
        file = directory / name
        file.parent.mkdir(parents=True, exist_ok=True)
        chance = random.Random(f'{name} {version}')
        file.write_bytes(chance.randbytes(chance.randrange(300, 9000)))
    return directory


def tree(directory):
    """What each file holds, as a hash, with its size; what can't be read holds its error."""
    found = {}

    def unreadable(error):
        found[os.path.relpath(error.filename, directory) + '/'] = (os.strerror(error.errno), -1)

    for place, _, names in os.walk(directory, onerror=unreadable):
        for name in names:
            path = os.path.join(place, name)
            try:
                with open(path, 'rb') as file:
                    content = file.read()
                found[os.path.relpath(path, directory)] = (hashlib.sha256(content).hexdigest(), len(content))
            except OSError as error:
                found[os.path.relpath(path, directory)] = (os.strerror(error.errno), -1)
    return found


# In the guest that records


def record(scratch, file_system):
    be_vendor(HOST, scratch / 'certificates')
    drive = mount('PEN', file_system)
    (drive / 'carta.txt').write_text('do usuário\n' * 200)
    (drive / 'Fotos').mkdir()
    (drive / 'Fotos' / 'praia.jpg').write_bytes(random.Random(1).randbytes(20000))
    os.sync()
    on_desktop(__file__, 'work', scratch, drive)
    unmount(drive)


def work(scratch, drive):
    from manager import Manager, install
    from vendor import Vendor
    stages = []

    def stage(name):
        stages.append({'name': name, 'log': (scratch / 'log').stat().st_size, 'tree': tree(drive)})

    program = install(ROOT / 'build/release/app/TessarineConfig', '/tmp/manager')
    bundles = program.parent / 'bundles'
    for kind in BUNDLE_FILES:
        make_bundle(bundles / f'{kind}-x64', kind, '1')
    stage('before')
    with Manager(program) as manager:
        manager.prepare(drive)
        stage('first preparation')
        for kind in BUNDLE_FILES:
            make_bundle(bundles / f'{kind}-x64', kind, '2')
        manager.prepare(drive)
        stage('second preparation')
        with Vendor('/tmp/vendor') as vendor:
            vendor.publish(*(make_bundle(pathlib.Path('/tmp', kind), kind, '3') for kind in BUNDLE_FILES),
                           '1.1.0', 'Novidades.')
            manager.press('Verificar atualizações')
            manager.answer(f'Atualizar Tessarine na unidade {drive}?\n\nVersão instalada: 1.0.0\n'
                           'Versão disponível: 1.1.0\n\nNovidades.', 'Sim')
            manager.answer('Atualização concluída.\n\nVersão instalada: 1.1.0', 'OK')
        stage('update')
    (scratch / 'stages.json').write_text(json.dumps(stages))


# In the guest that judges


class Disk:
    """A disk in memory that is mounted, looked at and unmounted again."""

    def __init__(self, image, file_system):
        subprocess.run(['modprobe', 'brd', 'rd_nr=1', f'rd_size={SIZE >> 10}'], check=True)
        self._device = os.open('/dev/ram0', os.O_RDWR)
        self._type = file_system.encode()
        self._libc = ctypes.CDLL(None, use_errno=True)
        self._content = bytearray(image)
        os.makedirs('/tmp/judged')
        os.pwrite(self._device, image, 0)

    def write(self, sectors):
        for sector, content in sectors:
            self._content[sector * 512:sector * 512 + len(content)] = content
            os.pwrite(self._device, content, sector * 512)

    def tree(self):
        read_only = 1
        if self._libc.mount(b'/dev/ram0', b'/tmp/judged', self._type, read_only, b''):
            return {'/': (os.strerror(ctypes.get_errno()), -1)}
        try:
            return tree('/tmp/judged')
        finally:
            self._libc.umount2(b'/tmp/judged', 0)

    def tree_with(self, sectors):
        """As if those were written as well, and no longer."""
        for sector, content in sectors:
            os.pwrite(self._device, content, sector * 512)
        found = self.tree()
        for sector, content in sectors:
            end = sector * 512 + len(content)
            os.pwrite(self._device, self._content[sector * 512:end], sector * 512)
        return found


def below(files, directory):
    return {path.removeprefix(directory): content for path, content in files.items()
            if path.startswith(directory)}


def broken_by_preparation(now, before, after):
    for path in before.keys() | after.keys():
        allowed = {before.get(path), after.get(path)}
        if now.get(path) in allowed:
            continue
        if path in before:
            yield f'{path} was whole and is {now.get(path)}'
        elif now[path][1] == after[path][1]:
            yield f'{path} has the right size and {now[path][0]}'
    if now.get(STATE) == after[STATE] != before.get(STATE):
        for path in after:
            if now.get(path) != after[path]:
                yield f'the state is new, but {path} is {now.get(path)}'


def broken_by_update(now, before, after):
    bundles = [f'Tessarine/{kind}/' for kind in BUNDLE_FILES]
    for path in before:
        if not path.startswith(tuple(bundles)) and now.get(path) not in (before[path], after.get(path)):
            yield f'{path} was whole and is {now.get(path)}'
    for bundle in bundles:
        places = {'/'.join(path.split('/')[:2]) + '/' for path in now if path.startswith(bundle[:-1])}
        if not any(below(now, place) in (below(before, bundle), below(after, bundle)) for place in places):
            yield f'{bundle} is whole nowhere: {({place: below(now, place) for place in places})}'
        if now.get(STATE) == after[STATE] and below(now, bundle) != below(after, bundle):
            yield f'the state is new, but {bundle} is not'


def judge(scratch, file_system, subsets):
    subsets = int(subsets)
    disk = Disk((scratch / 'base').read_bytes(), file_system)
    stages = json.loads((scratch / 'stages.json').read_text())
    for one in stages:
        one['tree'] = {path: tuple(content) for path, content in one['tree'].items()}
    disk.write(step for step in recording.read(scratch / 'log', 0, stages[0]['log']) if step)
    worst = 0
    for before, after in zip(stages, stages[1:]):
        broken_by = broken_by_update if after['name'] == 'update' else broken_by_preparation
        counts = {'prefixes': [0, 0], 'subsets': [0, 0]}

        def look(kind, now):
            counts[kind][0] += 1
            violations = list(broken_by(now, before['tree'], after['tree']))
            if violations:
                counts[kind][1] += 1
                if counts[kind][1] <= 5:
                    print(f'{file_system}, {after["name"]}, {kind} {counts[kind][0]}: {violations}', flush=True)

        steps = recording.read(scratch / 'log', before['log'], after['log'])
        for number, stretch in enumerate(recording.stretches(steps)):
            for sectors in recording.subsets(stretch, subsets, number):
                look('subsets', disk.tree_with(sectors))
            for sector in recording.prefixes(stretch):
                disk.write([sector])
                look('prefixes', disk.tree())
        print(f'{file_system}, {after["name"]}: {len(steps)} writes and flushes; cuts and broken ones: {counts}', flush=True)
        # What is removed at the end of an update isn't synced, and may be there still.
        last = disk.tree()
        missing = [path for path, content in after['tree'].items() if last.get(path) != content]
        if missing:
            print(f'{file_system}, {after["name"]}: not on the drive at its end: {missing}', flush=True)
            worst = 1
        worst = max(worst, counts['prefixes'][1])
    sys.exit(1 if worst else 0)


# Here


def examine(file_system, subsets):
    """Records and judges in a guest each, and returns the exit status."""
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        image, log = scratch / 'image', scratch / 'log'
        log.touch()
        with open(image, 'wb') as file:
            file.truncate(SIZE)
        subprocess.run([*MAKE[file_system], image], check=True, stdout=subprocess.DEVNULL)
        shutil.copy(image, scratch / 'base')
        subprocess.run([SUPPORT / 'make-test-ca', scratch / 'certificates', HOST], check=True)
        stick = machine.Drive('stick', [machine.Unit(image, log=log)])
        itself = ['/usr/bin/python3', '-B', __file__]
        return machine.run([*itself, 'record', scratch, file_system], [stick], [scratch], limit=1200) \
            or machine.run([*itself, 'judge', scratch, file_system, subsets], [], [scratch], limit=7200)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--subsets', type=int, default=100, metavar='N',
                        help='random parts of the writes between two flushes (%(default)s)')
    parser.add_argument('file_systems', nargs='+', choices=MAKE)
    options = parser.parse_args()
    sys.exit(max(examine(name, options.subsets) for name in options.file_systems))


if __name__ == '__main__':
    INSIDE = {'record': record, 'work': work, 'judge': judge}
    if sys.argv[1:2] and sys.argv[1] in INSIDE:
        INSIDE[sys.argv[1]](pathlib.Path(sys.argv[2]), *sys.argv[3:])
    else:
        main()
