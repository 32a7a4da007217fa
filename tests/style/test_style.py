"""Format and findings, file by file: clang-format over every C and C++ file, clang-tidy over everything that ships.

clang-tidy takes the compile commands of one build (OZU_TEST_BUILD, default build/dev) and all processors.
"""

import concurrent.futures
import functools
import json
import os
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")
SUFFIXES = (".c", ".cpp", ".h", ".hpp")
SHIPPED = ("src/", "platform/", "tools/")


def tracked_files():
    if (ROOT / ".git").exists():
        command = ["git", "-C", str(ROOT), "ls-files", "--cached", "--others", "--exclude-standard"]
        names = subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()
    else:
        names = [str(path.relative_to(ROOT)) for path in ROOT.rglob("*")]
    return sorted(name for name in set(names)
                  if name.endswith(SUFFIXES) and not name.startswith("build/") and (ROOT / name).is_file())


@functools.cache
def compile_commands():
    """The build's compile commands, source by source: sources that are compiled as one each get its command."""
    commands = BUILD / "compile_commands.json"
    if not commands.exists():
        return []
    entries = []
    for entry in json.loads(commands.read_text()):
        text = pathlib.Path(entry["file"])
        sources = [entry["file"]]
        if text.parent.name == "Unity":
            sources = re.findall(r'^#include "(.+)"$', text.read_text(), re.MULTILINE)
        entries += [{**entry, "file": source, "command": entry["command"].replace(entry["file"], source)}
                    for source in sources]
    return entries


def compiled_files():
    """What ships and was compiled by this build."""
    files = {os.path.relpath(entry["file"], ROOT) for entry in compile_commands()}
    return sorted(name for name in files if name.startswith(SHIPPED))


@functools.cache
def commands_for_tidy():
    """A folder with the compile commands without gcc's precompiled headers, which clang cannot read."""
    folder = BUILD / "tidy"
    folder.mkdir(exist_ok=True)
    commands = json.dumps(compile_commands(), indent=1)
    (folder / "compile_commands.json").write_text(re.sub(r" -Winvalid-pch -include \S+/cmake_pch\.hxx", "", commands))
    return folder


def findings(name):
    done = subprocess.run(["clang-tidy", "--quiet", "-p", str(commands_for_tidy()), name], cwd=ROOT, capture_output=True, text=True)
    lines = [line for line in done.stdout.splitlines() if re.search(r": (error|warning): ", line)]
    if done.returncode and not lines:
        lines = [done.stdout + done.stderr]
    return "\n".join(line.replace(f"{ROOT}/", "") for line in lines)


@pytest.fixture(scope="session")
def tidied(request):
    """Findings by file, of all files that this run asks for."""
    wanted = [item.callspec.params["name"] for item in request.session.items
              if item.originalname == "test_tidy_has_no_findings"]
    if wanted:
        commands_for_tidy()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return dict(zip(wanted, pool.map(findings, wanted)))


def needs(program):
    if not shutil.which(program):
        pytest.skip(f"{program} is not installed")


@pytest.mark.parametrize("name", tracked_files())
def test_is_formatted(name):
    needs("clang-format")
    done = subprocess.run(["clang-format", "--dry-run", "--Werror", "--style=file", name], cwd=ROOT,
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


@pytest.mark.parametrize("name", compiled_files())
def test_tidy_has_no_findings(name, tidied):
    needs("clang-tidy")
    assert tidied[name] == ""


def test_there_was_something_to_tidy():
    needs("clang-tidy")
    assert len(compiled_files()) > 10, "build first: clang-tidy needs the compile commands"
