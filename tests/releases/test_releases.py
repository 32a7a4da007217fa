"""The checkout in a bare root of each supported release: built with that release's compilers, tested, demonstrated.

A root is made once by mmdebstrap, from the packages that ./test and ./demo name, and kept in build/releases. The checkout
lies in a folder whose name has a space. OZU_RELEASES names the releases (all of them otherwise).
"""

import hashlib
import os
import pathlib
import re
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
KEPT = ROOT / "build/releases"
RELEASES = os.environ.get("OZU_RELEASES", "bookworm trixie").split()
MIRROR = os.environ.get("OZU_RELEASES_MIRROR", "http://deb.debian.org/debian")
LISTS = ("build", "box", "test")
CHECKOUT = "/check out"


def wanted_packages():
    lines = "\n".join((ROOT / f"packaging/apt/{name}.txt").read_text() for name in LISTS)
    return sorted(set(re.sub(r"#.*", "", lines).split()))


def missing_means():
    """Why no root can be entered here, or nothing."""
    for tool in ("mmdebstrap", "bwrap"):
        if not shutil.which(tool):
            return f"{tool} is not installed (packages of packaging/apt/arm.txt and box.txt)"
    done = subprocess.run(["bwrap", "--bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "true"], capture_output=True, text=True)
    return f"no root can be entered: {done.stderr.strip()}" if done.returncode != 0 else ""


def bare_root(release):
    """The folder of the release's root, made when there is none or when it was made from other packages."""
    packages = ",".join(["ca-certificates", *wanted_packages()])
    stamp = hashlib.sha256(packages.encode()).hexdigest()
    folder, mark = KEPT / release, KEPT / f"{release}.made-from"
    if folder.exists() and mark.exists() and mark.read_text() == stamp:
        return folder
    mark.unlink(missing_ok=True)
    shutil.rmtree(folder, ignore_errors=True)
    KEPT.mkdir(parents=True, exist_ok=True)
    mode = "root" if os.geteuid() == 0 else "unshare"
    done = subprocess.run(["mmdebstrap", f"--mode={mode}", "--variant=minbase", f"--include={packages}", release, str(folder), MIRROR],
                          capture_output=True, text=True)
    if done.returncode != 0:
        pytest.skip(f"no root of {release}: {done.stderr.strip().splitlines()[-1]}")
    mark.write_text(stamp)
    return folder


class Release:
    def __init__(self, name):
        self.folder = bare_root(name)
        self.checkout = KEPT / f"{name} check out"
        self.copy()

    def copy(self):
        """The files of the checkout as they are; what was built in an earlier run stays."""
        self.checkout.mkdir(exist_ok=True)
        listed = subprocess.run(["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                capture_output=True, check=True).stdout
        subprocess.run(["tar", "-C", str(ROOT), "--null", "--ignore-failed-read", "-T", "-", "-cf", KEPT / "checkout.tar"],
                       input=listed, check=True)
        for path in self.checkout.iterdir():
            if path.name != "build":
                shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
        subprocess.run(["tar", "-C", str(self.checkout), "-xf", KEPT / "checkout.tar"], check=True)

    def run(self, *command):
        (KEPT / "ccache").mkdir(exist_ok=True)
        done = subprocess.run(
            ["bwrap", "--bind", str(self.folder), "/", "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp", "--tmpfs", "/run",
             "--bind", str(self.checkout), CHECKOUT, "--bind", str(KEPT / "ccache"), "/ccache", "--setenv", "CCACHE_DIR", "/ccache",
             "--setenv", "HOME", "/root", "--setenv", "LC_ALL", "C.UTF-8", "--die-with-parent", "--chdir", CHECKOUT, *command],
            capture_output=True, text=True, errors="replace")
        return done.returncode, done.stdout + done.stderr


@pytest.fixture(scope="module", params=RELEASES)
def release(request):
    if why := missing_means():
        pytest.skip(why)
    return Release(request.param)


def check(release, *command):
    status, text = release.run(*command)
    assert status == 0, "\n".join(text.splitlines()[-40:])
    return text


def test_compilers_find_nothing_to_warn_of(release):
    """Library and platform with every gcc and clang that the root has; warnings are errors."""
    _, found = release.run("sh", "-c", "ls /usr/bin | grep -E '^(g\\+\\+|clang\\+\\+)(-[0-9]+)?$'")
    assert found.split()
    for compiler in found.split():
        folder = f"build/warnings-{compiler}"
        check(release, "cmake", "-S", ".", "-B", folder, "-G", "Ninja", f"-DCMAKE_CXX_COMPILER={compiler}",
              f"-DCMAKE_C_COMPILER={compiler.replace('g++', 'gcc').replace('clang++', 'clang')}",
              "-DCMAKE_BUILD_TYPE=Release", "-DOZU_WARNINGS_ARE_ERRORS=ON")
        check(release, "cmake", "--build", folder, "--target", "utils_ozu", "ozu_platform")


def test_unit_tests(release):
    assert re.search(r"\b0 failed", check(release, "./test", "unit"))


def test_checkout_is_tested(release):
    check(release, "./test")


def test_demo(release):
    status, text = release.run("./demo")
    if "the demo needs a panel box" in text:
        pytest.skip(text.strip().splitlines()[-1])
    assert status == 0, "\n".join(text.splitlines()[-40:])
