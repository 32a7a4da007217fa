"""The scripts run as the pages write them, say what they are for and what is missing."""

import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPTS = sorted(path.name for path in (ROOT / "scripts").glob("*.py"))
NO_BUILD = {
    "compare_results.py": ["none.xml", "other.xml"],
    "count_results.py": ["none"],
    "coverage.py": ["none"],
    "footprint.py": ["none"],
    "manual_commands.py": ["--check", "none/bin/ozuctl"],
    "mutants.py": ["none"],
    "record_demo.py": [],
    "unit_results.py": ["none.xml", "out.xml"],
}


def run(script, *arguments, folder=ROOT):
    return subprocess.run([ROOT / "scripts" / script, *arguments], cwd=folder, capture_output=True, text=True,
                          stdin=subprocess.DEVNULL)


@pytest.mark.parametrize("script", SCRIPTS)
def test_help_tells_what_it_does(script):
    done = run(script, "--help")
    assert done.returncode == 0 and "usage: " in done.stdout
    assert len(done.stdout.splitlines()) > 3


@pytest.mark.parametrize("script", NO_BUILD)
def test_without_a_build_it_says_so(script, tmp_path):
    done = run(script, *NO_BUILD[script], folder=tmp_path)
    assert done.returncode != 0
    assert "Traceback" not in done.stderr
    assert (done.stdout + done.stderr).strip()


def test_abi_without_a_build_says_so(tmp_path):
    copy = tmp_path / "scripts/abi.py"
    copy.parent.mkdir()
    copy.write_bytes((ROOT / "scripts/abi.py").read_bytes())
    (tmp_path / "tests").symlink_to(ROOT / "tests")
    done = subprocess.run(["/usr/bin/python3", copy, "check"], capture_output=True, text=True)
    assert done.returncode != 0 and done.stderr.startswith("abi.py: build/dev/lib/libutils_ozu.so.0 is missing")


def test_every_script_that_needs_a_build_is_tried_without():
    assert set(SCRIPTS) - set(NO_BUILD) <= {"abi.py", "exported_names.py"}
