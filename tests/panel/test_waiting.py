"""ozuctl wait-for, log, monitor's filters, recordings: what people wait for, look back at, and keep."""

import json
import signal
import subprocess
import time

import pytest

import ozuctl as tool
from pytest_ozu.build import CHECKOUT as ROOT
from pytest_ozu.waiting import wait_until

TIMED_OUT = 124


def ozuctl(box, *arguments, status=0):
    return tool.run(box, *arguments, status=status)


def line(process, number, text, when="2026-03-01T12:00:0{}.000Z", level="40000 N"):
    return f"{when.format(number)} {level} {process}[7] - - {text}\n"


@pytest.fixture
def logs(box):
    folder = box.platform / "log"
    folder.mkdir()
    (folder / "A.log.1").write_text(line("A", 1, "first"))
    (folder / "A.log").write_text(line("A", 3, "third") + line("A", 5, "fifth \\x1B[31m", level="70000 E"))
    (folder / "B.log").write_text(line("B", 2, "second") + line("B", 4, "fourth", level="50000 W"))
    return folder


@pytest.fixture
def core(box):
    """A running panel process."""
    process = box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    ozuctl(box, "wait-for", "process", "ALARM_CORE", "--for", "30")
    yield process
    process.terminate()
    process.wait()


# --- log ---

def texts(box, *arguments):
    return [row["text"] for row in tool.ask(box, "log", "log", *arguments)]


@pytest.mark.long
def test_past_lines_in_order(box, logs):
    assert texts(box) == ["first", "second", "third", "fourth", "fifth \\x1B[31m"]
    assert texts(box, "--process", "A") == ["first", "third", "fifth \\x1B[31m"]
    assert texts(box, "--process", "A", "--process", "B", "--level", "warning") == ["fourth", "fifth \\x1B[31m"]
    assert texts(box, "--level", "70000") == ["fifth \\x1B[31m"]
    assert texts(box, "--since", "2026-03-01T12:00:03.000Z") == ["third", "fourth", "fifth \\x1B[31m"]
    assert texts(box, "--last", "2") == ["fourth", "fifth \\x1B[31m"]
    assert texts(box, "--text", "ir") == ["first", "third"]
    shown = ozuctl(box, "log", "--last", "1").stdout
    assert shown == "2026-03-01T12:00:05.000Z E A[7] fifth \\x1B[31m\n"


@pytest.mark.long
def test_log_that_is_not_there(box):
    assert "log" in ozuctl(box, "log", status=3).stderr
    for wrong in (["--level", "LOUD"], ["--since", "yesterday"], ["--since", "-5"], ["--last", "0"], ["--for", "0"]):
        ozuctl(box, "log", *wrong, status=2)


def test_followed_log_has_every_line_once(box, logs):
    process = box.popen(box.program("ozuctl", "--json", "log", "-f"), stdout=subprocess.PIPE, text=True)
    seen = [json.loads(process.stdout.readline()) for _ in range(5)]
    with open(logs / "B.log", "a") as file:
        file.write(line("B", 6, "sixth"))
    seen.append(json.loads(process.stdout.readline()))
    process.send_signal(signal.SIGINT)
    assert process.communicate(timeout=20)[0] == "" and process.returncode == 0
    assert [row["text"] for row in seen] == ["first", "second", "third", "fourth", "fifth \\x1B[31m", "sixth"]


@pytest.mark.long
def test_followed_log_begins_before_the_panel(box):
    process = box.popen(box.program("ozuctl", "--json", "log", "-f", "--for", "60"), stdout=subprocess.PIPE, text=True)
    time.sleep(1)
    (box.platform / "log").mkdir(parents=True)
    (box.platform / "log" / "A.log").write_text(line("A", 1, "first"))
    assert json.loads(process.stdout.readline())["text"] == "first"
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=20)


# --- wait-for ---

WAITS = {
    "state": ["cpPlasticVersion=7"], "bus": ["Wanted/#", "--payload", "0aff", "--class", "3"],
    "log": ["wanted", "--process", "X"], "event": ["wanted", "--category", "SECURITY"], "process": ["ALARM_CORE"],
}


