"""A box's life as its user sees it: starting, entering, rebooting, ending, and the reason when it cannot boot."""

import json
import os
import pathlib
import pty
import re
import select
import signal
import subprocess
import tempfile
import time

import pytest

import ozuctl as tool
from pytest_ozu.box import NO_BOOT, PanelBox, REBOOTED
from pytest_ozu.build import PANEL_BOX
from pytest_ozu.waiting import wait_until

UNREACHABLE = 3


def panel_box(*arguments, env=None, cwd="/", timeout=120, text=None):
    return subprocess.run([PANEL_BOX, *map(str, arguments)], capture_output=True, text=True, timeout=timeout, cwd=cwd,
                          env={**os.environ, **(env or {})}, input=text, stdin=None if text is not None else subprocess.DEVNULL)


@pytest.fixture
def state(tmp_path):
    folder = tmp_path / "a panel"
    yield folder
    if (folder / "control" / "ready").exists():
        panel_box("stop", folder)


# --- start ---

@pytest.mark.long
def test_starting_a_running_box_leaves_it_alone(state):
    assert panel_box("start", "--no-broker", "--state", state).stdout == f"{state}\n"
    assert panel_box("exec", state, "sh", "-c", "sleep 600 >/dev/null 2>&1 & echo $! >/run/kept").returncode == 0
    for options in ([], ["--no-broker"], ["--reboot", "ignore"]):
        again = panel_box("start", "--state", state, *options)
        assert (again.returncode, again.stdout) == (0, f"{state}\n") and "runs already" in again.stderr
    assert panel_box("exec", state, "sh", "-c", "kill -0 $(cat /run/kept)").returncode == 0
    assert panel_box("status", state).stdout == "running yes\nboots 1\n"


def test_two_starts_at_once_make_one_box(state):
    starters = [subprocess.Popen([PANEL_BOX, "start", "--no-broker", "--state", state], stdout=subprocess.PIPE,
                                 stderr=subprocess.DEVNULL, text=True) for _ in range(3)]
    for starter in starters:
        assert starter.communicate(timeout=120)[0] == f"{state}\n"
        assert starter.returncode == 0
    assert "running yes\nboots 1\n" == panel_box("status", state).stdout


def test_start_lets_go_of_its_callers_streams(state):
    began = subprocess.run(f"'{PANEL_BOX}' start --state '{state}' 2>&1 | cat", shell=True, capture_output=True, text=True,
                           timeout=120)
    assert began.stdout == f"{state}\n"


@pytest.mark.long
def test_background_box_boots_again(state):
    panel_box("start", "--no-broker", "--reboot", "again", "--state", state)
    panel_box("exec", state, "reboot", "-f")
    wait_until(lambda: "boots 2" in panel_box("status", state).stdout and panel_box("status", state).returncode == 0, 60)
    assert panel_box("exec", state, "true").returncode == 0
    assert panel_box("stop", state).returncode == 0
    assert panel_box("status", state).stdout.splitlines()[0] == "running no"


# --- exec ---

