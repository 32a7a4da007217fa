#!/usr/bin/python3
"""The binary interface of libutils_ozu and of the reference platform, compared with what was agreed.

usage: abi.py check [--junit FILE]    fails on any difference from tests/abi/*.abi
       abi.py update                  writes tests/abi/*.abi; commit that alone, with the reason (docs/abi.md)

Reads the libraries with debug information of build/dev (amd64) and build/armhf.
"""

import argparse
import pathlib
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
BASELINES = ROOT / "tests/abi"
BUILDS = {"amd64": ROOT / "build/dev", "armhf": ROOT / "build/armhf"}
LIBRARIES = ("utils_ozu", "ozu_platform")
HEADERS = ["--headers-dir", ROOT / "include", "--headers-dir", ROOT / "platform/include"]


def run(*command):
    return subprocess.run([str(part) for part in command], capture_output=True, text=True)


def describe(architecture, library, path):
    """Writes the interface of a library: names, arguments, layouts; nothing that depends on where it was built."""
    binary = BUILDS[architecture] / f"lib/lib{library}.so.0"
    if not binary.exists():
        sys.exit(f"abi.py: {binary.relative_to(ROOT)} is missing; run ./test abi, or build it first")
    if not shutil.which("abidw"):
        sys.exit("abi.py: abidw is missing; install abigail-tools")
    done = run("abidw", "--no-show-locs", "--no-corpus-path", "--no-comp-dir-path", "--no-elf-needed",
               "--drop-private-types", "--exported-interfaces-only", *HEADERS, "--out-file", path, binary)
    if done.returncode != 0:
        sys.exit(f"abidw {binary}: {done.stdout}{done.stderr}")


def differences(architecture, library, folder):
    baseline = BASELINES / f"{library}-{architecture}.abi"
    if not baseline.exists():
        return f"{baseline.relative_to(ROOT)} is missing; scripts/abi.py update makes it"
    current = folder / baseline.name
    describe(architecture, library, current)
    done = run("abidiff", "--no-show-locs", baseline, current)
    if done.returncode == 0:
        return ""
    return done.stdout + done.stderr or f"abidiff ended with {done.returncode}"


def check(junit):
    suite = ElementTree.Element("testsuite", name="abi")
    failed = 0
    with tempfile.TemporaryDirectory() as name:
        for architecture in BUILDS:
            for library in LIBRARIES:
                found = differences(architecture, library, pathlib.Path(name))
                print(f"{library} {architecture}: {'as agreed' if not found else 'DIFFERS'}")
                case = ElementTree.SubElement(suite, "testcase", classname="abi", name=f"{library}_{architecture}")
                if found:
                    failed += 1
                    print(found)
                    ElementTree.SubElement(case, "failure", message="differs from the baseline").text = found
    suite.set("tests", str(len(suite)))
    suite.set("failures", str(failed))
    if junit:
        ElementTree.ElementTree(suite).write(junit, encoding="utf-8", xml_declaration=True)
    return 1 if failed else 0


def update():
    for architecture in BUILDS:
        for library in LIBRARIES:
            path = BASELINES / f"{library}-{architecture}.abi"
            describe(architecture, library, path)
            path.write_text(path.read_text().replace(f"{ROOT}/", ""))
            print(path.relative_to(ROOT))
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("action", choices=("check", "update"))
    parser.add_argument("--junit")
    options = parser.parse_args()
    return update() if options.action == "update" else check(options.junit)


if __name__ == "__main__":
    sys.exit(main())
