#!/usr/bin/python3
"""Runs a command on a real kernel, with USB drives that are real to it.

QEMU boots Debian's own kernel, without KVM. The guest's root is this machine's, with all that is
built and installed here; what is written there is gone with the guest, but for folders that are
shared. udev finds the drives, which are image files, on an emulated USB controller. There is no
network and no disk of this machine. A guest's clock may run fast or slow: go by no time in it.
What is written to /dev/virtio-ports/hands there pulls a drive out, or plugs it in again.

    tests/machine/machine.py --drive stick.img -- lsblk
"""

import argparse
import dataclasses
import json
import os
import pathlib
import shlex
import shutil
import socket
import subprocess
import sys
import tempfile
import threading

CACHE = pathlib.Path(__file__).resolve().parents[2] / 'build' / 'machine'
FIRST_MODULES = ('virtio_pci', 'virtio_console', '9p', '9pnet_virtio', 'overlay')
NINE_P = 'trans=virtio,version=9p2000.L,msize=512000'

# Makes the root and goes over to it. {modules} are in the order of their loading.
FIRST_PROCESS = f'''#!/bin/busybox sh
mount() {{{{ /bin/busybox mount "$@"; }}}}
/bin/busybox mkdir /proc /sys /lower /upper
mount -t devtmpfs none /dev
for module in {{modules}}; do /bin/busybox insmod "/$module"; done
mount -t 9p -o ro,{NINE_P},cache=loose root /lower
mount -t tmpfs -o size=75% none /upper
/bin/busybox mkdir /upper/changes /upper/work
mount -t overlay -o lowerdir=/lower,upperdir=/upper/changes,workdir=/upper/work none /root
mount --move /dev /root/dev
mount -t proc none /root/proc
mount -t sysfs none /root/sys
for directory in run tmp media dev/shm; do
    /bin/busybox mkdir -p "/root/$directory"
    mount -t tmpfs -o mode=1777 none "/root/$directory"
done
/bin/busybox cp /second /root/run/second
exec /bin/busybox switch_root /root /bin/bash /run/second
'''

# What a system does before anybody works with it; then the command; then the end.
SECOND_PROCESS = '''
mkdir -p /lib/modules /dev/pts /run/udev /run/lock /run/dbus
ln -s /proc/self/fd /dev/fd
mount -t devpts none /dev/pts
mount --bind {kernel_modules} /lib/modules
ip link set lo up
{shares}
/lib/systemd/systemd-udevd --daemon
udevadm trigger --type=subsystems --action=add
udevadm trigger --type=devices --action=add
drives() {{ ls /dev/disk/by-path 2>/dev/null | grep -c -- '-usb-.*:[0-9]*$'; }}
until [ "$(drives)" -ge {units} ]; do sleep 0.1; done
udevadm settle
cd {directory}
( {command} ) </dev/null >/dev/virtio-ports/output 2>&1
echo $? >{status}
sync
busybox reboot -f
'''


class GuestError(Exception):
    """The guest ended before its command did, or took too long."""


@dataclasses.dataclass
class Unit:
    """A disk, a slot for a card, or an optical drive."""

    image: pathlib.Path | None = None  # without one nothing is in it
    optical: bool = False
    bytes_per_second: int = 0          # the most that it takes; 0 for no limit
    failing: tuple[int, ...] = ()      # its sectors, of 512 bytes, that can't be written
    log: pathlib.Path | None = None    # where each write and flush is recorded, in order

    def backend(self):
        """What QEMU is to do with the image, as a tree of options."""
        source = {'driver': 'file', 'filename': self.image}
        if self.failing:
            source = {'driver': 'blkdebug', 'image': source}
            for number, sector in enumerate(self.failing):
                source[f'inject-error.{number}'] = {
                    'event': 'none', 'iotype': 'write', 'sector': sector, 'errno': 5, 'once': 'off'}
        if self.log:
            source = {'driver': 'blklogwrites', 'file': source,
                      'log': {'driver': 'file', 'filename': self.log}}
        return {'driver': 'raw', 'file': source, 'read-only': 'on' if self.optical else 'off'}


