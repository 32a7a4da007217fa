"""ozuctl net in a box."""

import json

import jsonschema
import pytest

from pytest_ozu.build import CHECKOUT as ROOT
from pytest_ozu.dns import address, dns_servers


@pytest.fixture
def panel(box):
    for words in ("link add eth0 type veth peer name far0", "addr add 192.168.7.20/24 broadcast + dev eth0",
                  "link set eth0 up", "link set far0 up"):
        box.run(["ip", *words.split()], check=True)
    return box


def net(box, *words, code=0):
    done = box.run(box.program("ozuctl", "net", *words))
    assert done.returncode == code, done.stdout + done.stderr
    return done


def document(box, *words, code=0):
    found = json.loads(net(box, "--json", *words, code=code).stdout)
    schema = ROOT / "tools" / "ozuctl" / "schema" / f"net-{words[0]}.json"
    jsonschema.Draft202012Validator(json.loads(schema.read_text())).validate(found)
    return found


@pytest.mark.long
def test_address(panel):
    assert document(panel, "address", "eth0") == {
        "interface": "eth0", "address": "192.168.7.20", "broadcast": "192.168.7.255"}
    assert "192.168.7.20" in net(panel, "address", "eth0").stdout
    assert "eth9" in net(panel, "address", "eth9", code=1).stderr


@pytest.mark.long
def test_routes_and_gateway(panel):
    net(panel, "gateway", "eth0", code=1)
    net(panel, "route", "add", "10.2.0.0/16", "--gateway", "192.168.7.1", "--dev", "eth0", "--metric", "3")
    shown = panel.run(["ip", "-4", "route", "show", "10.2.0.0/16"], check=True).stdout
    assert shown.split() == "10.2.0.0/16 via 192.168.7.1 dev eth0 metric 3".split()
    assert document(panel, "gateway", "eth0") == {"interface": "eth0", "gateway": "192.168.7.1"}
    removal = ("route", "del", "10.2.0.0", "--mask", "255.255.0.0", "--gateway", "192.168.7.1", "--dev", "eth0",
               "--metric", "3")
    net(panel, *removal)
    assert "No such process" in net(panel, *removal, code=1).stderr
    assert "No such device" in net(panel, "route", "add", "10.3.0.1", "--dev", "eth9", code=4).stderr


@pytest.mark.long
@pytest.mark.parametrize("words", [("route", "add", "10.2.0.0/33"), ("route", "add", "nowhere"),
                                   ("route", "add", "10.2.0.0/x"), ("route", "add", "10.2.0.0", "--gateway", "g"),
                                   ("resolve", "x.test", "--via", "ares"), ("resolve", "x.test", "--iface", "eth0"),
                                   ("resolve", "x.test", "--via", "pigeon"), ("frobnicate",), ()])
def test_usage(panel, words):
    assert net(panel, *words, code=2).stderr


@pytest.mark.long
def test_texts(panel):
    assert document(panel, "valid", "10.0.1.0") == {
        "text": "10.0.1.0", "valid": True, "reason": None, "anyAddress": True}
    assert document(panel, "valid", "10.0.0.1", code=1) == {
        "text": "10.0.0.1", "valid": False, "reason": "10.0.0.1 has invalid range.", "anyAddress": True}
    assert net(panel, "valid", "a.b", code=1).stdout == "no: a.b is a host name.\n"
    assert net(panel, "host-of", "scheme://user@host:8080/x").stdout == "host\n"
    assert document(panel, "host-of", "host") == {"url": "host", "host": "host"}
    net(panel, "host-of", "scheme:///x", code=1)


@pytest.mark.long
def test_resolve(panel):
    (panel.etc / "hosts").write_text("127.0.0.1 localhost\n10.77.0.3 system.test\n")
    with dns_servers(panel, a1="refuse", a2="honest", a3="unknown"):
        first, second = address("a1"), address("a2")
        assert net(panel, "resolve", "system.test").stdout == "10.77.0.3\n"
        assert net(panel, "resolve", "x.test", "--server", second).stdout == "10.77.0.1\n"
        assert net(panel, "resolve", "x.test", "--server", second, "--via", "raw").stdout == "10.77.0.1\n"
        told = net(panel, "resolve", "x.test", "--server", first, "--second", second)
        assert told.stdout == "10.77.0.1\n"
        assert "First dns server failed to resolve, waiting for the second dns server! (internal attempt 1)" \
            in told.stderr
        answer = document(panel, "resolve", "x.test", "--server", address("a3"), code=1)
        assert (answer["via"], answer["address"], answer["code"]) == ("ares", None, -1)
        assert answer["steps"][-1]["text"] == "Could not resolve [x.test]"
        assert answer["steps"][-1]["after"] <= answer["seconds"]


@pytest.mark.long
def test_dns_file(panel):
    panel.run(panel.program("ozuctl", "state", "set", "dnsServerPairs[0].primary=10.0.0.53",
                            "dnsServerPairs[2].secondary=10.0.0.54"), check=True)
    assert document(panel, "dns-file", "write") == {
        "file": "/data/permanent-dns.conf", "servers": ["10.0.0.54", "10.0.0.53"]}
    assert (panel.data / "permanent-dns.conf").read_text() == "nameserver 10.0.0.54\nnameserver 10.0.0.53\n"
    (panel.data / "permanent-dns.conf").unlink()
    (panel.data / "permanent-dns.conf").symlink_to("/dev/full")
    net(panel, "dns-file", "write", code=4)


def test_changes_ask_for_consent(box):
    """Outside of a box nothing is changed without --yes; a variable does not make a box."""
    done = box.run(["env", "-u", "PANEL_BOX", *box.program("ozuctl", "net", "route", "add", "10.2.0.0/16")])
    assert done.returncode == 5, done.stderr
