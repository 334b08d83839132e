"""The short sweep: of every kind of call the first, the middle and the last one, each with one error,
with half of its bytes where it writes, and with a kill. The whole sweep is script/test --faults."""

import os
import subprocess

import pytest

from fault_sweep import Sweep, short_choice

COMMANDS = ('preparation, new, tmpfs', 'preparation, older bundles, tmpfs as on FAT', 'update, tmpfs',
            'unzip, tmpfs')


@pytest.fixture(scope='module')
def sweep(tmp_path_factory):
    directory = tmp_path_factory.mktemp('sweep')
    sweep = Sweep(os.environ['TESSARINE_BINARY_DIR'], directory, workers=os.cpu_count())
    with sweep.vendor:
        yield sweep
    subprocess.run(['umount', '--lazy', directory], check=True)


@pytest.mark.parametrize('name', COMMANDS)
def test_a_fault_loses_nothing_and_is_told(sweep, name):
    command = next(command for command in sweep.commands() if command.name == name)
    tally = sweep.run(command, short_choice)
    assert (tally.broken, tally.missed) == ([], [])
    assert tally.faults >= 10
    assert tally.kills >= 10
