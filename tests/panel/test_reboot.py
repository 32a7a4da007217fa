"""The coordinated reboot of a whole panel: broker, database, log, and a reboot that ends the box."""

import re
import sqlite3
import subprocess

import pytest

from pytest_ozu.box import PanelBox
from pytest_ozu.build import build_dir, emulator
from pytest_ozu.waiting import wait_until
from ozuctl import ask, run

REBOOTS = 1  # the counter of reboots
UNSENT = "RebootSystem: Additional waiting for unsent messages to be sent (+{}s)"
SENT = "RebootSystem: All messages have been sent. The system will reboot now ..."
TIMED_OUT = "RebootSystem: Timeout while waiting for unsent messages! The system will reboot now with unsent messages!"


def counters(box):
    """The modems' counters as every process sees them: modem 0, modem 1."""
    return [[int(run(box, "state", "get", f"modemStatistics[{place}].counter[{i}]").stdout.split()[-1])
             for i in range(8)] for place in (1, 0)]


def rebooter_log(box):
    """Log lines of the process that rebooted: (level, function or -, text)."""
    files = [path for path in (box.platform / "log").glob("*.log") if "REBOOT CP" in path.read_text()]
    assert len(files) <= 1, files
    shape = re.compile(r"^\S+ (\d+) [A-Z] \S+ \S+ (\S+) (.*)$")
    found = [shape.match(line) for line in files[0].read_text().splitlines()] if files else []
    return [(int(m.group(1)), m.group(2).split(":")[0], m.group(3)) for m in found]


def reasons(box):
    """Stored reasons: of the next reboot, of this boot."""
    for path in box.platform.iterdir():
        if path.is_file() and path.read_bytes()[:15] == b"SQLite format 3":
            with sqlite3.connect(f"file:{path}?mode=ro", uri=True) as database:
                return database.execute("SELECT next_reason, last_reason FROM reboot").fetchone()
    return None


@pytest.fixture
def panel(tmp_path):
    with PanelBox(tmp_path / "panel") as box:
        yield box


@pytest.mark.long
def test_whole_reboot_with_messages_that_are_really_unsent(panel, start):
    fields = [f"modemStatistics[{place}].counter[{i}]={100 * place + i}" for place in (0, 1) for i in range(8)]
    fields += ["powerManagerMode=5", "modemStatistics[0].counter[1]=65535", "modemStatistics[1].counter[1]=41"]
    run(panel, "state", "set", *fields)
    talker = start(panel, "TALKER")
    assert talker.ask("init") == 0
    with panel.capture() as bus:
        rebooter = panel.popen(panel.program("ozuctl", "reboot", "--delay", 2, "--reason", 17, "--wait", 60,
                                             "--text", "firmware update"))
        announced = bus.wait_for(topic="Process/ALL")
        told = bus.wait_for(topic="Process/POWER_MANAGER")
        assert bus.messages.index(told) < bus.messages.index(announced)
    assert (told.hex, told.properties) == ("00", {"label": "", "class": "22", "command": "21"})
    assert (announced.hex, announced.properties) == ("", {"label": "LTE", "class": "1", "command": "0"})
    # From here on the broker acknowledges nothing.
    panel.broker.pause()
    assert talker.ask("publish Process/NOBODY 1") == 0
    assert talker.ask("inflight") == 1
    wait_until(lambda: (40000, "-", UNSENT.format(10)) in rebooter_log(panel), 30, "the third progress line")
    assert panel.running and panel.reboots == []
    panel.broker.resume()
    assert panel.wait_for_reboot() == ["reboot"]
    rebooter.wait(10)

    lines = rebooter_log(panel)
    assert lines[:1] == [(40000, "-", "REBOOT CP, boot reason = 17, [firmware update]")]
    assert (30000, "ozuutils_RebootSystem", "System reset will begin after [ 2] seconds") in lines
    progress = [text for level, _, text in lines if level == 40000][1:]
    assert progress == [UNSENT.format(0), UNSENT.format(5), UNSENT.format(10), SENT]
    assert not [line for line in lines if line[0] == 70000]

    assert reasons(panel) == (17, None)
    panel.start()
    assert panel.boots == 2
    assert start(panel, "FIRST").ask("init") == 0  # the first process of a boot makes the record
    expected = [[100 + i for i in range(8)], list(range(8))]
    expected[0][REBOOTS], expected[1][REBOOTS] = 42, 0
    assert counters(panel) == expected
    assert reasons(panel) == (None, 17)
    assert ask(panel, "uptime", "uptime")["rebootReason"] == 17


