"""Counts the instructions of the conversions with callgrind and compares ours with the peers.

usage: text_count.py FOLDER_OF_PROGRAMS

A count is the difference between many calls and one, so that the start of the process does not take part. Exit status 1 when
a target is missed.
"""

import pathlib
import re
import subprocess
import sys

CALLS = 20
SIZES = {"hex text with separator": (20, 4096), "hex text": (20, 4096), "bytes of hex text": (20, 4096)}


def instructions(program, what, way, size, calls):
    done = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", program, what, way, str(size),
                           str(calls)], capture_output=True, text=True, check=True)
    return int(re.search(r"Collected : (\d+)", done.stderr).group(1))


def per_call(program, what, way, size):
    few, many = (instructions(program, what, way, size, calls) for calls in (1, 1 + CALLS))
    return (many - few) / CALLS


def comparisons(folder):
    """(what, instructions of ours, peer, its instructions, the most that ours may take of them)"""
    program = pathlib.Path(folder) / "text_count"
    listed = [line.split("|") for line in subprocess.check_output([program], text=True).splitlines()]
    for what in dict.fromkeys(what for what, _, _ in listed):
        for size in SIZES.get(what, (8,)):
            label = f"{what}, {size} bytes" if what in SIZES else what
            ours = per_call(program, what, "ours", size)
            for peer, most in ((way, most) for name, way, most in listed if name == what and way != "ours"):
                yield label, ours, peer, per_call(program, what, peer, size), float(most)


def main(folder):
    missed = 0
    for label, ours, peer, theirs, most in comparisons(folder):
        ratio = ours / theirs
        missed += ratio > most
        print(f"{label:38} {ours:10.1f}  {peer:24} {theirs:10.1f}  ratio {ratio:5.3f}, at most {most:g}  "
              f"{'ok' if ratio <= most else 'MISSED'}")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
