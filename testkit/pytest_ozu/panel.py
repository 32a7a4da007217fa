"""A panel under test: a box, its processes, and what happens in it."""

import itertools
import pathlib
import re
import shutil
import signal
import subprocess

from . import waiting
from .build import library_path, nowhere
from .clock import Clock
from .dns import PanelDns
from .faults import Faults
from .timeline import Bus, Events, Log, State, Timeline


class Process:
    """A process under test."""

    def __init__(self, panel, program, arguments, env):
        self.panel, self.program, self.arguments, self.env = panel, program, arguments, env
        self.name = pathlib.Path(program).name
        self._outer, self._file = None, None
        self._number = itertools.count(1)

    def begin(self):
        """Starts it; what it prints is kept with the artefacts."""
        environment = {**library_path(self.program), **self.panel.clock.environment(), **self.env}
        self.panel.clock.followed = True
        self._since, self._broker_since = len(self.panel.timeline.look()), self.panel.bus.broker_log_size()
        self._file = self.panel.output_folder / f"{self.name}.{next(self._number)}.txt"
        with self._file.open("wb") as file:
            self._outer = self.panel.box.popen(self.panel.box.program(self.program, *self.arguments), stdin=subprocess.DEVNULL,
                                               stdout=file, stderr=file, env=environment)
        return self

    @property
    def running(self):
        return self._outer.poll() is None

    @property
    def output(self):
        return self._file.read_text(errors="replace")

    @property
    def registered_name(self):
        """The name under which it is a panel process by now; None before, and for one that is none."""
        inner = self._outer.inner_pid
        try:
            status = pathlib.Path(f"/proc/{inner}/status").read_text()
        except (FileNotFoundError, ProcessLookupError):  # it has just ended, or was what enters the box
            return None
        numbers = re.search(r"^NSpid:.*\s(\d+)$", status, re.M)
        inside = int(numbers.group(1)) if numbers else None
        names = [record["process"] for record in self.panel.timeline.look()[self._since:]
                 if record["kind"] == "process" and record["what"] == "started" and record["pid"] == inside]
        return names[-1] if names else None

    @property
    def is_up(self):
        """Whether its start-up has registered it and, where there is a broker, subscribed to the first topic, which is its last step."""
        name = self.registered_name
        return bool(name) and (not self.panel.box.broker.serves or bool(self.panel.bus.sessions(self._broker_since).get(name)))

    def wait_until_up(self, timeout=20.0):
        """Until it is a panel process."""
        __tracebackhide__ = True
        self.panel.wait_until(lambda: not self.running or self.is_up, timeout, f'the process "{self.name}" to start')
        if not self.running:
            self.panel.fail(f'expected the process "{self.name}" to run; last seen: it ended with {self._outer.returncode}, '
                            f"saying {self.output[-300:]!r}")
        return self

    def signal(self, number):
        self._outer.send_signal(number)

    def kill(self):
        """Takes it away without a goodbye."""
        if self.running:
            subprocess.run(["kill", "-KILL", str(self._outer.inner_pid)], check=False, stderr=subprocess.DEVNULL)
            self.wait()

    def stop(self, timeout=10.0):
        """Asks it to end."""
        if self.running:
            self.signal(signal.SIGTERM)
        return self.wait(timeout)

    def pause(self):
        subprocess.run(["kill", "-STOP", str(self._outer.inner_pid)], check=True)

    def resume(self):
        subprocess.run(["kill", "-CONT", str(self._outer.inner_pid)], check=False, stderr=subprocess.DEVNULL)

    def wait(self, timeout=10.0):
        """Its exit status, negative for a signal."""
        self.panel.wait_until(lambda: not self.running, timeout, f'the end of the process "{self.name}"', lambda: "it runs")
        return self._outer.returncode

    def restart(self):
        self.kill()
        return self.begin().wait_until_up()


