"""What scenarios do inside of a guest."""

import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUPPORT = ROOT / 'tests' / 'support'
sys.path.insert(0, str(SUPPORT))

# udisks' own defaults, of udisks2_linux_mount_options.conf, and what it adds to all of them.
MOUNT_OPTIONS = {
    'vfat': 'shortname=mixed,utf8=1,showexec,flush,errors=remount-ro',
    'exfat': 'iocharset=utf8,errors=remount-ro',
    'ext4': 'errors=remount-ro',
}


def device(label):
    """The block device of the volume with that label."""
    return pathlib.Path('/dev/disk/by-label', label).resolve()


def mount(label, file_system):
    """Mounts the volume as udisks does, and returns where."""
    place = pathlib.Path('/media/usuario', label)
    place.mkdir(parents=True)
    subprocess.run(['mount', '-t', file_system, '-o', f'nosuid,nodev,{MOUNT_OPTIONS[file_system]}',
                    device(label), place], check=True)
    return place


def unmount(place):
    subprocess.run(['umount', place], check=True)
    place.rmdir()


def on_desktop(scenario, *arguments):
    """Runs the scenario's function of that name, in a process of its own, where windows can be driven."""
    subprocess.run([SUPPORT / 'with-desktop', SUPPORT / 'with-session',
                    '/usr/bin/python3', '-B', scenario, *arguments], check=True)


def be_vendor(host, certificates):
    """Makes this machine the vendor's host, with a certificate that is trusted."""
    with open('/etc/hosts', 'a', encoding='utf-8') as hosts:
        hosts.write(f'127.0.0.1 {host}\n')
    subprocess.run(['mount', '--bind', certificates / 'trusted', '/etc/ssl/certs'], check=True)
    os.environ['VENDOR_HOST'] = host
    os.environ['VENDOR_CERTIFICATES'] = str(certificates)
