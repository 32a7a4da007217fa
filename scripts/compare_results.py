#!/usr/bin/python3
"""Compares two runs of the same tests, by outcomes and digests of results; any difference that is not listed fails.

usage: compare_results.py [--allow FILE] [--junit FILE] NATIVE.xml... OTHER.xml

A run may have come in parts: every file but the last one is native.
Prints the differences as a unified diff of "name: outcome" lines. FILE of --allow holds "PATTERN | outcome |
reason" lines for tests that the other machine cannot run; each must match something. With --junit the verdict is
written as a test result of its own.
"""

import argparse
import collections
import difflib
import fnmatch
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

from count_results import name, verdict


def normalised(case):
    # The comment after a parameterised test's name shows the parameter, not which test it is.
    text = re.sub(r"\s+# GetParam\(\) = .*", "", case.get("name", ""), flags=re.S)
    # CTest repeats the name as the class name.
    return text if case.get("classname") == case.get("name") else name(case)


def digests(case):
    return [f'{row.get("name")}: {row.get("value")}' for row in case.iter("property") if row.get("name").startswith("digest of ")]


def outcomes(paths):
    """All outcomes of a run that may have come in several parts."""
    found = collections.OrderedDict()
    for path in paths:
        if not pathlib.Path(path).exists():
            sys.exit(f"{path} does not exist; run the tests first")
        cases = list(ElementTree.parse(path).getroot().iter("testcase"))
        if not cases:
            sys.exit(f"{path}: no test in it")
        for case in cases:
            key = normalised(case)
            if key in found:
                sys.exit(f"{path}: two tests are named {key}")
            found[key] = ", ".join([verdict(case), *digests(case)])
    return found


def allowances(path):
    rows = []
    for number, line in enumerate(pathlib.Path(path).read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        fields = [field.strip() for field in line.split("|")]
        if len(fields) != 3 or not all(fields) or fields[1] not in ("skipped", "missing"):
            sys.exit(f"{path}:{number}: not PATTERN | skipped or missing | reason")
        rows.append(fields)
    return rows


def apply(rows, native, other):
    """Takes the listed differences out of both sides; returns the patterns that matched nothing."""
    unused = []
    for pattern, outcome, reason in rows:
        hits = [key for key in native if fnmatch.fnmatchcase(key, pattern) and other.get(key, "missing") == outcome]
        hits = [key for key in hits if native[key] != outcome]
        if not hits:
            unused.append(pattern)
        for key in hits:
            print(f"listed: {key} is {outcome} there ({reason})")
            native.pop(key)
            other.pop(key, None)
    return unused


def lines(found):
    return [f"{key}: {outcome}" for key, outcome in sorted(found.items())]


def write_junit(path, differences):
    suite = ElementTree.Element("testsuite", name="compare", tests="1", failures=str(int(bool(differences))))
    case = ElementTree.SubElement(suite, "testcase", classname=pathlib.Path(path).stem, name="same_results_as_native")
    if differences:
        ElementTree.SubElement(case, "failure", message=f"{len(differences)} lines differ").text = "\n".join(differences)
    ElementTree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--allow")
    parser.add_argument("--junit")
    parser.add_argument("native", nargs="+")
    parser.add_argument("other")
    options = parser.parse_args()
    native, other = outcomes(options.native), outcomes([options.other])
    total = len(native)
    unused = apply(allowances(options.allow), native, other) if options.allow else []
    differences = [
        line
        for line in difflib.unified_diff(lines(native), lines(other), "native", "other", n=0, lineterm="")
        if not line.startswith("@@")
    ]
    differences += [f"the list has {pattern}, which differs nowhere" for pattern in unused]
    kept = sum("digest of " in outcome for outcome in native.values())
    print("\n".join(differences) or f"the same {total} outcomes, {kept} of them with digests of results")
    if options.junit:
        write_junit(options.junit, differences)
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
