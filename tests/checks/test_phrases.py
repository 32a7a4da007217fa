"""The phrases that readers stumbled over stay out of texts, headers, comments and help."""

import re

import tree

LIST = "tests/checks/odd_phrases.txt"
NOT_OURS = ("tests/fuzz/corpus/", "tests/abi/", "tests/checks/test_phrases.py", LIST)
TEXT = (".md", ".h", ".c", ".cpp", ".py", ".sh", ".txt", ".cmake", ".in", ".scd", ".json", "")


def phrases():
    """(compiled, what to write); a space in a phrase is any white space, so that it may be broken over two lines."""
    rows = [line.split("=>") for line in (tree.ROOT / LIST).read_text().splitlines() if line and line[0] != "#"]
    return [(re.compile(pattern.strip().replace(" ", r"\s+"), re.I), better.strip()) for pattern, better in rows]


def texts():
    for name in tree.tracked_files():
        path = tree.ROOT / name
        if path.suffix in TEXT and path.is_file() and not path.is_symlink() and not name.startswith(NOT_OURS):
            yield name, path.read_bytes().decode("utf-8", "replace")


def joined(text):
    """A text without what begins the lines of comments: a phrase may go on in the next line."""
    return re.sub(r"\n[ \t]*(?:\*|//|#)?[ \t]*", "\n", text)


def offences(text, rows):
    """(line number, what was found, what to write)"""
    text = joined(text)
    for pattern, better in rows:
        for found in pattern.finditer(text):
            yield text.count("\n", 0, found.start()) + 1, " ".join(found[0].split()), better


def test_no_odd_phrase():
    rows = phrases()
    # Most texts have none: one look for all phrases at once spares them the others.
    any_of_them = re.compile("|".join(f"(?:{pattern.pattern})" for pattern, _ in rows), re.I)
    found = [f"{name}:{line}: {words!r}: {better}" for name, text in texts() if any_of_them.search(joined(text))
             for line, words, better in offences(text, rows)]
    assert not found, "\n".join(found)


def test_the_list_is_one():
    assert len(phrases()) >= 60
    for pattern, better in phrases():
        assert better and not pattern.search(better.split("...")[0]), pattern.pattern


def test_a_phrase_is_seen_over_a_line_break():
    rows = [(re.compile(r"\bmind\s+the\s+order\b", re.I), "note the order")]
    assert list(offences("/*\n * Please mind\n * the order.\n */\n", rows)) == [(2, "mind the order", "note the order")]
    assert list(offences("to mind the other\n", rows)) == []
