"""The picture of the house shows what the code does."""

import html
import pathlib
import re

ROOT = pathlib.Path(__file__).parents[2]
UNITS = {path.stem: path for area in ('app', 'core', 'deployment', 'platform')
         for path in ROOT.joinpath(area).rglob('*.cpp')}
COMMANDS = ('ldconfig', 'ldd', 'pgrep', 'unzip')


def drawn_arrows():
    picture = ROOT.joinpath('docs/architecture.dot').read_text(encoding='utf-8')
    return set(re.findall(r'"(\w+)" -> "(\w+)"', picture))


def text_of(unit):
    header = unit.with_suffix('.h')
    return unit.read_text(encoding='utf-8') + (header.read_text(encoding='utf-8')
                                               if header.exists() else '')


def real_arrows():
    for name, path in UNITS.items():
        text = text_of(path)
        included = re.findall(r'#include "(?:\w+/)+(\w+)\.h"', text)
        started = [command for command in COMMANDS if f'QStringLiteral("{command}")' in text]
        yield from ((name, other) for other in {*included, *started} - {name})


def test_arrows_are_the_includes_and_the_commands_of_the_code():
    assert drawn_arrows() == set(real_arrows())


def test_every_unit_is_drawn():
    picture = ROOT.joinpath('docs/architecture.dot').read_text(encoding='utf-8')
    assert [name for name in UNITS if f'"{name}"' not in picture] == []


def test_drawing_was_made_from_the_text():
    drawing = html.unescape(ROOT.joinpath('docs/architecture.svg').read_text(encoding='utf-8'))
    assert set(re.findall(r'<title>(\w+)->(\w+)</title>', drawing)) == drawn_arrows()


def test_map_is_no_longer_than_two_pages():
    lines = ROOT.joinpath('docs/architecture.md').read_text(encoding='utf-8').splitlines()
    assert len(lines) <= 120
