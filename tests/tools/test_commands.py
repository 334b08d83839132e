"""What the commands in script/ and the demo say where they lack something, and how script/test reports."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

ROOT = pathlib.Path(__file__).parents[2]
ORDINARY_USER = ['setpriv', '--reuid=4321', '--regid=4321', '--clear-groups', '--']
MAY_NOT_MOUNT = ['setpriv', '--bounding-set=-sys_admin', '--']
ROOT_OF_A_NAMESPACE = ['unshare', '--user', '--map-root-user', '--']
USER_WITHOUT_NAMESPACES = [
    *ORDINARY_USER, 'unshare', '--user', '--map-current-user', '--keep-caps', '--', 'sh', '-c',
    'echo 0 >/proc/sys/user/max_user_namespaces && exec setpriv --inh-caps=-all --ambient-caps=-all "$@"',
    'sh']
WITHOUT_LOOP_DEVICES = ['unshare', '--mount', '--', 'sh', '-c',
                        'mount --no-mtab -t tmpfs own /dev && exec "$@"', 'sh']
DISPLAY = ROOT / 'tests/support/with-display'


class Checkout:
    """The commands in a directory of their own, as git gives them to somebody."""

    def __init__(self, directory):
        self.directory = directory
        for part in ('script', 'tools', 'tests/support', 'tests/sample-app'):
            shutil.copytree(ROOT / part, directory / part)
        self.keep('build/demo/01-old.png', '')
        self.environment = {name: value for name, value in os.environ.items()
                            if name not in ('DISPLAY', 'SUDO_UID')}
        self.environment.update(GIT_CONFIG_GLOBAL='/dev/null', GIT_CONFIG_SYSTEM='/dev/null')

    def keep(self, name, text):
        file = self.directory / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text, encoding='utf-8')
        return file

    def know_files(self):
        self.run('git', 'init', '--quiet')
        self.run('git', 'add', '--all')

    def run(self, *command, **environment):
        return subprocess.run(command, cwd=self.directory, env=self.environment | environment,
                              capture_output=True, text=True, check=False, timeout=300)

    @property
    def built(self):
        return sorted(str(path.relative_to(self.directory / 'build'))
                      for path in (self.directory / 'build').rglob('*'))


@pytest.fixture
def checkout():
    with tempfile.TemporaryDirectory() as directory:
        os.chmod(directory, 0o755)  # ordinary users pass through
        checkout = Checkout(pathlib.Path(directory))
        checkout.know_files()
        yield checkout


def check_refusal(checkout, result, sentence):
    """It ended with that one sentence, and neither built anything nor lost the pictures of a demo."""
    assert (result.returncode, result.stdout, result.stderr) == (1, '', sentence + '\n')
    assert checkout.built == ['demo', 'demo/01-old.png']


# --- what is missing ---

@pytest.mark.parametrize('surroundings, sentence', [
    pytest.param(ORDINARY_USER,
                 "this mounts drives and needs root: 'sudo script/test'.", id='without-root'),
    pytest.param(MAY_NOT_MOUNT,
                 'root may not mount here: use a machine of its own, or a container with --privileged.',
                 id='root-that-may-not-mount'),
    pytest.param(ROOT_OF_A_NAMESPACE,
                 "some tests need namespaces of ordinary users: as the machine's own root, allow them "
                 "with 'sysctl user.max_user_namespaces=10000'.", id='root-of-a-namespace'),
    pytest.param(WITHOUT_LOOP_DEVICES,
                 "there are no loop devices here: 'modprobe loop', or give the container the machine's /dev.",
                 id='without-loop-devices'),
])
def test_tests_name_what_they_lack(checkout, surroundings, sentence):
    check_refusal(checkout, checkout.run(*surroundings, 'script/test'), f'script/test: {sentence}')


@pytest.mark.parametrize('argument', ['release', '--next', '--faults', '--fuzz', '--machine'])
def test_tests_of_one_preset_or_release_need_root_too(checkout, argument):
    check_refusal(checkout, checkout.run(*ORDINARY_USER, 'script/test', argument),
                  f'script/test {argument}: this mounts drives and needs root: '
                  f"'sudo script/test {argument}'.")


@pytest.mark.parametrize('arguments', [['Release'], ['--nextt'], ['release', 'clang']], ids=' '.join)
def test_tests_of_what_is_unknown_tell_what_there_is(checkout, arguments):
    result = checkout.run('script/test', *arguments)
    assert (result.returncode, result.stdout) == (2, '')
    assert result.stderr == ('Usage: script/test [release | clang | debug | sanitize | --next | --faults | --fuzz | '
                             '--machine]\n')


def refusal_of_git(checkout):
    return ("script/test: git knows no files here: use a clone ('git clone'), and if it is another "
            f"user's, 'git config --global --add safe.directory {checkout.directory}'.")


def test_tests_in_a_directory_that_is_no_clone_say_so(checkout):
    shutil.rmtree(checkout.directory / '.git')
    check_refusal(checkout, checkout.run('script/test'), refusal_of_git(checkout))


def test_tests_in_the_clone_of_another_user_say_so(checkout):
    checkout.run('chown', '--recursive', '4321', '.')
    check_refusal(checkout, checkout.run('script/test'), refusal_of_git(checkout))


def test_tests_without_a_source_to_check_fail_instead_of_reading_their_input(checkout):
    checkout.run('git', 'rm', '--quiet', '--cached', '-r', 'tests')
    result = checkout.run('script/test')
    assert result.returncode == 1
    assert result.stderr == 'script/test: git knows no *.cpp here, so there is nothing to check.\n'


@pytest.mark.parametrize('command', [['script/run', '--demo'], ['tools/demo']], ids=' '.join)
def test_demo_of_a_user_who_may_not_make_namespaces_says_what_to_do(checkout, command):
    result = checkout.run(*USER_WITHOUT_NAMESPACES, *command)
    check_refusal(checkout, result, f'{command[0]}: ordinary users may not make namespaces here: start '
                  "it as root, or let root allow it with 'sysctl user.max_user_namespaces=10000'.")


def test_demo_of_root_who_may_not_mount_says_what_to_do(checkout):
    check_refusal(checkout, checkout.run(*MAY_NOT_MOUNT, 'script/run', '--demo'),
                  'script/run: root may not mount here: use a machine of its own, or a container with '
                  '--privileged.')


def test_benchmarks_name_the_root_that_they_need(checkout):
    check_refusal(checkout, checkout.run(*ORDINARY_USER, 'script/bench'),
                  "script/bench: this mounts drives and needs root: 'sudo script/bench'.")


def test_benchmarks_need_no_namespaces_of_ordinary_users(checkout):
    result = checkout.run(*ROOT_OF_A_NAMESPACE, *WITHOUT_LOOP_DEVICES, 'script/bench')
    check_refusal(checkout, result, "script/bench: there are no loop devices here: 'modprobe loop', or "
                  "give the container the machine's /dev.")


def test_demo_of_what_has_not_been_built_says_what_builds_it(checkout):
    check_refusal(checkout, checkout.run('tools/demo', 'build'),
                  f'tools/demo: nothing has been built in {checkout.directory}/build yet: '
                  "'script/run --demo' does it.")


@pytest.mark.parametrize('display', ['', ':4321'], ids=['no-display', 'display-that-does-not-answer'])
def test_program_without_a_display_says_what_to_do(checkout, display):
    check_refusal(checkout, checkout.run('script/run', DISPLAY=display),
                  f"script/run: no display answers (DISPLAY is '{display}'): start it from a desktop, or "
                  "let 'script/run --demo' show the program without one.")


@pytest.mark.parametrize('display', [['--unset=DISPLAY'], ['DISPLAY='], ['DISPLAY=:4321']],
                         ids=['no-display', 'empty-display', 'display-that-does-not-answer'])
def test_suite_that_is_started_by_hand_without_a_display_names_what_gives_it_one(checkout, display):
    suite = pathlib.Path(os.environ['TESSARINE_BINARY_DIR'], 'tests/app/about_test')
    result = checkout.run('env', '--unset=QT_QPA_PLATFORM', *display, suite)
    assert (result.returncode, result.stdout) == (1, '')
    assert result.stderr == ('This suite opens windows and no display answers: '
                             f'start it with tests/support/with-display {suite}\n')


def test_machine_that_lacks_nothing_is_passed_in_silence(checkout):
    result = checkout.run(DISPLAY, 'script/require', 'it', 'display', 'namespaces', 'root', 'users', 'loop',
                          'git')
    assert (result.returncode, result.stdout, result.stderr) == (0, '', '')


def test_failed_demo_keeps_the_pictures_of_the_one_before(checkout):
    checkout.keep('build/release/CMakeCache.txt', 'TESSARINE_UPDATE_ENDPOINT:STRING=https://velmora.example')
    checkout.keep('build/release/tests/sample-app/1.1.0/Tessarine', '').chmod(0o755)
    result = checkout.run('tools/demo')
    assert result.returncode == 1 and 'Install the manager' in result.stdout
    assert [path for path in checkout.built if 'demo' in path] == ['demo', 'demo/01-old.png']


# --- packages ---

PACKAGES = '# A list.\n[run]\nabsent-of-run\nbash\n[demo]\nabsent-of-demo\n'
USED_BY_SETUP = ('awk', 'bash', 'dirname', 'dpkg-query', 'env', 'grep', 'id')


@pytest.fixture
def setup(checkout):
    """Runs script/setup with that list, as a user who is not root and has no sudo."""
    checkout.keep('script/packages.txt', PACKAGES)
    commands = checkout.directory / 'commands'
    commands.mkdir()
    for name in USED_BY_SETUP:
        (commands / name).symlink_to(shutil.which(name))
    return lambda *parts: checkout.run(*ORDINARY_USER, 'env', f'PATH={commands}', 'script/setup', *parts)


@pytest.mark.parametrize('parts, packages', [
    (['run'], 'absent-of-run'),
    (['demo'], 'absent-of-demo'),
    (['run', 'demo'], 'absent-of-run absent-of-demo'),
    ([], 'absent-of-run absent-of-demo'),
], ids=['run', 'demo', 'both', 'all'])
def test_setup_without_sudo_names_the_packages_that_need_root(setup, parts, packages):
    result = setup(*parts)
    assert (result.returncode, result.stdout) == (1, '')
    assert result.stderr == ('script/setup: run this as root, since there is no sudo here and these '
                             f'packages have to be installed: {packages}\n')


@pytest.mark.parametrize('state', ['installed', 'triggers-awaited', 'triggers-pending'])
def test_setup_takes_a_package_that_another_apt_still_works_on_for_installed(setup, checkout, state):
    command = checkout.directory / 'commands' / 'dpkg-query'
    command.unlink()
    command.write_text(f'#!/bin/sh\necho {state}\n')
    command.chmod(0o755)
    result = setup()
    assert (result.returncode, result.stdout, result.stderr) == (0, '', '')


def test_setup_of_an_unknown_part_is_refused(setup):
    result = setup('run', 'dem')
    assert (result.returncode, result.stdout) == (2, '')
    assert result.stderr == 'script/setup: script/packages.txt has no part "dem".\n'


def test_readme_gives_the_reason_of_each_package_and_of_no_other():
    listed = {line for line in (ROOT / 'script/packages.txt').read_text().splitlines()
              if line and line[0] not in '#['}
    table = (ROOT / 'README.md').read_text().split('| package | why |\n|---|---|\n')[1].split('\n\n')[0]
    explained = [name for row in table.splitlines() for name in row.split('|')[1].strip().split(', ') if name]
    assert sorted(explained) == sorted(listed)


# --- the report of script/test ---

PRESETS = '''{"version": 6,
  "configurePresets": [
    {"name": "release", "generator": "Ninja", "binaryDir": "build/release",
     "cacheVariables": {"CMAKE_EXPORT_COMPILE_COMMANDS": "ON"}},
    {"name": "sanitize", "inherits": "release", "binaryDir": "build/sanitize",
     "cacheVariables": {"CMAKE_CXX_FLAGS": "--coverage"}}],
  "buildPresets": [{"name": "release", "configurePreset": "release"},
                   {"name": "sanitize", "configurePreset": "sanitize"}],
  "testPresets": [{"name": "release", "configurePreset": "release"},
                  {"name": "sanitize", "configurePreset": "sanitize"}]}
'''
LISTS = '''cmake_minimum_required(VERSION 3.25)
project(Small LANGUAGES CXX)
enable_testing()
file(MAKE_DIRECTORY ${CMAKE_BINARY_DIR}/results)
add_executable(small app/small.cpp)
add_test(NAME small COMMAND small ${CMAKE_BINARY_DIR}/results/small.xml)
'''
SOURCE = '''#include "Small.h"

int main(int /*argc*/, char *argv[])
{
    std::ofstream report(argv[1]);
    report << "<testsuite><testcase name='small'/></testsuite>";
    return report.good() ? 0 : 1;
}
'''
HEADER = '#pragma once\n\n#include <fstream>\n'
PHASES = ['Packages', 'Format and scripts', 'Build: release', 'Tests: release', 'Lint',
          'Build: sanitize', 'Tests: sanitize', 'Line coverage', 'Totals']


@pytest.fixture
def small_project(checkout):
    """A project with one source, one header and one test, and with our commands."""
    shutil.rmtree(checkout.directory / 'build')
    checkout.run('git', 'rm', '--quiet', '-r', '--force', 'tests/*.cpp', 'tests/*.h')
    for name in ('.clang-format', '.clang-tidy'):
        shutil.copy(ROOT / name, checkout.directory)
    for name, text in (('CMakePresets.json', PRESETS), ('CMakeLists.txt', LISTS),
                       ('app/small.cpp', SOURCE), ('app/Small.h', HEADER)):
        checkout.keep(name, text)
    checkout.know_files()
    return checkout


def phases_with_a_time(report):
    return [line[8:] for line in report.split('\n== Minutes\n')[1].splitlines()]


def test_report_names_each_file_and_ends_with_totals_and_times(small_project):
    result = small_project.run('script/test')
    assert result.returncode == 0 and 'Failed' not in result.stderr  # where newer gcovr tells what it does
    assert '\n== Lint\n[1/1] app/small.cpp\n' in result.stdout
    assert '\n== Totals\n2 passed, 0 failed\n' in result.stdout
    assert phases_with_a_time(result.stdout) == PHASES


def test_report_on_one_preset_holds_nothing_of_the_others(small_project):
    result = small_project.run('script/test', 'release')
    assert (result.returncode, result.stderr) == (0, '')
    assert '\n== Totals\n1 passed, 0 failed\n' in result.stdout
    assert phases_with_a_time(result.stdout) == ['Packages', 'Build: release', 'Tests: release', 'Totals']


def test_failed_check_is_told_at_the_end_and_hinders_no_other(small_project):
    small_project.keep('app/small.cpp', SOURCE.replace('ofstream report', 'ofstream  report') + 'int *unused = 0;\n')
    result = small_project.run('script/test')
    assert result.returncode == 1
    assert result.stderr.endswith('Failed: [clang-format] [clang-tidy]\n')
    assert '\n[1/1] app/small.cpp: failed\n' in result.stdout
    assert phases_with_a_time(result.stdout) == PHASES


def test_failed_build_ends_the_tests(small_project):
    small_project.keep('app/small.cpp', SOURCE.replace('argv[1]', 'argv[1'))
    result = small_project.run('script/test')
    assert result.returncode == 1
    assert 'Failed:' in result.stderr and '[building release]' in result.stderr
    assert phases_with_a_time(result.stdout) == PHASES[:3]
