"""The update of a prepared drive over HTTPS, by the program as it ships."""

import hashlib
import pathlib

import pytest

from manager import Manager, state_of
from screen import click_close_button, move, press_key
from vendor import Vendor

NEW = '1.1.0'
PACKAGE = f'{NEW}.zip'
NOTES = 'Novidades.'
DONE = f'Atualização concluída.\n\nVersão instalada: {NEW}'
DOWNLOADING = 'Baixando pacote de atualização...'
BUNDLE_FILES = {
    'windows': ('Tessarine.exe', 'Qt6Core.dll', 'platforms/qwindows.dll'),
    'linux': ('Tessarine', 'Tessarine-Linux.sh', 'qt.conf', 'lib/libssl.so.3',
              'plugins/tls/libqopensslbackend.so'),
}


def make_bundle(directory, kind, version):
    """A bundle of small files that say which version they are of."""
    for name in BUNDLE_FILES[kind]:
        file = directory / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(f'{name} {version}\n')
    return directory


def tree(directory):
    return {str(path.relative_to(directory)): path.read_bytes()
            for path in sorted(pathlib.Path(directory).rglob('*')) if path.is_file()}


@pytest.fixture
def manager(installed, drive):
    """A manager on a machine whose drive was prepared with version 1.0.0."""
    for kind, bundle in (('windows', 'windows-x64'), ('linux', 'linux-x64')):
        make_bundle(installed.parent / 'bundles' / bundle, kind, '1.0.0')
    with Manager(installed) as running:
        running.prepare(drive)
        yield running


@pytest.fixture
def vendor(tmp_path):
    """A vendor who has published version 1.1.0."""
    with Vendor(tmp_path / 'vendor') as running:
        running.publish(make_bundle(tmp_path / 'new-windows', 'windows', NEW),
                        make_bundle(tmp_path / 'new-linux', 'linux', NEW), NEW, NOTES)
        yield running


def question(drive):
    return (f'Atualizar Tessarine na unidade {drive}?\n\nVersão instalada: 1.0.0\n'
            f'Versão disponível: {NEW}\n\n{NOTES}')


def test_both_bundles_and_the_state_are_replaced_and_nothing_else(manager, vendor, drive):
    (drive / 'carta.txt').write_text('do usuário')
    before = tree(drive)
    manager.press('Verificar atualizações')
    manager.answer(question(drive), 'Sim')
    manager.answer(DONE, 'OK')

    after = tree(drive)
    state = 'Tessarine/update-state.json'
    assert after.keys() == before.keys()
    for path, content in after.items():
        if path.startswith(('Tessarine/windows/', 'Tessarine/linux/')):
            assert content == before[path].replace(b'1.0.0', NEW.encode()), path
        elif path != state:
            assert content == before[path], path
    package = (vendor.published / PACKAGE).read_bytes()
    assert state_of(drive)['installedVersion'] == NEW
    assert state_of(drive)['lastPackageSha256'] == hashlib.sha256(package).hexdigest()
    assert manager.log[-1] == f'Unidade atualizada para Tessarine {NEW}.'


def test_declined_update_leaves_the_drive_as_it_was(manager, vendor, drive):
    before = tree(drive)
    manager.press('Verificar atualizações')
    manager.answer(question(drive), 'Não')
    manager.wait_for(lambda: manager.log[-1] == 'Atualização cancelada pelo usuário.', 'the log line')
    assert tree(drive) == before


def test_server_that_can_not_be_reached_leaves_the_drive_as_it_was(manager, drive):
    before = tree(drive)
    manager.press('Verificar atualizações')
    manager.wait_for(lambda: manager.log[-1].startswith('Falha ao consultar manifesto: '), 'the log line')
    assert tree(drive) == before


@pytest.mark.parametrize('dismiss', [
    lambda dialog: press_key('Escape'),
    lambda dialog: press_key('alt+F4'),
    click_close_button,
], ids=['escape', 'alt-f4', 'close-button'])
def test_progress_of_an_update_can_not_be_dismissed(manager, vendor, drive, dismiss):
    vendor.hold(PACKAGE)
    manager.press('Verificar atualizações')
    manager.answer(question(drive), 'Sim')
    progress = manager.progress(DOWNLOADING)
    manager.wait_for(lambda: progress.has('active'), 'the dialog in front')
    dismiss(progress)
    # The program is told of the move after the gesture, so once it knows of it both were handled.
    move(progress, 40, 40)
    manager.wait_for(lambda: progress.rectangle[0] < 100, 'the dialog where it was moved to')
    assert manager.progress_now(DOWNLOADING)
    vendor.release(PACKAGE)
    manager.answer(DONE, 'OK')
