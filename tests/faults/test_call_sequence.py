"""What a cut or a failing drive can spoil is decided by the order of the calls on it: here it stands.

Whoever changes it changes what a user finds on a drive that was pulled out.
"""

import os
import pathlib
import re
import subprocess
import sys

import pytest

BUILD = pathlib.Path(os.environ['TESSARINE_BINARY_DIR'])
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / 'support'))

from drive_calls import AS_ON_EXFAT, AS_ON_FAT, calls_on  # noqa: E402

MEBIBYTE = 1048576


@pytest.fixture
def drive(tmp_path):
    """An empty ext4 drive."""
    image, root = tmp_path / 'image', tmp_path / 'drive'
    image.touch()
    os.truncate(image, 64 * MEBIBYTE)
    subprocess.run(['/usr/sbin/mkfs.ext4', '-q', '-m', '0', image], check=True)
    root.mkdir()
    subprocess.run(['mount', '-o', 'loop', image, root], check=True)
    (root / 'lost+found').rmdir()
    yield root
    subprocess.run(['umount', root], check=True)


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding='utf-8')
    return path


def prepare_driver(*arguments):
    return [BUILD / 'tests/faults/prepare_driver', *arguments]


def written(name, size):
    """The calls by which a small new file comes into its place."""
    directory, _, _ = name.rpartition('/')
    unnamed = f'{directory}/(unnamed)'.lstrip('/')
    return [f'create {directory or "."}', f'write {size} to {unnamed}', f'wait for all of {unnamed}',
            f'fdatasync {unnamed}', f'link {name}']


def copied(name, size):
    create, write_all, *rest = written(name, size)
    return [create, f'chmod {write_all.split()[-1]}', write_all, *rest, f'chmod {name}']


def synced(directory):
    return [f'syncfs {directory}', f'fsync {directory}']


def swapped_in(old, new):
    """The calls by which an entry gets a name, which reaches the medium before the old one goes."""
    return [f'rename Tessarine/{old} Tessarine/{new}', f'fsync Tessarine/{new}', *synced('Tessarine')]


def test_a_large_file_reaches_the_medium_behind_its_writer_and_then_its_name(drive, tmp_path):
    source = write(tmp_path / 'source', 'x' * (2 * MEBIBYTE + 5))
    assert calls_on(drive, prepare_driver('copy', source, drive / 'target')) == [
        'create .',
        'write 1048576 to (unnamed)',
        'start 0+1048576 of (unnamed)',
        'write 1048576 to (unnamed)',
        'start 1048576+1048576 of (unnamed)',
        'wait for 0+1048576 of (unnamed)',
        'start 2097152+5 of (unnamed)',
        'wait for 0+2097152 of (unnamed)',
        'chmod (unnamed)',
        'write 5 to (unnamed)',
        'wait for all of (unnamed)',
        'fdatasync (unnamed)',
        'link target',
        'chmod target']


def test_an_older_file_is_replaced_by_one_rename(drive, tmp_path):
    source = write(tmp_path / 'source', 'newer')
    write(drive / 'target', 'old')
    assert calls_on(drive, prepare_driver('copy', source, drive / 'target')) == [
        'create .',
        'chmod (unnamed)',
        *copied('target', 5)[1:-2],
        'link target.XXXXXX',
        'rename target.XXXXXX target',
        'chmod target']


def test_on_fat_a_file_is_synced_once_more_under_its_name(drive, tmp_path):
    source = write(tmp_path / 'source', 'bytes')
    assert calls_on(drive, prepare_driver('copy', source, drive / 'target'), AS_ON_FAT) == [
        'create .',
        'chmod (unnamed)',
        'write 5 to (unnamed)',
        'fsync (unnamed)',
        'fdatasync (unnamed)',
        'link target',
        'fsync target',
        'chmod target']


def test_a_program_is_executable_before_it_has_its_name(drive, tmp_path):
    source = write(tmp_path / 'source', 'program')
    source.chmod(0o755)
    calls = calls_on(drive, prepare_driver('copy', source, drive / 'target'))
    assert calls.index('chmod (unnamed)') < calls.index('link target')
    assert (drive / 'target').stat().st_mode & 0o777 == 0o755


