"""The raw DNS client against servers that are honest, slow, silent and hostile."""

import json
import os
import subprocess
import time

import pytest

import dns_replies
from pytest_ozu.box import PanelBox
from network_box import CASES, lines, probe, start_probe
from pytest_ozu.dns import address, dns_servers

CPU_PER_REPLY = 0.05  # seconds; a runaway walk takes far more, even under emulation or sanitizers


@pytest.fixture(scope="module")
def answers():
    """What the client makes of every case, by host name."""
    with PanelBox(broker=False) as box, dns_servers(box, a1=CASES):
        hosts = "".join(case.host + "\n" for case in dns_replies.CASES)
        done = box.run(box.program("network_probe", "batch", address("a1")), input=hosts, check=True, timeout=120)
    return {answer["subject"]: answer for answer in map(json.loads, done.stdout.splitlines())}


def test_there_are_many_hostile_replies():
    assert len(dns_replies.hostile()) >= 200
    assert len(dns_replies.harmless()) >= 60


@pytest.mark.long
@pytest.mark.parametrize("case", dns_replies.hostile(), ids=lambda case: case.name)
def test_hostile_reply_counts_for_nothing(answers, case):
    answer = answers[case.host]
    assert answer["address"] is None
    assert lines(answer, 70000) == ["malformed reply"]
    assert answer["descriptors"] == 0
    assert answer["cpu"] < CPU_PER_REPLY


@pytest.mark.parametrize("case", dns_replies.harmless(), ids=lambda case: case.name)
def test_odd_reply_is_understood(answers, case):
    answer = answers[case.host]
    assert answer["address"] == case.expected
    assert lines(answer, 70000) == []
    assert answer["descriptors"] == 0
    assert answer["cpu"] < CPU_PER_REPLY


def test_alias_is_told(answers):
    answer = answers["alias.case.test"]
    assert lines(answer) == [
        "resolving [alias.case.test.] using name server[127.0.1.1]", "The response contains: ", "[1] Questions.",
        "[2] Answers.", "[0] Authoritative Servers.", "[0] Additional records.\n\n", "answer Records: [2]",
        "name: [b.test] ", "alias name:[b.test]", "name: [b.test] ", "found ipv4 address:[10.77.0.1] [10.77.0.1]",
        "authorities records:[0]", "additional Records: [0]"]
    assert {entry["source"] for entry in answer["log"]} == {"src/utils"}
    assert {entry["function"] for entry in answer["log"]} == {"NgetHostByName"}


@pytest.mark.long
def test_odd_senders_are_heard(box):
    with dns_servers(box, a1="wrong-id", a2="elsewhere"):
        assert probe(box, "raw", "x.test", address("a1"))["address"] == "10.77.0.1"
        assert probe(box, "raw", "x.test", address("a2"))["address"] == "10.77.0.1"


@pytest.mark.long
def test_errors_and_no_answer(box):
    with dns_servers(box, a1="refuse", a2="unknown", a3="truncated"):
        for server in ("a1", "a2", "a3"):
            answer = probe(box, "raw", "x.test", address(server))
            assert (answer["address"], lines(answer, 70000)) == (None, [])


@pytest.mark.long
def test_honest_server(box):
    """dnsmasq, with an alias and two addresses."""
    command = ["dnsmasq", "--no-daemon", "--conf-file=/dev/null", "--no-resolv", "--no-hosts", "--bind-interfaces",
               "--listen-address=127.0.1.9",
               "--host-record=panel.test,10.77.0.9", "--host-record=target.test,10.77.0.8",
               "--cname=alias.test,target.test", "--address=/none.test/"]
    server = box.popen(command, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        end = time.monotonic() + 10
        while "127.0.1.9:53" not in box.run(["ss", "-lun"], check=True).stdout:
            assert time.monotonic() < end and server.poll() is None
        assert probe(box, "raw", "panel.test", "127.0.1.9")["address"] == "10.77.0.9"
        alias = probe(box, "raw", "alias.test.", "127.0.1.9")
        assert alias["address"] == "10.77.0.8"
        assert "alias name:[target.test]" in lines(alias)
        nobody = probe(box, "raw", "none.test", "127.0.1.9")
        assert (nobody["address"], lines(nobody, 70000)) == (None, [])
        assert probe(box, "pair", "panel.test", "127.0.1.9", "")["address"] == "10.77.0.9"
        found = probe(box, "ares", "panel.test", "-", "127.0.1.9", "-")
        assert (found["result"], found["address"]) == (0, "10.77.0.9")
    finally:
        server.kill()
        server.wait()


@pytest.mark.long
def test_system_resolver_is_the_last_resort(box):
    (box.etc / "hosts").write_text("127.0.0.1 localhost\n10.77.0.3 hosts.test\n")
    with dns_servers(box, a1="unknown", a2="refuse") as servers:
        answer = probe(box, "pair", "hosts.test", address("a1"), address("a2"))
        assert (answer["result"], answer["address"]) == (0, "10.77.0.3")
        assert [query["server"] for query in servers.queries()] == [address("a1"), address("a2")]
        answer = probe(box, "pair", "hosts.test", "", "")
        assert (answer["result"], answer["address"]) == (0, "10.77.0.3")
        assert len(servers.queries()) == 2
    (box.etc / "nsswitch.conf").unlink(missing_ok=True)
    (box.etc / "nsswitch.conf").write_text("hosts: files\n")
    answer = probe(box, "pair", "nobody.test", "", "")
    assert (answer["result"], answer["address"]) == (-1, "")
    assert lines(answer, 70000, "nslookup_ozu") == ["gethostbyname"]


@pytest.mark.long
def test_signal_handler_ends_the_wait(box):
    with dns_servers(box, a1="silent"):
        answer = probe(box, "raw", "x.test", address("a1"), env={"PROBE_DISTURBED": "300"})
    assert answer["address"] is None
    assert answer["seconds"] < 15, "undisturbed it takes 20"
    assert lines(answer, 70000) == [f"recvfrom failed [{os.strerror(4)}]"]


@pytest.mark.long
def test_silence_lasts_twenty_seconds(box):
    """In real time, all at once: the receive timeout of a socket follows no other clock."""
    with dns_servers(box, a1="silent", a2="honest", a3="slow:19") as servers:
        alone = start_probe(box, "raw", "x.test", address("a1"))
        closed = start_probe(box, "raw", "x.test", "127.0.1.77")
        pair = start_probe(box, "pair", "y.test", address("a1"), address("a2"))
        slow = start_probe(box, "raw", "z.test", address("a3"))
        begin = time.monotonic()
        alone, closed, pair, slow = alone(), closed(), pair(), slow()
        took = time.monotonic() - begin
        asked = [query["server"] for query in servers.queries() if query["name"] == "y.test"]
    for answer in (alone, closed):
        assert answer["address"] is None
        assert lines(answer, 70000) == [f"recvfrom failed [{os.strerror(11)}]"]
        assert 19.5 < answer["seconds"] < 40
    assert (pair["result"], pair["address"]) == (0, "10.77.0.1")
    assert 19.5 < pair["seconds"] < 40
    assert asked == [address("a1"), address("a2")]
    assert slow["address"] == "10.77.0.1"
    assert 18.5 < slow["seconds"] < 20.5
    assert took < 60
