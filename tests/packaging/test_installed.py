"""The package installed in a fresh, minimal Debian, used by an ordinary person there."""

import configparser
import subprocess
import time
from pathlib import Path

import pytest
from conftest import output

PERSON = 1000
LOGIN_PATH = "/usr/local/bin:/usr/bin:/bin:/usr/local/games:/usr/games"


def in_root(root, *command, **environment):
    """The command as a person at that Debian starts it, with an ordinary user's PATH."""
    settings = [f"{name}={value}" for name, value in environment.items()]
    return ["unshare", "--mount", f"--root={root}", "--wd=/", "--mount-proc",
            f"--setgid={PERSON}", f"--setuid={PERSON}", "env", "-i", f"PATH={LOGIN_PATH}", *settings,
            *command]


def window_line(display, title, deadline=300):
    """The line of xwininfo that shows the window, once it is on the screen."""
    end = time.monotonic() + deadline
    while time.monotonic() < end:
        tree = output("xwininfo", "-display", display, "-root", "-tree")
        for line in tree.splitlines():
            if f'"{title}"' in line:
                return line
        time.sleep(0.1)
    raise AssertionError(f"no window {title!r} among:\n{tree}")


@pytest.fixture
def program(installed_root, display):
    """The running program, started through its wrapper: its directory in /proc, and its window."""
    command = in_root(installed_root, "tessarine-config", DISPLAY=display, USER="maria")
    with subprocess.Popen(command) as started:
        try:
            yield Path(f"/proc/{started.pid}"), window_line(display, "Tessarine - Gerenciador")
        finally:
            started.terminate()


def test_program_starts_from_the_path_and_shows_its_window(program, installed_root):
    process, window = program
    assert process.joinpath("exe").resolve() == installed_root / (
        "usr/lib/tessarine-config/TessarineConfig")
    entry = configparser.ConfigParser(interpolation=None)
    entry.read(installed_root / "usr/share/applications/tessarine-config.desktop", encoding="utf-8")
    assert f'"{entry["Desktop Entry"]["StartupWMClass"]}")' in window


def test_running_program_finds_the_administrators_commands(program):
    process, _ = program
    assert f"PATH={LOGIN_PATH}:/usr/sbin:/sbin" in process.joinpath("environ").read_text().split("\0")


@pytest.mark.parametrize("command", ["ldd", "ldconfig", "pgrep", "unzip"])
def test_every_command_that_the_program_starts_is_installed(installed_root, command):
    path = f"{LOGIN_PATH}:/usr/sbin:/sbin"
    output(*in_root(installed_root, "sh", "-c", f"PATH={path} command -v {command}"))


@pytest.mark.parametrize("plugin", [
    "platforms/libqxcb.so", "imageformats/libqico.so", "tls/libqopensslbackend.so"])
def test_every_plugin_that_the_program_needs_is_installed(installed_root, plugin):
    plugins = installed_root.glob(f"usr/lib/*/qt6/plugins/{plugin}")
    assert len(list(plugins)) == 1
