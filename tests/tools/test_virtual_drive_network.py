"""The network and the certificate authority that tools/virtual-drive gives a command."""

import os
import pathlib
import subprocess
import tempfile

import pytest

ROOT = pathlib.Path(__file__).parents[2]
SUPPORT = ROOT / 'tests' / 'support'
ORDINARY_USER = ['setpriv', '--reuid=4321', '--regid=4321', '--clear-groups', '--']

# Serves the directory $1 on port 443 as vendor.example and fetches the address $2 from it.
FETCH = '''
exec {line}< <(exec "$0" --root "$1" --certificates "$1" --control "$1/control" --port 443)
server=$!
read -r -u "$line" _
/usr/bin/python3 -c 'import sys, urllib.request as r; print(r.urlopen(sys.argv[1]).read().decode())' "$2"
status=$?
kill "$server"
exit "$status"
'''


@pytest.fixture
def served():
    """A directory of the vendor's certificates that anybody may read and serve."""
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        subprocess.run([SUPPORT / 'make-test-ca', directory, 'vendor.example'], check=True)
        (directory / 'hello').write_text('published')
        (directory / 'control').mkdir()
        subprocess.run(['chmod', '-R', 'a+rwX', directory], check=True)
        yield directory


def fetch(served, address, *options, user=()):
    return subprocess.run(
        [*user, ROOT / 'tools' / 'virtual-drive', *options, '--',
         'bash', '-c', FETCH, SUPPORT / 'vendor-server', served, address],
        capture_output=True, text=True, check=False)


WITHOUT_HOSTS_FILE = ['unshare', '--mount', '--', 'sh', '-euc', """
mount --no-mtab -t tmpfs own /mnt
mkdir /mnt/changes /mnt/work
mount --no-mtab -t overlay -o lowerdir=/etc,upperdir=/mnt/changes,workdir=/mnt/work own /etc
rm -f /etc/hosts
exec "$@"
""", 'sh']


@pytest.mark.parametrize('user', [
    (), ORDINARY_USER, WITHOUT_HOSTS_FILE, [*WITHOUT_HOSTS_FILE, *ORDINARY_USER],
], ids=['root', 'ordinary-user', 'root-without-hosts-file', 'ordinary-user-without-hosts-file'])
def test_host_is_this_machine_and_authority_is_trusted(served, user):
    answer = fetch(served, 'https://vendor.example/hello',
                   '--host', 'vendor.example', '--authority', served / 'ca.pem', user=user)
    assert (answer.returncode, answer.stdout) == (0, 'published\n'), answer.stderr


def test_authority_is_not_trusted_unless_asked_for(served):
    answer = fetch(served, 'https://vendor.example/hello', '--host', 'vendor.example')
    assert 'CERTIFICATE_VERIFY_FAILED' in answer.stderr


def test_machines_own_authorities_stay_trusted(served):
    own = len(list(pathlib.Path('/etc/ssl/certs').glob('*.0')))
    counted = subprocess.run(
        [ROOT / 'tools' / 'virtual-drive', '--authority', served / 'ca.pem', '--',
         'sh', '-c', 'ls /etc/ssl/certs/*.0 | wc -l'], capture_output=True, text=True, check=True)
    assert int(counted.stdout) == own + 1


def test_no_other_host_is_reached():
    """Not even by its address: an address from the range that is kept for documentation."""
    with_network = subprocess.run(
        [ROOT / 'tools' / 'virtual-drive', '--host', 'vendor.example', '--',
         'bash', '-c', 'echo >/dev/tcp/192.0.2.1/443'], capture_output=True, text=True, check=False)
    assert 'Network is unreachable' in with_network.stderr


def test_file_that_is_no_certificate_is_refused(tmp_path):
    (tmp_path / 'ca.pem').write_text('nothing')
    refused = subprocess.run(
        [ROOT / 'tools' / 'virtual-drive', '--authority', tmp_path / 'ca.pem', '--', 'true'],
        capture_output=True, text=True, check=False)
    assert (refused.returncode, refused.stderr) == \
        (125, f'virtual-drive: {tmp_path / "ca.pem"} is no certificate\n')


def test_machine_outside_keeps_its_hosts_and_certificates(served):
    before = pathlib.Path('/etc/hosts').read_bytes(), sorted(os.listdir('/etc/ssl/certs'))
    fetch(served, 'https://vendor.example/hello',
          '--host', 'vendor.example', '--authority', served / 'ca.pem')
    assert before == (pathlib.Path('/etc/hosts').read_bytes(), sorted(os.listdir('/etc/ssl/certs')))