def happen(box, kind, right):
    if kind == "state":
        ozuctl(box, "state", "set", f"cpPlasticVersion={7 if right else 6}")
    elif kind == "bus":
        ozuctl(box, "publish", "Wanted/here", "0AFF" if right else "0AFE", "--class", "3")
    elif kind == "log":
        with open(box.platform / "log" / "X.log", "a") as file:
            file.write(line("X", 1, "wanted" if right else "other"))
    elif kind == "event":
        ozuctl(box, "events", "add", "event" if right else "command", "1", "1", "wanted")
    elif right:
        return box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    return None


@pytest.mark.long
@pytest.mark.parametrize("kind", WAITS)
def test_what_is_waited_for_comes(box, kind):
    ozuctl(box, "publish", "Some/thing")
    waiter = box.popen(box.program("ozuctl", "--json", "wait-for", kind, *WAITS[kind], "--for", "60"),
                       stdout=subprocess.PIPE, text=True)
    time.sleep(2)
    happen(box, kind, False)
    time.sleep(0.5)
    assert waiter.poll() is None
    core = happen(box, kind, True)

    def ended():
        if waiter.poll() is None and not core:  # it may have begun to wait only now
            happen(box, kind, True)
        return waiter.poll() is not None

    wait_until(ended, timeout=60, what="the end of the wait")
    answer = json.loads(waiter.communicate(timeout=60)[0])
    assert waiter.returncode == 0
    tool.validate("wait-for", answer)
    assert answer["kind"] == kind
    if core:
        assert ozuctl(box, "wait-for", "process", "ALARM_CORE").returncode == 0
        core.terminate()
        core.wait()
        assert tool.ask(box, "wait-for", "wait-for", "process", "ALARM_CORE", "--gone", "--for", "30")["what"] == "gone"


@pytest.mark.long
@pytest.mark.parametrize("kind", WAITS)
def test_what_does_not_come_times_out(box, kind):
    ozuctl(box, "publish", "Some/thing")
    done = ozuctl(box, "wait-for", kind, *WAITS[kind], "--for", "0.5", status=TIMED_OUT)
    assert done.stdout == "" and "the time is up" in done.stderr


@pytest.mark.long
def test_what_is_so_already_needs_no_wait(box):
    ozuctl(box, "state", "set", "cpPlasticVersion=7", "powerManagerMode=5")
    ozuctl(box, "wait-for", "state", "cpPlasticVersion=7", "powerManagerMode=5", "--for", "0.001")
    ozuctl(box, "wait-for", "process", "NOBODY", "--gone", "--for", "0.001")
    ozuctl(box, "publish", "Some/thing")
    happen(box, "log", True)
    ozuctl(box, "wait-for", "log", "wanted", "--for", "0.3", status=TIMED_OUT)
    ozuctl(box, "wait-for", "log", "wanted", "--since", "2026-01-01T00:00:00Z", "--for", "0.3")


@pytest.mark.long
@pytest.mark.parametrize("words", [[], ["state"], ["state", "nofield=1"], ["state", "cpPlasticVersion"], ["bus", "a/#/b"],
                                   ["bus", "a", "--payload", "0"], ["log", "--level", "LOUD"], ["process"],
                                   ["state", "cpPlasticVersion=7", "--for", "0"], ["moon", "x"]])
def test_waiting_for_nonsense_is_refused(box, words):
    assert ozuctl(box, "wait-for", *words, status=1 if words[-1:] == ["nofield=1"] else 2).stdout == ""


# --- monitor ---

def happenings(box, *arguments):
    stream = ozuctl(box, "--json", "monitor", *arguments).stdout.splitlines()
    return [json.loads(one) for one in stream][1:]


