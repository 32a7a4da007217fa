"""Holds the who-may-use-whom table of docs/architecture.md.

base uses nothing of ours but the platform interfaces; a room uses base, itself, the platform interfaces and
public headers; the reference platform never includes anything of src/.
"""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
ROOMS = sorted(path.name for path in (ROOT / "src").iterdir() if path.is_dir())
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^">]+)[">]', re.MULTILINE)
SOURCES = (".h", ".c", ".cpp")


def includes(folder):
    for path in sorted(folder.rglob("*")):
        if path.suffix in SOURCES:
            for name in INCLUDE.findall(path.read_text()):
                yield path.relative_to(ROOT), name


def room_of(name):
    first = name.split("/")[0]
    return first if "/" in name and first in ROOMS else None


@pytest.mark.parametrize("room", ROOMS)
def test_room_uses_only_base_and_itself(room):
    wrong = [f"{path}: {name}" for path, name in includes(ROOT / "src" / room)
             if room_of(name) not in (None, "base", room) or ".." in name]
    assert not wrong


def test_base_uses_no_public_header():
    wrong = [f"{path}: {name}" for path, name in includes(ROOT / "src" / "base") if name.startswith("utils_ozu")]
    assert not wrong


def test_reference_platform_uses_nothing_of_the_library():
    wrong = [f"{path}: {name}" for path, name in includes(ROOT / "platform")
             if room_of(name) or name.startswith(("utils_ozu", "inc_ozu", "src/"))]
    assert not wrong


def test_platform_interfaces_use_only_themselves():
    own = {path.name for path in (ROOT / "platform" / "include").iterdir()}
    wrong = [f"{path}: {name}" for path, name in includes(ROOT / "platform" / "include")
             if name not in own | {"stddef.h", "stdint.h", "sys/types.h"}]
    assert not wrong


@pytest.mark.parametrize("folder", ["tools", "examples"])
def test_callers_use_nothing_of_the_librarys_inside(folder):
    wrong = [f"{path}: {name}" for path, name in includes(ROOT / folder) if room_of(name)]
    assert not wrong
