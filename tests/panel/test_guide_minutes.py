"""The guide's first ten minutes, line by line as they stand, without a pause. OZU_GUIDE_RUNS says how many times in a row."""

import os
import re
import subprocess

import pytest

from pytest_ozu.build import CHECKOUT, build_dir, emulator

RUNS = int(os.environ.get("OZU_GUIDE_RUNS", "1"))


def lines():
    """The lines for the box's shell: those behind the one that opens it."""
    section = (CHECKOUT / "docs/guides/look_at_a_panel.md").read_text().partition("\n## ")[0]
    found = re.findall(r"^    (\S.*)$", section, re.M)
    opens = next(place for place, line in enumerate(found) if line.endswith("ozuctl box shell"))
    assert len(found) - opens > 10
    return found[opens + 1:]


@pytest.mark.long
def test_every_line_does_what_it_says():
    script = ""
    for number, line in enumerate(lines()):
        command = re.sub(r"\s+#.*", "", line)
        script += f"{command}\n" if command == "reboot" else f"{command}\necho \"[{number}] $?\"\n"
    script += "echo again $(cat /panel-box/control/boots)\nexit\n"
    assert script.count("monitor") == 1 and "\nreboot\n" in script
    for run in range(RUNS):
        done = subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), "box", "shell"], input=script, capture_output=True, text=True,
                              cwd=CHECKOUT, timeout=300)
        statuses = dict(re.findall(r"^\[(\d+)\] (\d+)$", done.stdout, re.M))
        for number, line in enumerate(lines()):
            if not line.startswith("reboot"):
                assert statuses.get(str(number)) == "0", (run, line, done.stdout, done.stderr)
        assert re.search(r"^1 yes$", done.stdout, re.M) and "snapshot" in done.stdout, (run, done.stdout)
        assert "again 2" in done.stdout and done.returncode == 0, (run, done)
