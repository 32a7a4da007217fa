"""What the checks share: where things are, and how to run a tool."""

import os
import pathlib
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")
LIBRARY = BUILD / "lib/libutils_ozu.so.0"
PUBLIC_FOLDERS = ("include", "platform/include")


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}"
    return done.stdout


def public_headers():
    """(folder, header as it is included), for every header other programs may include."""
    return [(folder, str(path.relative_to(ROOT / folder)))
            for folder in PUBLIC_FOLDERS for path in sorted((ROOT / folder).rglob("*.h"))]


def tracked_files():
    """The files of the tree, as paths from its root."""
    if (ROOT / ".git").exists():
        return run("git", "-C", ROOT, "ls-files", "--cached", "--others", "--exclude-standard").splitlines()
    return [str(path.relative_to(ROOT)) for path in ROOT.rglob("*")
            if path.is_file() and path.relative_to(ROOT).parts[0] != "build"]


@pytest.fixture(scope="session")
def library():
    """The shared library as it was built."""
    if "OZU_TEST_BUILD" not in os.environ and not (ROOT / "platform/reference/CMakeLists.txt").exists():
        pytest.skip("the library is not linked without a platform")
    assert LIBRARY.exists(), "build the target utils_ozu first"
    return LIBRARY
