"""Commands, processes, kernel log and uptime through ozuctl in a box."""

import os
import pathlib
import subprocess
import time

import pytest

from pytest_ozu.build import build_dir, emulator
from pytest_ozu.waiting import wait_until
from ozuctl import ask, coded, run


def script(box, name, body):
    path = box.data / name
    path.write_text("#!/bin/sh\n" + body)
    path.chmod(0o755)
    return f"/data/{name}"


def test_output_with_the_marker_is_printed(box):
    assert run(box, "exec", "--until", "two", "--", "echo", "one", "two").stdout == "one two\n"


@pytest.mark.long
def test_json_documents_are_as_promised(box):
    assert ask(box, "exec", "exec", "--until", "one", "--", "echo", "one") == {
        "command": "echo one", "result": coded(1, "marker seen"), "output": "one\n"}
    assert ask(box, "exec", "exec", "--timeout", 1, "--", "echo", "one", status=124) == {
        "command": "echo one", "result": coded(-1, "time is up"), "output": ""}
    assert ask(box, "ps", "ps", "no-such-process", status=1) == {"name": "no-such-process", "pid": None}
    assert ask(box, "uptime", "uptime")["rebootReason"] is None
    assert ask(box, "time-parse", "time", "parse", "--format", "limited", "15/03/2024 10:20") == {
        "seconds": 1710498000, "time": "2024-03-15T10:20:00Z"}
    assert ask(box, "time-zone", "time", "zone", "UTC") == {"zone": "UTC", "notified": False}


def test_words_reach_the_program_unchanged(box):
    words = ["$HOME", "*;|>", '"a', "b'", "`ls`", "-"]
    printed = run(box, "exec", "--until", "END", "--", "echo", *words, "END").stdout
    assert printed == " ".join([*words, "END"]) + "\n"


@pytest.mark.long
@pytest.mark.parametrize("body", ["echo before", "exec >&-; exec sleep 60", "echo before; kill -SEGV $$", "exec sleep 60"],
                         ids=["ends", "closes", "dies", "silent"])
def test_without_the_marker_time_runs_out(box, body):
    started = time.monotonic()
    run(box, "exec", "--timeout", 1, "--until", "never", "--", script(box, "child", body), status=124)
    assert time.monotonic() - started >= 1


@pytest.mark.long
def test_flood_is_bound_by_the_time(box):
    # One without end may keep a slow reader from ever waiting, and only waiting counts.
    flood = script(box, "flood", "yes | head -c 300000\nexec sleep 60\n")
    run(box, "exec", "--timeout", 1, "--until", "never", "--", flood, status=124)


@pytest.mark.long
def test_child_that_ignores_its_end_lives_on(box):
    child = script(box, "stubborn", "exec 2>/dev/null\ntrap '' TERM\necho READY\necho $$ >/data/pid\nexec sleep 60\n")
    run(box, "exec", "--until", "READY", "--", child)
    pid = wait_until(lambda: (box.data / "pid").exists() and (box.data / "pid").read_text().strip(), what="its number")
    assert box.run(["kill", "-0", pid]).returncode == 0
    assert run(box, "ps", "sleep").stdout.strip() == pid


@pytest.mark.long
def test_child_is_ended_by_default(box):
    run(box, "exec", "--until", "READY", "--", script(box, "child", "echo READY\nexec sleep 60\n"))
    wait_until(lambda: run_ps(box, "sleep") is None, what="the child's end")


def run_ps(box, name):
    done = box.run(box.program("ozuctl", "ps", name))
    assert done.returncode in (0, 1)
    return int(done.stdout) if done.returncode == 0 else None


@pytest.mark.long
def test_limits_of_a_command(box):
    run(box, "exec", "--until", "w18", "--", "echo", *[f"w{i}" for i in range(2, 19)])
    done = run(box, "exec", "--until", "w18", "--", "echo", *[f"w{i}" for i in range(2, 20)], status=4)
    assert "Too many parameters in command, max value is 20" in done.stderr
    run(box, "exec", "--until", "x", "--", "echo", "x" * (511 - 5))
    done = run(box, "exec", "--until", "x", "--", "echo", "x" * (512 - 5), status=4)
    assert "Command execution is too long: echo xxx" in done.stderr
    run(box, "exec", "--", "echo", "a b", status=2)


@pytest.mark.long
def test_missing_program_tells_on_standard_error(box):
    done = run(box, "exec", "--timeout", 1, "--until", "x", "--", "/nowhere/program", status=124)
    assert "execvp: No such file or directory" in done.stderr


@pytest.mark.long
def test_processes_go_by_the_name_they_were_started_under(box):
    sleeper = box.popen(["bash", "-c", "exec -a /usr/bin/panel-sleeper sleep 60"])
    wait_until(lambda: run_ps(box, "/usr/bin/panel-sleeper"), what="the process")
    for other in ("panel-sleeper", "sleep", "/usr/bin/panel", "kthreadd"):
        assert run_ps(box, other) is None
    sleeper.kill()
    sleeper.wait()


@pytest.mark.long
def test_uptime_is_the_kernels(box):
    before = float(pathlib.Path("/proc/uptime").read_text().split()[0])
    fields = dict(line.split() for line in run(box, "uptime").stdout.splitlines())
    after = float(pathlib.Path("/proc/uptime").read_text().split()[0])
    assert before <= float(fields["uptime"]) <= after
    assert fields["rebootReason"] == "none"


# --- the kernel's log: read only, and never cleared


def plant():
    marker = f"ozu-marker-{os.getpid()}-{time.monotonic_ns()}"
    try:
        # Opened without O_CREAT: where there is no kernel log there is to be none afterwards.
        device = os.open("/dev/kmsg", os.O_WRONLY)
    except OSError as error:
        pytest.skip(f"/dev/kmsg cannot be written here: {error}")
    try:
        os.write(device, f"<6>before\n<6>{marker} and more\n".encode())
    except OSError as error:
        pytest.skip(f"/dev/kmsg cannot be written here: {error}")
    finally:
        os.close(device)
    return marker


def check_marker(done_for):
    marker = plant()
    done = done_for("klog", "find", marker)
    if done.returncode == 4:
        pytest.skip(f"the kernel log cannot be read here: {done.stderr.strip()}")
    assert (done.returncode, done.stdout) == (0, f"{marker} and more\n")
    assert "Found in kernel ring buffer" not in done.stdout
    assert done_for("klog", "find", marker + "-not-there").returncode == 1


@pytest.mark.long
def test_planted_line_is_found_in_the_box(box):
    check_marker(lambda *arguments: box.run(box.program("ozuctl", *arguments)))


def test_planted_line_is_found_on_the_machine():
    # Reading only.
    program = [*emulator(), build_dir() / "bin" / "ozuctl"]
    check_marker(lambda *arguments: subprocess.run([*program, *arguments], capture_output=True, text=True, timeout=60))
