"""What can happen to one call, and how strace(1), or a library in its place, makes it happen."""

import dataclasses
import errno

from small_drive import FULL, OF_DRIVE  # it puts drive_calls on the path
from drive_calls import Call

KILL, HALF = 'kill', 'half'
DRIVE_ERRORS = ('EIO', 'EROFS', 'ENODEV')
ENTRY_ERRORS = ('ENOSPC', 'EACCES', *DRIVE_ERRORS)
SYNC_ERRORS = ('EIO', 'ENOSPC', 'EROFS', 'EINTR')
ERRORS = {
    'create': (*ENTRY_ERRORS, 'EINTR'), 'open': ('EACCES', 'EIO', 'ENODEV', 'EINTR'),
    'write': ('ENOSPC', 'EIO', 'ENODEV', 'EINTR'), 'ftruncate': ('ENOSPC', 'EIO'),
    'start': ('EIO', 'ENOSPC'), 'wait': ('EIO', 'ENOSPC'), 'fsync': SYNC_ERRORS,
    'fdatasync': SYNC_ERRORS, 'syncfs': SYNC_ERRORS, 'rename': ENTRY_ERRORS, 'link': ENTRY_ERRORS,
    'mkdir': ENTRY_ERRORS, 'remove': ('EACCES', *DRIVE_ERRORS), 'chmod': ENTRY_ERRORS}


@dataclasses.dataclass(frozen=True)
class Fault:
    """What happens to one call. Success may follow, or a failure with one of the messages."""

    call: Call
    kind: str  # an error, KILL, HALF, or one of OF_DRIVE
    messages: tuple
    may_succeed: bool
    in_unzip: bool = False
    write: int = 0  # which write to the drive this is

    def __str__(self):
        return f'{self.kind} at {self.call} ({self.call.name} {self.call.occurrence})'

    @property
    def ends_program(self):
        return self.kind == KILL and not self.in_unzip

    @property
    def is_of_drive(self):
        return self.kind in OF_DRIVE

    @property
    def cuts_off(self):
        """Nothing could be tidied up."""
        return self.ends_program or self.is_of_drive and self.kind != FULL

    @property
    def changes_modes(self):
        """Permissions are best effort."""
        return self.call.verb == 'chmod' and self.kind != KILL and not self.is_of_drive

    def options(self, binaries):
        """For strace."""
        if self.call.verb == 'write':
            # strace can't tell the drive's writes from those that wake a thread, whose loss is another story.
            how = 'stop' if self.is_of_drive else getattr(errno, self.kind, self.kind)
            return ['-E', f'LD_PRELOAD={binaries}/tests/faults/libspoiled_write.so',
                    '-E', f'SPOILED_WRITE={self.write}', '-E', f'SPOILED_HOW={how}', '--trace=write,fstatfs']
        what = f'error={self.kind}'
        if self.kind == KILL or self.is_of_drive:
            what = 'signal=SIGKILL' if self.kind == KILL else 'signal=SIGSTOP'
        return [f'--trace={self.call.name},fstatfs', f'--inject={self.call.name}:{what}:when={self.call.occurrence}']
