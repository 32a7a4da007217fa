"""The benchmarks work and make every comparison that the performance page shows. What is counted is compared with its
targets; times are shown, not held: on a busy machine they say little."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/bench")
FAMILIES = {"text", "names", "state", "process", "network", "files"}


def comparisons(text):
    """Family, what, unit and peer of each row of a table, whatever the size of the files."""
    text = re.sub(r"\d+ MiB", "MiB", text)
    rows = [[cell.strip() for cell in line.strip("| \n").split("|")] for line in text.splitlines() if line.startswith("| ")]
    return sorted((row[0], row[1], row[2], row[4]) for row in rows if row[0] in FAMILIES)


@pytest.fixture(scope="module")
def report():
    done = subprocess.run([ROOT / "bench/report.py", "--build", BUILD, "--size", "8"], capture_output=True, text=True)
    # 1: a target was missed in this run, which is no failure, or the report broke off, which leaves nothing to read.
    assert done.returncode in (0, 1) and done.stdout, done.stderr
    return done.stdout


def test_every_family_is_measured(report, capsys):
    with capsys.disabled():
        print(f"\n{report}")
    assert {family for family, *_ in comparisons(report)} == FAMILIES


def test_the_performance_page_shows_these_comparisons(report):
    page = (ROOT / "docs/performance.md").read_text()
    assert comparisons(page) == comparisons(report)


def test_every_ratio_is_a_number_above_zero(report):
    ratios = re.findall(rf"^\| (?:{'|'.join(FAMILIES)}) \|.*\| ([\d.]+) \| [\d.]* ?\| \w* ?\|$", report, re.MULTILINE)
    assert len(ratios) == len(comparisons(report))
    assert all(float(ratio) > 0 for ratio in ratios)


@pytest.mark.parametrize(("script", "least"), [("lookups_count.py", 15), ("text_count.py", 9)])
def test_what_is_counted_costs_no_more_than_its_peers(script, least):
    done = subprocess.run(["/usr/bin/python3", ROOT / "bench" / script, BUILD / "bin"], capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr
    assert done.stdout.count("  ok\n") >= least
