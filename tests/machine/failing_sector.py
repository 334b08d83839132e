#!/usr/bin/python3
"""A sector that fails under each kind of file of a preparation and of an update, on each file system:
never a success, and what was whole stays whole.

Where a file system puts a file is seen in a run without a failure; then the same is done on a stick
that fails there.
"""

import json
import os
import pathlib
import re
import sys

import bundles
import guest
import host
import recording
import tables
from bundles import STATE, tree
from invariants import broken_by_preparation, broken_by_update

HEADER = ('file system', 'during', 'under', 'what was said')
NEW = '1.1.0'
ATTEMPTS = 5
PACKAGE = 'the package'
KINDS = {
    'preparation': {'library of Windows': 'Tessarine/windows/Qt6Core.dll',
                    'program of Linux': 'Tessarine/linux/Tessarine',
                    'library of Linux': 'Tessarine/linux/lib/libssl.so.3',
                    'launcher': 'Tessarine-Linux.sh',
                    'text': 'Tessarine/README.txt',
                    'state file': STATE},
    'update': {'package': PACKAGE,
               'unpacked program': 'Tessarine/linux/Tessarine',
               'unpacked library': 'Tessarine/windows/Qt6Core.dll',
               'state file': STATE},
}
# The message names the file, but for what is synced as a whole.
OTHER_WORDS = {'package': ('Não foi possível criar staging: ', 'Falha ao extrair ZIP: '),
               'unpacked program': ('Falha ao extrair ZIP: ',),
               'unpacked library': ('Falha ao extrair ZIP: ',)}


# In the guest


def inside(shared, *labels):
    # What the kernel writes at a time of its own gets another place in each run.
    pathlib.Path('/proc/sys/vm/dirty_writeback_centisecs').write_text('0', encoding='ascii')
    guest.work_on_desktops(__file__, shared, labels)


def work(shared, label):
    """Prepares the stick and updates it, and notes what the window said and the stick holds."""
    from manager import PREPARED, Manager, question_before_preparing, question_before_updating, updated
    from vendor import Vendor
    drive = guest.mount(label)
    with open(drive / 'carta.txt', 'w', encoding='utf-8') as letter:  # is on the medium before the program comes
        letter.write('do usuário\n' * 200)
        letter.flush()
        os.fsync(letter.fileno())
    program = bundles.install(f'/tmp/{label}/manager', '1')
    notes, errors = {}, [io_errors(label)]

    def note(stage, package=None):
        """Once the box that ends the stage has gone; what is read then comes from the medium."""
        said = manager.box()
        errors.append(io_errors(label))
        warned = [line for line in manager.log if line.startswith('Aviso: ')]
        guest.unmount(label)
        assert guest.mount(label) == drive
        files = {path: drive / path for path in KINDS[stage].values()}
        files[PACKAGE] = package
        log = shared / f'{label}.log'
        notes[stage] = {
            'met': errors[-1] > errors[-2],
            'done': said in (PREPARED, updated(NEW)) and not warned,
            'said': re.sub(r'\d{14}', 'TIME', '; in the log: '.join([said, *warned]).replace(str(drive), '...')),
            'tree': tree(drive),
            'beginnings': {path: file.read_bytes()[:512].hex() for path, file in files.items()
                           if file and file.exists()},
            'log': log.stat().st_size if log.exists() else 0}
        (shared / f'{label}.json').write_text(json.dumps(notes))
        return said

    with Manager(program) as manager, Vendor(f'/tmp/{label}/vendor') as vendor:
        manager.press('Preparar unidade USB')
        manager.answer(question_before_preparing(drive), 'Sim')
        if note('preparation') == PREPARED and not label.startswith('P'):
            bundles.publish(vendor, '3', NEW)
            manager.press('Verificar atualizações')
            manager.answer(question_before_updating(drive, '1.0.0', NEW, bundles.NOTES), 'Sim')
            note('update', vendor.published / f'{NEW}.zip')
    guest.unmount(label)


def io_errors(label):
    """How many commands the stick hasn't carried out so far."""
    return int(pathlib.Path('/sys/class/block', guest.device(label).name, 'device/ioerr_cnt').read_text(), 16)


