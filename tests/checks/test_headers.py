"""Every public header compiles alone, as C99 and as C++20, with gcc and with clang."""

import shutil
import subprocess

import pytest

import tree

COMPILERS = {
    "gcc-c99": ("gcc", "c", "-std=c99"),
    "clang-c99": ("clang", "c", "-std=c99"),
    "gcc-c++20": ("g++", "c++", "-std=c++20"),
    "clang-c++20": ("clang++", "c++", "-std=c++20"),
}
EACH = [pytest.param(name, marks=pytest.mark.clang if name.startswith("clang") else ()) for name in COMPILERS]
WARNINGS = ("-pedantic", "-Wall", "-Wextra", "-Wundef", "-Wconversion", "-Wsign-conversion", "-Wformat=2", "-Werror")
MORE_WARNINGS = {"gcc": ("-Wformat-signedness",), "g++": ("-Wformat-signedness",)}  # that clang lacks
HEADERS = tree.public_headers()


def compile_text(compiler, text):
    program, language, standard = COMPILERS[compiler]
    if not shutil.which(program):
        pytest.skip(f"{program} is not installed")
    folders = [f"-I{tree.ROOT / folder}" for folder in tree.PUBLIC_FOLDERS]
    warnings = (*WARNINGS, *MORE_WARNINGS.get(program, ()))
    done = subprocess.run([program, "-x", language, standard, *warnings, *folders, "-fsyntax-only", "-"],
                          input=text, capture_output=True, text=True)
    return done.stderr if done.returncode else ""


@pytest.mark.parametrize("compiler", EACH)
@pytest.mark.parametrize("header", [header for _, header in HEADERS])
def test_header_compiles_alone_and_twice(header, compiler):
    assert compile_text(compiler, f"#include <{header}>\n#include <{header}>\nextern int end;\n") == ""


@pytest.mark.parametrize("compiler", EACH)
def test_all_headers_compile_together(compiler):
    text = "".join(f"#include <{header}>\n" for _, header in reversed(HEADERS))
    assert compile_text(compiler, text + "extern int end;\n") == ""


BROKEN = {
    "unknown type": "size_t missing(void);\n",
    "narrowed number": "static inline char narrow(int wide) { return wide; }\n",
    "sign of a format": "#include <ozulog.h>\nvoid tell(unsigned number);\n"
                        "void tell(unsigned number) { ozulog_printf(10000, \"%d\", number); }\n",
}


@pytest.mark.parametrize("compiler", EACH)
@pytest.mark.parametrize("text", BROKEN.values(), ids=BROKEN)
def test_a_broken_header_is_seen(text, compiler):
    if text == BROKEN["sign of a format"] and "clang" in compiler:
        assert compile_text(compiler, text) == ""  # why gcc has to look, too
    else:
        assert compile_text(compiler, text) != ""


def test_utils_ozu_brings_in_every_family():
    text = (tree.ROOT / "include/utils_ozu.h").read_text()
    missing = [header for folder, header in HEADERS
               if header.startswith("utils_ozu/") and header != "utils_ozu/export.h" and f"<{header}>" not in text]
    assert not missing
