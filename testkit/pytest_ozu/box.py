"""Panel boxes for tests: a panel of its own for each test, with broker, folders and reboot.

    with PanelBox() as box:
        box.run(["ls", "/data"], check=True)
        with box.capture() as messages:
            box.run(box.program("alarm_core"))
            message = messages.wait_for(topic="Process/ALL")

A box ends with its `with` block, and also when the test process dies: its first process reads from a pipe
that only the test process holds.
"""

import os
import pathlib
import re
import shutil
import subprocess
import tempfile
import threading
import time
from dataclasses import dataclass, field

from .build import PANEL_BOX, build_dir, program_folders, program_words
from .waiting import wait_until

REBOOTED = 90
NO_BOOT = 91
LONGEST_BOOT = 120  # seconds; it takes a quarter of one on a machine that is not busy


def as_user(user):
    """What starts a command as another user."""
    return ["setpriv", "--reuid", str(user), "--regid", str(user), "--clear-groups"]


def obstacle_of_user(user):
    """Why that user cannot have a box of this tree's; None when nothing is in the way."""
    if os.getuid() != 0:
        return "runs as an ordinary user already"
    if subprocess.run([*as_user(user), "test", "-x", PANEL_BOX], check=False).returncode != 0:
        return "the project lies in a folder that only its owner may enter"
    return None


def set_variables(env):
    """The options of panel-box that set variables in the box; nothing else of this process's reaches it."""
    return [word for name, value in (env or {}).items() for word in ("--setenv", f"{name}={value}")]


@dataclass
class Message:
    """One message of the bus. `properties` are its MQTT 5 user properties."""

    time: float
    topic: str
    payload: bytes
    properties: dict = field(default_factory=dict)

    @property
    def hex(self):
        return self.payload.hex()


class BoxProcess(subprocess.Popen):
    """A process in a box. Signals reach the process itself; what entered the box for it hands them on."""

    @property
    def inner_pid(self):
        """The process's number on this machine."""
        children = pathlib.Path(f"/proc/{self.pid}/task/{self.pid}/children")
        try:
            return int(wait_until(lambda: children.read_text().split() or self.poll() is not None,
                                  what="the process in the box")[0])
        except (TypeError, FileNotFoundError):
            return None


