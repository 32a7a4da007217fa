"""Colours stand on terminals only, where nobody has refused them, and never in what a program reads."""

import os
import pty
import subprocess

import pytest

import ozuctl
from pytest_ozu.build import build_dir, emulator
from streams import drain

LINES = ("2026-01-01T00:00:00.000Z 40000 N CORE[1] - - notice\n2026-01-01T00:00:01.000Z 50000 W CORE[1] - - warning \x1b[32mforged\n"
         "2026-01-01T00:00:02.000Z 70000 E CORE[1] - - error\n")


@pytest.fixture
def folder(tmp_path):
    (tmp_path / "log").mkdir()
    (tmp_path / "log" / "CORE.log").write_text(LINES)
    return tmp_path


def output(folder, *arguments, terminal=False, **variables):
    environment = {**os.environ, "OZU_PLATFORM_DIR": str(folder), "TERM": "xterm"}
    environment.pop("NO_COLOR", None)
    environment.update(variables)
    ours, theirs = pty.openpty() if terminal else os.pipe()
    subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), *arguments], stdin=subprocess.DEVNULL, stdout=theirs, env=environment, timeout=60)
    os.close(theirs)
    return drain(ours).decode()


COLOURED, PLAIN = True, False


@pytest.mark.parametrize("terminal, options, variables, expected", [
    (True, [], {}, COLOURED), (False, [], {}, PLAIN), (True, [], {"NO_COLOR": "1"}, PLAIN), (True, [], {"NO_COLOR": ""}, COLOURED),
    (True, [], {"TERM": "dumb"}, PLAIN), (True, [], {"TERM": ""}, PLAIN), (True, ["--color=never"], {}, PLAIN), (True, ["--color=auto"], {}, COLOURED),
    (False, ["--color=always"], {}, COLOURED), (False, ["--color", "always"], {"NO_COLOR": "1", "TERM": "dumb"}, COLOURED),
    (True, ["--json"], {}, PLAIN), (True, ["--json", "--color=always"], {}, PLAIN),
])
def test_when(folder, terminal, options, variables, expected):
    text = output(folder, *options, "log", terminal=terminal, **variables)
    assert "notice" in text and ("\x1b" in text) == expected, text
    if expected == COLOURED:
        lines = text.replace("\r\n", "\n").splitlines()
        assert "\x1b" not in lines[0] and lines[1].startswith("\x1b[33m") and lines[2].startswith("\x1b[31m")
        assert all(line.endswith("\x1b[0m") for line in lines[1:]) and "\\x1B[32mforged" in lines[1]


def test_names(folder):
    text = output(folder, "--color=always", "error", "21")
    assert text.splitlines()[0].startswith("\x1b[1mcode\x1b[0m")


def test_only_three_words(folder):
    done = subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), "--color=allways", "log"], capture_output=True, text=True, timeout=60)
    assert done.returncode == 2 and "auto, always or never" in done.stderr


@pytest.mark.long
def test_status_and_monitor(box):
    ozuctl.run(box, "state", "set", "cpPlasticVersion=1")
    assert "\x1b[1mquery\x1b[0m" in ozuctl.run(box, "--color=always", "status").stdout
    assert "\x1b" not in ozuctl.run(box, "status").stdout
    stream = box.popen(box.program("ozuctl", "--color=always", "monitor", "--no-state", "--no-events", "--count", "1", "--level", "ERROR", "--for", "20"),
                       stdout=subprocess.PIPE, text=True)
    stream.stdout.readline()
    box.run(["sh", "-c", "mkdir -p /var/lib/ozu/log; date -u +'%Y-%m-%dT%H:%M:%S.%3NZ 70000 E CORE[1] - - bad' >>/var/lib/ozu/log/CORE.log"], check=True)
    text = stream.stdout.read()
    assert stream.wait(30) in (0, 124)
    stream.stdout.close()
    assert [line for line in text.splitlines() if "bad" in line and line.startswith("\x1b[31m")], text
