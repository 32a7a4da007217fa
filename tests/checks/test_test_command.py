"""The test command with stages of its own: what runs when, and when it is red."""

import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PASSED = '<testsuite><testcase classname="A" name="one"/></testsuite>'


@pytest.fixture
def tree(tmp_path):
    """A checkout with the command and no stage; stage(number, name, lines) adds one."""
    for name in ("test", "scripts/lib.sh", "scripts/count_results.py"):
        (tmp_path / name).parent.mkdir(exist_ok=True)
        shutil.copy(ROOT / name, tmp_path / name)
    (tmp_path / "tests/stages").mkdir(parents=True)
    return tmp_path


def stage(tree, number, name, *lines, result=PASSED):
    left = [f"echo '{result}' >build/results/{name}.xml"] if result else []
    (tree / f"tests/stages/{number}-{name}.sh").write_text("\n".join([*lines, f"echo {name} speaks", *left, "exit ${status:-0}", ""]))


def run(tree, *arguments):
    done = subprocess.run([tree / "test", *arguments], capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=120)
    return done.returncode, done.stdout.splitlines()


def test_each_selection_runs_its_stages(tree):
    stage(tree, 10, "style")
    stage(tree, 20, "unit", "# In the short run")
    stage(tree, 30, "attack", "# Only by name")
    for arguments, expected in {(): ["unit"], ("--all",): ["style", "unit"], ("attack",): ["attack"],
                                ("--style", "attack"): ["style", "attack"]}.items():
        status, lines = run(tree, *arguments)
        assert [line.split()[0] for line in lines if line.endswith(" speaks")] == expected
        assert (status, lines[-1]) == (0, f"{len(expected)} passed, 0 failed")


def test_stage_that_fails_or_leaves_nothing_is_red(tree):
    stage(tree, 10, "style", "status=3")
    stage(tree, 20, "unit", result=None)
    status, lines = run(tree, "--all")
    assert (status, lines[-1]) == (1, "1 passed, 2 failed")
    assert "FAILED  stage style ended with an error" in lines and "FAILED  stage unit left no results" in lines


def test_two_stages_at_the_same_time(tree):
    """Each waits for the other, so that one after the other would never end."""
    stage(tree, 10, "long", "# Beside the next stage", "touch began; until [ -e met ]; do sleep 0.1; done")
    stage(tree, 20, "unit", "until [ -e began ]; do sleep 0.1; done; touch met")
    status, lines = run(tree, "--all")
    assert (status, lines[-1]) == (0, "2 passed, 0 failed")
    shown = [line for line in lines if line.endswith(" speaks") or line.startswith("== Output")]
    assert shown == ["unit speaks", "== Output of the stage long", "long speaks"]


def test_stage_beside_another_can_fail(tree):
    stage(tree, 10, "long", "# Beside the next stage", "status=1")
    stage(tree, 20, "unit")
    status, lines = run(tree, "--all")
    assert (status, lines[-1]) == (1, "2 passed, 1 failed")
    assert "FAILED  stage long ended with an error" in lines


def test_last_stage_has_none_beside_it(tree):
    stage(tree, 10, "long", "# Beside the next stage")
    assert run(tree, "long")[1][-1] == "1 passed, 0 failed"


def test_what_is_built_once_is_not_built_again(tree):
    (tree / "bin").mkdir()
    (tree / "bin/cmake").write_text("#!/bin/sh\necho \"$@\" >>calls\n")
    (tree / "bin/cmake").chmod(0o755)
    builds = ['PATH=$PWD/bin:$PATH', 'source scripts/lib.sh', "configure_and_build dev", "configure_and_build dev one two"]
    stage(tree, 10, "style", *builds)
    stage(tree, 20, "unit", *builds)
    assert run(tree, "--all")[0] == 0
    assert [line for line in (tree / "calls").read_text().splitlines() if line.startswith("--preset")] == ["--preset dev"] * 2
