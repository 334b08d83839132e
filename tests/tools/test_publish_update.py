"""tools/publish-update: what it makes, what it refuses, and what an interruption leaves."""

import importlib.machinery
import itertools
import json
import os
import pathlib
import shutil
import signal
import socket
import stat
import subprocess
import sys
import types
import zipfile

import pytest

ROOT = pathlib.Path(__file__).parents[2]
TOOL = ROOT / "tools/publish-update"
COMPARE_VERSIONS = pathlib.Path(os.environ["TESSARINE_BINARY_DIR"], "tests/tools/compare-versions")
SERVER = "https://updates.example/000Updates/tessarine"

REQUIRED_FILES = [
    "windows/Tessarine.exe",
    "windows/platforms/qwindows.dll",
    "linux/Tessarine",
    "linux/Tessarine-Linux.sh",
    "linux/qt.conf",
    "linux/lib/libssl.so.3",
    "linux/plugins/tls/libqopensslbackend.so",
]


def loaded_tool():
    loader = importlib.machinery.SourceFileLoader("publish_update", str(TOOL))
    module = types.ModuleType(loader.name)
    sys.modules[loader.name] = module
    loader.exec_module(module)
    return module


tool = loaded_tool()


class Vendor:
    """A release engineer's directory with two good bundles."""

    def __init__(self, directory):
        self.directory = directory
        self.output = directory / "out"
        for name in REQUIRED_FILES:
            self.write(name, f"content of {name}\n".encode())
        for name in ("linux/Tessarine", "linux/Tessarine-Linux.sh"):
            self.path(name).chmod(0o755)

    def path(self, name):
        return self.directory / name

    def write(self, name, content=b"content"):
        path = self.path(name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(content)
        return path

    def arguments(self, version="1.1.0", **options):
        values = {
            "windows": self.path("windows"),
            "linux": self.path("linux"),
            "version": version,
            "url": f"{SERVER}/Tessarine-{version}.zip",
            "output": self.output,
        } | options
        return [
            text
            for name, value in values.items()
            if value is not None
            for text in ("--" + name.replace("_", "-"), str(value))
        ]

    def publish(self, *args, **options):
        return run(*self.arguments(*args, **options))

    def published(self, *args, **options):
        result = self.publish(*args, **options)
        assert result.returncode == 0, result.stderr
        return json.loads(self.output.joinpath("manifest.json").read_text())

    def refused(self, text, *args, **options):
        """Publishing fails with that text, and the output directory stays as it was."""
        before = tree(self.output)
        result = self.publish(*args, **options)
        assert result.returncode == 1
        assert text in result.stderr
        assert "Traceback" not in result.stderr
        assert tree(self.output) == before


@pytest.fixture
def vendor(tmp_path):
    return Vendor(tmp_path)


def run(*arguments, **options):
    return subprocess.run(
        [TOOL, *arguments], capture_output=True, text=True, check=False, **options
    )


def tree(directory):
    return {
        str(path.relative_to(directory)): path.read_bytes() if path.is_file() else None
        for path in directory.rglob("*")
    }


def unzip(package, target, locale="C.UTF-8"):
    return subprocess.run(
        ["unzip", "-q", "-o", package, "-d", target],
        env=os.environ | {"LC_ALL": locale},
        capture_output=True,
        check=False,
    )


# What is made


def test_the_manifest_describes_the_package(vendor):
    manifest = vendor.published(notes="Correções\n")
    package = vendor.output / "Tessarine-1.1.0.zip"
    sha256 = subprocess.run(["sha256sum", package], capture_output=True, check=True).stdout
    published_at = manifest.pop("publishedAt")
    assert manifest == {
        "schemaVersion": 1,
        "app": "Tessarine",
        "version": "1.1.0",
        "packageUrl": f"{SERVER}/Tessarine-1.1.0.zip",
        "sha256": sha256.decode().split()[0],
        "size": package.stat().st_size,
        "releaseNotes": "Correções",
    }
    date = subprocess.run(
        ["date", "-u", "-d", published_at, "+%FT%TZ"], capture_output=True, text=True, check=True
    )
    assert date.stdout.strip() == published_at
    assert sorted(os.listdir(vendor.output)) == ["Tessarine-1.1.0.zip", "manifest.json"]


def test_unzip_restores_both_bundles_with_their_execute_bits(vendor):
    vendor.write("linux/empty file", b"")
    vendor.path("windows/empty directory").mkdir()
    vendor.published()
    target = vendor.path("extracted")
    result = unzip(vendor.output / "Tessarine-1.1.0.zip", target)
    assert (result.returncode, result.stdout, result.stderr) == (0, b"", b"")
    assert tree(target / "Tessarine/windows") == tree(vendor.path("windows"))
    assert tree(target / "Tessarine/linux") == tree(vendor.path("linux"))
    assert os.listdir(target) == ["Tessarine"]
    modes = {
        str(path.relative_to(target)): stat.S_IMODE(path.stat().st_mode) & 0o111
        for path in target.rglob("*")
        if path.is_file()
    }
    assert {name for name, mode in modes.items() if mode} == {
        "Tessarine/linux/Tessarine",
        "Tessarine/linux/Tessarine-Linux.sh",
    }


@pytest.mark.parametrize("locale", ["C", "C.UTF-8"])
def test_names_with_blanks_and_accents_survive_unzip(vendor, locale):
    vendor.write("linux/ajuda/Seção número 1 – início.html")
    vendor.published()
    target = vendor.path("extracted")
    assert unzip(vendor.output / "Tessarine-1.1.0.zip", target, locale).returncode == 0
    assert tree(target / "Tessarine/linux") == tree(vendor.path("linux"))


def test_the_same_bundles_give_the_same_bytes(vendor, tmp_path_factory):
    other = Vendor(tmp_path_factory.mktemp("elsewhere"))
    for one in (vendor, other):
        for name in ("b", "a", "C", "é"):
            one.write(f"linux/plugins/{name}")
    for path in other.directory.rglob("*"):
        os.utime(path, (1, 2_000_000_000))
    other.path("linux/qt.conf").chmod(0o600)

    environment = os.environ | {"SOURCE_DATE_EPOCH": "1700000000"}
    assert run(*vendor.arguments(), env=environment, umask=0o022).returncode == 0
    assert run(*other.arguments(), env=environment, umask=0o077).returncode == 0
    assert tree(vendor.output) == tree(other.output)
    assert b'"publishedAt": "2023-11-14T22:13:20Z"' in tree(vendor.output)["manifest.json"]


def test_entries_are_sorted_and_bear_a_fixed_time(vendor):
    vendor.published()
    with zipfile.ZipFile(vendor.output / "Tessarine-1.1.0.zip") as package:
        names = package.namelist()
        assert names == sorted(names)
        assert {info.date_time for info in package.infolist()} == {(1980, 1, 1, 0, 0, 0)}


def test_only_empty_directories_have_an_entry(vendor):
    vendor.path("linux/empty").mkdir()
    vendor.published()
    with zipfile.ZipFile(vendor.output / "Tessarine-1.1.0.zip") as package:
        directories = [info.filename for info in package.infolist() if info.is_dir()]
    assert directories == ["Tessarine/linux/empty/"]


def test_a_web_server_may_read_both_files(vendor):
    assert run(*vendor.arguments(), umask=0o077).returncode == 0
    for path in vendor.output.iterdir():
        assert stat.S_IMODE(path.stat().st_mode) == 0o644


def test_notes_come_from_a_file(vendor):
    notes = vendor.write("notes.txt", "Primeira linha\r\nSegunda: é \"nova\"\r\n".encode())
    manifest = vendor.published(notes_file=notes)
    assert manifest["releaseNotes"] == 'Primeira linha\nSegunda: é "nova"'


@pytest.mark.parametrize(
    "notes", ["linha\n" * 13, "x" * (12 * 80 + 1)], ids=["many lines", "one long line"]
)
def test_long_notes_are_published_with_a_warning(vendor, notes):
    result = vendor.publish(notes=notes)
    assert result.returncode == 0
    assert result.stderr == (
        "publish-update: warning: the notes take 13 lines of 80 characters, more than 12\n"
    )


@pytest.mark.parametrize(
    "notes", ["linha\n" * 12, "x" * (12 * 80)], ids=["twelve lines", "one line"]
)
def test_short_notes_are_published_without_a_warning(vendor, notes):
    assert vendor.publish(notes=notes).stderr == ""


def test_notes_may_be_left_out(vendor):
    assert vendor.published()["releaseNotes"] == ""


def test_a_made_pair_passes_the_check(vendor):
    vendor.published()
    result = run("--check", vendor.output)
    assert result.returncode == 0
    assert "agree: version 1.1.0" in result.stdout


def test_a_newer_version_is_put_beside_the_older_package(vendor):
    vendor.published("1.1.0")
    older = vendor.output.joinpath("Tessarine-1.1.0.zip").read_bytes()
    vendor.write("linux/Tessarine", b"new")
    assert vendor.published("1.10.0")["version"] == "1.10.0"
    assert vendor.output.joinpath("Tessarine-1.1.0.zip").read_bytes() == older
    assert run("--check", vendor.output).returncode == 0


def test_the_summary_tells_what_users_need(vendor):
    assert "Mbit/s to fetch the package within 600 s" in vendor.publish().stdout


def test_help_names_every_option():
    result = run("--help")
    assert result.returncode == 0
    for option in ("windows", "linux", "version", "url", "output", "current", "notes", "check"):
        assert f"--{option} " in result.stdout


@pytest.mark.parametrize("option", ["windows", "linux", "version", "url", "output"])
def test_a_missing_option_is_named(vendor, option):
    result = vendor.publish(**{option: None})
    assert result.returncode == 2
    assert f"needed to publish: --{option}\n" in result.stderr


# Bundles that are refused


@pytest.mark.parametrize("name", REQUIRED_FILES)
def test_a_missing_required_file_is_refused(vendor, name):
    vendor.path(name).unlink()
    vendor.refused(f"required file is missing: Tessarine/{name}\n")


@pytest.mark.parametrize("name", REQUIRED_FILES)
def test_a_directory_in_the_place_of_a_required_file_is_refused(vendor, name):
    vendor.path(name).unlink()
    vendor.write(f"{name}/file")
    vendor.refused(f"required file is missing: Tessarine/{name}\n")


@pytest.mark.parametrize("name", ["linux/lib", "linux/plugins"])
def test_a_missing_required_directory_is_refused(vendor, name):
    shutil.rmtree(vendor.path(name))
    vendor.refused(f"required directory is missing or empty: Tessarine/{name}\n")


@pytest.mark.parametrize("name", ["windows", "linux"])
def test_a_bundle_that_is_no_directory_is_refused(vendor, name):
    vendor.refused("No such file or directory", **{name: vendor.path("absent")})
    vendor.refused("Not a directory", **{name: vendor.path("linux/qt.conf")})


def test_every_problem_is_named_at_once(vendor):
    vendor.path("linux/qt.conf").unlink()
    vendor.write("windows/a:b")
    result = vendor.publish("0.0.0")
    assert result.returncode == 1
    assert "required file is missing: Tessarine/linux/qt.conf" in result.stderr
    assert "'Tessarine/windows/a:b': has a character" in result.stderr
    assert "version 0.0.0 is not newer" in result.stderr


@pytest.mark.parametrize("target", ["libssl.so.3", "/etc/passwd", "absent", "."])
def test_symbolic_links_are_refused(vendor, target):
    vendor.path("linux/lib/link").symlink_to(target)
    vendor.refused("'Tessarine/linux/lib/link': is a symbolic link")


def test_special_files_are_refused(vendor):
    os.mkfifo(vendor.path("linux/pipe"))
    vendor.refused("'Tessarine/linux/pipe': is a special file")
    vendor.path("linux/pipe").unlink()
    with socket.socket(socket.AF_UNIX) as listener:
        listener.bind(str(vendor.path("windows/socket")))
        vendor.refused("'Tessarine/windows/socket': is a special file")


def test_a_file_of_four_gib_is_refused(vendor):
    with open(vendor.path("windows/large.bin"), "wb") as large:
        large.truncate(4 * 1024**3)
    vendor.refused("'Tessarine/windows/large.bin': has 4 GiB or more")


def test_a_file_of_one_byte_less_than_four_gib_is_fit():
    entry = tool.Entry("Tessarine/windows/large.bin", "file", 4 * 1024**3 - 1)
    assert not [text for text in tool.problems_of_entries([entry]) if "large.bin" in text]


@pytest.mark.parametrize("character", [*'"*:<>?\\|', "\x01", "\n", "\x1f", "\x7f"])
def test_reserved_characters_are_refused(vendor, character):
    vendor.write(f"linux/a{character}b")
    vendor.refused("has a character that FAT and exFAT reserve")


@pytest.mark.parametrize(
    "name",
    ["con", "Prn.txt", "AUX", "nul.tar.gz", "COM1", "lpt9.dll", "com¹", "CONIN$", "aux .txt"],
)
def test_reserved_names_are_refused(vendor, name):
    vendor.write(f"windows/{name}")
    vendor.refused("is a name that Windows reserves")


@pytest.mark.parametrize("name", ["console", "com10", "COM", "lpt0", ".con", "a.con", "nulls"])
def test_names_that_only_look_reserved_are_fit(name):
    assert not list(tool.problems_of_name(f"Tessarine/windows/{name}"))


@pytest.mark.parametrize("name", ["dot.", "blank ", "..."])
def test_names_that_end_in_a_dot_or_a_blank_are_refused(vendor, name):
    vendor.write(f"linux/{name}/file")
    vendor.refused("ends in a dot or a blank")


def test_names_that_are_not_utf_8_are_refused(vendor):
    with open(os.fsencode(vendor.path("linux")) + b"/a\xe7\xe3o", "wb"):
        pass
    vendor.refused("the name is not UTF-8")


@pytest.mark.parametrize(
    "one, other", [("readme", "README"), ("Ação", "aÇÃO"), ("d/file", "D/other")]
)
def test_names_that_differ_only_in_case_are_refused(vendor, one, other):
    vendor.write(f"linux/{one}")
    vendor.write(f"linux/{other}")
    vendor.refused("names that differ only in case")


@pytest.mark.parametrize("one, other", [("straße", "STRASSE"), ("a/file", "b/FILE"), ("e", "é")])
def test_names_that_differ_in_more_than_case_are_fit(vendor, one, other):
    vendor.write(f"linux/{one}")
    vendor.write(f"linux/{other}")
    vendor.published()


def test_names_are_measured_in_utf_16():
    longest = "😀" * 127 + "a"
    assert not any("255" in text for text in tool.problems_of_name(longest))
    assert any("255" in text for text in tool.problems_of_name(longest + "a"))


def test_a_path_too_long_for_windows_is_refused(vendor):
    prefix = "Tessarine/windows/"
    longest = "d" * 100 + "/" + "f" * (256 - len(prefix) - 101)
    vendor.write(f"windows/{longest}")
    vendor.published()
    vendor.write(f"windows/{longest}f")
    vendor.refused("the path has more than 256 characters", version="1.2.0")


def test_an_output_directory_inside_a_bundle_is_refused(vendor):
    vendor.refused("the output directory lies in a bundle", output=vendor.path("linux/out"))


def test_an_unreadable_file_is_refused(vendor):
    vendor.write("windows/secret").chmod(0)
    without_privileges = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
    result = subprocess.run(
        [*without_privileges, TOOL, *vendor.arguments()],
        capture_output=True,
        text=True,
        check=False,
    )
    assert result.returncode == 1
    assert "Permission denied" in result.stderr
    assert not tree(vendor.output)


# Versions


@pytest.mark.parametrize("current", ["1.1.0", "1.1.0.0", "1.2", "2", "1.10.0"])
def test_a_version_that_is_not_newer_is_refused(vendor, current):
    vendor.refused(f"version 1.1.0 is not newer than {current}", current=current)


@pytest.mark.parametrize("current", ["1.0.9", "1.1", "0.9.99", "1", "beta"])
def test_a_newer_version_is_published(vendor, current):
    assert vendor.published(current=current)["version"] == "1.1.0"


def test_a_version_that_is_no_number_is_refused(vendor):
    vendor.refused("version beta is not newer than 0.0.0", "beta")


def test_the_version_in_the_output_directory_counts_as_current(vendor):
    vendor.published("1.1.0")
    vendor.refused("version 1.1.0-2 is not newer than 1.1.0", "1.1.0-2")
    vendor.published("1.1.0", current="1.0.0")


def test_an_unreadable_manifest_in_the_output_directory_is_refused(vendor):
    vendor.output.mkdir()
    vendor.output.joinpath("manifest.json").write_text("{")
    vendor.refused("manifest.json: Expecting property name")
    vendor.published(current="1.0.0")


@pytest.mark.parametrize("version", ["1.1/0", "1.1 0", "", "1.1\n", "1.é"])
def test_a_version_that_is_no_part_of_a_file_name_is_refused(vendor, version):
    vendor.refused("the version has characters other than", version)


VERSIONS = [
    *("", "0", "0.0", "0.0.0", "1", "1.0", "1.2", "1.2.0", "1.2.0.0", "1.10", "1.9.99", "2", "10"),
    *("01.02", "1.2.3-rc1", "1.2.3", "1a.2", "1,2", "1.", ".1", "1..2", "-1", "1.-2", "beta"),
    *("+1.2", "1.+2", "1.++2", " 1.2", "1. 2", "1.\t\n\v\f\r2", "1 .2", "\xa01", "1.\xa02", "1.٣"),
    *("2147483647", "2147483648", "1.2147483648.3", "1.18446744073709551616", "0x10", "1_0"),
]


def test_versions_compare_as_in_the_program():
    pairs = list(itertools.product(VERSIONS, repeat=2))
    result = subprocess.run(
        [COMPARE_VERSIONS, *itertools.chain(*pairs)], capture_output=True, text=True, check=True
    )
    newer = [int(line) > 0 for line in result.stdout.split()]
    assert len(newer) == len(pairs)
    assert [tool.is_newer(one, other) for one, other in pairs] == newer


def test_a_number_of_any_length_can_be_read():
    assert tool.version_segments("0" * 5000 + "1." + "9" * 5000) == (1,)


# Addresses


@pytest.mark.parametrize(
    "address",
    [
        "http://updates.example/Tessarine-1.1.0.zip",
        "ftp://updates.example/Tessarine-1.1.0.zip",
        "//updates.example/Tessarine-1.1.0.zip",
        "Tessarine-1.1.0.zip",
        "https:///Tessarine-1.1.0.zip",
        "https://updates.example:port/Tessarine-1.1.0.zip",
        "https://updates.example:99999/Tessarine-1.1.0.zip",
        "https://[::1/Tessarine-1.1.0.zip",
        "https://updates.example/a b/Tessarine-1.1.0.zip",
        "https://updates.example/ç/Tessarine-1.1.0.zip",
        "https://updates.example/\n/Tessarine-1.1.0.zip",
        "",
    ],
)
def test_an_address_that_is_not_https_is_refused(vendor, address):
    vendor.refused("the package's address is not a valid https address", url=address)


@pytest.mark.parametrize(
    "name",
    ["Tessarine.zip", "Tessarine-1.0.0.zip", "Tessarine-11.1.0.zip", "Tessarine-1.1.0.zip.old"]
    + ["Tessarine-2.1.1.0.zip", "", "..%2F1.1.0.zip", "%54-1.1.0.zip"],
)
def test_an_address_without_the_version_is_refused(vendor, name):
    vendor.refused("the address has to end in 1.1.0.zip", url=f"{SERVER}/{name}")


@pytest.mark.parametrize("name", ["1.1.0.zip", "Tessarine-v1.1.0.zip", "Tessarine-1.1.0.zip?a=b"])
def test_the_package_is_named_as_its_address(vendor, name):
    assert vendor.published(url=f"{SERVER}/{name}")["packageUrl"] == f"{SERVER}/{name}"
    assert vendor.output.joinpath(name.removesuffix("?a=b")).is_file()


# Notes


def test_notes_that_are_not_utf_8_are_refused(vendor):
    notes = vendor.write("notes.txt", b"Corre\xe7\xe3o")
    vendor.refused("the notes are not UTF-8", notes_file=notes)
    vendor.refused("the notes are not UTF-8", notes=os.fsdecode(b"\xe7"))


def test_an_absent_file_of_notes_is_refused(vendor):
    vendor.refused("No such file or directory", notes_file=vendor.path("absent"))


# Whatever happens, the output directory holds a whole pair


def test_a_published_package_never_changes_under_its_name(vendor):
    vendor.published()
    vendor.write("linux/Tessarine", b"changed")
    vendor.refused("exists with other content", current="1.0.0")


def test_a_wrong_publication_time_is_refused(vendor, monkeypatch):
    for seconds in ("now", "", "1e9", "9" * 30):
        monkeypatch.setenv("SOURCE_DATE_EPOCH", seconds)
        vendor.refused("SOURCE_DATE_EPOCH is no time in seconds")


def test_each_file_is_on_the_disk_before_it_gets_its_name_and_the_manifest_comes_last(
    vendor, monkeypatch
):
    events = []
    fsync, replace = os.fsync, os.replace

    def recorded_fsync(descriptor):
        events.append("fsync " + pathlib.Path(f"/proc/self/fd/{descriptor}").readlink().name)
        fsync(descriptor)

    def recorded_replace(source, target):
        events.append(f"rename {os.path.basename(source)} to {os.path.basename(target)}")
        replace(source, target)

    monkeypatch.setattr(os, "fsync", recorded_fsync)
    monkeypatch.setattr(os, "replace", recorded_replace)
    call_in_process(vendor, monkeypatch)
    package, manifest = events[0].split()[1], events[3].split()[1]
    assert events == [
        f"fsync {package}",
        f"rename {package} to Tessarine-1.1.0.zip",
        "fsync out",
        f"fsync {manifest}",
        f"rename {manifest} to manifest.json",
        "fsync out",
    ]


def call_in_process(vendor, monkeypatch, *args):
    monkeypatch.setattr(sys, "argv", ["publish-update", *vendor.arguments(*args)])
    return tool.main()


def test_a_failure_of_any_system_call_leaves_a_whole_pair(vendor, monkeypatch):
    vendor.published("1.1.0")
    before = tree(vendor.output)
    for failing in itertools.count():
        calls = itertools.count()
        with monkeypatch.context() as patch:
            for name in ("fsync", "replace", "fchmod", "open"):
                patch.setattr(os, name, failing_at(failing, calls, getattr(os, name)))
            result = call_in_process(vendor, patch, "1.2.0")
        if result == 0:
            break
        after = tree(vendor.output)
        assert run("--check", vendor.output).returncode == 0
        assert not [name for name in after if name.startswith(".")]
        if after["manifest.json"] != before["manifest.json"]:
            vendor.output.joinpath("manifest.json").write_bytes(before["manifest.json"])
    assert failing > 6
    assert run("--check", vendor.output).returncode == 0


def failing_at(number, calls, function):
    def wrapper(*args, **options):
        if next(calls) == number:
            raise OSError(5, "Input/output error")
        return function(*args, **options)

    return wrapper


def test_a_full_disk_leaves_the_old_pair(vendor):
    vendor.published("1.1.0")
    before = tree(vendor.output)
    vendor.write("windows/large.bin", os.urandom(2_000_000))
    disk = vendor.path("disk")
    disk.mkdir()
    script = """
        mount -t tmpfs -o size=1m tmpfs "$1" && cp -a "$2/." "$1" && shift 2
        "$@" || result=$?
        cp -a "$DISK" "$DISK.after"
        exit "${result-0}"
    """
    result = subprocess.run(
        ["unshare", "-m", "sh", "-c", script, "sh", disk, vendor.output, TOOL]
        + vendor.arguments("1.2.0", output=disk),
        env=os.environ | {"DISK": str(disk)},
        capture_output=True,
        text=True,
        check=False,
    )
    assert result.returncode == 1, result.stderr
    assert "No space left on device" in result.stderr
    assert tree(vendor.path("disk.after")) == before


def wait_for_unfinished_package(output):
    while not any(path.stat().st_size for path in output.glob(".Tessarine-*")):
        pass


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT, signal.SIGKILL])
def test_an_interruption_leaves_the_old_pair(vendor, number):
    vendor.published("1.1.0")
    before = tree(vendor.output)
    vendor.write("windows/large.bin", os.urandom(64_000_000))
    with subprocess.Popen(
        [TOOL, *vendor.arguments("1.2.0")], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL
    ) as process:
        wait_for_unfinished_package(vendor.output)
        process.send_signal(number)
    assert process.returncode != 0
    after = tree(vendor.output)
    unfinished = {name for name in after if name.startswith(".")}
    assert {name: after[name] for name in after if name not in unfinished} == before
    assert number == signal.SIGKILL or not unfinished


