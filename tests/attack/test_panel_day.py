"""A day of a panel at speed: its processes keep the memory, descriptors, threads and segments that they have after the first minutes."""

import json
import os
import time

import pytest

from pytest_ozu.build import emulator
from pytest_ozu.waiting import wait_until

LONG = os.environ.get("OZU_ATTACK") == "long"
HOURS = 24 if LONG else 1
SPEED = 300 if LONG else 1200
GROWTH_KIB = 1024
PROCESSES = [("alarm_core",), ("door_contact", "1"), ("door_contact", "2"), ("safety_siren",)]

pytestmark = [pytest.mark.long, pytest.mark.skipif(bool(emulator()), reason="libfaketime is of this machine")]

# Runs in the box: what each process holds, and the shared memory of all.
LOOK = r"""
import json, os, sys
held = {}
for pid in filter(str.isdigit, os.listdir("/proc")):
    try:
        status = dict(line.split(":", 1) for line in open(f"/proc/{pid}/status"))
        name = status["Name"].strip()
        if name in sys.argv[1:]:
            held[f"{name} {pid}"] = {"KiB": int(status["RssAnon"].split()[0]), "threads": int(status["Threads"]),
                                     "descriptors": len(os.listdir(f"/proc/{pid}/fd"))}
    except (OSError, KeyError):
        continue
segments = sorted(os.listdir("/dev/shm"))
print(json.dumps({"processes": held, "segments": segments, "bytes": sum(os.stat("/dev/shm/" + s).st_size for s in segments)}))
"""


def look(panel):
    names = sorted({program[0] for program in PROCESSES} | {"mosquitto"})
    return json.loads(panel.box.run(["/usr/bin/python3", "-c", LOOK, *names], check=True).stdout)


def settled(panel):
    """The same, once nobody is about to come or go: the broker also holds those that have just left."""
    def counts(looked):
        return {name: (held["threads"], held["descriptors"]) for name, held in looked["processes"].items()}

    last = [look(panel) for _ in range(3)]

    def unchanging():
        last[:] = [*last[1:], look(panel)]
        return counts(last[0]) == counts(last[1]) == counts(last[2])

    wait_until(unchanging, 60, "the end of comings and goings")
    return last[-1]


def happen(panel, number):
    """What happens on a panel: a door opens and closes, the system is armed and disarmed, somebody says something."""
    panel.ozuctl("state", "set", f"devices[{1 + number % 2}].openState={number // 2 % 2}", f"partitions[0].partitionState={2 + number % 3}",
                 f"zones[{number % 32}].bypass[0].bypassExpiry=now+30")
    panel.ozuctl("publish", "Process/ALL", f"{number % 256:02X}", "--label", "LTE", "--class", "1")
    panel.ozuctl("publish", "Multicast/TBB_EVENT", "--text", json.dumps({"type": 85, "device": number % 200, "code": number}))


def test_a_day_leaves_everything_as_it_was(panel, clock):
    clock.run_at(SPEED)
    started = clock.now()
    for program in PROCESSES:
        panel.start(*program)
    happenings = 0
    first = None
    while clock.now() - started < HOURS * 3600 or happenings < (20 if LONG else 6):
        happen(panel, happenings)
        happenings += 1
        if first is None and happenings >= 3 and clock.now() - started > HOURS * 360:
            first = settled(panel)
        time.sleep(0.1)
    last = settled(panel)
    assert set(first["processes"]) == set(last["processes"]) and len(last["processes"]) == len(PROCESSES) + 1, (first, last)
    grown = {}
    for name, before in first["processes"].items():
        after = last["processes"][name]
        grown[name] = after["KiB"] - before["KiB"]
        assert (after["threads"], after["descriptors"]) == (before["threads"], before["descriptors"]), (name, before, after)
        assert grown[name] <= GROWTH_KIB, (name, before, after)
    assert (first["segments"], first["bytes"]) == (last["segments"], last["bytes"])
    most = max(grown, key=grown.get)
    print(f"\nattack: panelDay: {HOURS} hours of panel time, 0 failures, {len(grown)} processes, {3 * happenings} changes, "
          f"{grown[most]} KiB more at most ({most.split()[0]})")
