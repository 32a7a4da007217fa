"""The panel's codes keep their names and values for good: the public enumerations = the list in tests/abi/codes.txt."""

import re

import pytest

import tree

RECORD = tree.ROOT / "tests/abi/codes.txt"
COMPILERS = {"c": ("gcc", "-std=c11"), "c++": ("g++", "-std=c++20")}


def recorded():
    rows = [line.split() for line in RECORD.read_text().splitlines() if line and not line.startswith("#")]
    assert all(len(row) == 2 for row in rows)
    return rows


def declared():
    """Every enumerator of a public header, in order."""
    names = []
    for folder, header in tree.public_headers():
        text = re.sub(r"/\*.*?\*/", "", (tree.ROOT / folder / header).read_text(), flags=re.S)
        for body in re.findall(r"\benum\s+\w*\s*\{(.*?)\}", text, re.S):
            names += re.findall(r"(\w+)\s*(?:=[^,]*)?(?:,|$)", body.strip())
    return names


def test_every_enumerator_is_recorded_and_none_is_gone():
    names = declared()
    assert len(names) > 100 and len(names) == len(set(names))
    assert sorted(names) == sorted(name for name, _ in recorded())


@pytest.mark.parametrize("language", COMPILERS)
def test_every_value_is_the_recorded_one(language):
    program, standard = COMPILERS[language]
    folders = [f"-I{tree.ROOT / folder}" for folder in tree.PUBLIC_FOLDERS]
    lines = [f"#include <{header}>" for _, header in tree.public_headers()]
    word = "_Static_assert" if language == "c" else "static_assert"
    lines += [f'{word}({name} == {value}, "{name} has changed");' for name, value in recorded()]
    tree.run(program, "-x", language, standard, *folders, "-fsyntax-only", "-", input="\n".join(lines) + "\n")


def test_enumerators_have_a_prefix_of_ours():
    """A caller's program has names of its own; the two fixed enumerations of security_ozu.h keep theirs."""
    ours = ("OZU_", "OZULOG_", "PANEL_", "SYSTEM_EVENT_", "MESSENGER_", "SEC_", "PARTITION_", "MAX_SEC_CMD",
            "MAX_PARTITION_ID")
    assert [name for name in declared() if not name.startswith(ours)] == []
