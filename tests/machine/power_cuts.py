#!/usr/bin/python3
"""Every power cut: a preparation, a second one over an older bundle, and an update are recorded
write by write, and what stands on the drive after each cut is looked at.

A cut leaves the drive with the writes up to any sector of any of them; on a drive with a cache of
its own that is lost, also with any part of the writes since the last flush. Each is mounted and read.
Each cut in order, each that broke something, and one in so many of the others, is also gone on with
as its user would, at once and after fsck: after a cut preparation a second one completes, and fsck
harms nothing. On exFAT half of an entry hides the one behind it from listings until fsck has been run: that
is counted for itself, as long as the file can be opened.
"""

import argparse
import concurrent.futures
import contextlib
import ctypes
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys

import bundles
import guest
import host
import machine
import recording
import tables
from bundles import HOST, STATE, content_of, tree
from guest import ROOT, be_vendor, on_desktop
from invariants import broken_by_preparation, broken_by_update

SIZE = 16 << 20
MS_RDONLY = 1  # mount(2)
USERS_FILES = ('carta.txt', 'Fotos/praia.jpg')
VERSION_OF = {'first preparation': '1', 'second preparation': '2'}
GONE_ON_WITH = 'gone on with: in vain, a file hidden, in vain after fsck'
HEADER = ('file system', 'step', 'writes and flushes', 'cuts, in order: broken', GONE_ON_WITH,
          'random parts: broken', GONE_ON_WITH)


# In the guest that records


def record(scratch):
    guest.begin()
    be_vendor(HOST, scratch / 'certificates')
    drive = guest.mount('PEN')
    on_desktop(__file__, 'work', scratch, drive)
    guest.unmount('PEN')


def work(scratch, drive):
    from manager import Manager, question_before_updating, updated
    from vendor import Vendor
    drive = pathlib.Path(drive)
    stages = []

    def stage(name):
        stages.append({'name': name, 'log': (scratch / 'log').stat().st_size, 'tree': tree(drive)})

    (drive / 'carta.txt').write_text('do usuário\n' * 200)
    (drive / 'Fotos').mkdir()
    (drive / 'Fotos' / 'praia.jpg').write_bytes(random.Random(1).randbytes(20000))
    os.sync()
    program = bundles.install('/tmp/manager', '1')
    stage('before')
    with Manager(program) as manager:
        for name, version in VERSION_OF.items():
            bundles.provide(program, version)
            manager.prepare(drive)
            stage(name)
        with Vendor('/tmp/vendor') as vendor:
            bundles.publish(vendor, '3', '1.1.0')
            manager.press('Verificar atualizações')
            manager.answer(question_before_updating(drive, '1.0.0', '1.1.0', bundles.NOTES), 'Sim')
            manager.answer(updated('1.1.0'), 'OK')
        stage('update')
    (scratch / 'stages.json').write_text(json.dumps(stages))


# In the guest that judges


class Disk:
    """A disk that is mounted, looked at and unmounted again.

    A look can't change it, and it is used on a copy: a mere look at a directory of FAT that has no
    beginning makes the kernel give its clusters away, even where it has mounted it read-only.
    """

    def __init__(self, image, file_system):
        self._image, self._type = pathlib.Path('/dev/shm/image'), file_system
        self._image.write_bytes(image)
        self._content = bytearray(image)
        subprocess.run(['modprobe', 'loop'], check=True)
        self._device = subprocess.run(['losetup', '--find', '--show', '--read-only', self._image], check=True,
                                      stdout=subprocess.PIPE, text=True).stdout.strip().encode()
        self._libc = ctypes.CDLL(None, use_errno=True)
        os.makedirs('/tmp/judged')

    def _put(self, sectors):
        with open(self._image, 'r+b', buffering=0) as image:
            for sector, content in sectors:
                os.pwrite(image.fileno(), content, sector * recording.SECTOR)

    def write(self, sectors):
        """What a cut leaves and every later one has, too."""
        for sector, content in sectors:
            begin = sector * recording.SECTOR
            self._content[begin:begin + len(content)] = content
        self._put(sectors)

    @contextlib.contextmanager
    def holding(self, sectors):
        """As if those were written as well, and no longer."""
        self._put(sectors)
        yield
        begins = ((sector, sector * recording.SECTOR, len(content)) for sector, content in sectors)
        self._put([(sector, self._content[begin:begin + size]) for sector, begin, size in begins])

    def tree(self):
        try:
            self._call('mount', self._device, b'/tmp/judged', self._type.encode(), MS_RDONLY, b'')
        except OSError as error:
            return {'/': (error.strerror, -1)}
        found = tree('/tmp/judged')
        self._call('umount', b'/tmp/judged')
        return found

    def _call(self, name, *arguments):
        """What the commands mount and umount do, without a process for each."""
        if getattr(self._libc, name)(*arguments):
            raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))

    def copy(self):
        """What the user goes on with."""
        return UsedDisk(shutil.copy(self._image, '/dev/shm/used'), self._type)


