"""tests/panel/programs/panel_process in a box, and what the broker says of it."""

import queue
import re
import subprocess
import threading

SYSLOG_TOPIC = "Multicast/WIFI_SYSLOG_APPENDER_STATE"


class PanelProcess:
    """A panel process that does what it is told."""

    def __init__(self, box, name):
        self.process = box.popen(box.program("panel_process", name), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                 stderr=subprocess.PIPE, text=True, bufsize=1)
        self.answers, self.messages, self.errors = queue.Queue(), queue.Queue(), []
        self.threads = [threading.Thread(target=target, daemon=True) for target in (self._read, self._read_errors)]
        for thread in self.threads:
            thread.start()

    def _read(self):
        for line in self.process.stdout:
            kind, _, rest = line.rstrip("\n").partition(" ")
            if kind == "message":
                self.messages.put(rest)
            else:
                self.answers.put((kind, rest))

    def _read_errors(self):
        for line in self.process.stderr:
            self.errors.append(line.rstrip("\n"))

    def send(self, line):
        self.process.stdin.write(line + "\n")

    def ask(self, line, timeout=30):
        self.send(line)
        kind, rest = self.answers.get(timeout=timeout)
        assert kind == line.split()[0], (line, kind, rest)
        return int(rest)

    def message(self, timeout=10):
        return self.messages.get(timeout=timeout)

    def logged(self, pattern):
        """Log lines that went to standard error and match: (level, text)."""
        found = []
        for line in list(self.errors):
            match = re.match(r"^\S+ (\d+) [A-Z] \S+\[\d+\] \S+ \S+ (.*)$", line)
            if match and re.search(pattern, match.group(2)):
                found.append((int(match.group(1)), match.group(2)))
        return found

    def end(self):
        """Leaves through exit; returns the exit status."""
        if self.process.poll() is None:
            try:
                self.send("exit")
            except BrokenPipeError:
                pass
        status = self.process.wait(20)
        for thread in self.threads:
            thread.join(5)
        for stream in (self.process.stdin, self.process.stdout, self.process.stderr):
            stream.close()
        return status


def connections(box):
    """Names of the sessions that the broker has taken, in order."""
    return re.findall(r"New client connected from \S+ as (\S+)", (box.control / "broker.log").read_text())
