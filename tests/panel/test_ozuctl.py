"""ozuctl against a running panel: outputs follow their schemas, exit codes say what happened."""

import datetime
import json
import pathlib
import re
import signal
import subprocess
import time

import jsonschema
import pytest

from pytest_ozu.build import CHECKOUT as ROOT, build_dir, emulator
from pytest_ozu.waiting import wait_until

SCHEMAS = ROOT / "tools" / "ozuctl" / "schema"
DONE, NO, USAGE, UNREACHABLE, LIBRARY_FAILED, REFUSED, TIMED_OUT = 0, 1, 2, 3, 4, 5, 124
ENROL = ["devices[1].deviceType=W3", "devices[1].active=1", "devices[1].rfId=0x101", "devices[1].tableIndex=1"]


def valid(document, schema):
    jsonschema.Draft202012Validator(json.loads((SCHEMAS / f"{schema}.json").read_text())).validate(document)
    return document


class Ozuctl:
    def __init__(self, panel):
        self.panel = panel

    def __call__(self, *arguments, code=DONE):
        done = self.panel.run(self.panel.program("ozuctl", *arguments))
        assert done.returncode == code, f"{arguments}: {done}"
        return done

    def json(self, schema, *arguments, code=DONE):
        return valid(json.loads(self("--json", *arguments, code=code).stdout), schema)

    def stream(self, *arguments):
        return Stream(self.panel.popen(self.panel.program("ozuctl", "--json", *arguments, "--for", "60"),
                                       stdout=subprocess.PIPE, text=True))


class Stream:
    """A command that prints JSON Lines until it is told to end."""

    def __init__(self, process):
        self.process = process
        self.first = json.loads(process.stdout.readline())
        self.lines = []

    def until(self, **wanted):
        """Reads on until one of the lines has what is wanted."""
        while not any(wanted.items() <= line.items() for line in self.lines):
            line = self.process.stdout.readline()
            assert line, f"{wanted} did not come: {self.lines}"
            self.lines.append(json.loads(line))

    def end(self):
        self.process.send_signal(signal.SIGINT)
        rest, _ = self.process.communicate(timeout=10)
        assert self.process.returncode == DONE
        return self.lines + [json.loads(line) for line in rest.splitlines()]


@pytest.fixture
def ozuctl(box):
    return Ozuctl(box)


def start_alarm_core(box):
    process = box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    log = box.platform / "log" / "ALARM_CORE.log"
    wait_until(lambda: log.exists() and "alarm core is up" in log.read_text(), what="alarm_core's start")
    return process


def test_schemas_are_schemas():
    for path in SCHEMAS.glob("*.json"):
        jsonschema.Draft202012Validator.check_schema(json.loads(path.read_text()))


@pytest.mark.long
def test_status_names_everything(ozuctl):
    ozuctl("state", "set", *ENROL, "devices[1].openState=1", "partitions[0].partitionState=ARMED_2")
    status = ozuctl.json("status", "status")
    answers = {row["query"]: (row["answer"], row["meaning"]) for row in status["panel"]}
    assert answers["getCurArmType"] == (0, "FULL")
    assert answers["IsPanelInAlarm"] == (0, "no")
    assert status["partitions"][0]["state"] == {"code": 2, "name": "ARMED_2"}
    assert status["partitions"][7]["partition"] == {"code": 7, "name": "PARTITION_PANIC"}
    (device,) = status["devices"]
    assert (device["device"], device["type"], device["magnetOpen"]) == (1, {"code": 85, "name": "W3"}, True)
    text = ozuctl("status").stdout
    assert "0       FULL" in text and "85 W3" in text


