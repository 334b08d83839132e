"""What a person in front of the screen sees, and does with keyboard and mouse."""

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
    return subprocess.run(
        ['import', '-window', 'root', '-crop', f'{width}x{height}+{left}+{top}', '-depth', '8', 'rgb:-'],
        check=True, stdout=subprocess.PIPE).stdout


def is_painted(window):
    """Whether the screen shows more in the window's place than an area of one colour or two."""
    window_id(window)
    return is_painted_at(window.rectangle)


def is_painted_at(rectangle):
    shown = pixels(rectangle)
    return len({shown[at:at + 3] for at in range(0, len(shown), 3)}) > 16


def window_id(window):
    """The number by which the X server knows a window of the accessibility bus, once it shows it."""
    return wait_for(lambda: window_id_now(window), f'{window} on the screen')


def window_id_now(window):
    for number in visible_windows(window.process_id):
        if rectangle_of(number)[2:] == window.rectangle[2:]:
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


def rectangle_of(window_number):
    """Left, top, width and height, as the X server tells them."""
    geometry = output_of('xdotool', 'getwindowgeometry', '--shell', window_number)
    return tuple(int(re.search(rf'^{name}=(-?\d+)$', geometry, re.MULTILINE)[1])
                 for name in ('X', 'Y', 'WIDTH', 'HEIGHT'))


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
