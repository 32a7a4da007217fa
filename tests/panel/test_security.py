"""Ciphers, random numbers and the database key, on a panel: ozuctl in a box."""

import os
import pty
import random
import re
import signal
import subprocess

import pytest

import ozuctl as tool
from pytest_ozu.box import PanelBox
from pytest_ozu.build import build_dir as build_folder
from streams import drain

KEYS = {16: "13579bdf02468ace1122334455667788", 24: "13579bdf02468ace112233445566778899aabbccddeeff00",
        32: "13579bdf02468ace112233445566778899aabbccddeeff000123456789abcdef"}
NAME = "androidboot.serialno="


def cached(build, name):
    """A cache variable of the build under test."""
    return re.search(rf"^{name}:[A-Z]+=(.*)$", (build / "CMakeCache.txt").read_text(), re.MULTILINE).group(1)


@pytest.fixture(scope="module")
def panel():
    with PanelBox(broker=False) as box:
        yield box


def ozuctl(box, *arguments, **options):
    return box.run(box.program("ozuctl", *arguments), **options)


def openssl(*arguments, data):
    return subprocess.run(["openssl", "enc", *arguments], input=data, check=True, capture_output=True).stdout


def small_disk(box, name, size):
    """A file system of so many bytes in the box: its path."""
    path = f"/tmp/{name}"
    box.run(["sh", "-c", f"mkdir -p {path} && mount -t tmpfs -o size={size} tmpfs {path}"], check=True)
    return path


# --- database key ---

def key_for(mask, serial):
    return "".join(f"{byte ^ (serial >> 8 * (i % 4)) & 0xFF:02X}" for i, byte in enumerate(mask))


LIMIT = 1023  # bytes that are read of the command line
VALUES = {
    # where the parameter stands
    f"{NAME}1A2B3C4D quiet": 0x1A2B3C4D, f"quiet {NAME}1A2B3C4D splash\n": 0x1A2B3C4D, f"quiet {NAME}1A2B3C4D": 0x1A2B3C4D,
    f"quiet {NAME}1A2B3C4D\n": 0x1A2B3C4D, f"{NAME}11 {NAME}22\n": 0x11, f"x{NAME}33\n": 0x33,
    f"Androidboot.serialno=11 {NAME}55\n": 0x55, f"androidboot.serialno 11 {NAME}66\n": 0x66,
    f"console=ttymxc0,115200\troot=/dev/mmcblk0p2\n{NAME}77\n": 0x77,
    "a" * (LIMIT - 21 - 2) + f"{NAME}1234\n": 0x12, "a" * (LIMIT - 21 - 4) + f"{NAME}1234": 0x1234,
    "a" * (LIMIT - 21 - 1) + f"{NAME}1234": 0x1, f"{NAME}1234 " + "b" * 100_000: 0x1234,
    # digits
    f"{NAME}0\n": 0, f"{NAME}7\n": 7, f"{NAME}1a2b3c4d\n": 0x1A2B3C4D, f"{NAME}aBcDeF\n": 0xABCDEF,
    f"{NAME}0000000000001234\n": 0x1234, f"{NAME}7FFFFFFF\n": 0x7FFFFFFF, f"{NAME}80000000\n": 0x80000000,
    f"{NAME}FFFFFFFE\n": 0xFFFFFFFE, f"{NAME}FFFFFFFF\n": 0xFFFFFFFF, f"{NAME}100000000\n": 0xFFFFFFFF,
    f"{NAME}123456789ABCDEF0\n": 0xFFFFFFFF, f"{NAME}10000000000000001\n": 0xFFFFFFFF,
    f"{NAME}{'9' * 40}\n": 0xFFFFFFFF, f"{NAME}{'0' * 900}12\n": 0x12,
    # prefix and sign
    f"{NAME}0x1A2B\n": 0x1A2B, f"{NAME}0X1A2B\n": 0x1A2B, f"{NAME}0x\n": 0, f"{NAME}0xG1\n": 0, f"{NAME}0x0x12\n": 0,
    f"{NAME}+10\n": 0x10, f"{NAME}-1\n": 0xFFFFFFFF, f"{NAME}-5\n": 0xFFFFFFFB, f"{NAME}-FFFFFFFF\n": 1,
    f"{NAME}-100000000\n": 0xFFFFFFFF, f"{NAME}-0x10\n": 0xFFFFFFF0, f"{NAME}+-10\n": 0,
    # where the value ends, and what is none
    f"{NAME}12G4\n": 0x12, f"{NAME}AB,CD\n": 0xAB, f"{NAME}12\t34\n": 0x12, f"{NAME}12\n34 5\n": 0x12,
    f"{NAME}12=34\n": 0x12, f"{NAME}12\0" "34\n": 0x12, f"{NAME}12".encode() + b"\xff\n": 0x12, f"{NAME}xyz\n": 0,
    f"{NAME}\"12\"\n": 0, f"{NAME}=12\n": 0, f"{NAME}\n": 0, f"{NAME}\t1A quiet\n": 0x1A, f"{NAME}\r\v\f\n1A\n": 0x1A,
    f"{NAME}  beef\n": 0xBEEF, f"{NAME} quiet\n": 0,
}
NO_PARAMETER = [
    "quiet\n", "\n", " ", NAME[:-1] + "\n", "androidboot.serialno =12\n", NAME.upper() + "12\n", "\0" + NAME + "12\n",
    "a" * (LIMIT - 20) + NAME + "12\n", "a" * 2000 + " " + NAME + "12\n"]
