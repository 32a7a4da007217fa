"""Tables of names are data without pointers: nothing of them is relocated when a process loads the library."""

import re
import shutil

import pytest

import tree
from test_library import objects
from tree import library  # noqa: F811,F401 (fixture)

ROOMS = ("alarm", "devices")
# Sections that the loader, not the compiler, has to complete.
RELOCATED = re.compile(r"^\.(data\.rel|init_array|ctors)")
# A relocation that leaves a full address behind, in memory that is loaded.
ADDRESS = re.compile(r"R_\w+_(64|ABS32|32|RELATIVE)\b")


def sections(path):
    return re.findall(r"^\s*\[ *\d+\] (\S+)", tree.run("readelf", "-SW", path), re.MULTILINE)


def address_relocations(path):
    """Relocations of absolute addresses in sections that are loaded."""
    found, section = [], ""
    for line in tree.run("readelf", "-rW", path).splitlines():
        heading = re.match(r"Relocation section '\.rela?(\S+)'", line)
        if heading:
            section = heading.group(1)
        elif ADDRESS.search(line) and not section.startswith((".debug", ".eh_frame", ".ARM.exidx", ".note")):
            found.append(f"{section}: {line}")
    return found


def room_objects():
    return [path for path in objects() if path.parent.name in ROOMS]


def test_there_are_tables_to_look_at():
    names = {path.name for path in room_objects()}
    assert {"device_names.cpp.o", "tarn_names.cpp.o",
            "mobile_networks.cpp.o", "update_folders.cpp.o"} <= names


@pytest.mark.parametrize("path", room_objects(), ids=lambda path: path.name.removesuffix(".cpp.o"))
def test_object_needs_no_relocation(path):
    assert [name for name in sections(path) if RELOCATED.match(name)] == []
    assert address_relocations(path) == []


def test_library_relocates_nothing_of_ours(library):  # noqa: F811
    # What the compiler's start files bring: two functions and the handle of the object itself.
    relative = re.findall(r"R_\w+_RELATIVE", tree.run("readelf", "-rW", library))
    assert len(relative) <= 3
    theirs = "_DYNAMIC|_GLOBAL_OFFSET_TABLE_|__dso_handle|__TMC_END__|__do_global_dtors_aux_fini|__frame_dummy_init"
    assert not re.search(rf"^\w+ [dD] (?!{theirs})", tree.run("nm", library), re.MULTILINE)


@pytest.mark.skipif(shutil.which("cc") is None, reason="no C compiler")
def test_the_check_sees_a_table_of_pointers(tmp_path):
    source = tmp_path / "pointers.c"
    source.write_text('extern const char *const names[2]; const char *const names[2] = {"PIR", "MAG"};')
    tree.run("cc", "-fPIC", "-O2", "-c", source, "-o", tmp_path / "pointers.o")
    assert any(RELOCATED.match(name) for name in sections(tmp_path / "pointers.o"))
    assert address_relocations(tmp_path / "pointers.o")
