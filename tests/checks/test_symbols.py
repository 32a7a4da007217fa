"""The exported names: declared in the headers = in the map = in the list = in the shared object = in the manual."""

import importlib.util
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


def script():
    path = tree.ROOT / "scripts/exported_names.py"
    loaded = importlib.util.spec_from_file_location("exported_names", path)
    module = importlib.util.module_from_spec(loaded)
    loaded.loader.exec_module(module)
    return module


def test_everything_written_from_the_headers_is_up_to_date():
    stale = [path for path, text in script().outputs().items() if (tree.ROOT / path).read_text() != text]
    assert stale == [], "run scripts/exported_names.py"


def test_the_script_reads_headers_as_the_preprocessor_does():
    """It does without a compiler; this holds it against one."""
    names = [name for family in script().library_families().values() for name in family]
    assert sorted(names) == sorted(declared())


def test_a_new_name_goes_into_the_last_node_and_below_its_heading():
    names = script()
    old = "OZU_0 {\n  global:\n    /* a */\n    one;\n  local:\n    *;\n};\nOZU_1 {\n  global:\n} OZU_0;\n"
    new = names.written_map(old, {"a": ["one", "two"], "b": ["three"]})
    assert new == old.replace("OZU_1 {\n  global:\n", "OZU_1 {\n  global:\n    /* a */\n    two;\n    /* b */\n    three;\n")
    page = "*utils_ozu/a\\_b.h* - things\n\told\n\n# NEXT\n"
    assert names.written_page(page, {"a_b": ["x_y"]}, "utils_ozu/") == page.replace("\told\n", "\tx\\_y\n")
    with pytest.raises(SystemExit):
        names.written_page(page, {"c": ["z"]}, "utils_ozu/")


def test_platform_exports_what_its_headers_declare(library):  # noqa: F811
    platform = library.parent / "libozu_platform.so.0"
    if not platform.exists():
        pytest.skip("this build has another platform")
    names = {line.split()[-1] for line in tree.run("nm", "-D", "--defined-only", platform).splitlines()}
    declared_names = [name for family in script().platform_families().values() for name in family]
    assert len(declared_names) > 15 and names == set(declared_names)
