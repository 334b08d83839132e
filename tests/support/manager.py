"""The manager as its user meets it: installed beside its bundles, and driven through its window."""

import json
import pathlib
import shutil

from window_driver import WAIT_LIMIT_S, Application

TITLE = 'Tessarine - Gerenciador'
PREPARED = 'USB preparado com estrutura portatil Tessarine.'


def install(program, directory, windows=None, linux=None):
    """Copies the program into a new directory, and each bundle directory to its place beside it."""
    bundles = pathlib.Path(directory, 'bundles')
    bundles.mkdir(parents=True)
    for source, name in ((windows, 'windows-x64'), (linux, 'linux-x64')):
        if source:
            shutil.copytree(source, bundles / name)
    return pathlib.Path(shutil.copy2(program, directory))


def state_of(drive):
    """The update state that the drive holds."""
    return json.loads(pathlib.Path(drive, 'Tessarine/update-state.json').read_text(encoding='utf-8'))


def question_before_preparing(mount_point):
    return (f'Preparar a estrutura Tessarine em {mount_point}?\n\nA unidade não será formatada. '
            'Arquivos existentes do bundle Tessarine podem ser substituídos.')


def question_before_updating(mount_point, installed, available, notes):
    return (f'Atualizar Tessarine na unidade {mount_point}?\n\nVersão instalada: {installed}\n'
            f'Versão disponível: {available}\n\n{notes}')


def updated(version):
    """What is said of an update that is done."""
    return f'Atualização concluída.\n\nVersão instalada: {version}'


class Manager(Application):
    """A running manager, whose start has ended."""

    def __init__(self, program, **options):
        super().__init__([str(program)], **options)
        self.main = self.window(TITLE)
        self._log = self.main.control('text', 'Mensagens')
        self._list = self.main.labelled('combo box', 'Unidade USB:')
        self.wait_for(lambda: len(self.log) == 3, 'the three lines of a fresh start')

    @property
    def log(self):
        return self._log.text.split('\n')

    @property
    def drives(self):
        """The lines of the list of drives."""
        return [line.name for line in self._list.find_all('list item')]

    @property
    def chosen_drive(self):
        """The line that the closed list shows, or None."""
        return self._list.name if self._list.name in self.drives else None

    def press(self, button):
        self.main.control('push button', button).press()

    def choose(self, item):
        """Presses the item of a menu; it is found whether or not its menu is open."""
        self.main.control('menu item', item).press()

    def answer(self, text, button):
        """Presses a button of the box that says so, once it is there, and waits until it has gone."""
        self.dialog(text).control('push button', button).press()
        self.wait_for(lambda: not self.dialog_now(text), f'the end of the box "{text}"')

    def progress(self, label):
        """The progress dialog with that label, waited for."""
        return self.wait_for(lambda: self.progress_now(label), f'the progress dialog "{label}"')

    def progress_now(self, label=None):
        """The progress dialog if it is on the screen, and has that label if one is given."""
        for window in self.windows()[1:]:
            if window.find_all('progress bar') and label in (None, *window.labels()):
                return window
        return None

    def prepare(self, mount_point):
        """Prepares the drive and returns once its user has read that it is done."""
        self.press('Preparar unidade USB')
        self.answer(question_before_preparing(mount_point), 'Sim')
        self.answer(PREPARED, 'OK')

    def box(self):
        """The box that waits for its OK, waited for: its text. It is gone then."""
        box = self.wait_for(lambda: next((w for w in self.windows()[1:] if w.find('push button', 'OK')), None), 'a box')
        text = ' '.join(box.labels())
        box.control('push button', 'OK').press()
        self.wait_for(lambda: len(self.windows()) == 1, 'the end of the box')
        return text

    def close(self):
        """Leaves by the menu, and returns the exit status."""
        self.choose('Sair')
        return self.process.wait(timeout=WAIT_LIMIT_S)