@dataclasses.dataclass
class Drive:
    """What is plugged into a port, or built in. Several units make a card reader."""

    name: str
    units: list[Unit]
    removable: bool = True     # whether it calls its media so
    protocol: str = 'usb-bot'  # or usb-uas, or virtio-blk-pci for an internal disk of one unit

    def _blocks(self, number):
        return f'{self.name}-{number}'

    def content(self):
        """The arguments that say what its units read and write."""
        for number, unit in enumerate(self.units):
            name, options = self._blocks(number), unit.backend() if unit.image else None
            if unit.bytes_per_second:
                yield from ('-object', f'throttle-group,id={name}-limit,x-bps-write={unit.bytes_per_second}')
                options = {'driver': 'throttle', 'throttle-group': f'{name}-limit', 'file': options}
            if options:
                yield from ('-blockdev', ','.join([f'node-name={name}', *dotted(options)]))
            else:
                yield from ('-drive', f'if=none,id={name}')

    def devices(self):
        """What has to be added to the machine, in this order."""
        if self.protocol == 'virtio-blk-pci':
            yield {'driver': self.protocol, 'id': self.name, 'drive': self._blocks(0)}
            return
        yield {'driver': self.protocol, 'id': self.name}
        for number, unit in enumerate(self.units):
            kind = {'driver': 'scsi-cd'} if unit.optical else {'driver': 'scsi-hd', 'removable': self.removable}
            yield {**kind, 'drive': self._blocks(number), 'bus': f'{self.name}.0', 'scsi-id': 0, 'lun': number}


def dotted(options, prefix=''):
    """A tree of options as QEMU takes it."""
    for key, value in options.items():
        if isinstance(value, dict):
            yield from dotted(value, f'{prefix}{key}.')
        else:
            yield f'{prefix}{key}={str(value).replace(",", ",,")}'


class Hands(threading.Thread):
    """Unplugs a drive and plugs it in again when the guest writes "unplug NAME" or "plug NAME".

    QEMU is asked for it over its protocol, https://www.qemu.org/docs/master/interop/qmp-spec.html
    """

    def __init__(self, drives):
        super().__init__(daemon=True)
        self._drives = {drive.name: drive for drive in drives}
        ours, self._theirs = zip(*(socket.socketpair() for _ in range(2)))
        self._guest, self._qemu = (end.makefile('rw', encoding='utf-8') for end in ours)
        self.failure = None

    @property
    def descriptors(self):
        """QEMU's ends: what the guest writes to, and what QEMU is asked through."""
        return [end.fileno() for end in self._theirs]

    def let_go(self):
        """Once QEMU has its ends they are its alone, so that they end with it."""
        for end in self._theirs:
            end.close()

    def run(self):
        self._qemu.readline()
        self._ask('qmp_capabilities')
        try:
            for line in self._guest:
                verb, name = line.split()
                {'unplug': self._unplug, 'plug': self._plug}[verb](name)
        except GuestError as error:
            self.failure = error
            self._ask('quit')

    def _unplug(self, name):
        self._ask('device_del', id=name)

    def _plug(self, name):
        first, *others = self._drives[name].devices()
        self._ask('device_add', **first, attached=False)
        for device in others:
            self._ask('device_add', **device)
        self._ask('qom-set', path=f'/machine/peripheral/{name}', property='attached', value=True)

    def _ask(self, command, **arguments):
        self._qemu.write(json.dumps({'execute': command, 'arguments': arguments}) + '\n')
        self._qemu.flush()
        for line in self._qemu:
            answer = json.loads(line)
            if 'error' in answer:
                raise GuestError(f'{command} {arguments}: {answer["error"]["desc"]}')
            if 'return' in answer:
                return


def lines_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()


def unpacked_kernel():
    """The directory of Debian's kernel, unpacked and not installed; fetched by who asks first."""
    package = next(line.split()[1] for line in lines_of('apt-cache', 'depends', 'linux-image-amd64')
                   if 'Depends: linux-image-' in line)
    directory = CACHE / package
    if directory.is_dir():
        return directory
    CACHE.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory(dir=CACHE) as scratch:
        subprocess.run(['apt-get', '-q', 'download', package], cwd=scratch, check=True)
        archive = next(pathlib.Path(scratch).glob('*.deb'))
        unpacked = pathlib.Path(scratch, 'kernel')
        subprocess.run(['dpkg-deb', '-x', archive, unpacked], check=True)
        if not (unpacked / 'lib').exists():  # since Debian 13, where the root has such a link as well
            (unpacked / 'lib').symlink_to('usr/lib')
        subprocess.run(['depmod', '-b', unpacked, package.removeprefix('linux-image-')], check=True)
        try:
            unpacked.rename(directory)
        except OSError:
            if not directory.is_dir():  # somebody else was no faster
                raise
    return directory


def make_first_root(kernel, second_process, archive):
    """Writes the file system that the kernel starts in."""
    release = next((kernel / 'lib' / 'modules').iterdir()).name
    modules = [pathlib.Path(line.split()[1]) for name in FIRST_MODULES
               for line in lines_of('modprobe', '-d', kernel, '-S', release, '--show-depends', name)
               if line.startswith('insmod')]
    with tempfile.TemporaryDirectory() as scratch:
        root = pathlib.Path(scratch)
        (root / 'bin').mkdir()
        for file, directory in [('/bin/busybox', root / 'bin'), *((module, root) for module in modules)]:
            shutil.copy2(file, directory)
        names = ' '.join(dict.fromkeys(module.name for module in modules))
        (root / 'init').write_text(FIRST_PROCESS.format(modules=names))
        (root / 'init').chmod(0o755)
        (root / 'second').write_text(second_process)
        files = '\n'.join(str(path.relative_to(root)) for path in root.rglob('*'))
        with open(archive, 'wb') as output:
            subprocess.run(['busybox', 'cpio', '-o', '-H', 'newc'], cwd=root, check=True,
                           input=files.encode(), stdout=output, stderr=subprocess.DEVNULL)


