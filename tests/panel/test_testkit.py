"""The test kit itself: faults take hold and are undone, the clock moves, a failure tells what it was."""

import os
import re
import shutil
import subprocess
import sys
import types
import xml.etree.ElementTree as tree

import pytest

from pytest_ozu import panel as panel_module
from pytest_ozu import steps
from pytest_ozu.build import CHECKOUT, build_dir, emulator
from pytest_ozu.waiting import NotSeen

pytestmark = pytest.mark.skipif(bool(emulator()), reason="libfaketime is of this machine; the kit does not depend on the panel's")
TEMPLATE = CHECKOUT / "testkit/pytest_ozu/template"
ENVIRONMENT = {**os.environ, "PYTHONPATH": str(CHECKOUT / "testkit"), "OZU_TEST_BUILD": str(build_dir())}


def scenario(folder, *words):
    return subprocess.run([build_dir() / "bin/ozuctl", "scenario", *map(str, words)], cwd=folder, env=ENVIRONMENT, capture_output=True,
                          text=True, timeout=300)


def succeeds(panel, script):
    return panel.box.run(["sh", "-c", script]).returncode == 0


def broker_answers(panel):
    return succeeds(panel, "timeout 2 mosquitto_pub -t x -n")


@pytest.mark.long
@pytest.mark.parametrize("name", ["broker_killed", "broker_paused", "broker_refusing"])
def test_broker_is_away_and_back(panel, faults, name):
    assert broker_answers(panel)
    with getattr(faults, name)():
        assert not broker_answers(panel)
    panel.wait_until(lambda: broker_answers(panel), 20, "the broker's answer")


@pytest.mark.long
def test_disks_take_nothing_and_then_everything(panel, faults):
    write = "echo text >/data/file.$$ && grep -q text /data/file.$$"
    assert succeeds(panel, write)
    for fault in (faults.disk_full, faults.disk_read_only):
        with fault("/data"):
            assert not succeeds(panel, write)
            assert succeeds(panel, "test -e /data/timezone/zoneinfo/UTC")
        assert succeeds(panel, write)
    assert not succeeds(panel, "grep -E ' /data (tmpfs|ro)' /proc/self/mountinfo || test -e /data/.full")


@pytest.mark.long
@pytest.mark.parametrize("behaviour, address", [("lying", "10.66.6.6"), ("honest:10.1.2.3", "10.1.2.3"), ("refuse", ""), ("closed", "")])
def test_dns_says_something_else(panel, faults, behaviour, address):
    ask = lambda: panel.box.run(["getent", "hosts", "panel.test"]).stdout.split()[:1]
    with faults.dns(behaviour):
        assert ask() == ([address] if address else [])
    assert ask() == ["10.77.0.1"]


def test_processes_and_command_line(panel, faults):
    process = panel.start("alarm_core")
    panel.bus.wait_for_listener("Process/ALARM_CORE")
    with faults.process_killed("alarm_core"):
        assert not process.running
        panel.wait_until(lambda: not panel.bus.listeners("Process/ALARM_CORE"), 10, "nobody listening any more")
    with faults.silent("Process/ALARM_CORE"):
        assert "stopped" in panel.box.run(["sh", "-c", "grep -h State /proc/[0-9]*/status"]).stdout
    assert "stopped" not in panel.box.run(["sh", "-c", "grep -h State /proc/[0-9]*/status"]).stdout
    before = panel.box.cmdline
    with faults.command_line("another"):
        assert succeeds(panel, "grep -qx another /proc/cmdline")
    assert panel.box.cmdline == before


@pytest.mark.long
def test_listeners_are_those_of_the_running_broker(panel, faults):
    panel.start("alarm_core")
    panel.bus.wait_for_listener("Process/ALARM_CORE")
    with faults.broker_refusing():
        assert panel.bus.listeners("Process/ALARM_CORE") == []
    panel.bus.wait_for_listener("Process/ALARM_CORE")


@pytest.mark.long
def test_a_process_that_was_started_is_on_the_bus(panel):
    for _ in range(5):
        process = panel.start("alarm_core")
        assert "ALARM_CORE" in panel.bus.sessions()
        process.kill()


@pytest.mark.long
def test_a_fault_that_would_do_nothing_is_a_failure(panel, faults):
    with pytest.raises(NotSeen, match="expected a process that listens to Process/MDL within 0.1 s; last seen: nobody does"):
        faults.silent("Process/MDL", timeout=0.1)
    with pytest.raises(NotSeen, match="expected the modem's version in /var/run/version; last seen: no such file"):
        faults.modem_silent()
    assert not faults.active


def test_the_modem_does_not_answer(panel, faults):
    (panel.box.run_folder / "version").write_text("25.30\n")
    with faults.modem_silent():
        panel.ozuctl("modem", "version", status=1)
    assert "25.30" in panel.ozuctl("modem", "version").stdout


def date(panel):
    return int(panel.box.run(["date", "+%s"], env=panel.clock.environment(), check=True).stdout)


