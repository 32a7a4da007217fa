"""Nothing on the bus, in a log, in the record or on the command line ends ozuctl or forges its lines."""

import json
import re
import signal
import sqlite3
import subprocess

import jsonschema
import pytest

from pytest_ozu.build import CHECKOUT as ROOT
from pytest_ozu.waiting import wait_until
from ozuctl import run

SCHEMAS = ROOT / "tools" / "ozuctl" / "schema"
TRICKS = "\x1b[2J\x07\x9b31m\n2026-01-01T00:00:00.000Z log    CORE N forged\r\u202egpj\u2028\u2066\u200b\x7f\t"
BIDI = "\u202egpj\u2028\u2066\u200b"  # what a broker lets pass
FORBIDDEN = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u200b-\u200f\u2028-\u202e\u2060-\u206f\ufeff]")
LINE = re.compile(r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z (snapshot|bus |state |log |event |broker |trouble )|^  ")


def clean(text):
    assert not FORBIDDEN.search(text), [hex(ord(c)) for c in FORBIDDEN.findall(text)]
    return text


class Monitor:
    def __init__(self, box, *words):
        box.run(box.program("ozuctl", "state", "set", "cpPlasticVersion=1"), check=True)
        self.process = box.popen(box.program("ozuctl", *words, "--for", "60"), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.first = self.process.stdout.readline()

    def end(self, *words):
        """Everything that is printed; the monitor is ended once it has printed the words."""
        seen = b""
        while not all(word.encode() in seen for word in words):
            line = self.process.stdout.readline()
            assert line, (words, seen, self.process.stderr.read())
            seen += line
        self.process.send_signal(signal.SIGINT)
        seen += self.process.stdout.read()
        assert self.process.wait(20) == 0, self.process.stderr.read()
        return clean(seen.decode("utf-8"))


EVENT = "Multicast/TBB_EVENT"
PAYLOADS = [
    b'{"type":85,"name":2,"code":1}', b'{"type":85,"device":{"code":1,"name":2}}', b"[" * 200000, b'{"a":' * 50000,
    b'{"type":123456789012345678901234567890}', b'{"type":-99999999999}', b'{"type":1e400}', b'{"type":85,"device":"\\u001b[2J\\n"}',
    b'{"type":85,"message":"CP_REBOOT_REQUEST"}', b'{"type":null}', b"{}", b"[]", b"\xff\xfe", b"null", b'{"type":85,"user":{"x":[1]}}',
    b"{" + b",".join(b'"k%d":1' % i for i in range(20000)) + b"}", b'"' + b"\\" * 9999, TRICKS.encode(), b"\x00" * 200000,
]


@pytest.mark.long
@pytest.mark.parametrize("form", [[], ["--json"]], ids=["text", "json"])
def test_hostile_messages(box, form):
    for number, payload in enumerate(PAYLOADS[:4]):  # retained ones come at each start
        box.run(["mosquitto_pub", "-V", "5", "-r", "-t", f"{EVENT}{number or ''}", "-s"], input=payload, text=False, check=True)
    monitor = Monitor(box, *form, "monitor", "--no-log", "--no-events", "--no-state")
    for payload in PAYLOADS:
        box.publish(EVENT, payload, {"label": "L", "class": 1, "command": 2})
    for name in ("class", "command", "label"):
        for value in ("99999999999999999999", "-1", "0x41", "", BIDI, "1" * 60000):
            box.publish(EVENT, b"\x01", {name: value})
    box.publish("a/" + BIDI, b"\x01")
    box.publish("last", b"\x01")
    text = monitor.end("last")
    lines = text.splitlines()
    assert "last" in lines[-1]
    if form:
        schema = jsonschema.Draft202012Validator(json.loads((SCHEMAS / "monitor.json").read_text()))
        records = [json.loads(line) for line in lines]
        for record in records:
            schema.validate(record)
        assert not [r for r in records if r.get("meaning", {}).get("message") == "CP_REBOOT_REQUEST"]
        assert max(len(r["payload"]) for r in records) <= 2 * 65536 and any(r.get("cut") for r in records)
    else:
        assert all(LINE.match(line) for line in lines), [line for line in lines if not LINE.match(line)]
        assert "message" not in text and "CP_REBOOT_REQUEST " not in text


LINES = ["2026-01-01T00:00:00.000Z 40000 N X[99999999999999999999] - - pid", "x" * 1_000_000, "",
         "2026-01-01T00:00:00.000Z 99999999999999999999 N X[1] - - level", "2026-01-01T00:00:00.000Z 40000 N X[1] s f:99999999999 line",
         "9999-99-99T99:99:99.999Z 40000 N X[1] - - date", "2026-01-01T00:00:00.000Z 40000 N X[1] - - " + TRICKS.replace("\n", " "),
         "9999-12-31T23:59:59.999Z 40000 N X[1] - - future", " ".join("[1] " * 5000), "\x00\x01\x1b]0;title\x07", "[[[[[[",
         "2026-01-01T00:00:00.000Z 40000 N A [1] B[2] - - brackets"]


@pytest.mark.long
@pytest.mark.parametrize("form", [[], ["--json"]], ids=["text", "json"])
def test_hostile_logs(box, form):
    folder = box.platform / "log"
    box.run(box.program("ozuctl", "state", "set", "cpPlasticVersion=1"), check=True)
    folder.mkdir(exist_ok=True)
    monitor = Monitor(box, *form, "monitor", "--no-bus", "--no-events", "--no-state")
    (folder / "\x1b[2JX.log").write_text("odd name\n")
    with (folder / "X.log").open("ab") as log:
        for line in LINES:
            log.write(line.encode() + b"\n")
        log.write(b"\xff\xfe bytes\n2026-01-01T00:00:00.000Z 40000 N X[1] - - last\n")
    text = monitor.end("last", "future", "brackets")
    if form:
        schema = jsonschema.Draft202012Validator(json.loads((SCHEMAS / "monitor.json").read_text()))
        for line in text.splitlines():
            schema.validate(json.loads(line))
    else:
        assert all(LINE.match(line) for line in text.splitlines())


@pytest.mark.long
def test_a_pipe_in_a_logs_place_holds_nothing_up(box):
    box.run(box.program("ozuctl", "state", "set", "cpPlasticVersion=1"), check=True)
    folder = box.platform / "log"
    folder.mkdir(exist_ok=True)
    box.run(["mkfifo", "/var/lib/ozu/log/P.log"], check=True)
    monitor = Monitor(box, "monitor", "--no-bus")
    (folder / "X.log").write_text("seen\n")
    monitor.end("seen")


@pytest.mark.long
def test_hostile_events_and_record(box):
    run(box, "state", "set", f"dnsServerPairs[0].primary={TRICKS.replace(chr(10), ' ')[:60]}", "dnsServerPairs[1].primary=a\nb")
    run(box, "events", "add", "command", 9, 0, "x\n2026-01-01T00:00:00.000Z forged\x1b[2J")
    (database,) = box.platform.rglob("ozu.db")
    with sqlite3.connect(database) as connection:
        for when in (-1, -62135596800001, 9223372036854775807, -9223372036854775808, 253402300800000):
            connection.execute("INSERT INTO system_events (time_ms, category, subtype, process, pid, text, suppressed) "
                               "VALUES (?, ?, ?, ?, ?, ?, ?)", (when, 2**31 - 1, -1, TRICKS, -1, TRICKS, 2**31 - 1))
    connection.close()
    for words in (["events"], ["state", "get"], ["state", "get", "dnsServerPairs[1].primary"], ["status"]):
        shown = clean(run(box, *words).stdout)
        assert "forged" not in "".join(line[:40] for line in shown.splitlines()), words
        clean(run(box, "--json", *words).stdout)
    assert run(box, "state", "get", "dnsServerPairs[1].primary").stdout == "a\\nb\n"
    assert len(run(box, "events").stdout.splitlines()) == 6


TYPED = [["x" + TRICKS], ["state", "get", TRICKS], ["state", "set", TRICKS + "=1"], ["state", "set", "cpPlasticVersion=" + TRICKS],
         ["ask", TRICKS], ["publish", TRICKS + "#"], ["publish", "a", TRICKS], ["gpio", TRICKS, "1"], ["status", "--" + TRICKS],
         ["device-type", TRICKS], ["rsu", "list", TRICKS], ["partition", "find", TRICKS], ["severity", TRICKS], ["severity", "X", TRICKS],
         ["net", "address", TRICKS], ["net", "host-of", "scheme:///" + TRICKS], ["net", "valid", TRICKS], ["net", "route", "add", TRICKS],
         ["jpeg", TRICKS], ["country", TRICKS], ["imsi", TRICKS], ["time", "parse", TRICKS], ["time", "zone", TRICKS], ["modem", "app", TRICKS],
         ["monitor", "--topic", "#" + TRICKS], ["names", "device", TRICKS], ["exec", "--", "printf", "a\\033[2J\\n"], ["exec", "--", TRICKS],
         ["ps", TRICKS], ["events", "--category", TRICKS], ["status", TRICKS], ["--" + TRICKS], ["net", "resolve", "x", "--via", TRICKS],
         ["crypt", "encrypt", "--key-file", TRICKS, "a", "b"], ["video", "decrypt", "--key", "00" * 16, TRICKS], ["error", TRICKS]]


@pytest.mark.long
def test_what_was_typed_is_escaped(box):
    for words in TYPED:
        for form in ([], ["--json"]):
            done = box.run(box.program("ozuctl", *form, *words), timeout=60)
            assert done.returncode in (0, 1, 2, 4, 124), (words, done)
            clean(done.stdout)
            clean(done.stderr)
            assert not re.search(r"^2026-01-01T00:00:00.000Z log", done.stdout + done.stderr, re.M), (words, done)


@pytest.mark.long
@pytest.mark.parametrize("value", ["377 376 200", "300 257", "355 240 200", "365 200 200 200"])
def test_bytes_that_are_not_utf8(box, value):
    octal = "".join(f"\\{byte}" for byte in value.split())
    for words in (["state", "get"], ["publish"], ["device-type"], []):
        for form in ([], ["--json"]):
            done = box.run(["sh", "-c", f"odd=$(printf '{octal}') && exec \"$@\" \"$odd\"", "sh",
                            *box.program("ozuctl", *form, *words)], text=False)
            assert done.returncode in (1, 2), done
            clean(done.stdout.decode("utf-8") + done.stderr.decode("utf-8"))
            if form:
                json.loads(done.stdout)


# --- what the broker and the platform do not take ---

@pytest.mark.long
def test_publish_says_when_the_broker_did_not_take_it(box):
    (box.etc / "refusing.acl").write_text("topic read #\n")
    assert json.loads(run(box, "--json", "publish", "Process/NOBODY", "00").stdout)["taken"] is True
    box.broker.pause()
    done = box.run(box.program("ozuctl", "publish", "Process/NOBODY", "00"), timeout=60)
    assert done.returncode in (3, 4) and "the broker does not answer" in done.stderr, done
    box.broker.resume()


def test_a_data_folder_that_cannot_be_written_is_named(box):
    for words in (["publish", "Process/NOBODY", "00"], ["nxp", "serial"]):
        done = box.run(["env", "OZU_PLATFORM_DIR=/proc/nowhere", *box.program("ozuctl", *words)])
        assert done.returncode == 3 and "/proc/nowhere" in done.stderr, done
        assert "Is the broker running" not in done.stderr


@pytest.mark.long
def test_damaged_database(box):
    run(box, "state", "set", "cpPlasticVersion=1")
    for path in box.platform.glob("ozu.db*"):
        path.write_bytes(b"x" * 8192)
    for words in (["events"], ["severity"], ["processes"], ["severity", "X"], ["severity", "X", "DEBUG"]):
        done = run(box, *words, status=4)
        assert "damaged" in done.stderr, done


# --- files ---

KEY = "000102030405060708090a0b0c0d0e0f"


@pytest.mark.long
@pytest.mark.parametrize("size", [1, 15, 16, 100, 40000, 200_000])
def test_a_full_disk_is_a_failure(box, size):
    box.run(["sh", "-c", "mkdir /tmp/full && mount -t tmpfs -o size=4k none /tmp/full && head -c 4096 /dev/zero >/tmp/full/x"], check=True)
    (box.tmp / "plain").write_bytes(b"p" * size)
    for direction in ("encrypt", "decrypt"):
        if direction == "decrypt":
            run(box, "crypt", "encrypt", "--key", KEY, "/tmp/plain", "/tmp/cipher")
        source = "/tmp/plain" if direction == "encrypt" else "/tmp/cipher"
        done = run(box, "crypt", direction, "--key", KEY, source, "/tmp/full/out", status=4)
        assert "disk" in done.stderr and done.stdout == ""


@pytest.mark.long
def test_output_devices_are_failures(box):
    (box.tmp / "plain").write_bytes(b"p" * 100)
    run(box, "crypt", "encrypt", "--key", KEY, "/tmp/plain", "/dev/full", status=4)
    (box.tmp / "dir").mkdir()
    run(box, "crypt", "encrypt", "--key", KEY, "/tmp/dir", "/tmp/out", status=4)
    run(box, "crypt", "encrypt", "--key", KEY, "/tmp/plain", "/tmp/dir", status=4)


@pytest.mark.long
@pytest.mark.parametrize("size, offset, status", [(64, 64, 2), (64, 65, 2), (64, 2**40, 2), (0, 0, 2), (64, 0, 4), (64, -1, 2)])
def test_video_decrypt_at_and_beyond_the_end(box, size, offset, status):
    (box.tmp / "video").write_bytes(b"v" * size)
    done = run(box, "video", "decrypt", "--key", KEY, f"--offset={offset}", "/tmp/video", status=status)
    assert (box.tmp / "video").read_bytes() == b"v" * size
    if status == 4:
        assert "another key or offset" in done.stderr
