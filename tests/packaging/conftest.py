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


def copy_of_the_project(directory, copy_function=shutil.copy2):
    return Path(shutil.copytree(PROJECT, directory, ignore=shutil.ignore_patterns("build", ".git"),
                                copy_function=copy_function))


def build_package(sources, *options, umask=0o022, **environment):
    """What packaging/build-package prints: at the end a line on the package, and where it lies."""
    inherited = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    return output(sources / "packaging/build-package", *options, env=inherited | environment,
                  umask=umask).splitlines()


@pytest.fixture(scope="session")
def package(workspace):
    sources = copy_of_the_project(workspace / "sources")
    return Path(build_package(sources, TZ="UTC")[-1])


@pytest.fixture(scope="session")
def customised(workspace):
    """A package of another version and for another server: its content, and what was printed of it."""
    sources = copy_of_the_project(workspace / "elsewhere/a longer name", shutil.copy)
    printed = build_package(sources, "-DTESSARINE_VERSION=2.0.0",
                            "-DTESSARINE_UPDATE_ENDPOINT=https://updates.example")
    content = workspace / "customised"
    output("dpkg-deb", "--extract", printed[-1], content)
    return content, printed


@pytest.fixture(scope="session")
def package_built_elsewhere(customised):
    """Another directory, newer files, another umask, another time zone, and after other options."""
    sources = Path(customised[1][-1]).parents[2]
    return Path(build_package(sources, umask=0o077, TZ="America/Sao_Paulo")[-1])


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
