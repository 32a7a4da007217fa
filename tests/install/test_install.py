"""Installs into an empty root and uses it as somebody else would: pkg-config and CMake, C and C++, out of the tree."""

import os
import pathlib
import shutil
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/release")
CONSUMER = ROOT / "tests/install/consumer"
PRINTED = "copied 9\ntext install\nrecord 11408\n"


def run(*command, **options):
    done = subprocess.run([str(part) for part in command], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}"
    return done.stdout


@pytest.fixture(scope="session")
def root(tmp_path_factory):
    """The whole tree, installed below an empty folder as a package build does it."""
    destination = tmp_path_factory.mktemp("root")
    run("cmake", "--install", BUILD, env={**os.environ, "DESTDIR": str(destination)})
    return destination


@pytest.fixture(scope="session")
def libraries(root):
    return next(root.rglob("libutils_ozu.so.0")).parent


@pytest.fixture(scope="session")
def sources(root):
    """The consumers and every installed example."""
    examples = sorted(root.glob("usr/share/doc/utils_ozu/examples/*.c*"))
    assert {path.suffix for path in examples} == {".c", ".cpp"}
    return [CONSUMER / "consumer_c.c", CONSUMER / "consumer_cpp.cpp", *examples]


def run_consumers(folder, libraries):
    environment = {**os.environ, "LD_LIBRARY_PATH": str(libraries)}
    for name in ("consumer_c", "consumer_cpp"):
        assert run(folder / name, env=environment) == PRINTED


def run_examples(examples, folder, root, libraries):
    """Each starts as a panel process and runs until it is told to end, in a panel box of the installed tool."""
    if subprocess.run([root / "usr/libexec/ozu/panel-box", "check"], capture_output=True).returncode != 0:
        pytest.skip("no panel boxes on this machine: the examples were built, not run")
    steps = [f"{{ timeout 1 {folder / source.stem} 3; [ $? = 124 ]; }}" for source in examples]
    run(root / "usr/bin/ozuctl", "box", "run", "--ro-bind", folder, "--ro-bind", root, "--setenv",
        f"LD_LIBRARY_PATH={libraries}", "--", "bash", "-c", " && ".join(steps),
        env={**os.environ, "LD_LIBRARY_PATH": str(libraries)})


def compile_all(sources, folder, flags):
    for source in sources:
        compiler = ["cc", "-std=gnu99"] if source.suffix == ".c" else ["c++", "-std=c++20"]
        run(*compiler, "-Wall", "-Wextra", "-Werror", source, "-o", folder / source.stem, *flags)


def test_everything_installs(root, libraries):
    names = {str(path.relative_to(root / "usr")) for path in root.rglob("*") if not path.is_dir()}
    folder = libraries.relative_to(root / "usr")
    for name in ("libutils_ozu.so.0", "libutils_ozu.so", "libozu_platform.so.0", "libozu_platform.so",
                 "pkgconfig/utils_ozu.pc", "pkgconfig/ozu_platform.pc", "cmake/ozu/ozuConfig.cmake",
                 "libozu_fake_platform.so.0", "libozu_fake_platform.a", "pkgconfig/ozu_fake_platform.pc"):
        assert f"{folder}/{name}" in names
    for header in (ROOT / "include").rglob("*.h"):
        assert f"include/{header.relative_to(ROOT / 'include')}" in names
    for header in (ROOT / "platform/include").rglob("*.h"):
        assert f"include/ozu_platform/{header.name}" in names


def test_nothing_installed_names_the_build(root):
    for path in root.rglob("*"):
        if path.is_file():
            assert str(ROOT).encode() not in path.read_bytes(), path


def test_tool_finds_its_library_under_any_prefix(tmp_path):
    for component in ("runtime", "platform", "tools"):
        run("cmake", "--install", BUILD, "--component", component, "--prefix", tmp_path / "any where")
    environment = {name: value for name, value in os.environ.items() if name != "LD_LIBRARY_PATH"}
    moved = tmp_path / "moved"
    (tmp_path / "any where").rename(moved)
    assert run(moved / "bin/ozuctl", "names", "device", "38", cwd="/", env=environment)
    assert str(moved) in run("ldd", moved / "bin/ozuctl", env=environment)


def test_pkg_config_from_where_it_stands(root, libraries, sources, tmp_path):
    environment = {**os.environ, "PKG_CONFIG_PATH": str(libraries / "pkgconfig")}
    environment.pop("PKG_CONFIG_SYSROOT_DIR", None)
    flags = run("pkg-config", "--cflags", "--libs", "utils_ozu", env=environment).split()
    compile_all(sources, tmp_path, flags)
    run_consumers(tmp_path, libraries)
    run_examples(sources[2:], tmp_path, root, libraries)


