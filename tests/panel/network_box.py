"""What the network tests share: the probe program, and scripted DNS servers in a box."""

import contextlib
import json
import pathlib
import subprocess

from box import wait_until

HERE = pathlib.Path(__file__).parent
PYTHON = "/usr/bin/python3"


def probe(box, command, *arguments, timeout=60, env=None):
    """Calls one function through network_probe: a dictionary with result, outputs, log and times."""
    return start_probe(box, command, *arguments, env=env)(timeout)


def start_probe(box, command, *arguments, env=None):
    """Starts such a call; what comes back waits for its end."""
    process = box.popen(box.program("network_probe", command, *arguments), env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)

    def finish(timeout=60):
        output, _ = process.communicate(timeout=timeout)
        assert process.returncode == 0, f"network_probe {command} gave {process.returncode}"
        answer = json.loads(output)
        assert answer["descriptors"] == 0, "descriptors left open"
        return answer

    return finish


def lines(answer, level=None, function=None):
    """The texts of the log lines of an answer."""
    return [entry["text"] for entry in answer["log"]
            if (level is None or entry["level"] == level) and (function is None or entry["function"] == function)]


class DnsServers:
    def __init__(self, box, log):
        self._box, self._log = box, log

    def queries(self, server=None):
        """The queries so far, oldest first."""
        entries = [json.loads(line) for line in self._log.read_text().splitlines()[1:]]
        return [entry for entry in entries if server is None or entry["server"] == server]


@contextlib.contextmanager
def dns_servers(box, **behaviours):
    """Runs scripted servers: dns_servers(box, a1="honest", a2="silent") listens on 127.0.1.1 and 127.0.1.2."""
    specs = [f"{address(key)}={behaviour}" for key, behaviour in behaviours.items()]
    log = box.tmp / "dns.log"
    log.unlink(missing_ok=True)
    process = box.popen([PYTHON, str(HERE / "dns_server.py"), "/tmp/dns.log", *specs], stdin=subprocess.DEVNULL)
    try:
        wait_until(lambda: process.poll() is not None or (log.exists() and '"ready"' in log.read_text()),
                   what="the DNS servers' start")
        assert process.poll() is None, "the DNS servers did not start"
        yield DnsServers(box, log)
    finally:
        process.kill()
        process.wait()


def address(key):
    """a1 is 127.0.1.1, and so on."""
    return f"127.0.1.{int(key[1:])}"
