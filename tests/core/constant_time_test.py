"""Whether the comparison of secrets takes the same way whatever they hold.

Runs constant_time_check under valgrind's memcheck, which reports jumps on marked bytes.
"""

import os
import subprocess
from pathlib import Path

PROGRAM = Path(os.environ["TESSARINE_BINARY_DIR"]) / "tests/core/constant_time_check"
FOUND = 99


def under_memcheck(what):
    return subprocess.run(
        ["valgrind", "--quiet", f"--error-exitcode={FOUND}", PROGRAM, what],
        capture_output=True,
        text=True,
        check=False,
    )


def test_comparison_does_not_branch_on_what_it_compares():
    run = under_memcheck("comparison")
    assert run.stderr == ""
    assert run.returncode == 0


def test_a_branch_on_the_secret_is_caught():
    run = under_memcheck("leak")
    assert run.returncode == FOUND
    assert "Conditional jump or move depends on uninitialised value(s)" in run.stderr


def test_check_fails_where_nothing_watches():
    assert subprocess.run([PROGRAM, "comparison"], capture_output=True, check=False).returncode == 1
