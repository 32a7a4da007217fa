"""Compares the file ciphers with the openssl tool and the picture validation with a plain libjpeg decode.

usage: files_bench.py FILES_BENCH [--size MIB] [--rounds N] [--folder FOLDER] [--without-loop]

Whole processes, started in turns in one run; the median of their processor time (user and system) counts, which a busy
machine disturbs less than the clock. The video IV is the development one.
Exit status 1 when a target is missed.
"""

import argparse
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile

KEY = "13579bdf02468ace1122334455667788"
PIECES_KEY = "13579bdf" + "0" * 24
IV = "0" * 32
PICTURE_TARGETS = {"camera_640x480": 0.62, "progressive_640x480": 0.88}


def seconds(command):
    process = subprocess.Popen(command)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise subprocess.CalledProcessError(process.returncode, command)
    return usage.ru_utime + usage.ru_stime


def in_turns(rounds, *jobs):
    """The median time of each job; a job is a function that gives its command."""
    times = [[] for _ in jobs]
    for _ in range(rounds):
        for job, taken in zip(jobs, times):
            taken.append(seconds(job()))
    return [statistics.median(taken) for taken in times]


missed = []


def report(what, ours, theirs, target):
    ratio = ours / theirs
    verdict = "met" if ratio <= target else "MISSED"
    print(f"{what:44} {ours * 1e3:10.2f} ms {theirs * 1e3:10.2f} ms  ratio {ratio:6.4f}  target {target:5.3f}  {verdict}")
    if ratio > target:
        missed.append(what)


def compare_ciphers(arguments, folder):
    bench = arguments.bench
    plain, cipher, out = folder / "plain", folder / "cipher", folder / "out"
    plain.write_bytes(b"OZU" + os.urandom(arguments.size * 2**20 - 3))
    openssl = ["openssl", "enc", "-K", KEY]

    def ecb(*options):
        return [*openssl, "-aes-128-ecb", *options]

    ours, theirs = in_turns(arguments.rounds, lambda: [bench, "ecb", plain, cipher, KEY, "1"],
                            lambda: ecb("-e", "-in", plain, "-out", out))
    assert cipher.read_bytes() == out.read_bytes()
    report(f"ECB, {arguments.size} MiB, encrypt / openssl enc", ours, theirs, 0.9)
    ours, theirs = in_turns(arguments.rounds, lambda: [bench, "ecb", cipher, out, KEY, "0"],
                            lambda: ecb("-d", "-in", cipher, "-out", out))
    report(f"ECB, {arguments.size} MiB, decrypt / openssl enc -d", ours, theirs, 0.9)

    subprocess.run([*openssl, "-aes-128-cbc", "-e", "-nopad", "-iv", IV, "-in", plain, "-out", cipher], check=True)
    encrypted = cipher.read_bytes()
    out.unlink()

    def fresh(command):
        cipher.write_bytes(encrypted)
        return command

    ours, theirs = in_turns(
        arguments.rounds, lambda: fresh([bench, "video", cipher, KEY]),
        lambda: fresh([*openssl, "-aes-128-cbc", "-d", "-nopad", "-iv", IV, "-in", cipher, "-out", out]))
    report(f"video, {arguments.size} MiB, in place / openssl to a copy", ours, theirs, 0.6)
    seconds(fresh([bench, "video", cipher, KEY]))
    assert cipher.read_bytes() == out.read_bytes() == plain.read_bytes()
    if not arguments.without_loop:
        loop = seconds(fresh([bench, "loop", cipher, KEY]))
        assert cipher.read_bytes() == plain.read_bytes()
        report(f"video, {arguments.size} MiB, in place / loop of 16 bytes", ours, loop, 0.01)


def compare_pieces(arguments, folder):
    """Small files and pieces, calls in one process: the peer is a loop of EVP and stdio."""

    def medians(path, *ways):
        runs = [[int(subprocess.check_output([arguments.bench, "ciphers", path, way, "41"])) for way in ways]
                for _ in range(arguments.rounds)]
        return [statistics.median(times) / 1e9 for times in zip(*runs)]

    small, video = folder / "small", folder / "video"
    small.write_bytes(os.urandom(4096))
    report("ECB, 4 KiB, encrypt / EVP and stdio", *medians(small, "ecb", "stdio"), 1.0)
    video.write_bytes(b"OZU" + os.urandom(4 * 2**20 - 3))
    subprocess.run(["openssl", "enc", "-aes-128-cbc", "-e", "-nopad", "-K", PIECES_KEY, "-iv", IV, "-in", video, "-out",
                    folder / "clip"], check=True)
    report("video, 4 MiB, in place / EVP in 64 KiB", *medians(folder / "clip", "video", "evp"), 1.05)


def compare_pictures(arguments):
    lines = subprocess.run([arguments.bench, "pictures", "101"], check=True, capture_output=True, text=True).stdout
    for line in lines.splitlines():
        label, ours, theirs = line.split()
        report(f"{label} / full decode", int(ours) / 1e9, int(theirs) / 1e9, PICTURE_TARGETS.get(label, 0.95))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("bench", type=pathlib.Path)
    parser.add_argument("--size", type=int, default=64)
    parser.add_argument("--rounds", type=int, default=9)
    parser.add_argument("--folder", help="where the files are made")
    parser.add_argument("--without-loop", action="store_true")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory(dir=arguments.folder) as folder:
        compare_ciphers(arguments, pathlib.Path(folder))
        compare_pieces(arguments, pathlib.Path(folder))
    compare_pictures(arguments)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
