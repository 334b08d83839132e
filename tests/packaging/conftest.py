"""The package, built twice from two copies of the sources, and a fresh Debian that it is installed in."""

import os
import platform
import shutil
import subprocess
import tempfile
from pathlib import Path

import pytest

PROJECT = Path(__file__).resolve().parents[2]


def output(*command, **options):
    """Standard output of a command that must succeed."""
    return subprocess.run(command, check=True, text=True, stdout=subprocess.PIPE, **options).stdout


@pytest.fixture(scope="session")
def workspace():
    with tempfile.TemporaryDirectory(prefix="tessarine-packaging-") as directory:
        os.chmod(directory, 0o755)  # the ordinary user of the installed program passes through
        yield Path(directory)


def build_package(sources, copy_function, umask, **environment):
    ignored = shutil.ignore_patterns("build", ".git")
    shutil.copytree(PROJECT, sources, ignore=ignored, copy_function=copy_function)
    inherited = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    lines = output(sources / "packaging/build-package", env=inherited | environment, umask=umask)
    return Path(lines.splitlines()[-1])


@pytest.fixture(scope="session")
def package(workspace):
    return build_package(workspace / "sources", shutil.copy2, umask=0o022, TZ="UTC")


@pytest.fixture(scope="session")
def package_built_elsewhere(workspace):
    """Another directory, newer files, another umask, another time zone."""
    sources = workspace / "elsewhere/a longer name"
    return build_package(sources, shutil.copy, umask=0o077, TZ="America/Sao_Paulo")


@pytest.fixture(scope="session")
def content(workspace, package):
    """The files of the package, unpacked and not installed."""
    directory = workspace / "content"
    output("dpkg-deb", "--extract", package, directory)
    return directory


@pytest.fixture(scope="session")
def installed_root(workspace, package):
    """A minimal Debian of this machine's release, from its own sources, with the package installed."""
    sources = output("apt-get", "indextargets", "--format", "deb $(REPO_URI) $(RELEASE) $(COMPONENT)",
                     "Created-By: Packages", "Origin: Debian")
    assert sources, "apt knows no Debian packages on this machine: run apt-get update"
    root = workspace / "root"
    release = platform.freedesktop_os_release()["VERSION_CODENAME"]
    output("mmdebstrap", "--quiet", "--variant=minbase", f"--include={package}",
           "--hook-dir=/usr/share/mmdebstrap/hooks/file-mirror-automount",  # takes the package inside
           release, root, "-", input=sources)
    return root


@pytest.fixture
def display():
    """An X server of the test's own; its value is that of DISPLAY."""
    with_display = PROJECT / "tests/support/with-display"
    with subprocess.Popen([with_display, "sh", "-c", 'echo "$DISPLAY"; exec cat'], text=True,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as server:
        yield server.stdout.readline().strip()
        server.stdin.close()
