"""Dates and the time zone of a panel, against Python's calendar and real zone files."""

import datetime
import os
import pathlib
import random
import subprocess
import zoneinfo

import pytest

from pytest_ozu.waiting import wait_until
from ozuctl import run

ZONES = ["UTC", "Europe/Berlin", "America/New_York", "Australia/Lord_Howe", "Asia/Kathmandu", "America/Santiago"]
LINK = "/data/timezone/localtime"


@pytest.fixture
def zoned(shared_box):
    """A panel with a zone database of its own, the same for all tests; none is chosen yet."""
    folder = shared_box.data / "timezone" / "zoneinfo"
    if folder.is_symlink():
        folder.unlink()
    for name in ZONES:
        path = folder / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(pathlib.Path("/usr/share/zoneinfo", name).read_bytes())
    (shared_box.data / "timezone" / "localtime").unlink(missing_ok=True)
    return shared_box


def probe(box, questions, zone=None):
    """Answers of date_probe; zone None leaves TZ unset."""
    command = ["env", "-u", "TZ"] if zone is None else ["env", f"TZ={zone}"]
    done = box.run([*command, *box.program("date_probe")], input="".join(f"{q}\n" for q in questions), timeout=60)
    assert done.returncode == 0
    answers = done.stdout.splitlines()
    assert len(answers) == len(questions)
    return answers


def possible(zone, wall):
    """Epoch seconds that a wall clock's reading may stand for: two when it exists twice or never."""
    info = zoneinfo.ZoneInfo(zone)
    return {int(wall.replace(tzinfo=info, fold=fold).timestamp()) for fold in (0, 1)}


def walls(zone):
    """Readings over all years, and around every switch of two of them."""
    picker = random.Random(zone)
    readings = [datetime.datetime(picker.randint(1971, 2037), picker.randint(1, 12), picker.randint(1, 28),
                                  picker.randint(0, 23), picker.randint(0, 59), picker.randint(0, 59))
                for _ in range(300)]
    info = zoneinfo.ZoneInfo(zone)
    hour = datetime.timedelta(hours=1)
    for year in (2009, 2024):
        moment = datetime.datetime(year, 1, 1, tzinfo=datetime.timezone.utc)
        while moment.year == year:
            if moment.astimezone(info).utcoffset() != (moment + hour).astimezone(info).utcoffset():
                local = moment.astimezone(info).replace(tzinfo=None)
                readings += [local + datetime.timedelta(minutes=step) for step in range(-180, 240, 10)]
            moment += hour
    return readings


@pytest.mark.long
@pytest.mark.parametrize("how", ["link", "variable"])
@pytest.mark.parametrize("zone", ZONES)
def test_every_layout_in_every_zone(zoned, zone, how):
    if how == "link":
        run(zoned, "time", "zone", zone)
        assert os.readlink(zoned.data / "timezone" / "localtime") == f"/data/timezone/zoneinfo/{zone}"
    tz = f":{LINK}" if how == "link" else zone
    readings = walls(zone)
    questions, allowed = [], []
    for wall in readings:
        local = possible(zone, wall)
        minute = possible(zone, wall.replace(second=0))
        utc = {int(wall.replace(second=0, tzinfo=datetime.timezone.utc).timestamp())}
        day = {int(datetime.datetime(wall.year, wall.month, wall.day, tzinfo=datetime.timezone.utc).timestamp())}
        for function, layout, expected in (("date", "%m-%d-%Y %H:%M:%S", local), ("bypass", "%a %b %d %H:%M:%S %Y", local),
                                           ("local", "%y%m%d%H%M", minute), ("limited", "%d/%m/%Y %H:%M", utc),
                                           ("limited", "%d/%m/%Y", day), ("tools", "%d%m%Y", day)):
            questions.append(f"{function} {wall.strftime(layout)}")
            allowed.append(expected)
    answers = probe(zoned, questions, tz)
    wrong = [(q, int(a), e) for q, a, e in zip(questions, answers, allowed) if int(a) not in e]
    assert not wrong, wrong[:5]


@pytest.mark.parametrize("zone", [None, "", "UTC", "Europe/Berlin", ":/data/timezone/localtime", "garbage!", "x" * 150])
def test_calendar_time_is_utc_whatever_tz_is(zoned, zone):
    run(zoned, "time", "zone", "America/New_York")
    picker = random.Random(7)
    moments = [datetime.datetime(picker.randint(1902, 2037), picker.randint(1, 12), picker.randint(1, 28),
                                 picker.randint(0, 23), picker.randint(0, 59), picker.randint(0, 59),
                                 tzinfo=datetime.timezone.utc) for _ in range(200)]
    answers = probe(zoned, [m.strftime("timegm %Y %m %d %H %M %S") for m in moments], zone)
    assert answers == [f"{int(m.timestamp())} kept" for m in moments]


def test_switch_replaces_whatever_was_there(zoned):
    link = zoned.data / "timezone" / "localtime"
    link.write_text("a plain file")
    for zone in ("Europe/Berlin", "Asia/Kathmandu"):
        run(zoned, "time", "zone", zone)
        assert os.readlink(link) == f"/data/timezone/zoneinfo/{zone}"
    run(zoned, "time", "zone", "")
    assert os.readlink(link) == "/data/timezone/zoneinfo/UTC"
    done = run(zoned, "time", "zone", "Europe/Nowhere", status=1)
    assert "Time zone file doesn't exist: '/data/timezone/zoneinfo/Europe/Nowhere'" in done.stderr
    assert os.readlink(link) == "/data/timezone/zoneinfo/UTC"
    run(zoned, "time", "zone", "z" * 104, status=2)


def test_folder_in_the_links_place_is_a_failure(zoned):
    link = zoned.data / "timezone" / "localtime"
    link.mkdir()
    done = run(zoned, "time", "zone", "UTC", status=4)
    assert ("Failed to create localtime symlink: /data/timezone/zoneinfo/UTC <-- /data/timezone/localtime, "
            "Error: File exists") in done.stderr
    assert link.is_dir(), "what cannot be removed stays"
    link.rmdir()


@pytest.mark.long
def test_monitor_names_the_message(zoned):
    monitor = zoned.popen(zoned.program("ozuctl", "monitor", "--no-state", "--no-log", "--no-events"),
                          stdout=subprocess.PIPE, text=True)
    try:
        assert "snapshot" in monitor.stdout.readline()
        run(zoned, "time", "zone", "Asia/Kathmandu", "--notify")
        lines = iter(monitor.stdout.readline, "")
        line = wait_until(lambda: next((l for l in lines if "Process/ALL" in l), None), what="the message")
        assert line.rstrip().endswith("Process/ALL class=6 command=0 [] SYS_BROADCAST_TIMEZONE_CHANGED")
    finally:
        monitor.kill()
        monitor.wait()
        monitor.stdout.close()
