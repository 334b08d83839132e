"""The update of a prepared drive."""

import os
import re
import subprocess

from small_drive import FAILING, STATE, below, differences, tree
from faults import ERRORS, HALF, KILL, Fault
from command import TRIES, Command
from drive_calls import is_temporary

STAGING = re.compile(r'Tessarine/\.update-\d{14}(/|$)')
BACKUP = re.compile(r'Tessarine/(windows|linux)\.backup-\d{14}(/|$)')
INSTALLED = {
    **{f'Tessarine/windows/{name}': '1.0.0' for name in ('Tessarine.exe', 'platforms/qwindows.dll', 'old.dll')},
    **{f'Tessarine/linux/{name}': '1.0.0' for name in ('Tessarine', 'Tessarine-Linux.sh', 'lib/libssl.so.3')},
    'Tessarine/README.txt': 'text', 'Tessarine-Linux.sh': 'launcher', 'Tessarine-Windows.bat': 'launcher',
    STATE: '{"app": "Tessarine", "installedVersion": "1.0.0"}'}
WITHOUT_WINDOWS = {name: content for name, content in INSTALLED.items() if '/windows/' not in name}


class Update(Command):
    AREA = 'Não foi possível criar área temporária na unidade USB.'
    PACKAGE = 'Não foi possível gravar o pacote temporário na unidade USB.'
    STAGING = 'Não foi possível criar staging: '
    EXTRACTION = 'Falha ao extrair ZIP: '
    INCOMPLETE = 'Pacote sem arquivo obrigatório: '

    def __init__(self, name, binaries, vendor, files, in_unzip=False, **how):
        super().__init__(name, binaries, files, **how)
        self.vendor, self.in_unzip = vendor, in_unzip

    def surroundings(self):
        return self.vendor.network

    def command(self, drive):
        return [self.binaries / 'tests/faults/window_driver', drive.root, self.vendor.authority]

    def run(self, drive, options=()):
        if not self.in_unzip or not options:
            return super().run(drive, options)
        strace = ' '.join(map(str, self.strace(drive, options)))
        environment = {'PATH': f'{self.vendor.traced_unzip}:{os.environ["PATH"]}', 'STRACE': strace}
        return self.outcome(drive, [*self.surroundings(), *self.command(drive)], environment)

    def stages(self):
        """The message of each step that ends with a sync of the bundles' directory; none at the end."""
        yield (self.EXTRACTION,)
        for bundle in ('windows', 'linux'):
            path = f'DRIVE/Tessarine/{bundle}'
            if f'Tessarine/{bundle}' in self.before:
                yield (f'Não foi possível criar backup de: {path}',)
            yield (f'Não foi possível aplicar novo bundle em: {path}',)
        yield (f'Não foi possível abrir o arquivo de estado: DRIVE/{STATE}',
               f'Não foi possível salvar o arquivo de estado: DRIVE/{STATE}')
        yield ()

    def faults(self, calls):
        later = self.stages()
        messages, is_staged = (self.AREA,), False
        for call in calls:
            if self.in_unzip:
                messages = (self.EXTRACTION, self.INCOMPLETE)
            elif call.paths.endswith('/package.zip') and call.verb == 'create':
                # The last bytes go out when the file is closed, where nobody asks: unzip finds out.
                messages = (self.PACKAGE, self.EXTRACTION)
            elif call.verb == 'open' and call.paths == 'Tessarine/.update-TIME' and not is_staged:
                messages = (self.STAGING,)
            elif call.verb == 'syncfs' and call.paths == 'Tessarine' and messages == (self.STAGING,):
                messages, is_staged = next(later), True
            yield from self.faults_of(call, messages)
            if is_staged and call.verb == 'fsync' and call.paths == 'Tessarine':
                messages = next(later)

    def faults_of(self, call, messages):
        ignored = (not messages or call.verb in ('chmod', 'fdatasync') or call.paths == STATE and call.verb == 'open'
                   or call.verb == 'link' and is_temporary(call.paths))
        if self.in_unzip:
            ignored = call.verb in ('chmod', 'open')
        for error in ERRORS[call.verb]:
            yield Fault(call, error, messages, ignored or error == 'EINTR', self.in_unzip)
        if call.verb == 'write':
            yield Fault(call, HALF, messages, not self.in_unzip, self.in_unzip)
        yield Fault(call, KILL, messages, False, self.in_unzip)

    @staticmethod
    def is_of_update(name):
        # On FAT staging is made under a name with one dot more.
        return name.startswith(('Tessarine/windows', 'Tessarine/linux', 'Tessarine/.update-', 'Tessarine/..update-',
                                STATE))

    def others_changed(self, now):
        for name in self.before.keys() | now.keys():
            if not self.is_of_update(name) and self.before.get(name) != now.get(name):
                yield f'{name} is no longer what it was'

    def broken_on_drive(self, fault, outcome, now):
        olds, news = ({bundle: below(entries, f'Tessarine/{bundle}') for bundle in ('windows', 'linux')}
                      for entries in (self.before, self.after))
        yield from self.others_changed(now)
        # A state file is lost only where its last sync has failed on FAT.
        if STATE not in now and not (self.as_on_fat and fault.call.paths == STATE):
            yield 'no state file'
        if STATE in now and now[STATE].content not in (self.before[STATE].content, self.after[STATE].content):
            yield 'the state file is neither the old nor the new one'

        backups = {bundle: below(now, name) for name in now for bundle in ('windows', 'linux')
                   if re.fullmatch(rf'Tessarine/{bundle}\.backup-\d{{14}}', name)}
        leftovers = [name for name in now if BACKUP.match(name) or STAGING.match(name)]
        for bundle in ('windows', 'linux'):
            live = below(now, f'Tessarine/{bundle}')
            old, new = olds[bundle], news[bundle]
            # ext4 may lose there what it has had to keep in its journal, of a new bundle's files as well.
            is_kept = fault.kind == FAILING and backups.get(bundle) == old
            if live and self.difference(fault, live, old) and self.difference(fault, live, new) and not is_kept:
                yield f'{bundle} is neither the old nor the new one: {differences(live, new)}'
            if old and not live and backups.get(bundle) != old:
                yield f'{bundle} is lost'
        if fault.cuts_off and outcome.status != 0:
            return

        if outcome.status == 0:
            expected = self.after
            if leftovers and fault.messages and not fault.cuts_off:
                yield f'left: {leftovers}'
        elif 'arquivo de estado' in outcome.message:
            expected = {**self.after, STATE: now.get(STATE, self.before[STATE])}
            if any(backups.get(bundle) != old for bundle, old in olds.items() if old):
                yield 'a backup is lost'
            if any(STAGING.match(name) for name in now):
                yield 'staging is left'
        else:
            expected = self.before
            if leftovers:
                yield f'left: {leftovers}'
        rest = {name: entry for name, entry in now.items() if name not in leftovers}
        if STATE not in now:
            expected = {name: entry for name, entry in expected.items() if name != STATE}
        if difference := self.difference(fault, rest, expected):
            yield f'the drive differs: {difference}'

    def broken_afterwards(self, drive, fault):
        for _ in range(TRIES):
            again = self.run(drive)
            # On a very busy machine pgrep may not answer within its time; and what a kill has left of
            # staging has its name until the next second.
            if not again.message.startswith(('Feche o Tessarine', self.AREA)):
                break
        now = tree(drive.root)
        if again.status != 0 and not again.message.startswith('A unidade já está atualizada.'):
            yield f'a second update fails: {again}'
        yield from self.others_changed(now)
        if STATE not in now or now[STATE].content != self.after[STATE].content:
            yield 'a second update leaves another state file'
        for bundle in ('windows', 'linux'):
            live, new = (below(entries, f'Tessarine/{bundle}') for entries in (now, self.after))
            if difference := self.difference(fault, live, new):
                yield f'a second update leaves another {bundle}: {difference}'


class Vendor:
    """Who publishes the update, in a network of its own, until the end of the `with`."""

    def __init__(self, binaries, directory):
        self._driver = binaries / 'tests/faults/window_driver'
        self.traced_unzip = directory / 'bin'
        self.traced_unzip.mkdir()
        script = self.traced_unzip / 'unzip'
        script.write_text('#!/bin/sh\nexec $STRACE -- /usr/bin/unzip "$@"\n')
        script.chmod(0o755)

    def __enter__(self):
        self._server = subprocess.Popen([self._driver, 'serve'], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
        self.authority = self._server.stdout.readline().strip()
        assert self.authority, 'The vendor did not start'
        self.network = ['nsenter', f'--net=/proc/{self._server.pid}/ns/net']
        return self

    def __exit__(self, *_):
        self._server.communicate()