NO_VALUE = ["", NAME, "quiet " + NAME, NAME + "    ", NAME + "\0" "12", "a" * (LIMIT - 21) + NAME + "1234"]


@pytest.mark.long
def test_database_key_of_many_command_lines(panel, build_dir):
    mask = cached(build_dir, "OZU_DB_CIPHER_MASK")
    if mask.startswith("@"):
        pytest.skip("the build takes its mask from a file")
    for line, serial in VALUES.items():
        panel.cmdline = line
        done = ozuctl(panel, "db-key", "--show")
        assert (done.returncode, done.stdout.strip()) == (0, key_for(bytes.fromhex(mask), serial)), line
    assert len(VALUES) + len(NO_PARAMETER) + len(NO_VALUE) >= 60
    for line in NO_PARAMETER:
        panel.cmdline = line
        done = ozuctl(panel, "db-key", "--show")
        assert (done.returncode, done.stdout) == (4, ""), line
        assert "has no 'androidboot.serialno='" in done.stderr
    for line in NO_VALUE:
        panel.cmdline = line
        done = ozuctl(panel, "db-key", "--show")
        assert (done.returncode, done.stdout) == (4, ""), line
        assert "The serial number is missing" in done.stderr


def test_database_key_is_not_shown_unasked(panel):
    panel.cmdline = f"{NAME}1A2B3C4D\n"
    shown = ozuctl(panel, "db-key", "--show").stdout.strip()
    done = ozuctl(panel, "db-key")
    assert done.returncode == 0
    assert len(shown) == 40 and shown not in done.stdout + done.stderr
    assert "1A2B3C4D" not in done.stdout + done.stderr
    tool.ask(panel, "db-key", "db-key")
    assert tool.ask(panel, "db-key", "db-key", "--show") == shown


# --- file cipher ---

def test_file_cipher_agrees_with_openssl(panel):
    plain = random.Random(1).randbytes(100_000)
    (panel.tmp / "plain").write_bytes(plain)
    (panel.tmp / "key").write_text(KEYS[16] + "\n")
    assert ozuctl(panel, "crypt", "encrypt", "--key-file", "/tmp/key", "/tmp/plain", "/tmp/cipher").returncode == 0
    cipher = (panel.tmp / "cipher").read_bytes()
    assert cipher == openssl("-aes-128-ecb", "-K", KEYS[16], data=plain)
    assert (panel.tmp / "cipher").stat().st_mode & 0o777 == 0o600
    assert ozuctl(panel, "crypt", "decrypt", "--key", KEYS[16], "/tmp/cipher", "/tmp/back").returncode == 0
    assert (panel.tmp / "back").read_bytes() == plain
    assert tool.ask(panel, "crypt", "crypt", "decrypt", "--key", KEYS[16], "/tmp/cipher", "/tmp/back") == {
        "file": "/tmp/back", "bytes": len(plain)}


