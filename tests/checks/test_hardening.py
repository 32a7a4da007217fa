"""Every program and library that is built or installed: hardened, and looking for its libraries nowhere by accident."""

import os
import re
import subprocess

import pytest

import tree
from tree import library  # noqa: F401 (fixture)


def elf_files(folder):
    """Programs and shared objects below a folder, links left out."""
    found = []
    for path in sorted(folder.rglob("*")):
        if path.is_symlink() or not path.is_file() or "CMakeFiles" in path.parts:
            continue
        with path.open("rb") as file:
            head = file.read(18)
        if head[:4] == b"\x7fELF" and head[16] in (2, 3):  # EXEC, DYN
            found.append(path)
    return found


def weaknesses(path, installed=False):
    """What an attacker could use, in words."""
    segments = tree.run("readelf", "-lW", path)
    dynamic = tree.run("readelf", "-dW", path)
    found = []
    fixed = re.search(r"Elf file type is EXEC", segments)  # linked statically, it has no interpreter
    if fixed or ("INTERP" in segments and not re.search(r"\(FLAGS_1\).*\bPIE\b", dynamic)):
        found.append("not position-independent")
    if "GNU_RELRO" not in segments:
        found.append("no RELRO")
    if "BIND_NOW" not in dynamic and not re.search(r"\(FLAGS_1\).*\bNOW\b", dynamic):
        found.append("binds lazily")
    stack = re.search(r"GNU_STACK.*", segments)
    if not stack or "E" in stack.group(0).split()[6]:
        found.append("executable stack")
    if re.search(r"LOAD.* RWE ", segments):
        found.append("memory that is writable and executable")
    if "TEXTREL" in dynamic:
        found.append("relocations in code")
    if "(RPATH)" in dynamic:
        found.append("RPATH, which outranks the environment")
    for paths in re.findall(r"\(RUNPATH\).*\[(.*)\]", dynamic):
        for entry in paths.split(":"):
            if not entry.startswith(("$ORIGIN",) if installed else ("/", "$ORIGIN")):
                found.append(f"looks for libraries in '{entry}'")
    return found


def all_weaknesses(folder, installed=False):
    files = elf_files(folder)
    assert files, f"nothing is built in {folder}"
    return {str(path.relative_to(folder)): found for path in files if (found := weaknesses(path, installed))}


def is_sanitized():
    settings = (tree.BUILD / "CMakeCache.txt").read_text()
    return re.search(r"^OZU_SANITIZE:STRING=.+$", settings, re.M) is not None


def test_everything_built_is_hardened(library):  # noqa: F811
    assert all_weaknesses(tree.BUILD) == {}


def test_everything_installed_is_hardened(library, tmp_path):  # noqa: F811
    environment = {**os.environ, "DESTDIR": str(tmp_path)}
    parts = {"tools": "bin/ozuctl", "testkit": "lib/libozu_fake_platform.so"}  # of which each build may be without
    for component in ("runtime", "platform", "tools", "testkit"):
        if component in parts and not (tree.BUILD / parts[component]).exists():
            continue
        done = subprocess.run(["cmake", "--install", tree.BUILD, "--component", component], env=environment,
                              capture_output=True, text=True)
        assert done.returncode == 0, done.stderr
    assert {path.name for path in elf_files(tmp_path)} >= {"libutils_ozu.so.0"}
    assert all_weaknesses(tmp_path, installed=True) == {}


@pytest.mark.parametrize("name", ["lib/libutils_ozu.so.0", "lib/libozu_platform.so.0", "bin/ozuctl"])
def test_stacks_and_buffers_are_guarded(library, name):  # noqa: F811
    path = tree.BUILD / name
    if is_sanitized():
        pytest.skip("a sanitizer watches instead")
    if not path.exists():
        pytest.skip(f"{name} is no part of this build")
    wanted = tree.run("nm", "-D", "--undefined-only", path)
    assert "__stack_chk_fail" in wanted
    assert re.search(r"\b__\w+_chk\b", wanted.replace("__stack_chk_fail", ""))


BAD = [
    ("binds lazily", ["-Wl,-z,lazy"]),
    ("executable stack", ["-Wl,-z,execstack"]),
    ("not position-independent", ["-no-pie"]),
    ("not position-independent", ["-no-pie", "-static"]),
    ("no RELRO", ["-Wl,-z,norelro"]),
    ("looks for libraries in ''", ["-Wl,-rpath,/usr/lib:"]),
    ("looks for libraries in 'lib'", ["-Wl,-rpath,lib"]),
    ("RPATH, which outranks the environment", ["-Wl,-rpath,/usr/lib", "-Wl,--disable-new-dtags"]),
]


@pytest.mark.parametrize("weakness, options", BAD)
def test_a_weak_program_is_seen(weakness, options, tmp_path):
    good = ["-fPIE", "-pie", "-Wl,-z,relro", "-Wl,-z,now", "-Wl,--enable-new-dtags"]
    tree.run("gcc", "-x", "c", "-", *good, *options, "-o", tmp_path / "program", input="int main(void) { return 0; }\n")
    assert weakness in weaknesses(tmp_path / "program")
