"""Taking a ctest run apart loses no case and turns nothing green."""

import pathlib
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/unit_results.py"
HEAD = "[==========] Running 2 tests from 1 test suite.\n"
GOOD = "[ RUN      ] A.one\n[       OK ] A.one (12 ms)\n"


def take_apart(tmp_path, *programs):
    suite = ElementTree.Element("testsuite")
    for name, failed, output in programs:
        case = ElementTree.SubElement(suite, "testcase", name=name, classname=name)
        if failed:
            ElementTree.SubElement(case, "failure")
        ElementTree.SubElement(case, "system-out").text = output
    ElementTree.ElementTree(suite).write(tmp_path / "ctest.xml")
    run = subprocess.run([SCRIPT, tmp_path / "ctest.xml", tmp_path / "out.xml"], capture_output=True, text=True)
    cases = ElementTree.parse(tmp_path / "out.xml").getroot().findall("testcase")
    return run.returncode, {
        f'{case.get("classname")}.{case.get("name")}': case[0].tag if len(case) and case[0].tag != "system-out" else "passed"
        for case in cases
    }


def test_every_case_counts_for_itself(tmp_path):
    output = HEAD + GOOD + "[ RUN      ] P/A.two/0\na child's words[       OK ] P/A.two/0 (3 ms)\n"
    assert take_apart(tmp_path, ("a_test", False, output)) == (0, {"A.one": "passed", "P/A.two/0": "passed"})


def test_failed_case_keeps_its_words(tmp_path):
    output = HEAD + GOOD + "[ RUN      ] A.two\na.cpp:3: Failure\n[  FAILED  ] A.two (0 ms)\n"
    assert take_apart(tmp_path, ("a_test", True, output)) == (1, {"A.one": "passed", "A.two": "failure"})
    assert "a.cpp:3: Failure" in (tmp_path / "out.xml").read_text()


def test_parameter_behind_a_failed_case(tmp_path):
    output = HEAD + "[ RUN      ] P/A.two/0\n[  FAILED  ] P/A.two/0, where GetParam() = 7 (0 ms)\n"
    assert take_apart(tmp_path, ("a_test", True, output)) == (1, {"P/A.two/0": "failure"})


def test_skipped_case_keeps_its_reason(tmp_path):
    output = HEAD + "[ RUN      ] A.two\na.cpp:3: Skipped\nno such call\n\n[  SKIPPED ] A.two (0 ms)\n"
    assert take_apart(tmp_path, ("a_test", False, output)) == (0, {"A.two": "skipped"})
    assert 'message="no such call"' in (tmp_path / "out.xml").read_text()


def test_digests_become_properties(tmp_path):
    output = HEAD + GOOD + "[ RUN      ] A.two\n--3--\ndigest of two things: 17\n[       OK ] A.two (0 ms)\n"
    assert take_apart(tmp_path, ("a_test", False, output))[0] == 0
    rows = ElementTree.parse(tmp_path / "out.xml").getroot().findall("testcase[@name='two']/properties/property")
    assert [(row.get("name"), row.get("value")) for row in rows] == [("digest of two things", "17")]


@pytest.mark.parametrize("failed", [True, False])
def test_case_without_an_end_failed(tmp_path, failed):
    output = HEAD + GOOD + "[ RUN      ] A.two\n"
    assert take_apart(tmp_path, ("a_test", failed, output)) == (1, {"A.one": "passed", "A.two": "failure"})


def test_program_that_fails_after_its_cases(tmp_path):
    assert take_apart(tmp_path, ("a_test", True, HEAD + GOOD)) == (1, {"A.one": "passed", "a_test.program": "failure"})


def test_program_without_a_case_failed(tmp_path):
    output = "[==========] Running 0 tests from 0 test suites.\n[  PASSED  ] 0 tests.\n"
    assert take_apart(tmp_path, ("a_test", False, output)) == (1, {"a_test.program": "failure"})


def test_program_that_was_not_run_failed(tmp_path):
    (tmp_path / "ctest.xml").write_text('<testsuite><testcase name="a_test" status="notrun"><skipped/></testcase></testsuite>')
    run = subprocess.run([SCRIPT, tmp_path / "ctest.xml", tmp_path / "out.xml"], capture_output=True, text=True)
    assert run.returncode == 1 and "was not run" in (tmp_path / "out.xml").read_text()


@pytest.mark.parametrize("failed, outcome", [(True, "failure"), (False, "passed")])
def test_other_programs_are_one_case_each(tmp_path, failed, outcome):
    assert take_apart(tmp_path, ("c_api", failed, "text")) == (int(failed), {"c_api.c_api": outcome})


def test_run_without_a_program_fails(tmp_path):
    assert take_apart(tmp_path) == (1, {})


def test_no_run_is_said_plainly(tmp_path):
    run = subprocess.run([SCRIPT, tmp_path / "none.xml", tmp_path / "out.xml"], capture_output=True, text=True)
    assert run.returncode == 2 and run.stderr.startswith("unit_results.py: ") and "ctest" in run.stderr
