"""What scenarios do before and after their guests."""

import contextlib
import pathlib
import subprocess
import sys
import tempfile

import machine
from bundles import HOST

SUPPORT = pathlib.Path(__file__).resolve().parents[1] / 'support'
sys.path.insert(0, str(SUPPORT))

# Clusters as sticks have them, and a root that is the user's. With blocks of that size a small ext4 has one group: of
# several it takes, for a file, the one whose map of blocks happens to have been read.
MAKE = {'vfat': ['mkfs.vfat', '-F', '32', '-s', '8', '-n'], 'exfat': ['mkfs.exfat', '-c', '4096', '-L'],
        'ext4': ['mkfs.ext4', '-q', '-b', '4096', '-E', 'root_owner=4321:4321', '-L']}


@contextlib.contextmanager
def shared_folder():
    """A folder that the guest's user may write to, with the vendor's certificates."""
    with tempfile.TemporaryDirectory() as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o777)
        subprocess.run([SUPPORT / 'make-test-ca', folder / 'certificates', HOST], check=True)
        subprocess.run(['chmod', '-R', 'a+rX', folder / 'certificates'], check=True)
        yield folder


def stick(folder, label, file_system, mebibytes, **unit):
    """A stick of that name and label, whose image lies in the folder, with deleted files on it.

    What it isn't told to write is thus not empty, and can't pass for what should have been written.
    """
    image = folder / label
    with open(image, 'wb') as file:
        for _ in range(mebibytes):
            file.write(b'apagado\n' * (1 << 17))
    subprocess.run([*MAKE[file_system], label, image], check=True, stdout=subprocess.DEVNULL)
    return machine.Drive(label, [machine.Unit(image, **unit)])


def run(scenario, part, folder, drives, *arguments, limit=3600, processors=2):
    """Runs that part of the scenario in a guest, and ends when it fails."""
    command = ['/usr/bin/python3', '-B', scenario, part, folder, *arguments]
    if machine.run(command, drives, [folder], limit=limit, processors=processors):
        sys.exit(f'{pathlib.Path(scenario).name}: {part} failed')


def start(main, *parts):
    """Begins the scenario, or that part of it whose name is the command line's first word."""
    part = {part.__name__: part for part in parts}.get(sys.argv[1] if sys.argv[1:] else None)
    if part:
        part(pathlib.Path(sys.argv[2]), *sys.argv[3:])
    else:
        main()
