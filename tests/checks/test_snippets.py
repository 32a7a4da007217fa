"""Every code block of the documentation is cut from an example, so that it compiles and runs.

A block of C or C++ follows a comment that names the example and a region of it:

    <!-- examples/alarm_core.c start -->

and the example marks the region with the comments [start] and [end].
"""

import pathlib
import re
import textwrap

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGES = [ROOT / "README.md", *sorted((ROOT / "docs").rglob("*.md"))]
BLOCK = re.compile(r"(?:<!-- (\S+) (\S+) -->\n)?```(?:c|cpp|c\+\+)\n(.*?)```", re.DOTALL)


def region(source, name):
    found = re.search(rf"^[ \t]*(?:/\*|//) \[{name}\][^\n]*\n(.*?)^[ \t]*(?:/\*|//) \[end\]", source, re.DOTALL | re.MULTILINE)
    return textwrap.dedent(found.group(1)) if found else None


@pytest.mark.parametrize("page", PAGES, ids=lambda path: path.name)
def test_blocks_are_cut_from_examples(page):
    for example, name, block in BLOCK.findall(page.read_text()):
        assert example, f"this block does not say which example it is from:\n{block}"
        assert block == region((ROOT / example).read_text(), name), f"{example} [{name}] reads differently"


def test_there_are_snippets():
    assert len([block for page in PAGES for block in BLOCK.findall(page.read_text())]) >= 6
