#!/usr/bin/python3
"""Runs every benchmark and prints ours, the peer, the ratio and its target; writes the table of docs/performance.md.

usage: report.py [--write] [--build FOLDER] [--size MIB]

Each comparison runs ours and the peer in the same run, in turns; what is too short for a clock on a busy machine is counted in
instructions with callgrind. Exit status 1 when a target is missed. Nothing here is asserted by ./test: times are reported.
"""

import argparse
import os
import pathlib
import re
import statistics
import subprocess
import sys
import time

import lookups_count
import text_count

ROOT = pathlib.Path(__file__).resolve().parents[1]
PAGE = ROOT / "docs/performance.md"
BEGIN, END = "<!-- table: bench/report.py --write -->", "<!-- end of the table -->"
# The search is no slower than its peer; the rest is the noise of a run.
SEARCH_TARGET = 1.05
INSTRUCTIONS, COST, TIME = "instructions", "cost", "time"
PEERS = ("libabsl-dev", "libssl3", "libstdc++-12-dev", "libc6", "libc-ares2", "libjpeg62-turbo", "sysvinit-utils", "gperf")
NUMBER = r"([\d.]+)"


class Row:
    def __init__(self, family, what, ours, peer, theirs, ratio, target=None, unit=TIME):
        self.family, self.what, self.ours, self.peer, self.theirs, self.unit = family, what, ours, peer, theirs, unit
        self.ratio, self.target = float(ratio), None if target is None else float(target)

    @property
    def missed(self):
        return self.target is not None and self.ratio > self.target

    def cells(self):
        target = "" if self.target is None else f"{self.target:g}"
        verdict = "" if self.target is None else "missed" if self.missed else "met"
        return [self.family, self.what, self.unit, self.ours, self.peer, self.theirs, f"{self.ratio:.3f}", target, verdict]


def run(*command):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, cwd=ROOT)
    # A status of 1 tells of a missed target, which the rows tell again.
    if done.returncode not in (0, 1) or not done.stdout:
        sys.exit(f"{' '.join(map(str, command))}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def ratio_rows(family, program, target_of):
    """Rows of a program that ends with 'ratio CASE x of PEER (OURS ns, THEIRS ns)' lines."""
    pattern = rf"^ratio (\S+) {NUMBER} of (\S+) \({NUMBER} ns, {NUMBER} ns\)"
    for what, ratio, peer, ours, theirs in re.findall(pattern, run(program), re.M):
        yield Row(family, what, f"{ours} ns", peer, f"{theirs} ns", ratio, target_of(what, peer))


def text_rows(build):
    for what, ours, peer, theirs, most in text_count.comparisons(build / "bin"):
        yield Row("text", what, f"{ours:.0f}", peer, f"{theirs:.0f}", ours / theirs, most, INSTRUCTIONS)

    def target_of(what, _):
        return SEARCH_TARGET if what.startswith("search") else None

    for row in ratio_rows("text", build / "bin/text_bench", target_of):
        row.what, row.peer = row.what.replace("_", " "), row.peer.replace(",_", ", ")
        yield row


def lookup_rows(build, family):
    for what, peer, _, _, ours, theirs, most, _ in lookups_count.comparisons(build / "bin", f"{family}_count"):
        yield Row(family, what, f"{ours:.1f}", peer, f"{theirs:.1f}", ours / theirs, most, COST)


def files_rows(build, size):
    output = run("/usr/bin/python3", ROOT / "bench/files_bench.py", build / "bin/files_bench", "--size", size)
    pattern = rf"^(.+?) / (.+?)\s+{NUMBER} ms\s+{NUMBER} ms\s+ratio\s+{NUMBER}\s+target\s+{NUMBER}"
    for what, peer, ours, theirs, ratio, target in re.findall(pattern, output, re.M):
        yield Row("files", what, f"{ours} ms", peer, f"{theirs} ms", ratio, target)


def network_rows(build):
    output = run(ROOT / "tools/box/panel-box", "run", "--no-broker", "--ro-bind", build, "--", build / "bin/network_bench")
    pattern = rf"^(\S.*?)\s+{NUMBER} us\s+(\S.*?)\s+{NUMBER} us\s+ratio {NUMBER}\s+limit {NUMBER}"
    for what, ours, peer, theirs, ratio, target in re.findall(pattern, output, re.M):
        yield Row("network", what, f"{ours} us", peer, f"{theirs} us", ratio, target)


def process_rows(build):
    pattern = rf"^(\S.*?)\s+{NUMBER} us\s+(\S.*?)\s+{NUMBER} us\s+ratio {NUMBER}\s+\(target {NUMBER}"
    for what, ours, peer, theirs, ratio, target in re.findall(pattern, run(build / "bin/process_bench"), re.M):
        yield Row("process", what, f"{ours} us", peer, f"{theirs} us", ratio, target)
    yield pidof_row(build)


def pidof_row(build, processes=200, rounds=101):
    """The finder as a whole process against pidof, among this many more processes; processor time."""
    idle = [subprocess.Popen(["sleep", "300"]) for _ in range(processes)]
    last = subprocess.Popen(["/bin/sleep", "301"])
    try:
        commands = ([build / "bin/process_bench", "--find", "/bin/sleep"], ["pidof", "-s", "/bin/sleep"])
        taken = ([], [])
        for _ in range(rounds):
            for command, found in zip(commands, taken):
                found.append(processor_time(command))
    finally:
        for process in [*idle, last]:
            process.kill()
            process.wait()
    ours, theirs = map(statistics.median, taken)
    ratio = statistics.median(our / their for our, their in zip(*taken))
    return Row("process", f"find a process of {processes}, whole program", f"{ours * 1e3:.2f} ms", "pidof -s",
               f"{theirs * 1e3:.2f} ms", ratio, 1.0)


def processor_time(command):
    process = subprocess.Popen([str(part) for part in command], stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    return usage.ru_utime + usage.ru_stime


def versions():
    done = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}, ", *PEERS], capture_output=True, text=True)
    return done.stdout.rstrip(", ")


def machine():
    model = re.search(r"^model name\s*: (.+)$", pathlib.Path("/proc/cpuinfo").read_text(), re.M)
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    return f"{model.group(1) if model else os.uname().machine}, {os.cpu_count()} processors, load {load}"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build/bench")
    parser.add_argument("--size", type=int, default=64)
    options = parser.parse_args()
    build = options.build.resolve()
    where = machine()
    rows = [*text_rows(build), *lookup_rows(build, "names"), *lookup_rows(build, "state"), *process_rows(build),
            *network_rows(build), *files_rows(build, options.size)]
    head = ["family", "what", "unit", "ours", "peer", "theirs", "ratio", "at most", ""]
    table = [head, ["---"] * len(head)] + [row.cells() for row in rows]
    text = "\n".join("| " + " | ".join(cells) + " |" for cells in table)
    measured = f"Measured {time.strftime('%Y-%m-%d')} on {where}.\nPeers: {versions()}."
    print(f"{measured}\n\n{text}")
    if options.write:
        before, _, rest = PAGE.read_text().partition(BEGIN)
        _, _, after = rest.partition(END)
        PAGE.write_text(f"{before}{BEGIN}\n\n{measured}\n\n{text}\n\n{END}{after}")
        subprocess.run([sys.executable, ROOT / "docs/figures/draw.py", "performance"], check=True)
    missed = [row for row in rows if row.missed]
    for row in missed:
        print(f"missed: {row.what} against {row.peer}: {row.ratio:.3f}, at most {row.target:g}")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