def share_arguments(tag, folder, read_only=False):
    options = f'local,id={tag},path={folder},security_model=passthrough,multidevs=remap'
    return ['-fsdev', options + (',readonly=on' if read_only else ''),
            '-device', f'virtio-9p-pci,fsdev={tag},mount_tag={tag}']


def run(command, drives=(), shared=(), limit=600, output=None, processors=2):
    """Runs the command in a guest, which ends with it, and returns its exit status.

    It starts in the current directory, once udev knows the drives. Its output goes to the file, or
    to where this process writes. Raises GuestError, with what the guest's kernel said, when there
    is no exit status or `limit` seconds have passed.
    """
    kernel = unpacked_kernel()
    with tempfile.TemporaryDirectory() as scratch:
        own = pathlib.Path(scratch, 'shared')
        own.mkdir()
        status, console = own / 'status', own / 'console'
        folders = [pathlib.Path(folder).resolve() for folder in shared] + [own]
        mounts = [f'mkdir -p {folder}; mount -t 9p -o {NINE_P},cache=none share{number} {folder}'
                  for number, folder in enumerate(shlex.quote(str(folder)) for folder in folders)]
        make_first_root(kernel, SECOND_PROCESS.format(
            kernel_modules=shlex.quote(str(kernel / 'lib/modules')), shares='\n'.join(mounts),
            units=sum(len(drive.units) for drive in drives if drive.protocol.startswith('usb-')), status=status,
            directory=shlex.quote(os.getcwd()), command=shlex.join(map(str, command))),
            own / 'root.cpio')
        arguments = [
            'setpriv', '--pdeathsig', 'KILL', 'qemu-system-x86_64',
            '-accel', 'tcg,thread=multi', '-cpu', 'Nehalem', '-smp', str(processors), '-m', '2048',
            '-M', 'pc,usb=off', '-bios', 'qboot.rom', '-nodefaults', '-no-user-config',
            '-display', 'none', '-no-reboot',
            '-kernel', next((kernel / 'boot').glob('vmlinuz-*')), '-initrd', own / 'root.cpio',
            # A busy machine's guest would miss the interrupts by which it tries its timer.
            '-append', 'console=ttyS0 quiet panic=-1 no_timer_check', '-serial', f'file:{console}',
            '-device', 'virtio-rng-pci', '-device', 'virtio-serial-pci', '-device', 'qemu-xhci,p2=15,p3=15',
            '-chardev', 'stdio,id=output,signal=off', '-device', 'virtserialport,chardev=output,name=output',
            *share_arguments('root', '/', read_only=True)]
        for number, folder in enumerate(folders):
            arguments += share_arguments(f'share{number}', folder)
        for drive in drives:
            arguments += drive.content()
            for device in drive.devices():
                arguments += ['-device', json.dumps(device)]
        hands = Hands(drives)
        asked, asking = hands.descriptors
        arguments += ['-chardev', f'socket,id=hands,fd={asked}', '-device', 'virtserialport,chardev=hands,name=hands',
                      '-chardev', f'socket,id=control,fd={asking}', '-mon', 'chardev=control,mode=control']
        # The guest's output is taken for as long as QEMU's input is open.
        with subprocess.Popen(arguments, stdin=subprocess.PIPE, stdout=output, pass_fds=hands.descriptors) as emulator:
            hands.let_go()
            hands.start()
            try:
                emulator.wait(limit)
            except subprocess.TimeoutExpired:
                raise GuestError(f'No end after {limit} s:\n{console.read_text(errors="replace")}') from None
            finally:
                emulator.kill()
        if hands.failure:
            raise hands.failure
        if not status.exists():
            raise GuestError(console.read_text(errors='replace') if console.exists() else 'QEMU did not start')
        return int(status.read_text())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--drive', dest='images', action='append', default=[], metavar='IMAGE',
                        type=pathlib.Path, help='plugs in a stick with that content')
    parser.add_argument('--share', dest='shared', action='append', default=[], metavar='FOLDER',
                        help='what the command writes there stays')
    parser.add_argument('command', nargs='+')
    options = parser.parse_args()
    drives = [Drive(f'stick{number}', [Unit(image)]) for number, image in enumerate(options.images)]
    sys.exit(run(options.command, drives, options.shared))


if __name__ == '__main__':
    main()
