"""Start-up of panel processes against real brokers, good, bad and absent ones."""

import subprocess
import time

import pytest

from pytest_ozu.box import PanelBox
from pytest_ozu.build import CHECKOUT as ROOT
from pytest_ozu.waiting import wait_until
from panel_process import SYSLOG_TOPIC, connections


@pytest.mark.long
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


@pytest.mark.long
def test_queries_work_before_the_start(box, start):
    """The reference platform maps the record when it is first asked for."""
    process = start(box)
    assert process.ask("armtype") == 5, "a new record is disarmed; without a record the answer is 0"
    assert process.end() == 0


@pytest.mark.long
def test_second_start_only_warns(box, start):
    process = start(box)
    assert process.ask("init") == 0
    before = connections(box).count("TEST_PROCESS")
    assert process.ask("init") == 0
    assert connections(box).count("TEST_PROCESS") == before
    wait_until(lambda: process.logged("ozuutils_processInit function should be called once only"))
    assert process.logged("called once only") == [(50000, "ozuutils_processInit function should be called once only")]


@pytest.mark.long
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


@pytest.mark.long
def test_broker_silent_then_back(box, start):
    box.broker.pause()
    process = start(box)
    code = process.ask("init", timeout=60)
    assert code != 0
    wait_until(lambda: process.logged("mqttc_connect returned"))
    assert process.logged("mqttc_connect returned") == [(80000, f"mqttc_connect returned: {code}")]
    box.broker.resume()
    assert process.ask("init", timeout=60) == 0


@pytest.mark.long
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


@pytest.mark.long
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


@pytest.mark.long
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


@pytest.mark.long
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


def start_alarm_core(box):
    process = box.popen(box.program("alarm_core"), stderr=subprocess.DEVNULL)
    log = box.platform / "log" / "ALARM_CORE.log"
    wait_until(lambda: log.exists() and "alarm core is up" in log.read_text(), 20, "alarm_core's start")
    return process


@pytest.mark.long
def test_panels_in_parallel_boxes_do_not_meet(make_box):
    panels = [make_box() for _ in range(3)]
    cores = [start_alarm_core(panel) for panel in panels]
    panels[1].run(panels[1].program("ozuctl", "publish", "Process/ALARM_CORE", "00", "--class", "1"), check=True)
    panels[1].run(panels[1].program("ozuctl", "state", "watch", "--until", "partitions[0].partitionState=2", "--for", "30"),
                  check=True)
    answers = [panel.run(panel.program("ozuctl", "ask", "getCurArmType")).stdout for panel in panels]
    assert answers == ["5 DISARMED\n", "0 FULL\n", "5 DISARMED\n"]
    for core in cores:
        core.terminate()
        assert core.wait(10) == 0


def test_ordinary_user_runs_panel_processes(ordinary_user):
    with PanelBox(user=ordinary_user) as box:
        core = start_alarm_core(box)
        box.run(box.program("ozuctl", "publish", "Process/ALARM_CORE", "00", "--class", "1"), check=True)
        box.run(box.program("ozuctl", "state", "watch", "--until", "partitions[0].partitionState=2", "--for", "30"), check=True)
        core.terminate()
        assert core.wait(10) == 0
        assert {path.stat().st_uid for path in box.platform.rglob("*")} == {ordinary_user}
