"""What a person in front of the screen sees, and does with keyboard and mouse."""

import collections
import re
import subprocess

from window_driver import wait_for


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def picture_of(window_number, file):
    """Saves what the screen shows in the place of a window, its frame included, as a PNG."""
    subprocess.run(['import', '-frame', '-screen', '-window', window_number, file], check=True)


def pixels(rectangle):
    """What the screen shows there: three bytes for each pixel."""
    left, top, width, height = rectangle
    return raw_pixels('-window', 'root', '-crop', f'{width}x{height}+{left}+{top}')


def raw_pixels(*what):
    return subprocess.run(['import', *what, '-depth', '8', 'rgb:-'],
                          check=True, stdout=subprocess.PIPE).stdout


def is_painted(window):
    """Whether the screen shows more in the window's place than an area of one colour or two."""
    window_id(window)
    return len(colours(pixels(window.rectangle))) > 16


def is_dialog_painted(window_number):
    """Whether the screen shows a dialog there, with its plain ground, and not still what it covers."""
    shown = colours(raw_pixels('-screen', '-window', window_number))
    return len(shown) > 16 and max(shown.values()) > shown.total() / 3


def colours(shown):
    """How many pixels have which colour."""
    return collections.Counter(shown[at:at + 3] for at in range(0, len(shown), 3))


def window_id(window):
    """The number by which the X server knows a window of the accessibility bus, once it shows it."""
    return wait_for(lambda: window_id_now(window), f'{window} on the screen')


def window_id_now(window):
    for number in visible_windows(window.process_id):
        geometry = output_of('xdotool', 'getwindowgeometry', '--shell', number)
        size = tuple(int(value) for value in re.findall(r'(?:WIDTH|HEIGHT)=(\d+)', geometry))
        if size == window.rectangle[2:]:
            return number
    return None


def window_titled(title, process_id):
    """The number of that window of a program, or None. Works while the program stands still."""
    for number in visible_windows(process_id):
        if output_of('xdotool', 'getwindowname', number).strip() == title:
            return number
    return None


def visible_windows(process_id):
    found = subprocess.run(['xdotool', 'search', '--onlyvisible', '--pid', str(process_id)],
                           check=False, stdout=subprocess.PIPE, text=True)
    return found.stdout.split()


def move(window, left, top):
    subprocess.run(['xdotool', 'windowmove', '--sync', window_id(window), str(left), str(top)], check=True)


def press_key(key):
    """Presses a key such as "Escape" or "alt+F4", for the window that has the keyboard."""
    subprocess.run(['xdotool', 'key', key], check=True)


def click_close_button(window):
    """Clicks the button by which the window's frame closes it: its title bar's last one."""
    left, top, width, _ = window.rectangle
    extents = output_of('xprop', '-id', window_id(window), '_NET_FRAME_EXTENTS')
    title_height = int(re.findall(r'\d+', extents.partition('=')[2])[2])
    middle = title_height // 2
    subprocess.run(['xdotool', 'mousemove', str(left + width - middle), str(top - middle), 'click', '1'],
                   check=True)