def is_on_time(panel):
    """A process reads the time that the clock says, which is between the one before and the one after."""
    before = panel.clock.now()
    return before - 1 <= date(panel) <= panel.clock.now() + 1


def test_clock_starts_jumps_and_goes_back(panel, clock, faults):
    clock.set("2030-01-01T00:00:00Z")
    assert panel.box.run(["date", "+%Y"], env=clock.environment()).stdout == "2030\n"
    with faults.clock_jump(-7200):
        assert is_on_time(panel)
    clock.advance(3600)
    assert is_on_time(panel)


@pytest.mark.long
def test_clock_runs_faster(panel, clock):
    clock.set("2030-01-01T00:00:00Z")
    clock.run_at(60)
    assert is_on_time(panel)
    door = panel.start("door_contact", 2)
    panel.state.set("devices[2].deviceType=W3", "devices[2].active=1", "devices[2].tableIndex=2", "zones[2].firstInputEnabled=1",
                    "zones[2].bypass[0].bypassed=1", "zones[2].bypass[0].bypassExpiry=now+600")
    panel.log.wait_for("device 2: bypass ends", timeout=30)
    assert door.running
    with pytest.raises(RuntimeError):
        clock.run_at(1)


@pytest.mark.long
def test_a_failure_says_what_was_expected_and_what_was_seen(panel, log):
    panel.start("alarm_core")
    with pytest.raises(NotSeen) as failure:
        log.wait_for("never written", timeout=0.1)
    first, *_, last = str(failure.value).splitlines()
    assert first.startswith("expected a log line with text 'never written' within 0.1 s; last seen: log     ALARM_CORE")
    assert "alarm core is up" in last
    with pytest.raises(NotSeen, match="^expected no log line with text 'core is up'; last seen: log     ALARM_CORE N alarm core is up"):
        log.never("core is up")


@pytest.mark.long
def test_what_can_never_be_seen_is_refused(panel, bus, log, events, faults):
    """A word of a wait that is misspelt would make `never` pass, whatever happens."""
    for view in (bus, log, events):
        for wait in (view.wait_for, view.never):
            with pytest.raises(TypeError):
                wait(within=1)
    events.never("SEC_CMD_ARM_PARTITION")
    with pytest.raises(NotSeen, match='^DNS cannot be "sleepy", only one of: honest, honest:ADDRESS, '):
        faults.dns("sleepy")
    with pytest.raises(NotSeen, match='^expected a program "alarm_kore"; last seen: none in .*/bin '):
        panel.start("alarm_kore")


@pytest.mark.long
def test_faults_around_the_panel_outlast_its_power_and_are_undone(panel, faults):
    command_line, now = panel.box.cmdline, panel.clock.now()
    with faults.command_line("a=1"), faults.dns("refuse"), faults.clock_jump(86400), faults.disk_full("/data"):
        panel.power_cut()
        assert panel.box.cmdline.rstrip(b"\n") == b"a=1" and panel.dns.behaviour == "refuse" and panel.clock.now() > now + 86400
        assert [fault.text for fault in faults.active] == ["another kernel command line", "DNS is refuse", "the clock jumps by +86400 s"]
    assert panel.box.cmdline == command_line and panel.dns.behaviour == "honest" and panel.clock.now() < now + 86400


def test_the_nearest_step_is_of_the_same_kind():
    for kind, text, words in (("given", "the partition FULL is armed", "partition {index:Partition} is armed"),
                              ("when", "5 parsecs pass", "{time:Duration} pass"),
                              ("then", "panel is in alarm", "the panel is in alarm[ within {limit:Duration}]")):
        assert steps.nearest(types.SimpleNamespace(type=kind, name=text)) == words


@pytest.mark.long
def test_what_goes_while_it_is_kept_is_named(panel, tmp_path, monkeypatch):
    """The panel runs on: its broker renames the file that it has written."""
    going = panel.box.state / "broker/mosquitto.db.new"
    going.write_text("being written")
    keepable = panel_module.keepable

    def then_gone(path):
        answer = keepable(path)
        if path == going:
            going.unlink()
        return answer

    monkeypatch.setattr(panel_module, "keepable", then_gone)
    panel.keep(tmp_path / "kept")
    assert (tmp_path / "kept/not_kept.txt").read_text().startswith(f"{going}: ")
    assert (tmp_path / "kept/timeline.svg").exists() and (tmp_path / "kept/state/control/boots").exists()


