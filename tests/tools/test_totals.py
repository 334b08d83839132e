"""The totals that script/test ends with: each test of each suite counts, also one that never ran."""

import pathlib
import subprocess

import pytest

TOTALS = pathlib.Path(__file__).parents[1] / 'support' / 'totals'
PASSED = '<testcase name="{}"/>'
FAILED = '<testcase name="{}"><failure/></testcase>'
SUITE = """#!/bin/sh
[ "$*" = -functions ] && printf 'first()\\nsecond()\\n'
"""


def totals(directory, *cases, ending='</testsuite>'):
    """The exit status and what is printed, for a suite of two tests that reported these cases."""
    results = directory / 'results'
    results.mkdir()
    suite = directory / 'suite'
    suite.write_text(SUITE)
    suite.chmod(0o755)
    (directory / 'CTestTestfile.cmake').write_text(f'add_test(small {suite} -o -,txt)\n')
    if cases:
        (results / 'small.xml').write_text('<testsuite>' + ''.join(cases) + ending)
    run = subprocess.run([TOTALS, results], stdout=subprocess.PIPE, text=True, check=False)
    return run.returncode, run.stdout.splitlines()


def whole(*cases):
    return PASSED.format('initTestCase'), *cases, PASSED.format('cleanupTestCase')


def test_rows_of_a_suite_that_ran_to_its_end_are_counted(tmp_path):
    cases = whole(PASSED.format('first(a)'), PASSED.format('first(b)'), PASSED.format('second'))
    assert totals(tmp_path, *cases) == (0, ['3 passed, 0 failed'])


def test_failed_test_is_named(tmp_path):
    status, lines = totals(tmp_path, *whole(PASSED.format('first'), FAILED.format('second')))
    assert (status, lines[-1]) == (1, '1 passed, 1 failed')
    assert lines[0] == f'failed: {tmp_path.name} small second'


@pytest.mark.parametrize('cases, never_ran, total', [
    pytest.param((), ['first', 'second'], '0 passed, 2 failed', id='no-report'),
    pytest.param((PASSED.format('initTestCase'), FAILED.format('first(row)')), ['second'],
                 '0 passed, 2 failed', id='aborted'),
    pytest.param((FAILED.format('initTestCase'), PASSED.format('cleanupTestCase')),
                 ['first', 'second'], '0 passed, 3 failed', id='no-set-up'),
])
def test_tests_that_never_ran_count_as_failed(tmp_path, cases, never_ran, total):
    status, lines = totals(tmp_path, *cases)
    assert (status, lines[-1]) == (1, total)
    assert [line for line in lines if line.startswith('never ran: ')] == [
        f'never ran: {tmp_path.name} small {name}' for name in never_ran]


def test_report_that_breaks_off_is_none(tmp_path):
    status, lines = totals(tmp_path, PASSED.format('first'), ending='')
    assert (status, lines[-1]) == (1, '0 passed, 2 failed')


def test_suite_that_was_not_built_counts_as_one_failure(tmp_path):
    (tmp_path / 'results').mkdir()
    (tmp_path / 'CTestTestfile.cmake').write_text('add_test(small /absent/suite)\n')
    run = subprocess.run([TOTALS, tmp_path / 'results'], stdout=subprocess.PIPE, text=True, check=False)
    assert run.returncode == 1
    assert run.stdout.splitlines()[0] == f'never ran: {tmp_path.name} small the whole suite'
