"""Where the box, the tool and the programs under test are: in a build tree, or installed."""

import os
import pathlib
import shlex
import shutil
import subprocess

# The project's own tree, when this package is used from there.
_tree = pathlib.Path(__file__).resolve().parents[2]
CHECKOUT = _tree if (_tree / "tools" / "box" / "panel-box").is_file() else None


def build_dir():
    """The build under test: what OZU_TEST_BUILD names, or build/dev of the project's tree; None where all is installed."""
    named = os.environ.get("OZU_TEST_BUILD")
    if named:
        return pathlib.Path(CHECKOUT or "", named).absolute()
    return CHECKOUT / "build/dev" if CHECKOUT else None


def _panel_box():
    if CHECKOUT:
        return CHECKOUT / "tools" / "box" / "panel-box"
    tool = build_dir() / "bin" / "ozuctl" if build_dir() else shutil.which("ozuctl")
    return pathlib.Path(os.path.realpath(tool or "ozuctl")).parents[1] / "libexec" / "ozu" / "panel-box"


PANEL_BOX = _panel_box()


def emulator():
    """What programs of the build under test are started with, e.g. `qemu-arm-static -L build/sysroot`."""
    return shlex.split(os.environ.get("OZU_TEST_EMULATOR", ""))


def program_folders():
    """Where the programs under test are."""
    return [pathlib.Path(word).absolute() for word in os.environ.get("OZU_PROGRAMS", "").split(":") if word]


def program_words(name, *arguments):
    """The command line of a program: a path, one of the folders in OZU_PROGRAMS, of the build under test, or an installed one."""
    folders = program_folders()
    if "/" in str(name):
        found = [pathlib.Path(name).absolute()]
    else:
        found = [folder / name for folder in folders if (folder / name).is_file()]
    if found:
        return [str(found[0]), *map(str, arguments)]
    if build_dir():
        return [*emulator(), str(build_dir() / "bin" / name), *map(str, arguments)]
    return [shutil.which(name) or str(name), *map(str, arguments)]


def library_path(name):
    """Variables with which a program of another folder finds the library of the build under test, which is not installed."""
    if build_dir() is None or emulator() or pathlib.Path(program_words(name)[0]).parent == build_dir() / "bin":
        return {}
    return {"LD_LIBRARY_PATH": str(build_dir() / "lib")}


def nowhere(name):
    """Where a program was looked for in vain, as text; None when it is there."""
    folders = program_folders() + ([build_dir() / "bin"] if build_dir() else [])
    if "/" in str(name) or any((folder / name).is_file() for folder in folders):
        return None
    if build_dir() is None:
        if shutil.which(name):
            return None
        folders.append("PATH")
    return ", ".join(dict.fromkeys(map(str, folders)))


def obstacle():
    """Why boxes are not possible here; None when they are."""
    if not os.access(PANEL_BOX, os.X_OK):
        return f"{PANEL_BOX} is not there; install the package ozuctl, or name a build folder in OZU_TEST_BUILD"
    check = subprocess.run([PANEL_BOX, "check"], capture_output=True, text=True, timeout=120)
    return None if check.returncode == 0 else check.stderr.strip()
