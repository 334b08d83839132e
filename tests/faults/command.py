"""A command on a drive of a certain state: its undisturbed run, its run with a fault, and what must
hold behind each of both commands."""

import dataclasses
import os
import pathlib
import signal
import subprocess
import time

from small_drive import (FAILING, LOST, OF_ANY_DRIVE, OF_DRIVE, REMOUNTED, contents, differences, differing_names,
                         entry_at, tree)
from faults import ERRORS, KILL, Fault
from drive_calls import AS_ON_FAT, TRACED, name_on

TIME_LIMIT = 120  # seconds; a run takes a fraction of one
TRIES = 9  # to meet a call: how many come before it may vary by a few; or to repeat an update
HANGS = 'hangs'
USERS_FILES = {'documento.txt': 'precious', 'tessarine.tsrn': 'secret', 'fotos/praia.jpg': 'picture',
               'Tessarine/anotacoes.txt': 'notes'}


@dataclasses.dataclass(frozen=True)
class Outcome:
    status: int | str
    message: str
    descriptors: str


def between_files(calls):
    """The calls behind which no file is open for writing."""
    is_writing = False
    for call in calls:
        if call.verb in ('create', 'close'):
            is_writing = call.verb == 'create'
        if not is_writing:
            yield call


class Command:
    """What the two commands have in common; what differs is in preparation.py and update.py."""

    # Further messages that a drive which fills, fails or goes may have.
    MESSAGES_OF_DRIVE = ('Espaco insuficiente na unidade USB.',)

    def __init__(self, name, binaries, files, on_ext4=False, as_on_fat=False, in_short=False):
        self.name, self.binaries, self.on_ext4, self.as_on_fat = name, binaries, on_ext4, as_on_fat
        self.in_short = in_short  # the short choice is all that is swept
        self.files = {**USERS_FILES, **files}
        self.asking = []  # strace's options for what the drive answers
        self.undisturbed, self.before, self.after, self.between_files = None, {}, {}, set()
        self.not_compared = []  # faults behind which the tree says nothing

    def learn(self, drive):
        """Runs undisturbed and returns the faults that its calls can meet."""
        self.asking = self.options_for_fat(drive) if self.as_on_fat else []
        drive.lay_out(self.files)
        self.before = tree(drive.root)
        self.undisturbed = self.run(drive, [f'--trace={TRACED}'])
        assert self.undisturbed.status == 0, f'{self.name}: {self.undisturbed}'
        self.after = tree(drive.root)
        calls = [call for call in drive.calls() if call.paths and call.succeeded]
        self.between_files = set(between_files(calls))
        unknown = {call.name for call in calls if call.verb not in (*ERRORS, 'close', 'fstatfs')}
        assert not unknown, f'{self.name}: nothing happens to {unknown}'
        calls = [call for call in calls if call.verb in ERRORS]
        writes = [call for call in calls if call.verb == 'write']
        swept = self.swept(calls)
        faults = list(self.faults(swept))
        faults += self.faults_of_drive(swept, list(faults))
        return [dataclasses.replace(fault, write=writes.index(fault.call) + 1) if fault.call in writes else fault
                for fault in faults]

    def swept(self, calls):
        """Those to which something happens."""
        return calls

    def faults_of_drive(self, calls, faults):
        """After each call; who notices is for the kernel to say, with any later message."""
        if self.as_on_fat or faults[0].in_unzip:
            return
        last_sync = max(place for place, call in enumerate(calls) if call.verb == 'syncfs')
        for place, call in enumerate(calls):
            later = {message for fault in faults if fault.call in calls[place:] for message in fault.messages}
            for kind in OF_DRIVE if self.on_ext4 else OF_ANY_DRIVE:
                # A file system with a file that is being written stays writable.
                if kind != REMOUNTED or call in self.between_files:
                    yield Fault(call, kind, (*sorted(later), *self.MESSAGES_OF_DRIVE),
                                kind != LOST or place >= last_sync)

    def options_for_fat(self, drive):
        """Makes the drive, and nothing before it, look like FAT."""
        drive.lay_out(self.files)
        self.run(drive, ['--trace=fstatfs'])
        first = next(call for call in drive.calls() if call.paths)
        return [f'{AS_ON_FAT}:when={first.occurrence}+']

    def surroundings(self):
        """What starts a program in the namespaces that it needs."""
        return []

    def run(self, drive, options=()):
        return self.outcome(drive, [*self.surroundings(), *self.strace(drive, options), *self.command(drive)])

    def strace(self, drive, options):
        if not options and not self.asking:
            return []
        return ['strace', '-qq', '-y', '-o', drive.trace, '-E', f'SPOILED_DRIVE={drive.root}',
                '-E', f'SPOILED_NOTE={drive.spoiled}', *(options or ['--trace=fstatfs']), *self.asking]

    @staticmethod
    def outcome(drive, command, environment=None):
        try:
            done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=TIME_LIMIT,
                                  env={**os.environ, **(environment or {})}, check=False)
        except subprocess.TimeoutExpired:
            return Outcome(HANGS, '', '')
        return Command.read(drive, done.returncode, done.stdout)

    @staticmethod
    def read(drive, status, output):
        message, _, descriptors = output.decode().strip().rpartition('\n')
        return Outcome(status, message.replace(str(drive.root), 'DRIVE'), descriptors)

    def attempt(self, drive, fault):
        """What the fault breaks; nothing when the call that is meant could not be met."""
        for _ in range(TRIES):
            broken = self.run_with(drive, fault)
            if broken is not None:
                return broken
            fault = dataclasses.replace(fault, call=self.place_of(fault.call, drive))
        return None

    def place_of(self, call, drive):
        """Where the call stands in another run without the fault, which may have gone another way."""
        drive.lay_out(self.files)
        self.run(drive, [f'--trace={call.name},fstatfs'])
        return next((other for other in drive.calls() if other.identity == call.identity), call)

    def run_with(self, drive, fault):
        """What the fault breaks; nothing when another call was met."""
        drive.lay_out(self.files)
        before = {name: entry_at(drive.root / name) for name in [*USERS_FILES, 'fotos']}
        options = fault.options(self.binaries)
        outcome = self.run_and_spoil(drive, options, fault.kind) if fault.is_of_drive else self.run(drive, options)
        if not self.has_met(fault, drive):
            return None
        broken = self.broken_by_outcome(fault, outcome)
        # What ext4 has in its journal and can't write to its place, it loses without a word.
        if fault.kind == LOST or fault.kind == FAILING and outcome.status == 0:
            self.not_compared.append(fault)
            return broken
        now = tree(drive.root)
        broken += [f'{name} of the user has changed' for name, entry in before.items()
                   if now.get(name) != entry or now[name].modified != entry.modified]
        broken += self.broken_on_drive(fault, outcome, now)
        if not broken:
            broken += self.broken_afterwards(drive, fault)
        return broken

    def run_and_spoil(self, drive, options, kind):
        """Stops the program behind the call, lets something happen to the drive, and goes on."""
        subprocess.run(['sync', '--file-system', drive.root], check=True)
        command = [*self.surroundings(), *self.strace(drive, options), *self.command(drive)]
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL) as strace:
            limit = time.monotonic() + TIME_LIMIT
            while strace.poll() is None and time.monotonic() < limit:
                if drive.trace.exists() and '--- stopped by SIGSTOP' in drive.trace.read_text(errors='replace'):
                    drive.spoil(kind)
                    program = pathlib.Path(f'/proc/{strace.pid}/task/{strace.pid}/children').read_text(encoding='ascii')
                    os.kill(int(program), signal.SIGCONT)
                    break
                time.sleep(0.002)
            output, _ = strace.communicate(timeout=TIME_LIMIT)
        drive.mend(kind)
        return self.read(drive, strace.returncode, output)

    @staticmethod
    def has_met(fault, drive):
        if fault.call.verb == 'write':
            return (drive.spoiled.is_symlink()
                    and name_on(drive.root, os.readlink(drive.spoiled).removesuffix(' (deleted)')) == fault.call.paths)
        return any(call.identity == fault.call.identity and call.occurrence == fault.call.occurrence
                   for call in drive.calls())

    def broken_by_outcome(self, fault, outcome):
        if fault.ends_program:
            return [] if outcome.status == -signal.SIGKILL else [f'not killed: {outcome}']
        if outcome.status not in (0, 1):
            return [f'ended with {outcome}']
        broken = []
        if outcome.descriptors != self.undisturbed.descriptors:
            broken.append(f'{outcome.descriptors} descriptors open, not {self.undisturbed.descriptors}')
        if outcome.status == 0 and not fault.may_succeed:
            broken.append('success')
        if outcome.status == 1 and not outcome.message.startswith(fault.messages or ('(none)',)):
            broken.append(f'message {outcome.message!r}, not {fault.messages}')
        return broken

    @staticmethod
    def difference(fault, entries, expected):
        """Empty where a fault that spoils one entry's permissions leaves others."""
        if fault.changes_modes and len(differing_names(entries, expected)) == 1:
            entries, expected = contents(entries), contents(expected)
        return differences(entries, expected)
