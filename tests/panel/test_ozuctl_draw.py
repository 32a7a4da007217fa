"""ozuctl draw: the picture of a recording, read by a parser and shown by a browser."""

import json
import os
import re
import shlex
import shutil
import signal
import subprocess
import xml.etree.ElementTree as tree

import pytest

import ozuctl
from pytest_ozu.build import build_dir, emulator
from pytest_ozu.waiting import wait_until

SVG = "{http://www.w3.org/2000/svg}"
HOSTILE = "</title><script>document.title='struck'</script><!--]]>&\"'\x1b[2J\u202egpj\u2028\x00\x9b\ufeff\ufffe\r\n\t\xe9\U0001f512"


def draw(recording, picture, status=0, json_=True):
    done = subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), *(["--json"] if json_ else []), "draw", str(recording),
                           "-o", str(picture)], capture_output=True, text=True, stdin=subprocess.DEVNULL, timeout=120)
    assert done.returncode == status, done
    return done


def at(seconds):
    return f"2026-03-01T12:00:{seconds:06.3f}Z"


def records(name="core", topic="Process/ALL", text="door open", field="zones[1].bypass[0].bypassed"):
    return [
        {"time": at(0), "kind": "snapshot", "processes": [{"process": name, "pid": 1, "severity": "INFO"}], "fields": None},
        {"time": at(1), "kind": "bus", "topic": topic, "length": 1, "payload": "00", "label": text, "class": 1, "command": 0},
        {"time": at(2), "kind": "state", "field": field, "old": {"code": 1, "name": "DISARMED"}, "new": {"code": 0, "name": text}},
        {"time": at(4), "kind": "state", "field": field, "old": {"code": 0, "name": text}, "new": {"code": 2, "name": "ARMED_2"}},
        {"time": at(5), "kind": "log", "process": name, "pid": 1, "level": {"code": 70000, "name": "E"}, "text": text},
        {"time": at(6), "kind": "event", "process": name, "pid": 1, "category": {"code": 11, "name": text}, "text": text},
        {"time": at(7), "kind": "broker", "connected": False}, {"time": at(8), "kind": "trouble", "text": text},
        {"time": at(10), "kind": "process", "process": name, "pid": 1, "what": "ended"},
    ]


def recording(tmp_path, lines, name="recording"):
    path = tmp_path / name
    path.write_text("".join(json.dumps(line) + "\n" for line in lines))
    return path


def texts(root):
    return [element.text or "" for element in root.iter(f"{SVG}text")]


def test_lanes(tmp_path):
    done = draw(recording(tmp_path, records()), tmp_path / "a.svg")
    document = json.loads(done.stdout)
    ozuctl.validate("draw", document)
    assert document == {"file": str(tmp_path / "a.svg"), "lanes": 6, "lanesLeftOut": 0, "entries": 8}
    root = tree.parse(tmp_path / "a.svg").getroot()
    assert root.tag == f"{SVG}svg"
    shown = ["".join(element.itertext()) for element in root.iter(f"{SVG}text")]
    for title in ("Bus, by topic", "State, by field", "Processes and their log", "System events, by category"):
        assert title in shown
    bars = [bar for bar in root.iter(f"{SVG}rect") if bar.get("class") in ("bar", "other")]
    assert [int(bar.get("width")) for bar in bars] == [200, 200, 600]  # of 1000 for ten seconds
    assert [bar.find(f"{SVG}title").text.split(" from ")[0] for bar in bars] == ["1 DISARMED", "0 door open", "2 ARMED_2"]
    life = next(bar for bar in root.iter(f"{SVG}rect") if bar.get("class") == "life")
    assert life.get("width") == "1000"
    marks = {mark.get("class"): int(mark.get("x")) for mark in root.iter(f"{SVG}rect") if mark.get("rx")}
    assert marks["bus"] == 240 + 100 - 1 and marks["event"] == 240 + 600 - 1
    assert "label=door open class=1 command=0 payload=00" in tree.tostring(root, encoding="unicode")