def test_file_cipher_failures_have_their_codes(panel):
    (panel.tmp / "plain").write_bytes(b"not a cipher text")
    for arguments, code, text in [
            (("decrypt", "--key", KEYS[16], "/tmp/plain", "/tmp/out"), 4, "(code 2)"),
            (("encrypt", "--key", KEYS[16], "/tmp/none", "/tmp/out"), 1, "there is no file '/tmp/none'"),
            (("encrypt", "--key", KEYS[16], "/tmp/plain", "/none/out"), 4, "Error opening output file: /none/out (code 4)"),
            (("encrypt", "--key", "00", "/tmp/plain", "/tmp/out"), 2, "digits"),
            (("encrypt", "--key", "zz" * 16, "/tmp/plain", "/tmp/out"), 2, "hexadecimal"),
            (("encrypt", "/tmp/plain", "/tmp/out"), 2, "")]:
        done = ozuctl(panel, "crypt", *arguments)
        assert done.returncode == code and text in done.stderr, arguments


def test_file_cipher_does_not_empty_its_input(panel):
    (panel.tmp / "plain").write_text("some text")
    (panel.tmp / "link").unlink(missing_ok=True)
    (panel.tmp / "link").symlink_to("plain")
    for output in ("/tmp/plain", "/tmp/../tmp/plain", "/tmp/link"):
        done = ozuctl(panel, "crypt", "encrypt", "--key", KEYS[16], "/tmp/plain", output)
        assert done.returncode == 5 and "the output is the input" in done.stderr
    assert (panel.tmp / "plain").read_text() == "some text"


def test_file_cipher_on_a_full_disk_fails_and_leaves_the_beginning(panel):
    disk = small_disk(panel, "full", 65536)
    plain = random.Random(2).randbytes(200_000)
    (panel.tmp / "plain").write_bytes(plain)
    done = ozuctl(panel, "crypt", "encrypt", "--key", KEYS[16], "/tmp/plain", f"{disk}/cipher")
    assert done.returncode == 4 and "is the disk full?" in done.stderr
    written = panel.run(["cat", f"{disk}/cipher"], text=False).stdout
    assert 0 < len(written) <= 65536
    assert written == openssl("-aes-128-ecb", "-K", KEYS[16], data=plain)[:len(written)]


def test_file_cipher_on_a_read_only_disk(panel):
    disk = small_disk(panel, "readonly_crypt", 1 << 20)
    (panel.tmp / "plain").write_bytes(b"some text")
    panel.run(["sh", "-c", f"cp /tmp/plain {disk}/plain && cp /tmp/plain {disk}/old && mount -o remount,bind,ro {disk}"],
              check=True)
    for name in ("new", "old"):
        done = ozuctl(panel, "crypt", "encrypt", "--key", KEYS[16], "/tmp/plain", f"{disk}/{name}")
        assert done.returncode == 4 and f"Error opening output file: {disk}/{name} (code 4)" in done.stderr
    assert panel.run(["cat", f"{disk}/old"]).stdout == "some text"
    assert ozuctl(panel, "crypt", "encrypt", "--key", KEYS[16], f"{disk}/plain", "/tmp/cipher").returncode == 0
    assert (panel.tmp / "cipher").read_bytes() == openssl("-aes-128-ecb", "-K", KEYS[16], data=b"some text")


# The kernel ends whoever writes behind the limit of a file's size: a death half way, and always at the same place.
def ended_beyond(box, size, *command):
    done = box.run(["prlimit", f"--fsize={size}", "--core=0", *box.program("ozuctl", *command)])
    assert done.returncode in (-signal.SIGXFSZ, 128 + signal.SIGXFSZ)


