"""Lines of the security core, of sockets and HTTP requests, read back from the event database."""

import json
import signal
import sqlite3
import time

import pytest

import ozuctl
from pytest_ozu.dns import dns_servers
from ozuctl import ask, run

COMMANDS = """SEC_CMD_ARM_PARTITION SEC_CMD_ARM_PARTITION_IMMEDIATE SEC_CMD_FORCE_ARM_PARTITION
    SEC_CMD_FORCE_ARM_PARTITION_IMMEDIATE SEC_CMD_DISARM_PARTITION SEC_CMD_DISARM SEC_DETECTION_WITH_ENTRY_TIME_EVENT
    SEC_DETECTION_WALK_THROUGH_EVENT SEC_DETECTION_IMMEDIATE_EVENT SEC_TAMPER_EVENT SEC_DETECTION_24_HOURS_EVENT
    SEC_DETECTION_JAMMING_EVENT SEC_PANIC_EVENT SEC_SAFETY_FLOOD_EVENT SEC_SAFETY_FLOOD_SUBSIDED_EVENT
    SEC_SAFETY_SMOKE_EVENT SEC_SAFETY_SMOKE_SUBSIDED_EVENT SEC_SAFETY_GAS_EVENT SEC_SAFETY_GAS_SUBSIDED_EVENT
    MAX_SEC_CMD""".split()


def lines(box, *options):
    """(category, subtype, text) of the event log, oldest first."""
    return [(e["category"]["code"], e["subtype"], e["text"]) for e in ask(box, "events", "events", *options)]


@pytest.mark.long
def test_every_command_goes_to_its_category(box):
    for number in range(len(COMMANDS)):
        # One after the other into different partitions, so that no line repeats another.
        run(box, "events", "add", "command", number, number % 10, f"media {number}")
    found = lines(box)
    assert [text.split(",")[0] for _, _, text in found] == [f"Command:={name}" for name in COMMANDS]
    assert found[0] == (11, 1, "Command:=SEC_CMD_ARM_PARTITION, Partition:=PARTITION_FULL, Media:=media 0")
    limited = {0: (11, 1), 1: (11, 1), 2: (11, 1), 4: (12, 1), 5: (12, 1)}
    assert [(c, s) for c, s, _ in found] == [limited.get(n, (1, None)) for n in range(len(COMMANDS))]


@pytest.mark.long
def test_panic_of_the_panic_partition(box):
    run(box, "events", "add", "event", 12, 7, "keyfob")
    run(box, "events", "add", "event", 12, 6, "keyfob")
    run(box, "events", "add", "event", 19, 9, "keyfob")
    assert lines(box) == [
        (8, 6, "SECURITY EVENT: Type [ SEC_PANIC_EVENT ] Partition [ PARTITION_PANIC ] Media [ keyfob ]"),
        (1, None, "SECURITY EVENT: Type [ SEC_PANIC_EVENT ] Partition [ PARTITION_SAFETY ] Media [ keyfob ]"),
        (1, None, "SECURITY EVENT: Type [ MAX_SEC_CMD ] Partition [ MAX_PARTITION_ID ] Media [ keyfob ]"),
    ]


@pytest.mark.long
def test_bad_numbers(box):
    done = run(box, "events", "add", "command", 20, 10, "x")
    assert "20 is not a valid sec_cmd" in done.stderr
    assert "inc_ozu/security_ozu stringFromSec_partition" in done.stderr
    assert lines(box) == [(1, None, "Command:=ERR ENUM, Partition:=ERR ENUM, Media:=x")]


@pytest.mark.long
def test_long_and_odd_media(box):
    for media in ("m" * 1000, "100 % ö", "a\nb"):
        run(box, "events", "add", "command", 9, 0, media)
    head = "Command:=SEC_TAMPER_EVENT, Partition:=PARTITION_FULL, Media:="
    (_, _, long), (_, _, odd), (_, _, two_lines) = lines(box)
    assert long == (head + "m" * 1000)[:199]
    assert odd == head + "100 % ö"
    assert two_lines.startswith(head + "a")


