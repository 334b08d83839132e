"""Keeps a program that reads many files from coming to their end.

A lease (fcntl(2), "Leases") makes a program that opens the file wait until its holder lets go.
"""

import fcntl
import signal
import threading

PAUSE_S = 0.02


class HeldFiles:
    """Files that are opened one after the other, with a pause before each, and the last of them not
    before release(). So a program is known to be among them, and still gets to what it does between two.
    """

    def __init__(self, paths):
        signal.signal(signal.SIGIO, lambda *_: None)  # says that a program waits, else ends this one
        self._held = [path.open('rb') for path in paths]
        for file in self._held:
            fcntl.fcntl(file, fcntl.F_SETLEASE, fcntl.F_WRLCK)
        self._released = threading.Event()
        self._usher = threading.Thread(target=self._let_through)

    def __enter__(self):
        self._usher.start()
        return self

    def __exit__(self, *_):
        self.release()

    def release(self):
        """From now on nothing is held."""
        self._released.set()
        self._usher.join()
        for file in self._held:
            file.close()

    def _let_through(self):
        while len(self._held) > 1 and not self._released.wait(PAUSE_S):
            waited_for = next((file for file in self._held if is_waited_for(file)), None)
            if waited_for:
                self._held.remove(waited_for)
                waited_for.close()


def is_waited_for(file):
    return fcntl.fcntl(file, fcntl.F_GETLEASE) != fcntl.F_WRLCK
