"""Interface addresses and routes of a kernel, in a box of its own."""

import os

import pytest

from pytest_ozu.box import PanelBox
from network_box import lines, probe, start_probe

UP, GATEWAY = 1, 2


def ip(box, *words):
    box.run(["ip", *words], check=True)


def wire(box):
    """eth0 with an address, its peer far0, and eth1 without one."""
    ip(box, "link", "add", "eth0", "address", "02:00:00:00:00:10", "type", "veth", "peer", "name", "far0")
    ip(box, "link", "add", "eth1", "type", "veth", "peer", "name", "far1")
    ip(box, "addr", "add", "192.168.7.20/24", "broadcast", "192.168.7.255", "dev", "eth0")
    for name in ("eth0", "far0", "eth1", "far1"):
        ip(box, "link", "set", name, "up")


@pytest.fixture
def wired(box):
    wire(box)
    return box


def routes(box, *words):
    return box.run(["ip", "-4", "route", "show", *words], check=True).stdout.splitlines()


# --- addresses ---


@pytest.mark.long
def test_address_and_broadcast(wired):
    answer = probe(wired, "addresses", "eth0", "both")
    assert (answer["result"], answer["family"], answer["address"], answer["broadcast"]) == (
        0, 2, "192.168.7.20", "192.168.7.255")
    assert lines(answer, 30000) == ["interface eth0: family=2  192.168.7.20\n",
                                    "bcast interface eth0: family=2  192.168.7.255\n"]
    assert probe(wired, "device", "eth0")["address"] == "192.168.7.20"
    assert probe(wired, "addresses", "lo")["address"] == "127.0.0.1"


@pytest.mark.long
def test_unusual_broadcast(wired):
    ip(wired, "addr", "flush", "dev", "eth0")
    ip(wired, "addr", "add", "10.9.0.1/30", "broadcast", "10.255.255.255", "dev", "eth0")
    answer = probe(wired, "addresses", "eth0", "both")
    assert (answer["address"], answer["broadcast"]) == ("10.9.0.1", "10.255.255.255")


@pytest.mark.long
def test_interface_without_address(wired):
    answer = probe(wired, "addresses", "eth1", "both")
    assert (answer["result"], answer["address"]) == (8, "0.0.0.0")
    assert answer["broadcast"] == "35.35.35.35", "left as it was"
    assert lines(answer) == [f"ioctl: {os.strerror(99)}\n"]
    answer = probe(wired, "device", "eth1")
    assert (answer["result"], answer["address"]) == (-1, None)
    assert lines(answer, 50000) == [f"ioctl [{os.strerror(99)}]"]


@pytest.mark.long
def test_unknown_interface(wired):
    for name in ("eth9", "", "a-name-that-is-far-too-long-for-an-interface"):
        answer = probe(wired, "addresses", name)
        assert (answer["result"], answer["address"]) == (8, "0.0.0.0")
        assert probe(wired, "device", name)["result"] == -1


@pytest.mark.long
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


REFUSED = {"unknown-device": ("192.168.7.1", "eth9", 19), "unreachable-gateway": ("172.16.0.1", "eth0", 101)}