def test_hostile_text_stays_text(tmp_path):
    source = recording(tmp_path, records(*[HOSTILE] * 4))
    for suffix in ("svg", "html"):
        draw(source, tmp_path / f"a.{suffix}")
        text = (tmp_path / f"a.{suffix}").read_text()
        assert "<script" not in text and not re.search("[\x00-\x08\x0b-\x1f\x7f-\x9f\u200b-\u200f\u2028-\u202e\ufeff\ufffe]", text)
        assert not re.search(r'\b(src|href)=|url\(', text)
    root = tree.parse(tmp_path / "a.svg").getroot()
    assert "<script>" in "".join(root.itertext()) and "\\x1B[2J" in "".join(root.itertext()) and "\U0001f512" in "".join(root.itertext())
    assert {element.tag for element in root.iter()} <= {SVG + tag for tag in ("svg", "title", "style", "rect", "text", "line")}
    assert set(re.findall(r"[\w.]+://[^\"]*", (tmp_path / "a.svg").read_text())) == {"http://www.w3.org/2000/svg"}  # a name, not an address


def test_records_of_any_shape(tmp_path):
    odd = [{"time": at(number % 60), "kind": kind, key: value} for number, (kind, key, value) in enumerate(
        (kind, key, value) for kind in ("bus", "state", "log", "event", "process", "snapshot", "broker", "trouble", "x")
        for key in ("topic", "field", "process", "processes", "level", "category", "old", "what", "connected")
        for value in (1, None, [], {}, [1], {"code": "x"}, True, "x" * 5000, 1e300))]
    odd += [{"time": "9999-12-31T23:59:59.999Z", "kind": "bus", "topic": "late"}, {"time": "0001-01-01T00:00:00.000Z", "kind": "bus", "topic": "early"}]
    draw(recording(tmp_path, odd), tmp_path / "a.svg")
    tree.parse(tmp_path / "a.svg")


@pytest.mark.long
def test_a_picture_has_an_end(tmp_path):
    many = [{"time": at(number % 60), "kind": "bus", "topic": f"t/{number % 300}", "payload": "00"} for number in range(30000)]
    document = json.loads(draw(recording(tmp_path, many), tmp_path / "a.svg").stdout)
    assert document["lanes"] == 100 and document["lanesLeftOut"] == 200
    one = [{"time": at(number / 1000), "kind": "state", "field": "f", "old": number, "new": number + 1} for number in range(30000)]
    draw(recording(tmp_path, one), tmp_path / "b.svg")
    assert (tmp_path / "b.svg").stat().st_size < 1_000_000
    assert "lanes are left out" in (tmp_path / "a.svg").read_text()


def test_one_moment(tmp_path):
    draw(recording(tmp_path, records()[:1]), tmp_path / "a.svg")
    tree.parse(tmp_path / "a.svg")


def test_what_is_refused(tmp_path):
    source = recording(tmp_path, records())
    for picture, status, told in [("a.png", 2, ".svg or .html"), ("", 2, ".svg or .html"), ("no/a.svg", 4, "No such file"), ("d.svg", 4, "Is a directory")]:
        (tmp_path / "d.svg").mkdir(exist_ok=True)
        done = draw(source, tmp_path / picture if picture else "", status)
        failure = json.loads(done.stdout)
        ozuctl.validate("failure", failure)
        assert told in failure["message"], failure
    itself = recording(tmp_path, records(), "itself.svg")
    before = itself.read_bytes()
    assert "is the file that is read" in draw(itself, itself, 2, json_=False).stderr
    assert itself.read_bytes() == before
    for name, content, status in [("empty", b"", 4), ("text", b"hello\n", 4), ("binary", bytes(range(256)), 4), ("none", None, 1),
                                  ("deep", b'{"time":"2026-03-01T12:00:00Z","kind":"x","a":' + b"[" * 99999 + b"\n", 4)]:
        if content is not None:
            (tmp_path / name).write_bytes(content)
        done = draw(tmp_path / name, tmp_path / "out.svg", status)
        assert not (tmp_path / "out.svg").exists() and done.stdout.count("\n{") == 0
    draw(tmp_path, tmp_path / "out.svg", 4)


