"""The asynchronous resolver with real c-ares, against servers of every kind."""

import json
import os
import re

import pytest

from pytest_ozu.box import PanelBox
from network_box import lines, probe, start_probe
from pytest_ozu.dns import address, dns_servers

A1, A2, A3 = map(address, ("a1", "a2", "a3"))


def first(attempt):
    return f"First dns server failed to resolve, waiting for the second dns server! (internal attempt {attempt})"


def second(attempt):
    return f"Second dns server failed to resolve, (internal attempt {attempt})"


def cable(box):
    """eth0, with nobody at its other end."""
    for words in ("link add eth0 type veth peer name far0", "addr add 10.1.0.1/24 dev eth0", "link set eth0 up",
                  "link set far0 up"):
        box.run(["ip", *words.split()], check=True)


@pytest.fixture(scope="module")
def slow_answers():
    """Lookups that wait, in real time and all at once, by name."""
    with PanelBox(broker=False) as box, dns_servers(box, a1="silent", a2="honest", a3="silent", a4="slow:0.9",
                                                    a5="slow:1.1", a6="slow:4.8", a7="slow:5.3",
                                                    a8="wrong-id") as servers:
        cable(box)
        calls = {
            "both-silent": ("ares", "both.test", "-", A1, A3),
            "one-silent": ("ares", "one.test", "-", A1, "-"),
            "one-silent-twice": ("ares", "twice.test", "-", A1, "-", 2),
            "second-alive": ("ares", "second.test", "-", A1, A2),
            "slow-0.9": ("ares", "s.test", "-", address("a4"), "-"),
            "slow-1.1": ("ares", "s.test", "-", address("a5"), "-"),
            "slow-4.8": ("ares", "s.test", "-", address("a6"), "-"),
            "slow-5.3": ("ares", "s.test", "-", address("a7"), "-"),
            "lying": ("ares", "lying.test", "-", address("a8"), A2),
            # The loopback address is not to be reached through eth0.
            "through-eth0": ("ares", "cable.test", "eth0", A2, "-"),
            "through-lo": ("ares", "loop.test", "lo", A2, "-"),
        }
        running = {name: start_probe(box, *call) for name, call in calls.items()}
        answers = {name: finish() for name, finish in running.items()}
        answers["queries"] = servers.queries()
    return answers