@pytest.fixture(scope="module")
def courses():
    """Additions that pause between their attempts, in real time and all at once, by name."""
    with PanelBox(broker=False) as box:
        wire(box)
        ip(box, "route", "add", "10.1.0.0/16", "via", "192.168.7.1", "dev", "eth0", "metric", "5")
        running = {
            "existing": start_probe(box, "add", "10.1.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY),
            "new": start_probe(box, "add", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY),
            "no-gateway": start_probe(box, "add", "10.4.0.0", "-", "255.255.0.0", "eth0", 0, UP),
            "metric-0": start_probe(box, "add", "10.40.0.0", "192.168.7.1", "255.255.0.0", "eth0", 0, UP | GATEWAY),
            "metric-32766": start_probe(box, "add", "10.41.0.0", "192.168.7.1", "255.255.0.0", "eth0", 32766,
                                        UP | GATEWAY),
            "metric-32767": start_probe(box, "add", "10.42.0.0", "192.168.7.1", "255.255.0.0", "eth0", 32767,
                                        UP | GATEWAY),
            "metric-negative": start_probe(box, "add", "10.43.0.0", "192.168.7.1", "255.255.0.0", "eth0", -1,
                                           UP | GATEWAY),
            "default": start_probe(box, "add", "0.0.0.0", "192.168.7.1", "0.0.0.0", "eth0", 0, UP | GATEWAY),
        }
        for name, (gateway, device, _) in REFUSED.items():
            running[name] = start_probe(box, "add", "10.5.0.0", gateway, "255.255.0.0", device, 0, UP | GATEWAY)
        helpers = []
        for attempt in (2, 3, 4):
            # The device appears, with the route, while the attempts go on.
            name, net = f"eth2{attempt}", f"172.20.{attempt}"
            running[f"confirmed-{attempt}"] = start_probe(
                box, "add", f"10.8.{attempt}.0", f"{net}.2", "255.255.255.0", name, 0, UP | GATEWAY,
                env={"PROBE_STARTS": f"/tmp/{name}.starts"})
            helpers.append(box.popen(["sh", "-c", (
                f"until [ -e /tmp/{name}.starts ]; do sleep 0.01; done; sleep {attempt - 1.5}; ip link add {name} type veth peer name far2{attempt};"
                f"ip addr add {net}.1/24 dev {name}; ip link set {name} up;"
                f"ip route add 10.8.{attempt}.0/24 via {net}.2 dev {name}")]))
        answers = {name: finish() for name, finish in running.items()}
        assert [helper.wait(10) for helper in helpers] == [0] * 3
        answers["routes"] = routes(box)
    return answers


@pytest.mark.long
def test_new_route_takes_two_attempts(courses):
    answer = courses["new"]
    assert answer["result"] == 0
    assert "10.2.0.0/16 via 192.168.7.1 dev eth0 metric 5 " in courses["routes"]
    assert lines(answer) == [
        "dest = 10.2.0.0, gw = 192.168.7.1, mask = 255.255.0.0, ifr = eth0, metric = 5, flags = 0x03",
        f"SIOCADDRT:[{os.strerror(17)}]"]
    assert 1.9 < answer["seconds"] < 4


@pytest.mark.long
def test_existing_route_takes_one_attempt(courses):
    answer = courses["existing"]
    assert answer["result"] == 0
    assert lines(answer, 10000) == [f"SIOCADDRT:[{os.strerror(17)}]"]
    assert 0.9 < answer["seconds"] < 1.9


@pytest.mark.long
def test_route_without_gateway_and_default_route(courses):
    assert courses["no-gateway"]["result"] == 0
    assert "10.4.0.0/16 dev eth0 scope link " in courses["routes"]
    assert courses["default"]["result"] == 0
    assert "default via 192.168.7.1 dev eth0 " in courses["routes"]


@pytest.mark.long
def test_metrics(courses):
    """0 to 32766 come out as given; others come out as something else."""
    for name in ("metric-0", "metric-32766", "metric-32767", "metric-negative"):
        assert courses[name]["result"] == 0
    assert "10.40.0.0/16 via 192.168.7.1 dev eth0 " in courses["routes"]
    assert "10.41.0.0/16 via 192.168.7.1 dev eth0 metric 32766 " in courses["routes"]
    assert "10.42.0.0/16 via 192.168.7.1 dev eth0 metric 32767 " not in courses["routes"]
    assert "10.43.0.0/16 via 192.168.7.1 dev eth0 " in courses["routes"], "-1 is as good as no metric"


@pytest.mark.long
@pytest.mark.parametrize("name", REFUSED)
def test_refused_route(courses, name):
    answer = courses[name]
    text = f"SIOCADDRT:[{os.strerror(REFUSED[name][2])}]"
    assert answer["result"] == -1
    assert lines(answer, 10000) == [text] * 4
    assert lines(answer, 70000) == [text] * 4
    assert lines(answer, 50000) == []
    assert 3.9 < answer["seconds"] < 8


@pytest.mark.long
@pytest.mark.parametrize("attempt", [2, 3, 4])
def test_confirmation_after_refusals(courses, attempt):
    answer = courses[f"confirmed-{attempt}"]
    assert answer["result"] == -1, "a refused attempt counts, even when a later one confirms"
    assert len(lines(answer, 70000)) == attempt - 1
    last = ["Cannot add route to routing table, reach maximum validation attempts"] if attempt == 4 else []
    assert lines(answer, 50000) == last
    assert attempt - 0.2 < answer["seconds"] < attempt + 2


@pytest.mark.long
def test_removal(wired):
    ip(wired, "route", "add", "10.2.0.0/16", "via", "192.168.7.1", "dev", "eth0", "metric", "5")
    removal = ("del", "10.2.0.0", "192.168.7.1", "255.255.0.0", "eth0", 5, UP | GATEWAY)
    gone = probe(wired, *removal)
    assert (gone["result"], lines(gone)) == (0, [])
    assert routes(wired, "10.2.0.0/16") == []
    refused = probe(wired, *removal)
    assert (refused["result"], lines(refused)) == (0, [f"SIOCDELRT:[{os.strerror(3)}]"])


@pytest.mark.long
def test_without_the_right_to_administer(wired):
    command = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"]
    done = wired.run([*command, *wired.program("network_probe", "del", "10.2.0.0", "-", "255.255.0.0", "eth0", 0, 1)],
                     check=True)
    assert os.strerror(1) in done.stdout


# --- gateway ---


@pytest.mark.long
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


@pytest.mark.long
def test_gateway_in_another_table_does_not_count(wired):
    ip(wired, "route", "add", "default", "via", "192.168.7.1", "dev", "eth0", "table", "100")
    assert probe(wired, "gateway", "eth0")["result"] == -1
    ip(wired, "-6", "addr", "add", "fd00::1/64", "dev", "eth0", "nodad")
    ip(wired, "-6", "route", "add", "default", "via", "fd00::2", "dev", "eth0")
    assert probe(wired, "gateway", "eth0")["result"] == -1
    ip(wired, "route", "add", "default", "via", "192.168.7.254", "dev", "eth0")
    assert probe(wired, "gateway", "eth0")["gateway"] == "192.168.7.254"


@pytest.mark.long
def test_gateways_of_a_multipath_route_do_not_count(wired):
    ip(wired, "addr", "add", "192.168.8.20/24", "dev", "eth1")
    ip(wired, "route", "add", "default", "nexthop", "via", "192.168.7.1", "dev", "eth0",
       "nexthop", "via", "192.168.8.1", "dev", "eth1")
    nobody = probe(wired, "gateway", "eth0")
    assert (nobody["result"], nobody["gateway"], nobody["log"]) == (-1, None, [])


@pytest.mark.long
def test_more_routes_than_the_buffer_holds(wired):
    ip(wired, "route", "add", "default", "via", "192.168.7.1", "dev", "eth0")
    for count, fits in ((70, True), (150, False)):
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
