"""The picture of the window in the README, which the demo takes."""

import pathlib
import subprocess

from manager import Manager
from screen import is_painted, picture_of, window_id

PICTURE = pathlib.Path(__file__).parents[2] / 'docs' / 'window.png'
# Each start draws one of two backdrops. The one in the README stays away from so many once in 2**20.
STARTS = 20


def test_picture_in_the_readme_shows_todays_window(installed, tmp_path):
    for bundle in ('windows-x64/Tessarine.exe', 'linux-x64/Tessarine'):
        file = installed.parent / 'bundles' / bundle
        file.parent.mkdir(parents=True)
        file.touch()
    starts = (picture_of_start(installed, tmp_path / f'{start}.png') for start in range(STARTS))
    assert any(is_as_in_the_readme(*start) for start in starts), \
        'docs/window.png is out of date: run tools/demo and put build/demo/01-window.png there'


def picture_of_start(program, file):
    """The picture, and where on the screen the list of drives is."""
    with Manager(program) as manager:
        manager.wait_for(lambda: manager.main.has('active') and is_painted(manager.main), 'the painted window')
        picture_of(window_id(manager.main), file)
        return file, manager.main.labelled('combo box', 'Unidade USB:').rectangle


def is_as_in_the_readme(picture, drives):
    return pixels_without(drives, picture) == pixels_without(drives, PICTURE)


def pixels_without(drives, picture):
    """The whole screen's but for those of the list of drives, whose line newer Qt draws a pixel aside."""
    left, top, width, height = drives
    return subprocess.run(['convert', picture, '-flatten', '-region', f'{width}x{height}+{left}+{top}',
                           '-colorize', '100', 'rgb:-'], check=True, stdout=subprocess.PIPE).stdout
