"""The judges of power cuts and of failing sectors: which cuts there are, and what on a drive is called broken."""

import pytest

import bundles
import failing_sector
import recording
from bundles import STATE
from invariants import broken_by_preparation, broken_by_update

FIRST, SECOND, THIRD = (bytes([number]) * recording.SECTOR for number in (1, 2, 3))


def test_each_sector_of_each_write_is_a_cut_in_order():
    steps = [(8, FIRST + SECOND), None, (2, THIRD)]
    assert list(recording.prefixes(steps)) == [(8, FIRST), (9, SECOND), (2, THIRD)]


def test_stretch_ends_with_a_flush_or_the_recording():
    steps = [None, (8, FIRST), (9, SECOND), None, None, (2, THIRD)]
    assert list(recording.stretches(steps)) == [[(8, FIRST), (9, SECOND)], [(2, THIRD)]]


def test_all_parts_of_a_short_stretch_are_tried():
    parts = list(recording.subsets([(8, FIRST + SECOND)], 4, seed=0))
    assert sorted(parts) == [[], [(8, FIRST)], [(8, FIRST), (9, SECOND)], [(9, SECOND)]]


def test_so_many_parts_of_a_long_stretch_are_tried_and_none_twice():
    stretch = [(sector, FIRST) for sector in range(20)]
    parts = list(recording.subsets(stretch, 100, seed=0))
    assert len(parts) == 100
    assert len({tuple(sector for sector, _ in part) for part in parts}) == 100


def drive(version, **others):
    """What a drive with that version holds; each file has its version as its content, and its size."""
    files = [f'Tessarine/{kind}/{name}' for kind, names in bundles.FILES.items() for name in names]
    return {'carta.txt': ('letter', 5), **{path: (version, int(version)) for path in [*files, STATE]}, **others}


def without(files, beginning):
    return {path: content for path, content in files.items() if not path.startswith(beginning)}


LIBRARY = 'Tessarine/windows/Qt6Core.dll'
OLD, NEW = drive('1'), drive('2')
OLD_IN_BACKUP = {path.replace('/windows/', '/windows.backup-1/'): content for path, content in OLD.items()}


@pytest.mark.parametrize('now', [
    OLD, NEW, {**NEW, STATE: OLD[STATE]}, {**OLD, LIBRARY: NEW[LIBRARY]},
], ids=['nothing done', 'all done', 'but for the state', 'one file done'])
def test_preparation_over_an_older_bundle_may_be_cut_there(now):
    assert not list(broken_by_preparation(now, OLD, NEW))


def test_first_preparation_may_leave_a_file_cut_short():
    user = {'carta.txt': OLD['carta.txt']}
    assert not list(broken_by_preparation({**user, LIBRARY: ('half', 1)}, user, NEW))


@pytest.mark.parametrize('now, broken', [
    ({**NEW, 'carta.txt': ('', 0)}, 'carta.txt was whole'),
    (without(NEW, 'carta.txt'), 'carta.txt was whole'),
    (without(OLD, LIBRARY), f'{LIBRARY} was whole'),
    ({**OLD, STATE: ('half', 1)}, f'{STATE} was whole'),
    ({**OLD, STATE: NEW[STATE]}, 'the state is new, but'),
], ids=['letter emptied', 'letter gone', 'older file gone', 'state cut short', 'state before the bundles'])
def test_preparation_that_is_cut_there_has_broken_something(now, broken):
    assert any(one.startswith(broken) for one in broken_by_preparation(now, OLD, NEW))


def test_copy_with_the_right_size_and_other_bytes_is_broken():
    user = {'carta.txt': OLD['carta.txt']}
    now = {**user, LIBRARY: ('other', NEW[LIBRARY][1])}
    assert list(broken_by_preparation(now, user, NEW)) == [f'{LIBRARY} has the right size and other']


@pytest.mark.parametrize('now', [
    OLD, NEW, OLD_IN_BACKUP, {**OLD_IN_BACKUP, **without(NEW, STATE), STATE: OLD[STATE]},
], ids=['nothing done', 'all done', 'first bundle moved away', 'bundles swapped'])
def test_update_may_be_cut_there(now):
    assert not list(broken_by_update(now, OLD, NEW))


@pytest.mark.parametrize('now, broken', [
    (without(OLD, 'Tessarine/windows/'), 'Tessarine/windows/ is whole nowhere'),
    ({**OLD, LIBRARY: NEW[LIBRARY]}, 'Tessarine/windows/ is whole nowhere'),
    ({**OLD, STATE: NEW[STATE]}, 'the state is new, but Tessarine/windows/ is not'),
    ({**NEW, STATE: ('half', 1)}, f'{STATE} was whole'),
    (without(NEW, 'carta.txt'), 'carta.txt was whole'),
], ids=['bundle gone', 'bundle mixed', 'state before the bundles', 'state cut short', 'letter gone'])
def test_update_that_is_cut_there_has_broken_something(now, broken):
    assert any(one.startswith(broken) for one in broken_by_update(now, OLD, NEW))


def stage(tree, met, done):
    return {'tree': tree, 'met': met, 'done': done}


GOOD = {'preparation': stage(OLD, False, True), 'update': stage(NEW, False, True)}


@pytest.mark.parametrize('notes', [
    GOOD,
    {'preparation': stage({'carta.txt': OLD['carta.txt']}, True, False)},
    {'preparation': stage(OLD, False, True), 'update': stage({**OLD, **OLD_IN_BACKUP}, True, False)},
], ids=['not met', 'met by the preparation', 'met by the update'])
def test_stick_that_fails_may_come_to_that(notes):
    assert not list(failing_sector.violations(notes, GOOD))


@pytest.mark.parametrize('notes, words', [
    ({'preparation': stage(OLD, True, True), 'update': stage(NEW, False, True)}, 'the preparation was called done'),
    ({'preparation': stage(OLD, False, True), 'update': stage(NEW, True, True)}, 'the update was called done'),
    ({'preparation': stage({}, False, False)}, 'the preparation failed without the sector'),
    ({'preparation': stage({}, True, False)}, 'carta.txt was whole'),
    ({'preparation': stage(OLD, False, True), 'update': stage(without(OLD, LIBRARY), True, False)},
     'Tessarine/windows/ is whole nowhere'),
], ids=['success before an update', 'success', 'another reason', 'letter lost', 'bundle lost'])
def test_stick_that_fails_may_not_come_to_that(notes, words):
    assert [wrong for wrong in failing_sector.violations(notes, GOOD) if wrong.startswith(words)]