# --check


def altered_manifest(vendor, **changes):
    path = vendor.output / "manifest.json"
    values = json.loads(path.read_text()) | changes
    path.write_text(json.dumps({key: value for key, value in values.items() if value is not None}))


def check_fails(vendor, text):
    before = tree(vendor.output)
    result = run("--check", vendor.output)
    assert result.returncode == 1
    assert text in result.stderr
    assert "Traceback" not in result.stderr
    assert tree(vendor.output) == before


@pytest.mark.parametrize(
    "content, text",
    [
        (b"", "Expecting value"),
        (b"{} x", "Extra data"),
        (b" \xef\xbb\xbf{}", "Expecting value"),
        (b'{"a": NaN}', "NaN is not JSON"),
        (b'{"a": "\xe7"}', "can't decode"),
        (b"[" * 100_000, "recursion"),
        (b"[]", "is not a JSON object"),
    ],
    ids=["empty", "more behind", "late mark", "no number", "no UTF-8", "deep", "array"],
)
def test_check_refuses_a_manifest_that_is_no_json_object(vendor, content, text):
    vendor.published()
    vendor.output.joinpath("manifest.json").write_bytes(content)
    check_fails(vendor, text)


@pytest.mark.parametrize(
    "change",
    [{"schemaVersion": value} for value in (None, 2, "1", True, 1.5)]
    + [{"app": value} for value in (None, "tessarine", 1)],
)
def test_check_refuses_a_manifest_of_something_else(vendor, change):
    vendor.published()
    altered_manifest(vendor, **change)
    check_fails(vendor, 'needs "schemaVersion": 1 and "app": "Tessarine"')


