"""The machines that tools/virtual-drive makes, as commands and the program's own detection see them."""

import os
import pathlib
import re
import secrets
import shlex
import signal
import subprocess
import tempfile
import time

import pytest

ROOT = pathlib.Path(__file__).parents[2]
TOOL = ROOT / 'tools' / 'virtual-drive'
LIST_USB_DRIVES = pathlib.Path(os.environ['TESSARINE_BINARY_DIR']) / 'tests/tools/list-usb-drives'
ORDINARY_USER = ('setpriv', '--reuid=4321', '--regid=4321', '--clear-groups', '--')
LIMIT = 300  # seconds, which only what hangs takes
TRACE = f'trace{secrets.token_hex(4)}'  # a drive's name that nothing else on this machine has


def run(options, *command, user=()):
    """Runs a command on the machine that the options, as a shell would read them, describe."""
    return subprocess.run([*user, TOOL, *shlex.split(options), '--', *command], capture_output=True,
                          text=True, check=False, env={**os.environ, 'USER': 'ana'})


def output(options, *command, user=()):
    result = run(options, *command, user=user)
    assert (result.returncode, result.stderr) == (0, '')
    return result.stdout


def traces():
    """Where this machine shows the drive: nowhere, but for the loop device of an ext4."""
    loops = subprocess.run(['losetup', '--list', '--noheadings', '--output', 'BACK-FILE'],
                           capture_output=True, text=True, check=True).stdout.splitlines()
    mounts = pathlib.Path('/proc/self/mountinfo').read_text(encoding='utf-8').splitlines()
    directories = ['/dev', '/dev/disk/by-label', '/media', '/run/mount', '/sys/class/block',
                   tempfile.gettempdir()]
    files = [f'{directory}/{file}' for directory in directories if os.path.isdir(directory)
             for file in os.listdir(directory)]
    return [trace for trace in loops + mounts + files if TRACE in trace]


def wait_for(condition):
    end = time.monotonic() + LIMIT
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.01)


# --- the drives ---

# Newer Qt knows no label of a file system in memory, so a mounted drive with a label is an ext4.

@pytest.mark.parametrize('options, listed', [
    pytest.param('', [], id='no-drive'),
    pytest.param('--drive mounted',
                 ['/dev/sdz1:/media/ana/sdz1|/dev/sdz1|/media/ana/sdz1|/media/ana/sdz1|tmpfs'
                  '|removable|mounted'], id='mounted'),
    pytest.param('--drive label=PEN', ['/dev/sdz1|/dev/sdz1|PEN|||removable|unmounted'],
                 id='not-mounted'),
    pytest.param('--drive whole,label=PEN', ['/dev/sdz|/dev/sdz|PEN|||removable|unmounted'],
                 id='whole-disk'),
    pytest.param('--drive label=A --partition fs=ext4,size=8M,label=B,mounted --partition size=1M',
                 ['/dev/sdz2:/media/ana/B|/dev/sdz2|B|/media/ana/B|ext4|removable|mounted',
                  '/dev/sdz1|/dev/sdz1|A|||removable|unmounted',
                  '/dev/sdz3|/dev/sdz3|sdz3|||removable|unmounted'], id='three-partitions'),
    pytest.param('--drive size=1M --drive size=1M --drive name=sdb',
                 ['/dev/sdaa1|/dev/sdaa1|sdaa1|||removable|unmounted',
                  '/dev/sdb1|/dev/sdb1|sdb1|||removable|unmounted',
                  '/dev/sdz1|/dev/sdz1|sdz1|||removable|unmounted'], id='three-drives'),
    pytest.param('--drive "fs=ext4,size=8M,label=MEU PEN,mounted"',
                 ['/dev/sdz1:/media/ana/MEU PEN|/dev/sdz1|MEU PEN|/media/ana/MEU PEN'
                  '|ext4|removable|mounted'], id='label-with-a-blank'),
    pytest.param('--drive "label=MEU PEN"',
                 [r'/dev/sdz1|/dev/sdz1|MEU\x20PEN|||removable|unmounted'],
                 id='label-with-a-blank-not-mounted'),
    pytest.param('--drive optical,label=CD,mounted --drive optical', [], id='optical'),
    pytest.param('--drive empty', ['/dev/sdz|/dev/sdz|sdz|||removable|unmounted'], id='empty-slot'),
    pytest.param('--drive fixed', ['/dev/sdz1|/dev/sdz1|sdz1|||fixed|unmounted'], id='fixed'),
    pytest.param('--drive readonly,mounted=/media/x',
                 ['/dev/sdz1:/media/x|/dev/sdz1|/media/x|/media/x|tmpfs|removable|mounted'],
                 id='read-only'),
    pytest.param('--drive fs=ext4,size=8M,label=PEN,mounted',
                 ['/dev/sdz1:/media/ana/PEN|/dev/sdz1|PEN|/media/ana/PEN|ext4|removable|mounted'],
                 id='ext4'),
])
def test_program_lists_the_drives(options, listed):
    assert output(options, LIST_USB_DRIVES).splitlines() == listed