def test_a_full_disk_leaves_what_was_there(tmp_path, box):
    source = recording(tmp_path, records())
    os.symlink("/dev/full", tmp_path / "full.svg")
    assert "No space left" in draw(source, tmp_path / "full.svg", 4, json_=False).stderr
    done = box.run(["sh", "-c", "mkdir /tmp/small && mount -t tmpfs -o size=4k none /tmp/small && echo old >/tmp/small/a.svg && "
                    f"cat >/tmp/recording && {shlex.join(box.program('ozuctl'))} draw /tmp/recording -o /tmp/small/a.svg; echo $?; cat /tmp/small/a.svg; "
                    "ls /tmp/small"], input=source.read_text())
    assert done.stdout.splitlines() == ["4", "old", "a.svg"], done


@pytest.mark.long
def test_what_a_monitor_recorded(box, tmp_path):
    box.run(box.program("ozuctl", "state", "set", "cpPlasticVersion=1"), check=True)
    monitor = box.popen(box.program("ozuctl", "monitor", "--record", "/data/recording", "--for", "60"), stdout=subprocess.PIPE)
    monitor.stdout.readline()
    ozuctl.run(box, "publish", "Process/ALARM_CORE", "00")
    ozuctl.run(box, "state", "set", "cpPlasticVersion=2")
    ozuctl.run(box, "events", "add", "http", "GET", "server", "200")
    kept = box.data / "recording"
    wait_until(lambda: all(kind in kept.read_text() for kind in ("ALARM_CORE", "cpPlasticVersion", "GET")), 30, "what happened")
    monitor.send_signal(signal.SIGINT)
    assert monitor.wait(30) == 0
    monitor.stdout.close()
    document = ozuctl.ask(box, "draw", "draw", "/data/recording", "-o", "/tmp/a.html")
    page = box.run(["cat", "/tmp/a.html"]).stdout
    assert document["entries"] >= 3
    for lane in ("Process/ALARM_CORE", "cpPlasticVersion", "System events, by category"):
        assert lane in page


def browser():
    found = shutil.which("chromium")
    if found is None:
        pytest.skip("no browser here: apt-get install chromium")
    return found


def shown(picture, dark, folder):
    """What a browser without a network makes of the picture: its document, and the colour of the first pixel."""
    command = [browser(), "--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", f"--user-data-dir={folder}",
               "--proxy-server=127.0.0.1:9", "--window-size=1300,500", "--virtual-time-budget=1000", "--hide-scrollbars",
               *(["--blink-settings=preferredColorScheme=0"] if dark else ["--blink-settings=preferredColorScheme=1"])]
    image = folder / "shot.png"
    environment = {**os.environ, "HOME": str(folder), "XDG_RUNTIME_DIR": str(folder)}
    done = subprocess.run([*command, f"--screenshot={image}", picture.as_uri()], capture_output=True, timeout=180, env=environment)
    assert image.exists(), done.stderr.decode(errors="replace")[-2000:]
    document = subprocess.run([*command, "--dump-dom", picture.as_uri()], capture_output=True, timeout=180, env=environment).stdout.decode()
    return document, first_pixel(image.read_bytes())


def first_pixel(png):
    import struct
    import zlib
    data, place = b"", 8
    while place < len(png):
        length, kind = struct.unpack(">I4s", png[place:place + 8])
        if kind == b"IDAT":
            data += png[place + 8:place + 8 + length]
        place += 12 + length
    row = zlib.decompress(data)
    return tuple(row[1:4])  # the first pixel of a row is stored as it is, whatever the row's filter


@pytest.mark.long
@pytest.mark.parametrize("suffix", ["svg", "html"])
def test_a_browser_shows_it(tmp_path, suffix):
    picture = tmp_path / f"a.{suffix}"
    draw(recording(tmp_path, records(*[HOSTILE] * 4)), picture)
    (tmp_path / "light").mkdir()
    (tmp_path / "dark").mkdir()
    document, light = shown(picture, False, tmp_path / "light")
    _, dark = shown(picture, True, tmp_path / "dark")
    assert light == (255, 255, 255) and max(dark) < 60, (light, dark)
    assert "struck" not in re.sub(r"document\.title='struck'", "", document) and "parsererror" not in document
    assert document.count("<rect") >= 8 and "<script" not in document
