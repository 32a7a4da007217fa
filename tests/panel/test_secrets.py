"""Secrets of a running panel: in no process's memory, arguments or environment, in no log, once they were used."""

import random
import re
import subprocess

import pytest

NAME = "androidboot.serialno="
SERIAL = 0x5EC2E7A1
PROCESSES = [("alarm_core",), ("door_contact", "1"), ("safety_siren",)]

# Runs in the box: what of the needles (a file of lines "NAME HEX") is in the memory (live and freed alike, as a core
# dump has it), the arguments or the environment of a process, or in a file of the panel.
SEARCH = r"""
import os, pathlib, re, sys
needles = [(n, bytes.fromhex(h)) for n, h in (l.split() for l in open(sys.argv[1]))]
processes = 0
looked = 0
def look(where, content):
    for name, needle in needles:
        if needle in content:
            print("found", name, "in", where)
for entry in os.listdir("/proc"):
    if not entry.isdigit() or int(entry) in (os.getpid(), 1):
        continue
    try:
        what = open(f"/proc/{entry}/comm").read().strip()
        maps = open(f"/proc/{entry}/maps").read()
        for part in ("cmdline", "environ"):
            look(f"{part} of {what}", open(f"/proc/{entry}/{part}", "rb").read())
        memory = open(f"/proc/{entry}/mem", "rb", 0)
    except OSError:
        continue
    processes += 1
    for start, end, rights, name in re.findall(r"^([0-9a-f]+)-([0-9a-f]+) (\S+) \S+ \S+ \S+ *(.*)$", maps, re.M):
        if "r" not in rights or name in ("[vvar]", "[vsyscall]"):
            continue
        try:
            memory.seek(int(start, 16))
            content = memory.read(int(end, 16) - int(start, 16))
        except (OSError, ValueError, OverflowError):
            continue
        looked += len(content)
        look(f"memory of {what}, {name or 'anonymous'}", content)
for folder in ("/var/log", "/var/lib/ozu", "/data", "/customapps", "/dev/shm"):
    for path in pathlib.Path(folder).rglob("*"):
        if path.is_file() and not path.is_symlink():
            content = path.read_bytes()
            looked += len(content)
            look(f"{path}", content)
print("processes", processes)
print("bytes", looked)
"""


def cached(build_dir, name):
    return re.search(rf"^{name}:\w+=(.*)$", (build_dir / "CMakeCache.txt").read_text(), re.M).group(1)


def search(box, needles):
    """What was found, and how many processes and bytes were looked at."""
    (box.tmp / "needles").write_text("".join(f"{name} {needle.hex()}\n" for name, needle in needles.items()))
    done = box.run(["/usr/bin/python3", "-c", SEARCH, "/tmp/needles"], check=True, timeout=120)
    lines = done.stdout.splitlines()
    counts = {key: int(value) for key, value in (line.split() for line in lines if not line.startswith("found"))}
    return sorted({line for line in lines if line.startswith("found")}), counts["processes"], counts["bytes"]


@pytest.fixture
def secrets(box, build_dir):
    """Secrets of one run, by name; the files that they are used on lie in /tmp."""
    mask = cached(build_dir, "OZU_DB_CIPHER_MASK")
    iv = cached(build_dir, "OZU_VIDEO_IV")
    if mask.startswith("@") or iv.startswith("@"):
        pytest.skip("the build takes its secrets from files")
    box.cmdline = f"quiet {NAME}{SERIAL:X}\n"
    draw = random.Random(20261122)
    key, plain = draw.randbytes(16), draw.randbytes(4096)
    passphrase = bytes(byte ^ (SERIAL >> 8 * (i % 4)) & 0xFF for i, byte in enumerate(bytes.fromhex(mask)))
    video = b"OZU" + draw.randbytes(16 * 64 - 3)
    cipher = subprocess.run(["openssl", "enc", "-aes-128-cbc", "-nopad", "-K", key.hex(), "-iv", iv], input=video,
                            capture_output=True, check=True).stdout
    for name, content in {"key": key, "secret": plain, "video": cipher}.items():
        (box.tmp / name).write_bytes(content)
    yield {"database-key": passphrase.hex().upper().encode(), "database-key-bytes": passphrase, "file-key": key,
           "plaintext": plain[1024:1056], "plaintext-end": plain[-32:], "video": video[512:544]}
    for name in ("key", "secret", "secret.back", "video"):
        (box.tmp / name).unlink(missing_ok=True)


@pytest.mark.long
def test_nothing_is_left_of_used_secrets(box, start, secrets):
    demo = [box.popen(box.program(*words), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL) for words in PROCESSES]
    process = start(box, "KEEPER")
    assert process.ask("init") == 0
    cipher = (box.tmp / "video").read_bytes()
    for _ in range(5):
        (box.tmp / "video").write_bytes(cipher)
        assert process.ask("secrets 0") == 0
    assert (box.tmp / "secret.back").read_bytes() == (box.tmp / "secret").read_bytes()
    assert secrets["video"] in (box.tmp / "video").read_bytes()
    found, processes, looked = search(box, secrets)
    assert all(one.poll() is None for one in demo)
    for one in demo:
        one.terminate()
        one.wait(20)
    assert processes >= len(PROCESSES) + 2  # and the broker
    print(f"attack: secrets: {len(secrets)} trials, {len(found)} failures, {processes} processes, {looked} bytes")
    assert found == []


def test_the_search_finds_what_is_kept(box, start, secrets):
    process = start(box, "KEEPER")
    assert process.ask("init") == 0
    assert process.ask("secrets 1") == 0
    found, _, _ = search(box, secrets)
    assert {line.split()[1] for line in found} >= {"database-key", "file-key"}, found
