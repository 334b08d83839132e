"""What desktops, software catalogues and readers are told about the program."""

import configparser
import os
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest
from conftest import PROJECT, output

DESKTOP_ENTRY = PROJECT / "packaging/tessarine-config.desktop"
METAINFO = PROJECT / "packaging/example.velmora.TessarineConfig.metainfo.xml"
MANUALS = sorted((PROJECT / "packaging/man").rglob("*.1"))
WITHOUT_BUNDLES = "Compile pelo menos um bundle do Tessarine antes de preparar a unidade."


def test_desktop_entry_is_valid():
    assert output("desktop-file-validate", "--warn-kde", DESKTOP_ENTRY) == ""


@pytest.mark.parametrize("key", ["Name", "GenericName", "Comment", "Keywords"])
def test_desktop_entry_speaks_english_and_portuguese(key):
    entry = configparser.ConfigParser(interpolation=None)
    entry.optionxform = str
    entry.read(DESKTOP_ENTRY, encoding="utf-8")
    assert entry["Desktop Entry"][key] != entry["Desktop Entry"][f"{key}[pt_BR]"]


def test_metainfo_is_valid():
    output("appstreamcli", "validate", "--no-net", METAINFO)


def test_metainfo_names_the_desktop_entry_and_the_newest_version():
    metainfo = ElementTree.parse(METAINFO)
    assert metainfo.findtext("launchable") == DESKTOP_ENTRY.name
    newest = output("dpkg-parsechangelog", "-l", PROJECT / "packaging/changelog", "-S", "Version")
    assert metainfo.find("releases/release").get("version") == newest.strip().removesuffix("-1")


@pytest.mark.parametrize("manual", MANUALS, ids=lambda manual: manual.parent.name)
def test_manual_has_no_warnings(manual):
    formatted = subprocess.run(
        ["man", "--warnings", "-E", "UTF-8", "-l", manual], capture_output=True, text=True,
        env=os.environ | {"LC_ALL": "C.UTF-8", "MANWIDTH": "80", "MANROFFSEQ": ""})
    assert (formatted.returncode, formatted.stderr) == (0, "")
    assert "/usr/lib/tessarine-config/bundles/linux-x64" in formatted.stdout


@pytest.mark.parametrize("document", [
    *MANUALS, PROJECT / "packaging/bundles/LEIA-ME.txt", PROJECT / "README.md",
], ids=lambda document: f"{document.parent.name}/{document.name}")
def test_message_of_a_program_without_bundles_is_explained(document):
    assert WITHOUT_BUNDLES in document.read_text(encoding="utf-8")


def test_there_is_an_english_and_a_portuguese_manual():
    assert [manual.parent.name for manual in MANUALS] == ["pt_BR", "man"]
