"""The checkout in a bare root of each supported release: tested, demonstrated, compiled with every compiler of the release.

A root is made once by mmdebstrap and kept in build/releases: one of the packages that ./test and ./demo name, one of the
compilers. The checkout lies in a folder whose name has a space. OZU_RELEASES names the releases (all of them otherwise).

A last root has our packages and no checkout; every run makes its own.
"""

import functools
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tests/install"))
import guide  # noqa: E402

KEPT = ROOT / "build/releases"
RELEASES = os.environ.get("OZU_RELEASES", "bookworm trixie").split()
MIRROR = os.environ.get("OZU_RELEASES_MIRROR", "http://deb.debian.org/debian")
LISTS = ("build", "box", "test")
CHECKOUT = "/check out"
SYSROOT = ROOT / "build/sysroot-armhf"
# What each release carries of gcc 10 to 14 and clang 14 to 19. No supported release has gcc 10 any more.
COMPILERS = {
    "bookworm": ("g++-11", "g++-12", "clang-14", "clang-15", "clang-16", "clang-19"),
    "trixie": ("g++-12", "g++-13", "g++-14", "clang-17", "clang-18", "clang-19"),
}


def packages_of(*lists):
    lines = "\n".join((ROOT / f"packaging/apt/{name}.txt").read_text() for name in lists)
    return sorted(set(re.sub(r"#.*", "", lines).split()))


def compiler_packages(release):
    """Every compiler, and gcc for the panel's machine; clang compiles for all machines."""
    gcc = [f"{name}-arm-linux-gnueabihf" for name in COMPILERS[release] if name.startswith("g++")]
    return [*packages_of("build"), "ccache", *COMPILERS[release], *gcc]


