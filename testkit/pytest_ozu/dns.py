"""Scripted DNS servers in a box: each on an address of its own, or one that the whole panel asks."""

import contextlib
import json
import pathlib
import subprocess

from .waiting import wait_until

PYTHON = "/usr/bin/python3"
BEHAVIOURS = ("honest", "honest:ADDRESS", "silent", "lying", "slow:SECONDS", "truncated", "refuse", "unknown", "closed", "several",
              "only:END", "wrong-id", "elsewhere", "cases:FILE")
SERVER = pathlib.Path(__file__).resolve().with_name("dns_server.py")


def address(key):
    """a1 is 127.0.1.1, and so on."""
    return f"127.0.1.{int(key[1:])}"


class DnsServers:
    """Servers that run from start() to stop(): DnsServers(box, a1="honest", a2="silent")."""

    def __init__(self, box, **behaviours):
        self._box, self._behaviours = box, behaviours
        self._log = box.tmp / "dns.log"
        self._process = None

    def start(self):
        self._log.unlink(missing_ok=True)
        specs = [f"{address(key)}={behaviour}" for key, behaviour in self._behaviours.items()]
        self._process = self._box.popen([PYTHON, str(SERVER), "/tmp/dns.log", *specs], stdin=subprocess.DEVNULL)
        ready = lambda: self._log.exists() and '"ready"' in self._log.read_text()
        wait_until(lambda: self._process.poll() is not None or ready(), what="the DNS servers' start")
        assert self._process.poll() is None, "the DNS servers did not start"
        return self

    def stop(self):
        self._process.kill()
        self._process.wait()

    def queries(self, server=None):
        """The queries so far, oldest first."""
        entries = [json.loads(line) for line in self._log.read_text().splitlines()[1:]]
        return [entry for entry in entries if server is None or entry["server"] == server]


@contextlib.contextmanager
def dns_servers(box, **behaviours):
    """Runs scripted servers: dns_servers(box, a1="honest", a2="silent") listens on 127.0.1.1 and 127.0.1.2."""
    servers = DnsServers(box, **behaviours).start()
    try:
        yield servers
    finally:
        servers.stop()


class PanelDns(DnsServers):
    """The one server that the panel's own resolver asks, honest until told otherwise; 127.0.1.1."""

    def __init__(self, box):
        super().__init__(box, a1="honest")
        self._past = []
        for name, text in (("resolv.conf", "nameserver 127.0.1.1\noptions timeout:1 attempts:1\n"),
                           ("nsswitch.conf", "hosts: files dns\n")):
            (box.etc / name).unlink(missing_ok=True)  # a link to this machine's file
            (box.etc / name).write_text(text)

    @property
    def behaviour(self):
        return self._behaviours["a1"]

    def behave(self, behaviour):
        """From now on: honest, honest:ADDRESS, lying, silent, slow:SECONDS, truncated, refuse, unknown, closed, ..."""
        name, colon, _ = behaviour.partition(":")
        if not any(known.startswith(name + colon) if colon else known == name for known in BEHAVIOURS):
            raise ValueError(f'DNS cannot be "{behaviour}", only one of: {", ".join(BEHAVIOURS)}')
        self._past = self.queries()
        self.stop()
        self._behaviours["a1"] = behaviour
        self.start()

    def queries(self, server=None):
        return self._past + super().queries(server)

    def wait_for_query(self, name, timeout=10.0):
        """The first query for a name since the panel's boot."""
        asked = lambda: [entry for entry in self.queries() if entry["name"] == name]
        return wait_until(asked, timeout, f'a DNS query for "{name}"',
                          last=lambda: sorted({entry["name"] for entry in self.queries()}) or "no query")[0]
