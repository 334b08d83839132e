"""The version that a build directory gives to the program."""

import json

import pytest
from conftest import copy_of_the_project, output


class BuildDirectory:
    def __init__(self, directory):
        self.sources = copy_of_the_project(directory / "sources")
        self.build = directory / "build"

    def configure(self, *options):
        output("cmake", "-S", self.sources, "-B", self.build, "-G", "Ninja",
               "-DTESSARINE_BUILD_TESTS=OFF", *options)

    def next_version_of_the_project(self):
        lists = self.sources / "CMakeLists.txt"
        before = lists.read_text()
        lists.write_text(before.replace("VERSION 1.0.0 ", "VERSION 1.0.1 "))
        assert lists.read_text() != before
        output("cmake", "--build", self.build, "--target", "build.ninja")

    @property
    def version(self):
        """The one that the program's source is compiled with."""
        commands = json.loads((self.build / "compile_commands.json").read_text())
        command = next(entry["command"] for entry in commands
                       if entry["file"].endswith("app/TessarineConfig.cpp"))
        return command.split('TESSARINE_VERSION=\\"')[1].split('\\"')[0]


@pytest.fixture
def build_directory(tmp_path):
    return BuildDirectory(tmp_path)


def test_next_version_of_the_project_shows_in_an_old_build_directory(build_directory):
    build_directory.configure()
    assert build_directory.version == "1.0.0"
    build_directory.next_version_of_the_project()
    assert build_directory.version == "1.0.1"


def test_version_that_was_asked_for_wins(build_directory):
    build_directory.configure("-DTESSARINE_VERSION=3.1.4")
    build_directory.next_version_of_the_project()
    assert build_directory.version == "3.1.4"