@pytest.mark.parametrize("key", ["version", "packageUrl", "sha256"])
@pytest.mark.parametrize("value", [None, "", 1])
def test_check_refuses_a_manifest_without_a_required_text(vendor, key, value):
    vendor.published()
    altered_manifest(vendor, **{key: value})
    check_fails(vendor, "needs version, packageUrl and sha256")


def test_check_accepts_what_the_program_accepts(vendor):
    manifest = vendor.published()
    altered_manifest(
        vendor,
        schemaVersion=1.0,
        sha256=manifest["sha256"].upper(),
        size=manifest["size"] + 0.9,
        releaseNotes=None,
        publishedAt=None,
        other=[],
    )
    path = vendor.output / "manifest.json"
    path.write_bytes(b"\xef\xbb\xbf" + path.read_bytes())
    assert run("--check", vendor.output).returncode == 0
    altered_manifest_without_mark = json.loads(path.read_text("utf-8-sig")) | {"size": "text"}
    path.write_text(json.dumps(altered_manifest_without_mark))
    assert run("--check", vendor.output).returncode == 0


@pytest.mark.parametrize("size", [0, 1, 1e18, 2**70, 10**400])
def test_check_refuses_another_size(vendor, size):
    vendor.published()
    altered_manifest(vendor, size=size)
    check_fails(vendor, f"bytes, the manifest says {int(size)}")


