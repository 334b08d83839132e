"""The demo, which fails by itself if anything that it shows isn't so."""

import os
import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).parents[2]
PICTURES = ['01-window', '02-question', '03-progress', '04-result', '05-sample-application',
            '06-update-refused', '07-update-question', '08-update-progress', '09-update-result',
            '10-sample-application']


# As a minimal root that one enters by chroot: the root of all mounts is another directory.
IN_CHROOT = ['unshare', '--mount', '--', 'sh', '-euc', """
mount --no-mtab --rbind / /mnt
cd /
exec /usr/sbin/chroot /mnt "$@"
""", 'sh']


@pytest.mark.parametrize('surroundings', [['env', 'DISPLAY=:4321'], IN_CHROOT],
                         ids=['display-that-does-not-answer', 'in-chroot'])
def test_demo_shows_what_it_claims(surroundings):
    old = ROOT / 'build' / 'demo' / '00-old.png'
    old.parent.mkdir(exist_ok=True)
    old.touch()
    environment = {key: value for key, value in os.environ.items() if key != 'DISPLAY'}
    environment['PATH'] = '/usr/bin:/bin'  # an ordinary user's, without ldconfig
    demo = subprocess.run([*surroundings, ROOT / 'tools' / 'demo', os.environ['TESSARINE_BINARY_DIR']],
                          env=environment, stdout=subprocess.PIPE, text=True, check=False)
    print(demo.stdout)
    assert demo.returncode == 0
    assert sorted(picture.stem for picture in (ROOT / 'build' / 'demo').iterdir()) == PICTURES
