"""The guests that the scenarios run in: one is started, with a drive of each kind."""

import json
import pathlib
import subprocess

import pytest

import machine
import recording
from machine import Drive, Unit

FAILING_SECTOR = 4096
OBSERVATION = r'''
port() { readlink -f /dev/disk/by-path/*-usb-0:"$1":*:"$2"; }
write() { printf recorded | dd of="$1" bs=512 seek="$2" conv=sync,fsync 2>/dev/null; echo $?; }
echo "{\"kernel\": \"$(uname -r)\","
echo "\"failing\": [$(write "$(port 2 0)" 4095), $(write "$(port 2 0)" 4096)],"
echo "\"recorded\": $(write /dev/disk/by-label/'MEU\x20PEN' 9000),"
for drive in "1 0" "2 0" "3 0" "4 0" "4 1" "5 0" "6 0"; do
    echo "\"${drive}\": $(lsblk -J -d -b -o TYPE,TRAN,RM,SIZE,LABEL,FSTYPE "$(port ${drive})"),"
done
echo "\"status\": $(echo of the guest >/root/file-of-the-guest; echo $?)}"
echo kept >"$0"
exit 7
'''


def image(path, *make):
    with open(path, 'wb') as file:
        file.truncate(16 << 20)
    if make:
        subprocess.run([*make, path], check=True, stdout=subprocess.DEVNULL)
    return path


class Observed:
    """What was seen in a guest, and what has come of it here."""

    def __init__(self, directory):
        self.log = directory / 'log'
        self.log.touch()
        self.kept = directory / 'shared' / 'kept'
        self.kept.parent.mkdir()
        drives = [
            Drive('recorded', [Unit(image(directory / 'vfat', 'mkfs.vfat', '-n', 'MEU PEN'), log=self.log)]),
            Drive('failing', [Unit(image(directory / 'failing'), failing=(FAILING_SECTOR,))]),
            Drive('fixed', [Unit(image(directory / 'ext4', 'mkfs.ext4', '-q', '-L', 'DISCO'))], removable=False),
            Drive('reader', [Unit(image(directory / 'exfat', 'mkfs.exfat', '-L', 'CARTÃO')), Unit()]),
            Drive('optical', [Unit(image(directory / 'disc'), optical=True)]),
            Drive('attached', [Unit(image(directory / 'uas'))], protocol='usb-uas'),
        ]
        with open(directory / 'output', 'w+b') as output:
            self.status = machine.run(['bash', '-c', OBSERVATION, self.kept], drives,
                                      shared=[self.kept.parent], output=output)
            output.seek(0)
            self.seen = json.load(output)

    def drive(self, port, unit=0):
        return self.seen[f'{port} {unit}']['blockdevices'][0]


@pytest.fixture(scope='module')
def observed(tmp_path_factory):
    return Observed(tmp_path_factory.mktemp('machine'))


def test_command_runs_on_debians_kernel_and_its_exit_status_is_known(observed):
    assert machine.unpacked_kernel().name == f'linux-image-{observed.seen["kernel"]}'
    assert observed.status == 7


def test_only_what_is_written_to_a_shared_folder_stays(observed):
    assert observed.seen['status'] == 0
    assert not pathlib.Path('/root/file-of-the-guest').exists()
    assert observed.kept.read_text() == 'kept\n'


@pytest.mark.parametrize('place, expected', [
    ((1,), {'type': 'disk', 'rm': True, 'label': 'MEU PEN', 'fstype': 'vfat', 'size': 16 << 20}),
    ((3,), {'type': 'disk', 'rm': False, 'label': 'DISCO', 'fstype': 'ext4'}),
    ((4, 0), {'type': 'disk', 'rm': True, 'label': 'CARTÃO', 'fstype': 'exfat'}),
    ((4, 1), {'type': 'disk', 'rm': True, 'label': None, 'size': 0}),
    ((5,), {'type': 'rom', 'rm': True}),
    ((6,), {'type': 'disk', 'rm': True, 'size': 16 << 20}),
], ids=['stick', 'fixed disk', 'card', 'empty slot', 'optical drive', 'uas'])
def test_drive_is_to_the_kernel_what_it_was_described_as(observed, place, expected):
    drive = observed.drive(*place)
    assert drive['tran'] == 'usb'
    assert {key: drive[key] for key in expected} == expected


def test_failing_sector_can_not_be_written_and_its_neighbour_can(observed):
    good, bad = observed.seen['failing']
    assert good == 0
    assert bad != 0


def test_writes_are_recorded_and_followed_by_their_flush(observed):
    assert observed.seen['recorded'] == 0
    steps = recording.read(observed.log)
    written = next(number for number, step in enumerate(steps) if step and step[0] <= 9000 < step[0] + len(step[1]) // 512)
    sector, content = steps[written]
    assert content[(9000 - sector) * 512:].startswith(b'recorded\0')
    assert None in steps[written:]