@pytest.mark.long
def test_first_server(box):
    with dns_servers(box, a1="several", a2="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, A2)
        assert (answer["result"], answer["address"]) == (0, "10.77.0.1")
        assert {query["server"] for query in servers.queries()} == {A1}
    assert lines(answer) == ["ares_library_init(): successful", f"p_ns[{A1}] s_ns[{A2}]", "Resolved [x.test]"]


@pytest.mark.long
def test_only_the_second_server_is_valid(box):
    with dns_servers(box, a2="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", "abc", A2)
        assert (answer["result"], answer["address"]) == (0, "10.77.0.1")
        assert {query["server"] for query in servers.queries()} == {A2}
    assert len([text for text in lines(answer, 70000) if text.startswith("Invalid address family ")]) == 1


@pytest.mark.long
def test_second_server_answers_for_a_refusing_one(box):
    with dns_servers(box, a1="refuse", a2="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, A2)
        assert (answer["result"], answer["address"]) == (0, "10.77.0.1")
        assert [query["server"] for query in servers.queries()] == [A1, A2]
    assert first(1) in lines(answer, 50000)
    assert answer["seconds"] < 4


@pytest.mark.long
def test_nobody_listens_at_the_first_server(box):
    """The refusal wakes every wait without bringing anything, so that the second server's turn never comes."""
    with dns_servers(box, a1="closed", a2="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, A2)
        assert (answer["result"], answer["address"]) == (-1, "")
        assert answer["seconds"] < 2
        assert servers.queries() == []
        assert [text for text in lines(answer, 50000) if "dns server failed" in text] == [
            first(1), second(1), first(2), second(2), first(3), second(3)]
        # The raw client hears no refusal; the other way round there is none.
        assert probe(box, "ares", "x.test", "-", A2, A1)["address"] == "10.77.0.1"


@pytest.mark.long
def test_truncated_answer_is_not_waited_for(box):
    """The one pass of waiting ends with the short answer; the whole one would come over TCP in a later pass."""
    with dns_servers(box, a1="truncated") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, "-")
        assert (answer["result"], answer["address"]) == (-1, "")
        assert [query["tcp"] for query in servers.queries()] == [False] * 3


@pytest.mark.long
def test_lying_identifier_is_not_believed(slow_answers):
    assert lines(slow_answers["lying"], 50000)[0] == first(1)


@pytest.mark.long
def test_unknown_name(box):
    with dns_servers(box, a1="unknown", a2="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, A2)
        assert (answer["result"], answer["address"]) == (-1, "")
        assert {query["server"] for query in servers.queries()} == {A1}, "no such name is an answer"
    assert "Could not resolve [x.test] " in lines(answer, 70000)
    assert "NETWORK: fail to retrieve host ip url[x.test]" in lines(answer, 60000)
    assert lines(answer, 70000, "callback")[0].startswith(
        "DNS server could not find the host, status [Domain name not found]")


@pytest.mark.long
def test_both_silent(slow_answers):
    answer = slow_answers["both-silent"]
    assert (answer["result"], answer["address"]) == (-1, "")
    assert 21 < answer["seconds"] < 26
    texts = lines(answer, 50000)
    assert [text for text in texts if "dns server failed" in text] == [
        first(1), second(1), first(2), second(2), first(3), second(3)]
    assert lines(answer, 60000) == ["NETWORK: fail to retrieve host ip url[both.test]"]
    assert lines(answer)[-1] == "Could not resolve [both.test] "


@pytest.mark.long
def test_single_silent_server(slow_answers):
    answer = slow_answers["one-silent"]
    assert answer["result"] == -1
    assert 10.5 < answer["seconds"] < 14
    assert not [text for text in lines(answer) if "dns server failed" in text]
    twice = slow_answers["one-silent-twice"]
    assert twice["result"] == -1
    assert 21 < twice["seconds"] < 28
    assert len(lines(twice, 60000)) == 2


@pytest.mark.long
def test_second_server_answers_for_a_silent_one(slow_answers):
    answer = slow_answers["second-alive"]
    assert (answer["result"], answer["address"]) == (0, "10.77.0.1")
    assert 4.5 < answer["seconds"] < 8
    assert [text for text in lines(answer, 50000) if "dns server failed" in text] == [first(1)]
    asked = [query["server"] for query in slow_answers["queries"] if query["name"] == "second.test"]
    assert asked[:2] == [A1, A2]


@pytest.mark.long
@pytest.mark.parametrize("delay", ["0.9", "1.1", "4.8"])
def test_slow_server_within_the_time_out(slow_answers, delay):
    answer = slow_answers[f"slow-{delay}"]
    assert (answer["result"], answer["address"]) == (0, "10.77.0.1")
    assert float(delay) <= answer["seconds"] < float(delay) + 2


@pytest.mark.long
def test_server_slower_than_every_time_out(slow_answers):
    answer = slow_answers["slow-5.3"]
    assert answer["seconds"] > 5.3
    assert answer["seconds"] < 26


@pytest.mark.long
def test_queries_leave_through_the_device(slow_answers):
    loop, cable_ = slow_answers["through-lo"], slow_answers["through-eth0"]
    assert (loop["result"], loop["address"]) == (0, "10.77.0.1")
    assert cable_["result"] == -1
    assert lines(cable_, 60000) == ["NETWORK: fail to retrieve host ip url[cable.test], iface[eth0]"]
    asked = {query["name"] for query in slow_answers["queries"]}
    assert "loop.test" in asked and "cable.test" not in asked


@pytest.mark.long
def test_missing_device(box):
    """c-ares goes on unbound when a socket cannot be bound to the device."""
    with dns_servers(box, a1="honest"):
        answer = probe(box, "ares", "x.test", "eth9", A1, "-")
        assert (answer["result"], answer["address"]) == (0, "10.77.0.1")


@pytest.mark.long
def test_more_tries(box):
    with dns_servers(box, a1="unknown") as servers:
        for tries, calls in ((0, 1), (1, 1), (3, 3)):
            before = len(servers.queries())
            answer = probe(box, "ares", "x.test", "-", A1, "-", tries)
            assert len(lines(answer, 60000)) == calls
            assert len(servers.queries()) - before == 3 * calls, "three attempts each"


@pytest.mark.long
def test_environment_and_resolv_conf_of_others(box):
    """What the system is told about names reaches c-ares, but neither crashes nor redirects it."""
    (box.etc / "resolv.conf").write_bytes(b"nameserver 127.0.9.9\nsearch hostile.test\0more\noptions ndots:15\n\xff\xfe\n")
    with dns_servers(box, a1="honest") as servers:
        answer = probe(box, "ares", "x.test", "-", A1, "-",
                       env={"RES_OPTIONS": "ndots:200 timeout:999999999999 x:y", "LOCALDOMAIN": "a b " + "c" * 900})
        assert {query["server"] for query in servers.queries()} <= {A1}
    assert (answer["result"], answer["address"]) == (0, "10.77.0.1")


@pytest.mark.long
def test_hosts_file_and_order_of_the_system(box):
    """c-ares asks the hosts file first, as /etc/nsswitch.conf has it, and no server where that leaves them out."""
    (box.etc / "hosts").write_text("127.0.0.1 localhost\n10.77.0.3 known.test\n")
    with dns_servers(box, a1="honest") as servers:
        answer = probe(box, "ares", "known.test", "-", A1, "-")
        assert (answer["result"], answer["address"]) == (0, "10.77.0.3")
        # Nothing was asked, so there was nothing to wait for: no attempt counts, though the last one found it.
        assert lines(answer, 50000) == ["make ppoll to wait at least 1 second", "no events to wait for"] * 3 or \
            lines(answer, 50000) == ["no events to wait for"] * 3
        assert lines(answer, 60000) == ["NETWORK: fail to retrieve host ip url[known.test]"]
        assert lines(answer)[-1] == "Resolved [known.test]"
        assert servers.queries() == []
        (box.etc / "nsswitch.conf").unlink(missing_ok=True)
        (box.etc / "nsswitch.conf").write_text("hosts: files\n")
        assert probe(box, "ares", "x.test", "-", A1, "-")["result"] == -1
        assert servers.queries() == []


@pytest.mark.long
def test_dotted_address_needs_no_server_and_is_reported_all_the_same(box):
    with dns_servers(box, a1="honest", a2="honest") as servers:
        answer = probe(box, "ares", "10.77.0.5", "-", A1, A2)
        assert (answer["result"], answer["address"]) == (0, "10.77.0.5")
        assert servers.queries() == []
    assert lines(answer, 60000) == ["NETWORK: fail to retrieve host ip url[10.77.0.5]"]
    assert [text for text in lines(answer, 50000) if "dns server failed" in text] == [
        first(1), second(1), first(2), second(2), first(3), second(3)]


@pytest.mark.long
def test_search_domains_cost_events(box):
    """Every name tried takes an event of an attempt: as many can be found as there are servers."""
    with dns_servers(box, a1="only:.one", a2="only:.two", a3="only:.three", a4="only:bare") as servers:

        def found(name, server, other="-"):
            answer = probe(box, "ares", name, "-", address(server), other, env={"LOCALDOMAIN": "one two three"})
            return answer["result"] == 0, [q["name"] for q in servers.queries() if q["name"].startswith(name)]

        assert found("first", "a1") == (True, ["first.one"])
        assert found("second", "a2")[0] is False, "the answer comes, but nobody waits for it"
        assert found("second-again", "a2", address("a2")) == (True, ["second-again.one", "second-again.two"])
        assert found("third", "a3", address("a3"))[0] is False
        assert found("bare", "a4")[0] is False
        assert found("bare.", "a4")[0] is True


@pytest.mark.long
def test_signal_handler_ends_every_wait(box):
    with dns_servers(box, a1="silent"):
        answer = probe(box, "ares", "x.test", "-", A1, "-", env={"PROBE_DISTURBED": "300"})
    assert answer["result"] == -1
    assert answer["seconds"] < 9, "undisturbed it takes 11"
    assert lines(answer, 70000, "Wait_Ares") == ["poll error"] * 3


@pytest.mark.long
def test_binding_needs_no_right_on_newer_kernels(box):
    """From Linux 5.7 on every process may bind to a device; before, the queries left unbound."""
    release = tuple(map(int, re.match(r"(\d+)\.(\d+)", os.uname().release).groups()))
    cable(box)
    with dns_servers(box, a1="honest"):
        plain = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
        command = box.program("network_probe", "ares", "x.test", "eth0", A1, "-")
        done = box.run([*plain, *command], check=True, timeout=60)
        answer = json.loads(done.stdout)
    assert answer["result"] == (-1 if release >= (5, 7) else 0), "the loopback address is not to be reached through eth0"


@pytest.mark.long
def test_look_ups_side_by_side(box):
    with dns_servers(box, a1="honest"):
        answer = probe(box, "ares-threads", "x.test", A1, 8, 25)
    assert answer["result"] == 8 * 25
    assert lines(answer, 70000) == []