@pytest.mark.parametrize("direction", ["encrypt", "decrypt"])
def test_file_cipher_ended_half_way_leaves_the_beginning(panel, direction):
    plain = random.Random(4).randbytes(1 << 20)
    cipher = openssl("-aes-128-ecb", "-K", KEYS[16], data=plain)
    source, whole = (plain, cipher) if direction == "encrypt" else (cipher, plain)
    (panel.tmp / "source").write_bytes(source)
    command = ["crypt", direction, "--key", KEYS[16], "/tmp/source", "/tmp/result"]
    for size in (1, 4096, 500_000, (1 << 20) - 1):
        ended_beyond(panel, size, *command)
        assert (panel.tmp / "result").read_bytes() == whole[:size]
    assert ozuctl(panel, *command).returncode == 0
    assert (panel.tmp / "result").read_bytes() == whole


# --- video ---

def video(size, key_length, seed=3):
    """An encrypted region whose first chunk begins with the mark."""
    content = bytearray(b"OZU" + random.Random(seed).randbytes(size - 3))
    bits = key_length * 8
    whole = size // 16 * 16
    content[:whole] = openssl(f"-aes-{bits}-cbc", "-nopad", "-K", KEYS[key_length], "-iv", IV, data=bytes(content[:whole]))
    return bytes(content)


IV = cached(build_folder(), "OZU_VIDEO_IV") if (build_folder() / "CMakeCache.txt").exists() else "0" * 32


def decrypt(box, path, key_length, offset=0):
    return ozuctl(box, "video", "decrypt", "--key", KEYS[key_length], "--offset", offset, path)


@pytest.mark.parametrize("key_length", [16, 32])
def test_video_agrees_with_openssl(panel, key_length):
    header, region = b"header, unencrypted", video(200_005, key_length)
    (panel.tmp / "video").write_bytes(header + region)
    assert decrypt(panel, "/tmp/video", key_length, len(header)).returncode == 0
    whole = len(region) // key_length * key_length
    assert (panel.tmp / "video").read_bytes() == header + openssl(
        f"-aes-{key_length * 8}-cbc", "-d", "-nopad", "-K", KEYS[key_length], "-iv", IV,
        data=region[:whole]) + region[whole:]
    (panel.tmp / "video").write_bytes(header + region)
    assert tool.ask(panel, "video-decrypt", "video", "decrypt", "--key", KEYS[key_length], "--offset", len(header),
                    "/tmp/video") == {"file": "/tmp/video", "decrypted": whole, "left": len(region) - whole}


def test_video_that_does_not_fit_the_key_stays_as_it_is(panel):
    content = video(100_000, 16)
    (panel.tmp / "video").write_bytes(content)
    done = decrypt(panel, "/tmp/video", 32)
    assert done.returncode == 4 and "(code 1: the operation failed)" in done.stderr
    assert (panel.tmp / "video").read_bytes() == content


def test_video_on_a_read_only_disk(panel):
    disk = small_disk(panel, "readonly", 1 << 20)
    (panel.tmp / "video").write_bytes(video(1000, 16))
    panel.run(["sh", "-c", f"cp /tmp/video {disk}/video && mount -o remount,bind,ro {disk}"], check=True)
    done = decrypt(panel, f"{disk}/video", 16)
    assert done.returncode == 4 and "(code 70: file missing)" in done.stderr
    assert panel.run(["cmp", "/tmp/video", f"{disk}/video"]).returncode == 0


def expect_prefix(before, now, full, chunk, offset=0):
    """Decrypted up to the end of some chunk, encrypted from there on; returns how far."""
    assert len(now) == len(before)
    low, high = 0, len(now)
    while low < high:
        middle = (low + high + 1) // 2
        low, high = (middle, high) if now[:middle] == full[:middle] else (low, middle - 1)
    end = offset + max(0, low - offset) // chunk * chunk
    assert now[end:] == before[end:]
    return end - offset


