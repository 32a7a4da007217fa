"""Interface addresses and routes of a kernel, in a box of its own."""

import os

import pytest

from network_box import lines, probe

UP, GATEWAY = 1, 2


def ip(box, *words):
    box.run(["ip", *words], check=True)


@pytest.fixture
def wired(box):
    """eth0 with an address, its peer far0, and eth1 without one."""
    ip(box, "link", "add", "eth0", "address", "02:00:00:00:00:10", "type", "veth", "peer", "name", "far0")
    ip(box, "link", "add", "eth1", "type", "veth", "peer", "name", "far1")
    ip(box, "addr", "add", "192.168.7.20/24", "broadcast", "192.168.7.255", "dev", "eth0")
    for name in ("eth0", "far0", "eth1", "far1"):
        ip(box, "link", "set", name, "up")
    return box


def routes(box, *words):
    return box.run(["ip", "-4", "route", "show", *words], check=True).stdout.splitlines()


# --- addresses ---


def test_address_and_broadcast(wired):
    answer = probe(wired, "addresses", "eth0", "both")
    assert (answer["result"], answer["family"], answer["address"], answer["broadcast"]) == (
        0, 2, "192.168.7.20", "192.168.7.255")
    assert lines(answer, 30000) == ["interface eth0: family=2  192.168.7.20\n",
                                    "bcast interface eth0: family=2  192.168.7.255\n"]
    assert probe(wired, "device", "eth0")["address"] == "192.168.7.20"
    assert probe(wired, "addresses", "lo")["address"] == "127.0.0.1"


def test_unusual_broadcast(wired):
    ip(wired, "addr", "flush", "dev", "eth0")
    ip(wired, "addr", "add", "10.9.0.1/30", "broadcast", "10.255.255.255", "dev", "eth0")
    answer = probe(wired, "addresses", "eth0", "both")
    assert (answer["address"], answer["broadcast"]) == ("10.9.0.1", "10.255.255.255")


def test_interface_without_address(wired):
    answer = probe(wired, "addresses", "eth1", "both")
    assert (answer["result"], answer["address"]) == (8, "0.0.0.0")
    assert answer["broadcast"] == "35.35.35.35", "left as it was"
    assert lines(answer) == [f"ioctl: {os.strerror(99)}\n"]
    answer = probe(wired, "device", "eth1")
    assert (answer["result"], answer["address"]) == (-1, None)
    assert lines(answer, 50000) == [f"ioctl [{os.strerror(99)}]"]


def test_unknown_interface(wired):
    for name in ("eth9", "", "a-name-that-is-far-too-long-for-an-interface"):
        answer = probe(wired, "addresses", name)
        assert (answer["result"], answer["address"]) == (8, "0.0.0.0")
        assert probe(wired, "device", name)["result"] == -1


def test_name_of_fifteen_characters(wired):
    ip(wired, "link", "add", "fifteen-letters", "type", "veth", "peer", "name", "far2")
    ip(wired, "addr", "add", "10.3.3.3/32", "dev", "fifteen-letters")
    for name in ("fifteen-letters", "fifteen-letters-and-more"):
        assert probe(wired, "device", name)["address"] == "10.3.3.3"
        assert probe(wired, "addresses", name)["address"] == "10.3.3.3"


def test_dummy_interface(box):
    if box.run(["ip", "link", "add", "eth5", "type", "dummy"]).returncode != 0:
        pytest.skip("this kernel has no dummy interfaces")
    ip(box, "addr", "add", "10.5.5.5/24", "broadcast", "+", "dev", "eth5")
    answer = probe(box, "addresses", "eth5", "both")
    assert (answer["address"], answer["broadcast"]) == ("10.5.5.5", "10.5.5.255")


# --- routes ---


def test_new_route_takes_two_attempts(wired):
    answer = probe(wired, "add", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY)
    assert answer["result"] == 0
    assert routes(wired, "10.2.0.0/16") == ["10.2.0.0/16 via 192.168.7.1 dev eth0 metric 5 "]
    assert lines(answer) == [
        "dest = 10.2.0.0, gw = 192.168.7.1, mask = 255.255.0.0, ifr = eth0, metric = 5, flags = 0x03",
        f"SIOCADDRT:[{os.strerror(17)}]"]
    assert 1.9 < answer["seconds"] < 4

    again = probe(wired, "add", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY)
    assert again["result"] == 0
    assert 0.9 < again["seconds"] < 2

    gone = probe(wired, "del", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY)
    assert (gone["result"], lines(gone)) == (0, [])
    assert routes(wired, "10.2.0.0/16") == []
    refused = probe(wired, "del", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY)
    assert (refused["result"], lines(refused)) == (0, [f"SIOCDELRT:[{os.strerror(3)}]"])


