"""The version stands in one file; everything that tells a version tells that one."""

import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")
VERSION = (ROOT / "VERSION").read_text().strip()
PACKAGED = VERSION.replace("-", "~")


def value(path, pattern):
    return re.search(pattern, (BUILD / path).read_text(), re.M)[1]


def test_everything_tells_the_same_version():
    numbers = re.fullmatch(r"(\d+\.\d+\.\d+)(-[a-z]+\d+)?", VERSION)[1]
    told = subprocess.run([BUILD / "bin/ozuctl", "--version"], capture_output=True, text=True, check=True).stdout
    assert told == f"ozuctl {VERSION}\n"
    for name in ("utils_ozu", "ozu_platform", "ozu_fake_platform"):
        assert value(f"package/{name}.pc", r"^Version: (.*)$") == PACKAGED, name
    assert value("package/ozuConfigVersion.cmake", r'^set\(PACKAGE_VERSION "(.*)"\)') == numbers
    assert value("CPackConfig.cmake", r'CPACK_PACKAGE_VERSION "(.*)"\)') == PACKAGED
    for manual in ("ozuctl.1", "libutils_ozu.7", "ozu-platform.7"):
        assert VERSION in value(f"man/{manual}", r"^(\.TH .*)$"), manual
    newest = re.search(r"^## (\S+) - \d{4}-\d\d-\d\d$", (ROOT / "CHANGELOG.md").read_text(), re.M)[1]
    assert newest == VERSION


def test_no_other_file_repeats_it():
    allowed = {"VERSION", "CHANGELOG.md"}
    files = subprocess.run(["git", "-C", ROOT, "grep", "-lF", VERSION], capture_output=True, text=True).stdout.split()
    assert [name for name in files if name not in allowed] == []
