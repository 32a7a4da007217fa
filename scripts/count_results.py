#!/usr/bin/python3
"""Adds up the JUnit files of a folder; names what failed or was skipped; prints the closing count.

A stage's files are named after it: unit.xml, threads-log.xml. Fails when something failed, when a file holds no test, when a
stage left no file behind and when nothing passed.
"""

import argparse
import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def verdict(case):
    if case.find("failure") is not None or case.find("error") is not None:
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def name(case):
    return f'{case.get("classname", "")}.{case.get("name", "")}'.strip(".")


def reason(case):
    node = case.find("skipped")
    return (node.get("message") or "").strip() if node is not None else ""


def cases_of(path):
    try:
        return list(ElementTree.parse(path).getroot().iter("testcase"))
    except ElementTree.ParseError:
        return []


def belongs(file, stage):
    return file == stage or file.startswith(f"{stage}-")


def print_slowest(results):
    for file, cases in results.items():
        print(f"slowest of {file}:")
        for case in sorted(cases, key=lambda one: float(one.get("time") or 0), reverse=True)[:10]:
            print(f'{float(case.get("time") or 0):8.2f} s  {name(case)}')


def problems(results, ran, broken):
    """What is wrong beyond failed tests, a line each."""
    for file, cases in results.items():
        if not cases:
            yield f"{file}: no test was run"
    for stage in ran:
        if not any(belongs(file, stage) for file in results):
            yield f"stage {stage} left no results"
    failed = {file for file, cases in results.items() if any(verdict(case) == "failed" for case in cases)}
    for stage in broken:
        # A stage that ended badly without one failed test counts as a failure of its own.
        if not any(belongs(file, stage) for file in failed):
            yield f"stage {stage} ended with an error"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--ran", default="", metavar="STAGES", help="stages that must have left results")
    parser.add_argument("--broken", default="", metavar="STAGES", help="stages that ended with an error")
    parser.add_argument("--slow", action="store_true", help="the ten slowest tests of each file, too")
    parser.add_argument("folder", help="folder of the JUnit files, e.g. build/results")
    options = parser.parse_args()
    results = {path.stem: cases_of(path) for path in sorted(pathlib.Path(options.folder).rglob("*.xml"))}
    counts = collections.Counter()
    for file, cases in results.items():
        for case in cases:
            outcome = verdict(case)
            counts[outcome] += 1
            if outcome == "failed":
                print(f"FAILED  {file}: {name(case)}")
            elif outcome == "skipped":
                print(f"skipped {file}: {name(case)} ({reason(case)})")
    for problem in problems(results, options.ran.split(), options.broken.split()):
        counts["failed"] += 1
        print(f"FAILED  {problem}")
    if options.slow:
        print_slowest(results)
    skipped = f', {counts["skipped"]} skipped' if counts["skipped"] else ""
    print(f'{counts["passed"]} passed, {counts["failed"]} failed{skipped}')
    return 0 if counts["failed"] == 0 and counts["passed"] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
