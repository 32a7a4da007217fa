"""What the configuration accepts and refuses: other decoders, other paths, other warnings."""

import pathlib
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]


def configure(source, build, *settings):
    return subprocess.run(["cmake", "-S", str(source), "-B", str(build), "-G", "Ninja", *settings],
                          capture_output=True, text=True)


def test_a_decoder_of_another_version_is_refused_in_words(tmp_path):
    include = tmp_path / "include"
    include.mkdir()
    (include / "jpeglib.h").write_text("#define JPEG_LIB_VERSION 80\n")
    done = configure(ROOT, tmp_path / "build", f"-DJPEG_INCLUDE_DIR={include}", "-DJPEG_LIBRARY=/lib/x86_64-linux-gnu/libc.so.6")
    assert done.returncode != 0
    words = " ".join(done.stderr.split())
    assert "has the interface of version 80" in words and "version 62, as libjpeg-turbo has it" in words
    assert str(include) in words


def test_a_checkout_path_with_blanks(tmp_path):
    """The release stage builds everything in such a path; here one source whose command line holds it."""
    checkout = tmp_path / "a check out"
    checkout.symlink_to(ROOT)
    build = tmp_path / "a build"
    done = configure(checkout, build, "-DCMAKE_BUILD_TYPE=Release")
    assert done.returncode == 0, done.stderr
    source = "src/CMakeFiles/utils_ozu_objects.dir/text/bits.cpp.o"
    done = subprocess.run(["ninja", "-C", build, source], capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr


def test_warnings_are_errors_in_our_presets_only(tmp_path):
    for setting, wanted in (("OFF", False), ("ON", True)):
        build = tmp_path / setting
        done = configure(ROOT, build, f"-DOZU_WARNINGS_ARE_ERRORS={setting}")
        assert done.returncode == 0, done.stderr
        assert (" -Werror " in (build / "compile_commands.json").read_text()) == wanted
    assert "OZU_WARNINGS_ARE_ERRORS:BOOL=OFF" in (tmp_path / "OFF/CMakeCache.txt").read_text()
    assert '"OZU_WARNINGS_ARE_ERRORS": "ON"' in (ROOT / "CMakePresets.json").read_text()
