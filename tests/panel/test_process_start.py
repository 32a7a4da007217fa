"""Start-up of panel processes against real brokers, good, bad and absent ones."""

import os
import queue
import re
import subprocess
import threading
import time

import pytest

from box import ROOT, PanelBox, wait_until

SYSLOG_TOPIC = "Multicast/WIFI_SYSLOG_APPENDER_STATE"


class PanelProcess:
    """tests/panel/programs/panel_process in a box."""

    def __init__(self, box, name):
        self.process = box.popen(box.program("panel_process", name), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, text=True, bufsize=1)
        self.answers, self.messages, self.errors = queue.Queue(), queue.Queue(), []
        self.threads = [threading.Thread(target=target, daemon=True) for target in (self._read, self._read_errors)]
        for thread in self.threads:
            thread.start()

    def _read(self):
        for line in self.process.stdout:
            kind, _, rest = line.rstrip("\n").partition(" ")
            if kind == "message":
                self.messages.put(rest)
            else:
                self.answers.put((kind, rest))

    def _read_errors(self):
        for line in self.process.stderr:
            self.errors.append(line.rstrip("\n"))

    def send(self, line):
        self.process.stdin.write(line + "\n")

    def ask(self, line, timeout=30):
        self.send(line)
        kind, rest = self.answers.get(timeout=timeout)
        assert kind == line.split()[0], (line, kind, rest)
        return int(rest)

    def message(self, timeout=10):
        return self.messages.get(timeout=timeout)

    def logged(self, pattern):
        """Log lines that went to standard error and match: (level, text)."""
        found = []
        for line in list(self.errors):
            match = re.match(r"^\S+ (\d+) [A-Z] \S+\[\d+\] \S+ \S+ (.*)$", line)
            if match and re.search(pattern, match.group(2)):
                found.append((int(match.group(1)), match.group(2)))
        return found

    def end(self):
        """Leaves through exit; returns the exit status."""
        if self.process.poll() is None:
            try:
                self.send("exit")
            except BrokenPipeError:
                pass
        status = self.process.wait(20)
        for thread in self.threads:
            thread.join(5)
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            stream.close()
        return status


@pytest.fixture
def start():
    """start(box, name): a panel process, ended with the test."""
    started = []

    def begin(box, name="TEST_PROCESS"):
        started.append(PanelProcess(box, name))
        return started[-1]

    yield begin
    for process in started:
        if not process.process.stdin.closed:
            process.end()


def connections(box):
    """Names of the sessions that the broker has taken, in order."""
    return re.findall(r"New client connected from \S+ as (\S+)", (box.control / "broker.log").read_text())


def test_start_use_end(box, start):
    process = start(box)
    assert process.ask("init") == 0
    assert connections(box)[-1] == "TEST_PROCESS"
    box.publish(SYSLOG_TOPIC, b"\x01", {"label": "LOG", "class": 3, "command": 4})
    assert process.message() == f"{SYSLOG_TOPIC} LOG 3 4 01"
    with box.capture() as bus:
        assert process.ask("publish Process/ALL 258") == 0
        message = bus.wait_for(topic="Process/ALL")
    assert message.hex == "02010000"
    assert message.properties == {"label": "TEST", "class": "1", "command": "2"}
    assert process.end() == 0
    # It says goodbye; a session that just breaks off reads "closed its connection".
    wait_until(lambda: "Client TEST_PROCESS disconnected" in (box.control / "broker.log").read_text())
    assert "TEST_PROCESS closed its connection" not in (box.control / "broker.log").read_text()


def test_second_start_only_warns(box, start):
    process = start(box)
    assert process.ask("init") == 0
    before = connections(box).count("TEST_PROCESS")
    assert process.ask("init") == 0
    assert connections(box).count("TEST_PROCESS") == before
    wait_until(lambda: process.logged("ozuutils_processInit function should be called once only"))
    assert process.logged("called once only") == [(50000, "ozuutils_processInit function should be called once only")]


def test_broker_absent_then_back(make_box, start):
    box = make_box(broker=False)
    process = start(box)
    code = process.ask("init")
    assert code != 0
    wait_until(lambda: process.logged("mqttc_connect returned"))
    assert process.logged("mqttc_connect returned") == [(80000, f"mqttc_connect returned: {code}")]
    assert process.ask("init") == code
    box.broker.start()
    assert process.ask("init") == 0


def test_broker_silent_then_back(box, start):
    box.broker.pause()
    process = start(box)
    code = process.ask("init", timeout=60)
    assert code != 0
    wait_until(lambda: process.logged("mqttc_connect returned"))
    assert process.logged("mqttc_connect returned") == [(80000, f"mqttc_connect returned: {code}")]
    box.broker.resume()
    assert process.ask("init", timeout=60) == 0


def test_broker_that_refuses_the_subscription(make_box, start):
    box = make_box(broker=False)
    broker = box.popen(["/usr/bin/python3", ROOT / "tests" / "panel" / "programs" / "refusing_broker.py"],
                       stdout=subprocess.PIPE, text=True)
    assert broker.stdout.readline() == "ready\n"
    process = start(box)
    code = process.ask("init")
    assert code != 0
    wait_until(lambda: process.logged("topicSubscribe returned"))
    assert process.logged("topicSubscribe returned") == [(80000, f"ozumqttc_topicSubscribe returned: {code}")]
    # Connected but not subscribed counts as started.
    assert process.ask("init") == 0
    wait_until(lambda: process.logged("called once only"))
    assert process.end() == 0
    broker.kill()
    broker.wait()
    broker.stdout.close()


