"""Boots panels side by side, checks that each is its own, and measures what one takes.

/usr/bin/python3 -m pytest_ozu.many --panels 50 --program alarm_core
"""

import argparse
import pathlib
import sys
import time

from .box import PanelBox
from .build import obstacle
from .timeline import sessions_of
from .waiting import wait_until


def processes_of(pid):
    """A process and all that descend from it."""
    try:
        children = pathlib.Path(f"/proc/{pid}/task/{pid}/children").read_text().split()
    except FileNotFoundError:
        return []
    return [pid, *(one for child in children for one in processes_of(int(child)))]


def memory(pid):
    """A process's memory in KiB; what it shares with others counts by parts."""
    try:
        lines = pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()
    except (FileNotFoundError, ProcessLookupError):
        return 0
    return sum(int(line.split()[1]) for line in lines if line.startswith("Pss:"))


def not_independent(boxes):
    """Panels that have another's command line, and those that a reboot of the first takes down with it."""
    found = [number for number, box in enumerate(boxes)
             if box.run(["cat", "/proc/cmdline"], check=True).stdout.strip() != command_line(number)]
    boxes[0].run(["reboot"])
    boxes[0].wait_for_reboot(60)
    return found + [number for number, box in enumerate(boxes[1:], 1) if box.run(["true"]).returncode != 0]


def command_line(number):
    return f"androidboot.serialno={number:04X}"


def measure(count, program):
    """Seconds to boot, MiB, and the panels that are not independent."""
    boxes = [PanelBox(cmdline=command_line(number)) for number in range(count)]
    try:
        begin = time.monotonic()
        for box in boxes:
            box.start()
        boot = (time.monotonic() - begin) / count
        for box in boxes if program else ():
            box.run(["sh", "-c", '"$@" >/tmp/output 2>&1 &', "sh", *box.program(program)], check=True)
            wait_until(lambda: sessions_of((box.control / "broker.log").read_text()), 60, f"{program} on the bus")
        held = sum(memory(one) for box in boxes for one in processes_of(box.keeper_pid)) / count / 1024
        return boot, held, not_independent(boxes)
    finally:
        for box in boxes:
            box.stop()


def main():
    parser = argparse.ArgumentParser(prog="pytest_ozu.many", description=__doc__.splitlines()[0])
    parser.add_argument("--panels", type=int, metavar="N", default=50, help="how many (50)")
    parser.add_argument("--program", metavar="NAME", help="a process to run in each")
    options = parser.parse_args()
    why = obstacle()
    if why:
        sys.exit(why)
    boot, held, wrong = measure(max(options.panels, 1), options.program)
    if wrong:
        sys.exit(f"not independent: panels {wrong}")
    print(f"{options.panels} panels side by side: {boot:.2f} s to boot and {held:.1f} MiB each")


if __name__ == "__main__":
    main()
