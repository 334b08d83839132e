#!/usr/bin/python3
"""The launcher for Windows, run by a Windows command interpreter (Wine's) from a folder whose path
holds blanks and an accent: it starts the program in the program's own directory.
"""

import os
import pathlib
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
LIMIT_S = 300


def windows_path(path):
    return 'Z:' + str(path).replace('/', '\\')


def started_in(drive, scratch):
    """What the program has noted, once the launcher has ended and left it to itself."""
    environment = {**os.environ, 'WINEPREFIX': str(scratch / 'wine'), 'WINEDEBUG': '-all', 'LC_ALL': 'C.UTF-8',
                   'WINEDLLOVERRIDES': 'mscoree,mshtml='}
    note = drive / 'Tessarine/windows/started-in.txt'
    try:
        # By that command the display ends as well, not the shell alone that has opened it.
        subprocess.run(['timeout', str(LIMIT_S), ROOT / 'tests/support/with-display', 'wine', 'cmd', '/c',
                        windows_path(drive / 'Tessarine-Windows.bat')], env=environment, check=True)
        deadline = time.monotonic() + LIMIT_S
        while not (note.exists() and note.stat().st_size) and time.monotonic() < deadline:
            time.sleep(0.1)
    finally:
        subprocess.run(['wineserver', '-k'], env=environment, check=False)
    return note.read_text(encoding='utf-8') if note.exists() else None


def main():
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        drive = scratch / 'Cofre do João' / 'unidade USB'
        drive.mkdir(parents=True)
        program = scratch / 'Tessarine.exe'
        subprocess.run(['x86_64-w64-mingw32-gcc', '-O2', '-Wall', '-Wextra', '-Werror', '-o', program,
                        pathlib.Path(__file__).with_name('windows_program.c')], check=True)
        subprocess.run([ROOT / 'build/release/tests/faults/prepare_driver', 'prepare', drive, program, ''],
                       check=True, stdout=subprocess.DEVNULL)
        expected = windows_path(drive / 'Tessarine/windows')
        found = started_in(drive, scratch)
    print(f'Tessarine-Windows.bat starts Tessarine.exe in {found}')
    sys.exit(found != expected)


if __name__ == '__main__':
    main()
