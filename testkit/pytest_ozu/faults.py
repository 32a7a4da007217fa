"""Faults of a panel, each a switch that is undone at the end of its `with` block or of the test.

    with faults.broker_paused():
        ...
    fault = faults.disk_full("/data")     # until fault.undo(), or the end of the test
"""

import pathlib
import shlex

FULL_DISK = pathlib.Path(__file__).resolve().with_name("full_disk.sh")


class Fault:
    def __init__(self, faults, text, undo, outlasts=False):
        self._faults, self.text, self._undo = faults, text, undo
        self.outlasts = outlasts  # the panel's power: it is around the panel, not in it
        faults.active.append(self)
        faults.panel.timeline.note(f"fault: {text}")

    def undo(self):
        """Once; later calls do nothing."""
        if self in self._faults.active:
            self._faults.active.remove(self)
            self._faults.panel.timeline.note(f"undone: {self.text}")
            self._undo()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.undo()


class Faults:
    def __init__(self, panel):
        self.panel, self.active = panel, []

    def undo_all(self):
        """The last one first."""
        for fault in reversed(list(self.active)):
            fault.undo()

    def forget(self):
        """A panel that is down has none left, but for those around it."""
        self.active[:] = [fault for fault in self.active if fault.outlasts]

    def _sh(self, script):
        self.panel.box.run(["sh", "-c", f"set -e; {script}"], check=True, timeout=120)

    # --- the broker ---

    def broker_killed(self):
        broker = self.panel.box.broker
        broker.kill()
        return Fault(self, "the broker is killed", broker.start)

    def broker_paused(self):
        """The port is open but silent."""
        broker = self.panel.box.broker
        broker.pause()
        return Fault(self, "the broker is paused", broker.resume)

    def broker_refusing(self):
        """It answers, but takes nobody."""
        self._sh("sed 's/^allow_anonymous.*/allow_anonymous false/' /panel-box/box/mosquitto.conf >/run/refusing.conf")
        broker = self.panel.box.broker
        broker.kill()
        self._sh("box-broker start /run/refusing.conf")
        return Fault(self, "the broker refuses", broker.restart)

    def broker_slow(self, seconds=1.0):
        """It answers only every so many seconds."""
        script = f"while :; do box-broker pause; sleep {seconds}; box-broker resume; sleep 0.02; done"
        process = self.panel.box.popen(["sh", "-c", script])

        def undo():
            process.kill()
            process.wait()
            self.panel.box.broker.resume()

        return Fault(self, f"the broker answers every {seconds:g} s", undo)

    # --- disks ---

    def disk_full(self, folder):
        """The folder has no room left; files that are open already keep theirs. What is removed makes room."""
        self.panel.box.run(["sh", str(FULL_DISK), "fill", folder], check=True)
        return Fault(self, f"{folder} is full",
                     lambda: self.panel.box.run(["sh", str(FULL_DISK), "empty", folder], check=True))

    def disk_read_only(self, folder):
        """Nothing in the folder can be opened for writing; files that are open already can still be written to."""
        place = shlex.quote(str(folder))
        self._sh(f"mount --rbind {place} {place}; mount -o remount,bind,ro,nosuid,nodev {place}")
        return Fault(self, f"{folder} is read-only", lambda: self._sh(f"umount -l {place}"))

    # --- names, time, processes, the machine ---

    def dns(self, behaviour):
        """The panel's DNS server is "silent", "lying", "slow:SECONDS", "truncated", "refuse", "closed", ..."""
        __tracebackhide__ = True
        server = self.panel.dns
        before = server.behaviour
        try:
            server.behave(behaviour)
        except ValueError as error:
            self.panel.fail(str(error))
        return Fault(self, f"DNS is {behaviour}", lambda: server.behave(before), outlasts=True)

    def clock_jump(self, seconds):
        """The time of day is wrong by so much, forwards or back."""
        self.panel.clock.advance(seconds)
        return Fault(self, f"the clock jumps by {seconds:+g} s", lambda: self.panel.clock.advance(-seconds), outlasts=True)

    def process_killed(self, name):
        process = self.panel.process(name)
        process.kill()
        return Fault(self, f'"{name}" is killed', lambda: process.begin().wait_until_up())

    def process_stopped(self, name):
        """It stands still, with its connection and its files."""
        process = self.panel.process(name)
        process.pause()
        return Fault(self, f'"{name}" is stopped', process.resume)

    def silent(self, topic, timeout=10.0):
        """The processes under test that listen to a topic stand still: nobody answers there. Waits for one that listens."""
        self.panel.bus.wait_for_listener(topic, timeout)
        names = self.panel.bus.listeners(topic)
        found = [process for process in self.panel.processes.values() if process.running and process.registered_name in names]
        if not found:
            self.panel.fail(f"expected a process under test that listens to {topic}; last seen: {', '.join(names)}, "
                            "which the panel did not start")
        for process in found:
            process.pause()
        return Fault(self, f"nobody answers on {topic}", lambda: [process.resume() for process in found])

    def coprocessor_silent(self):
        return self.silent("Process/MDL")

    def radio_silent(self):
        return self.silent("Process/RF_MANAGER")

    def modem_silent(self):
        """The modem's firmware version, in /var/run/version, is not there, as before the modem has answered."""
        version = self.panel.box.run_folder / "version"
        if not version.exists():
            self.panel.fail("expected the modem's version in /var/run/version; last seen: no such file")
        kept = version.rename(self.panel.box.control / "version")
        return Fault(self, "the modem does not answer", lambda: version.exists() or kept.rename(version))

    def command_line(self, text):
        """/proc/cmdline is another."""
        box = self.panel.box
        before, box.cmdline = box.cmdline, text
        return Fault(self, "another kernel command line", lambda: setattr(box, "cmdline", before), outlasts=True)
