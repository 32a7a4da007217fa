"""The box's broker and what tests see of the bus."""

import subprocess

import pytest

from pytest_ozu.box import parse_properties


@pytest.mark.long
def test_messages_come_with_payload_and_properties(box):
    with box.capture() as bus:
        box.publish("Process/ALL", b"\x00\x0f\xff", {"label": "a b", "class": 1, "command": 0})
        box.publish("Process/ALL")
        first, second = bus.wait_for(topic="Process/ALL", count=2)
    assert (first.hex, first.properties) == ("000fff", {"label": "a b", "class": "1", "command": "0"})
    assert (second.payload, second.properties) == (b"", {})


def test_properties_with_empty_values():
    assert parse_properties("label: class:22 command:21") == {"label": "", "class": "22", "command": "21"}
    assert parse_properties("") == {}


@pytest.mark.long
def test_broker_comes_and_goes(box):
    probe = ["mosquitto_pub", "-V", "5", "-q", "1", "-t", "probe", "-n"]
    assert box.run(probe).returncode == 0
    box.broker.kill()
    assert box.run(probe).returncode != 0
    box.broker.start()
    assert box.run(probe).returncode == 0
    box.broker.pause()
    silent = box.popen(probe)
    try:
        silent.wait(0.5)
        raise AssertionError("a paused broker answered")
    except subprocess.TimeoutExpired:
        box.broker.resume()
    assert silent.wait(10) == 0
    box.broker.stop()
    assert box.run(probe).returncode != 0


def test_box_without_broker(make_box):
    box = make_box(broker=False)
    assert box.run(["box-broker", "status"]).returncode == 1


def test_signals_reach_the_process_in_the_box(box):
    process = box.popen(["sh", "-c", "trap 'echo told; exit 5' TERM; echo ready; while :; do sleep 0.05; done"],
                        stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "ready\n"
    process.terminate()
    assert process.wait(10) == 5
    assert process.stdout.read() == "told\n"
    process.stdout.close()
