"""What the vendor delivers in these scenarios, and what a drive holds."""

import hashlib
import os
import pathlib
import random
import re

HOST = 'velmora.example'
# What a cut or a pull may leave, as the README names it.
LEFTOVER = re.compile(r'Tessarine/(\.update-\d+|(windows|linux)\.backup-\d+|(WINDOW|LINUX)~\d\.BAC)/|.*\.[A-Za-z]{6}(/|$)')
NOTES = 'Novidades.'
STATE = 'Tessarine/update-state.json'
FILES = {
    'windows': ('Tessarine.exe', 'Qt6Core.dll', 'platforms/qwindows.dll'),
    'linux': ('Tessarine', 'Tessarine-Linux.sh', 'qt.conf', 'lib/libssl.so.3',
              'plugins/tls/libqopensslbackend.so'),
}


def make(directory, kind, version, library_size=0):
    """A bundle of small files of its version's own; no two of them have the same size.

    A library of Windows may be as large as it really is.
    """
    for name in FILES[kind]:
        file = directory / name
        file.parent.mkdir(parents=True, exist_ok=True)
        chance = random.Random(f'{name} {version}')
        size = chance.randrange(300, 9000)
        if name == 'Qt6Core.dll':
            size += library_size
        file.write_bytes(chance.randbytes(size))
    return directory


def install(directory, version, library_size=0):
    """Puts the program there, with the bundles of that version beside it."""
    import guest
    from manager import install as install_program
    program = install_program(guest.PROGRAM, directory)
    provide(program, version, library_size)
    return program


def provide(program, version, library_size=0):
    """Replaces the bundles beside the program."""
    for kind in FILES:
        make(program.parent / 'bundles' / f'{kind}-x64', kind, version, library_size)


def publish(vendor, version, number, library_size=0):
    vendor.publish(*(make(pathlib.Path('/tmp/published', kind), kind, version, library_size) for kind in FILES),
                   number, NOTES)


def content_of(path):
    """What a file holds, as a hash, with its size; of one that can't be read its error."""
    try:
        with open(path, 'rb') as file:
            content = file.read()
    except OSError as error:
        return os.strerror(error.errno), -1
    return hashlib.sha256(content).hexdigest(), len(content)


def tree(directory):
    """What each file holds that is listed; and which directories can't be."""
    found = {}

    def unreadable(error):
        found[os.path.relpath(error.filename, directory) + '/'] = (os.strerror(error.errno), -1)

    for place, _, names in os.walk(directory, onerror=unreadable):
        for name in names:
            path = os.path.join(place, name)
            found[os.path.relpath(path, directory)] = content_of(path)
    return found
