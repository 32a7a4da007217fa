"""Power cuts that cost what was not synchronised: what the platform acknowledged is there afterwards, and no line says
that something was damaged."""

import contextlib
import ctypes
import mmap
import os
import pathlib
import random
import shutil
import signal
import sqlite3
import struct
import subprocess
import sys
import time

import pytest

HERE = pathlib.Path(__file__).resolve().parent
BUILD = pathlib.Path(os.environ.get("OZU_BUILD_DIR", HERE.parents[1] / "build/dev"))
PLATFORM = BUILD / "lib/libozu_platform.so.0"
ROUNDS = int(os.environ.get("OZU_TRIALS", 100 if os.environ.get("OZU_ATTACK") == "long" else 6))
WRITERS = 3


def platform(folder):
    os.environ["OZU_PLATFORM_DIR"] = str(folder)
    return ctypes.CDLL(str(PLATFORM))


def in_child(body):
    child = os.fork()
    if child == 0:
        status = 99
        try:
            status = body()
        finally:
            os._exit(status)
    return child


def write(folder, writer, counters):
    """Stores rising numbers; what was acknowledged stands in the counters."""
    calls = platform(folder)
    number = 0
    while True:
        number += 1
        if calls.ozudb_ModifyBypassExpiry(writer, 1, number) == 0:
            struct.pack_into("<I", counters, 8 * writer, number)
        if calls.LOG_system_event(writer, str(number).encode()) == 0:
            struct.pack_into("<I", counters, 8 * writer + 4, number)


def start_and_read(folder, said):
    """0 when a process starts with what was left; its lines go to a file."""
    os.dup2(os.open(said, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600), 2)
    calls = platform(folder)
    calls.ozudb_getSharedMemory.restype = ctypes.c_void_p
    return 0 if calls.ozudb_getSharedMemory(0) and calls.LOG_system_event(99, b"after") == 0 else 1


def remove_segment(folder):
    try:
        pathlib.Path("/dev/shm/ozu-v1-" + (folder / "identity").read_text()[:32]).unlink()
    except OSError:
        pass


@pytest.fixture
def mount(tmp_path):
    pytest.importorskip("fusepy", reason="fusepy is not installed")
    if not os.access("/dev/fuse", os.R_OK | os.W_OK):
        pytest.skip("/dev/fuse cannot be used here")
    places = tmp_path / "mount", tmp_path / "snapshots"
    for place in places:
        place.mkdir()

    def begin():
        server = subprocess.Popen([sys.executable, HERE / "forgetful_fs.py", *places], stderr=subprocess.PIPE)
        until = time.monotonic() + 20
        while not os.path.ismount(places[0]):
            if server.poll() is not None or time.monotonic() > until:
                pytest.skip(f"no mount here: {server.stderr.read().decode()[:200]}")
            time.sleep(0.01)
        return server

    def end(server):
        subprocess.run(["umount", "-l", places[0]], check=False)
        server.terminate()
        server.wait(20)
        server.stderr.close()

    return begin, end, *places


@pytest.mark.long
def test_acknowledged_writes_survive(mount):
    begin, end, folder, snapshots = mount
    draw = random.Random(20261122)
    acknowledged = 0
    failed = []
    for number in range(ROUNDS):
        server = begin()
        counters = mmap.mmap(-1, 4096)
        writers = [in_child(lambda writer=writer: write(folder, writer, counters)) for writer in range(WRITERS)]
        try:
            time.sleep(draw.uniform(0.02, 0.6))
            promised = struct.unpack_from(f"<{2 * WRITERS}I", counters)
            how = draw.choice(["synced", "some", "some", "all"])
            with contextlib.suppress(FileNotFoundError):  # the folder is a command, it is not there afterwards
                os.mkdir(folder / f".cut-{number}-{how}")
        finally:
            for writer in writers:
                os.kill(writer, signal.SIGKILL)
                os.waitpid(writer, 0)
            remove_segment(folder)
            end(server)
        left = snapshots / str(number)
        said = left / "said"
        status = os.waitpid(in_child(lambda: start_and_read(left, said)), 0)[1]
        lines = said.read_text() if said.exists() else "nothing"
        remove_segment(left)
        with sqlite3.connect(left / "ozu.db") as database:
            bypass = dict(database.execute("SELECT zone, expiry FROM bypass"))
            events = {writer: int(text) for writer, text in database.execute(
                "SELECT category, text FROM system_events WHERE category < 99 ORDER BY id")}
        whole = all(bypass.get(writer, 0) >= promised[2 * writer] and events.get(writer, 0) >= promised[2 * writer + 1]
                    for writer in range(WRITERS))
        acknowledged += sum(promised)
        alarms = [line for line in lines.splitlines() if " 80000 C " in line or " 70000 E " in line]
        if status != 0 or not whole or alarms:
            failed.append((number, how, status, promised, bypass, events, lines[:600]))
        shutil.rmtree(left)
    print(f"attack: unsyncedWritesLost: {ROUNDS} trials, {len(failed)} failures, {acknowledged} acknowledged writes")
    for one in failed:
        print("failed:", *one)
    assert failed == []
    assert acknowledged > 0