class Capture:
    """Messages of the bus, from the moment the `with` block begins."""

    MARK = "box/capture"

    def __init__(self, box, topic="#"):
        self.box, self.topic = box, topic
        self.messages = []
        self._changed = threading.Condition()
        self._process = self._reader = None

    def __enter__(self):
        topics = ["-t", self.topic] + ([] if self.topic == "#" else ["-t", self.MARK])
        self._process = self.box.popen(
            ["mosquitto_sub", "-V", "5", "-q", "1", "-F", "%U\t%t\t%x\t%P", *topics],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self._ready = False
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()
        end = time.monotonic() + 10
        while not self._ready:
            # The subscription stands once a message of our own comes back.
            self.box.run(["mosquitto_pub", "-V", "5", "-t", self.MARK, "-n"], check=True)
            with self._changed:
                self._changed.wait_for(lambda: self._ready, timeout=0.2)
            if time.monotonic() > end:
                raise TimeoutError("the bus cannot be listened to")
        return self

    def __exit__(self, *_):
        self._process.kill()
        self._process.wait()
        self._reader.join()
        self._process.stdout.close()

    def _read(self):
        for line in self._process.stdout:
            parts = line.rstrip("\n").split("\t")
            with self._changed:
                if parts[1] == self.MARK:
                    self._ready = True
                else:
                    self.messages.append(Message(float(parts[0]), parts[1], bytes.fromhex(parts[2]),
                                                 parse_properties(parts[3])))
                self._changed.notify_all()

    def wait_for(self, predicate=None, *, topic=None, count=1, timeout=10.0):
        """The first matching message; with count above 1 the list of that many."""

        def matches():
            return [m for m in self.messages
                    if (topic is None or m.topic == topic) and (predicate is None or predicate(m))]

        with self._changed:
            if not self._changed.wait_for(lambda: len(matches()) >= count, timeout):
                raise TimeoutError(f"{len(matches())} of {count} messages within {timeout} s; all: {self.messages}")
            found = matches()[:count]
        return found[0] if count == 1 else found

    def settle(self):
        """Returns all messages once everything that was sent before this call has arrived."""
        mark = f"box/settled/{time.monotonic_ns()}"
        self.box.run(["mosquitto_pub", "-V", "5", "-q", "1", "-t", mark, "-n"], check=True)
        self.wait_for(topic=mark)
        with self._changed:
            return [m for m in self.messages if not m.topic.startswith("box/")]


def parse_properties(text):
    """`name:value name:value` as a dictionary; values may hold spaces, names may not."""
    found = list(re.finditer(r"(?:^| )([A-Za-z][\w-]*):", text))
    ends = [match.start() for match in found[1:]] + [len(text)]
    return {match.group(1): text[match.end():end] for match, end in zip(found, ends)}


class Broker:
    """The box's message broker."""

    def __init__(self, box, serves):
        self._box = box
        self.serves = self._at_boot = serves  # whether processes that start now find it, as far as this object knows

    def booted(self):
        self.serves = self._at_boot

    def _do(self, verb):
        self._box.run(["box-broker", verb], check=True)
        self.serves = verb in ("start", "resume")

    def start(self):
        self._do("start")

    def stop(self):
        """Asks it to end."""
        self._do("stop")

    def kill(self):
        """Takes it away without a goodbye."""
        self._do("kill")

    def pause(self):
        """Leaves the port open but silent."""
        self._do("pause")

    def resume(self):
        self._do("resume")

    def restart(self):
        self.kill()
        self.start()


class PanelBox:
    """One panel. Everything in it runs as root, whoever runs the test.

    state    folder that keeps the panel between boots; without it a temporary one
    cmdline  content of /proc/cmdline (can be changed later through `cmdline`)
    broker   boots with the message broker
    reboot   what a reboot request does: "end" the box, "forced" only with -f, "ignore" it
    binds    further folders that are writable in the box: PATH or PATH:AS; ro_binds: readable
    env      variables of all programs started in the box
    user     user and group number to run the box under, when the test runs as root
    folder   where the caller stands; the box has it, too
    """

    def __init__(self, state=None, *, cmdline=None, broker=True, reboot="end", binds=(), ro_binds=(), env=None,
                 user=None, folder=None):
        # Named as panel-box names its own, so that `panel-box sweep` knows it when this process is gone.
        self._temporary = None if state else tempfile.mkdtemp(prefix=f"panel-box.{os.getpid()}.")
        self.state = pathlib.Path(state or self._temporary)
        self.state.mkdir(parents=True, exist_ok=True)
        self._options = ["--state", str(self.state), "--reboot", reboot]
        if cmdline is not None:
            self._options += ["--cmdline", cmdline]
        if not broker:
            self._options += ["--no-broker"]
        for bind in (*filter(None, [build_dir()]), *binds):
            if pathlib.Path(str(bind).split(":")[0]).exists():
                self._options += ["--bind", str(bind)]
        for bind in (*ro_binds, *(folder for folder in program_folders() if folder.is_dir())):
            self._options += ["--ro-bind", str(bind)]
        self._options += set_variables(env)
        self._folder = folder
        self._as_user = []
        if user is not None:
            self._as_user = as_user(user)
            os.chown(self.state, user, user)
        self._keeper = None
        self._log = None
        self.broker = Broker(self, broker)

    # --- life ---

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.stop()

    def start(self):
        """Boots the panel; again after a reboot or a stop."""
        assert self._keeper is None, "the box is running"
        (self.control / "ready").unlink(missing_ok=True)
        self.broker.booted()
        self._log = tempfile.TemporaryFile()
        self._keeper = subprocess.Popen([*self._as_user, PANEL_BOX, "run", *self._options, "--", "cat"],
                                        stdin=subprocess.PIPE, stdout=self._log, stderr=self._log,
                                        cwd=self._folder, start_new_session=True)
        try:
            wait_until(lambda: (self.control / "ready").exists() or self._keeper.poll() is not None, LONGEST_BOOT,
                       "the box's boot")
            if self._keeper.poll() not in (None, REBOOTED):
                raise RuntimeError(f"the box did not boot: {self.output()}")
        except TimeoutError as late:
            running = subprocess.run(["ps", "-o", "pid,stat,wchan:20,etime,args", "-s", str(self._keeper.pid)],
                                     capture_output=True, text=True).stdout
            self.stop()
            raise TimeoutError(f"{late}\n{running}") from late
        except BaseException:
            self.stop()
            raise
        return self

    def stop(self):
        """Ends the panel; its folder goes with it unless it was given."""
        if self._keeper is not None:
            self._keeper.stdin.close()
            try:
                self._keeper.wait(10)
            except subprocess.TimeoutExpired:
                self._keeper.kill()
                self._keeper.wait()
            self._keeper = None
            self._log.close()
        if self._temporary:
            shutil.rmtree(self._temporary, ignore_errors=True)

    def power_cycle(self):
        """Ends the panel as a power cut does and boots it again; what lasts, lasts."""
        temporary, self._temporary = self._temporary, None
        try:
            if self._keeper is not None:
                self._keeper.kill()
                wait_until(lambda: not self.alive_in_box(), what="the end of the box")
            self.stop()
        finally:
            self._temporary = temporary
        return self.start()

    def wait_for_reboot(self, timeout=10.0):
        """Waits until the box has gone down through a reboot; returns the requests it has seen."""
        status = self._keeper.wait(timeout)
        assert status == REBOOTED, f"the box ended with {status}, not through a reboot: {self.output()}"
        self._keeper.stdin.close()
        self._keeper = None
        self._log.close()
        return self.reboots

    @property
    def keeper_pid(self):
        """The process on this machine from which everything in the box descends."""
        return self._keeper.pid

    @property
    def running(self):
        return self._keeper is not None and self._keeper.poll() is None

    def alive_in_box(self):
        """Whether the box's first process still exists."""
        match = re.search(r'"child-pid": *(\d+)', (self.control / "info").read_text())
        try:
            return match and pathlib.Path(f"/proc/{match.group(1)}/stat").read_text().split()[2] != "Z"
        except FileNotFoundError:
            return False

    def output(self):
        """What the box itself printed."""
        self._log.seek(0)
        return self._log.read().decode(errors="replace")

    # --- programs ---

    def program(self, name, *arguments):
        """The command line of a program: of the build under test, of --ozu-programs, a path, or an installed one."""
        return program_words(name, *arguments)

    def _enter(self, command, env=None):
        return [*self._as_user, str(PANEL_BOX), "exec", *set_variables(env), str(self.state), "--", *map(str, command)]

    def run(self, command, *, timeout=30, check=False, env=None, text=True, **options):
        """Runs a program in the box to its end: a CompletedProcess with stdout and stderr as text."""
        if "stdout" not in options and "stderr" not in options:
            options["capture_output"] = True
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        options.setdefault("cwd", self._folder)
        done = subprocess.run(self._enter(command, env), timeout=timeout, text=text, **options)
        if check and done.returncode != 0:
            raise AssertionError(f"{command} gave {done.returncode}\n{done.stdout}\n{done.stderr}")
        return done

    def popen(self, command, *, env=None, **options):
        """Starts a program in the box: a BoxProcess."""
        options.setdefault("cwd", self._folder)
        return BoxProcess(self._enter(command, env), **options)

    # --- the bus ---

    def capture(self, topic="#"):
        return Capture(self, topic)

    def publish(self, topic, payload=b"", properties=None):
        command = ["mosquitto_pub", "-V", "5", "-q", "1", "-t", topic]
        for name, value in (properties or {}).items():
            command += ["-D", "publish", "user-property", name, str(value)]
        self.run([*command, "-s"] if payload else [*command, "-n"], check=True, text=False,
                 input=payload if payload else b"")

    # --- the panel's folders, as this machine sees them ---

    @property
    def control(self):
        return self.state / "control"

    @property
    def data(self):
        """/data"""
        return self.state / "data"

    @property
    def customapps(self):
        """/customapps"""
        return self.state / "customapps"

    @property
    def platform(self):
        """/var/lib/ozu"""
        return self.state / "platform"

    @property
    def run_folder(self):
        """/run and /var/run"""
        return self.state / "run"

    @property
    def tmp(self):
        """/tmp"""
        return self.state / "tmp"

    @property
    def etc(self):
        """/etc"""
        return self.state / "etc"

    @property
    def log(self):
        """/var/log"""
        return self.state / "log"

    @property
    def cmdline(self):
        """/proc/cmdline; assigning changes it at once."""
        return (self.control / "cmdline").read_bytes()

    @cmdline.setter
    def cmdline(self, content):
        (self.control / "cmdline").write_bytes(content if isinstance(content, bytes) else content.encode())

    @property
    def boots(self):
        """How often the panel has booted."""
        return int((self.control / "boots").read_text())

    @property
    def reboots(self):
        """The reboot requests that the panel has seen, oldest first: `reboot -idf`."""
        return (self.control / "reboots").read_text().splitlines()
