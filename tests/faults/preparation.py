"""The preparation of a drive."""

import dataclasses
import pathlib
import shutil

from small_drive import MEBIBYTE, STATE, tree, write_all
from faults import ERRORS, HALF, KILL, Fault
from command import Command
from drive_calls import is_temporary, name_in_the_end

WINDOWS = {'Tessarine.exe': 'program', 'a.dll': 'library', 'b.dll': 'library b'}
COMPLETE_WINDOWS = {'Tessarine.exe': 'program', 'Qt6Core.dll': 'qt', 'platforms/qwindows.dll': 'plugin'}
LINUX = {'Tessarine': 'x' * (MEBIBYTE + 5000), 'qt.conf': 'settings', 'lib/libssl.so.3': 'tls',
         'plugins/platforms/libqxcb.so': 'xcb'}
TEXTS = ('Tessarine-Windows.bat', 'Tessarine-Linux.sh', 'Tessarine/README.txt')
QT_PLUGINS = '/usr/lib/x86_64-linux-gnu/qt6/plugins'
OLDER = {**{f'Tessarine/windows/{name}': 'an older one' for name in COMPLETE_WINDOWS},
         **{f'Tessarine/linux/{name}': 'an older one' for name in LINUX},
         **{name: 'an older text' for name in TEXTS}}


class Preparation(Command):
    """Copies a complete Linux bundle, and of Windows a complete one or a program and its libraries."""

    DRIVER = 'prepare_driver'
    REGISTERED = {}

    def __init__(self, name, binaries, sources, windows=WINDOWS, older=None, **how):
        super().__init__(name, binaries, {**self.REGISTERED, **(older or {})}, **how)
        self.windows, self.sources = windows, sources / name.replace(' ', '-')
        write_all(self.sources / 'windows', windows)
        write_all(self.sources / 'linux', LINUX)
        self.driver = binaries / 'tests/faults' / self.DRIVER

    def command(self, drive):
        return [self.driver, 'prepare', drive.root, self.sources / 'windows/Tessarine.exe',
                self.sources / 'linux/Tessarine']

    def faults(self, calls):
        new_directories, last_sync = self.new_directories(calls), self.last_sync_of_text(calls)
        for place, call in enumerate(calls):
            messages = self.messages(call, self.target_of(calls[place:]) if place < last_sync else '.')
            if call in new_directories:
                messages = (f'Nao foi possivel criar a pasta: DRIVE/{new_directories[call]}',)
            # A temporary name that can't be had gives way to another one.
            ignored = (call.verb in ('chmod', 'fdatasync') or call.verb == 'link' and is_temporary(call.paths)
                       or call.verb == 'open' and call.paths != '.' and call not in new_directories
                       and not self.is_synced(calls[place:]))
            for error in ERRORS[call.verb]:
                yield Fault(call, error, messages, ignored or error == 'EINTR')
            if call.verb == 'write':
                yield Fault(call, HALF, messages, True)
            yield Fault(call, KILL, (), False)

    @staticmethod
    def new_directories(calls):
        """Of each call by which a directory is made, which one: its parent is opened before it; on FAT it is
        synced, renamed, opened and synced again."""
        made = {}
        for place, call in enumerate(calls):
            if call.verb == 'mkdir':
                steps = calls[place - 1:place + (8 if is_temporary(call.paths) else 1)]
                made.update(dict.fromkeys(steps, name_in_the_end(call.paths)))
        return made

    @staticmethod
    def is_synced(calls):
        """Whether the first one opens a file that the next one syncs: on FAT, under its final name."""
        return len(calls) > 1 and (calls[1].verb, calls[1].paths) == ('fsync', calls[0].paths)

    @staticmethod
    def last_sync_of_text(calls):
        """The place from which on everything is synced, and nothing more written."""
        return max((place for place, call in enumerate(calls) if call.verb == 'fsync' and call.paths == TEXTS[-1]),
                   default=len(calls))

    @staticmethod
    def target_of(calls):
        """The final name of the file that the first of the calls is about."""
        if calls[0].verb == 'syncfs' or calls[0].paths == '.' and calls[0].verb in ('open', 'fsync'):
            return calls[0].paths
        for call in calls:
            name = call.paths.split()[-1]
            if call.verb in ('link', 'rename', 'chmod', 'fsync') and not is_temporary(name) and '(' not in name:
                return name
        return calls[0].paths

    def messages(self, call, target):
        path = f'DRIVE/{target}'
        made, written, finished = (f'Nao foi possivel {verb} o arquivo: ' for verb in ('criar', 'gravar', 'finalizar'))
        if target == '.':
            return (f'{finished}DRIVE',)
        if target in TEXTS:
            return (f'{made if call.verb == "create" else "Nao foi possivel salvar o arquivo: "}{path}',)
        if target in self.programs():
            return (f'Nao foi possivel copiar o executavel para: {path}',)
        if target.endswith('.dll') and self.windows is WINDOWS:
            return (f'Nao foi possivel copiar a biblioteca: {pathlib.Path(target).name}',)
        if call.verb == 'create':
            return (made + path,)
        if call.verb in ('start', 'wait') and call.amount != 'all':
            return (written + path,)
        return (written + path, finished + path) if call.verb == 'write' else (finished + path,)

    def programs(self):
        """Those that are copied by themselves."""
        return ['Tessarine/windows/Tessarine.exe'] if self.windows is WINDOWS else []

    def broken_on_drive(self, fault, outcome, now):
        for name, entry in now.items():
            if name in self.before or name in self.after:
                if entry.content not in [known[name].content for known in (self.before, self.after) if name in known]:
                    yield f'{name} is neither the old nor the new file'
            elif not (fault.cuts_off and is_temporary(name) and name_in_the_end(name) in self.after):
                yield f'{name} is left'
        for name in self.before.keys() - now.keys():
            # The one way in which a file is lost: its last sync has failed on FAT.
            if not (self.as_on_fat and fault.call.verb in ('fsync', 'open') and name == fault.call.paths):
                yield f'{name} is lost'
        if outcome.status == 0 and (difference := self.difference(fault, now, self.expected(now))):
            yield f'success, but the drive differs: {difference}'

    def expected(self, now):
        """The drive after a success."""
        return self.after

    def broken_afterwards(self, drive, fault):
        again = self.run(drive)
        now = tree(drive.root)
        if fault.cuts_off:
            now = {name: entry for name, entry in now.items() if name in self.after or not is_temporary(name)}
        if again.status != 0:
            yield f'a second preparation fails: {again}'
        elif difference := self.difference(fault, now, self.after):
            yield f'a second preparation gives another drive: {difference}'