class UsedDisk:
    """A disk with which something is done."""

    def __init__(self, image, file_system):
        self._image, self._type = image, file_system

    @contextlib.contextmanager
    def mounted(self, how='rw'):
        subprocess.run(['mount', '-t', self._type, '-o', f'loop,{how}', self._image, '/mnt'], check=True)
        try:
            yield '/mnt'
        finally:
            subprocess.run(['umount', '/mnt'], check=True)

    def tree(self):
        try:
            with self.mounted('ro') as place:
                return tree(place)
        except subprocess.CalledProcessError as error:
            return {'/': (str(error), -1)}

    def holds(self, path, content):
        """Whether the file has that content, listed or not."""
        with self.mounted('ro') as place:
            return content_of(f'{place}/{path}') == content

    def repair(self):
        """As a system does on its own: what can be done without a question."""
        done = subprocess.run([f'fsck.{self._type}', '-a', self._image], check=False,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        if done.returncode >= 8:  # fsck(8): it has not checked anything
            raise RuntimeError(f'fsck ended with {done.returncode}')

    def prepare(self, directory):
        """What a preparation of the drive as it is says, and what it leaves."""
        with self.mounted() as place:
            driver = subprocess.run(
                [ROOT / 'build/release/tests/faults/prepare_driver', 'prepare', place,
                 directory / 'windows/Tessarine.exe', directory / 'linux/Tessarine'],
                check=False, stdout=subprocess.PIPE, text=True)
        return driver.returncode, driver.stdout, self.tree()


class Verdict:
    """Looks at the cuts of one stage and counts them."""

    def __init__(self, disk, before, after, every):
        self._disk, self._before, self._after, self._every = disk, before, after, every
        self._broken_by = broken_by_update if after['name'] == 'update' else broken_by_preparation
        self._is_preparation = after['name'] in VERSION_OF
        counted = ['cuts', 'broken', 'gone on with', 'in vain after fsck']
        counted += ['in vain', 'hidden'] if self._is_preparation else []
        self.counts = {kind: dict.fromkeys(counted, 0) for kind in ('prefixes', 'subsets')}

    def look(self, kind):
        """At the disk as it is."""
        counts = self.counts[kind]
        counts['cuts'] += 1
        broken = self._violations(self._disk)
        self._note(kind, 'broken', broken)
        if broken or counts['cuts'] % self._every[kind] == 0:
            counts['gone on with'] += 1
            self._go_on(kind, broken)

    def _go_on(self, kind, broken):
        """With what the cut has left, of which that much is broken."""
        if self._is_preparation:
            violations, hidden = self._prepared_again(self._disk.copy())
            self._note(kind, 'in vain', violations)
            self._note(kind, 'hidden', hidden)
        repaired = self._disk.copy()
        repaired.repair()
        violations = [one for one in self._violations(repaired) if one not in broken]
        if self._is_preparation:
            violations += sum(self._prepared_again(repaired), [])
        self._note(kind, 'in vain after fsck', violations)

    def _violations(self, disk):
        return list(self._broken_by(disk.tree(), self._before['tree'], self._after['tree']))

    def _prepared_again(self, disk):
        """What goes wrong when the user of the disk prepares it again, and which good files aren't listed then."""
        try:
            status, said, now = disk.prepare(pathlib.Path('/tmp', self._after['name']))
        except subprocess.CalledProcessError as error:
            return [f'{error}'], []
        expected = {path: content for path, content in self._after['tree'].items() if path != STATE}
        hidden = [path for path in expected.keys() - now.keys() if disk.holds(path, expected[path])]
        wrong = [path for path in expected if now.get(path) != expected[path] and path not in hidden]
        return [f'a preparation said "{said}"; wrong are {wrong}'] if status or wrong else [], hidden

    def check(self):
        """That the disk as it is can be gone on with, and one with a file in the way can't."""
        broken = self._disk.copy()
        with broken.mounted() as place:
            pathlib.Path(place, 'Tessarine').write_bytes(b'')
        said = self._prepared_again(broken), self._prepared_again(self._disk.copy())
        if not said[0][0] or any(said[1]):
            raise RuntimeError(f'Of a broken disk is said: {said[0]}; of a whole one: {said[1]}')

    def _note(self, kind, key, violations):
        if violations:
            counts = self.counts[kind]
            counts[key] += 1
            print(f'{self._after["name"]}, {kind} {counts["cuts"]}, {key}: {violations}', flush=True)


def judge(scratch, file_system, subsets, every):
    disk = Disk((scratch / 'base').read_bytes(), file_system)
    stages = json.loads((scratch / 'stages.json').read_text())
    users = {path: tuple(stages[0]['tree'][path]) for path in USERS_FILES}
    for one in stages:
        one['tree'] = {path: tuple(content) for path, content in one['tree'].items()}
        if any(one['tree'].get(path) != content for path, content in users.items()):
            raise RuntimeError(f'{one["name"]}: a file of the user is no longer what it was')
    for name, version in VERSION_OF.items():
        for kind in bundles.FILES:
            bundles.make(pathlib.Path('/tmp', name, kind), kind, version)
    disk.write([step for step in recording.read(scratch / 'log', 0, stages[0]['log']) if step])
    verdicts = []
    for before, after in zip(stages, stages[1:]):
        verdict = Verdict(disk, before, after, {'prefixes': 1, 'subsets': int(every)})
        if before['name'] == 'before':
            verdict.check()
        steps = recording.read(scratch / 'log', before['log'], after['log'])
        for number, stretch in enumerate(recording.stretches(steps)):
            for sectors in recording.subsets(stretch, int(subsets), number):
                with disk.holding(sectors):
                    verdict.look('subsets')
            for sector in recording.prefixes(stretch):
                disk.write([sector])
                verdict.look('prefixes')
        # What is removed at the end of an update isn't synced, and may be there still.
        last = disk.tree()
        verdicts.append({'stage': after['name'], 'steps': len(steps), **verdict.counts, 'missing': [
            path for path, content in after['tree'].items() if last.get(path) != content]})
        print(f'{file_system}: {verdicts[-1]}', flush=True)
    (scratch / 'verdicts.json').write_text(json.dumps(verdicts))


# Here


def examine(file_system, subsets, every):
    """Records and judges in a guest each, and returns what was found of each stage."""
    with host.shared_folder() as scratch:
        log = scratch / 'log'
        log.touch()
        stick = host.stick(scratch, 'PEN', file_system, SIZE >> 20, log=log)
        shutil.copy(scratch / 'PEN', scratch / 'base')
        host.run(__file__, 'record', scratch, [stick])
        host.run(__file__, 'judge', scratch, [], file_system, subsets, every, limit=10000, processors=1)
        return json.loads((scratch / 'verdicts.json').read_text())


def cells(counts):
    return (f'{counts["cuts"]}: {counts["broken"]}',
            f'{counts["gone on with"]}: {counts.get("in vain", "–")}, {counts.get("hidden", "–")}, '
            f'{counts["in vain after fsck"]}')


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument('--subsets', type=int, default=200, metavar='N',
                        help='random parts of the writes between two flushes (%(default)s)')
    parser.add_argument('--every', type=int, default=80, metavar='N',
                        help='one random part in so many is gone on with (%(default)s)')
    parser.add_argument('file_systems', nargs='*', metavar='vfat|exfat', default=('vfat', 'exfat'))
    options = parser.parse_args()
    broken = False
    machine.unpacked_kernel()  # once, and not by each
    with concurrent.futures.ThreadPoolExecutor() as pool:
        found = pool.map(lambda name: examine(name, options.subsets, options.every), options.file_systems)
    for name, verdicts in zip(options.file_systems, found):
        tables.write('reliability.md', 'power cuts', HEADER, [
            (name, one['stage'], one['steps'], *cells(one['prefixes']), *cells(one['subsets'])) for one in verdicts])
        broken |= any(one['missing'] or one['prefixes']['broken'] or one['prefixes']['in vain after fsck']
                      or any(one[kind].get('in vain') for kind in ('prefixes', 'subsets')) for one in verdicts)
        print(f'{name}: {sum(one[kind]["cuts"] for one in verdicts for kind in ("prefixes", "subsets"))} cuts')
    sys.exit(broken)


if __name__ == '__main__':
    host.start(main, record, work, judge)
