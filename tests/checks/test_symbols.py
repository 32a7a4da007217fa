"""The exported names: declared in the headers = in the map = in the list = in the shared object."""

import re

import pytest

import tree
from tree import library  # noqa: F401 (fixture)

DATA = {"ARES_MAX_RETRY"}
VERSION = "OZU_0"
MARK = '__attribute__((visibility("default")))'


def declared():
    """Names behind the export mark, as the preprocessor leaves them."""
    folders = [f"-I{tree.ROOT / folder}" for folder in tree.PUBLIC_FOLDERS]
    includes = "".join(f"#include <{header}>\n" for folder, header in tree.public_headers() if folder == "include")
    text = tree.run("gcc", "-x", "c", "-std=c99", "-E", "-P", *folders, "-", input=includes)
    names = []
    for declaration in text.split(MARK)[1:]:
        declaration = declaration.split(";")[0]
        function = re.search(r"(\w+)\s*\(", re.sub(r"__attribute__\s*\(\(.*?\)\)", "", declaration))
        names.append(function.group(1) if function else re.findall(r"\w+", declaration)[-1])
    return names


def mapped():
    text = re.sub(r"/\*.*?\*/", "", (tree.ROOT / "src/utils_ozu.map").read_text(), flags=re.DOTALL)
    body = text.split("global:")[1].split("local:")[0]
    return [name.strip() for name in body.split(";") if name.strip()]


def listed():
    lines = (tree.ROOT / "tests/abi/exported_names.txt").read_text().splitlines()
    return [line for line in lines if line and not line.startswith("#")]


def exported(path):
    """{name: (type, version)} of what the shared object defines."""
    found = {}
    for line in tree.run("nm", "-D", "--defined-only", path).splitlines():
        kind, name = line.split()[-2:]
        name, _, version = name.partition("@@")
        found[name] = (kind, version)
    assert found.pop(VERSION, ("A", ""))[0] == "A"  # the version itself
    return found


@pytest.mark.parametrize("names", [declared, mapped, listed])
def test_no_name_stands_twice(names):
    found = names()
    assert len(found) > 20
    assert len(found) == len(set(found))


def test_map_has_what_the_headers_declare():
    assert set(mapped()) == set(declared())


def test_list_has_what_the_map_has():
    assert set(listed()) == set(mapped())


def test_library_exports_what_the_list_has(library):  # noqa: F811
    assert set(exported(library)) == set(listed())


def test_exports_are_code_and_have_the_version(library):  # noqa: F811
    wrong = {name: found for name, found in exported(library).items()
             if found != ("R" if name in DATA else "T", VERSION)}
    assert not wrong


def test_families_stand_in_the_same_order():
    """A family's names are under the same heading in the map and in the list."""
    def by_family(text, heading, strip):
        family, found = None, {}
        for line in text.splitlines():
            line = line.strip()
            if match := re.fullmatch(heading, line):
                family = match.group(1)
            elif family and (name := line.rstrip(strip)) and re.fullmatch(r"\w+", name):
                found.setdefault(family, set()).add(name)
        return found

    in_map = by_family((tree.ROOT / "src/utils_ozu.map").read_text().split("local:")[0], r"/\* (\w+) \*/", ";")
    in_list = by_family((tree.ROOT / "tests/abi/exported_names.txt").read_text(), r"# (\w+)", "")
    assert in_map == in_list
