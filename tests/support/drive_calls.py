"""The system calls by which a command changes a drive, in their order, as strace(1) sees them."""

import collections
import dataclasses
import os
import pathlib
import re
import subprocess

TRACED = ('openat,write,pwrite64,writev,pwritev,pwritev2,copy_file_range,sendfile,fallocate,sync_file_range,fsync,'
          'fdatasync,syncfs,rename,renameat,renameat2,link,linkat,symlink,symlinkat,close,unlink,unlinkat,rmdir,mkdir,'
          'mkdirat,chmod,fchmod,fchmodat,truncate,ftruncate,fstatfs')
CALL = re.compile(r'(?P<name>\w+)\((?P<arguments>.*)\) += (?P<result>-?\d+|\?)')
PATH = re.compile(r'"([^"]*)"|<([^>]*)>')
RANGE = re.compile(r', (\d+), (\d+), (\w\S+)$')
TEMPORARY = re.compile(r'\.[A-Za-z]{6}$')
VERBS = {'renameat': 'rename', 'renameat2': 'rename', 'linkat': 'link', 'mkdirat': 'mkdir',
         'unlink': 'remove', 'unlinkat': 'remove', 'rmdir': 'remove', 'fchmod': 'chmod', 'fchmodat': 'chmod'}

# What statfs(2) says of a FAT and of an exFAT drive: MSDOS_SUPER_MAGIC and EXFAT_SUPER_MAGIC, in the
# first field of its answer.
AS_ON_FAT = '--inject=fstatfs:poke_exit=@arg2=444d000000000000'
AS_ON_EXFAT = '--inject=fstatfs:poke_exit=@arg2=b0ba112000000000'


@dataclasses.dataclass(frozen=True)
class Call:
    """One call: its place among all calls of that name, what it does to which paths on the drive
    (empty: to none), and how many calls before it did the same."""

    name: str
    occurrence: int
    verb: str
    paths: str
    amount: str
    succeeded: bool
    repetition: int = 0

    @property
    def identity(self):
        """The same in each run, however many calls go elsewhere."""
        return self.name, self.verb, self.paths, self.repetition

    def __str__(self):
        amount = {'write': f'{self.amount} to', 'start': f'{self.amount} of',
                  'wait': f'for {self.amount} of'}.get(self.verb)
        return ' '.join(part for part in (self.verb, amount, self.paths) if part)


def calls_in(lines, drive):
    """The calls of one thread, from strace's lines."""
    seen = collections.Counter()
    for line in lines:
        if match := CALL.match(line):
            seen[match['name']] += 1
            call = _read(match, seen[match['name']], drive)
            yield dataclasses.replace(call, repetition=seen[call.identity])
            seen[call.identity] += 1


def calls_on(drive, command, *options, with_opening=False):
    """The successful calls of the command's main thread on the drive, one short line each.

    Files that are opened to be read, and closed, are left out unless with_opening asks for them.
    """
    trace = pathlib.Path(f'{drive}.trace')
    # Of the main thread alone: a call amid which another's is seen would be torn into two lines.
    subprocess.run(['strace', '-y', '-qq', '-o', trace, f'--trace={TRACED}', *options, '--', *command],
                   check=True, stdout=subprocess.DEVNULL)
    lines = trace.read_text(encoding='utf-8', errors='replace').splitlines()
    trace.unlink()
    return [str(call) for call in calls_in(lines, drive) if call.succeeded and call.paths and call.name != 'fstatfs'
            and (with_opening or call.verb not in ('open', 'close'))]


def name_on(drive, path):
    """The path below the drive's root, with what changes from run to run made alike; None elsewhere."""
    if not f'{path}/'.startswith(f'{drive}/'):
        return None
    name = re.sub(r'\d{14}', 'TIME', os.path.relpath(path, drive))
    name = re.sub(r'(^|/)#\d+$', r'\1(unnamed)', name)
    return TEMPORARY.sub('.XXXXXX', name)


def is_temporary(path):
    """Whether this is the name that a file has for a moment, between none and its own."""
    return TEMPORARY.search(path) is not None


def name_in_the_end(path):
    """What a file or directory of such a name is to be called; a directory's is hidden."""
    return re.sub(r'(^|/)\.', r'\1', TEMPORARY.sub('', path)) if is_temporary(path) else path


def _read(call, occurrence, drive):
    name, arguments, result = call['name'], call['arguments'], call['result']
    paths = [name_on(drive, quoted or opened) for quoted, opened in PATH.findall(arguments)]
    paths = ' '.join(path for path in dict.fromkeys(paths) if path)
    verb, amount = VERBS.get(name, name), ''
    if name == 'openat':
        is_made = 'O_CREAT' in arguments or 'O_TMPFILE' in arguments
        verb = 'create' if is_made else 'open'
    if name == 'write':
        amount = result
    if name == 'sync_file_range':
        begin, size, flags = RANGE.search(arguments).groups()
        verb = 'wait' if 'WAIT_AFTER' in flags else 'start'
        amount = 'all' if size == '0' else f'{begin}+{size}'
    return Call(name, occurrence, verb, paths, amount, result.isdigit())