@pytest.mark.long
def test_ask_answers_by_exit_status(ozuctl):
    ozuctl("state", "set", *ENROL, "devices[1].openState=1")
    assert ozuctl("ask", "IsMagnetOpen", "1").stdout == "1 yes\n"
    assert ozuctl("ask", "IsMagnetOpen", "2", code=NO).stdout == "0 no\n"
    assert ozuctl("ask", "ozuutils_isDeviceExistsAndActive", "0x101", "85").stdout == "1 device 1\n"
    assert ozuctl("ask", "ozuutils_isDeviceExistsAndActive", "0x102", "85", code=NO).stdout == "-1 no such device\n"
    assert ozuctl.json("ask", "ask", "getCurArmType")["meaning"] == "DISARMED"
    names = [row["query"] for row in ozuctl.json("ask-list", "ask")]
    assert len(names) == len(set(names)) == 17
    assert "takes DEVICE" in ozuctl("ask", "IsMagnetOpen", code=USAGE).stderr
    ozuctl("ask", "IsMagnetOpen", "one", code=USAGE)
    ozuctl("ask", "isMagnetOpen", "1", code=USAGE)


@pytest.mark.long
def test_state_set_and_get(ozuctl):
    ozuctl("state", "set", "powerManagerMode=0xFFFFFFFF", "dnsServerPairs[2].secondary=198.51.100.7",
           "zones[255].bypass[1].bypassExpiry=2026-03-01T12:00:00Z", "modemStatistics[1].counter[7]=65535")
    assert ozuctl("state", "get", "powerManagerMode").stdout == "4294967295\n"
    record = ozuctl.json("state", "state", "get")
    assert record["powerManagerMode"] == 4294967295
    assert record["dnsServerPairs"][2] == {"primary": "", "secondary": "198.51.100.7"}
    assert record["zones"][255]["bypass"][1]["bypassExpiry"] == "2026-03-01T12:00:00Z"
    assert record["modemStatistics"][1]["counter"][7] == 65535
    assert len(record["devices"]) == 206 and len(record["zones"]) == 256
    part = ozuctl.json("state", "state", "get", "zones[255].bypass")
    assert part["zones"][255]["bypass"] == record["zones"][255]["bypass"] and part["zones"][0] is None
    shown = ozuctl("state", "get").stdout
    assert "modemStatistics[1].counter[7]" in shown and "rfInputs" not in shown


def test_a_partition_in_alarm_is_shown(ozuctl):
    ozuctl("state", "set", "partitions[3].partitionState=ALARM")
    assert re.search(r"^partitions\[3\]\.partitionState +0 ALARM$", ozuctl("state", "get").stdout, re.M)
    assert re.search(r"^  partitions\[3\]\.partitionState 0 ALARM$", ozuctl("monitor", "--for", "0.3").stdout, re.M)


@pytest.mark.long
@pytest.mark.parametrize("words, code", [
    (["powerManagerMode=4294967296"], USAGE), (["powerManagerMode=-1"], USAGE), (["timeSourceFlagA=256"], USAGE),
    (["au1tEntryDelayFull=65536"], USAGE), (["safetyEvents[0].startTime=2147483648"], USAGE),
    (["powerManagerMode="], USAGE), (["powerManagerMode=1x"], USAGE), (["powerManagerMode"], USAGE),
    (["devices[1].deviceType=NOSUCH"], USAGE), (["dnsServerPairs[0].primary=" + 100 * "1"], USAGE),
    (["partitions[8].forcedArm=1"], USAGE), (["partitions[0]=1"], USAGE), (["nothing=1"], NO),
    (["partitions[].forcedArm=1"], NO), (["partitions[0]..forcedArm=1"], NO), (["powerManagerMode[0]=1"], NO),
    (["timeSourceFlagA=1", "timeSourceFlagB=256"], USAGE)])
def test_state_set_refuses_and_changes_nothing(ozuctl, words, code):
    ozuctl("state", "set", "cpPlasticVersion=3")
    before = ozuctl("--json", "state", "get").stdout
    assert ozuctl("state", "set", *words, code=code).stderr.startswith("ozuctl: ")
    assert ozuctl("--json", "state", "get").stdout == before


@pytest.mark.long
def test_bypass_that_is_set_lasts(make_box, tmp_path):
    panel = make_box(tmp_path / "panel")
    ozuctl = Ozuctl(panel)
    ozuctl("state", "set", "zones[3].bypass[0].bypassed=1", "zones[3].bypass[0].bypassExpiry=now+1000",
           "partitions[0].partitionState=2")
    before = ozuctl("state", "get", "zones[3]").stdout
    panel.power_cycle()
    ozuctl("state", "set", "cpPlasticVersion=1")
    assert ozuctl("state", "get", "zones[3]").stdout == before


