"""The system calls by which a command changes a drive, in their order, as strace(1) sees them."""

import os
import pathlib
import re
import subprocess

TRACED = ('openat,write,pwrite64,sync_file_range,fsync,fdatasync,syncfs,rename,renameat,renameat2,link,'
          'linkat,close,unlink,unlinkat,rmdir,mkdir,mkdirat,chmod,fchmod,ftruncate,fstatfs')
CALL = re.compile(r'(?P<pid>\d+) +(?P<name>\w+)\((?P<arguments>.*)\) += (?P<result>-?\d+)')
PATH = re.compile(r'"([^"]*)"|<([^>]*)>')
RANGE = re.compile(r', (\d+), (\d+), (\w\S+)$')
VERBS = {'renameat': 'rename', 'renameat2': 'rename', 'linkat': 'link', 'mkdirat': 'mkdir',
         'unlink': 'remove', 'unlinkat': 'remove', 'rmdir': 'remove', 'fchmod': 'chmod'}

# What statfs(2) says of a FAT and of an exFAT drive: MSDOS_SUPER_MAGIC and EXFAT_SUPER_MAGIC, in the
# first field of its answer.
AS_ON_FAT = '--inject=fstatfs:poke_exit=@arg2=444d000000000000'
AS_ON_EXFAT = '--inject=fstatfs:poke_exit=@arg2=b0ba112000000000'


def calls_on(drive, command, *options, with_opening=False):
    """The successful calls of the command's own process on the drive, one short line each.

    Files that are opened to be read, and closed, are left out unless with_opening asks for them.
    """
    trace = pathlib.Path(f'{drive}.trace')
    subprocess.run(['strace', '-f', '-y', '-qq', '--seccomp-bpf', '-o', trace, f'--trace={TRACED}',
                    *options, '--', *command], check=True, stdout=subprocess.DEVNULL)
    lines = trace.read_text(encoding='utf-8', errors='replace').splitlines()
    trace.unlink()
    own = lines[0].split()[0]
    calls = [CALL.match(line) for line in lines if line.startswith(f'{own} ')]
    short = (_short(call, drive) for call in calls if call and int(call['result']) >= 0)
    return [line for line in short
            if line and (with_opening or not line.startswith(('open ', 'close ')))]


def _short(call, drive):
    name, arguments = call['name'], call['arguments']
    paths = [_below(drive, quoted or opened) for quoted, opened in PATH.findall(arguments)]
    paths = [path for path in dict.fromkeys(paths) if path]
    if not paths or name == 'fstatfs':
        return None
    if name == 'openat':
        is_made = 'O_CREAT' in arguments or 'O_TMPFILE' in arguments
        return f'{"create" if is_made else "open"} {paths[0]}'
    if name == 'write':
        return f'write {call["result"]} to {paths[0]}'
    if name == 'sync_file_range':
        begin, size, flags = RANGE.search(arguments).groups()
        what = 'wait for' if 'WAIT_AFTER' in flags else 'start'
        return f'{what} {"all" if size == "0" else f"{begin}+{size}"} of {paths[0]}'
    return f'{VERBS.get(name, name)} {" ".join(paths)}'


def _below(drive, path):
    """The path below the drive's root, with what changes from run to run made alike."""
    if not f'{path}/'.startswith(f'{drive}/'):
        return None
    name = re.sub(r'\d{14}', 'TIME', os.path.relpath(path, drive))
    name = re.sub(r'(^|/)#\d+$', r'\1(unnamed)', name)
    return re.sub(r'\.[A-Za-z]{6}$', '.XXXXXX', name)