def test_check_refuses_another_hash(vendor):
    manifest = vendor.published()
    altered_manifest(vendor, sha256=manifest["sha256"] + " ")
    check_fails(vendor, "manifest says " + manifest["sha256"])


def test_check_refuses_a_version_that_is_never_newer(vendor):
    vendor.published()
    altered_manifest(vendor, version="beta")
    check_fails(vendor, "version 'beta' never compares as newer")


def test_check_refuses_an_address_that_is_not_https(vendor):
    vendor.published()
    altered_manifest(vendor, packageUrl="http://updates.example/Tessarine-1.1.0.zip")
    check_fails(vendor, "not a valid https address")


def test_check_needs_both_files(vendor):
    vendor.published()
    vendor.output.joinpath("Tessarine-1.1.0.zip").unlink()
    check_fails(vendor, "the package that the manifest names is missing")
    vendor.output.joinpath("manifest.json").unlink()
    check_fails(vendor, "No such file or directory")


def repacked(vendor, change):
    """Publishes, then lets change write the package anew, with a manifest that agrees with it."""
    vendor.published()
    path = vendor.output / "Tessarine-1.1.0.zip"
    change(path)
    altered_manifest(vendor, size=path.stat().st_size, sha256=tool.sha256_of(path))


def test_check_refuses_a_damaged_package(vendor):
    def damage(path):
        content = bytearray(path.read_bytes())
        with zipfile.ZipFile(path) as package:
            info = package.getinfo("Tessarine/linux/qt.conf")
        content[info.header_offset + 30 + len(info.filename) + 3] ^= 0xFF
        path.write_bytes(content)

    repacked(vendor, damage)
    check_fails(vendor, "'Tessarine/linux/qt.conf': ")


