"""Panel tests of doorbell: the real process on a panel in a box, with a real broker."""

import pytest

pytestmark = pytest.mark.process("doorbell")


def press(bus):
    bus.wait_for_listener("Process/DOORBELL")
    bus.publish("Process/DOORBELL", label="KEYPAD", message_class=1, command=1)


def test_a_ring_is_told(panel, bus, log, dns):
    press(bus)
    assert bus.wait_for("Multicast/DOORBELL", label="DOORBELL")["payload"] == "01"
    log.wait_for("push server at 10.77.0.1", process="DOORBELL")
    dns.wait_for_query("push.test")


def test_no_ring_during_an_alarm(state, bus, log):
    state.set("partitions[0].partitionState=ALARM")
    press(bus)
    log.wait_for("no chime during an alarm")
    bus.never("Multicast/DOORBELL")


def test_a_ring_without_dns_is_told_as_well(bus, log, faults):
    with faults.dns("refuse"):
        press(bus)
        log.wait_for("the push server has no address")
        bus.wait_for("Multicast/DOORBELL")