@pytest.mark.long
def test_a_failed_scenario_leaves_its_panel(tmp_path):
    (tmp_path / "bad.feature").write_text("""Feature: Bad
  Scenario: fails
    Given a panel with the process "alarm_core"
    When partition DAY is armed
    Then the log line "never written" is written within 1 second
  Scenario: unknown
    Given a panel
    When the contact "window" is opened
""")
    done = scenario(tmp_path, "run", "bad.feature", "--junit", "out.xml")
    assert done.returncode == 1, done
    assert "expected a log line with text 'never written' within 1 s; last seen: log     ALARM_CORE" in done.stdout
    assert "bad.feature:5: Then the log line" in done.stdout
    assert 'there is no such step. The nearest is:  the contact "{name}" opens\n' in done.stdout
    (kept,) = (tmp_path / "ozu-artefacts").glob("*fails")
    assert "partitions[1].partitionState DISARMED -> ARMED_2" in (kept / "timeline.txt").read_text()
    assert '"snapshot"' in (kept / "recording.jsonl").read_text()
    drawn = ["".join(text.itertext()) for text in tree.parse(kept / "timeline.svg").getroot().iter("{http://www.w3.org/2000/svg}text")]
    assert any("partitions[1].partitionState" in text for text in drawn) and any("ALARM_CORE" in text for text in drawn)
    assert (kept / "state/platform").is_dir() and list((kept / "state/output").glob("alarm_core.*.txt"))
    assert 'failures="2"' in (tmp_path / "out.xml").read_text()


@pytest.mark.long
def test_exit_status_of_what_cannot_run(tmp_path):
    (tmp_path / "empty.feature").write_text("Feature: Empty\n")
    assert scenario(tmp_path, "run", "none.feature").returncode == 2
    assert scenario(tmp_path, "run", "empty.feature").returncode == 1
    assert scenario(tmp_path, "new", tmp_path).returncode == 2
    for words, why in ((("run", "empty.feature", "--programs", "none"), "there is no folder 'none'"),
                       (("run", "empty.feature", "--shard", "5/4"), "'5/4' is no shard: I/N"),
                       (("merge", "out.xml", "none.xml"), "cannot read 'none.xml': No such file or directory"),
                       (("merge", "out.xml", "empty.feature"), "cannot read 'empty.feature': syntax error")):
        done = scenario(tmp_path, *words)
        assert done.returncode == 2 and re.search(why, done.stderr), done
        assert "Traceback" not in done.stderr
    listed = scenario(tmp_path, "steps")
    assert listed.returncode == 0 and "the panel is in alarm[ within {limit:Duration}]" in listed.stdout
    assert "  Duration: 5 seconds," in listed.stdout


@pytest.mark.long
def test_programs_may_be_in_somebody_elses_project(tmp_path):
    """Its settings of pytest are not ours, and the library that it was linked to may have been elsewhere."""
    (tmp_path / "theirs/bin").mkdir(parents=True)
    (tmp_path / "theirs/conftest.py").write_text('pytest_plugins = ["pytester"]\n')
    (tmp_path / "theirs/pytest.ini").write_text("[pytest]\n")
    shutil.copy(build_dir() / "bin/alarm_core", tmp_path / "theirs/bin/their_core")
    (tmp_path / "mine").mkdir()
    (tmp_path / "mine/good.feature").write_text('Feature: Good\n  Scenario: boots\n    Given a panel with the process "their_core"\n')
    done = scenario(tmp_path / "mine", "run", "good.feature", "--programs", tmp_path / "theirs/bin")
    assert done.returncode == 0, done


def names(*words):
    done = subprocess.run([sys.executable, "-m", "pytest", "--co", "-q", "--ozu-features", "tests/scenarios", *words], cwd=CHECKOUT,
                          capture_output=True, text=True, timeout=120)
    return [line for line in done.stdout.splitlines() if "::" in line]


@pytest.mark.long
def test_shards_are_disjoint_and_complete():
    shards = [names("--ozu-shard", f"{number}/4") for number in (1, 2, 3, 4)]
    assert sorted(sum(shards, [])) == sorted(names()) and len(names()) >= 25
    assert max(map(len, shards)) - min(map(len, shards)) <= 1


@pytest.mark.long
def test_many_panels_are_independent():
    done = subprocess.run([sys.executable, "-m", "pytest_ozu.many", "--panels", "3", "--program", "alarm_core"], env=ENVIRONMENT,
                          capture_output=True, text=True, timeout=300)
    found = re.fullmatch(r"3 panels side by side: ([\d.]+) s to boot and ([\d.]+) MiB each\n", done.stdout)
    assert done.returncode == 0 and found and float(found[1]) > 0 and float(found[2]) > 1, done


@pytest.mark.long
def test_the_template_is_green_and_fails_on_purpose(tmp_path):
    folder = tmp_path / "door"
    assert scenario(tmp_path, "new", folder).returncode == 0
    for command in (["cmake", "-B", "build", f"-Dozu_DIR={build_dir()}/package"], ["cmake", "--build", "build"],
                    ["ctest", "--test-dir", "build"],
                    [sys.executable, "-m", "pytest", "-p", "pytest_ozu.plugin", "--ozu-programs", "build"]):
        done = subprocess.run(command, cwd=folder, env=ENVIRONMENT, capture_output=True, text=True, timeout=300)
        assert done.returncode == 0, done.stdout + done.stderr
    assert scenario(folder, "run", "doorbell.feature", "--programs", "build").returncode == 0
    failed = scenario(folder, "run", "fails_on_purpose.feature", "--programs", "build")
    assert failed.returncode == 1 and "expected a message with topic 'Multicast/DOORBELL' within 1 s; last seen: " in failed.stdout
    shutil.rmtree(folder)
