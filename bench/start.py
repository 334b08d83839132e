"""From exec to the first painted window, and the memory of the idle one."""

import os
import pathlib
import subprocess
import sys
import time

from drives import MEGABYTE
from measuring import Side, compare

SUPPORT = pathlib.Path(__file__).parents[1] / 'tests/support'
sys.path.insert(0, str(SUPPORT))

from process_memory import field  # noqa: E402


class Display:
    """An X server of its own."""

    def __enter__(self):
        self._server = subprocess.Popen(
            [SUPPORT / 'with-display', 'sh', '-c', 'echo $DISPLAY; cat'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.name = self._server.stdout.readline().strip()
        return self

    def __exit__(self, *_):
        self._server.stdin.close()
        self._server.wait()


def started(build, program, display):
    """The program, and the seconds until its window was on the screen."""
    environment = {**os.environ, 'DISPLAY': display.name, 'QT_QPA_PLATFORM': 'xcb',
                   'QT_LOGGING_RULES': '*.warning=false',
                   'LD_PRELOAD': str(build / 'bench/libpaint_watch.so')}
    begin = time.monotonic()
    process = subprocess.Popen([build / program], env=environment, stdout=subprocess.PIPE, text=True)
    return process, float(process.stdout.readline()) - begin


def stop(process):
    process.terminate()
    process.wait()
    process.stdout.close()


def idle_memory(build, program, display):
    """In MB, once nothing more goes on: the processor time stands still."""
    process, _ = started(build, program, display)
    ticks = None
    while ticks != (ticks := cpu_time(process)):
        time.sleep(0.3)
    memory = field(process, 'VmRSS') / MEGABYTE
    stop(process)
    return memory


def cpu_time(process):
    with open(f'/proc/{process.pid}/stat', encoding='ascii') as stat:
        return stat.read().rpartition(')')[2].split()[11:13]


def start(build, rounds):
    def time_of(program):
        process, seconds = started(build, program, display)
        stop(process)
        return seconds

    programs = {'ours': 'app/TessarineConfig', 'empty `QMainWindow`': 'bench/empty_window'}
    goals = {'empty `QMainWindow`': 1.3}
    with Display() as display:
        for what, cost, unit, times in (('to the first painted window', time_of, 's', 4 * rounds),
                                        ('memory of the idle window',
                                         lambda program: idle_memory(build, program, display), 'MB',
                                         rounds)):
            yield compare(what, [Side(name, lambda program=program: cost(program), goals.get(name))
                                 for name, program in programs.items()], times, unit)