@pytest.mark.parametrize('file_system', [AS_ON_FAT, AS_ON_EXFAT], ids=['FAT', 'exFAT'])
def test_a_replaced_file_keeps_its_blocks_until_the_new_one_is_synced(drive, tmp_path, file_system):
    source = write(tmp_path / 'source', 'newer')
    write(drive / 'target', 'old')
    calls = calls_on(drive, prepare_driver('copy', source, drive / 'target'), file_system,
                     with_opening=True)
    assert calls[calls.index('fdatasync (unnamed)') - 1:] == [
        'open target',
        'fdatasync (unnamed)',
        'link target.XXXXXX',
        'close (unnamed)',
        'rename target.XXXXXX target',
        'open target',
        'fsync target',
        'close target',
        'close target',
        'chmod target']


def test_a_preparation_ends_with_a_sync_of_the_whole_drive(drive, tmp_path):
    windows = write(tmp_path / 'windows/Tessarine.exe', 'program')
    write(tmp_path / 'windows/Qt6Core.dll', 'library')
    write(tmp_path / 'linux/qt.conf', 'settings')
    driver = prepare_driver('prepare', drive, windows, tmp_path / 'linux/Tessarine')
    assert calls_on(drive, driver) == [
        'mkdir Tessarine',
        'mkdir Tessarine/windows',
        'mkdir Tessarine/linux',
        *copied('Tessarine/windows/Tessarine.exe', 7),
        *copied('Tessarine/windows/Qt6Core.dll', 7),
        *copied('Tessarine/linux/qt.conf', 8),
        *written('Tessarine-Windows.bat', 88),
        *written('Tessarine-Linux.sh', 917),
        'chmod Tessarine-Linux.sh',
        *written('Tessarine/README.txt', 455),
        'fsync Tessarine/README.txt',
        *synced('.')]


def test_on_exfat_a_new_file_is_synced_once(drive, tmp_path):
    source = write(tmp_path / 'source', 'bytes')
    calls = calls_on(drive, prepare_driver('copy', source, drive / 'target'), AS_ON_EXFAT)
    assert calls[-4:] == ['fsync (unnamed)', 'fdatasync (unnamed)', 'link target', 'chmod target']


@pytest.mark.parametrize('call', ['fsync', 'syncfs'])
def test_a_sync_that_a_signal_interrupts_is_repeated(drive, tmp_path, call):
    write(tmp_path / 'linux/qt.conf', 'settings')
    driver = prepare_driver('prepare', drive, '', tmp_path / 'linux/Tessarine')
    assert calls_on(drive, driver, f'--inject={call}:error=EINTR:when=1')[-3:] == [
        'fsync Tessarine/README.txt', *synced('.')]


def test_an_update_has_each_step_on_the_medium_before_the_next(drive):
    write(drive / 'Tessarine/windows/Tessarine.exe', '1.0.0')
    write(drive / 'Tessarine/linux/Tessarine', '1.0.0')
    write(drive / 'Tessarine/update-state.json', '{"app": "Tessarine", "installedVersion": "1.0.0"}')
    calls = calls_on(drive, [BUILD / 'tests/faults/window_driver', drive])
    within = ('remove Tessarine/windows.backup-TIME/', 'remove Tessarine/linux.backup-TIME/',
              'remove Tessarine/.update-TIME/')
    state, extracted = 'update-state.json', '.update-TIME/extracted'
    assert [re.sub('^write [0-9]+', 'write', call) for call in calls
            if not call.startswith(within)] == [
        'mkdir Tessarine/.update-TIME',
        'create Tessarine/.update-TIME/package.zip',
        'write to Tessarine/.update-TIME/package.zip',
        f'mkdir Tessarine/{extracted}',
        *synced('Tessarine'),
        *swapped_in('windows', 'windows.backup-TIME'),
        *swapped_in(f'{extracted}/Tessarine/windows', 'windows'),
        *swapped_in('linux', 'linux.backup-TIME'),
        *swapped_in(f'{extracted}/Tessarine/linux', 'linux'),
        'create Tessarine',
        'chmod Tessarine/(unnamed)',
        'write to Tessarine/(unnamed)',
        'wait for all of Tessarine/(unnamed)',
        'fdatasync Tessarine/(unnamed)',
        f'link Tessarine/{state}.XXXXXX',
        *swapped_in(f'{state}.XXXXXX', state),
        'remove Tessarine/windows.backup-TIME',
        'remove Tessarine/linux.backup-TIME',
        'remove Tessarine/.update-TIME']
