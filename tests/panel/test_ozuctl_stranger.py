"""What a stranger types, pipes and interrupts: each of these did harm or said nothing once."""

import os
import signal
import socket
import subprocess
import time

import pytest

import ozuctl
from pytest_ozu.build import PANEL_BOX, build_dir, emulator

KEY = "00" * 16


def outside(folder, *arguments, **options):
    environment = {**os.environ, "OZU_PLATFORM_DIR": str(folder)}
    environment.pop("PANEL_BOX", None)
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), *map(str, arguments)], capture_output=True, text=True,
                          env=environment, timeout=60, **options)


@pytest.mark.parametrize("words, what", [
    (["severity", "", "DEBUG", "--yes"], "PROCESS"), (["severity", ""], "PROCESS"), (["severity", "X", "", "--yes"], "NAME"),
    (["settings", "", "1", "--yes"], "NAME"), (["settings", ""], "NAME"), (["ps", ""], "NAME"), (["state", "get", ""], "FIELD"),
    (["state", "watch", "", "--for", "1"], "FIELD"), (["wait-for", "process", "", "--for", "1"], "NAME"), (["klog", "find", ""], "TEXT"),
    (["wait-for", "log", "", "--for", "1"], "TEXT"), (["wait-for", "event", "", "--for", "1"], "TEXT"),
    (["monitor", "--no-bus", "--field", "", "--for", "1"], "field"),
])
def test_an_empty_word_is_no_wish_for_all(words, what, tmp_path):
    """A variable of a script that was not set must not list, change or wait for everything."""
    done = outside(tmp_path / "none", *words)
    assert done.returncode == 2 and done.stdout == "" and what in done.stderr and "empty" in done.stderr, done
    assert not (tmp_path / "none").exists()


@pytest.mark.parametrize("index", ["+1", "-1", " 1", "0x1", "1e0", "256", "", "\u0661"])
def test_an_index_is_a_number_of_its_range(index, tmp_path):
    done = outside(tmp_path / "none", "state", "get", f"zones[{index}]")
    assert done.returncode in (1, 2) and "did you mean 'zones[" not in done.stderr
    if index:
        assert done.returncode == 2 and "0 to 255" in done.stderr, done


def test_seconds_are_plain_decimals(tmp_path):
    for seconds in ("1e0", "1E1", "0x1", "+1", " 1", "1 "):
        done = outside(tmp_path / "none", "monitor", "--no-bus", "--for", seconds)
        assert done.returncode == 2 and "--for" in done.stderr, (seconds, done)
    assert outside(tmp_path / "none", "monitor", "--no-bus", "--for", ".1").returncode == 0


def test_help_as_other_tools_have_it(tmp_path):
    for words in ([], ["state"], ["state", "set"], ["box"], ["call"]):
        assert outside(tmp_path, "help", *words).stdout == outside(tmp_path, *words, "--help").stdout != "", words


@pytest.mark.parametrize("words", [["jpeg", "FIFO"], ["crypt", "encrypt", "--key", KEY, "FIFO", "OUT"], ["crypt", "decrypt", "--key", KEY, "FIFO", "OUT"],
                                   ["crypt", "encrypt", "--key-file", "FIFO", "/etc/hostname", "OUT"], ["video", "decrypt", "--key", KEY, "FIFO"],
                                   ["replay", "FIFO"], ["draw", "FIFO", "-o", "OUT.svg"]], ids=" ".join)
def test_nobody_waits_for_a_fifo_without_writer(words, tmp_path):
    os.mkfifo(tmp_path / "fifo")
    done = outside(tmp_path, *[word.replace("FIFO", str(tmp_path / "fifo")).replace("OUT", str(tmp_path / "out")) for word in words])
    assert done.returncode in (1, 2, 4) and done.stderr + done.stdout, done
    assert not (tmp_path / "out").exists() and not (tmp_path / "out.svg").exists()


@pytest.mark.long
def test_a_pipe_is_read_to_its_end(tmp_path):
    reading, writing = os.pipe()
    writer = subprocess.Popen(["sh", "-c", f"sleep 0.5; printf {KEY}"], stdout=writing)
    os.close(writing)
    done = outside(tmp_path, "crypt", "encrypt", "--key-file", f"/dev/fd/{reading}", "/etc/hostname", tmp_path / "out", pass_fds=[reading])
    os.close(reading)
    writer.wait()
    assert done.returncode == 0, done


@pytest.mark.long
def test_standard_input_may_be_a_socket(box):
    """As it is for a command over ssh without a terminal."""
    with box.capture() as bus:
        ours, theirs = socket.socketpair()
        with ours, theirs:
            publish = box.popen(box.program("ozuctl", "publish", "Process/NOBODY", "-"), stdin=theirs, stderr=subprocess.PIPE)
            ours.sendall(b"over ssh")
            ours.shutdown(socket.SHUT_WR)
            assert publish.wait(60) == 0, publish.stderr.read()
            publish.stderr.close()
        assert bus.wait_for(topic="Process/NOBODY").payload == b"over ssh"


@pytest.mark.parametrize("variables", [{"COLUMNS": "1", "TERM": "dumb"}, {"LC_ALL": "tr_TR.UTF-8"}, {"LC_ALL": "nowhere"}, {"TZ": ":bad/zone"},
                                       {"TZ": "A" * 5000}, {"HOME": ""}, {"TMPDIR": "/nonexistent"}, {"PATH": ""}], ids=lambda value: next(iter(value)))
def test_odd_surroundings(variables, tmp_path):
    plain = outside(tmp_path, "names", "device", "W3").stdout
    environment = {**os.environ, "OZU_PLATFORM_DIR": str(tmp_path), **variables}
    tool = [*emulator(), str(build_dir() / "bin" / "ozuctl")]
    for words in (["names", "device", "W3"], ["error", "21"], ["time", "parse", "--format", "local", "2403151020"], ["--help"]):
        done = subprocess.run([*tool, *words], capture_output=True, text=True, env=environment, timeout=60, stdin=subprocess.DEVNULL)
        assert done.returncode == 0 and done.stderr == "", (words, done)
        assert words[0] != "names" or done.stdout == plain


@pytest.mark.long
@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
@pytest.mark.parametrize("words", [["monitor"], ["log", "-f"], ["state", "watch"], ["events", "-f"], ["wait-for", "process", "NOBODY"]], ids=" ".join)
def test_signals_end_what_goes_on(box, words, number):
    ozuctl.run(box, "state", "set", "cpPlasticVersion=1")
    stream = box.popen(box.program("ozuctl", *words), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    time.sleep(0.3)
    assert stream.poll() is None
    stream.send_signal(number)
    assert stream.wait(30) is not None
    assert b"terminate called" not in stream.stderr.read()
    stream.stdout.close()
    stream.stderr.close()


@pytest.mark.parametrize("words, status, told", [
    (["run", "--state", "", "--", "true"], 2, "--state wants a folder"), (["start", "--state", ""], 2, "--state wants a folder"),
    (["exec", "", "true"], 2, "exec wants the folder"), (["run", "--no-broker", "--", "nosuch\x1b[2J"], 127, "the box has no program 'nosuch[2J'"),
])
def test_words_of_the_box(words, status, told):
    done = subprocess.run([PANEL_BOX, *words], capture_output=True, text=True, timeout=60, stdin=subprocess.DEVNULL)
    assert done.returncode == status and told in done.stderr and "\x1b" not in done.stderr, done