def test_program_lists_the_drives_of_an_ordinary_user():
    listed = output('--drive label=PEN --drive mounted', LIST_USB_DRIVES, user=ORDINARY_USER)
    assert listed.splitlines() == [
        '/dev/sdaa1:/media/ana/sdaa1|/dev/sdaa1|/media/ana/sdaa1|/media/ana/sdaa1|tmpfs'
        '|removable|mounted',
        '/dev/sdz1|/dev/sdz1|PEN|||removable|unmounted']


@pytest.mark.parametrize('options, attributes', [
    ('--drive size=1M', {'sdz/removable': '1', 'sdz/ro': '0', 'sdz/size': '2048',
                         'sdz/device/type': '0', 'sdz1/size': '2048', 'sdz1/partition': '1'}),
    ('--drive size=1M --partition size=3K', {'sdz/size': '2054', 'sdz2/size': '6', 'sdz2/partition': '2'}),
    ('--drive fixed,readonly', {'sdz/removable': '0', 'sdz/ro': '1', 'sdz1/ro': '1'}),
    ('--drive optical', {'sr0/removable': '1', 'sr0/ro': '1', 'sr0/device/type': '5'}),
    ('--drive empty', {'sdz/removable': '1', 'sdz/size': '0', 'sdz/device/type': '0'}),
])
def test_device_tree_describes_the_drive(options, attributes):
    paths = [f'/sys/class/block/{attribute}' for attribute in attributes]
    assert output(options, 'cat', *paths).split() == list(attributes.values())


def test_links_of_the_device_tree_lead_to_a_usb_bus():
    assert output('--drive size=1M', 'realpath', '/sys/class/block/sdz1').endswith('/block/sdz/sdz1\n')
    assert '/usb2/' in output('--drive size=1M', 'realpath', '/sys/class/block/sdz1')


def test_only_the_described_drives_are_there():
    assert output('--drive size=1M --drive optical', 'ls', '/sys/class/block').split() == \
        ['sdz', 'sdz1', 'sr0']
    nodes = output('--drive size=1M', 'find', '/dev', '-name', '.machine', '-prune',
                   '-o', '-type', 'b', '-print')
    assert sorted(nodes.split()) == ['/dev/sdz', '/dev/sdz1']


@pytest.mark.parametrize('label, link', [
    ('PEN_1.a-b+c#d:e=f@g', 'PEN_1.a-b+c#d:e=f@g'), ('MEU PEN', r'MEU\x20PEN'), ('A/B', r'A\x2fB'),
    ('A\\B', r'A\x5cB'), ('Informação', 'Informação')])
def test_label_is_a_link_to_the_device(label, link):
    options = f'--drive {shlex.quote("label=" + label)}'
    assert output(options, 'ls', '/dev/disk/by-label').strip() == link
    assert output(options, 'realpath', f'/dev/disk/by-label/{link}').strip() == '/dev/sdz1'