@pytest.mark.long
def test_state_watch(ozuctl):
    ozuctl("state", "set", "powerManagerMode=0")
    watch = ozuctl.panel.popen(ozuctl.panel.program("ozuctl", "--json", "state", "watch", "--changes", "2", "--for", "60"),
                               stdout=subprocess.PIPE, text=True)
    values = iter(range(1, 255))
    lines = []
    while watch.poll() is None:
        ozuctl("state", "set", f"timeSourceFlagA={next(values)}")
    lines = [valid(json.loads(line), "state-watch") for line in watch.communicate()[0].splitlines()]
    assert [line["field"] for line in lines] == ["timeSourceFlagA"] * 2
    assert lines[0]["new"] == lines[1]["old"]


@pytest.mark.long
def test_state_watch_until(ozuctl):
    ozuctl("state", "set", "powerManagerMode=5")
    ozuctl("state", "watch", "--until", "powerManagerMode=5", "--for", "30")
    ozuctl("state", "watch", "--until", "powerManagerMode=6", "--for", "0.2", code=TIMED_OUT)


def test_platform_that_is_not_there(ozuctl):
    done = ozuctl("status", code=UNREACHABLE)
    assert done.stdout == "" and "ozuctl box shell" in done.stderr
    ozuctl("state", "get", code=UNREACHABLE)
    ozuctl("ask", "IsPanelInAlarm", code=UNREACHABLE)


@pytest.mark.long
def test_publish_carries_everything(ozuctl, box):
    with box.capture() as bus:
        ozuctl("publish", "Process/ALL", "00ff", "--label", "TEST", "--class", "255", "--command", "7")
        ozuctl("publish", "Process/ALL")
        first, second = bus.wait_for(topic="Process/ALL", count=2)
    assert (first.hex, first.properties) == ("00ff", {"label": "TEST", "class": "255", "command": "7"})
    assert second.payload == b""
    for payload in ("0", "0g", "0x00"):
        ozuctl("publish", "Process/ALL", payload, code=USAGE)
    ozuctl("publish", "Process/ALL", "--class", "256", code=USAGE)


@pytest.mark.long
def test_publish_without_broker(make_box):
    done = Ozuctl(make_box(broker=False))("publish", "Process/ALL", code=UNREACHABLE)
    assert "broker" in done.stderr
    done = Ozuctl(make_box(broker=False))("monitor", code=UNREACHABLE)
    assert "--no-bus" in done.stderr
    done = Ozuctl(make_box(broker=False))("wait-for", "bus", "Process/ALL", "--for", "1", code=UNREACHABLE)
    assert "'ozuctl box shell'" in done.stderr and "--no-bus" not in done.stderr


@pytest.mark.long
def test_ozuctl_runs_side_by_side(ozuctl, box):
    with box.capture() as bus:
        many = [box.popen(box.program("ozuctl", "publish", "Process/ALL", f"{n:02x}"), stderr=subprocess.PIPE)
                for n in range(6)]
        assert [process.wait(20) for process in many] == [0] * 6
        for process in many:
            process.stderr.close()
        found = bus.wait_for(topic="Process/ALL", count=6)
    assert sorted(message.payload[0] for message in found) == list(range(6))


@pytest.mark.long
def test_severity(ozuctl, box):
    core = start_alarm_core(box)
    log = box.platform / "log" / "ALARM_CORE.log"
    assert ozuctl.json("severity", "severity", "ALARM_CORE")["severity"] == "INFO"

    def refuse_partition():
        ozuctl("publish", "Process/ALARM_CORE", "09", "--class", "1")

    refuse_partition()
    wait_until(lambda: log.read_text().count("request for partition 9 refused") == 1)
    ozuctl("severity", "ALARM_CORE", "ERROR")
    assert ozuctl.json("severity", "severity", "ALARM_CORE")["level"] == 70000
    assert {"process": "ALARM_CORE", "severity": "ERROR", "level": 70000} in ozuctl.json("severity-list", "severity")
    refuse_partition()
    ozuctl("severity", "ALARM_CORE", "WARNING")
    refuse_partition()
    wait_until(lambda: log.read_text().count("request for partition 9 refused") == 2)
    assert "CRITICAL" in ozuctl("severity", "ALARM_CORE", "LOUD", code=USAGE).stderr
    core.terminate()
    assert core.wait(10) == 0
    assert log.read_text().count("refused") == 2


