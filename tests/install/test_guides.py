"""The guides' commands run as they stand there: a process of your own, the first look at a panel."""

import os
import pathlib
import re
import shutil
import subprocess

import guide as pages
import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = os.environ.get("OZU_TEST_BUILD", "build/release")


@pytest.fixture
def folder():
    """The project's root, as far as the commands know it; boxes have a /tmp of their own."""
    if subprocess.run([ROOT / "tools/box/panel-box", "check"], capture_output=True).returncode != 0:
        pytest.skip("no panel boxes on this machine")
    path = ROOT / "build/guide"
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    for name in ("include", "platform", "build"):
        (path / name).symlink_to(ROOT / name)
    yield path
    shutil.rmtree(path)


def guide(name):
    return (ROOT / "docs/guides" / name).read_text().replace("build/release", BUILD)


def commands(text):
    """The indented lines, but for the build, which is there."""
    return "\n".join(line for line in pages.lines(text) if not line.startswith("cmake ")) + "\n"


def follow(folder, text):
    """Types what comes after the box's shell into it."""
    outside, inside = commands(text).split("box shell\n")
    return subprocess.run(["bash", "-ec", outside + "box shell"], cwd=folder, text=True, capture_output=True,
                          input=inside, env={**os.environ, "PS1": ""}, timeout=180)


def test_write_a_process(folder):
    text = guide("write_a_process.md")
    (folder / "arm_lamp.c").write_text(re.search(r"<!-- examples/arm_lamp.c all -->\n```c\n(.*?)```", text, re.S)[1])
    done = follow(folder, text)
    said = [line for line in done.stdout.splitlines() if line in ("disarmed", "armed")]
    assert said == ["disarmed", "armed"], done.stdout + done.stderr
    assert done.returncode == 0, done.stderr


def test_look_at_a_panel(folder):
    done = follow(folder, guide("look_at_a_panel.md"))
    shown = done.stdout + done.stderr
    assert "IsPanelInAlarm" in done.stdout and "\n1 yes\n" in done.stdout, shown
    assert "partitions[0].partitionState 0 ALARM" in done.stdout, shown  # the monitor's snapshot
    assert done.returncode == 0, shown


def test_test_your_process(tmp_path):
    """In a checkout: the packages and the checkout's own build are there, and GNU parallel may not be."""
    if subprocess.run([ROOT / "tools/box/panel-box", "check"], capture_output=True).returncode != 0:
        pytest.skip("no panel boxes on this machine")
    typed = pages.test_your_process(without=("apt ", "cmake --preset", "cmake --build --preset", "parallel ", "ozuctl scenario merge"))
    typed = [f". {ROOT}/testkit/environment.sh {BUILD}" if line.startswith(". testkit/") else line for line in typed]
    done = subprocess.run(["bash", "-c", pages.script(typed)], cwd=tmp_path, capture_output=True, text=True, timeout=600)
    assert done.stdout.endswith("the guide ends\n"), done.stdout + done.stderr
