#!/usr/bin/python3
"""Holds a coverage measurement of src/ against its limits and against the list of what is not covered.

usage: coverage.py [--junit FILE] [--list] BUILD

BUILD is a build folder made with OZU_COVERAGE whose tests have run. Every line that no test reached, and every line with
a branch that no test took, must be listed in tests/coverage/uncovered.txt with the reason; an entry that is covered or
gone fails, too. --list prints what is not listed in the form of the list.

Left out are branches that the compiler made for exceptions, which the library is built without, and those it finds
unreachable itself.
"""

import argparse
import collections
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
LISTED = ROOT / "tests/coverage/uncovered.txt"
LINES, BRANCHES = 98.0, 90.0
SHOWN = 60


def measure(build):
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "coverage.json"
        command = ["gcovr", "--root", ROOT, "--filter", f"{ROOT}/src/", "--exclude-throw-branches",
                   "--exclude-unreachable-branches", "-j", str(os.cpu_count()), "--json", path, build]
        done = subprocess.run([str(part) for part in command], capture_output=True, text=True, cwd=ROOT)
        if done.returncode != 0:
            sys.exit(f"gcovr: {done.stderr}")
        return json.loads(path.read_text())["files"]


def read_list():
    """How often each (kind, file, text of the line) is listed."""
    rows = collections.Counter()
    for number, line in enumerate(LISTED.read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        match = re.fullmatch(r"(line|branch) \| (\S+) \| (.*\S) +\| +(\S.*)", line)
        if not match:
            sys.exit(f"{LISTED.relative_to(ROOT)}:{number}: not KIND | FILE | LINE | REASON")
        rows[match.groups()[:3]] += 1
    return rows


def evaluate(files):
    """Counts by module; what was not reached: {(kind, file, text): line numbers}."""
    modules, missed = {}, {}
    for entry in files:
        name = entry["file"]
        source = (ROOT / name).read_text().splitlines()
        row = modules.setdefault(name.split("/")[1], [0, 0, 0, 0])
        for line in entry["lines"]:
            if line.get("gcovr/noncode"):
                continue
            taken = sum(branch["count"] > 0 for branch in line["branches"])
            row[0] += 1
            row[1] += line["count"] > 0
            row[2] += len(line["branches"])
            row[3] += taken
            kind = "line" if line["count"] == 0 else "branch" if taken < len(line["branches"]) else None
            if kind:
                text = source[line["line_number"] - 1].strip()
                missed.setdefault((kind, name, text), []).append(line["line_number"])
    return modules, missed


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def write_junit(path, verdicts):
    failures = sum(bool(message) for _, message in verdicts)
    suite = ElementTree.Element("testsuite", name="coverage", tests=str(len(verdicts)), failures=str(failures))
    for name, message in verdicts:
        case = ElementTree.SubElement(suite, "testcase", classname="coverage", name=name)
        if message:
            ElementTree.SubElement(case, "failure", message=message.splitlines()[0]).text = message
    ElementTree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--junit")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("build")
    options = parser.parse_args()
    if not any(pathlib.Path(options.build).rglob("*.gcda")):
        sys.exit(f"coverage.py: no test has run in {options.build}; run ./test coverage")
    modules, missed = evaluate(measure(pathlib.Path(options.build).resolve()))
    total = [sum(column) for column in zip(*modules.values())]
    print(f"{'module':<10}{'lines':>8}{'covered':>9}{'branches':>10}{'covered':>9}")
    for module, row in [*sorted(modules.items()), ("all", total)]:
        print(f"{module:<10}{row[0]:>8}{percent(row[1], row[0]):>8.1f}%{row[2]:>10}{percent(row[3], row[2]):>8.1f}%")
    lines, branches = percent(total[1], total[0]), percent(total[3], total[2])

    listed = read_list()
    unlisted = [(entry, number) for entry, numbers in sorted(missed.items()) for number in numbers[listed[entry]:]]
    stale = sorted((listed - collections.Counter({entry: len(numbers) for entry, numbers in missed.items()})).elements())
    shown = unlisted if options.list else unlisted[:SHOWN]
    for (kind, name, text), number in shown:
        print(f"{kind} | {name} | {text} | " if options.list else f"{kind} not covered and not listed: {name}:{number}: {text}")
    if len(shown) < len(unlisted):
        print(f"... and {len(unlisted) - len(shown)} more (--list prints all)")
    for kind, name, text in stale:
        print(f"{kind} listed, but covered or gone: {name}: {text}")
    verdicts = [
        ("lines", "" if lines >= LINES else f"{lines:.1f} % of lines, {LINES} wanted"),
        ("branches", "" if branches >= BRANCHES else f"{branches:.1f} % of branches, {BRANCHES} wanted"),
        ("list", f"{len(unlisted)} not listed, {len(stale)} entries stale" if unlisted or stale else ""),
    ]
    for _, message in verdicts:
        if message:
            print(message)
    if options.junit:
        write_junit(options.junit, verdicts)
    return 1 if any(message for _, message in verdicts) else 0


if __name__ == "__main__":
    sys.exit(main())
