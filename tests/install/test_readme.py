"""The README's process of your own: its program and its commands, as they stand there."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
README = (ROOT / "README.md").read_text()


@pytest.fixture
def folder():
    """The project's root, as far as the commands know it; boxes have a /tmp of their own."""
    path = ROOT / "build/readme"
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    for name in ("include", "platform", "build"):
        (path / name).symlink_to(ROOT / name)
    yield path
    shutil.rmtree(path)


def test_a_process_of_your_own(folder):
    if subprocess.run([ROOT / "tools/box/panel-box", "check"], capture_output=True).returncode != 0:
        pytest.skip("no panel boxes on this machine")
    program = re.search(r"<!-- examples/arm_lamp.c all -->\n```c\n(.*?)```", README, re.S)[1]
    (folder / "arm_lamp.c").write_text(program)
    block = re.search(r"run it there:\n\n((?:    .*\n|\n)+)", README)[1]
    outside, inside = re.sub(r"^    ", "", block, flags=re.M).split("box shell\n")
    inside = inside.replace("ozuctl monitor ", "timeout 2 ozuctl monitor ")
    done = subprocess.run(["bash", "-ec", outside + "box shell"], cwd=folder, text=True, capture_output=True,
                          input=inside.replace("\nozuctl", "\nsleep 1\nozuctl"), env={**os.environ, "PS1": ""})
    said = [line for line in done.stdout.splitlines() if line in ("disarmed", "armed")]
    assert said == ["disarmed", "armed"], done.stdout + done.stderr
    assert "  process ARM_LAMP[" in done.stdout and "partitions[0].partitionState 2 ARMED_2" in done.stdout