def test_broker_dies_and_returns(box, start):
    process = start(box)
    assert process.ask("init") == 0
    assert process.ask("subscribe Process/TEST") == 0
    box.publish("Process/TEST", b"\x01")
    assert process.message().endswith("01")
    for _ in range(2):
        before = connections(box).count("TEST_PROCESS")
        box.broker.restart()
        wait_until(lambda: connections(box).count("TEST_PROCESS") > before, 20, "the reconnection")
        # Both subscriptions stand again.
        for topic in ("Process/TEST", SYSLOG_TOPIC):
            deadline = time.monotonic() + 10
            while process.messages.empty() and time.monotonic() < deadline:
                box.publish(topic, b"\x02")
                time.sleep(0.1)
            assert process.message(1).startswith(topic)
            while not process.messages.empty():
                process.message()


def test_no_acknowledged_message_is_lost(box, start):
    """The broker is killed twice under a flood; every number arrives, and nothing stays in flight."""
    count = 400
    receiver, sender = start(box, "RECEIVER"), start(box, "SENDER")
    assert receiver.ask("init") == 0 and sender.ask("init") == 0
    assert receiver.ask("subscribe Process/FLOOD") == 0
    sender.send(f"flood Process/FLOOD {count} 10")
    for _ in range(2):
        time.sleep(0.7)
        box.broker.restart()
    assert sender.answers.get(timeout=60) == ("flood", str(count))
    wait_until(lambda: sender.ask("inflight") == 0, 60, "the last acknowledgement")
    seen = []
    deadline = time.monotonic() + 20
    while len(set(seen)) < count and time.monotonic() < deadline:
        try:
            text = receiver.message(1).split()[-1]
        except queue.Empty:
            continue
        seen.append(int.from_bytes(bytes.fromhex(text), "little"))
    assert sorted(set(seen)) == list(range(count))


def test_two_processes_of_one_name(box, start):
    """The broker gives the name to whoever comes last; the two must not push each other out without end."""
    first, second = start(box), start(box)
    assert first.ask("init") == 0
    assert second.ask("init") == 0
    time.sleep(4)
    assert connections(box).count("TEST_PROCESS") <= 8
    assert first.ask("inflight") in (0, 1) and second.ask("inflight") in (0, 1)
    assert first.end() == 0
    # Alone again, the other one comes back for good.
    before = connections(box).count("TEST_PROCESS")
    wait_until(lambda: second.ask("publish Process/ALL 1") == 0, 20, "the other process's return")
    wait_until(lambda: second.ask("inflight") == 0, 40, "the message's acknowledgement")
    assert connections(box).count("TEST_PROCESS") <= before + 2


def test_child_that_exits_leaves_the_session_alone(box, start):
    process = start(box)
    assert process.ask("init") == 0
    before = len(connections(box))
    for _ in range(3):
        assert process.ask("fork") == 3
    box.publish(SYSLOG_TOPIC, b"\x05")
    assert process.message().endswith(" 05")
    assert process.ask("publish Process/ALL 1") == 0
    assert connections(box)[before:].count("TEST_PROCESS") == 0


def test_killed_process_can_start_again(box, start):
    process = start(box)
    assert process.ask("init") == 0
    process.process.kill()
    assert process.end() == -9
    again = start(box)
    assert again.ask("init") == 0
    assert again.ask("inflight") == 0


def start_alarm_core(box):
    process = box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    log = box.platform / "log" / "ALARM_CORE.log"
    wait_until(lambda: log.exists() and "alarm core is up" in log.read_text(), 20, "alarm_core's start")
    return process


def test_panels_in_parallel_boxes_do_not_meet(make_box):
    panels = [make_box() for _ in range(3)]
    cores = [start_alarm_core(panel) for panel in panels]
    panels[1].run(panels[1].program("ozuctl", "publish", "Process/ALARM_CORE", "00", "--class", "1"), check=True)
    panels[1].run(panels[1].program("ozuctl", "state", "watch", "--until", "partitions[0].partitionState=2", "--for", "5"),
                  check=True)
    answers = [panel.run(panel.program("ozuctl", "ask", "getCurArmType")).stdout for panel in panels]
    assert answers == ["5 DISARMED\n", "0 FULL\n", "5 DISARMED\n"]
    for core in cores:
        core.terminate()
        assert core.wait(10) == 0


@pytest.mark.skipif(os.getuid() != 0, reason="runs as an ordinary user already")
def test_ordinary_user_runs_panel_processes():
    with PanelBox(user=65534) as box:
        core = start_alarm_core(box)
        box.run(box.program("ozuctl", "publish", "Process/ALARM_CORE", "00", "--class", "1"), check=True)
        box.run(box.program("ozuctl", "state", "watch", "--until", "partitions[0].partitionState=2", "--for", "5"), check=True)
        core.terminate()
        assert core.wait(10) == 0
        assert {path.stat().st_uid for path in box.platform.rglob("*")} == {65534}