@pytest.mark.long
def test_reboot_goes_on_when_the_messages_stay(panel, start):
    talker = start(panel, "TALKER")
    assert talker.ask("init") == 0
    with panel.capture() as bus:
        panel.popen(panel.program("ozuctl", "reboot", "--delay", 2, "--wait", 1, "--reason", 3, "--text", "x"))
        bus.wait_for(topic="Process/ALL")
    panel.broker.pause()
    assert talker.ask("publish Process/NOBODY 1") == 0
    assert panel.wait_for_reboot(20) == ["reboot"]
    assert (70000, "WaitForUnsentDataBeforeReboot", TIMED_OUT) in rebooter_log(panel)


def test_without_a_text_the_stored_reason_stays(panel):
    panel.popen(panel.program("ozuctl", "reboot", "--reason", 5))
    panel.wait_for_reboot()
    assert rebooter_log(panel)[0] == (40000, "-", "REBOOT CP, boot reason = 5, []")
    assert reasons(panel) in (None, (None, None))


fast = pytest.mark.skipif(bool(emulator()), reason="the fast clock is loaded by this machine's programs only")


def at_speed(box, *arguments):
    clock = build_dir() / "lib" / "libozu_test_fast_clock.so"
    return box.popen(["env", f"LD_PRELOAD={clock}", *box.program("ozuctl", "reboot", *arguments)])


@pytest.mark.long
@fast
def test_reboot_that_does_nothing_is_forced(tmp_path):
    with PanelBox(tmp_path / "panel", reboot="forced") as box:
        at_speed(box, "--delay", 3600, "--text", "x")
        assert box.wait_for_reboot(30) == ["reboot", "reboot -idf"]
        texts = [text for _, function, text in rebooter_log(box) if function == "ozuutils_RebootSystem"]
        # Forced at 70 seconds: at 60 a minute is over, but not yet more than that.
        first = texts.index("Waiting for Linux reboot...")
        assert texts[first:first + 8] == ["Waiting for Linux reboot..."] * 7 + ["Force reboot ..."]


@pytest.mark.long
@fast
def test_force_is_repeated_every_ten_seconds(tmp_path):
    with PanelBox(tmp_path / "panel", reboot="ignore") as box:
        rebooter = at_speed(box)
        wait_until(lambda: len(box.reboots) >= 5, 30, "five requests")
        rebooter.kill()
        rebooter.wait()
        assert box.reboots[:5] == ["reboot"] + ["reboot -idf"] * 4
        assert box.running
        lines = [line for line in rebooter_log(box) if line[0] == 50000]
        forced = lines.index((50000, "ozuutils_RebootSystem", "Force reboot ..."))
        pair = [(50000, "ozuutils_RebootSystem", "Force reboot ..."),
                (50000, "ozuutils_RebootSystem", "Waiting for Linux reboot...")]
        assert lines[forced:forced + 6] == pair * 3


def test_outside_a_box_it_takes_consent():
    if emulator():
        pytest.skip("one machine's refusal is enough")
    for arguments in (["reboot"], ["time", "zone", "UTC"]):
        done = subprocess.run([build_dir() / "bin" / "ozuctl", *arguments], capture_output=True, text=True, timeout=30)
        assert done.returncode == 5 and "--yes" in done.stderr
