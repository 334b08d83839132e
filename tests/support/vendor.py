"""The vendor: publishes updates and serves them on the host that the program asks.

Takes a machine that tests/support/on-own-machine has made.
"""

import json
import os
import pathlib
import shutil
import subprocess

SUPPORT = pathlib.Path(__file__).parent
PUBLISH = SUPPORT.parents[1] / 'tools' / 'publish-update'
PLACE = '000Updates/tessarine'


def make_linux_bundle(prepared, program, directory):
    """A complete Linux bundle: the runtime that a prepared drive holds, with that program in it."""
    bundle = pathlib.Path(shutil.copytree(prepared, directory))
    shutil.copy2(program, bundle / 'Tessarine')
    (bundle / 'qt.conf').write_text('[Paths]\nLibraries = lib\nPlugins = plugins\n')
    launcher = bundle / 'Tessarine-Linux.sh'
    launcher.write_text('#!/bin/sh\nexec "$(dirname -- "$0")/Tessarine" "$@"\n')
    launcher.chmod(0o755)
    return bundle


class Vendor:
    """A server that runs until the end of the `with`, and what is published on it."""

    def __init__(self, directory):
        self._root = pathlib.Path(directory, 'root')
        self._control = pathlib.Path(directory, 'control')
        self.published = self._root / PLACE
        self.published.mkdir(parents=True)

    def __enter__(self):
        self._server = subprocess.Popen(
            [SUPPORT / 'vendor-server', '--root', self._root, '--control', self._control,
             '--certificates', os.environ['VENDOR_CERTIFICATES'], '--port', '443', '--stop-at-eof'],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        assert self._server.stdout.readline(), 'The vendor\'s server did not start'
        return self

    def __exit__(self, *_):
        self._server.communicate()

    def publish(self, windows, linux, version, notes):
        """Returns what the release engineer reads."""
        address = f'https://{os.environ["VENDOR_HOST"]}/{PLACE}/{version}.zip'
        return subprocess.run(
            [PUBLISH, '--windows', windows, '--linux', linux, '--version', version, '--url', address,
             '--output', self.published, '--notes', notes],
            check=True, stdout=subprocess.PIPE, text=True).stdout

    def hold(self, name):
        """Sends only half of that published file until release()."""
        behaviours = {f'/{PLACE}/{name}': {'kind': 'gate', 'name': name}}
        (self._control / 'behaviours.json').write_text(json.dumps(behaviours))

    def release(self, name):
        (self._control / 'gates' / name).touch()