@pytest.mark.long
@pytest.mark.parametrize("name", ["TERM", "INT", "HUP", "QUIT", "USR1", "USR2", "ALRM", "CONT", "WINCH"])
def test_signals_are_handed_on(box, name):
    script = f"trap 'echo got {name}; exit 7' {name}; echo ready; while :; do sleep 0.05; done"
    process = box.popen(["bash", "-c", script], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "ready\n"
    process.send_signal(getattr(signal, f"SIG{name}"))
    output, _ = process.communicate(timeout=20)
    assert (process.returncode, output) == (7, f"got {name}\n")


def test_signals_that_end_it_are_its_end(box):
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        process = box.popen(["sh", "-c", "echo ready; exec sleep 600"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
        assert process.stdout.readline() == b"ready\n"
        process.send_signal(number)
        assert process.wait(20) == -number
        process.stdout.close()


def test_program_survives_what_it_catches(box):
    script = "trap 'echo one' USR1; trap 'echo two; exit 0' TERM; echo ready; while :; do sleep 0.05; done"
    process = box.popen(["sh", "-c", script], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "ready\n"
    process.send_signal(signal.SIGUSR1)
    assert process.stdout.readline() == "one\n"
    process.terminate()
    assert process.communicate(timeout=20)[0] == "two\n" and process.returncode == 0


@pytest.mark.long
def test_program_ends_with_its_caller(box):
    process = box.popen(["sleep", "4711"], stdin=subprocess.DEVNULL)
    wait_until(lambda: box.run(["pgrep", "-f", "sleep 4711"]).returncode == 0)
    process.kill()
    process.wait()
    wait_until(lambda: box.run(["pgrep", "-fx", "sleep 4711"]).returncode == 1, what="the end of the program")


@pytest.mark.parametrize("command, status", [(["true"], 0), (["sh", "-c", "exit 77"], 77), (["sh", "-c", "exit 255"], 255),
                                             (["no-such-program"], 127), (["/etc/passwd"], 126)])
def test_exit_status_comes_back(box, command, status):
    assert box.run(command).returncode == status


@pytest.mark.parametrize("request_words", [["reboot"], ["reboot", "-f"]])
def test_program_ended_by_a_reboot_says_so(box, request_words):
    process = box.popen(["sleep", "600"], stdin=subprocess.DEVNULL)
    wait_until(lambda: box.run(["pgrep", "-fx", "sleep 600"]).returncode == 0)
    box.run(request_words)
    assert process.wait(20) == REBOOTED
    box.wait_for_reboot()


def test_no_box_to_enter(tmp_path, state):
    done = panel_box("exec", tmp_path, "true")
    assert done.returncode == UNREACHABLE and "is not the folder of a box" in done.stderr
    with PanelBox(state, broker=False):
        pass
    for verb in (("exec", state, "true"), ("stop", state)):
        done = panel_box(*verb)
        assert done.returncode == UNREACHABLE and "no box is running" in done.stderr


# --- reboot in a shell ---

def test_shell_boots_the_panel_again(state):
    script = "touch /data/kept /tmp/gone\nreboot\nls /data/kept /tmp/gone\ncat /panel-box/control/boots\nexit 5\n"
    done = panel_box("shell", "--no-broker", "--state", state, text=script)
    assert done.returncode == 5
    assert done.stdout.splitlines()[-2:] == ["/data/kept", "2"]
    assert "reboot (reboot): the panel boots again" in done.stderr
    assert panel_box("status", state).stdout == "running no\nboots 2\nreboot request: reboot\n"


def test_shell_ends_with_a_reboot_where_that_is_wanted(state):
    done = panel_box("shell", "--no-broker", "--reboot", "end", "--state", state, text="reboot\nsleep 10\necho still here\n")
    assert done.returncode == REBOOTED and "still here" not in done.stdout


@pytest.mark.long
def test_shell_of_a_terminal_boots_again(state):
    """With job control, the first shell leaves the terminal to the next one."""
    keeper, end = pty.fork()
    if keeper == 0:
        os.chdir("/")
        os.execv(PANEL_BOX, [str(PANEL_BOX), "shell", "--no-broker", "--state", str(state)])
    seen = b""

    def read_until(pattern):
        nonlocal seen
        limit = time.monotonic() + 60
        while not re.search(pattern, seen):
            assert time.monotonic() < limit, seen
            if select.select([end], [], [], 0.2)[0]:
                seen += os.read(end, 4096)
        seen = seen[re.search(pattern, seen).end():]

    os.write(end, b"echo boot $(cat /panel-box/control/boots)\n")
    read_until(rb"boot 1\r")
    os.write(end, b"reboot\n")
    read_until(rb"the panel boots again")
    # Until its shell has the terminal, an interrupt would end the boot.
    os.write(end, b"echo boot $(cat /panel-box/control/boots)\n")
    read_until(rb"boot 2\r")
    os.write(end, b"sh -c 'echo asleep $((1)); exec sleep 1000'\n")
    read_until(rb"asleep 1\r")
    os.write(end, b"\x03")  # reaches the program alone
    os.write(end, b"echo awake $?; exit 3\n")
    read_until(rb"awake 130\r")
    assert os.waitstatus_to_exitcode(os.waitpid(keeper, 0)[1]) == 3
    os.close(end)


# --- what is said about boxes ---

@pytest.mark.long
def test_status_and_list_as_documents(state, tmp_path):
    environment = {"TMPDIR": str(tmp_path)}
    dead = tmp_path / "panel-box.999999999.abc"
    dead.mkdir()
    assert panel_box("status", "--json", state).returncode == 1
    with PanelBox(state, broker=False, reboot="ignore") as box:
        box.run(["reboot", 'a "b"\t\\ c'])
        done = panel_box("status", "--json", state)
        answer = json.loads(done.stdout)
        tool.validate("box-status", answer)
        assert done.returncode == 0
        assert {**answer, "pid": 1} == {"folder": str(state), "running": True, "pid": 1, "boots": 1, "rebootMode": "ignore",
                                        "reboots": ['reboot a "b"\t\\ c']}
        rows = json.loads(panel_box("list", "--json", env=environment).stdout)
        tool.validate("box-list", rows)
        assert {"folder": str(dead), "running": False, "pid": None, "boots": 0} in rows
        assert [row for row in rows if row["folder"] == str(state)] == [
            {"folder": str(state), "running": True, "pid": answer["pid"], "boots": 1}]
        assert str(state) in panel_box("list", env=environment).stdout
    done = panel_box("status", "--json", state)
    assert done.returncode == 1 and json.loads(done.stdout)["running"] is False and json.loads(done.stdout)["pid"] is None
    assert str(state) not in panel_box("list", env=environment).stdout
    assert panel_box("sweep", env=environment).stdout == f"{dead}\n"
    assert not dead.exists()


# --- what keeps a box from booting ---

def reason(*arguments, **options):
    done = panel_box(*arguments, **options)
    assert done.returncode == NO_BOOT and done.stdout == "", done
    return done.stderr


@pytest.mark.parametrize("verb", [("run", "true"), ("start",), ("shell",)])
def test_unusable_folder_is_named(tmp_path, verb):
    verb, *command = verb
    (tmp_path / "file").write_text("")
    assert f"cannot make the box's folder '{tmp_path}/file'" in reason(verb, "--state", tmp_path / "file", *command)
    said = reason(verb, "--state", "/sys/panel", *command)
    assert "cannot create directory" in said and len(said.splitlines()) == 1


@pytest.mark.parametrize("verb", [("run", "true"), ("start",)])
def test_place_that_cannot_be_made_is_named(tmp_path, verb):
    verb, *command = verb
    said = reason(verb, "--no-broker", "--ro-bind", f"{tmp_path}:/usr/no-such-place", *command)
    assert said.startswith("panel-box: the box could not boot: ") and "/usr/no-such-place" in said and len(said.splitlines()) == 1
    assert "no such file" in reason(verb, "--bind", "/no/such/folder", *command)


@pytest.mark.parametrize("verb", [("run", "true"), ("start",)])
def test_broker_that_does_not_start_is_the_reason(state, verb):
    verb, *command = verb
    (state / "broker").mkdir(parents=True)
    (state / "broker" / "mosquitto.db").write_text("no database of a broker's")
    said = reason(verb, "--state", state, *command)
    assert said.startswith("panel-box: the box could not boot: box-broker: the broker did not start"), said


@pytest.mark.parametrize("kind", ["user", "pid", "net", "mnt"])
@pytest.mark.parametrize("verb", [("check",), ("run", "true"), ("start",), ("shell",)])
def test_machine_without_namespaces_is_told_first(kind, verb):
    script = f'echo 0 >/proc/sys/user/max_{kind}_namespaces && exec "$@"'
    done = subprocess.run(["unshare", "--user", "--map-root-user", "sh", "-c", script, "sh", PANEL_BOX, *verb], capture_output=True, text=True, timeout=60, cwd="/")
    assert done.returncode == NO_BOOT and done.stdout == ""
    first = done.stderr.splitlines()[0]
    assert f"this machine allows no {kind} namespaces" in first and f"sysctl user.max_{kind}_namespaces=" in first


@pytest.mark.long
def test_missing_program_is_told_with_its_package():
    script = ('for f in /usr/bin/*; do [ $f = /usr/bin/bwrap ] || echo $f; done | xargs -d "\\n" ln -st "$0" && '
              'mount --bind "$0" /usr/local/bin && cd /usr/local/bin && mount -t tmpfs none /usr/sbin && PATH=/usr/local/bin '
              'exec "$@"')
    with tempfile.TemporaryDirectory() as folder:
        done = subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "sh", "-c", script, folder, PANEL_BOX, "check"],
                              capture_output=True, text=True, timeout=60)
    assert done.returncode == NO_BOOT
    assert "'bwrap' is not installed" in done.stderr and "apt-get install bubblewrap" in done.stderr


@pytest.mark.parametrize("arguments", [(), ("fly",), ("run",), ("start", "--fast"), ("shell", "ls"), ("start", "ls"),
                                       ("run", "--state"), ("run", "--reboot", "never", "true"), ("exec",), ("stop",),
                                       ("status",), ("status", "a", "b"), ("list", "a"), ("run", "--bind", "/:here", "true")])
def test_wrong_usage(arguments):
    done = panel_box(*arguments)
    assert done.returncode == (0 if arguments == () else 2)
    if arguments:
        assert done.stdout == "" and "panel-box --help" in done.stderr


def test_help_fits_a_terminal():
    assert max(map(len, panel_box("--help").stdout.splitlines())) <= 80


# --- the panel's clock ---

def test_time_zone_is_the_boxs_own(make_box, build_dir):
    machine = os.readlink("/etc/localtime") if os.path.islink("/etc/localtime") else None
    box = make_box(broker=False)
    winter = ["date", "-d", "@1700000000", "+%H:%M %z"]
    assert box.run(winter).stdout == "22:13 +0000\n"
    assert box.run(box.program("ozuctl", "time", "zone", "Asia/Tokyo")).returncode == 0
    assert box.run(winter).stdout == "07:13 +0900\n"
    assert box.run(winter, env={"TZ": "America/New_York"}).stdout == "17:13 -0500\n"
    assert (os.readlink("/etc/localtime") if os.path.islink("/etc/localtime") else None) == machine
    assert pathlib.Path(box.data / "timezone/localtime").is_symlink()


@pytest.mark.long
def test_time_zone_outlives_a_reboot(state, build_dir):
    with PanelBox(state, broker=False) as box:
        box.run(box.program("ozuctl", "time", "zone", "Asia/Tokyo"), check=True)
    with PanelBox(state, broker=False) as box:
        assert box.run(["date", "+%z"]).stdout == "+0900\n"


# --- reboots ---

@pytest.mark.long
def test_reason_of_a_reboot_is_known_before_any_process(tmp_path, build_dir):
    def told(box):
        return json.loads(box.run(box.program("ozuctl", "--json", "uptime"), check=True).stdout)["rebootReason"]

    with PanelBox(tmp_path / "panel") as box:
        assert told(box) is None
        box.run(box.program("ozuctl", "reboot", "--reason", "17", "--text", "because", "--delay", "1"))
        assert box.wait_for_reboot()
        box.start()
        assert told(box) == 17
        assert told(box) == 17
