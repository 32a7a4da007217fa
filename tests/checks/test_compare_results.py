"""The comparison of two test runs sees every kind of difference."""

import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
CASE = {"passed": "", "failed": "<failure/>", "skipped": "<skipped/>"}
CASE |= {name: f'<properties><property name="digest of x" value="{name}"/></properties>' for name in ("12", "13")}


def junit(path, outcomes):
    cases = "".join(
        f'<testcase name="{name}" classname="{name}">{CASE[outcome]}</testcase>' for name, outcome in outcomes.items()
    )
    path.write_text(f"<testsuite>{cases}</testsuite>")
    return str(path)


def compare(tmp_path, native, other, allowed=None):
    command = [sys.executable, ROOT / "scripts/compare_results.py"]
    if allowed is not None:
        (tmp_path / "allow").write_text(allowed)
        command += ["--allow", tmp_path / "allow"]
    command += [junit(tmp_path / "native.xml", native), junit(tmp_path / "other.xml", other)]
    return subprocess.run(command, capture_output=True, text=True)


BOTH = {"A.one": "passed", "A.two": "skipped"}


def test_equal_runs_pass(tmp_path):
    run = compare(tmp_path, BOTH, dict(reversed(BOTH.items())))
    assert (run.returncode, run.stdout) == (0, "the same 2 outcomes, 0 of them with digests of results\n")


def test_results_are_compared_by_their_digests(tmp_path):
    run = compare(tmp_path, {"A.one": "12", "A.two": "13"}, {"A.one": "12", "A.two": "13"})
    assert (run.returncode, run.stdout) == (0, "the same 2 outcomes, 2 of them with digests of results\n")
    run = compare(tmp_path, {"A.one": "12"}, {"A.one": "13"})
    assert run.returncode == 1
    assert "+A.one: passed, digest of x: 13" in run.stdout.splitlines()
    assert compare(tmp_path, {"A.one": "12"}, {"A.one": "passed"}).returncode == 1


@pytest.mark.parametrize(
    "other, line",
    [
        ({"A.one": "failed", "A.two": "skipped"}, "+A.one: failed"),
        ({"A.one": "passed", "A.two": "passed"}, "+A.two: passed"),
        ({"A.one": "passed"}, "-A.two: skipped"),
        ({**BOTH, "A.three": "passed"}, "+A.three: passed"),
    ],
)
def test_every_difference_fails(tmp_path, other, line):
    run = compare(tmp_path, BOTH, other)
    assert run.returncode == 1
    assert line in run.stdout.splitlines()


def test_listed_difference_passes_and_is_named(tmp_path):
    run = compare(tmp_path, BOTH, {"A.one": "skipped", "A.two": "skipped"}, "A.on* | skipped | no such call\n")
    assert run.returncode == 0
    assert "listed: A.one is skipped there (no such call)" in run.stdout


@pytest.mark.parametrize("allowed", ["A.one | skipped | stale\n", "A.one | failed | never\n", "A.one skipped\n"])
def test_stale_or_malformed_list_fails(tmp_path, allowed):
    assert compare(tmp_path, BOTH, BOTH, allowed).returncode == 1


def test_parameter_values_in_names_do_not_count(tmp_path):
    run = compare(tmp_path, {"P/A.x/0  # GetParam() = 0x7ffd": "passed"}, {"P/A.x/0  # GetParam() = 0x4": "passed"})
    assert run.returncode == 0
