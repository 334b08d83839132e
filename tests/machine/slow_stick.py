#!/usr/bin/python3
"""A stick that takes 5 MB/s: how long the window gives no answer in each stage of a preparation and of
an update with bundles of a real size, by round trips on the accessibility bus.
"""

import json
import shutil
import sys
import time

import bundles
import guest
import host
import tables
from pulled_when_done import NEW, OLD, make_sources, size_of

BYTES_PER_SECOND = 5_000_000
LONGEST_STEP = 1200  # seconds, by the guest's clock
HEADER = ('file system', 'step', 'stage', 'longest silence', 'the whole step')


# In the guest


def inside(shared, *names):
    guest.work_on_desktops(__file__, shared, names)


def silences(manager):
    """The longest wait for an answer below each caption, until the box at the end.

    Each question is for the caption, for the answer comes between two stages and names the next one.
    """
    longest = {}
    label = manager.wait_for(manager.progress_now, 'the progress').find_all('label')[0]
    caption = label.name
    begun = looked = time.monotonic()
    while time.monotonic() - begun < LONGEST_STEP:
        asked = time.monotonic()
        now = label.name
        silence = time.monotonic() - asked
        longest[caption] = max(longest.get(caption, 0), silence)
        caption = now or caption
        if silence < 0.1 and time.monotonic() - looked > 2:
            if any(window.find('push button', 'OK') for window in manager.windows()[1:]):
                return longest, time.monotonic() - begun
            looked = time.monotonic()
    raise TimeoutError(f'no end within {LONGEST_STEP} s')


def work(shared, name):
    from manager import PREPARED, Manager, install, question_before_preparing, question_before_updating, updated
    from vendor import Vendor
    drive = guest.mount(name.upper())
    program = install(guest.PROGRAM, f'/tmp/{name}/manager', shared / OLD / 'windows', shared / OLD / 'linux')
    rows = []

    def measure(step, question, done):
        manager.dialog(question).control('push button', 'Sim').press()
        longest, whole = silences(manager)
        assert manager.box() == done
        rows.extend((name, step, f'"{caption}"', f'{seconds:.1f} s', f'{whole:.0f} s')
                    for caption, seconds in longest.items())
        print(name, step, longest, f'in {whole:.0f} s', flush=True)

    with Manager(program) as manager, Vendor(f'/tmp/{name}/vendor') as vendor:
        shutil.copytree(shared / 'published', vendor.published, dirs_exist_ok=True)
        manager.press('Preparar unidade USB')
        measure('preparation', question_before_preparing(drive), PREPARED)
        manager.press('Verificar atualizações')
        measure('update', question_before_updating(drive, OLD, NEW, bundles.NOTES), updated(NEW))
    (shared / f'{name}.json').write_text(json.dumps(rows))
    guest.unmount(name.upper())


# Here


def main():
    names = sys.argv[1:] or ('vfat', 'exfat', 'ext4')
    with host.shared_folder() as shared:
        make_sources(shared)
        print(f'Bundles of {size_of(shared / OLD)}')
        drives = [host.stick(shared, name.upper(), name, 1024, bytes_per_second=BYTES_PER_SECOND) for name in names]
        host.run(__file__, 'inside', shared, drives, *names)
        rows = [row for name in names for row in json.loads((shared / f'{name}.json').read_text())]
    tables.write('compatibility.md', 'slow stick', HEADER, rows)


if __name__ == '__main__':
    host.start(main, inside, work)
