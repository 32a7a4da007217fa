"""Requests to the co-processor and the radio, as a second process receives them from the broker."""

import json
import signal

import pytest

import ozuctl
from ozuctl import ask, coded, run

BLOCK = 186


@pytest.fixture(scope="module")
def box(shared_box):
    return shared_box


def envelope(*block, length=BLOCK):
    return bytes([17, 4, 0, 0, 0, *block]).ljust(5 + length, b"\0")


def received(capture, topic):
    (message,) = [m for m in capture.settle() if m.topic == topic]
    return message


@pytest.mark.long
@pytest.mark.parametrize("words, block, request_", [
    (["serial"], [0], coded(0, "SERIAL_NUMBER")),
    (["uart", "3"], [8, 3], coded(8, "UART_PROTOCOL")),
    (["uart", "255"], [8, 255], coded(8, "UART_PROTOCOL")),
    (["manufacture"], [9], coded(9, "MANUFACTURE_VALUES")),
    (["tamper"], [10], coded(10, "TAMPER_STATE")),
], ids=lambda value: "-".join(value) if isinstance(value, list) and isinstance(value[0], str) else "")
def test_request_byte_for_byte(box, words, block, request_):
    with box.capture() as bus:
        assert ask(box, "nxp", "nxp", *words) == {"request": request_}
        message = received(bus, "Process/MDL")
    assert message.payload == envelope(*block)
    assert (message.properties["class"], message.properties["command"]) == ("0", "1")
    assert message.properties.get("label", "") == ""


@pytest.mark.long
def test_housing_version(box):
    with box.capture() as bus:
        for version in (0, 4, 255):
            run(box, "state", "set", f"cpPlasticVersion={version}")
            done = run(box, "nxp", "housing", status=4)
            assert f"Error: can't update plastic version to {version}" in done.stderr
        assert [m for m in bus.settle() if m.topic == "Process/MDL"] == []
        for version in (1, 2, 3):
            run(box, "state", "set", f"cpPlasticVersion={version}")
            ask(box, "nxp", "nxp", "housing")
        payloads = [m.payload for m in bus.settle() if m.topic == "Process/MDL"]
    assert payloads == [envelope(13, version) for version in (1, 2, 3)]


@pytest.mark.long
@pytest.mark.parametrize("block", [b"", b"\0", bytes(range(256)) * 8], ids=["empty", "zero", "2048"])
def test_any_block(box, block):
    with box.capture() as bus:
        run(box, "nxp", "send", block.hex(), "--command", "5")
        assert received(bus, "Process/MDL").payload == bytes([17, 5, 0, 0, 0]) + block


@pytest.mark.long
def test_gpio(box):
    with box.capture() as bus:
        assert ask(box, "gpio", "gpio", "7", "1", "--sender", "RFMAN") == {"gpio": 7, "level": 1}
        message = received(bus, "Process/RF_MANAGER")
    assert message.payload == bytes([7, 1])
    assert message.properties["label"] == "RFMAN"
    assert (message.properties["class"], message.properties["command"]) == ("35", "10")


@pytest.mark.long
@pytest.mark.parametrize("words", [("300", "1"), ("3", "256"), ("-1", "1"), ("3", "")])
def test_only_what_fits_its_byte_is_sent(box, words):
    with box.capture() as bus:
        assert "0 to 255" in run(box, "gpio", "--", *words, status=2).stderr
        assert [m for m in bus.settle() if m.topic == "Process/RF_MANAGER"] == []
    run(box, "nxp", "send", "00", "--command", "261", status=2)


@pytest.mark.long
def test_monitor_explains_the_requests(box):
    # The snapshot comes once the bus is being listened to; --for ends a monitor that never sees the messages.
    monitor = box.popen(box.program("ozuctl", "--json", "monitor", "--no-state", "--no-log", "--no-events",
                                    "--topic", "Process/#", "--for", "20"), stdout=-1, text=True)
    assert json.loads(monitor.stdout.readline())["kind"] == "snapshot"
    run(box, "nxp", "uart", "2")
    run(box, "nxp", "send", "63")
    run(box, "gpio", "5", "1")
    meanings = []
    for line in map(json.loads, monitor.stdout):
        ozuctl.validate("monitor", line)
        if line["kind"] == "bus":
            meanings.append(line["meaning"])
        if len(meanings) == 3:
            break
    monitor.send_signal(signal.SIGINT)
    monitor.wait(30)
    monitor.stdout.close()
    assert meanings == [
        {"message": "NXP_REQUEST", "nxpCommand": 4, "request": coded(8, "UART_PROTOCOL"), "protocol": 2},
        {"message": "NXP_REQUEST", "nxpCommand": 4, "request": coded(99, "UNKNOWN")},
        {"message": "RF_MGR_MQTT_API_CMD_TYPE_SET_CC_GPIO", "gpio": 5, "level": 1, "high": True},
    ]


@pytest.mark.long
def test_no_broker(make_box):
    box = make_box(broker=False)
    assert "broker" in run(box, "nxp", "serial", status=3).stderr


@pytest.mark.long
def test_usage(box):
    run(box, "nxp", "uart", "256", status=2)
    run(box, "nxp", "send", "0", status=2)
    run(box, "nxp", "send", "zz", status=2)
    run(box, "nxp", status=2)
