"""The memory of a running process, as the kernel counts it, see proc(5). Sizes are in bytes."""

import re


def field(process, name):
    with open(f'/proc/{process.pid}/status', encoding='ascii') as status:
        return int(re.search(rf'^{name}:\s+(\d+) kB$', status.read(), re.MULTILINE)[1]) * 1024


class Growth:
    """How far a process grows beyond what it holds now, at its peak."""

    def __init__(self, process):
        self._process = process
        self._idle = field(process, 'VmRSS')
        with open(f'/proc/{process.pid}/clear_refs', 'w', encoding='ascii') as peak:
            peak.write('5')  # the peak begins anew at what is in memory now

    @property
    def peak(self):
        return field(self._process, 'VmHWM') - self._idle
