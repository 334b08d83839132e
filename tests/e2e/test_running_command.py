"""The window and the progress dialog while a bundle is copied onto a drive."""

import os
import resource

import pytest

from held_files import HeldFiles
from manager import PREPARED, Manager, question_before_preparing
from process_memory import Growth
from screen import click_close_button, is_painted, move, output_of, pixels, press_key, window_id
from window_driver import NewNames

GIB = 1 << 30
COPYING = 'Copiando bundle Windows...'
MOTIF_ALL, MOTIF_MOVE, MOTIF_CLOSE = 1, 4, 32
# A program that came to the last of them would stand still: so many that it takes a minute.
HELD_COUNT = 3000
GESTURES = pytest.mark.parametrize('dismiss', [
    lambda dialog: press_key('Escape'),
    lambda dialog: press_key('alt+F4'),
    click_close_button,
], ids=['escape', 'alt-f4', 'close-button'])


@pytest.fixture
def bundle(installed):
    """A Windows bundle that is copied as it is."""
    directory = installed.parent / 'bundles' / 'windows-x64'
    (directory / 'platforms').mkdir(parents=True)
    for name in ('platforms/qwindows.dll', 'Tessarine.exe', 'Qt6Core.dll'):
        (directory / name).write_text(name)
    return directory


@pytest.fixture
def held_files(bundle):
    """Files of the bundle that keep its copying from ending."""
    directory = bundle / 'held'
    directory.mkdir()
    paths = [directory / f'{number}' for number in range(HELD_COUNT)]
    for path in paths:
        path.write_text('held')
    resource.setrlimit(resource.RLIMIT_NOFILE, (2 * HELD_COUNT, 2 * HELD_COUNT))
    with HeldFiles(paths) as held:
        yield held


def start_copying(manager, drive):
    manager.press('Preparar unidade USB')
    manager.answer(question_before_preparing(drive), 'Sim')
    return manager.progress(COPYING)


def test_memory_does_not_grow_with_what_is_copied(installed, bundle, drive):
    os.truncate(bundle / 'Qt6Core.dll', GIB)
    with Manager(installed) as manager:
        growth = Growth(manager.process)
        start_copying(manager, drive)
        manager.answer(PREPARED, 'OK')
        grown = growth.peak
    assert (drive / 'Tessarine/windows/Qt6Core.dll').stat().st_size == GIB
    print(f'Grown by {grown / 1024:.0f} KiB')
    assert grown <= GIB / 16


def test_window_is_repainted(installed, held_files, drive):
    with Manager(installed) as manager:
        manager.wait_for(lambda: is_painted(manager.main), 'the painted window')
        whole = pixels(manager.main.rectangle)
        progress = start_copying(manager, drive)
        covered = progress.rectangle
        shown_before = part(whole, manager.main.rectangle, covered)
        manager.wait_for(lambda: pixels(covered) != shown_before, 'the dialog over the window')
        move(progress, 0, 0)
        manager.wait_for(lambda: pixels(covered) == shown_before, 'what the dialog had covered')
        assert manager.progress_now(COPYING)
        held_files.release()
        manager.answer(PREPARED, 'OK')


def part(shown, of, rectangle):
    """The pixels of a rectangle that lies within another one."""
    left, top, width, height = rectangle[0] - of[0], rectangle[1] - of[1], *rectangle[2:]
    rows = range(top, top + height)
    return b''.join(shown[3 * (row * of[2] + left):3 * (row * of[2] + left + width)] for row in rows)


def test_caption_of_a_stage_is_announced(installed, held_files, drive):
    with Manager(installed) as manager:
        announced = NewNames()
        start_copying(manager, drive)
        manager.wait_for(lambda: COPYING in announced.heard(), f'the announcement of {COPYING}')
        held_files.release()
        manager.answer(PREPARED, 'OK')


def test_progress_is_named_after_what_runs(installed, held_files, drive):
    with Manager(installed) as manager:
        progress = start_copying(manager, drive)
        assert progress.name == 'Preparação da unidade USB'
        assert [bar.name for bar in progress.find_all('progress bar')] == [COPYING]
        held_files.release()
        manager.answer(PREPARED, 'OK')


def test_window_manager_is_not_to_offer_closing_the_progress(installed, held_files, drive):
    with Manager(installed) as manager:
        number = window_id(start_copying(manager, drive))
        assert MOTIF_MOVE & functions_of(number)
        assert not (MOTIF_ALL | MOTIF_CLOSE) & functions_of(number)
        held_files.release()
        manager.answer(PREPARED, 'OK')


def functions_of(window_number):
    """What the window's frame may offer, as MwmUtil.h numbers it."""
    hints = output_of('xprop', '-id', window_number, '_MOTIF_WM_HINTS')
    return int(hints.partition('=')[2].split(',')[1], 0)


@GESTURES
def test_progress_of_a_preparation_can_not_be_dismissed(installed, held_files, drive, dismiss):
    with Manager(installed) as manager:
        progress = start_copying(manager, drive)
        manager.wait_for(lambda: progress.has('active'), 'the dialog in front')
        dismiss(progress)
        # The program is told of the move after the gesture, so once it knows of it both were handled.
        move(progress, 40, 40)
        manager.wait_for(lambda: progress.rectangle[0] < 100, 'the dialog where it was moved to')
        assert manager.progress_now(COPYING)
        held_files.release()
        manager.answer(PREPARED, 'OK')


@GESTURES
def test_each_of_these_gestures_closes_a_box(installed, drive, dismiss):
    """Or else they prove nothing above."""
    with Manager(installed) as manager:
        manager.press('Preparar unidade USB')
        text = 'Compile pelo menos um bundle do Tessarine antes de preparar a unidade.'
        box = manager.dialog(text)
        manager.wait_for(lambda: box.has('active'), 'the box in front')
        dismiss(box)
        manager.wait_for(lambda: not manager.dialog_now(text), 'the end of the box')
