#!/usr/bin/python3
"""The Linux launcher on hosts that aren't the one that prepared the drive: minimal roots of other Debian
releases, without Qt, with zenity for its error box. One drive was assembled on this machine, the
other got a complete bundle that leaves the C library to the host.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import time

import machine
import tables

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUPPORT = ROOT / 'tests' / 'support'
sys.path.insert(0, str(SUPPORT))

# The release before this one, this one, and the two after it.
RELEASES = {'bullseye': 'Debian 11', 'bookworm': 'Debian 12', 'trixie': 'Debian 13', 'forky': 'Debian 14, not released'}
HEADER = ('host', 'C library', 'assembled on Debian 12', 'complete, without the C library')
SAMPLES = ROOT / 'build/release/tests/sample-app'
LIMIT_S = 120
PLACE = '/media/usuario/PEN'

# In namespaces of its own, which end with this, their first process. Root, drive, display.
START = f'''
mkdir -p "$1{PLACE}" "$1/tmp/.X11-unix"
mount --rbind /dev "$1/dev"
mount -t proc proc "$1/proc"
mount --bind /tmp/.X11-unix "$1/tmp/.X11-unix"
mount --bind "$2" "$1{PLACE}"
chroot --userspec=4321:4321 "$1" env -i DISPLAY="$3" HOME=/tmp LC_ALL=C.UTF-8 \
    PATH=/usr/local/bin:/usr/bin:/bin {PLACE}/Tessarine-Linux.sh
exit 0
'''


def root_of(release):
    """A minimal root of that release, made by who asks first."""
    root = machine.CACHE / 'roots' / release
    if root.is_dir():
        return root
    root.parent.mkdir(parents=True, exist_ok=True)
    mirror = machine.lines_of('apt-get', 'indextargets', '--format', '$(REPO_URI)', 'Created-By: Packages',
                              'Label: Debian')[0]
    with tempfile.TemporaryDirectory(dir=root.parent) as scratch:
        # A mirror may be a snapshot, and a release that isn't out yet promises to be valid for days only.
        subprocess.run(['mmdebstrap', '--quiet', '--variant=minbase', '--include=zenity',
                        '--aptopt=Acquire::Check-Valid-Until "false"', release, f'{scratch}/root', mirror], check=True)
        os.rename(f'{scratch}/root', root)
    root.chmod(0o755)
    return root


def c_library_of(root):
    return re.search(r'^Version: ([\d.]+)', subprocess.run(
        ['dpkg-query', f'--admindir={root}/var/lib/dpkg', '-s', 'libc6'], check=True,
        stdout=subprocess.PIPE, text=True).stdout, re.MULTILINE)[1]


def of_c_library():
    """The names of the libraries that come with the C library."""
    listed = machine.lines_of('dpkg-query', '-L', 'libc6:amd64')
    return {pathlib.Path(path).name for path in listed if '.so' in path}


def prepare(drive, program):
    drive.mkdir()
    subprocess.run([ROOT / 'build/release/tests/faults/prepare_driver', 'prepare', drive, '', program],
                   check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, 'PATH': f'{os.environ["PATH"]}:/usr/sbin:/sbin'})


def make_drives(scratch):
    """The two drives, each prepared by the program."""
    from vendor import make_linux_bundle
    alone = scratch / 'alone'
    alone.mkdir()
    prepare(scratch / 'assembled', shutil.copy2(SAMPLES / '1.0.0/Tessarine', alone))
    bundle = make_linux_bundle(scratch / 'assembled/Tessarine/linux', SAMPLES / '1.0.0/Tessarine', scratch / 'bundle')
    for name in of_c_library():
        (bundle / 'lib' / name).unlink(missing_ok=True)
    prepare(scratch / 'complete', bundle / 'Tessarine')


def is_error_box_shown():
    """Whether zenity has a window on the screen; the sample has one, too."""
    found = subprocess.run(['xdotool', 'search', '--onlyvisible', '--class', 'zenity'],
                           check=False, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return bool(found.stdout)


def what_its_user_sees(root, drive):
    with tempfile.TemporaryFile('w+') as errors, subprocess.Popen(
            ['unshare', '--mount', '--pid', '--fork', '--kill-child', '--', 'bash', '-euc', START, 'start', root, drive,
             os.environ['DISPLAY']], stdout=subprocess.PIPE, stderr=errors) as launcher:
        os.set_blocking(launcher.stdout.fileno(), False)
        said, deadline = b'', time.monotonic() + LIMIT_S
        try:
            while launcher.poll() is None and time.monotonic() < deadline:
                said += launcher.stdout.read() or b''
                if said.startswith(b'ready'):
                    return 'starts'
                if is_error_box_shown():
                    break
                time.sleep(0.1)
            status = launcher.poll()
            box = 'the error box' if is_error_box_shown() else 'nothing on the screen'
        finally:
            launcher.kill()
        errors.seek(0)
        lines = [line for line in errors.read().replace(f'{PLACE}/', '').splitlines() if line]
    code = 'still running' if status is None else f'exit status {status}'
    return f'{box}, {code}; in a terminal: "{lines[0] if lines else ""}"'


def inside():
    """On a display of its own."""
    rows = []
    with tempfile.TemporaryDirectory() as scratch:
        scratch = pathlib.Path(scratch)
        scratch.chmod(0o755)
        make_drives(scratch)
        for release, name in RELEASES.items():
            root = root_of(release)
            seen = [what_its_user_sees(root, scratch / drive) for drive in ('assembled', 'complete')]
            rows.append((f'{name} ({release})', c_library_of(root), *seen))
            print(*rows[-1], sep=' | ', flush=True)
    tables.write('publishing.md', 'foreign hosts', HEADER, rows)
    # The first release is older than the one that the complete bundle was built on.
    complete, assembled = [row[-1] for row in rows[1:]], rows[1][-2]
    sys.exit({*complete, assembled} != {'starts'})


def main():
    if sys.argv[1:] != ['inside']:
        os.execv(SUPPORT / 'with-display', ['with-display', sys.executable, '-B', __file__, 'inside'])
    inside()


if __name__ == '__main__':
    main()