@pytest.mark.long
def test_processes(ozuctl, box):
    core = start_alarm_core(box)
    (row,) = [row for row in ozuctl.json("processes", "processes") if row["process"] == "ALARM_CORE"]
    assert row["severity"] == "INFO"
    core.kill()
    core.wait()
    # The box's first process takes the dead one off the kernel's list a moment later.
    wait_until(lambda: ozuctl.json("processes", "processes") == [], what="the end of ALARM_CORE")


@pytest.mark.long
def test_monitor_merges_everything_in_order(ozuctl, box):
    ozuctl("state", "set", *ENROL)
    core = start_alarm_core(box)
    stream = ozuctl.stream("monitor")
    assert valid(stream.first, "monitor")["kind"] == "snapshot"
    assert stream.first["fields"]["devices[1].deviceType"] == {"code": 85, "name": "W3"}
    assert [row["process"] for row in stream.first["processes"]] == ["ALARM_CORE"]
    ozuctl("publish", "Process/ALARM_CORE", "00", "--label", "KEYPAD", "--class", "1")
    ozuctl("state", "watch", "--until", "partitions[0].partitionState=2", "--for", "30")
    ozuctl("state", "set", "devices[1].openState=1")
    ozuctl("state", "watch", "--until", "partitions[0].partitionState=0", "--for", "30")
    stream.until(kind="bus", topic="Process/SAFETY_SIREN")
    stream.until(kind="state", field="partitions[0].partitionState", new={"code": 0, "name": "ALARM"})
    stream.until(kind="log", text="ALARM: contact of device 1 (W3) is open")
    stream.until(kind="event", text="SECURITY EVENT: Type [ SEC_DETECTION_IMMEDIATE_EVENT ] Partition "
                                    "[ PARTITION_FULL ] Media [ RADIO ]")
    lines = [valid(line, "monitor") for line in stream.end()]
    core.terminate()
    core.wait()
    assert [line["time"] for line in lines] == sorted(line["time"] for line in lines)
    kinds = {line["kind"] for line in lines}
    assert kinds >= {"bus", "state", "log", "event"}

    def position(**wanted):
        found = [i for i, line in enumerate(lines) if all(line.get(k) == v for k, v in wanted.items())]
        assert len(found) == 1, (wanted, lines)
        return found[0]

    arming = position(kind="bus", topic="Process/ALARM_CORE", payload="00", label="KEYPAD", **{"class": 1}, command=0)
    armed = position(kind="state", field="partitions[0].partitionState", new={"code": 2, "name": "ARMED_2"})
    opened = position(kind="state", field="devices[1].openState", old=0, new=1)
    alarm = position(kind="log", process="ALARM_CORE", text="ALARM: contact of device 1 (W3) is open")
    event = position(kind="event", text="SECURITY EVENT: Type [ SEC_DETECTION_IMMEDIATE_EVENT ] Partition "
                                        "[ PARTITION_FULL ] Media [ RADIO ]")
    siren = position(kind="bus", topic="Process/SAFETY_SIREN", payload="01")
    # The record is looked at now and then, so a change may be told a moment late; what was waited for is in order.
    assert max(arming, armed) < min(opened, alarm, event, siren)


@pytest.mark.long
def test_monitor_survives_the_broker(ozuctl, box):
    stream = ozuctl.stream("monitor", "--no-log", "--no-state", "--no-events")
    box.broker.restart()
    stream.until(connected=True)
    box.publish("again")
    stream.until(topic="again")
    lines = [valid(line, "monitor") for line in stream.end()]
    assert [(line.get("connected"), line.get("topic")) for line in lines] == [(False, None), (True, None), (None, "again")]


