"""Scenarios from the command line; `ozuctl scenario` runs this."""

import argparse
import pathlib
import shutil
import sys
import xml.etree.ElementTree as ElementTree

import pytest

DONE, NO, USAGE, UNREACHABLE, FAILED = range(5)  # exit statuses of ozuctl


def run(options):
    from .build import obstacle
    missing = [file for file in options.files if not pathlib.Path(file).exists()]
    if missing:
        return refuse(USAGE, f"there is no file '{missing[0]}'")
    missing = [folder for folder in options.programs if not pathlib.Path(folder).is_dir()]
    if missing:
        return refuse(USAGE, f"there is no folder '{missing[0]}'")
    if options.shard:
        from .plugin import shard
        try:
            shard(options.shard)
        except ValueError:
            return refuse(USAGE, f"'{options.shard}' is no shard: I/N, for example 2/4 for the second of four")
    why = obstacle()
    if why:
        return refuse(UNREACHABLE, why)
    words = ["--ozu-features", "-q", "--tb=short", "--no-header", "-p", "no:cacheprovider", *options.files]
    words += ["-n", str(options.jobs)] if options.jobs > 1 else []
    words += ["--junit-xml", options.junit] if options.junit else []
    words += ["--ozu-keep"] if options.keep else []
    words += ["--ozu-shard", options.shard] if options.shard else []
    words += [f"--ozu-artefacts={options.artefacts}"]
    # One word each: pytest would look for its own settings in a folder that stands alone.
    words += [f"--ozu-programs={folder}" for folder in options.programs]
    if "pytest_ozu.plugin" not in entry_points():
        words += ["-p", "pytest_ozu.plugin"]
    status = pytest.main(words)
    if status == pytest.ExitCode.NO_TESTS_COLLECTED:
        # A shard may be empty when there are fewer scenarios than shards.
        return DONE if options.shard else refuse(NO, "no scenario in these files")
    return {0: DONE, 1: NO, 2: FAILED, 4: USAGE}.get(int(status), FAILED)


def entry_points():
    from importlib.metadata import entry_points as found
    return {point.name for point in found(group="pytest11")}


def steps(_):
    from .steps import STEPS, VALUES
    for kind in ("Given, When", "Then"):
        print(f"{kind}:")
        for _, words, what, _ in (step for step in STEPS if step[0] == kind):
            print(f"  {words}\n      {what}")
    print("\nA part in [brackets] may be left out. Values in {braces}:")
    for line in VALUES.values():
        print(f"  {line}")
    return DONE


def new(options):
    folder = pathlib.Path(options.folder)
    if folder.exists():
        return refuse(USAGE, f"'{folder}' is there already")
    shutil.copytree(pathlib.Path(__file__).resolve().with_name("template"), folder)
    print(f"{folder}: README.md says what to type")
    return DONE


def merge(options):
    """One JUnit file of several, as of one run."""
    suites = ElementTree.Element("testsuites")
    for file in options.files:
        try:
            suites.extend(ElementTree.parse(file).getroot().iter("testsuite"))
        except (OSError, ElementTree.ParseError) as error:
            return refuse(USAGE, f"cannot read '{file}': {getattr(error, 'strerror', None) or error}")
    ElementTree.ElementTree(suites).write(options.out, encoding="utf-8", xml_declaration=True)
    return DONE


def refuse(status, why):
    print(f"ozuctl: {why}", file=sys.stderr)
    return status


def main():
    parser = argparse.ArgumentParser(prog="ozuctl scenario")
    verbs = parser.add_subparsers(dest="verb", required=True)
    one = verbs.add_parser("run", help="run the scenarios of feature files")
    one.add_argument("files", metavar="FILE", nargs="+", help="feature files, or folders of them")
    one.add_argument("--junit", metavar="OUT", help="write the results as JUnit XML")
    one.add_argument("--jobs", metavar="N", type=int, default=1, help="how many panels run at a time (1)")
    one.add_argument("--keep", action="store_true", help="keep what scenarios that pass leave, too")
    one.add_argument("--shard", metavar="I/N", help="every N-th scenario only, beginning with the I-th")
    one.add_argument("--programs", metavar="DIR", action="append", default=[], help="folder of the processes under test; may be given again")
    one.add_argument("--artefacts", metavar="DIR", default="ozu-artefacts", help="folder for what failed scenarios leave (ozu-artefacts)")
    one.set_defaults(command=run)
    one = verbs.add_parser("steps", help="list the steps")
    one.set_defaults(command=steps)
    one = verbs.add_parser("new", help="make a folder with a process, its tests and scenarios to start from")
    one.add_argument("folder", metavar="DIR")
    one.set_defaults(command=new)
    one = verbs.add_parser("merge", help="make one JUnit file of several")
    one.add_argument("out", metavar="OUT")
    one.add_argument("files", metavar="FILE", nargs="+")
    one.set_defaults(command=merge)
    options = parser.parse_args()
    return options.command(options)


if __name__ == "__main__":
    sys.exit(main())
