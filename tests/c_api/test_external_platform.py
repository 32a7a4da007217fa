"""The library linked against other platform libraries than ours: what the panel's closed ones are to it."""

import os
import pathlib
import re
import subprocess

import pytest

pytestmark = pytest.mark.long  # makes builds of its own
ROOT = pathlib.Path(__file__).resolve().parents[2]
STUB = ROOT / "testkit/fake_platform/fake_platform.c"


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}"
    return done.stdout


def configure(folder, *settings):
    return subprocess.run(["cmake", "-S", str(ROOT), "-B", str(folder), "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                           "-DOZU_PLATFORM=external", *settings], capture_output=True, text=True)


def build_platform(folder, *flags):
    library = folder / "libpanel.so.7"
    run("gcc", "-shared", "-fPIC", "-D_GNU_SOURCE", f"-Wl,-soname,{library.name}", f"-I{ROOT}/platform/include", *flags, STUB,
        "-o", library)
    return library


@pytest.fixture(scope="module")
def panel(tmp_path_factory):
    """The folder of a library that was built against somebody else's platform."""
    folder = tmp_path_factory.mktemp("external")
    platform = build_platform(folder)
    done = configure(folder / "build", f"-DOZU_PLATFORM_LIBRARIES={platform}")
    assert done.returncode == 0, done.stdout + done.stderr
    run("cmake", "--build", folder / "build", "--target", "utils_ozu")
    return folder


def test_links_the_named_libraries_only(panel):
    needed = re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "-dW", panel / "build/lib/libutils_ozu.so.0"))
    assert "libpanel.so.7" in needed
    assert not [name for name in needed if "ozu_platform" in name]


def test_exports_the_same_names(panel):
    listed = [line for line in (ROOT / "tests/abi/exported_names.txt").read_text().splitlines()
              if line and not line.startswith("#")]
    symbols = run("nm", "-D", "--defined-only", panel / "build/lib/libutils_ozu.so.0").splitlines()
    exported = {line.split()[-1].partition("@@")[0] for line in symbols}
    assert exported - {"OZU_0"} == set(listed)


def test_runs_a_program(panel):
    program = panel / "values"
    run("gcc", "-std=c99", f"-I{ROOT}/include", f"-I{ROOT}/platform/include", ROOT / "tests/c_api/values_test.c",
        "-o", program, f"-L{panel}/build/lib", "-l:libutils_ozu.so.0", f"-Wl,-rpath-link,{panel}")
    run(program, env={**os.environ, "LD_LIBRARY_PATH": f"{panel}/build/lib:{panel}"})


def test_missing_platform_function_is_a_link_error(panel):
    (panel / "incomplete").mkdir()
    platform = build_platform(panel / "incomplete", "-Dmqttc_disconnect=mqttc_disconnect_by_another_name")
    done = configure(panel / "build", f"-DOZU_PLATFORM_LIBRARIES={platform}")
    assert done.returncode == 0, done.stdout + done.stderr
    done = subprocess.run(["cmake", "--build", panel / "build", "--target", "utils_ozu"], capture_output=True,
                          text=True)
    assert done.returncode != 0
    assert "undefined reference to `mqttc_disconnect'" in done.stdout + done.stderr


def test_external_without_libraries_is_refused(tmp_path):
    done = configure(tmp_path)
    assert done.returncode != 0
    assert "OZU_PLATFORM_LIBRARIES" in done.stderr


def test_unknown_platform_is_refused(tmp_path):
    done = configure(tmp_path, "-DOZU_PLATFORM=wishful")
    assert done.returncode != 0
    assert "'wishful'" in done.stderr
