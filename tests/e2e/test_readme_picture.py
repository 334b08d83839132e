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
    assert any(differing_pixels(picture_of_start(installed, tmp_path / f'{start}.png')) == 0
               for start in range(STARTS)), \
        'docs/window.png is out of date: run tools/demo and put build/demo/01-window.png there'


def picture_of_start(program, file):
    with Manager(program) as manager:
        manager.wait_for(lambda: manager.main.has('active') and is_painted(manager.main), 'the painted window')
        picture_of(window_id(manager.main), file)
    return file


def differing_pixels(picture):
    """How many there are, or more than any picture has if the sizes differ."""
    comparison = subprocess.run(['compare', '-metric', 'AE', PICTURE, picture, 'null:'],
                                stderr=subprocess.PIPE, text=True, check=False)
    return float(comparison.stderr) if comparison.returncode in (0, 1) else float('inf')
