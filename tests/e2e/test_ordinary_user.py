"""A preparation by a user without privileges, with the PATH that Debian gives such a user."""

import os
import pathlib
import shutil

import pytest

from manager import Manager, question_before_preparing

ROOT = pathlib.Path(__file__).parents[2]


@pytest.fixture(autouse=True)
def linux_source(build):
    """The sample application where a manager looks for it that is started from its build or by script/run."""
    assert os.geteuid() != 0 and shutil.which('ldconfig') is None
    bundles = [directory / 'app' / 'bundles' for directory in {build, ROOT / 'build' / 'release'}]
    for directory in bundles:
        shutil.rmtree(directory, ignore_errors=True)  # what a developer tries things with
        (directory / 'linux-x64').mkdir(parents=True)
        shutil.copy2(build / 'tests' / 'sample-app' / '1.0.0' / 'Tessarine', directory / 'linux-x64')
    yield
    for directory in bundles:
        shutil.rmtree(directory)


def test_script_run_makes_a_preparation_possible(drive):
    with Manager(ROOT / 'script' / 'run', name='TessarineConfig') as manager:
        manager.prepare(drive)
    linux = drive / 'Tessarine' / 'linux'
    assert (linux / 'lib' / 'libssl.so.3').is_file()
    assert (linux / 'plugins' / 'platforms' / 'libqxcb.so').is_file()


def test_without_it_the_user_is_told_what_could_not_be_found(build, drive):
    with Manager(build / 'app' / 'TessarineConfig') as manager:
        manager.press('Preparar unidade USB')
        manager.answer(question_before_preparing(drive), 'Sim')
        manager.answer('Nao foi possivel localizar bibliotecas TLS do Linux.', 'OK')
        assert manager.log[3:] == ['Falha: Nao foi possivel localizar bibliotecas TLS do Linux.']
