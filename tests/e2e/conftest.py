import os
import pathlib
import shutil
import sys

import pytest

SUPPORT = pathlib.Path(__file__).parents[1] / 'support'
sys.path.insert(0, str(SUPPORT))

from manager import install  # noqa: E402


@pytest.fixture
def build():
    """Where the program was built."""
    return pathlib.Path(os.environ['TESSARINE_BINARY_DIR'])


@pytest.fixture
def installed(build, tmp_path):
    """The program, alone in a directory of its own."""
    return install(build / 'app' / 'TessarineConfig', tmp_path / 'manager')


@pytest.fixture
def drive():
    """The machine's one USB drive, mounted and empty."""
    mount_point = pathlib.Path('/media/usuario/TESSARINE')
    assert not list(mount_point.iterdir())
    yield mount_point
    empty(mount_point)


def empty(directory):
    for entry in directory.iterdir():
        if entry.is_dir():
            shutil.rmtree(entry)
        else:
            entry.unlink()