@pytest.mark.long
def test_filters_narrow_their_kinds(box, logs):
    ozuctl(box, "state", "set", "cpPlasticVersion=1")
    process = box.popen(box.program("ozuctl", "--json", "monitor", "--topic", "Wanted/#", "--field", "cpPlasticVersion",
                                    "--level", "ERROR", "--process", "A", "--process", "OZUCTL", "--count", "4", "--for", "60"),
                        stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    ozuctl(box, "publish", "Other/x")
    ozuctl(box, "publish", "Wanted/x")
    ozuctl(box, "state", "set", "powerManagerMode=5", "cpPlasticVersion=2")
    for name, level in (("B", "70000 E"), ("A", "40000 N"), ("A", "70000 E")):
        with open(logs / f"{name}.log", "a") as file:
            file.write(line(name, 9, "new", level=level))
    ozuctl(box, "publish", "Wanted/y")
    out = process.communicate(timeout=90)[0]
    assert process.returncode == 0
    seen = [json.loads(one) for one in out.splitlines()]
    for one in seen:
        tool.validate("monitor", one)
    assert sorted((one["kind"], one.get("topic") or one.get("field") or one.get("process")) for one in seen) == [
        ("bus", "Wanted/x"), ("bus", "Wanted/y"), ("log", "A"), ("state", "cpPlasticVersion")]


def snapshot(box, *arguments):
    words = ["monitor", "--for", "0.1", "--no-bus", "--no-log", "--no-events", *arguments]
    text = ozuctl(box, *words).stdout
    document = json.loads(ozuctl(box, "--json", *words).stdout.splitlines()[0])
    tool.validate("monitor", document)
    for path in document["fields"] or {}:
        assert f"  {path} " in text
    assert len(text.splitlines()) == 1 + len(document["fields"]) + len(document["processes"])
    return document


@pytest.mark.long
def test_the_snapshot_shows_what_was_asked_for(box, core):
    ozuctl(box, "state", "set", "cpPlasticVersion=7", "powerManagerMode=5")
    whole = snapshot(box)
    assert {"cpPlasticVersion", "powerManagerMode"} <= set(whole["fields"]) and whole["processes"]
    assert set(snapshot(box, "--field", "cpPlasticVersion")["fields"]) == {"cpPlasticVersion"}
    assert snapshot(box, "--no-state")["fields"] == {}
    assert snapshot(box, "--no-processes")["processes"] == []
    assert snapshot(box, "--process", "NOBODY")["processes"] == []
    # A recording keeps everything all the same.
    ozuctl(box, "monitor", "--for", "0.1", "--no-bus", "--field", "powerManagerMode", "--record", "/tmp/kept")
    kept = json.loads(box.run(["head", "-1", "/tmp/kept"]).stdout)
    assert kept["fields"]["cpPlasticVersion"] == 7


def test_state_with_nothing_to_show_says_so(box):
    ozuctl(box, "state", "set", "cpPlasticVersion=1")
    done = ozuctl(box, "state", "get", "zones")
    assert done.stdout == "" and "--all shows every field" in done.stderr


@pytest.mark.long
def test_retained_messages_are_old_ones(box):
    box.run(["mosquitto_pub", "-V", "5", "-r", "-t", "Kept/x", "-m", "1"], check=True)
    ozuctl(box, "wait-for", "bus", "Kept/#", "--for", "0.5", status=TIMED_OUT)
    seen = happenings(box, "--topic", "Kept/#", "--count", "1", "--for", "30")
    assert seen[0]["retained"] is True
    tool.validate("monitor", seen[0])


@pytest.mark.long
def test_overlapping_topics_bring_a_message_once(box):
    process = box.popen(box.program("ozuctl", "--json", "monitor", "--topic", "Wanted/#", "--topic", "+/x", "--no-log",
                                    "--no-events", "--no-processes", "--no-state", "--count", "2", "--for", "60"),
                        stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    ozuctl(box, "publish", "Wanted/x")
    ozuctl(box, "publish", "Other/y")
    ozuctl(box, "publish", "Wanted/y")
    seen = [json.loads(one)["topic"] for one in process.communicate(timeout=90)[0].splitlines()]
    assert seen == ["Wanted/x", "Wanted/y"]


@pytest.mark.long
def test_times_and_count(box):
    assert ozuctl(box, "monitor", "--count", "1", "--for", "1", status=TIMED_OUT).stdout
    assert ozuctl(box, "monitor", "--times", "relative", "--for", "0.5").stdout.startswith("    +0.000 snapshot\n")
    ozuctl(box, "monitor", "--times", "swiss", status=2)
    ozuctl(box, "monitor", "--field", "nothing", status=1)


@pytest.mark.long
def test_starts_and_ends_of_processes(box):
    ozuctl(box, "publish", "Some/thing")
    process = box.popen(box.program("ozuctl", "--json", "monitor", "--no-bus", "--no-log", "--no-state", "--no-events",
                                    "--process", "ALARM_CORE", "--count", "2", "--for", "60"), stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    core = box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    seen = [json.loads(process.stdout.readline())]
    core.terminate()
    core.wait()
    seen += [json.loads(one) for one in process.communicate(timeout=90)[0].splitlines()]
    assert [(one["process"], one["what"]) for one in seen] == [("ALARM_CORE", "started"), ("ALARM_CORE", "ended")]
    for one in seen:
        tool.validate("monitor", one)


@pytest.mark.long
def test_broker_that_forgets_is_told(box):
    process = box.popen(box.program("ozuctl", "--json", "monitor", "--no-log", "--no-state", "--no-events", "--no-processes"),
                        stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    box.broker.kill()
    gone = json.loads(process.stdout.readline())
    for file in (box.state / "broker").iterdir():
        file.unlink()
    box.broker.start()
    back = json.loads(process.stdout.readline())
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=20)
    for one in (gone, back):
        tool.validate("monitor", one)
    assert (gone["connected"], back["connected"], back["missing"]) == (False, True, True)


# --- recordings ---

@pytest.mark.long
def test_recording_is_replayed(box, make_box, tmp_path):
    ozuctl(box, "state", "set", "partitions[0].partitionState=ARMED_2", "dnsServerPairs[0].primary=10.0.0.1")
    process = box.popen(box.program("ozuctl", "monitor", "--record", "/data/recording", "--no-log"), stdout=subprocess.PIPE, text=True)
    process.stdout.readline()
    for payload in ("01", "02FF"):
        ozuctl(box, "publish", "Process/NOBODY", payload, "--label", "SENDER", "--class", "3", "--command", "4")
    ozuctl(box, "state", "set", "devices[1].deviceType=W3", "zones[2].bypass[0].bypassExpiry=never")
    kept = box.data / "recording"
    wait_until(lambda: all(text in kept.read_text() for text in ("02FF", "devices[1]")), 30, "the last change")
    process.send_signal(signal.SIGINT)
    process.communicate(timeout=20)
    other = make_box()
    # A line with somebody else's idea of the time neither delays nor stops what follows.
    first = json.loads((box.data / "recording").read_text().splitlines()[0])
    odd = {"time": "0001-01-01T00:00:00.000Z", "kind": "log", "process": "X", "text": "odd"}
    damaged = {"time": first["time"], "kind": "bus", "topic": "a/#", "payload": "0G"}
    lines = (box.data / "recording").read_text() + json.dumps(odd) + "\n" + json.dumps(damaged) + "\n"
    (other.data / "recording").write_text(lines)
    with other.capture() as bus:
        counts = tool.ask(other, "replay", "replay", "/data/recording", "--speed", "1000000")
        messages = [m for m in bus.settle() if m.topic == "Process/NOBODY"]
    assert [(m.hex, m.properties) for m in messages] == [
        (payload, {"label": "SENDER", "class": "3", "command": "4"}) for payload in ("01", "02ff")]
    assert (counts["messages"], counts["skipped"]) == (2, 1) and counts["changes"] >= 4
    assert json.loads(ozuctl(box, "--json", "state", "get").stdout) == json.loads(ozuctl(other, "--json", "state", "get").stdout)


@pytest.mark.long
@pytest.mark.parametrize("content", ["", "nothing\n", "{}\n", '{"time": "now", "kind": "bus"}\n', "[" * 100000])
def test_what_is_no_recording_is_refused(box, content):
    (box.data / "recording").write_text(content)
    assert "is not a recording" in ozuctl(box, "replay", "/data/recording", status=4).stderr
    ozuctl(box, "replay", "/data/none", status=1)


# --- the platform ---

@pytest.mark.long
def test_settings(box):
    assert tool.ask(box, "done", "settings", "log.files", "3")
    assert tool.ask(box, "settings", "settings", "log.files") == {"name": "log.files", "value": "3"}
    assert {"name": "log.files", "value": "3"} in tool.ask(box, "settings-list", "settings")
    assert "did you mean 'log.files'" in ozuctl(box, "settings", "log.file", status=1).stderr


@pytest.mark.long
def test_payload_as_text_and_from_standard_input(box):
    with box.capture() as bus:
        ozuctl(box, "publish", "Wanted/x", "--text", "grüß\n")
        box.run(box.program("ozuctl", "publish", "Wanted/x", "-"), input=b"\x00\xff-", text=False, check=True)
        ozuctl(box, "publish", "Wanted/x", "--text", "")
        seen = [message.hex for message in bus.settle() if message.topic == "Wanted/x"]
    assert seen == ["grüß\n".encode().hex(), "00ff2d", ""]
    assert "exclude each other" in ozuctl(box, "publish", "Wanted/x", "00", "--text", "x", status=2).stderr


@pytest.mark.long
def test_severity_is_unset(box):
    ozuctl(box, "severity", "X", "ERROR")
    assert tool.ask(box, "done", "severity", "X", "--unset")
    assert tool.ask(box, "severity", "severity", "X")["severity"] == "INFO"
    assert "X" not in [row["process"] for row in tool.ask(box, "severity-list", "severity")]
    assert "no severity of its own" in ozuctl(box, "severity", "X", "--unset", status=1).stderr
    for wrong in (["--unset"], ["X", "DEBUG", "--unset"]):
        assert "--unset takes a process" in ozuctl(box, "severity", *wrong, status=2).stderr


@pytest.mark.long
def test_doctor_says_what_is_wrong(box):
    ozuctl(box, "publish", "Some/thing")
    rows = {row["check"]: row for row in tool.ask(box, "doctor", "doctor")}
    assert {row["state"] for row in rows.values()} <= {"ok", "note"}
    box.broker.kill()
    for part in box.platform.glob("ozu.db*"):  # its journals could still stand in for it
        part.unlink()
    (box.platform / "ozu.db").write_text("no database" * 1000)
    rows = {row["check"]: row for row in tool.ask(box, "doctor", "doctor", status=1)}
    assert rows["broker"]["state"] == rows["database"]["state"] == "wrong"
    assert rows["broker"]["advice"] and rows["database"]["advice"]


def test_severity_of_a_name_that_nobody_has_is_told(box):
    """It may be set before the first start of a process; more often it is misspelt."""
    ozuctl(box, "publish", "Some/thing")
    done = ozuctl(box, "severity", "OZUCTL_2", "DEBUG")
    assert "no process 'OZUCTL_2' has run here yet; did you mean 'OZUCTL_1'?" in done.stderr
    assert tool.ask(box, "severity", "severity", "OZUCTL_2")["severity"] == "DEBUG"
    for known in ("OZUCTL_1", "*"):
        assert ozuctl(box, "severity", known, "DEBUG").stderr == ""


@pytest.mark.long
def test_doctor_sees_that_the_record_was_removed(box, core):
    ozuctl(box, "state", "get")
    box.run(["sh", "-c", "rm /dev/shm/ozu-v*"], check=True)
    rows = {row["check"]: row for row in tool.ask(box, "doctor", "doctor", status=1)}
    assert rows["shared record"]["state"] == "wrong" and "ALARM_CORE" in rows["shared record"]["found"]
    ozuctl(box, "state", "set", "cpPlasticVersion=1")  # somebody makes another one
    rows = {row["check"]: row for row in tool.ask(box, "doctor", "doctor", status=1)}
    assert rows["shared record"]["state"] == "wrong" and "again" in rows["shared record"]["advice"]


@pytest.mark.long
@pytest.mark.parametrize("shell", ["bash", "zsh"])
def test_completion_knows_every_command(box, shell):
    script = ozuctl(box, "completion", shell).stdout
    for words in ("wait-for", "state get", "--since", "completion"):
        assert words in script
    if shell == "bash":
        ask = 'COMP_WORDS=(ozuctl state g); COMP_CWORD=2; _ozuctl; echo "${COMPREPLY[@]}"; COMP_WORDS=(ozuctl log --si); _ozuctl; ' \
              'echo "${COMPREPLY[@]}"'
        done = subprocess.run(["bash", "-c", script + ask], capture_output=True, text=True)
        assert (done.stdout, done.stderr) == ("get\n--since\n", "")
    ozuctl(box, "completion", "fish", status=2)