def test_pkg_config_of_a_sysroot(root, libraries, tmp_path):
    environment = {
        **os.environ,
        "PKG_CONFIG_SYSROOT_DIR": str(root),
        "PKG_CONFIG_LIBDIR": str(libraries / "pkgconfig"),
    }
    flags = run("pkg-config", "--cflags", "--libs", "utils_ozu", env=environment).split()
    compile_all([CONSUMER / "consumer_c.c", CONSUMER / "consumer_cpp.cpp"], tmp_path, flags)
    run_consumers(tmp_path, libraries)


def test_pkg_config_of_the_platform(root, libraries):
    environment = {**os.environ, "PKG_CONFIG_PATH": str(libraries / "pkgconfig")}
    flags = run("pkg-config", "--libs", "ozu_platform", env=environment).split()
    assert "-lozu_platform" in flags
    version = run("pkg-config", "--modversion", "utils_ozu", env=environment).strip()
    assert version == (ROOT / "VERSION").read_text().strip().replace("-", "~")


def test_a_test_against_the_fake_platform(root, libraries, tmp_path):
    """C with pkg-config, C++ with the CMake package: the installed example and its installed test."""
    environment = {**os.environ, "PKG_CONFIG_PATH": str(libraries / "pkgconfig")}
    flags = run("pkg-config", "--cflags", "--libs", "ozu_fake_platform", "utils_ozu", env=environment).split()
    compile_all([ROOT / "tests/c_api/fake_platform_test.c"], tmp_path, [f"-I{ROOT / 'tests/c_api'}", *flags])
    run(tmp_path / "fake_platform_test", env={**os.environ, "LD_LIBRARY_PATH": str(libraries)})

    examples = root / "usr/share/doc/utils_ozu/examples"
    project = tmp_path / "project"
    project.mkdir()
    (project / "CMakeLists.txt").write_text(f"""
cmake_minimum_required(VERSION 3.20)
project(door LANGUAGES CXX)
set(CMAKE_CXX_STANDARD 20)
enable_testing()
find_package(ozu REQUIRED)
find_package(GTest REQUIRED)
include(GoogleTest)
add_library(door OBJECT "{examples}/door_contact.cpp")
target_compile_definitions(door PRIVATE main=door_contact_main)
target_link_libraries(door PRIVATE ozu::utils_ozu)
add_executable(door_test "{examples}/tests/door_contact_test.cpp" $<TARGET_OBJECTS:door>)
target_link_libraries(door_test PRIVATE ozu::fake_platform ozu::utils_ozu GTest::gtest_main)
gtest_discover_tests(door_test)
""")
    run("cmake", "-S", project, "-B", tmp_path / "build", f"-DCMAKE_PREFIX_PATH={root / 'usr'}")
    installed = {**os.environ, "LD_LIBRARY_PATH": str(libraries)}
    run("cmake", "--build", tmp_path / "build", env=installed)
    assert "100% tests passed" in run("ctest", "--test-dir", tmp_path / "build", "--no-tests=error", env=installed)


def test_cmake_package(root, libraries, sources, tmp_path):
    project = tmp_path / "project"
    shutil.copytree(CONSUMER, project)
    run("cmake", "-S", project, "-B", tmp_path / "build", f"-DCMAKE_PREFIX_PATH={root / 'usr'}",
        f"-DCONSUMER_SOURCES={';'.join(map(str, sources))}")
    run("cmake", "--build", tmp_path / "build")
    run_consumers(tmp_path / "build", libraries)
    run_examples(sources[2:], tmp_path / "build", root, libraries)


def test_cmake_package_of_the_build_tree(tmp_path):
    """Before anything is installed, from a project elsewhere."""
    shutil.copytree(CONSUMER, tmp_path / "project")
    run("cmake", "-S", tmp_path / "project", "-B", tmp_path / "build", f"-Dozu_DIR={BUILD / 'package'}",
        f"-DCONSUMER_SOURCES={CONSUMER / 'consumer_c.c'};{CONSUMER / 'consumer_cpp.cpp'}")
    run("cmake", "--build", tmp_path / "build")
    for name in ("consumer_c", "consumer_cpp"):
        assert run(tmp_path / "build" / name) == PRINTED


def test_components_are_disjoint_and_complete(root, tmp_path):
    seen = {}
    for component in ("runtime", "dev", "platform", "tools", "testkit", "examples", "doc"):
        destination = tmp_path / component
        run("cmake", "--install", BUILD, "--component", component, env={**os.environ, "DESTDIR": str(destination)})
        for path in destination.rglob("*"):
            if not path.is_dir():
                name = path.relative_to(destination)
                assert name not in seen, f"{name} is in {seen[name]} and {component}"
                seen[name] = component
    everything = {path.relative_to(root) for path in root.rglob("*") if not path.is_dir()}
    assert everything == set(seen)
