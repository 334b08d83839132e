"""The window on a machine without USB drives and without bundles."""

import pytest

from manager import Manager
from screen import click_close_button, press_key
from window_driver import WAIT_LIMIT_S

BUTTONS = ('Atualizar lista', 'Verificar atualizações', 'Preparar unidade USB')
MENU_ITEMS = ('Atualizar lista', 'Preparar unidade USB', 'Sair', 'Verificar atualizações',
              'Sobre o sistema')


@pytest.fixture
def manager(installed):
    with Manager(installed) as running:
        yield running


def test_fresh_log_has_three_lines(manager):
    assert manager.log == ['Fonte Windows para preparação ausente.',
                           'Fonte Linux para preparação ausente.',
                           'Nenhuma unidade USB detectada.']


def test_every_control_is_enabled(manager):
    for button in BUTTONS:
        assert manager.main.control('push button', button).has('enabled'), button
    for item in MENU_ITEMS:
        assert manager.main.control('menu item', item).has('enabled'), item


def test_every_control_is_found_by_its_name(manager):
    manager.main.labelled('combo box', 'Unidade USB:')
    for role, name in (('label', 'Fonte Windows:'), ('label', 'Fonte Linux:'), ('text', 'Mensagens'),
                       ('menu item', 'Arquivo'), ('menu item', 'Ajuda'),
                       ('label', 'Versão 1.0.0'), ('label', 'Velmora Sistemas')):
        manager.main.control(role, name)


@pytest.mark.parametrize('close', [
    lambda manager: press_key('ctrl+q'),
    lambda manager: press_key('alt+F4'),
    lambda manager: click_close_button(manager.main),
    lambda manager: manager.choose('Sair'),
], ids=['quit-key', 'alt-f4', 'close-button', 'menu'])
def test_closing_ends_the_program_with_status_0(manager, close):
    manager.wait_for(lambda: manager.main.has('active'), 'the window in front')
    close(manager)
    assert manager.process.wait(timeout=WAIT_LIMIT_S) == 0
