"""Unit tests leave nothing in the temporary folder and in shared memory, however they end."""

import contextlib
import os
import pathlib
import signal
import subprocess
import time

import pytest

import tree

SHARED = pathlib.Path("/dev/shm")
PATIENCE = 60


def program(name):
    path = tree.BUILD / "bin" / name
    if not path.exists():
        pytest.skip(f"{name} is not part of this build")
    return path


def eventually(condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        assert time.monotonic() < end
        time.sleep(0.02)


@contextlib.contextmanager
def started(tmp_path, name, *options):
    process = subprocess.Popen([program(name), *options], env={**os.environ, "TMPDIR": str(tmp_path)}, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield process
    finally:
        process.kill()
        process.wait()


def segments(tmp_path):
    """Shared segments of the data folders that are there."""
    identities = [path.read_text()[:32] for path in tmp_path.glob("*/*/identity")]
    return [path for path in SHARED.glob("ozu-v*") if any(one and one in path.name for one in identities)]


@pytest.mark.parametrize("name, some", [("process_files_test", "Files.failed*"), ("platform_test", "SegmentTest.is*")])
@pytest.mark.parametrize("deadly", [None, signal.SIGTERM, signal.SIGKILL], ids=["ends", "terminated", "killed"])
def test_nothing_is_left(tmp_path, name, some, deadly):
    with started(tmp_path, name, f"--gtest_filter={some}", f"--gtest_repeat={1 if deadly is None else 100000}") as process:
        if deadly is not None:
            eventually(lambda: list(tmp_path.glob("*/*")))
            process.send_signal(deadly)
        assert process.wait(PATIENCE) == (0 if deadly is None else -deadly)
    eventually(lambda: list(tmp_path.iterdir()) == [])


def test_segment_of_a_killed_test_goes_with_it(tmp_path):
    with started(tmp_path, "platform_test", "--gtest_filter=SegmentTest.is*", "--gtest_repeat=100000") as process:
        left = []
        while not left:
            process.send_signal(signal.SIGCONT)
            eventually(lambda: segments(tmp_path) or process.poll() is not None)
            assert process.poll() is None
            process.send_signal(signal.SIGSTOP)  # what it was about to remove stays
            left = segments(tmp_path)
        process.kill()
        process.wait(PATIENCE)
    eventually(lambda: list(tmp_path.iterdir()) == [])
    assert not [path for path in left if path.exists()]


# A program with shared memory and a default data folder of its own.
ALONE = """
mount -t tmpfs none /dev/shm && mount -t tmpfs none /var/lib && mkdir /dev/shm/tests || exit
TMPDIR=/dev/shm/tests "$@" >&2 || exit
while [ -n "$(ls /dev/shm/tests)" ]; do sleep 0.02; done
find /dev/shm /var/lib -mindepth 1 ! -name tests
"""


@pytest.mark.long
@pytest.mark.parametrize("name, some", [("platform_test", "Settings.*:-*AnotherUser*"), ("platform_reload_test", "*"),
                                        ("fuzz_platform_families_test", "*"), ("fuzz_tool_families_test", "*")])
def test_a_whole_program_leaves_nothing(name, some):
    if os.geteuid() != 0:
        pytest.skip("mounting shared memory of its own needs root")
    command = ["unshare", "--mount", "sh", "-c", ALONE, "sh", program(name), f"--gtest_filter={some}"]
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=600)
    assert done.returncode == 0, done.stderr[-4000:]
    assert done.stdout == ""


@pytest.mark.long
@pytest.mark.parametrize("options", [[], ["-n", "2"]], ids=["one", "several"])
@pytest.mark.parametrize("passes", [True, False])
def test_files_of_a_run_stay_when_a_test_failed(tmp_path, options, passes):
    (tmp_path / "test_it.py").write_text(f"def test_it(tmp_path):\n    (tmp_path / 'written').touch()\n    assert {passes}\n")
    (tmp_path / "left").mkdir()
    command = ["/usr/bin/python3", "-m", "pytest", "-q", "-p", "conftest", *options, tmp_path / "test_it.py"]
    environment = {**os.environ, "TMPDIR": str(tmp_path / "left"), "PYTHONPATH": str(tree.ROOT)}
    done = subprocess.run(command, env=environment, cwd=tmp_path, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=60)
    assert done.returncode == (0 if passes else 1), done
    assert bool(list((tmp_path / "left").rglob("written"))) != passes


def test_output_is_captured_without_files():
    """GoogleTest captures into files below /tmp, which a killed test leaves."""
    users = [name for name in sorted(tree.ROOT.glob("tests/**/*.cpp")) if "internal::Capture" in name.read_text()]
    assert users == []
