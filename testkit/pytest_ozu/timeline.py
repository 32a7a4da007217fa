"""What happened on a panel, in chronological order: messages, changes of the state, log lines, events, processes.

`ozuctl monitor` writes the recording; everything that waits reads it here.
"""

import datetime
import json
import subprocess

from .waiting import holds, wait_until

SHOWN = 40  # lines of a failed test's timeline


def name_of(value):
    """A coded value's name, any other value itself."""
    return value.get("name") or value["code"] if isinstance(value, dict) else value


def one_line(record):
    """A record for people, without its time."""
    kind = record["kind"]
    if kind == "bus":
        label = "".join(f" {key}={record[key]}" for key in ("label", "class", "command") if record.get(key) not in (None, ""))
        payload = record["payload"] if len(record["payload"]) <= 32 else record["payload"][:32] + "..."
        return f"bus     {record['topic']}{label} [{payload}]"
    if kind == "state" and "field" in record:
        return f"state   {record['field']} {name_of(record['old'])} -> {name_of(record['new'])}"
    if kind == "log":
        return f"log     {record['process']} {name_of(record.get('level', {'name': '-', 'code': 0}))} {record['text']}"
    if kind == "event":
        return f"event   {record['process']} {name_of(record['category'])}: {record['text']}"
    if kind == "process":
        return f"process {record['process']}[{record['pid']}] {record['what']}"
    if "text" in record:
        return f"{kind:7} {record['text']}"
    if kind == "broker":
        return f"broker  {'back' if record['connected'] else 'gone'}"
    return "state   the shared record has appeared" if kind == "state" else "test    the recording begins"


def topic_matches(wanted, topic):
    """Whether a topic matches one with MQTT wildcards."""
    words, parts = wanted.split("/"), topic.split("/")
    for index, word in enumerate(words):
        if word == "#":
            return True
        if index >= len(parts) or word not in ("+", parts[index]):
            return False
    return len(words) == len(parts)


class Timeline:
    """The recording of a panel over all of its boots."""

    def __init__(self, box):
        self._box = box
        self._process, self._file, self._offset = None, None, 0
        self.records = []
        self._begin = 0

    def start(self):
        """Begins with a boot; everything on the bus from here on is seen."""
        name = f"timeline.{self._box.boots}.jsonl"
        self._file, self._offset = self._box.control / name, 0
        self._file.unlink(missing_ok=True)
        command = self._box.program("ozuctl", "--json", "monitor", "--hold", "0", "--record", f"/panel-box/control/{name}")
        self._process = self._box.popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        boots = len([r for r in self.records if r["kind"] == "snapshot"])
        wait_until(lambda: self._process.poll() is not None or self._snapshots() > boots, 30, "the panel's recording")
        assert self._process.poll() is None, f"ozuctl monitor ended: {self._process.stderr.read().decode()}"

    def stop(self):
        if self._process is not None:
            self._process.terminate()
            try:
                self._process.wait(20)
            except subprocess.TimeoutExpired:
                self._process.kill()
                self._process.wait()
            self._process.stderr.close()
            self.look()
            self._process = None

    def _snapshots(self):
        return len([record for record in self.look() if record["kind"] == "snapshot"])

    def look(self):
        """Every record so far."""
        if self._file is not None and self._file.exists():
            with self._file.open("rb") as file:
                file.seek(self._offset)
                lines = file.read().split(b"\n")[:-1]  # what follows the last line feed is yet to be finished
            self._offset += sum(len(line) + 1 for line in lines)
            self.records += [json.loads(line) for line in lines]
        return self.records

    def note(self, text):
        """A line of the test's own."""
        self.look()
        now = datetime.datetime.now(datetime.timezone.utc).replace(tzinfo=None).isoformat(timespec="milliseconds") + "Z"
        self.records.append({"time": now, "kind": "test", "text": text})

    def mark(self):
        """What has happened until now no longer counts for what is waited for."""
        self._begin = len(self.look())

    def since_mark(self):
        return self.look()[self._begin:]

    def lines(self, count=SHOWN):
        """The last records as text."""
        return [f"{record['time'][11:]:13} {one_line(record)}" for record in self.look()[-count:]]

    def text(self, count=SHOWN):
        return "\n".join(self.lines(count))


class View:
    """One kind of what happens."""

    kind = None
    noun = None  # what people call one

    def __init__(self, panel):
        self._panel, self._timeline = panel, panel.timeline

    def all(self, **wanted):
        """What has happened since the mark, or the boot, and is as wanted."""
        return [record for record in self._timeline.since_mark()
                if record["kind"] == self.kind and all(self._fits(record, *pair) for pair in wanted.items())]

    def _fits(self, record, key, value):
        """A value of None fits everything; a text fits a longer one; a code fits by number or name."""
        here = record.get(key)
        if value is None:
            return True
        if isinstance(here, dict):
            return value in (here["code"], here.get("name"))
        return value in here if key == "text" else value == here

    def _wait_for(self, timeout, count, **wanted):
        """The first that is as wanted; with count above 1 a list of that many."""
        __tracebackhide__ = True
        found = self._panel.wait_until(lambda: self.all(**wanted)[count - 1:] and self.all(**wanted), timeout,
                                       self._described(count, wanted), self.last)
        return found[0] if count == 1 else found[:count]

    def _never(self, seconds, **wanted):
        """Nothing of that kind has happened since the mark, nor does in the next moment."""
        __tracebackhide__ = True
        if not holds(lambda: not self.all(**wanted), seconds):
            self._panel.fail(f"expected no {self._described(0, wanted)}; last seen: {one_line(self.all(**wanted)[-1])}")

    def _described(self, count, wanted):
        named = ", ".join(f"{key} {value!r}" for key, value in wanted.items() if value is not None)
        article = "an" if self.noun[0] in "aeiou" else "a"
        return ({0: "", 1: f"{article} "}.get(count, f"{count} ") + self.noun + ("s" if count > 1 else "") +
                (f" with {named}" if named else ""))

    def last(self):
        """The last of its kind, as text."""
        records = [record for record in self._timeline.look() if record["kind"] == self.kind]
        return one_line(records[-1]) if records else f"no {self.noun} at all"