class Assembly(Preparation):
    """Assembles the Linux bundle from this machine: a program, one plugin, and what both need."""

    MESSAGES_OF_DRIVE = (*Command.MESSAGES_OF_DRIVE, 'Nao foi possivel identificar dependencias Linux para: ')

    def __init__(self, name, binaries, sources, **how):
        super().__init__(name, binaries, sources, **how)
        shutil.rmtree(self.sources / 'linux')
        self.plugins = self.sources / 'plugins'
        for directory in (self.sources / 'linux', self.plugins / 'tls'):
            directory.mkdir(parents=True)
        shutil.copy('/bin/true', self.sources / 'linux/Tessarine')
        shutil.copy('/lib/x86_64-linux-gnu/libcom_err.so.2', self.plugins / 'tls/libplugin.so')
        # Beside a program, this file says where its Qt is.
        write_all(self.sources, {'qt.conf': f'[Paths]\nPlugins = "{self.plugins}"\n'})
        self.driver = shutil.copy(self.driver, self.sources)

    def learn(self, drive):
        faults = super().learn(drive)
        assert 'Tessarine/linux/plugins/tls/libplugin.so' in self.after, 'the plugins are taken from elsewhere'
        return faults

    def programs(self):
        return [*super().programs(), 'Tessarine/linux/Tessarine']


class InWindow:
    """A preparation of which the window reports, and which it registers."""

    DRIVER = 'window_driver'
    REGISTERED = {STATE: '{"app": "Tessarine"}'}

    def surroundings(self):
        """With the window's own plugins, wherever those are that it copies."""
        return ['env', f'QT_PLUGIN_PATH={QT_PLUGINS}']

    def swept(self, calls):
        return calls[:self.end_of_preparation(calls)]

    @staticmethod
    def end_of_preparation(calls):
        return 1 + max(place for place, call in enumerate(calls) if call.paths == '.')

    def expected(self, now):
        return {**self.after, STATE: now.get(STATE)}


class PreparationInWindow(InWindow, Preparation):
    """With the bundles of a Preparation."""


class AssemblyInWindow(InWindow, Assembly):
    """With the bundles of an Assembly."""


class Registration(PreparationInWindow):
    """What the window writes behind a preparation, whose success no failure of that takes away."""

    MESSAGES_OF_DRIVE = ()

    def swept(self, calls):
        return calls[self.end_of_preparation(calls):]

    def faults(self, calls):
        for fault in super().faults(calls):
            yield dataclasses.replace(fault, messages=(), may_succeed=True)

    def faults_of_drive(self, calls, faults):
        for fault in super().faults_of_drive(calls, faults):
            yield dataclasses.replace(fault, may_succeed=True)

    def broken_on_drive(self, fault, outcome, now):
        yield from super().broken_on_drive(fault, outcome, now)
        registered = STATE in now and now[STATE].content == self.after[STATE].content
        if 'Estado de atualização registrado' in outcome.message and not registered:
            yield 'the log calls the state registered, and it is not'
