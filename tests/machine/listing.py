#!/usr/bin/python3
"""The list of drives and the drive that is chosen, on a machine with every kind of drive, beside what
lsblk says and what the kernel's files make of the rules.
"""

import json
import os
import pathlib
import re
import subprocess
import sys

import bundles
import guest
import host
import tables
from machine import Drive, Unit

# What is at which port of the controller, and in which unit of it. What is at none is built in.
WHAT = {
    (1, 0): 'stick, its label with a blank and an accent',
    (2, 0): 'stick with a GUID partition table',
    (3, 0): 'stick with nothing on it',
    (4, 0): 'stick with two partitions',
    (5, 0): 'fixed disk',
    (6, 0): 'optical drive with a disc',
    (7, 0): 'optical drive without one',
    (8, 0): 'card reader, empty slot',
    (8, 1): 'card reader, slot with a card',
    (8, 2): 'card reader, another empty slot',
    (9, 0): 'stick',
    None: 'internal disk',
}
HEADER = ('drive', '`lsblk`', 'in the list')
CHOICE_HEADER = ('mounted USB drives', 'chosen')


# In the guest


def run(*command):
    """What the command says, in which a label need not be UTF-8."""
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, errors='replace').stdout


def block_device(port, part=''):
    return str(next(pathlib.Path('/dev/disk/by-path').glob(f'*-usb-0:{port}:*:0{part}')).resolve())


def places():
    """Port and unit of each disk that is plugged in."""
    for link in pathlib.Path('/dev/disk/by-path').iterdir():
        if found := re.search(r'-usb-0:(\d+):.*:(\d+)$', link.name):
            yield link.resolve().name, (int(found[1]), int(found[2]))


def volumes():
    """What lsblk knows of each partition, and of each disk without one, and where its disk is."""
    found, place_of = [], dict(places())
    columns = 'NAME,PATH,KNAME,TYPE,RM,SIZE,FSTYPE,LABEL,MOUNTPOINT'
    for disk in json.loads(run('lsblk', '-J', '-o', columns))['blockdevices']:
        place = place_of.get(disk['kname'])
        found += [{**volume, 'place': place} for volume in disk.get('children', [disk])]
    return found


def partition(disk, *types):
    subprocess.run(['sfdisk', '--quiet', '--label', types[0], disk], check=True, text=True,
                   input='\n'.join(f'size=7M, type={kind}' for kind in types[1:]))
    run('udevadm', 'settle')


def inside(shared):
    """Partitions what is partitioned, mounts three volumes of the user's, a disc and the internal disk."""
    guest.begin()
    partition(block_device(2), 'gpt', 'EBD0A0A2-B9E5-4433-87C0-68B6B72699C7')
    run('mkfs.exfat', '-L', 'DADOS', block_device(2, '-part1'))
    partition(block_device(4), 'dos', 'c', '83')
    run('mkfs.vfat', '-n', 'UM', block_device(4, '-part1'))
    run('mkfs.ext4', '-q', '-L', 'DOIS', block_device(4, '-part2'))
    for device in (block_device(2, '-part1'), block_device(4, '-part1'), block_device(4, '-part2')):
        run('udevadm', 'trigger', '--settle', '--action=change', device)
    for device, place in (('/dev/vda', '/mnt/INTERNO'), (block_device(6), '/mnt/DISCO')):
        os.makedirs(place)
        run('mount', device, place)
    for device in (block_device(1), block_device(2, '-part1'), block_device(4, '-part1')):
        guest.udisksctl('mount', device)
    guest.on_desktop(__file__, 'work', shared)


def decoded(link):
    """A link's name as the label of a mounted volume: of the bytes that udev writes as hexadecimal
    numbers Qt reads those of ASCII."""
    return re.sub(r'\\x([2-7][0-9a-f])', lambda found: chr(int(found[1], 16)), link)


def expected_lines():
    """The rules for the list, applied to what the kernel and udev say now."""
    blocks = pathlib.Path('/sys/class/block')
    links = {link.resolve().name: link.name for link in pathlib.Path('/dev/disk/by-label').iterdir()}

    def disk(name):
        return (blocks / name).resolve().as_posix().split('/block/')[1].split('/')[0]

    def is_listed(name):
        return ('/usb' in (blocks / name).resolve().as_posix()
                and (blocks / disk(name) / 'device/type').read_text().strip() != '5')

    mounts = [line.split(' ') for line in pathlib.Path('/proc/self/mountinfo').read_text().splitlines()]
    places = [(line[line.index('-') + 2], line[4]) for line in mounts]
    lines, known = [], set()
    for source, place in places:
        name = os.path.basename(source)
        if source.startswith('/dev/') and (blocks / name).exists() and is_listed(name):
            place = place.replace('\\040', ' ')
            known.add(name)
            lines.append(f'{decoded(links[name]) if name in links else place} ({place})')
    for entry in sorted(blocks.iterdir(), key=lambda entry: entry.name.lower()):
        is_divided = any(part.name.startswith(entry.name) for part in entry.iterdir())
        if entry.name not in known and not is_divided and is_listed(entry.name):
            lines.append(f'{links.get(entry.name, entry.name)} (/dev/{entry.name}) | não montado')
    return lines


