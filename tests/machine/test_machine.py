"""The guests that the scenarios run in, and the program in one: it is started with a drive of each kind."""

import json
import pathlib
import subprocess

import pytest

import bundles
import host
import machine
import recording
from machine import Drive, Unit
from six_devices import FAILING, PLACES, STICK

FAILING_SECTOR = 4096


def image(path, *make):
    with open(path, 'wb') as file:
        file.truncate(16 << 20)
    if make:
        subprocess.run([*make, path], check=True, stdout=subprocess.DEVNULL)
    return path


class Observed:
    """What was seen in a guest, and what has come of it here."""

    def __init__(self, directory, shared):
        self.log = directory / 'log'
        self.log.touch()
        drives = [
            Drive('recorded', [Unit(image(directory / 'vfat', 'mkfs.vfat', '-n', 'MEU PEN'), log=self.log)]),
            Drive('failing', [Unit(image(directory / 'failing', 'mkfs.vfat', '-n', FAILING), failing=(FAILING_SECTOR,))]),
            Drive('fixed', [Unit(image(directory / 'ext4', 'mkfs.ext4', '-q', '-L', 'DISCO'))], removable=False),
            Drive('reader', [Unit(image(directory / 'exfat', 'mkfs.exfat', '-L', 'CARTÃO')), Unit()]),
            Drive('optical', [Unit(image(directory / 'disc'), optical=True)]),
            Drive('attached', [Unit(image(directory / 'uas', 'mkfs.exfat', '-L', STICK))], protocol='usb-uas'),
        ]
        self.status = machine.run(
            ['/usr/bin/python3', '-B', pathlib.Path(__file__).with_name('six_devices.py'), 'inside', shared],
            drives, shared=[shared], limit=1500)
        self.seen = json.loads((shared / 'seen.json').read_text())
        self.devices = dict(zip(PLACES, self.seen['devices']))
        self.program = json.loads((shared / 'program.json').read_text())


@pytest.fixture(scope='module')
def observed(tmp_path_factory):
    with host.shared_folder() as shared:
        yield Observed(tmp_path_factory.mktemp('machine'), shared)


def bundles_of(version, directory):
    """What a drive holds below its bundle root that came from bundles of that version."""
    for kind in bundles.FILES:
        bundles.make(directory / 'Tessarine' / kind, kind, version)
    return bundles.tree(directory)


def test_command_runs_on_debians_kernel_and_its_exit_status_is_known(observed):
    assert machine.unpacked_kernel().name == f'linux-image-{observed.seen["kernel"]}'
    assert observed.status == 7


def test_only_what_is_written_to_a_shared_folder_stays(observed):
    assert observed.seen
    assert not pathlib.Path('/root/file-of-the-guest').exists()


@pytest.mark.parametrize('place, expected', [
    ((1, 0), {'type': 'disk', 'rm': True, 'label': 'MEU PEN', 'fstype': 'vfat', 'size': 16 << 20}),
    ((3, 0), {'type': 'disk', 'rm': False, 'label': 'DISCO', 'fstype': 'ext4'}),
    ((4, 0), {'type': 'disk', 'rm': True, 'label': 'CARTÃO', 'fstype': 'exfat'}),
    ((4, 1), {'type': 'disk', 'rm': True, 'label': None, 'size': 0}),
    ((5, 0), {'type': 'rom', 'rm': True}),
    ((6, 0), {'type': 'disk', 'rm': True, 'label': STICK, 'size': 16 << 20}),
], ids=['stick', 'fixed disk', 'card', 'empty slot', 'optical drive', 'uas'])
def test_drive_is_to_the_kernel_what_it_was_described_as(observed, place, expected):
    drive = observed.devices[place]
    assert drive['tran'] == 'usb'
    assert {key: drive[key] for key in expected} == expected


def test_failing_sector_can_not_be_written_and_its_neighbour_can(observed):
    assert observed.seen['failing'] == [True, False]


def test_writes_are_recorded_and_followed_by_their_flush(observed):
    assert observed.seen['recorded']
    steps = recording.read(observed.log)
    written = next(number for number, step in enumerate(steps) if step and step[0] <= 9000 < step[0] + len(step[1]) // 512)
    sector, content = steps[written]
    assert content[(9000 - sector) * 512:].startswith(b'recorded\0')
    assert None in steps[written:]


def test_list_holds_the_mounted_stick_and_every_other_usb_disk_that_lsblk_knows(observed):
    names = {place: observed.devices[place]['name'] for place in PLACES}
    labels = {(1, 0): r'MEU\x20PEN', (2, 0): FAILING, (3, 0): 'DISCO', (4, 0): 'CARTÃO'}
    others = sorted((names[place], labels.get(place, names[place]))
                    for place in ((1, 0), (2, 0), (3, 0), (4, 0), (4, 1)))
    stick = f'{STICK} (/media/usuario/{STICK})'
    assert observed.program['listed'] == [
        stick, *(f'{label} (/dev/{name}) | não montado' for name, label in others)]
    assert observed.program['chosen'] == stick
    assert observed.program['log'][-1] == '6 unidade(s) USB detectada(s).'


def test_stick_is_prepared_with_the_bundles_byte_for_byte(observed, tmp_path):
    assert observed.program['prepared'] == 'USB preparado com estrutura portatil Tessarine.'
    expected = bundles_of('1', tmp_path)
    assert {path: tuple(observed.program['after preparation'][path]) for path in expected} == expected


def test_stick_that_is_pulled_out_once_its_update_is_done_holds_every_byte(observed, tmp_path):
    assert observed.program['updated'] == 'Atualização concluída.\n\nVersão instalada: 1.1.0'
    expected = bundles_of('2', tmp_path)
    found = observed.program['after pull']
    assert {path: tuple(found[path]) for path in expected} == expected
    assert {path for path in found if path not in expected and not bundles.LEFTOVER.match(path)} == {
        'Tessarine-Windows.bat', 'Tessarine-Linux.sh', 'Tessarine/README.txt', bundles.STATE}


def test_preparation_of_the_failing_drive_names_the_file_that_met_the_sector(observed):
    file = f'/media/usuario/{FAILING}/Tessarine/windows/Qt6Core.dll'
    assert observed.program['failed'] in (f'Nao foi possivel gravar o arquivo: {file}',
                                          f'Nao foi possivel finalizar o arquivo: {file}')
