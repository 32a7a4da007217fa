"""The broker is killed under running processes and started again: nothing that it acknowledged is lost."""

import queue
import time

import pytest

from pytest_ozu.waiting import wait_until
from panel_process import SYSLOG_TOPIC, connections

SENDERS = ["SENDER_A", "SENDER_B", "SENDER_C"]
RECEIVERS = ["RECEIVER_A", "RECEIVER_B"]
EVERYBODY = SENDERS + RECEIVERS
MESSAGES, PAUSE_MS = 2000, 7  # of each sender: fourteen seconds
KILLS = 3


def collected(receiver):
    """Messages that have come so far: topic, number of each."""
    found = []
    while True:
        try:
            words = receiver.messages.get_nowait().split()
        except queue.Empty:
            return found
        found.append((words[0], int.from_bytes(bytes.fromhex(words[-1]), "little")))


def wait_for_everybody(box, since):
    """Until the broker has taken a new session of every process."""
    wait_until(lambda: all(connections(box).count(name) > since.count(name) for name in EVERYBODY), 60,
               "every process's reconnection")


def wait_for_silence(receivers, seen):
    """Until nothing has come for a while; adds to what was seen."""
    quiet_since = time.monotonic()
    while time.monotonic() < quiet_since + 0.3:
        for receiver in receivers:
            new = set(collected(receiver))
            seen[receiver] |= new
            if new:
                quiet_since = time.monotonic()
        time.sleep(0.02)


@pytest.mark.long
def test_nothing_acknowledged_is_lost(box, start):
    processes = {name: start(box, name) for name in EVERYBODY}
    assert [process.ask("init") for process in processes.values()] == [0] * len(EVERYBODY)
    receivers = [processes[name] for name in RECEIVERS]
    for receiver in receivers:
        assert receiver.ask("subscribe Process/FLOOD/+") == 0
    for name in SENDERS:
        processes[name].send(f"flood Process/FLOOD/{name} {MESSAGES} {PAUSE_MS}")
    seen = {receiver: set() for receiver in receivers}
    for _ in range(KILLS):
        time.sleep(0.5)
        before = connections(box)
        # What it has acknowledged and handed out is read before it dies; no client can do that in a dead session.
        box.broker.pause()
        wait_for_silence(receivers, seen)
        box.broker.kill()
        time.sleep(0.2)
        # The senders' messages are waiting, and other processes see it.
        assert [receiver.ask("inflight") for receiver in receivers] == [1, 1]
        assert all(processes[name].answers.empty() for name in SENDERS), "the flood was over too soon"
        box.broker.start()
        wait_for_everybody(box, before)
    for name in SENDERS:
        assert processes[name].answers.get(timeout=120) == ("flood", str(MESSAGES))
    for process in processes.values():
        wait_until(lambda process=process: process.ask("inflight") == 0, 60, "the last acknowledgement")

    everything = {(f"Process/FLOOD/{name}", number) for name in SENDERS for number in range(MESSAGES)}
    for receiver in receivers:
        deadline = time.monotonic() + 60
        while seen[receiver] != everything and time.monotonic() < deadline:
            seen[receiver] |= set(collected(receiver))
            time.sleep(0.05)
        missing = sorted(everything - seen[receiver])
        assert missing == [], f"{len(missing)} missing"
    for process in processes.values():
        assert process.logged("dropped|not acknowledged|refused") == []

    # Subscriptions stand again, those of the library and those of the process.
    for topic in ("Process/FLOOD/AGAIN", SYSLOG_TOPIC):
        box.publish(topic, b"\x07\0\0\0")
        for receiver in receivers:
            wait_until(lambda receiver=receiver, topic=topic: (topic, 7) in collected(receiver), 20,
                       f"the message to {topic}")
