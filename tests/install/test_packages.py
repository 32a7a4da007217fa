"""The Debian packages and the board's tarball: contents, dependencies, and that they work."""

import os
import pathlib
import re
import shutil
import subprocess
import tarfile

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGES = ROOT / "build/packages"
SYSROOT = ROOT / "build/sysroot-armhf"
CONSUMER = ROOT / "tests/install/consumer"
PRINTED = "copied 9\ntext install\nrecord 11408\n"
NAMES = {
    "runtime": "libutils-ozu0",
    "dev": "libutils-ozu-dev",
    "platform": "libozu-platform0",
    "tools": "ozuctl",
    "testkit": "ozu-testkit",
    "examples": "ozu-examples",
    "doc": "libutils-ozu-doc",
}
MACHINES = {"amd64": "Advanced Micro Devices X86-64", "armhf": "ARM"}
OURS = {"libutils_ozu.so.0": "libutils-ozu0", "libozu_platform.so.0": "libozu-platform0"}


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}"
    return done.stdout


def package(name, architecture):
    found = list(PACKAGES.glob(f"{name}_*_{'all' if name == NAMES['doc'] else architecture}.deb"))
    assert len(found) == 1, f"{name} {architecture}: {found}"
    return found[0]


def field(deb, name):
    return run("dpkg-deb", "--field", deb, name).strip()


@pytest.fixture(scope="session", params=sorted(MACHINES))
def architecture(request):
    return request.param


@pytest.fixture(scope="session")
def unpacked(architecture, tmp_path_factory):
    """All packages of one architecture, each in a folder of its own."""
    folder = tmp_path_factory.mktemp(architecture)
    for name in NAMES.values():
        run("dpkg-deb", "-x", package(name, architecture), folder / name)
    return folder


def files(folder):
    return [path for path in folder.rglob("*") if path.is_file() and not path.is_symlink()]


def programs(folder):
    return [path for path in files(folder) if path.read_bytes()[:4] == b"\x7fELF"]


def needed(path):
    return set(re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "-dW", path)))


def owner(library):
    """The package that brings a library; its name is the same on every architecture."""
    if library in OURS:
        return OURS[library]
    if library.startswith("ld-linux"):
        return "libc6"
    folder = pathlib.Path("/usr/lib/x86_64-linux-gnu")
    for path in (folder / library, pathlib.Path("/lib/x86_64-linux-gnu") / library):
        done = subprocess.run(["dpkg", "-S", str(path)], capture_output=True, text=True)
        if done.returncode == 0:
            return done.stdout.split(":")[0]
    raise AssertionError(f"no package owns {library}")


@pytest.mark.parametrize("component", NAMES)
def test_each_package_is_what_it_says(architecture, component):
    deb = package(NAMES[component], architecture)
    assert field(deb, "Package") == NAMES[component]
    assert field(deb, "Architecture") == ("all" if component == "doc" else architecture)
    version = (ROOT / "VERSION").read_text().strip().replace("-", "~")
    assert field(deb, "Version") == version
    assert all(line.split()[1] == "root/root" for line in run("dpkg-deb", "-c", deb).splitlines())


@pytest.mark.parametrize("component", NAMES)
def test_each_package_has_its_copyright_and_its_own_synopsis(unpacked, architecture, component):
    copyright = unpacked / NAMES[component] / "usr/share/doc" / NAMES[component] / "copyright"
    assert copyright.read_text() == (ROOT / "packaging/copyright").read_text()
    synopses = {name: field(package(name, architecture), "Description").splitlines() for name in NAMES.values()}
    mine = synopses[NAMES[component]]
    assert len({lines[0] for lines in synopses.values()}) == len(NAMES)
    assert len(mine) > 1 and len(mine[0]) < 80 and not mine[0].endswith(".") and mine[0][0].islower()


def test_the_doc_package_has_site_and_manual_pages(unpacked):
    folder = unpacked / NAMES["doc"]
    assert (folder / "usr/share/doc/utils_ozu/html/index.html").is_file()
    assert len(list(folder.glob("usr/share/man/man3/*.3*"))) > 130


def test_no_file_comes_twice(unpacked):
    names = [path.relative_to(unpacked / name) for name in NAMES.values() for path in files(unpacked / name)]
    assert len(names) == len(set(names)) > 0


def test_programs_are_of_the_machine_and_stripped(architecture, unpacked):
    found = programs(unpacked)
    assert len(found) >= 2
    for path in found:
        assert MACHINES[architecture] in run("readelf", "-hW", path), path
        sections = run("readelf", "-SW", path)
        assert ".symtab" not in sections and ".debug_info" not in sections, path


@pytest.mark.parametrize("component", ["runtime", "platform", "tools", "examples"])
def test_dependencies_are_what_the_files_need(architecture, unpacked, component):
    found = programs(unpacked / NAMES[component])
    assert found
    wanted = {owner(library) for path in found for library in needed(path)} - {NAMES[component]}
    declared = {entry.split()[0] for entry in field(package(NAMES[component], architecture), "Depends").split(", ")}
    assert declared == wanted


@pytest.mark.parametrize("component", ["runtime", "platform", "tools"])
def test_c_library_is_recent_enough(architecture, unpacked, component):
    declared = re.search(r"libc6 \(>= ([\d.]+)\)", field(package(NAMES[component], architecture), "Depends")).group(1)
    for path in programs(unpacked / NAMES[component]):
        versions = [tuple(map(int, found.split("."))) for found in re.findall(r"GLIBC_([\d.]+)", run("readelf", "-VW", path))]
        assert max(versions) <= tuple(map(int, declared.split("."))), path


def test_board_tarball_runs(tmp_path):
    """Unpacked over an empty root, compiled against with the package's headers, run under emulation."""
    board = tmp_path / "board"
    with tarfile.open(PACKAGES / "utils-ozu-board-armhf.tar.gz") as archive:
        members = archive.getmembers()
        assert {(member.uid, member.gid) for member in members} == {(0, 0)}
        archive.extractall(board)
    names = {str(path.relative_to(board)) for path in files(board)}
    assert {"usr/lib/libutils_ozu.so.0", "usr/lib/libozu_platform.so.0"} <= names
    assert not [name for name in names if "include" in name or ("/doc/" in name and not name.endswith("/copyright"))]
    run("dpkg-deb", "-x", package(NAMES["dev"], "armhf"), tmp_path / "dev")
    emulator = shutil.which("qemu-arm-static") or shutil.which("qemu-arm")
    for name, compiler in (("consumer_c.c", "gcc"), ("consumer_cpp.cpp", "g++")):
        program = tmp_path / pathlib.Path(name).stem
        run(f"arm-linux-gnueabihf-{compiler}", f"--sysroot={SYSROOT}", *(["-std=c++20"] if "cpp" in name else []),
            f"-I{tmp_path}/dev/usr/include", f"-I{tmp_path}/dev/usr/include/ozu_platform", CONSUMER / name,
            board / "usr/lib/libutils_ozu.so.0", f"-Wl,-rpath-link,{board}/usr/lib", "-o", program)
        printed = run(emulator, "-L", SYSROOT, "-E", f"LD_LIBRARY_PATH={board}/usr/lib", program,
                      env={**os.environ, "QEMU_LD_PREFIX": str(SYSROOT)})
        assert printed == PRINTED
