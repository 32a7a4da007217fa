"""Which changes the mutation run makes, and that it makes the same ones again."""

import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts"))

import mutants  # noqa: E402


@pytest.mark.parametrize(
    "line, expected",
    [
        ("    if (length < 4) {", {"length <= 4", "length < 5", "!(length < 4)"}),
        ("    const int next = first + 0x10;", {"first - 0x10", "first + 17"}),
        ("    return a == b && !done;", {"a != b", "b || !done", "&& done"}),
        ("    ++count;", {"--count"}),
        ("    bool found = false;", {"found = true"}),
        ("    close(fd);", {"    ;"}),
    ],
)
def test_one_place_is_changed_at_a_time(line, expected):
    made = [line[:column] + new + line[column + len(old):] for column, old, new in mutants.changes(line)]
    assert len(made) == len(expected)
    assert all(any(part in one for one in made) for part in expected), made


@pytest.mark.parametrize(
    "line",
    ["#if 1 < 2", "// a < 4", "std::vector<int> list;", "char *text = nullptr;", "static_assert(kSize == 4);",
     "    return first;", "    auto &&all = list;"],
)
def test_what_is_no_code_is_left_alone(line):
    assert list(mutants.changes(line)) == []


def test_texts_are_left_alone():
    assert [old for _, old, _ in mutants.changes('    return say("1 < 2", 7);')] == ["7"]


def test_same_seed_same_mutants():
    runs = [subprocess.run([ROOT / "scripts/mutants.py", "--list", "--module", "devices", "--seed", seed], check=True,
                           capture_output=True, text=True).stdout for seed in ("1", "1", "2")]
    assert runs[0] == runs[1] != runs[2]
    assert sorted(runs[0].splitlines()) == sorted(runs[2].splitlines())


def test_what_is_explained_is_there():
    """A line that has changed needs its explanation again."""
    made = set()
    for source in mutants.sources(None):
        lines = (ROOT / source).read_text().splitlines()
        made |= {(source, mutants.code_of(lines, one.line), one.old, one.new) for one in mutants.mutants_of(source)}
    assert mutants.equivalent() and mutants.equivalent() - made == set()
