"""Counts what the name look-ups cost with callgrind and compares ours with its peers.

usage: names_count.py FOLDER_OF_PROGRAMS

Prints instructions and mispredicted branches for each look-up, the loop around it taken off. The cost is callgrind's
usual estimate, instructions plus ten for each mispredicted branch; unlike time it is the same in every run. The exit
status is 1 when a target is missed: ours costs at most as much as the switch and as gperf, and at most a tenth
of the scan. All ways must give the same names.
"""

import pathlib
import re
import subprocess
import sys

STEPS = 4096
LIMITS = {"switch": 1.0, "gperf": 1.0, "scan": 0.1}
# A perfect hash does not ask for the product as seldom as the scan does; it is shown, no more.
NO_LIMIT = {("device_type_code", "gperf")}


def limit(question, way):
    """What ours may cost of that way to answer the question; None where it is shown, no more."""
    return None if (question, way) in NO_LIMIT else LIMITS.get(way)


def run(program, question, way):
    """(instructions, mispredicted branches) for one look-up, and what it found."""
    done = subprocess.run(["valgrind", "--tool=callgrind", "--branch-sim=yes", "--callgrind-out-file=/dev/null",
                           program, question, way], capture_output=True, text=True, check=True)
    events = re.search(r"Events +: (.+)", done.stderr).group(1).split()
    totals = dict(zip(events, map(int, re.search(r"Collected : (.+)", done.stderr).group(1).split())))
    return (totals["Ir"] / STEPS, (totals["Bcm"] + totals["Bim"]) / STEPS), done.stdout


def main(folder):
    program = pathlib.Path(folder) / "names_count"
    listed = [line.split() for line in subprocess.check_output([program], text=True).splitlines()]
    questions = list(dict.fromkeys(question for question, _ in listed))
    missed = 0
    for question in questions:
        counts, answers = {}, {}
        for way in [w for q, w in listed if q == question]:
            counts[way], answers[way] = run(program, question, way)
        loop = counts.pop("loop")
        cost = {}
        for way, (instructions, mispredicted) in counts.items():
            counts[way] = (instructions - loop[0], max(mispredicted - loop[1], 0.0))
            cost[way] = counts[way][0] + 10 * counts[way][1]
        for way in counts:
            most = limit(question, way)
            ratio = cost["ours"] / cost[way]
            same = answers[way] == answers["ours"]
            verdict = "" if most is None else "ok" if same and ratio <= most else "MISSED" if same else "DIFFERENT"
            missed += verdict not in ("", "ok")
            print(f"{question:18}{way:7}{counts[way][0]:8.1f} instructions {counts[way][1]:6.2f} mispredicted "
                  f"{cost[way]:8.1f} cost" + (f"  ratio {ratio:5.2f}, at most {most}  {verdict}" if most else ""))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1]))
