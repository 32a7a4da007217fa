"""Counts what lookups of names and questions about the shared record cost with callgrind and compares ours with its peers.

usage: lookups_count.py FOLDER_OF_PROGRAMS

Prints instructions and mispredicted branches for each, the loop around it taken off. The cost is callgrind's
usual estimate, instructions plus ten for each mispredicted branch; unlike time it is the same in every run. The exit
status is 1 when a target is missed (LIMITS). All ways must give the same names.
"""

import pathlib
import re
import subprocess
import sys

STEPS = 4096
PROGRAMS = ("names_count", "state_count")
LIMITS = {"switch": 1.07, "unordered_map": 1.2, "gperf": 1.0, "scan": 0.1, "loads": 2.9}
# A perfect hash does not ask for the product as seldom as the scan does; it is shown, no more.
NO_LIMIT = {("device_type_code", "gperf")}


def limit(question, way):
    """What ours may cost of that way to answer the question; None where it is shown, no more."""
    return None if (question, way) in NO_LIMIT else LIMITS.get(way)


def run(program, question, way):
    """(instructions, mispredicted branches) for one lookup, and what it found."""
    done = subprocess.run(["valgrind", "--tool=callgrind", "--branch-sim=yes", "--callgrind-out-file=/dev/null",
                           program, question, way], capture_output=True, text=True, check=True)
    events = re.search(r"Events +: (.+)", done.stderr).group(1).split()
    totals = dict(zip(events, map(int, re.search(r"Collected : (.+)", done.stderr).group(1).split())))
    return (totals["Ir"] / STEPS, (totals["Bcm"] + totals["Bim"]) / STEPS), done.stdout


def comparisons(folder, name):
    """Of one program: (question, way, instructions of ours, of that way, estimated costs of both, the most that ours may take, same answers)"""
    program = pathlib.Path(folder) / name
    listed = [line.split() for line in subprocess.check_output([program], text=True).splitlines()]
    for question in dict.fromkeys(question for question, _ in listed):
        counts, answers = {}, {}
        for way in [w for q, w in listed if q == question]:
            counts[way], answers[way] = run(program, question, way)
        loop = counts.pop("loop")
        counts = {way: (count[0] - loop[0], max(count[1] - loop[1], 0.0)) for way, count in counts.items()}
        cost = {way: count[0] + 10 * count[1] for way, count in counts.items()}
        for way in [w for w in counts if w != "ours"]:
            yield (question, way, counts["ours"][0], counts[way][0], cost["ours"], cost[way], limit(question, way),
                   answers[way] == answers["ours"])


def main(folder):
    missed = 0
    compared = (row for name in PROGRAMS for row in comparisons(folder, name))
    for question, way, ours, theirs, our_cost, their_cost, most, same in compared:
        ratio = our_cost / their_cost
        verdict = "" if most is None else "ok" if same and ratio <= most else "MISSED" if same else "DIFFERENT"
        missed += verdict not in ("", "ok")
        print(f"{question:18}{way:14}{ours:8.1f} of {theirs:8.1f} instructions, cost {our_cost:8.1f} of {their_cost:8.1f}"
              f"  ratio {ratio:5.2f}" + (f", at most {most}  {verdict}" if most else ""))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
