#!/usr/bin/env python3
"""Time to answer of the network functions, by failure case.

    network_times.py measure    runs every case in a panel box, all at once, and writes network_times.json

docs/figures/draw.py network_times draws the picture from it.
Measuring takes some 45 seconds of real time and needs the build with the tests (network_probe).
"""

import json
import pathlib
import sys

HERE = pathlib.Path(__file__).resolve().parent
DATA = HERE / "network_times.json"

# group, case, what network_probe is to do; a1 to a6 stand for servers
CASES = [
    ("nslookup_ares", "primary answers", "ares h1.test - a1 a2"),
    ("nslookup_ares", "primary slow (1.5 s)", "ares h2.test - a4 a2"),
    ("nslookup_ares", "primary refuses the name, secondary answers", "ares h3.test - a5 a2"),
    ("nslookup_ares", "primary silent, secondary answers", "ares h4.test - a3 a2"),
    ("nslookup_ares", "no such name", "ares h5.test - a6 a2"),
    ("nslookup_ares", "no server on the primary's machine", "ares h6.test - a9 a2"),
    ("nslookup_ares", "only a primary, silent", "ares h7.test - a3 -"),
    ("nslookup_ares", "both silent", "ares h8.test - a3 a7"),
    ("nslookup_ozu", "primary answers", "pair h1.test a1 a2"),
    ("nslookup_ozu", "primary slow (1.5 s)", "pair h2.test a4 a2"),
    ("nslookup_ozu", "primary refuses the name, secondary answers", "pair h3.test a5 a2"),
    ("nslookup_ozu", "primary silent, secondary answers", "pair h4.test a3 a2"),
    ("nslookup_ozu", "no server on the primary's machine", "pair h6.test a9 a2"),
    ("nslookup_ozu", "both silent, name in /etc/hosts", "pair hosts.test a3 a7"),
    ("nslookup_ozu", "both silent", "pair h8.test a3 a7"),
    ("checkRouteAndAdd", "route exists", "add 10.1.0.0 - 255.255.0.0 eth0 0 1"),
    ("checkRouteAndAdd", "new route", "add 10.2.0.0 - 255.255.0.0 eth0 0 1"),
    ("checkRouteAndAdd", "unknown device", "add 10.3.0.0 - 255.255.0.0 eth9 0 1"),
]
SERVERS = {"a1": "honest", "a2": "honest", "a3": "silent", "a4": "slow:1.5", "a5": "refuse", "a6": "unknown",
           "a7": "silent"}


def measure():
    sys.path[:0] = [str(HERE.parents[1] / "testkit"), str(HERE.parents[1] / "tests" / "panel")]
    from network_box import start_probe
    from pytest_ozu.box import PanelBox
    from pytest_ozu.dns import address, dns_servers

    with PanelBox(broker=False) as box, dns_servers(box, **SERVERS):
        (box.etc / "hosts").write_text("127.0.0.1 localhost\n10.77.0.3 hosts.test\n")
        (box.etc / "nsswitch.conf").unlink(missing_ok=True)
        (box.etc / "nsswitch.conf").write_text("hosts: files dns\n")
        for words in ("link add eth0 type veth peer name far0", "addr add 192.168.7.20/24 dev eth0",
                      "link set eth0 up", "link set far0 up", "route add 10.1.0.0/16 dev eth0"):
            box.run(["ip", *words.split()], check=True)
        running = []
        for group, case, words in CASES:
            arguments = [address(word) if len(word) == 2 and word[0] == "a" else word for word in words.split()]
            running.append((group, case, start_probe(box, *arguments)))
        rows = []
        for group, case, finish in running:
            answer = finish(120)
            rows.append({"function": group, "case": case, "seconds": round(answer["seconds"], 4),
                         "success": answer["result"] == 0})
    DATA.write_text(json.dumps(rows, indent=1) + "\n")


if __name__ == "__main__":
    if sys.argv[1:] == ["measure"]:
        measure()
    else:
        sys.exit(__doc__)
