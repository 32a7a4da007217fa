"""The clock of a panel's processes, moved by the test through libfaketime.

What a process reads as the time of day moves: time(), gettimeofday(), CLOCK_REALTIME. The monotonic clock stays real, and so does
what waits by it; a sleep that has begun is not woken by a jump. So do the times of files, since a data folder is known by when it was
made. With a speed above 1 sleep(), usleep(), poll() and select() are shorter by as much, the timeouts of socket receives and of
condition variables are not.
"""

import datetime
import itertools
import os
import pathlib
import time

FOLDER = "/panel-box/control"


def library():
    """libfaketime as installed; None without it."""
    found = sorted(pathlib.Path("/usr/lib").glob("*/faketime/libfaketimeMT.so.1"))
    return found[0] if found else None


class Clock:
    """libfaketime reads a file: an offset and a speed. The speed counts from the start of the process that reads it, so with one
    above 1 every process has a file of its own."""

    def __init__(self, box):
        self._box = box
        self._speed = 1.0
        self._files = {}  # by name: when its process started, by the real clock, and the offset of that moment
        self._numbers = itertools.count(1)
        self.followed = False  # by a process that runs
        self._begin("clock")

    def environment(self):
        """The variables of a program that is started now and follows this clock."""
        if library() is None or os.environ.get("OZU_TEST_EMULATOR"):
            return {}
        name = "clock" if self._speed == 1 else f"clock.{next(self._numbers)}"
        if name not in self._files:
            self._begin(name)
        return {"LD_PRELOAD": str(library()), "FAKETIME_TIMESTAMP_FILE": f"{FOLDER}/{name}", "FAKETIME_NO_CACHE": "1",
                "FAKETIME_DONT_FAKE_MONOTONIC": "1", "NO_FAKE_STAT": "1"}

    def now(self):
        """Seconds since 1970 as the panel's processes see them."""
        start, offset = self._files["clock"]
        real = time.time()
        return real + offset + (real - start) * (self._speed - 1)

    def advance(self, seconds):
        """So much time passes at once: forwards, or back when it is negative."""
        self._require()
        for name, (start, offset) in self._files.items():
            self._write(name, start, offset + seconds)

    def set(self, moment):
        """It is this moment: seconds since 1970, or "2026-03-01T12:00:00" in UTC."""
        if isinstance(moment, str):
            moment = datetime.datetime.fromisoformat(moment.rstrip("Z")).replace(tzinfo=datetime.timezone.utc).timestamp()
        self.advance(moment - self.now())

    def run_at(self, speed):
        """Time runs so many times faster, from before the first process starts on."""
        self._require()
        if self.followed:
            raise RuntimeError("the speed of the clock must be set before the first process starts")
        now = self.now()
        self._files.clear()
        self._speed = float(speed)
        real = time.time()
        self._write("clock", real, now - real)

    def reset(self):
        """The real time again, for processes that start from now on."""
        self._files.clear()
        self._speed, self.followed = 1.0, False
        self._begin("clock")

    def _require(self):
        if library() is None:
            raise RuntimeError("the panel's clock cannot be moved: install the package faketime")

    def _begin(self, name):
        self._write(name, time.time(), self.now() - time.time() if self._files else 0.0)

    def _write(self, name, start, offset):
        """In one step: processes read it at any moment."""
        self._files[name] = (start, offset)
        new = self._box.control / "clock.new"
        new.write_text(f"{offset:+.6f}" + (f" x{self._speed:g}" if self._speed != 1 else "") + "\n")
        new.rename(self._box.control / name)
