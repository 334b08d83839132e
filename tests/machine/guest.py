"""What scenarios do inside of a guest, where an ordinary user works at a desktop."""

import os
import pathlib
import re
import subprocess
import sys
import time

import bundles

ROOT = pathlib.Path(__file__).resolve().parents[2]
SUPPORT = ROOT / 'tests' / 'support'
PROGRAM = ROOT / 'build' / 'release' / 'app' / 'TessarineConfig'
sys.path.insert(0, str(SUPPORT))

LONGEST_WAIT = 300  # seconds, by the guest's clock
USER, USER_ID = 'usuario', 4321
AS_USER = ('setpriv', f'--reuid={USER_ID}', f'--regid={USER_ID}', '--clear-groups')
# What a desktop's session says for its user, who sits before the machine.
MAY_MOUNT = '''polkit.addRule(function(action, subject) {
    if (action.id.indexOf("org.freedesktop.udisks2.") == 0) return polkit.Result.YES;
});
'''


def begin():
    """Makes the user, and starts what mounts drives for one."""
    for file, line in (('passwd', f'{USER}:x:{USER_ID}:{USER_ID}::/home/{USER}:/bin/bash'),
                       ('group', f'{USER}:x:{USER_ID}:')):
        with open(f'/etc/{file}', 'a', encoding='utf-8') as users:
            users.write(f'{line}\n')
    os.environ.update(USER=USER, LOGNAME=USER, HOME=f'/home/{USER}', WINDOW_DRIVER_PAUSE_S='0.3')
    home = pathlib.Path(os.environ['HOME'])
    home.mkdir(exist_ok=True)
    os.chown(home, USER_ID, USER_ID)
    rules = pathlib.Path('/etc/polkit-1/rules.d')
    rules.mkdir(parents=True, exist_ok=True)
    rules.chmod(0o755)
    (rules / '00-user.rules').write_text(MAY_MOUNT, encoding='utf-8')
    pathlib.Path('/dev/virtio-ports/hands').chmod(0o666)
    subprocess.run(['dbus-daemon', '--system', '--fork'], check=True)
    for daemon in ('/usr/lib/polkit-1/polkitd', '/usr/libexec/udisks2/udisksd'):
        subprocess.Popen([daemon], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    while subprocess.run(['udisksctl', 'status'], stdout=subprocess.DEVNULL,
                         stderr=subprocess.DEVNULL, check=False).returncode:
        time.sleep(0.1)


def wait_until(condition, what):
    """Waits for it, but not for ever."""
    end = time.monotonic() + LONGEST_WAIT
    while not condition():
        if time.monotonic() > end:
            raise TimeoutError(f'{what} within {LONGEST_WAIT} s')
        time.sleep(0.002)


def device(label):
    """The block device of the volume with that label, waited for."""
    link = pathlib.Path('/dev/disk/by-label', label)
    wait_until(link.exists, f'no {link}')
    return link.resolve()


def mount(label):
    """Mounts the volume as the user's desktop does, and returns where."""
    said = udisksctl('mount', device(label))
    return pathlib.Path(re.fullmatch(r'Mounted \S+ at (/.*?)\.?\n', said)[1])


def unmount(label):
    udisksctl('unmount', device(label))


def pull(name, label):
    """Pulls the drive out, and returns once its volume and what it was mounted on are gone."""
    _use_hands('unplug', name)
    for place in ('/dev/disk/by-label', f'/media/{USER}'):
        path = pathlib.Path(place, label)
        wait_until(lambda path=path: not path.exists(), f'{path} did not go')


def plug_in(name, label):
    """Plugs the drive in again, and returns once its volume is there."""
    _use_hands('plug', name)
    device(label)


def _use_hands(verb, name):
    with open('/dev/virtio-ports/hands', 'w', encoding='utf-8') as hands:
        hands.write(f'{verb} {name}\n')


def udisksctl(verb, device_path):
    """Asked by the user, also when this process is root's."""
    as_user = AS_USER if os.getuid() == 0 else ()
    return subprocess.run([*as_user, 'udisksctl', verb, '--no-user-interaction', '-b', device_path],
                          check=True, stdout=subprocess.PIPE, text=True).stdout


def on_desktop(scenario, *arguments):
    """Runs the scenario's part of that name, in a process of the user's where windows can be driven."""
    subprocess.run([*AS_USER, SUPPORT / 'with-desktop', SUPPORT / 'with-session',
                    '/usr/bin/python3', '-B', scenario, *arguments], check=True)


def work_on_desktops(scenario, shared, names):
    """Runs the scenario's part "work" for each name, beside the vendor's host."""
    begin()
    be_vendor(bundles.HOST, shared / 'certificates')
    for name in names:
        on_desktop(scenario, 'work', shared, name)


def be_vendor(host, certificates):
    """Makes this machine the vendor's host, with a certificate that is trusted."""
    with open('/etc/hosts', 'a', encoding='utf-8') as hosts:
        hosts.write(f'127.0.0.1 {host}\n')
    subprocess.run(['mount', '--bind', certificates / 'trusted', '/etc/ssl/certs'], check=True)
    pathlib.Path('/proc/sys/net/ipv4/ip_unprivileged_port_start').write_text('0')
    os.environ['VENDOR_HOST'] = host
    os.environ['VENDOR_CERTIFICATES'] = str(certificates)