def test_check_refuses_a_cut_package(vendor):
    repacked(vendor, lambda path: os.truncate(path, path.stat().st_size - 30))
    check_fails(vendor, "File is not a zip file")


def test_check_refuses_a_package_without_a_required_file(vendor):
    def remove(path):
        with zipfile.ZipFile(path) as package:
            contents = {info: package.read(info) for info in package.infolist()}
        with zipfile.ZipFile(path, "w") as package:
            for info, content in contents.items():
                if info.filename != "Tessarine/linux/qt.conf":
                    package.writestr(info, content)

    repacked(vendor, remove)
    check_fails(vendor, "required file is missing: Tessarine/linux/qt.conf")


@pytest.mark.parametrize(
    "name, text",
    [
        ("../evil", "'..': leads out of its directory"),
        ("/evil", "'': leads out of its directory"),
        ("Tessarine//evil", "'Tessarine/': leads out of its directory"),
        ("Tessarine\\evil", "has a character that FAT and exFAT reserve"),
        ("Tessarine/linux/QT.CONF", "names that differ only in case"),
        ("Tessarine/LINUX/other", "names that differ only in case"),
        ("Tessarine/linux/qt.conf", "occurs 2 times"),
        ("Tessarine/linux/aux.txt", "is a name that Windows reserves"),
    ],
)
@pytest.mark.filterwarnings("ignore:Duplicate name")
def test_check_refuses_unsafe_names(vendor, name, text):
    def add(path):
        with zipfile.ZipFile(path, "a") as package:
            package.writestr(name, "evil")

    repacked(vendor, add)
    check_fails(vendor, text)