@pytest.mark.long
def test_monitor_follows_rotated_logs(ozuctl, box):
    ozuctl("state", "set", "cpPlasticVersion=1")
    folder = box.platform / "log"
    folder.mkdir(exist_ok=True)
    log = folder / "X.log"
    log.write_text("before\n")
    stream = ozuctl.stream("monitor", "--no-bus", "--no-state", "--no-events")
    with log.open("a") as file:
        file.write("2026-01-01T00:00:00.000Z 50000 W X[7] src/utils f:3 one\n2026-01-01T00:00:00.001Z 40000 N X[7] - - tw")
    time.sleep(0.2)
    with log.open("a") as file:
        file.write("o\n")
        log.rename(folder / "X.log.1")
        file.write("2026-01-01T00:00:00.002Z 40000 N X[7] - - three\n")
    log.write_text("2026-01-01T00:00:00.003Z 40000 N X[7] - - four\nodd line\n")
    stream.until(text="odd line")
    lines = [valid(line, "monitor") for line in stream.end()]
    assert [line["text"] for line in lines] == ["one", "two", "three", "four", "odd line"]
    assert lines[0]["level"] == {"code": 50000, "name": "W"} and lines[0]["function"] == "f"


@pytest.mark.long
def test_usage_errors(ozuctl):
    for words in ([], ["nothing"], ["state"], ["state", "frob"], ["state", "get", "--frob"], ["severity", "a", "b", "c"]):
        done = ozuctl(*words, code=USAGE)
        assert done.stdout == "" and done.stderr
    assert "Subcommands" in ozuctl("--help").stdout


@pytest.mark.long
def test_box_commands():
    program = [*emulator(), str(build_dir() / "bin" / "ozuctl"), "box"]
    started = subprocess.run([*program, "start", "--no-broker"], capture_output=True, text=True, timeout=30)
    folder = started.stdout.strip()
    assert started.returncode == 0
    inside = subprocess.run([*program, "exec", folder, "--", "cat", "/etc/hostname"], capture_output=True, text=True)
    assert inside.stdout == "panel\n"
    assert "running yes" in subprocess.run([*program, "status", folder], capture_output=True, text=True).stdout
    assert subprocess.run([*program, "stop", folder]).returncode == 0
    assert not pathlib.Path(folder).exists()
    assert subprocess.run([*program, "run", "--no-broker", "--", "sh", "-c", "exit 7"]).returncode == 7


def milliseconds(time):
    return datetime.datetime.strptime(time, "%Y-%m-%dT%H:%M:%S.%fZ").replace(tzinfo=datetime.timezone.utc).timestamp() * 1000


@pytest.mark.long
def test_a_message_stands_at_its_senders_time(ozuctl, box):
    """A monitor that was kept from running finds the message and what it caused at the same moment."""
    ozuctl("state", "set", "cpPlasticVersion=1")
    monitor = box.popen(box.program("ozuctl", "--json", "monitor", "--no-state", "--count", "4", "--for", "30"), stdout=subprocess.PIPE, text=True)
    monitor.stdout.readline()
    monitor.send_signal(signal.SIGSTOP)
    began = time.time() * 1000
    ozuctl("publish", "Process/NOBODY", "01")
    ended = time.time() * 1000
    box.run(["sh", "-c", "date -u +'%Y-%m-%dT%H:%M:%S.%3NZ 70000 E CORE[1] - - effect' >>/var/lib/ozu/log/CORE.log"], check=True)
    for sent in (str(int(time.time() * 1000) + 10**9), "0", "x" * 9, "9" * 60000):  # none of them is a time that counts
        box.run(["mosquitto_pub", "-V", "5", "-t", "Process/ODD", "-m", "x", "-D", "publish", "correlation-data", sent], check=True)
    monitor.send_signal(signal.SIGCONT)
    records = [json.loads(line) for line in monitor.stdout]
    assert monitor.wait(60) in (0, 124)
    monitor.stdout.close()
    message = next(record for record in records if record.get("topic") == "Process/NOBODY")
    assert int(began) <= milliseconds(message["time"]) <= ended
    if effects := [place for place, record in enumerate(records) if record.get("text") == "effect"]:
        assert records.index(message) < effects[0]
    odd = [milliseconds(record["time"]) for record in records if record.get("topic") == "Process/ODD"]
    assert all(int(ended) <= time_ms <= time.time() * 1000 for time_ms in odd)