@pytest.mark.parametrize("key_length", [16, 24, 32])
def test_video_on_a_full_disk_ends_on_a_chunk(panel, key_length):
    # A hole of the file has to be filled, for which there is no room.
    disk = small_disk(panel, f"hole{key_length}", 40960)
    (panel.tmp / "start").write_bytes(video(20_000, key_length))
    (panel.tmp / "whole").write_bytes(video(20_000, key_length) + bytes(100_000))
    panel.run(["sh", "-c", f"cp /tmp/start {disk}/video && truncate -s 120000 {disk}/video"], check=True)
    assert "(code 1: the operation failed)" in decrypt(panel, f"{disk}/video", key_length).stderr
    now = panel.run(["cat", f"{disk}/video"], text=False).stdout
    before = (panel.tmp / "whole").read_bytes()
    assert decrypt(panel, "/tmp/whole", key_length).returncode == 0
    done = expect_prefix(before, now, (panel.tmp / "whole").read_bytes(), key_length)
    assert 20_000 < done <= 40_960


@pytest.mark.parametrize("key_length, offset", [(16, 0), (24, 0), (24, 777), (32, 5)])
def test_video_ended_half_way_ends_on_a_chunk(panel, key_length, offset):
    before = bytes(offset) + video(1 << 20, key_length)
    file = panel.tmp / "video"
    file.write_bytes(before)
    assert decrypt(panel, "/tmp/video", key_length, offset).returncode == 0
    full = file.read_bytes()
    for chunks in (1, 2731, 10_000, 20_000):
        file.write_bytes(before)
        size = offset + chunks * key_length
        ended_beyond(panel, size, "video", "decrypt", "--key", KEYS[key_length], "--offset", offset, "/tmp/video")
        assert expect_prefix(before, file.read_bytes(), full, key_length, offset) == size - offset


def test_video_asks_for_consent_outside_a_box(panel, tmp_path):
    content = video(1000, 16)
    (tmp_path / "video").write_bytes(content)
    command = panel.program("ozuctl", "video", "decrypt", "--key", KEYS[16], tmp_path / "video")
    environment = {name: value for name, value in os.environ.items() if name != "PANEL_BOX"}
    done = subprocess.run(command, env=environment, capture_output=True, text=True)
    assert done.returncode == 5 and "--yes" in done.stderr
    assert (tmp_path / "video").read_bytes() == content
    done = subprocess.run([*command, "--yes"], env=environment, capture_output=True, text=True)
    assert done.returncode == 0
    assert (tmp_path / "video").read_bytes()[:3] == b"OZU"


def terminal_output(command):
    """The exit status of a command and what it writes to a terminal that is its standard error."""
    terminal, end = pty.openpty()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=end)
    os.close(end)
    written = drain(terminal).decode()
    return process.wait(30), written


@pytest.mark.long
def test_video_shows_its_progress_on_a_terminal_only(panel, tmp_path):
    content, file = video(48 << 20, 16), tmp_path / "video"
    command = [*panel.program("ozuctl", "video", "decrypt", "--yes", "--key", KEYS[16], file)]
    for _ in range(5):
        file.write_bytes(content)
        status, shown = terminal_output(command)
        assert status == 0
        percentages = [int(text) for text in re.findall(r"(\d+) %", shown)]
        assert percentages == sorted(percentages) and all(0 <= number <= 100 for number in percentages)
        assert shown.endswith("\r      \r"), "the line is cleared"
        if percentages:
            break
    assert percentages, "no progress in five runs"
    file.write_bytes(content)
    done = subprocess.run(command, capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, "")


# --- random ---

@pytest.mark.long
def test_random_bytes_and_numbers(panel):
    seen = {ozuctl(panel, "random", "bytes", "24").stdout.strip() for _ in range(3)}
    assert len(seen) == 3 and all(re.fullmatch("[0-9A-F]{48}", text) for text in seen)
    assert ozuctl(panel, "random", "bytes", "0").stdout.strip() == ""
    assert ozuctl(panel, "random", "bytes", "--", "-1").returncode == 2
    assert ozuctl(panel, "random", "number", "5", "5").stdout.strip() == "5"
    assert {int(ozuctl(panel, "random", "number", "--", "-1", "1").stdout) for _ in range(8)} <= {-1, 0, 1}
    assert ozuctl(panel, "random", "number", "2", "1").returncode == 2
    assert len(tool.ask(panel, "random-bytes", "random", "bytes", 5)) == 10
    assert tool.ask(panel, "random-bytes", "random", "bytes", 0) == ""
    assert tool.ask(panel, "random-number", "random", "number", 7, 7) == 7