def test_check_refuses_symbolic_links(vendor):
    def add(path):
        link = zipfile.ZipInfo("Tessarine/linux/link")
        link.create_system = 3
        link.external_attr = (stat.S_IFLNK | 0o777) << 16
        with zipfile.ZipFile(path, "a") as package:
            package.writestr(link, "/etc/passwd")

    repacked(vendor, add)
    check_fails(vendor, "'Tessarine/linux/link': is a symbolic link")


def test_check_refuses_encrypted_entries(vendor):
    def mark_first_entry_as_encrypted(path):
        content = bytearray(path.read_bytes())
        content[content.index(b"PK\x03\x04") + 6] |= 1
        content[content.index(b"PK\x01\x02") + 8] |= 1
        path.write_bytes(content)

    repacked(vendor, mark_first_entry_as_encrypted)
    check_fails(vendor, "is encrypted")


def test_check_refuses_names_that_are_not_marked_as_utf_8(vendor):
    def unmark(path):
        content = path.read_bytes()
        name = "Tessarine/linux/x".encode()
        assert content.count(name) == 2
        path.write_bytes(content.replace(name, name[:-1] + b"\xe7"))

    vendor.write("linux/x")
    repacked(vendor, unmark)
    check_fails(vendor, "the name is not marked as UTF-8")


def test_check_refuses_an_uncommon_compression(vendor):
    def add(path):
        with zipfile.ZipFile(path, "a") as package:
            package.writestr("Tessarine/linux/x", "content", zipfile.ZIP_LZMA)

    repacked(vendor, add)
    check_fails(vendor, "is compressed in a way that unzip may not know")


def test_check_refuses_a_package_of_four_gib(vendor):
    vendor.published()
    os.truncate(vendor.output / "Tessarine-1.1.0.zip", 4 * 1024**3)
    result = run("--check", vendor.output)
    assert result.returncode == 1
    assert "Tessarine-1.1.0.zip: has 4 GiB or more" in result.stderr