class Panel:
    """A booted box with its recording. Processes are started by name, see `build.program_words`."""

    def __init__(self, box):
        self.box = box
        self.timeline = Timeline(box)
        self.clock = Clock(box)
        self.state, self.log, self.events, self.bus = State(self), Log(self), Events(self), Bus(self)
        self.faults = Faults(self)
        self.processes = {}
        self.last_command = None
        self.devices = {}  # names that scenarios give to devices
        self._dns = None
        self.output_folder = box.state / "output"
        self.output_folder.mkdir(exist_ok=True)
        self.timeline.start()

    @property
    def dns(self):
        """The DNS server that the panel asks; it runs from the first use on."""
        if self._dns is None:
            self._dns = PanelDns(self.box).start()
        return self._dns

    # --- processes ---

    def start(self, program, *arguments, env=None, wait=True):
        """Starts a process and waits until its start-up is done. It follows the panel's clock."""
        __tracebackhide__ = True
        places = nowhere(program)
        if places:
            self.fail(f'expected a program "{program}"; last seen: none in {places} (--programs names another folder)')
        process = Process(self, str(program), arguments, env or {}).begin()
        self.processes[process.name] = process
        return process.wait_until_up() if wait else process

    def process(self, name):
        """A process that was started, by the name of its program."""
        if name not in self.processes:
            self.fail(f'expected a process "{name}"; last seen: {sorted(self.processes) or "none"}')
        return self.processes[name]

    def ozuctl(self, *words, status=0):
        """Runs the tool in the panel: a CompletedProcess. `status` is what it must end with, or several."""
        __tracebackhide__ = True
        done = self.box.run(self.box.program("ozuctl", *words), env=self.clock.environment(), timeout=120)
        expected = status if isinstance(status, tuple) else (status,)
        if done.returncode not in expected:
            self.fail(f"expected ozuctl {' '.join(map(str, words))} to end with {status}; last seen: "
                      f"{done.returncode}, {(done.stderr or done.stdout).strip()}")
        return done

    # --- life ---

    def wait_for_reboot(self, timeout=10.0):
        """Until a reboot has taken the panel down; the requests so far."""
        self.wait_until(lambda: not self.box.running, timeout, "the panel to reboot", lambda: "it runs")
        return self.box.wait_for_reboot()

    def boot(self, processes=True):
        """Boots the panel after a reboot; with the processes that were started before."""
        self._leave()
        self.timeline.note("boot")
        self.box.start()
        self._arrive(processes)

    def power_cut(self, processes=True):
        """Takes the power away and gives it back."""
        self.timeline.note("power cut")
        self.box.power_cycle()
        self._leave()
        self._arrive(processes)

    def _leave(self):
        self.faults.forget()
        self.timeline.stop()
        self.clock.followed = False
        if self._dns is not None:
            self._dns.stop()

    def _arrive(self, processes):
        self.timeline.start()
        if self._dns is not None:
            self._dns.start()
        for process in self.processes.values() if processes else ():
            process.begin().wait_until_up()

    def renew(self):
        """For the next of the tests that share it: no processes, no faults, the real time, disarmed, without the devices of before."""
        if not self.box.running:
            self.boot(processes=False)
        self.faults.undo_all()
        for process in self.processes.values():
            process.kill()
        self.processes.clear()
        self.clock.reset()
        devices = [f"devices[{index}].{field}=0" for index in self.devices.values() for field in ("active", "openState")]
        self.devices.clear()
        self.state.set(*(f"partitions[{index}].partitionState=DISARMED" for index in range(8)), "safetyEvents[0].startTime=0",
                       "safetyEvents[0].ended=0", *devices)
        self.timeline.mark()
        return self

    def end(self):
        if self.box.running:
            self.faults.undo_all()
        self._leave()
        self.box.stop()

    # --- failing ---

    def wait_until(self, condition, timeout, what, last=None):
        __tracebackhide__ = True
        try:
            return waiting.wait_until(condition, timeout, what, last)
        except waiting.NotSeen as late:
            message = str(late)
        return self.fail(message)

    def fail(self, message):
        """Ends the test. The first line says what was expected and what was last seen; the timeline follows."""
        __tracebackhide__ = True
        raise waiting.NotSeen(f"{message}\n\nThe panel's last lines:\n{self.timeline.text()}")

    def keep(self, folder):
        """Leaves what tells about a failure in a folder: timeline, as text and drawn, recording, logs, output, the state folder."""
        shutil.rmtree(folder, ignore_errors=True)  # of an earlier run
        folder.mkdir(parents=True)
        (folder / "timeline.txt").write_text(self.timeline.text(0) + "\n")
        try:
            shutil.copytree(self.box.state, folder / "state", symlinks=True, dirs_exist_ok=True,
                            ignore=lambda path, names: [name for name in names if not keepable(pathlib.Path(path, name))])
        except shutil.Error as missed:  # the panel runs on: its broker, for one, replaces files meanwhile
            (folder / "not_kept.txt").write_text("".join(f"{file}: {why}\n" for file, _, why in missed.args[0]))
        recordings = sorted((folder / "state/control").glob("timeline.*.jsonl"), key=lambda file: int(file.suffixes[0][1:]))
        lines = [line for file in recordings for line in file.read_bytes().splitlines(keepends=True)]
        (folder / "recording.jsonl").write_bytes(b"".join(line for line in lines if line.endswith(b"\n")))
        drawn = subprocess.run(self.box.program("ozuctl", "draw", folder / "recording.jsonl", "-o", folder / "timeline.svg"),
                               capture_output=True, text=True, check=False)
        if drawn.returncode != 0:
            (folder / "timeline.svg.txt").write_text(f"no picture: {drawn.stderr}")


def keepable(path):
    """Files and folders that tell something; no pipes, sockets or devices, not the machine's own /etc."""
    return path.name != "etc" and (path.is_symlink() or path.is_dir() or path.is_file())
