#!/usr/bin/python3
"""Takes the outcomes of a ctest run apart, case by case: one JUnit file with every GoogleTest case.

usage: unit_results.py CTEST.xml OUTPUT.xml

CTEST.xml is what `ctest --output-junit` wrote: a line for each program, with all it printed. What GoogleTest prints is
read, not its own result file: tests that replace fopen() replace it for GoogleTest, too. A case that began and did
not end is a failed one; so is a program that failed without a failed case, ran no case at all, or was not run. What a
case prints as "digest of ...: ..." becomes a property of it.
"""

import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

from count_results import verdict

# A child process may have printed something in front.
BEGINS = re.compile(r"\[ RUN      \] (\S+)$", re.M)
DIGEST = re.compile(r"^(digest of .+): (\S+)$", re.M)
ENDS = r"\[ +(OK|FAILED|SKIPPED) +\] %s(?:,[^\n]*)? \((\d+) ms\)$"


def result(name, outcome, seconds, text):
    suite, _, title = name.partition(".")
    case = ElementTree.Element("testcase", classname=suite, name=title, time=f"{seconds:.3f}")
    if outcome == "FAILED":
        ElementTree.SubElement(case, "failure", message=f"{name} failed").text = text
    elif outcome == "SKIPPED":
        reasons = re.findall(r"Skipped\n(.*)", text)
        ElementTree.SubElement(case, "skipped", message=" ".join(reasons))
    digests = DIGEST.findall(text)
    if digests:
        properties = ElementTree.SubElement(case, "properties")
        for title, value in digests:
            ElementTree.SubElement(properties, "property", name=title, value=value)
    return case


def gtest_cases(output):
    """Every case that the program began."""
    begun = list(BEGINS.finditer(output))
    for number, begin in enumerate(begun):
        until = begun[number + 1].start() if number + 1 < len(begun) else len(output)
        text = output[begin.end():until]
        end = re.search(ENDS % re.escape(begin[1]), text, re.M)
        if end:
            yield result(begin[1], end[1], int(end[2]) / 1000, text[:end.start()])
        else:
            yield result(begin[1], "FAILED", 0, f"the program ended in this case\n{text}")


def cases_of(case):
    """The cases behind one line of ctest."""
    if case.get("status") == "notrun":
        return [result(f"{case.get('name')}.program", "FAILED", 0, "the program was not run: is it built?")]
    output = case.findtext("system-out") or ""
    if "[==========] " not in output:
        return [case]
    cases = list(gtest_cases(output))
    if verdict(case) == "failed" and not any(verdict(one) == "failed" for one in cases):
        cases.append(result(f"{case.get('name')}.program", "FAILED", 0, "the program failed, none of its cases did"))
    if not cases:
        cases.append(result(f"{case.get('name')}.program", "FAILED", 0, "no case was run"))
    return cases


def main(arguments):
    if len(arguments) != 2 or arguments[0].startswith("-"):
        print(__doc__.strip())
        return 0 if arguments[:1] == ["--help"] else 2
    run, output = arguments
    if not pathlib.Path(run).exists():
        print(f"unit_results.py: {run} does not exist; run ctest with --output-junit {run} first", file=sys.stderr)
        return 2
    suite = ElementTree.Element("testsuite", name="unit")
    for case in ElementTree.parse(run).getroot().iter("testcase"):
        suite.extend(cases_of(case))
    ElementTree.ElementTree(suite).write(output, encoding="utf-8", xml_declaration=True)
    return 1 if len(suite) == 0 or any(verdict(case) == "failed" for case in suite) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
