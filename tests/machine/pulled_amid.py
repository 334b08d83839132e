#!/usr/bin/python3
"""Pulled out in the middle: while bundles are copied, while a package is fetched, unpacked and swapped
in. What the program says then, that its window can be used, and that a second run on the stick,
plugged in again, leaves what one without the pull leaves.
"""

import json
import os
import re
import shutil
import signal
import sys

import bundles
import guest
import host
import tables
from bundles import LEFTOVER, tree

FILE_SYSTEMS = ('vfat', 'exfat')
LIBRARY_SIZE = 4 << 20
HEADER = ('file system', 'pulled during', 'what was said', 'second run')
OLD, NEW = '1.0.0', '1.1.0'
# What is cut short, and how the message begins.
COMMANDS = {'copy': ('prepare', 'Nao foi possivel gravar o arquivo: '),
            'download': ('update', 'Não foi possível criar área temporária na unidade USB.'),
            'extraction': ('update', 'Falha ao extrair ZIP: '),
            'first swap': ('update', 'Não foi possível criar backup de: '),
            'second swap': ('update', 'Não foi possível criar backup de: ')}
# The first stick isn't pulled out. What a pull in the swap leaves on vfat makes the kernel turn the stick read-only
# when it is used once more, so that it is the last one on a stick.
STICKS = ((), ('copy', 'download', 'extraction', 'first swap'), ('second swap',))


# In the guest


def inside(shared, *names):
    guest.work_on_desktops(__file__, shared, names)


def is_there(drive, pattern):
    """Whether such a file has come into being; a drive that has gone has none."""
    try:
        return any(drive.glob(pattern))
    except OSError:
        return False


def wait_and_stop(process_id, condition):
    """Stops the program at the first moment at which that is so."""
    guest.wait_until(condition, 'nothing to stop the program at')
    os.kill(process_id, signal.SIGSTOP)


class Run:
    """The user's work with one stick."""

    def __init__(self, stick, manager, vendor):
        self.stick, self.manager, self.vendor = stick, manager, vendor
        self.drive = guest.mount(self.stick)
        (self.drive / 'carta.txt').write_text('do usuário\n' * 200)
        os.sync()  # it is on the medium before the program comes
        self.refresh()

    def refresh(self):
        lines = len(self.manager.log)
        self.manager.press('Atualizar lista')
        self.manager.wait_for(lambda: len(self.manager.log) > lines, 'the list')

    def prepare(self):
        from manager import question_before_preparing
        self.manager.press('Preparar unidade USB')
        self.manager.answer(question_before_preparing(self.drive), 'Sim')

    def update(self):
        from manager import question_before_updating
        self.manager.press('Verificar atualizações')
        self.manager.answer(question_before_updating(self.drive, OLD, NEW, bundles.NOTES), 'Sim')

    def copy(self):
        self.prepare()
        wait_and_stop(self.manager.process_id, lambda: is_there(self.drive, 'Tessarine/windows/Qt6Core.dll*'))

    def download(self):
        self.vendor.hold(f'{NEW}.zip')
        self.update()
        self.manager.progress('Baixando pacote de atualização...')
        os.kill(self.manager.process_id, signal.SIGSTOP)
        self.vendor.release(f'{NEW}.zip')

    def extraction(self):
        self.update()
        wait_and_stop(self.manager.process_id,
                      lambda: is_there(self.drive, 'Tessarine/.update-*/extracted/Tessarine/windows/Qt6Core.dll'))

    def first_swap(self):
        self.update()
        wait_and_stop(self.manager.process_id, lambda: is_there(self.drive, 'Tessarine/windows.backup-*'))

    def second_swap(self):
        self.update()
        wait_and_stop(self.manager.process_id, lambda: is_there(self.drive, 'Tessarine/linux.backup-*'))

    def pulled_during(self, moment):
        """What was said, once the stick is plugged in again."""
        getattr(self, moment.replace(' ', '_'))()
        guest.pull(self.stick, self.stick)
        os.kill(self.manager.process_id, signal.SIGCONT)
        said = self.manager.box()
        self.refresh()
        guest.plug_in(self.stick, self.stick)
        assert guest.mount(self.stick) == self.drive
        self.refresh()
        return said


