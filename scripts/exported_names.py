#!/usr/bin/python3
"""The names that the library exports and the platform declares: the headers are the source, the rest is written from them.

usage: exported_names.py [--check]

Writes  src/utils_ozu.map               the last node, by family; what an earlier node has stays there
        tests/abi/exported_names.txt    the plain list that the binary interface is compared with
        docs/man/libutils_ozu.7.scd     the names below each header's heading
        docs/man/ozu-platform.7.scd     the same for the platform's headers

With --check it writes nothing and fails when one of them is out of date.
"""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]
MAP = "src/utils_ozu.map"
LIST = "tests/abi/exported_names.txt"
LIBRARY_PAGE = "docs/man/libutils_ozu.7.scd"
PLATFORM_PAGE = "docs/man/ozu-platform.7.scd"
WIDTH = 120


def code_of(path):
    """A header's text without comments, directives and bodies."""
    text = re.sub(r"/\*.*?\*/|//[^\n]*", "", path.read_text(), flags=re.S)
    text = re.sub(r"^[ \t]*#(?:.*\\\n)*.*$", "", text, flags=re.M).replace('extern "C" {', "")
    while True:
        shorter = re.sub(r"\{[^{}]*\}", ";", text)
        if shorter == text:
            return text
        text = shorter


def declared_name(declaration):
    """The function or constant that a declaration is about."""
    plain = re.sub(r"__attribute__\s*\(\(.*?\)\)", "", " ".join(declaration.split()))
    function = re.search(r"(\w+)\s*\(", plain)
    return function[1] if function else re.findall(r"\w+", plain)[-1]


def in_order(names):
    return sorted(names, key=lambda name: (name.lower(), name))


def library_families():
    """{header: names} of include/utils_ozu."""
    families = {}
    for path in sorted((ROOT / "include/utils_ozu").glob("*.h")):
        marked = re.findall(r"\bOZU_API\b([^;]*);", code_of(path))
        if marked:
            families[path.stem] = in_order(declared_name(text) for text in marked)
    return families


def platform_families():
    """{header: names} of platform/include."""
    families = {}
    for path in sorted((ROOT / "platform/include").glob("*.h")):
        code = re.sub(r"typedef[^;]*;", "", code_of(path))
        names = [declared_name(part) for part in code.split(";") if re.search(r"\w+\s*\([^*]", part)]
        if names:
            families[path.stem] = in_order(name for name in names if not name.startswith("OZUDB_ASSERT"))
    return {family: names for family, names in families.items() if names}


def arranged(families, text, heading):
    """The families in the order in which the text has them; new ones come last."""
    old = [family.replace("\\", "") for family in re.findall(heading, text)]
    return sorted(families, key=lambda family: (old.index(family) if family in old else len(old), family))


def written_map(old, families):
    *sealed, last = re.split(r"(?=^OZU_\d+ \{)", old, flags=re.M)
    there = set(re.findall(r"^\s+(\w+);", "".join(sealed), re.M))
    lines = []
    for family in arranged(families, old, r"/\* (\w+) \*/"):
        names = [name for name in families[family] if name not in there]
        lines += [f"    /* {family} */"] * bool(names) + [f"    {name};" for name in names]
    head, _, rest = last.partition("  global:\n")
    tail = rest[rest.index("  local:"):] if "  local:" in rest else rest[rest.index("}"):]
    return "".join(sealed) + head + "  global:\n" + "\n".join(lines) + "\n" + tail


def written_list(old, families):
    lines = ["# The names that libutils_ozu.so.0 exports, by family: written by scripts/exported_names.py."]
    for family in arranged(families, old, r"(?m)^# (\w+)$"):
        lines += [f"# {family}", *families[family]]
    return "\n".join(lines) + "\n"


def folded(names):
    """Names for a manual page: one paragraph of indented lines."""
    lines = [""]
    for name in names:
        word = name.replace("_", "\\_") + (", " if name != names[-1] else "")
        if lines[-1] and len(lines[-1]) + len(word) > WIDTH:
            lines.append("")
        lines[-1] += word
    return "".join(f"\t{line.rstrip()}\n" for line in lines)


def written_page(old, families, folder):
    """The page with the names below each heading; a header without a heading is an error that says so."""
    for family, names in families.items():
        heading = re.escape(f"*{folder}{family}.h*").replace("_", r"\\?_")
        pattern = rf"^({heading} - .*\n)(?:\t.*\n)*"
        found, count = re.subn(pattern, lambda match: match[1] + "\0", old, flags=re.M)
        if count != 1:
            sys.exit(f"exported_names.py: the manual page needs one heading '*{folder}{family}.h* - what it is about'")
        old = found.replace("\0", folded(names))
    return old


def outputs():
    """{path: text} of everything that is written."""
    texts = {path: (ROOT / path).read_text() for path in (MAP, LIST, LIBRARY_PAGE, PLATFORM_PAGE)}
    library = library_families()
    return {
        MAP: written_map(texts[MAP], library),
        LIST: written_list(texts[LIST], library),
        LIBRARY_PAGE: written_page(texts[LIBRARY_PAGE], library, "utils_ozu/"),
        PLATFORM_PAGE: written_page(texts[PLATFORM_PAGE], platform_families(), ""),
    }


def main():
    stale = [path for path, text in outputs().items() if (ROOT / path).read_text() != text]
    if sys.argv[1:] == ["--check"]:
        for path in stale:
            print(f"{path} is out of date; run scripts/exported_names.py", file=sys.stderr)
        return 1 if stale else 0
    if sys.argv[1:] == ["--help"]:
        print(__doc__.strip())
        return 0
    if sys.argv[1:]:
        sys.exit(__doc__)
    for path, text in outputs().items():
        (ROOT / path).write_text(text)
    print("\n".join(stale) or "nothing to change")
    return 0


if __name__ == "__main__":
    sys.exit(main())
