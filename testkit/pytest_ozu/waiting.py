"""Waits that poll, with limits that a busy machine stretches."""

import os
import time

LOOK = 0.01  # seconds between two looks
MOST = 60  # seconds; a shorter limit is stretched up to that


class NotSeen(AssertionError, TimeoutError):
    """Something did not happen in time. The first line says what was expected and what was last seen."""


def stretch():
    """How many times longer a limit is than on an idle machine: OZU_PATIENCE, or by the processes that wait for a processor."""
    if os.environ.get("OZU_PATIENCE"):
        return float(os.environ["OZU_PATIENCE"])
    with open("/proc/loadavg", encoding="ascii") as file:
        words = file.read().split()
    waiting = max(float(words[0]), float(words[3].split("/")[0]))
    return max(1.0, 3 * waiting / (os.cpu_count() or 1))


def wait_until(condition, timeout=10.0, what="the condition", last=None):
    """Polls until the condition gives something true, and returns that. `last()` tells what was seen instead."""
    begin = time.monotonic()
    while True:
        late = time.monotonic() - begin
        value = condition()
        if value:
            return value
        # The condition was looked at after the time was up, so what came within it counts.
        if late > timeout and late > min(timeout * stretch(), MOST):
            raise NotSeen(f"expected {what} within {timeout:g} s; last seen: {last() if last else 'nothing of it'}")
        time.sleep(LOOK)


def holds(condition, seconds):
    """Whether the condition gives something true at every look for so long."""
    end = time.monotonic() + seconds
    while True:
        if not condition():
            return False
        if time.monotonic() > end:
            return True
        time.sleep(LOOK)