def missing_means():
    """Why no root can be entered here, or nothing."""
    for tool in ("mmdebstrap", "bwrap"):
        if not shutil.which(tool):
            return f"{tool} is not installed (packages of packaging/apt/arm.txt and box.txt)"
    done = subprocess.run(["bwrap", "--bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "true"], capture_output=True, text=True)
    return f"no root can be entered: {done.stderr.strip()}" if done.returncode != 0 else ""


def bare_root(release, name, packages):
    """The folder of a root of the release, made when there is none or when it was made from other packages."""
    packages = ",".join(["ca-certificates", *packages])
    stamp = hashlib.sha256(packages.encode()).hexdigest()
    folder, mark = KEPT / name, KEPT / f"{name}.made-from"
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


def enter(folder, *options):
    """The beginning of a command line that runs something in a root."""
    # The machine's own /proc and /sys: bubblewrap covers parts of a new one, and then no panel box inside may have one.
    return ["bwrap", "--bind", str(folder), "/", "--dev", "/dev", "--bind", "/proc", "/proc", "--bind", "/sys", "/sys",
            "--perms", "1777", "--tmpfs", "/tmp", "--perms", "1777", "--tmpfs", "/dev/shm", "--tmpfs", "/run", *options,
            "--setenv", "HOME", "/root", "--setenv", "LC_ALL", "C.UTF-8", "--die-with-parent"]


class Root:
    """A root with the checkout in it; what was built there in an earlier run stays."""

    def __init__(self, release, name, packages):
        self.folder = bare_root(release, name, packages)
        self.checkout = KEPT / f"{name} check out"
        self.copy()

    def copy(self):
        """The files of the checkout as they are."""
        self.checkout.mkdir(exist_ok=True)
        listed = subprocess.run(["git", "-C", str(ROOT), "ls-files", "-z", "--cached", "--others", "--exclude-standard"],
                                capture_output=True, check=True).stdout
        archive = KEPT / "checkout.tar"
        subprocess.run(["tar", "-C", str(ROOT), "--null", "--ignore-failed-read", "-T", "-", "-cf", archive],
                       input=listed, check=True)
        for path in self.checkout.iterdir():
            if path.name != "build":
                shutil.rmtree(path) if path.is_dir() and not path.is_symlink() else path.unlink()
        subprocess.run(["tar", "-C", str(self.checkout), "-xf", archive], check=True)

    def run(self, *command):
        (KEPT / "ccache").mkdir(exist_ok=True)
        sysroot = ["--ro-bind", str(SYSROOT), "/sysroot"] if SYSROOT.exists() else []
        inside = enter(self.folder, "--bind", str(self.checkout), CHECKOUT, "--bind", str(KEPT / "ccache"), "/ccache", *sysroot,
                       "--setenv", "CCACHE_DIR", "/ccache", "--chdir", CHECKOUT)
        done = subprocess.run([*inside, *command], capture_output=True, text=True, errors="replace")
        return done.returncode, done.stdout + done.stderr

    def check(self, *command):
        status, text = self.run(*command)
        assert status == 0, "\n".join(text.splitlines()[-40:])
        return text


@functools.cache
def root_of(release, name, packages):
    if why := missing_means():
        pytest.skip(why)
    return Root(release, name, packages)


@pytest.fixture(params=RELEASES)
def bare(request):
    return root_of(request.param, request.param, tuple(packages_of(*LISTS)))


def toolchain(compiler):
    """Settings of CMake that choose a compiler."""
    c = compiler.replace("g++", "gcc")
    return {"CMAKE_C_COMPILER": c, "CMAKE_CXX_COMPILER": compiler.replace("clang", "clang++")}


def arm_toolchain(compiler):
    """The same for the panel's machine: the project's own toolchain file with another compiler in it."""
    if compiler.startswith("g++"):
        return {name: f"arm-linux-gnueabihf-{value}" for name, value in toolchain(compiler).items()}
    return {**toolchain(compiler), "CMAKE_C_COMPILER_TARGET": "arm-linux-gnueabihf",
            "CMAKE_CXX_COMPILER_TARGET": "arm-linux-gnueabihf"}


@pytest.mark.parametrize("machine", ["amd64", "armhf"])
@pytest.mark.parametrize(("release", "compiler"), [(r, c) for r in RELEASES for c in COMPILERS[r]])
def test_compilers_find_nothing_to_warn_of(release, compiler, machine):
    """Library and platform with every gcc and clang of the release, for both machines; warnings are errors."""
    if machine == "armhf" and not SYSROOT.exists():
        pytest.skip("no sysroot of the panel's machine; scripts/make_armhf_sysroot.sh makes it")
    root = root_of(release, f"{release}-compilers", tuple(compiler_packages(release)))
    folder = f"build/{compiler}-{machine}"
    settings = toolchain(compiler)
    if machine == "armhf":
        lines = [f"set({name} {value})\n" for name, value in arm_toolchain(compiler).items()]
        file = root.checkout / f"build/{compiler}.cmake"
        file.parent.mkdir(exist_ok=True)
        file.write_text('include("${CMAKE_CURRENT_LIST_DIR}/../cmake/toolchain-armhf.cmake")\n' + "".join(lines))
        settings = {"CMAKE_TOOLCHAIN_FILE": f"{CHECKOUT}/build/{compiler}.cmake", "OZU_SYSROOT": "/sysroot"}
    root.check("cmake", "-S", ".", "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DOZU_WARNINGS_ARE_ERRORS=ON",
               *(f"-D{name}={value}" for name, value in settings.items()))
    root.check("cmake", "--build", folder, "--target", "utils_ozu", "ozu_platform")


def test_checkout_is_tested(bare):
    assert re.search(r"\b0 failed", bare.check("./test"))


def test_demo(bare):
    status, text = bare.run("./demo")
    if "the demo needs a panel box" in text:
        pytest.skip(text.strip().splitlines()[-1])
    assert status == 0, "\n".join(text.splitlines()[-40:])


@pytest.fixture
def packages_alone():
    """A fresh Debian 12 in which `apt install` has installed our packages, with what they ask for and recommend."""
    if why := missing_means():
        pytest.skip(why)
    made = subprocess.run([ROOT / "scripts/make_packages.sh", "amd64"], capture_output=True, text=True)
    assert made.returncode == 0, made.stdout[-3000:] + made.stderr[-3000:]
    folder = KEPT / "packages alone"
    shutil.rmtree(folder, ignore_errors=True)
    KEPT.mkdir(parents=True, exist_ok=True)
    install = next(line for line in guide.lines((ROOT / "docs/test_your_process.md").read_text()) if line.startswith("apt install"))
    clean = "env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin DEBIAN_FRONTEND=noninteractive"
    hooks = ['mkdir "$1/packages"', f"copy-in {' '.join(str(deb) for deb in (ROOT / 'build/packages').glob('*_amd64.deb'))} /packages",
             f"""chroot "$1" {clean} sh -ec 'apt-get update; cd /packages; {install} -y; apt-get install -y parallel'"""]
    done = subprocess.run(["mmdebstrap", f"--mode={'root' if os.geteuid() == 0 else 'unshare'}", "--variant=minbase",
                           '--aptopt=APT::Install-Recommends "true"',  # as Debian has it; this variant has not
                           "--include=ca-certificates", *(f"--customize-hook={hook}" for hook in hooks), "bookworm", str(folder), MIRROR],
                          capture_output=True, text=True)
    if done.returncode != 0 and "/packages" not in done.stderr:
        pytest.skip(f"no root of bookworm: {done.stderr.strip().splitlines()[-1]}")
    assert done.returncode == 0, done.stderr[-3000:]
    yield folder
    shutil.rmtree(folder, ignore_errors=True)


def test_the_guide_needs_nothing_but_the_packages(packages_alone):
    """The template's doorbell: built, unit-tested, panel-tested and run through its scenarios by the commands as they stand."""
    typed = guide.test_your_process(without=("apt ", "cmake --preset", "cmake --build --preset", ". testkit/"))
    done = subprocess.run([*enter(packages_alone, "--bind", str(packages_alone / "root"), "/root", "--chdir", "/root"), "bash", "-c",
                           guide.script(typed)], capture_output=True, text=True, errors="replace")
    assert done.stdout.endswith("the guide ends\n"), done.stdout[-6000:] + done.stderr[-3000:]
    assert (packages_alone / "root/doorbell/ozu-artefacts").is_dir()
