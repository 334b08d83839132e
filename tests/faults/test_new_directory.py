"""A new directory on FAT or exFAT has its name only when the medium has what stands in it: the kernel
writes them in any order, and doesn't read a directory whose beginning is missing.
"""

import os
import pathlib
import subprocess
import sys

import pytest

BUILD = pathlib.Path(os.environ['TESSARINE_BINARY_DIR'], 'tests/faults')
PREPARE_DRIVER = BUILD / 'prepare_driver'
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / 'support'))

from drive_calls import AS_ON_EXFAT, AS_ON_FAT, calls_on  # noqa: E402


@pytest.fixture
def drive(tmp_path):
    root = tmp_path / 'drive'
    root.mkdir()
    return root


@pytest.fixture
def prepared(drive):
    (drive / 'Tessarine/windows').mkdir(parents=True)
    (drive / 'Tessarine/linux').mkdir()
    return drive


def make(directory):
    return [PREPARE_DRIVER, 'make', directory]


def made(name):
    """The calls by which a new directory comes into its place."""
    parent, slash, own = name.rpartition('/')
    hidden = f'{parent}{slash}.{own}.XXXXXX'
    synced = [f'syncfs {parent or "."}', f'fsync {parent or "."}']
    return [f'mkdir {hidden}', *synced, f'rename {hidden} {name}', f'fsync {name}', *synced]


def said(directory, *options):
    """What the user is told where strace makes the drive answer so, and like FAT."""
    return said_by(make(directory), *options)


def said_by(command, *options):
    return subprocess.run(['strace', '-qq', '-o', '/dev/null', AS_ON_FAT, *options, '--', *command],
                          check=False, stdout=subprocess.PIPE, text=True).stdout.splitlines()[0]


def failing(calls, when=1):
    return f'--inject={calls}:error=EIO:when={when}+'


def refusal(directory):
    return f'Nao foi possivel criar a pasta: {directory}'


@pytest.mark.parametrize('file_system', [AS_ON_FAT, AS_ON_EXFAT], ids=['FAT', 'exFAT'])
def test_it_is_synced_before_it_has_its_name_and_after(drive, file_system):
    assert calls_on(drive, make(drive / 'new'), file_system) == made('new')
    assert os.listdir(drive) == ['new']


def test_each_missing_level_is_synced_before_the_next(drive):
    assert calls_on(drive, make(drive / 'a/b/c'), AS_ON_FAT) == [*made('a'), *made('a/b'), *made('a/b/c')]
    assert (drive / 'a/b/c').is_dir()


def test_elsewhere_it_is_made_by_one_call(drive):
    assert calls_on(drive, make(drive / 'a/b')) == ['mkdir a', 'mkdir a/b']


def test_one_that_is_there_is_left_alone(drive):
    (drive / 'old').mkdir()
    (drive / 'old/file').write_text('kept')
    assert calls_on(drive, make(drive / 'old'), AS_ON_FAT) == []
    assert (drive / 'old/file').read_text() == 'kept'


def test_a_link_to_one_is_left_alone(drive):
    (drive / 'old').mkdir()
    (drive / 'link').symlink_to('old')
    assert calls_on(drive, make(drive / 'link'), AS_ON_FAT) == []
    assert os.readlink(drive / 'link') == 'old'


def test_a_file_in_the_way_is_kept(drive):
    (drive / 'file').write_text('kept')
    assert said(drive / 'file') == refusal(drive / 'file')
    assert said(drive / 'file/below') == refusal(drive / 'file/below')
    assert os.listdir(drive) == ['file']
    assert (drive / 'file').read_text() == 'kept'


def test_a_link_to_nowhere_in_the_way_is_kept(drive):
    (drive / 'link').symlink_to('nowhere')
    assert said(drive / 'link') == refusal(drive / 'link')
    assert os.listdir(drive) == ['link']


@pytest.mark.parametrize('calls, when', [
    ('mkdir', 1), ('syncfs', 1), ('fsync', 1), ('rename,renameat,renameat2,link,linkat', 1), ('fsync', 2),
    ('syncfs', 2)])
def test_a_failure_is_told_and_leaves_nothing(drive, calls, when):
    assert said(drive / 'new', failing(calls, when)) == refusal(drive / 'new')
    assert os.listdir(drive) == []


def test_what_is_above_one_that_can_not_be_made_stays(drive):
    assert said(drive / 'a/b', failing('syncfs', when=3)) == refusal(drive / 'a/b')
    assert os.listdir(drive) == ['a']
    assert os.listdir(drive / 'a') == []


def test_it_is_not_made_where_it_could_not_be_synced(drive):
    """Whether this is FAT is asked through what the directory above it is synced by."""
    assert said(drive / 'new', failing('openat'), '-P', drive) == refusal(drive / 'new')
    assert os.listdir(drive) == []


def test_no_name_is_given_without_the_medium(drive):
    """Not even where what was made can't be removed either."""
    assert said(drive / 'new', failing('fsync'), failing('rmdir,unlinkat')) == refusal(drive / 'new')
    assert [path.stem for path in drive.iterdir()] == ['.new']
    assert not (drive / 'new').exists()


def test_what_a_cut_left_of_one_is_not_looked_at(drive, tmp_path):
    """A look at it can be enough for the kernel to turn the drive read-only."""
    (drive / 'Tessarine/.windows.AbCdEf').mkdir(parents=True)
    (tmp_path / 'linux').mkdir()
    (tmp_path / 'linux/qt.conf').write_text('settings')
    trace = tmp_path / 'trace'
    subprocess.run(['strace', '-qq', '-o', trace, '--trace=%file', '--', PREPARE_DRIVER, 'prepare', drive, '',
                    tmp_path / 'linux/Tessarine'], check=True, stdout=subprocess.DEVNULL)
    assert '.windows.AbCdEf' not in trace.read_text(errors='replace')
    assert (drive / 'Tessarine/windows').is_dir()


def update(drive):
    return [BUILD / 'window_driver', drive]


@pytest.mark.parametrize('name', ['Tessarine/.update-TIME', 'Tessarine/.update-TIME/extracted'])
def test_those_of_an_update_are_made_in_the_same_way(prepared, name):
    calls = calls_on(prepared, update(prepared), AS_ON_FAT)
    begin = calls.index(made(name)[0])
    assert calls[begin:begin + len(made(name))] == made(name)


@pytest.mark.parametrize('nth_sync, message', [
    (1, 'Não foi possível criar área temporária na unidade USB.'),
    (2, 'Não foi possível criar área temporária na unidade USB.'),
    (3, 'Não foi possível criar staging: '),
    (4, 'Não foi possível criar staging: ')])
def test_an_update_whose_own_ones_can_not_be_synced_ends_and_leaves_nothing(prepared, nth_sync, message):
    assert said_by(update(prepared), failing('syncfs', nth_sync)).startswith(message)
    assert sorted(os.listdir(prepared / 'Tessarine')) == ['linux', 'windows']