class Log(View):
    kind = "log"
    noun = "log line"

    def wait_for(self, text=None, process=None, level=None, *, timeout=10.0, count=1):
        """A log line that contains the text; level by number or letter."""
        __tracebackhide__ = True
        return self._wait_for(timeout, count, text=text, process=process, level=level)

    def never(self, text=None, process=None, level=None, *, seconds=0.5):
        __tracebackhide__ = True
        self._never(seconds, text=text, process=process, level=level)


class Events(View):
    kind = "event"
    noun = "event"

    def wait_for(self, text=None, process=None, category=None, *, timeout=10.0, count=1):
        """A system event that contains the text; category by number or name."""
        __tracebackhide__ = True
        return self._wait_for(timeout, count, text=text, process=process, category=category)

    def never(self, text=None, process=None, category=None, *, seconds=0.5):
        __tracebackhide__ = True
        self._never(seconds, text=text, process=process, category=category)


class Bus(View):
    kind = "bus"
    noun = "message"

    def _fits(self, record, key, value):
        if key == "topic" and value is not None:
            return topic_matches(value, record["topic"])
        if key == "payload" and isinstance(value, bytes):
            value = value.hex().upper()
        return super()._fits(record, key, value.upper() if key == "payload" and value else value)

    def wait_for(self, topic=None, payload=None, label=None, message_class=None, command=None, *, timeout=10.0, count=1):
        """A message; the topic with wildcards, the payload as bytes or hexadecimal."""
        __tracebackhide__ = True
        return self._wait_for(timeout, count, topic=topic, payload=payload, label=label, **{"class": message_class}, command=command)

    def never(self, topic=None, payload=None, label=None, message_class=None, command=None, *, seconds=0.5):
        __tracebackhide__ = True
        self._never(seconds, topic=topic, payload=payload, label=label, **{"class": message_class}, command=command)

    def publish(self, topic, payload=b"", label="TEST", message_class=None, command=None):
        """Publishes a message as panel processes do."""
        named = {"label": label, "class": message_class, "command": command}
        self._panel.box.publish(topic, payload, {key: value for key, value in named.items() if value is not None})

    def wait_for_listener(self, topic, timeout=10.0):
        """Until somebody but the recording subscribes to the topic: a message before that would be lost."""
        __tracebackhide__ = True
        self._panel.wait_until(lambda: self.listeners(topic), timeout, f"a process that listens to {topic}",
                               last=lambda: "nobody does")

    def listeners(self, topic):
        """Who is connected and has subscribed to it, by the broker's log."""
        return [name for name, topics in self.sessions().items()
                if not name.startswith("OZUCTL") and any(topic_matches(wanted, topic) for wanted in topics)]

    def broker_log_size(self):
        log = self._panel.box.control / "broker.log"
        return log.stat().st_size if log.exists() else 0

    def sessions(self, since=0):
        """Clients that have connected since the broker's log had that size, each with its topics."""
        log = self._panel.box.control / "broker.log"
        return sessions_of(log.read_bytes()[since:].decode(errors="replace")) if log.exists() else {}


def sessions_of(log):
    """The broker's log as clients that are connected, each with the topics that it has subscribed to since."""
    connected = {}
    for line in log.splitlines():
        words = line.split()[1:]
        if words[:2] == ["box-broker:", "start"]:
            connected.clear()
        elif words[:3] == ["New", "client", "connected"]:
            connected[words[6]] = []
        elif words[:1] == ["Client"]:
            if words[2] != "already":  # the name goes to the client that follows
                connected.pop(words[1], None)
        elif len(words) == 3 and words[1].isdigit() and words[0] in connected:
            connected[words[0]].append(words[2])
    return connected


class State:
    """The panel's shared record, by the names of `ozuctl state`."""

    def __init__(self, panel):
        self._panel = panel

    def get(self, field):
        """A field's value; a code by its name."""
        found = json.loads(self._panel.ozuctl("--json", "state", "get", field).stdout)
        while isinstance(found, (dict, list)) and "code" not in found:
            found = [value for value in (found.values() if isinstance(found, dict) else found) if value is not None][-1:]
            found = found[0] if found else None
        return name_of(found)

    def set(self, *assignments):
        """set("devices[2].openState=1", ...)"""
        __tracebackhide__ = True
        self._panel.ozuctl("state", "set", *assignments)

    def ask(self, query, *arguments):
        """The answer of a state query, as a number: ask("IsPanelInAlarm"), ask("IsMagnetOpen", 2)."""
        return json.loads(self._panel.ozuctl("--json", "ask", query, *arguments, status=(0, 1)).stdout)["answer"]

    def wait_for(self, field, value, timeout=10.0):
        __tracebackhide__ = True

        def there():
            return self._panel.ozuctl("wait-for", "state", f"{field}={value}", "--for", "0.5", status=(0, 124)).returncode == 0

        self._panel.wait_until(there, timeout, f"{field} {value}", last=lambda: f"{field} {self.get(field)}")