def test_of_two_equal_labels_the_last_is_linked_and_the_mount_points_are_counted():
    options = '--drive label=PEN,mounted --drive label=PEN,mounted'
    assert output(options, 'realpath', '/dev/disk/by-label/PEN').strip() == '/dev/sdaa1'
    assert output(options, 'findmnt', '-no', 'SOURCE', '/media/ana/PEN').strip() == '/dev/sdz1'
    assert output(options, 'findmnt', '-no', 'SOURCE', '/media/ana/PEN1').strip() == '/dev/sdaa1'


def test_volume_is_mounted_where_it_is_said(tmp_path):
    for place in ('/media/a/b', str(tmp_path)):
        mounted = output(f'--drive mounted={place}', 'findmnt', '-no', 'SOURCE,FSTYPE', place)
        assert mounted.split() == ['/dev/sdz1', 'tmpfs']


def test_volume_without_a_label_is_mounted_by_its_name():
    assert output('--drive mounted', 'ls', '/media/ana').strip() == 'sdz1'


@pytest.mark.parametrize('size, in_bytes', [
    ('8192', 8192), ('4K', 4096), ('3M', 3 << 20), ('2G', 2 << 30), ('1T', 1 << 40)])
def test_volume_has_its_size(size, in_bytes):
    free = output(f'--drive size={size},mounted=/media/x', 'stat', '-fc', '%b %S', '/media/x').split()
    assert int(free[0]) * int(free[1]) == in_bytes


def test_full_drive_takes_no_more():
    full = run('--drive size=8K,mounted=/media/x', 'dd', 'if=/dev/zero', 'of=/media/x/f', 'bs=1K', 'count=9')
    assert full.returncode == 1 and 'No space left on device' in full.stderr


def test_ext4_is_a_real_block_device_with_a_label():
    options = '--drive "fs=ext4,size=8M,label=MEU PEN,mounted=/media/x"'
    assert output(options, '/sbin/e2label', '/dev/sdz1').strip() == 'MEU PEN'
    assert output(options, 'stat', '-fc', '%T', '/media/x').strip() == 'ext2/ext3'


@pytest.mark.parametrize('file_system', ['tmpfs', 'ext4'])
@pytest.mark.parametrize('option, status', [('', 0), ('readonly,', 1)])
def test_anybody_may_write_unless_the_drive_is_read_only(file_system, option, status):
    written = run(f'--drive {option}fs={file_system},size=8M,mounted=/media/x', *ORDINARY_USER,
                  'touch', '/media/x/file')
    assert written.returncode == status
    assert ('Read-only file system' in written.stderr) == (status == 1)


def test_terminals_work():
    output('', 'python3', '-c', 'import os; os.write(os.openpty()[1], b"x"); open("/dev/null", "w")')


# --- the command ---

def test_exit_status_is_the_commands():
    assert run('--drive mounted', 'sh', '-c', 'exit 42').returncode == 42
    assert run('', 'sh', '-c', 'kill -KILL $$').returncode == -signal.SIGKILL
    assert run('', 'true').returncode == 0


def test_command_that_cannot_be_run_has_its_own_status():
    assert run('', 'no-such-command').returncode == 127
    assert run('', '/etc/passwd').returncode == 126


def test_command_keeps_its_own_dashes_and_options():
    assert output('', 'echo', '--drive', '--', '-x') == '--drive -- -x\n'


def test_command_ignores_no_more_signals_than_outside():
    command = ['grep', 'SigIgn', '/proc/self/status']
    assert output('', *command) == subprocess.run(
        command, capture_output=True, text=True, check=True).stdout


def test_ordinary_user_stays_one():
    assert output('', 'id', '-u', user=ORDINARY_USER) == '4321\n'
    assert 'CapEff:\t0000000000000000' in output('', 'cat', '/proc/self/status', user=ORDINARY_USER)


# --- what can't be made ---