# Here


def run(shared, drives):
    labels = [drive.name for drive in drives]
    # ext4 lets each processor write to a place of its own.
    host.run(__file__, 'inside', shared, drives, *labels, processors=1)
    notes = {label: json.loads((shared / f'{label}.json').read_text()) for label in labels}
    for of_label in notes.values():
        for note in of_label.values():
            note['tree'] = {path: tuple(content) for path, content in note['tree'].items()}
    return notes


def sector_of(content, log, begin, end):
    """Where that content was written, in that part of the log."""
    return next(sector + offset // 512 for sector, written in filter(None, recording.read(log, begin, end))
                for offset in range(0, len(written), 512) if written[offset:].startswith(content))


def runs(shared, name, sectors):
    """For each such sector its stage and kind of file, and what a stick came to that fails there.

    A file system doesn't always use the same places. A stick that has met its sector elsewhere, or not at all, is
    one of those, too, and is made and tried again.
    """
    left = list(sectors)
    for _ in range(ATTEMPTS):
        labels = {f'{stage[0].upper()}{number}-{name.upper()}': (stage, kind)
                  for number, (stage, kind) in enumerate(sectors) if (stage, kind) in left}
        if not labels:
            break
        drives = [host.stick(shared, label, name, 16, failing=(sectors[of],)) for label, of in labels.items()]
        for label, notes in run(shared, drives).items():
            stage, kind = labels[label]
            yield stage, kind, notes
            if met_under(stage, kind, notes):
                left.remove((stage, kind))


def met_under(stage, kind, notes):
    """Whether the stick has met its sector there."""
    words = OTHER_WORDS.get(kind, [f'.../{KINDS[stage][kind]}'])
    return stage in notes and notes[stage]['met'] and any(word in notes[stage]['said'] for word in words)


def violations(notes, good):
    """What must not be of a stick that fails, by each stage, be it the one that was meant or not."""
    before, after = good['preparation']['tree'], good['update']['tree']
    for stage, note in notes.items():
        if note['met'] == note['done']:
            yield f'the {stage} was called done' if note['met'] else f'the {stage} failed without the sector'
        if note['met'] and stage == 'preparation':
            yield from broken_by_preparation(note['tree'], {'carta.txt': before['carta.txt']}, before)
        if note['met'] and stage == 'update':
            yield from broken_by_update(note['tree'], notes['preparation']['tree'], after)


def main():
    names = sys.argv[1:] or ('vfat', 'exfat', 'ext4')
    rows, broken = [], False
    with host.shared_folder() as shared:
        drives = []
        for name in names:
            log = shared / f'{name.upper()}.log'
            log.touch()
            drives.append(host.stick(shared, name.upper(), name, 16, log=log))
        good = run(shared, drives)
        for name in names:
            recorded = good[name.upper()]
            ends = {'preparation': (0, recorded['preparation']['log']),
                    'update': (recorded['preparation']['log'], recorded['update']['log'])}
            sectors = {(stage, kind): sector_of(bytes.fromhex(recorded[stage]['beginnings'][path]),
                                                shared / f'{name.upper()}.log', *ends[stage])
                       for stage, kinds in KINDS.items() for kind, path in kinds.items()}
            for stage, kind, notes in runs(shared, name, sectors):
                wrong = list(violations(notes, recorded))
                said = '; '.join(f'{of_stage}: "{note["said"]}"' for of_stage, note in notes.items())
                print(name, stage, kind, said, wrong or 'nothing lost', sep=', ', flush=True)
                broken |= bool(wrong)
                if met_under(stage, kind, notes):
                    rows.append((name, stage, kind, f'"{notes[stage]["said"]}"'))
            for stage, kind in sectors.keys() - {row[1:3] for row in rows if row[0] == name}:
                print(f'{name}, {stage}, {kind}: no stick has met its sector there')
                broken = True
    tables.write('reliability.md', 'failing sectors', HEADER, rows)
    sys.exit(broken)


if __name__ == '__main__':
    host.start(main, inside, work)