def test_route_without_gateway_and_default_route(wired):
    assert probe(wired, "add", "10.4.0.0", "-", "255.255.0.0", "eth0", 0, UP)["result"] == 0
    assert routes(wired, "10.4.0.0/16") == ["10.4.0.0/16 dev eth0 scope link "]
    assert probe(wired, "add", "0.0.0.0", "192.168.7.1", "0.0.0.0", "eth0", 0, UP | GATEWAY)["result"] == 0
    assert routes(wired, "default") == ["default via 192.168.7.1 dev eth0 "]
    assert probe(wired, "gateway", "eth0")["gateway"] == "192.168.7.1"


@pytest.mark.parametrize("device, gateway, error", [("eth9", "192.168.7.1", 19), ("eth0", "172.16.0.1", 101)])
def test_refused_route(wired, device, gateway, error):
    answer = probe(wired, "add", "10.2.0.0", gateway, "255.255.0.0", device, 0, UP | GATEWAY)
    text = f"SIOCADDRT:[{os.strerror(error)}]"
    assert answer["result"] == -1
    assert lines(answer, 10000) == [text] * 4
    assert lines(answer, 70000) == [text] * 4
    assert lines(answer, 50000) == []
    assert 3.9 < answer["seconds"] < 8


@pytest.mark.parametrize("attempt", [2, 3, 4])
def test_confirmation_after_refusals(wired, attempt):
    """The device appears, with the route, while the attempts go on."""
    script = (f"sleep {attempt - 1 - 0.5}; ip link add eth8 type veth peer name far8;"
              "ip addr add 172.20.0.1/24 dev eth8; ip link set eth8 up;"
              "ip route add 10.8.0.0/16 via 172.20.0.2 dev eth8")
    helper = wired.popen(["sh", "-c", script])
    answer = probe(wired, "add", "10.8.0.0", "172.20.0.2", "255.255.0.0", "eth8", 0, UP | GATEWAY)
    assert helper.wait(10) == 0
    assert answer["result"] == -1, "a refused attempt counts, even when a later one confirms"
    assert len(lines(answer, 70000)) == attempt - 1
    last = ["Cannot add route to routing table, reach maximum validation attempts"] if attempt == 4 else []
    assert lines(answer, 50000) == last
    assert attempt - 0.2 < answer["seconds"] < attempt + 2


def test_without_the_right_to_administer(wired):
    command = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
    done = wired.run([*command, *wired.program("network_probe", "del", "10.2.0.0", "-", "255.255.0.0", "eth0", 0, 1)],
                     check=True)
    assert os.strerror(1) in done.stdout


# --- gateway ---


def test_gateway_of_the_first_fitting_interface(wired):
    ip(wired, "addr", "add", "192.168.8.20/24", "dev", "eth1")
    assert probe(wired, "gateway", "eth0")["result"] == -1
    ip(wired, "route", "add", "10.6.0.0/16", "via", "192.168.8.1", "dev", "eth1")
    ip(wired, "route", "add", "10.7.0.0/16", "via", "192.168.7.1", "dev", "eth0")
    assert probe(wired, "gateway", "eth1")["gateway"] == "192.168.8.1"
    assert probe(wired, "gateway", "eth0")["gateway"] == "192.168.7.1"
    first = routes(wired)
    first = next(line.split()[2] for line in first if " via " in line)
    assert probe(wired, "gateway", "eth")["gateway"] == first
    assert probe(wired, "gateway", "th1")["gateway"] == "192.168.8.1"
    nobody = probe(wired, "gateway", "wlan")
    assert (nobody["result"], nobody["gateway"], nobody["log"]) == (-1, None, [])


def test_gateway_in_another_table_does_not_count(wired):
    ip(wired, "route", "add", "default", "via", "192.168.7.1", "dev", "eth0", "table", "100")
    assert probe(wired, "gateway", "eth0")["result"] == -1
    ip(wired, "-6", "addr", "add", "fd00::1/64", "dev", "eth0", "nodad")
    ip(wired, "-6", "route", "add", "default", "via", "fd00::2", "dev", "eth0")
    assert probe(wired, "gateway", "eth0")["result"] == -1
    ip(wired, "route", "add", "default", "via", "192.168.7.254", "dev", "eth0")
    assert probe(wired, "gateway", "eth0")["gateway"] == "192.168.7.254"


def test_more_routes_than_the_buffer_holds(wired):
    ip(wired, "route", "add", "default", "via", "192.168.7.1", "dev", "eth0")
    for count, fits in ((40, True), (500, False)):
        batch = "".join(f"route replace 10.{n // 250}.{n % 250}.0/24 via 192.168.7.9 dev eth0\n" for n in range(count))
        wired.run(["ip", "-batch", "-"], input=batch, check=True)
        answer = probe(wired, "gateway", "eth0")
        if fits:
            assert (answer["result"], answer["gateway"], answer["log"]) == (0, "192.168.7.1", [])
        else:
            assert (answer["result"], answer["gateway"]) == (-1, None)
            assert [entry["function"] for entry in answer["log"]] == ["readNlSock", "retrieveDefGateway"]
            assert lines(answer)[0].startswith("Error in recieved packet:[")
            assert lines(answer)[1].startswith("readNlSock failed[")
