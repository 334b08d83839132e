"""The Debian package as a file."""

import re
import shutil
import subprocess

from conftest import PROJECT, output

PROGRAM = "usr/lib/tessarine-config/TessarineConfig"


def field(package, name):
    return output("dpkg-deb", "--field", package, name).strip()


def test_two_builds_in_two_directories_are_equal(package, package_built_elsewhere):
    assert package.parent != package_built_elsewhere.parent
    assert package.read_bytes() == package_built_elsewhere.read_bytes()


def test_options_make_another_program_and_are_told(customised):
    content, printed = customised
    assert printed[-2] == "Version 2.0.0-1, update server https://updates.example"
    program = (content / PROGRAM).read_bytes()
    for text in "2.0.0", "https://updates.example/000Updates/":
        assert text.encode("utf-16-le") in program


def test_options_of_an_earlier_call_and_its_package_are_gone(package_built_elsewhere):
    assert list(package_built_elsewhere.parent.glob("*.deb")) == [package_built_elsewhere]
    assert package_built_elsewhere.name.startswith("tessarine-config_1.0.0-1_")


def test_lintian_finds_neither_errors_nor_warnings(package):
    checked = subprocess.run(["lintian", "--allow-root", "--fail-on=error,warning", package],
                             capture_output=True, text=True)
    assert (checked.returncode, checked.stdout) == (0, "")


def test_holds_the_program_its_place_for_bundles_and_its_descriptions(content):
    icons = [f"{size}x{size}/apps/tessarine-config.png" for size in (16, 32, 48, 64, 128, 256)]
    icons.append("scalable/apps/tessarine-config.svg")
    expected = {
        "usr/bin/tessarine-config",
        PROGRAM,
        "usr/lib/tessarine-config/bundles/LEIA-ME.txt",
        "usr/lib/tessarine-config/bundles/linux-x64",
        "usr/lib/tessarine-config/bundles/windows-x64",
        "usr/share/applications/tessarine-config.desktop",
        "usr/share/doc/tessarine-config/changelog.Debian.gz",
        "usr/share/doc/tessarine-config/copyright",
        "usr/share/lintian/overrides/tessarine-config",
        "usr/share/man/man1/tessarine-config.1.gz",
        "usr/share/man/pt_BR/man1/tessarine-config.1.gz",
        "usr/share/metainfo/example.velmora.TessarineConfig.metainfo.xml",
    } | {f"usr/share/icons/hicolor/{icon}" for icon in icons}
    leaves = {path for path in content.rglob("*") if not path.is_dir() or not any(path.iterdir())}
    assert {str(leaf.relative_to(content)) for leaf in leaves} == expected


def test_bundle_directories_are_empty_since_their_content_goes_to_the_drives(content):
    for platform in "linux-x64", "windows-x64":
        assert not any((content / "usr/lib/tessarine-config/bundles" / platform).iterdir())


def test_purge_leaves_the_bundles_that_were_put_there_and_nothing_else(package, tmp_path):
    status = tmp_path / "var/lib/dpkg/status"
    status.parent.mkdir(parents=True)
    status.touch()
    dpkg = ["dpkg", f"--root={tmp_path}", "--force-depends"]
    output(*dpkg, "--install", package, stderr=subprocess.DEVNULL)
    bundle = tmp_path / "usr/lib/tessarine-config/bundles/linux-x64/Tessarine"
    bundle.touch()
    output(*dpkg, "--purge", "tessarine-config", stderr=subprocess.DEVNULL)
    assert [path for path in (tmp_path / "usr").rglob("*") if path.is_file()] == [bundle]


def test_depends_on_qt_with_its_plugins_and_on_the_commands_that_it_starts(package):
    # Debian 13 has libraries of the name with t64 at its end.
    wanted = [re.sub(r"(t64)?( \(.*\))?$", "", name) for name in field(package, "Depends").split(", ")]
    assert len(wanted) == len(set(wanted))
    assert set(wanted) >= {
        "libqt6core6", "libqt6gui6", "libqt6network6", "libqt6widgets6",
        "ca-certificates", "libc-bin", "libssl3", "procps", "unzip"}


def test_version_is_that_of_the_changelog(package):
    newest = output("dpkg-parsechangelog", "-l", PROJECT / "packaging/changelog", "-S", "Version")
    assert field(package, "Version") == newest.strip()


def test_program_holds_no_path_of_the_building_machine(content, workspace):
    program = (content / PROGRAM).read_bytes()
    assert b"/mnt/tessarinetools/TessarineConfig/../Tessarine" in program
    for path in workspace, PROJECT:
        assert bytes(path) not in program


def test_program_is_stripped_position_independent_and_bound_at_start(content):
    elf = output("readelf", "--wide", "--file-header", "--dynamic", "--sections", content / PROGRAM)
    assert re.search(r"Flags:.* NOW.* PIE", elf)
    assert ".symtab" not in elf


def test_program_checks_its_stack_and_its_buffers(content):
    symbols = output("readelf", "--wide", "--dyn-syms", content / PROGRAM)
    assert "__stack_chk_fail" in symbols


def test_wrapper_adds_the_administrators_directories_and_passes_the_arguments(content, tmp_path):
    (tmp_path / "bin").mkdir()
    (tmp_path / "lib/tessarine-config").mkdir(parents=True)
    program = tmp_path / "lib/tessarine-config/TessarineConfig"
    program.write_text("#!/bin/sh\nprintf '%s\\n' \"$PATH\" \"$@\"\n")
    program.chmod(0o755)
    shutil.copy(content / "usr/bin/tessarine-config", tmp_path / "bin")
    (tmp_path / "link").symlink_to("bin/tessarine-config")
    for start in tmp_path / "bin/tessarine-config", tmp_path / "link":
        printed = output(start, "a b", "", "$HOME", env={"PATH": "/usr/bin:/bin"}, cwd="/")
        assert printed.splitlines() == ["/usr/bin:/bin:/usr/sbin:/sbin", "a b", "", "$HOME"]