@pytest.mark.parametrize('options, complaint', [
    ('--drive siz=1', 'unknown word "siz"'),
    ('--drive size=0', '"0" is no size'),
    ('--drive size=1X', '"1X" is no size'),
    ('--drive label=', '"label" needs a value'),
    ('--drive whole=yes', '"whole" takes no value'),
    ('--drive fs=vfat', 'unknown file system "vfat"'),
    ('--drive empty,mounted', 'an empty slot has no volume'),
    ('--drive size=1M --partition fixed', 'unknown word "fixed"'),
    ('--partition size=1M', '--partition follows a --drive that has a partition table'),
    ('--drive whole --partition size=1M', '--partition follows a --drive that has a partition table'),
    ('--drive name=sdb --drive name=sdb', '"sdb" can\'t name another disk'),
    ('--drive name=a/b', '"a/b" can\'t name another disk'),
])
def test_description_that_makes_no_sense_is_refused(options, complaint):
    refused = run(options, 'true')
    assert refused.returncode == 2 and complaint in refused.stderr


def test_command_is_needed():
    assert run('--drive size=1M').returncode == 2


def test_mount_point_has_to_exist_or_to_lie_below_media():
    refused = run('--drive mounted=/no-such-directory', 'true')
    assert (refused.returncode, refused.stderr) == \
        (125, 'virtual-drive: /no-such-directory is neither a directory nor below /media\n')


def test_ext4_needs_root():
    refused = run('--drive fs=ext4,mounted', 'true', user=ORDINARY_USER)
    assert (refused.returncode, refused.stderr) == (125, 'virtual-drive: fs=ext4 needs root\n')


# --- during and after the command ---

@pytest.fixture
def running():
    """A command on a machine with the drive and a file on it, and its output."""
    with subprocess.Popen([TOOL, '--drive', f'name={TRACE},fs=ext4,size=8M,label={TRACE},mounted=/media/{TRACE}', '--',
                           'sh', '-c', f'touch /media/{TRACE}/{TRACE}; echo ready; exec sleep 1000'],
                          stdout=subprocess.PIPE) as machine:
        assert machine.stdout.readline() == b'ready\n'
        yield machine
        machine.kill()


def test_nothing_is_seen_outside_but_the_loop_device(running):
    assert running.poll() is None
    assert traces() == [f'/media/{TRACE}1.img (deleted)']


@pytest.mark.parametrize('number', [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_nothing_survives_a_signal(running, number):
    running.send_signal(number)
    assert running.wait(LIMIT) == -number
    wait_for(lambda: not traces())


@pytest.mark.parametrize('options, command, status', [
    pytest.param('', 'true', 0, id='success'),
    pytest.param('', 'false', 1, id='failure'),
    pytest.param('', 'no-such-command', 127, id='no-command'),
    pytest.param('--drive mounted=/no-such-directory', 'true', 125, id='no-machine'),
])
def test_nothing_survives_the_command(options, command, status):
    drives = f'--drive name={TRACE},fs=ext4,size=8M,label={TRACE},mounted --drive name={TRACE}-too,mounted '
    assert run(drives + options, command).returncode == status
    wait_for(lambda: not traces())


# --- the help ---

def examples():
    text = subprocess.run([TOOL, '--help'], capture_output=True, text=True, check=True).stdout
    return re.findall(r'^  tools/virtual-drive (.*)$', text, re.MULTILINE)


@pytest.mark.parametrize('example', examples())
def test_example_of_the_help_runs(example, tmp_path):
    subprocess.run([ROOT / 'tests/support/make-test-ca', tmp_path, 'velmora.example'], check=True,
                   capture_output=True)
    shown = subprocess.run(f'{shlex.quote(str(TOOL))} {example}', shell=True, cwd=tmp_path,
                           capture_output=True, text=True, check=False)
    assert (shown.returncode, shown.stderr) == (0, '') and shown.stdout


def test_help_has_examples_and_says_every_word():
    text = subprocess.run([TOOL, '--help'], capture_output=True, text=True, check=True).stdout
    assert len(examples()) >= 4
    for word in ('name=', 'whole', 'fixed', 'readonly', 'optical', 'empty', 'size=', 'label=',
                 'mounted', 'mounted=', 'fs=tmpfs', 'fs=ext4'):
        assert re.search(rf'^  {word}', text, re.MULTILINE), word
