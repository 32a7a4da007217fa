"""The installation's own mask and IV: how a build takes them, and that it does not show them."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

from pytest_ozu.box import PanelBox
from pytest_ozu.build import CHECKOUT as ROOT

pytestmark = pytest.mark.long  # makes builds of its own


def configure(folder, *options):
    return subprocess.run(["cmake", "-G", "Ninja", "-S", str(ROOT), "-B", str(folder), *options], capture_output=True,
                          text=True)


@pytest.fixture(scope="module")
def secrets():
    return {"mask": os.urandom(20), "iv": os.urandom(16)}


@pytest.fixture(scope="module")
def build(tmp_path_factory, secrets):
    """A release build with a mask from a file and an IV from the command line."""
    folder = tmp_path_factory.mktemp("secrets")
    (folder / "mask").write_text(secrets["mask"].hex() + "\n")
    done = configure(folder / "build", "-DCMAKE_BUILD_TYPE=Release", f"-DOZU_DB_CIPHER_MASK=@{folder}/mask",
                     f"-DOZU_VIDEO_IV={secrets['iv'].hex()}")
    assert done.returncode == 0, done.stderr
    # Neither value, nor a warning about a default.
    text = done.stdout + done.stderr
    assert secrets["mask"].hex() not in text.lower() and secrets["iv"].hex() not in text.lower()
    assert "development default" not in text
    subprocess.run(["cmake", "--build", str(folder / "build"), "--target", "utils_ozu"], check=True,
                   capture_output=True)
    yield folder / "build"
    shutil.rmtree(folder)


def test_library_holds_neither_value_in_one_piece(build, secrets):
    objects = [build / "lib" / "libutils_ozu.so.0", *build.glob("src/**/*.o")]
    assert len(objects) > 20
    for path in objects:
        content = path.resolve().read_bytes()
        for value in secrets.values():
            for form in (value, value.hex().encode(), value.hex().upper().encode(), value[:8], value[-8:]):
                assert form not in content, path


def test_neither_value_is_on_a_compiler_command_line(build, secrets):
    for name in ("compile_commands.json", "build.ninja"):
        text = (build / name).read_text().lower()
        assert secrets["mask"].hex() not in text and secrets["iv"].hex() not in text
    header = build / "src" / "security" / "build_secrets.h"
    assert header.stat().st_mode & 0o077 == 0


PROGRAM = """
import ctypes, sys
library = ctypes.CDLL(sys.argv[1])
out = ctypes.create_string_buffer(41)
assert library.ozuutils_getDBcypher(out) == 0
print(out.value.decode())
key = bytes(range(16))
library.decryptVideoFile.argtypes = [ctypes.c_char_p, ctypes.c_char_p, ctypes.c_uint, ctypes.c_long]
print(library.decryptVideoFile(sys.argv[2].encode(), key, 16, 0))
"""


def test_library_works_with_the_values_it_was_built_with(build, secrets, tmp_path):
    plain = b"OZU" + bytes(61)
    cipher = subprocess.run(["openssl", "enc", "-aes-128-cbc", "-nopad", "-K", bytes(range(16)).hex(), "-iv",
                             secrets["iv"].hex()], input=plain, check=True, capture_output=True).stdout
    (tmp_path / "video").write_bytes(cipher)
    with PanelBox(broker=False, cmdline="androidboot.serialno=01020304", binds=[build, tmp_path]) as box:
        done = box.run(["/usr/bin/python3", "-c", PROGRAM, build / "lib" / "libutils_ozu.so.0", tmp_path / "video"],
                       check=True)
    serial = bytes.fromhex("04030201")
    expected = bytes(byte ^ serial[i % 4] for i, byte in enumerate(secrets["mask"])).hex().upper()
    assert done.stdout.split() == [expected, "0"]
    assert (tmp_path / "video").read_bytes() == plain


def test_release_build_warns_about_the_defaults(tmp_path):
    warning = "has its development default"
    assert configure(tmp_path / "release", "-DCMAKE_BUILD_TYPE=Release").stderr.count(warning) == 2
    assert warning not in configure(tmp_path / "debug", "-DCMAKE_BUILD_TYPE=Debug").stderr


def check_value(value):
    """What the check of the two constants says, without configuring anything else."""
    return subprocess.run(["cmake", f"-DOZU_DB_CIPHER_MASK={value}", f"-DPROJECT_SOURCE_DIR={ROOT}", "-P",
                           str(ROOT / "cmake" / "OzuSecrets.cmake")], capture_output=True, text=True)


@pytest.mark.parametrize("value", ["", "00", "0" * 39, "0" * 41, "g" * 40, "0x" + "0" * 38, "0" * 39 + "\n", " " * 40,
                                   "@relative", "@/no/such/file", "@/tmp"])
def test_mask_that_is_not_20_bytes_is_refused(value):
    done = check_value(value)
    assert done.returncode != 0 and "OZU_DB_CIPHER_MASK: " in done.stderr
    assert not re.search(r"[0g]{8,}", done.stderr), "the value itself is not repeated"


def test_mask_of_20_bytes_is_taken():
    assert check_value("0123456789abcdefABCD" * 2).returncode == 0


def test_mask_file_inside_the_source_tree_is_refused():
    inside = pathlib.Path(ROOT) / "build" / "mask.txt"
    inside.parent.mkdir(exist_ok=True)
    inside.write_text("00" * 20)
    try:
        done = check_value(f"@{inside}")
    finally:
        inside.unlink()
    assert done.returncode != 0 and "outside the source tree" in re.sub(r"\s+", " ", done.stderr)