@pytest.mark.long
def test_socket(box):
    run(box, "events", "add", "socket", "127.0.0.1", 1883)
    port = int.from_bytes((1883).to_bytes(2, "little"), "big")
    found = lines(box)
    assert [category for category, _, _ in found] == [14, 14]
    for (_, _, text), word in zip(found, ("OPEN", "CLOSE")):
        assert text.startswith(f"SOCKET {word}: Server [ 127.0.0.1 ] Port [ {port} ] Name [ ")


@pytest.mark.long
def test_socket_asks_for_the_name_of_another_address(box):
    """Family and port are taken for an address, in the order in which they lie in memory."""
    port = 1883
    (box.etc / "resolv.conf").write_text("nameserver 127.0.1.1\n")
    (box.etc / "nsswitch.conf").unlink(missing_ok=True)
    (box.etc / "nsswitch.conf").write_text("hosts: files dns\n")
    with dns_servers(box, a1="unknown") as servers:
        run(box, "events", "add", "socket", "127.0.0.1", port)
        asked = {query["name"] for query in servers.queries()}
    assert f"{port % 256}.{port // 256}.0.2.in-addr.arpa" in asked
    assert all(text.endswith("Name [ NONAME ]") for _, _, text in lines(box))


@pytest.mark.long
def test_socket_waits_for_every_silent_server(box):
    """The system resolver's defaults, in real time and side by side."""
    (box.etc / "resolv.conf").write_text("nameserver 127.0.1.1\n")
    (box.etc / "nsswitch.conf").unlink(missing_ok=True)
    (box.etc / "nsswitch.conf").write_text("hosts: files dns\n")
    with dns_servers(box, a1="silent"):
        begin = time.monotonic()
        run(box, "events", "add", "socket", "127.0.0.1", 1883)
        took = time.monotonic() - begin
    assert took > 19, "a line for the opening and one for the closing"
    assert [text.endswith("Name [ NONAME ]") for _, _, text in lines(box)] == [True, True]


@pytest.mark.long
def test_http(box):
    run(box, "events", "add", "http", "GET", "host.example", "--", "-7")
    run(box, "events", "add", "http", "PUT", "s" * 300, 200, "eth0")
    first, second = lines(box, "--category", "14")
    assert first == (14, None, "HTTP: Action [ GET ] Server [ host.example ] Iface [ <auto> ] Result [ CURL (-7) ]")
    assert second[2] == ("HTTP: Action [ PUT ] Server [ " + "s" * 300)[:229]


def test_the_database_holds_the_same(box):
    run(box, "events", "add", "command", 3, 1, "app")
    texts = []
    for path in box.platform.rglob("*.db"):
        with sqlite3.connect(path) as database:
            for (table,) in database.execute("SELECT name FROM sqlite_master WHERE type = 'table'").fetchall():
                for row in database.execute(f'SELECT * FROM "{table}"'):
                    texts += [value for value in row if isinstance(value, str)]
    assert texts.count("Command:=SEC_CMD_FORCE_ARM_PARTITION_IMMEDIATE, Partition:=PARTITION_DAY, Media:=app") == 1


@pytest.mark.long
def test_follow(box):
    run(box, "events", "add", "command", 9, 0, "before")
    follower = box.popen(box.program("ozuctl", "--json", "events", "-f", "--for", "20"), stdout=-1, text=True)
    first = json.loads(follower.stdout.readline())
    run(box, "events", "add", "command", 9, 0, "after")
    second = json.loads(follower.stdout.readline())
    follower.send_signal(signal.SIGINT)
    assert follower.wait(10) == 0
    follower.stdout.close()
    for event, media in ((first, "before"), (second, "after")):
        ozuctl.validate("events", event)
        assert event["text"].endswith(f"Media:={media}")
        assert event["category"] == {"code": 1, "name": "SECURITY"}


@pytest.mark.long
def test_last(box):
    for number in range(5):
        run(box, "events", "add", "command", 9, 0, f"m{number}")
    assert [text[-2:] for _, _, text in lines(box, "-n", "2")] == ["m3", "m4"]


@pytest.mark.long
@pytest.mark.parametrize("words", [["http", "GET"], ["command", "x", "0", "m"], ["socket", "host", "1"]],
                         ids=lambda words: words[0])
def test_usage(box, words):
    run(box, "events", "add", *words, status=2)