def content(drive):
    """What the drive holds, and which version it says that it does; the rest of its state is a time."""
    from manager import state_of
    found = tree(drive)
    found.pop(bundles.STATE)
    return {**found, bundles.STATE: state_of(drive)['installedVersion']}


def clear(drive):
    if (drive / 'Tessarine').exists():
        shutil.rmtree(drive / 'Tessarine')
    for launcher in drive.glob('Tessarine-*'):
        launcher.unlink()


def in_short(path):
    """Its name in a table, where each run should have the same."""
    return re.sub(r'\.[A-Za-z]{6}$', '.XXXXXX', re.sub(r'\d{14}', 'TIME', path.rstrip('/')))


def outcome(run, ended, done, expected):
    """What a second run that ended with that message has come to."""
    found = content(run.drive)
    wrong = [path for path in expected if found.get(path) != expected[path]]
    more = [path for path in found if path not in expected]
    wrong += [path for path in more if not LEFTOVER.match(path)]
    if ended != done or wrong:
        return f'"{ended}"; not as it should be: {wrong}'
    left = sorted({in_short(LEFTOVER.match(path)[0]) for path in more})
    return f'complete; left over: {", ".join(left) or "nothing"}'


def work(shared, name):
    from manager import PREPARED, Manager, updated
    from vendor import Vendor
    program = bundles.install(f'/tmp/{name}/manager', '1', LIBRARY_SIZE)
    done = {'prepare': PREPARED, 'update': updated(NEW)}
    rows, undisturbed = [], {}

    def give(run, command):
        getattr(run, command)()
        return manager.box()

    def without_a_pull(run, command):
        assert give(run, command) == done[command]
        print(f'{name}, undisturbed: "{done[command]}"', flush=True)
        return content(run.drive)

    def pull(run, moment):
        command, beginning = COMMANDS[moment]
        clear(run.drive)
        if command == 'update':
            assert give(run, 'prepare') == PREPARED
        said = run.pulled_during(moment)
        ended = give(run, command)
        come_to = outcome(run, ended, done[command], undisturbed[command])
        in_table = re.sub(r'\d{14}', 'TIME', said).strip().replace(str(run.drive), '...')
        rows.append((name, moment, f'"{in_table}"',
                     come_to if said.startswith(beginning) else f'another message was expected; {come_to}'))
        print(*rows[-1], sep=', ', flush=True)
        (shared / f'{name}.json').write_text(json.dumps(rows))

    with Manager(program) as manager, Vendor(f'/tmp/{name}/vendor') as vendor:
        bundles.publish(vendor, '2', NEW, LIBRARY_SIZE)
        for stick, moments in zip(sticks_of(name), STICKS):
            run = Run(stick, manager, vendor)
            if not moments:
                undisturbed = {command: without_a_pull(run, command) for command in done}
            for moment in moments:
                pull(run, moment)
            guest.unmount(stick)


def sticks_of(name):
    return [f'{name.upper()}-{number}' for number in range(len(STICKS))]


# Here


def main():
    names = sys.argv[1:] or FILE_SYSTEMS
    with host.shared_folder() as shared:
        drives = [host.stick(shared, stick, name, 256, bytes_per_second=5_000_000)
                  for name in names for stick in sticks_of(name)]
        host.run(__file__, 'inside', shared, drives, *names)
        rows = [row for name in names for row in json.loads((shared / f'{name}.json').read_text())]
    tables.write('compatibility.md', 'pulled amid', HEADER, rows)
    sys.exit(any(not row[3].startswith('complete') for row in rows))


if __name__ == '__main__':
    host.start(main, inside, work)
