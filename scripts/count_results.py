"""Adds up the JUnit files of a folder; names what failed or was skipped; prints the closing count.

usage: count_results.py FOLDER [STAGE...]   (stages that ended with an error)
"""

import pathlib
import sys
import xml.etree.ElementTree as ElementTree


def cases(folder):
    for path in sorted(pathlib.Path(folder).rglob("*.xml")):
        stage = path.stem
        for case in ElementTree.parse(path).getroot().iter("testcase"):
            yield stage, case


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


def main():
    folder, broken = sys.argv[1], sys.argv[2:]
    counts = {"passed": 0, "failed": 0, "skipped": 0}
    failed_stages = set()
    for stage, case in cases(folder):
        outcome = verdict(case)
        counts[outcome] += 1
        if outcome == "failed":
            failed_stages.add(stage)
            print(f"FAILED  {stage}: {name(case)}")
        elif outcome == "skipped":
            print(f"skipped {stage}: {name(case)} ({reason(case)})")
    for stage in broken:
        # A stage that ended badly without one failed test counts as a failure of its own.
        if not any(failed.startswith(stage) for failed in failed_stages):
            counts["failed"] += 1
            print(f"FAILED  stage {stage} ended with an error")
    skipped = f', {counts["skipped"]} skipped' if counts["skipped"] else ""
    print(f'{counts["passed"]} passed, {counts["failed"]} failed{skipped}')
    return 0 if counts["failed"] == 0 and counts["passed"] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
