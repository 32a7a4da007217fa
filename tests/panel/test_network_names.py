"""Host names through a box's own system resolver, and the DNS file on a box's own disk."""

import pytest

from network_box import lines, probe, start_probe
from pytest_ozu.dns import address, dns_servers


@pytest.fixture
def names(box):
    """A system resolver with a hosts file and one DNS server, which is silent to nobody."""
    (box.etc / "hosts").write_text("127.0.0.1 localhost\n10.77.0.3 one.test\n10.77.0.4 two.test\n10.77.0.5 two.test\n")
    (box.etc / "nsswitch.conf").unlink(missing_ok=True)
    (box.etc / "nsswitch.conf").write_text("hosts: files dns\n")
    (box.etc / "host.conf").unlink(missing_ok=True)
    (box.etc / "host.conf").write_text("multi on\n")
    (box.etc / "resolv.conf").write_text("nameserver 127.0.1.1\noptions timeout:1 attempts:1\n")
    return box


@pytest.mark.long
def test_names_of_the_hosts_file(names):
    answer = probe(names, "host", "one.test")
    assert (answer["result"], answer["address"]) == (0, "10.77.0.3")
    assert lines(answer, 10000) == ["one.test is a host name.", "Received host name one.test."]
    assert probe(names, "host", "two.test")["address"] == "10.77.0.4"
    assert probe(names, "pair", "two.test", "", "")["address"] == "10.77.0.5", "here the last one counts"


@pytest.mark.long
def test_names_of_the_server(names):
    with dns_servers(names, a1="several") as servers:
        assert probe(names, "host", "server.test")["address"] == "10.77.0.1"
        assert [query["name"] for query in servers.queries(address("a1"))] == ["server.test"]


@pytest.mark.long
@pytest.mark.parametrize("behaviour, number", [("unknown", 1), ("refuse", 2), ("silent", 2)])
def test_unresolved(names, behaviour, number):
    with dns_servers(names, a1=behaviour):
        answer = probe(names, "host", "nobody.test")
    assert (answer["result"], answer["address"]) == (5, None)
    assert lines(answer, 70000) == [f"Unable to resolve nobody.test: {number}."]


@pytest.mark.long
def test_literals(names):
    answer = probe(names, "host", "010.001.002.003")
    assert (answer["result"], answer["address"]) == (0, "10.1.2.3")
    answer = probe(names, "host", "192.168.0.1")
    assert (answer["result"], answer["address"]) == (0, "192.168.0.1")
    assert lines(answer, 70000) == ["192.168.0.1 has invalid range."]


@pytest.mark.long
def test_dns_file(box):
    file = box.data / "permanent-dns.conf"
    file.write_text("what stood here before, and longer than what follows it by far\n" * 10)
    answer = probe(box, "dns-file", "10.0.0.1", "10.0.0.2", "10.0.1.1", "1.1.1.", "1.1.1.1")
    assert (answer["result"], answer["log"]) == (0, [])
    assert file.read_text() == "nameserver 1.1.1.1\nnameserver 10.0.1.1\nnameserver 10.0.0.1\nnameserver 10.0.0.2\n"
    assert probe(box, "dns-file")["result"] == 0
    assert file.read_text() == ""


def test_dns_file_that_cannot_be_opened(box):
    (box.data / "permanent-dns.conf").mkdir()
    answer = probe(box, "dns-file", "10.0.0.1")
    assert (answer["result"], answer["log"]) == (0, [])


@pytest.mark.long
def test_dns_file_on_a_full_disk(box):
    (box.data / "permanent-dns.conf").symlink_to("/dev/full")
    answer = probe(box, "dns-file", "10.0.0.1")
    assert (answer["result"], lines(answer, 70000)) == (
        8, ["Error writing to [/data/permanent-dns.conf] file."])
    answer = probe(box, "dns-file")
    assert (answer["result"], answer["log"]) == (0, []), "nothing to write fits any disk"


@pytest.mark.long
def test_silent_server_takes_ten_seconds_for_every_name_tried(names):
    """The system resolver's defaults, in real time and side by side."""
    (names.etc / "resolv.conf").write_text("nameserver 127.0.1.1\n")
    with dns_servers(names, a1="silent"):
        running = [start_probe(names, "host", "one.name.test."),
                   start_probe(names, "host", "two.name.test", env={"LOCALDOMAIN": "domain.test"})]
        one, two = (finish(120) for finish in running)
    assert (one["result"], two["result"]) == (5, 5)
    assert one["seconds"] > 9.5
    assert two["seconds"] > 19.5
