#!/usr/bin/python3
"""A sector that fails under a library, in a preparation and in an update, on each file system: never
a success, and what was whole stays whole.

Where a file system puts the library is seen in a run without a failure; then the same is done on
a drive that fails there.
"""

import json
import os
import pathlib
import subprocess
import sys
import tempfile

import machine
import recording
from guest import ROOT, SUPPORT, be_vendor, mount, on_desktop, unmount
from power_cuts import BUNDLE_FILES, HOST, STATE, make_bundle, tree

FILE_SYSTEMS = {'vfat': ['mkfs.vfat', '-F', '32', '-s', '8', '-n'], 'exfat': ['mkfs.exfat', '-L'],
                'ext4': ['mkfs.ext4', '-q', '-E', 'root_owner=0:0', '-L']}
LIBRARY = 'windows/Qt6Core.dll'
DONE = {'preparation': 'USB preparado com estrutura portatil Tessarine.',
        'update': 'Atualização concluída.\n\nVersão instalada: 1.1.0'}


def work(scratch, label):
    """Prepares the drive and updates it, and notes what the window said and the drive holds."""
    from manager import Manager, install, question_before_preparing
    from vendor import Vendor
    file_system = label.split('-')[0].lower()
    drive = mount(label, file_system)
    (drive / 'carta.txt').write_text('do usuário\n' * 200)
    os.sync()
    program = install(ROOT / 'build/release/app/TessarineConfig', f'/tmp/{label}/manager')
    for kind in BUNDLE_FILES:
        make_bundle(program.parent / 'bundles' / f'{kind}-x64', kind, '1')
    notes = []

    def note(stage):
        """Waits for the box that ends the stage."""
        box = manager.wait_for(
            lambda: next((w for w in manager.windows()[1:] if w.find('push button', 'OK')), None), 'a box')
        said = ' '.join(box.labels())
        box.control('push button', 'OK').press()
        manager.wait_for(lambda: len(manager.windows()) == 1, 'the end of the box')
        os.sync()
        pathlib.Path('/proc/sys/vm/drop_caches').write_text('3')
        log = scratch / f'{label}.log'
        notes.append({'stage': stage, 'said': said, 'tree': tree(drive),
                      'log': log.stat().st_size if log.exists() else 0})

    with Manager(program) as manager, Vendor(f'/tmp/{label}/vendor') as vendor:
        manager.press('Preparar unidade USB')
        manager.answer(question_before_preparing(drive), 'Sim')
        note('preparation')
        if notes[-1]['said'] == DONE['preparation']:
            vendor.publish(*(make_bundle(pathlib.Path(f'/tmp/{label}/{kind}'), kind, '3') for kind in BUNDLE_FILES),
                           '1.1.0', 'Novidades.')
            manager.press('Verificar atualizações')
            manager.answer(f'Atualizar Tessarine na unidade {drive}?\n\nVersão instalada: 1.0.0\n'
                           'Versão disponível: 1.1.0\n\nNovidades.', 'Sim')
            note('update')
    (scratch / f'{label}.json').write_text(json.dumps(notes))
    unmount(drive)


def inside(scratch, *labels):
    be_vendor(HOST, scratch / 'certificates')
    for label in labels:
        on_desktop(__file__, 'work', scratch, label)
    subprocess.run('dmesg | grep "I/O error"', shell=True, check=False)


def stick(scratch, label, **unit):
    image = scratch / label
    with open(image, 'wb') as file:
        file.truncate(40 << 20)
    make = FILE_SYSTEMS[label.split('-')[0].lower()]
    subprocess.run([*make, label, image], check=True, stdout=subprocess.DEVNULL)
    return machine.Drive(label, [machine.Unit(image, **unit)])


def run(scratch, drives):
    status = machine.run(['/usr/bin/python3', '-B', __file__, 'inside', scratch,
                          *(drive.name for drive in drives)], drives, shared=[scratch], limit=1200)
    if status:
        sys.exit(status)
    notes = {drive.name: json.loads((scratch / f'{drive.name}.json').read_text()) for drive in drives}
    return {label: {note['stage']: note for note in of_label} for label, of_label in notes.items()}


def sector_of(content, log, begin, end):
    """Where that content was written, in that part of the log."""
    return next(sector + offset // 512 for sector, written in filter(None, recording.read(log, begin, end))
                for offset in range(0, len(written), 512) if written[offset:offset + 512] == content)


def violations(stage, found, good):
    """What of a run that met the sector must not be."""
    note = found.get(stage)
    if note is None:
        yield f'there was no {stage}'
        return
    if note['said'] == DONE[stage]:
        yield f'"{note["said"]}" was said'
    kept = {'carta.txt'} if stage == 'preparation' else good['preparation']['tree']
    for path in kept:
        before = good['preparation']['tree'][path]
        if path != STATE and note['tree'].get(path) != before:
            yield f'{path} was whole and is {note["tree"].get(path)}'


def main():
    broken = False
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        subprocess.run([SUPPORT / 'make-test-ca', scratch / 'certificates', HOST], check=True)
        labels = [name.upper() for name in sys.argv[1:] or FILE_SYSTEMS]
        for label in labels:
            (scratch / f'{label}.log').touch()
        good = run(scratch, [stick(scratch, label, log=scratch / f'{label}.log') for label in labels])
        drives = []
        for label in labels:
            begin, end = 0, good[label]['preparation']['log']
            for stage, version in (('preparation', '1'), ('update', '3')):
                content = (make_bundle(scratch / version / 'windows', 'windows', version) / 'Qt6Core.dll').read_bytes()
                sector = sector_of(content[:512], scratch / f'{label}.log', begin, end)
                begin, end = end, good[label]['update']['log']
                drives.append(stick(scratch, f'{label}-{stage[0].upper()}', failing=(sector,)))
        met = run(scratch, drives)
        for label in labels:
            for stage in ('preparation', 'update'):
                found = met[f'{label}-{stage[0].upper()}']
                wrong = list(violations(stage, found, good[label]))
                print(f'{label.lower()}, {stage}: "{found[stage]["said"] if stage in found else None}"; {wrong or "nothing lost"}')
                broken |= bool(wrong)
    sys.exit(broken)


if __name__ == '__main__':
    if sys.argv[1:2] == ['inside']:
        inside(pathlib.Path(sys.argv[2]), *sys.argv[3:])
    elif sys.argv[1:2] == ['work']:
        work(pathlib.Path(sys.argv[2]), sys.argv[3])
    else:
        main()
