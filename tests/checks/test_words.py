"""References that mean nothing to a reader of this tree."""

import re

import pytest

import tree

# Put together from pieces, so that this file passes its own check.
PATTERNS = {
    "path of one machine": "/(" + "|".join(("work", "farm")) + ")/",
    "folder outside the tree": r"\b" + "shared" + "/",
    "chapter of another text": "Parts?" + r" [1-7]\.[0-9]",
}


def offences(text):
    return [what for what, pattern in PATTERNS.items() if re.search(pattern, text)]


@pytest.mark.parametrize("what", PATTERNS)
def test_tree_is_free_of(what):
    found = []
    for name in tree.tracked_files():
        path = tree.ROOT / name
        if not path.is_file():
            continue
        for number, line in enumerate(path.read_bytes().decode("utf-8", "replace").splitlines(), 1):
            if re.search(PATTERNS[what], line):
                found.append(f"{name}:{number}: {line.strip()[:100]}")
        if re.search(PATTERNS[what], name):
            found.append(name)
    assert not found


def test_the_patterns_see_what_they_are_for():
    assert offences("cd /" + "work/main") == ["path of one machine"]
    assert offences("see " + "shared" + "/page.md") == ["folder outside the tree"]
    assert offences("see Part" + " 2.1") == offences("Parts" + " 3.4 and 5") == ["chapter of another text"]
    assert offences("a shared record, part 9.1 of it, /workspace, framework/") == []
