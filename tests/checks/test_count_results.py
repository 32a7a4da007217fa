"""The closing count sees every failure, and a run of nothing is one."""

import pathlib
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/count_results.py"
PASSED = '<testcase classname="A" name="one" time="0.5"/>'
FAILED = '<testcase classname="A" name="two"><failure/></testcase>'
SKIPPED = '<testcase classname="A" name="three"><skipped message="no box"/></testcase>'


def count(folder, files, *options):
    for file, cases in files.items():
        (folder / f"{file}.xml").write_text(f"<testsuite>{cases}</testsuite>" if cases is not None else "")
    run = subprocess.run([SCRIPT, *options, folder], capture_output=True, text=True)
    return run.returncode, run.stdout.splitlines()


def test_passed_run_is_green(tmp_path):
    assert count(tmp_path, {"unit": PASSED + PASSED}, "--ran", "unit") == (0, ["2 passed, 0 failed"])


def test_skipped_test_is_counted_with_its_reason(tmp_path):
    assert count(tmp_path, {"unit": PASSED + SKIPPED}) == (
        0, ["skipped unit: A.three (no box)", "1 passed, 0 failed, 1 skipped"])


def test_failed_test_is_red_and_named(tmp_path):
    assert count(tmp_path, {"unit": PASSED + FAILED}) == (1, ["FAILED  unit: A.two", "1 passed, 1 failed"])


@pytest.mark.parametrize("cases", ["", None], ids=["no test", "nothing written"])
def test_file_without_a_test_is_red(tmp_path, cases):
    assert count(tmp_path, {"unit": PASSED, "panel": cases}) == (
        1, ["FAILED  panel: no test was run", "1 passed, 1 failed"])


def test_stage_without_results_is_red(tmp_path):
    assert count(tmp_path, {"unit": PASSED}, "--ran", "unit panel") == (
        1, ["FAILED  stage panel left no results", "1 passed, 1 failed"])


def test_folder_without_results_is_red(tmp_path):
    assert count(tmp_path, {}) == (1, ["0 passed, 0 failed"])


def test_run_that_skipped_everything_is_red(tmp_path):
    assert count(tmp_path, {"panel": SKIPPED})[0] == 1


def test_stage_that_ended_badly_is_red(tmp_path):
    code, lines = count(tmp_path, {"unit": PASSED}, "--ran", "unit", "--broken", "unit")
    assert (code, lines) == (1, ["FAILED  stage unit ended with an error", "1 passed, 1 failed"])


def test_stage_with_a_failed_test_counts_once(tmp_path):
    code, lines = count(tmp_path, {"arm-compare": FAILED, "unit": PASSED}, "--broken", "arm")
    assert (code, lines[-1]) == (1, "1 passed, 1 failed")


def test_failed_test_of_another_stage_does_not_excuse(tmp_path):
    code, lines = count(tmp_path, {"unitary": FAILED, "unit": PASSED}, "--broken", "unit")
    assert (code, lines[-1]) == (1, "1 passed, 2 failed")


def test_slowest_are_named(tmp_path):
    assert count(tmp_path, {"unit": PASSED}, "--slow")[1] == [
        "slowest of unit:", "    0.50 s  A.one", "1 passed, 0 failed"]


def run_nothing(*command, **options):
    return subprocess.run(command, cwd=SCRIPT.parents[1], capture_output=True, text=True, **options)


def test_filter_that_matches_no_unit_test_is_red():
    run = run_nothing("ctest", "--preset", "dev", "-R", "no_such_program")
    assert run.returncode != 0 and "No tests were found" in run.stdout + run.stderr


@pytest.mark.parametrize("choice", [["tests/no_such_folder"], ["tests/checks/test_words.py", "-k", "no_such_test"]])
def test_pytest_run_that_collects_nothing_is_red(choice):
    assert run_nothing("/usr/bin/python3", "-m", "pytest", "-q", "-p", "no:cacheprovider", *choice).returncode in (4, 5)


def test_stage_of_no_such_name_is_red():
    run = run_nothing("./test", "no_such_stage")
    assert run.returncode == 1 and "no stage 'no_such_stage'" in run.stderr
