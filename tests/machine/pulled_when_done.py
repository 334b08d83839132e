#!/usr/bin/python3
"""Pulled out as soon as the box says that it is done: a stick is prepared, and then updated, with
bundles of a real size. Plugged in again it holds every byte, and what starts from it is told.
"""

import filecmp
import json
import os
import pathlib
import random
import shutil
import subprocess
import sys
import time

import bundles
import guest
import host
import tables
from bundles import LEFTOVER, STATE

FILE_SYSTEMS = ('vfat', 'exfat', 'ext4')
LIBRARY_SIZE = 24 << 20  # of Windows; the libraries of Linux are this machine's
HEADER = ('file system', 'step', 'size', 'time', 'after the pull', 'the launcher')
OLD, NEW = '1.0.0', '1.1.0'
TEXTS = ('Tessarine-Linux.sh', 'Tessarine-Windows.bat', 'Tessarine/README.txt')


# In the guest


def inside(shared, *names):
    guest.work_on_desktops(__file__, shared, names)


def sources(shared, version):
    """Where each file of a drive with that version comes from, by its path there."""
    found = {pathlib.Path(text): shared / 'assembled' / text for text in TEXTS}
    for kind in bundles.FILES:
        bundle, place = shared / version / kind, pathlib.Path('Tessarine', kind)
        found |= {place / path.relative_to(bundle): path for path in bundle.rglob('*') if path.is_file()}
    return found


def differences(drive, expected):
    """Paths of files that aren't what they are where they come from, or come from nowhere."""
    wrong = [path for path, source in expected.items()
             if not (drive / path).is_file() or not filecmp.cmp(source, drive / path, shallow=False)]
    others = {path.relative_to(drive) for path in drive.rglob('*') if path.is_file()} - {*expected, pathlib.Path(STATE)}
    return sorted(map(str, wrong)) + sorted(str(path) for path in others if not LEFTOVER.match(str(path)))


def start(drive, version):
    """What comes of the Linux launcher, started as a file manager does and, if it is refused, by a shell."""
    from window_driver import Application
    launcher = drive / 'Tessarine-Linux.sh'
    try:
        with Application([launcher], name='Tessarine', stdout=subprocess.PIPE, text=True) as sample:
            said = sample.process.stdout.readline()
            return 'starts' if said == f'ready {version}\n' else f'says "{said.strip()}"'
    except PermissionError:
        # Without a display no box waits for an answer.
        tried = subprocess.run(['sh', launcher], check=False, stderr=subprocess.PIPE, text=True,
                               env={**os.environ, 'DISPLAY': ''})
        errors = tried.stderr.replace(str(drive), '...').strip().splitlines()
        return f'is refused; through `sh`: "{errors[0]}"'


def work(shared, name):
    from manager import (PREPARED, Manager, install, question_before_preparing, question_before_updating, state_of,
                         updated)
    from vendor import Vendor
    drive = guest.mount(name.upper())
    program = install(guest.PROGRAM, f'/tmp/{name}/manager', shared / OLD / 'windows', shared / OLD / 'linux')
    rows = []

    def end(step, begun, version, expected):
        """Once the box is there the stick is out, before anybody has read it."""
        manager.dialog(expected)
        seconds = time.monotonic() - begun
        guest.pull(name.upper(), name.upper())
        assert manager.box() == expected
        guest.plug_in(name.upper(), name.upper())
        assert guest.mount(name.upper()) == drive
        wrong = differences(drive, sources(shared, version))
        wrong += [] if state_of(drive)['installedVersion'] == version else [STATE]
        rows.append((name, step, size_of(shared / version), f'{seconds:.0f} s',
                     f'differs: {wrong}' if wrong else 'every byte there', start(drive, version)))
        print(*rows[-1], sep=', ', flush=True)
        (shared / f'{name}.json').write_text(json.dumps(rows))

    with Manager(program) as manager, Vendor(f'/tmp/{name}/vendor') as vendor:
        shutil.copytree(shared / 'published', vendor.published, dirs_exist_ok=True)
        manager.press('Preparar unidade USB')
        manager.dialog(question_before_preparing(drive)).control('push button', 'Sim').press()
        end('preparation', time.monotonic(), OLD, PREPARED)
        manager.press('Verificar atualizações')
        question = question_before_updating(drive, OLD, NEW, bundles.NOTES)
        manager.dialog(question).control('push button', 'Sim').press()
        end('update', time.monotonic(), NEW, updated(NEW))
    guest.unmount(name.upper())


# Here


def size_of(directory):
    return f'{sum(path.stat().st_size for path in directory.rglob("*") if path.is_file()) >> 20} MiB'


def make_sources(shared):
    """Bundles of two versions, complete with this machine's Qt, and the second one's package."""
    from vendor import make_linux_bundle
    samples = guest.ROOT / 'build/release/tests/sample-app'
    assembled = shared / 'assembled'
    assembled.mkdir()
    alone = shared / 'alone'
    alone.mkdir()
    sample = shutil.copy2(samples / OLD / 'Tessarine', alone)
    environment = {**os.environ, 'PATH': f'{os.environ["PATH"]}:/usr/sbin:/sbin'}
    subprocess.run([guest.ROOT / 'build/release/tests/faults/prepare_driver', 'prepare', assembled, '',
                    sample], check=True, stdout=subprocess.DEVNULL, env=environment)
    for version in (OLD, NEW):
        make_linux_bundle(assembled / 'Tessarine/linux', samples / version / 'Tessarine', shared / version / 'linux')
        windows = bundles.make(shared / version / 'windows', 'windows', version)
        (windows / 'Qt6Core.dll').write_bytes(random.Random(version).randbytes(LIBRARY_SIZE))
    subprocess.run([guest.ROOT / 'tools/publish-update', '--windows', shared / NEW / 'windows', '--linux',
                    shared / NEW / 'linux', '--version', NEW, '--notes', bundles.NOTES,
                    '--output', shared / 'published',
                    '--url', f'https://{bundles.HOST}/000Updates/tessarine/{NEW}.zip'],
                   check=True, stdout=subprocess.DEVNULL)


def main():
    names = sys.argv[1:] or FILE_SYSTEMS
    with host.shared_folder() as shared:
        make_sources(shared)
        drives = [host.stick(shared, name.upper(), name, 1024) for name in names]
        host.run(__file__, 'inside', shared, drives, *names)
        rows = [row for name in names for row in json.loads((shared / f'{name}.json').read_text())]
    tables.write('compatibility.md', 'pulled when done', HEADER, rows)
    # On vfat udisks lets nobody start it.
    sys.exit(any(row[4] != 'every byte there' or (row[5] != 'starts') != (row[0] == 'vfat') for row in rows))


if __name__ == '__main__':
    host.start(main, inside, work)