def work(shared):
    """The list as it is, and again each time that a volume is unmounted."""
    from manager import Manager
    seen = []
    program = bundles.install('/tmp/manager', '1')
    with Manager(program) as manager:
        mounted = [block_device(1), block_device(2, '-part1'), block_device(4, '-part1')]
        while True:
            seen.append({'listed': manager.drives, 'expected': expected_lines(), 'chosen': manager.chosen_drive,
                         'mounted': len(mounted), 'volumes': volumes()})
            if not mounted:
                break
            guest.udisksctl('unmount', mounted.pop())
            lines = len(manager.log)
            manager.press('Atualizar lista')
            manager.wait_for(lambda: len(manager.log) > lines, 'the list')
    (shared / 'seen.json').write_text(json.dumps(seen))


# Here


def image(folder, name, *make):
    with open(folder / name, 'wb') as file:
        file.truncate(16 << 20)
    if make:
        subprocess.run([*make, folder / name], check=True, stdout=subprocess.DEVNULL)
    return Unit(folder / name)


def relabel(unit, old, new):
    """mkfs.vfat doesn't take what Windows writes into a label: letters of the code page 850."""
    content = unit.image.read_bytes()
    unit.image.write_bytes(content.replace(old.encode(), new.encode('cp850')))


def wrong_with(seen):
    if seen['listed'] != seen['expected']:
        yield f'the list should be {seen["expected"]}'
    only = [line for line in seen['listed'] if not line.endswith('| não montado')]
    if seen['chosen'] != (only[0] if len(only) == 1 else None) or len(only) != seen['mounted']:
        yield f'"{seen["chosen"]}" is chosen'


def row_of(volume, listed):
    """What it is, what lsblk says of it, and its line in the list."""
    said = ' '.join(str(volume[key]) for key in ('kname', 'type', 'size', 'fstype') if volume[key])
    said += ', removable' if volume['rm'] else ''
    said += f', "{volume["label"]}"' if volume['label'] else ''
    said += f', on {volume["mountpoint"]}' if volume['mountpoint'] else ''
    marks = (f'({volume["mountpoint"]})', f'({volume["path"]}) | não montado')
    line = next((line for line in listed if line.endswith(marks)), None)
    place = tuple(volume['place']) if volume['place'] else None
    return WHAT[place], said, f'"{line}"' if line else 'not there'


def main():
    with host.shared_folder() as folder:
        disc = image(folder, 'disc', 'mkfs.vfat', '-S', '2048', '-n', 'DISCO')
        disc.optical = True
        accent = image(folder, 'accent', 'mkfs.vfat', '-n', 'AVI-O AZUL')
        relabel(accent, 'AVI-O AZUL', 'AVIÃO AZUL')
        drives = [
            Drive('accent', [accent]),
            Drive('table', [image(folder, 'table')]),
            Drive('bare', [image(folder, 'bare')]),
            Drive('two', [image(folder, 'two')]),
            Drive('fixed', [image(folder, 'fixed', 'mkfs.ext4', '-q', '-L', 'FIXO')], removable=False),
            Drive('disc', [disc]),
            Drive('tray', [Unit(optical=True)]),
            Drive('reader', [Unit(), image(folder, 'card', 'mkfs.exfat', '-L', 'CARTÃO'), Unit()]),
            Drive('left', [image(folder, 'left', 'mkfs.vfat', '-n', 'DE LADO')]),
            Drive('internal', [image(folder, 'internal', 'mkfs.ext4', '-q', '-L', 'INTERNO')],
                  protocol='virtio-blk-pci'),
        ]
        host.run(__file__, 'inside', folder, drives)
        states = json.loads((folder / 'seen.json').read_text())
    rows = sorted(row_of(volume, states[0]['listed']) for volume in states[0]['volumes'])
    tables.write('compatibility.md', 'listing', HEADER, rows)
    tables.write('compatibility.md', 'chosen drive', CHOICE_HEADER,
                 [(state['mounted'], f'"{state["chosen"]}"' if state['chosen'] else 'none') for state in states])
    for row in rows:
        print(*row, sep=' | ')
    broken = False
    for state in states:
        wrong = list(wrong_with(state))
        broken |= bool(wrong)
        print(f'{state["mounted"]} mounted: {wrong or "as it should be"}', *state['listed'],
              f'chosen: {state["chosen"]}\n', sep='\n    ')
    sys.exit(broken)


if __name__ == '__main__':
    if len(sys.argv) > 1:
        {'inside': inside, 'work': work}[sys.argv[1]](pathlib.Path(sys.argv[2]))
    else:
        main()
