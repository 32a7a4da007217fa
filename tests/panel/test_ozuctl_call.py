"""ozuctl call: every function of the library is callable or has a command; no argument does harm."""

import json
import os
import re
import subprocess
import sys

import jsonschema
import pytest

import ozuctl
from pytest_ozu.build import CHECKOUT as ROOT, build_dir, emulator

sys.path.insert(0, str(ROOT / "scripts"))
import exported_names  # noqa: E402


def tool(*arguments, **options):
    environment = {**os.environ, "OZU_PLATFORM_DIR": "/nonexistent/ozu"}
    environment.pop("PANEL_BOX", None)
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), *map(str, arguments)], capture_output=True,
                          env=environment, timeout=120, **options)


def called(function, *arguments, nulls=()):
    options = [f"--null={name}" for name in nulls]
    done = tool("--json", "call", *options, "--", function, *arguments)
    assert done.returncode == 0, (function, arguments, done)
    document = json.loads(done.stdout)
    jsonschema.validate(document, ozuctl.schema("call"))
    text = tool("call", *options, "--", function, *arguments)
    assert text.returncode == 0 and b"null" not in text.stdout, text
    return document


@pytest.fixture(scope="module")
def rows():
    done = tool("--json", "call", "--list")
    assert done.returncode == 0, done
    found = json.loads(done.stdout)
    jsonschema.validate(found, ozuctl.schema("call-list"))
    return found


def test_no_function_is_forgotten(rows):
    exported = [name for names in exported_names.library_families().values() for name in names]
    listed = [row["function"] for row in rows]
    assert len(exported) >= 135
    assert sorted(listed) == sorted(exported)
    assert len(set(listed)) == len(listed)


@pytest.mark.long
def test_the_commands_that_reach_the_others_exist(rows):
    for command in sorted({row["command"] for row in rows if not row["command"].startswith("call ")}):
        done = tool(*command.split(), "--help")
        assert done.returncode == 0, (command, done)
        assert f"Usage: ozuctl {command} ".encode() in done.stdout.replace(b"\n       ", b" "), (command, done.stdout)


def test_what_a_command_reaches_is_named(rows):
    reached = [row for row in rows if not row["command"].startswith("call ")]
    for row in reached[::10]:
        done = tool("call", row["function"])
        assert done.returncode == 2 and f"'ozuctl {row['command']}'".encode() in done.stderr, done


def test_the_list_for_people(rows):
    text = tool("call", "--list").stdout.decode()
    for row in rows:
        assert re.search(rf"^{row['function']}\b", text, re.M), row
    assert "ozuutils_strlcpy [src text or null] [size 0..65536] = number -> dst" in text


CALLS = [  # function, arguments, result, outputs
    ("ozuutils_strncpy2Lower", ["ABC", 2], None, {"dst": "ab"}), ("ozuutils_strncpy2Upper", ["abc", 9], None, {"dst": "ABC"}),
    ("ozuutils_strlcpy", ["panel", 4], 5, {"dst": "pan"}), ("ozuutils_strlcpy", ["panel", 0], 5, {"dst": ""}),
    ("ozuutils_FixedStringCopyAndTrimRight", [8, "ab  "], None, {"dst": "ab"}),
    ("ozuutils_getShortUpperModName", ["core", 3], None, {"dst": "CO"}),
    ("ozuutils_replaceSubstrInStr", ["a-b", "-", "+++", 16], 0, {"str": "a+++b"}),
    ("replace_char_from_string", [97, 98, "banana"], None, {"s": "bbnbnb"}),
    ("ozuutils_isStringIsStandardAscii", ["abc"], 1, {}), ("ozuutils_isStringIsStandardAscii", ["ä"], 0, {}),
    ("ozuutils_addToCommaSeparatedStringList", ["a,b", "c", 16], 1, {"list": "a,b,c"}),
    ("ozuutils_addToCommaSeparatedStringList", ["a,b", "c", 5], 0, {"list": "a,b"}),
    ("ozuutils_removeFromCommaSeparatedStringList", ["a,b,c", "b", 16], 1, {"list": "a,c"}),
    ("safe_atoi", [" -12x"], -12, {}), ("safe_atoi", ["99999999999"], 2147483647, {}), ("safe_atoll", ["99999999999"], 99999999999, {}),
    ("ozuutils_num2decstr", [12345, 3], 3, {"dst": "345"}), ("ozuutils_Num2MinimalDecStr", [4294967295, 10], 10, {"dst": "4294967295"}),
    ("ozuutils_Ascii2Digit", ["z"], -1, {}), ("ozuutils_Digit2Ascii", [15], "F", {}), ("ozuutils_Digit2Ascii", [16], "", {}),
    ("ozuutils_StringToNum", ["12x", 9, 10], 153, {}), ("ozuutils_StringToLongNum", ["f" * 16, 16, 16], 2**64 - 1, {}),
    ("ozuutils_bcd2num", ["0x59"], 59, {}), ("ozuutils_String2Ascii", ["01ff"], None, {"dst": "01FF"}),
    ("ozuutils_Ascii2String", ["01FF", 2], None, {"dst": "01FF"}), ("ozuutils_num2hexstr", ["0xFFFFFFFFFFFFFFFF", 16], 16, {"dst": "F" * 16}),
    ("ozuutils_num2hexstr", [1, -5], 65531, {"dst": ""}), ("ozuutils_hexstr2numRetLen", ["1Fg", 8], 31, {"outLen": 2}),
    ("ozuutils_data2hexstr", ["01ff", 16, ":"], None, {"dst": "01:FF"}), ("ozuutils_hexStringToBinary", ["01FF", 2, 1], 2, {"out": "FF01"}),
    ("ozuutils_hexStringToBinary", ["01FF", 1, 0], -2, {"out": ""}), ("swap_ptr32", ["01020304"], None, {"p": "04030201"}),
    ("countSetBits", [255], 8, {}), ("SetBit", [0, 31], 2**31, {}), ("ClearBit", [3, 1], 1, {}), ("msbSetBitNumber", [256], 8, {}),
    ("ozuutils_searchInBuf", ["00010203", "0203"], 2, {}), ("ozuutils_searchInBuf", ["00", "01"], None, {}),
    ("ozuutils_is_temp_file", ["/tmp/x"], 1, {}), ("ozuutils_isSystemTimeOk", [400000001], 1, {}), ("_RTC_is_synched", [], 1, {}),
    ("ARES_MAX_RETRY", [], 3, {}), ("get_country_alpha2Code", ["Peru"], 1, {"code": "PE"}),
    ("get_country_alpha3Code", ["Peru"], 1, {"code": "PER"}), ("get_country_numericCode", ["Peru"], 1, {"code": "604"}),
    ("get_device_ip", ["lo"], 0, {"ipText": "127.0.0.1"}), ("ares_global_library_init", ["tag"], 1, {}),
    ("ares_global_library_deinit", [], None, {}), ("WaitForUnsentData", [0], 1, {}),
]


@pytest.mark.parametrize("function, arguments, result, outputs", CALLS, ids=lambda value: str(value)[:30])
def test_results_and_outputs(function, arguments, result, outputs):
    document = called(function, *arguments)
    assert (document["result"], document["outputs"]) == (result, outputs)


def test_every_function_is_called_here(rows):
    text = open(__file__).read()
    for row in rows:
        if row["command"].startswith("call "):
            assert f'"{row["function"]}"' in text, row


def test_what_the_library_prints_and_logs_is_told():
    assert called("ozuutils_removeFromCommaSeparatedStringList", "a,b,c", "b", 16)["printed"] == "\n--3--"
    lines = called("get_device_ip", "nosuch0")["lines"]
    assert lines and lines[0]["level"] == 50000 and lines[0]["function"] == "get_device_ip"
    assert called("ares_global_library_init", "tag")["lines"][0]["text"].startswith("tag")


def test_null_pointers():
    assert called("ozuutils_strncpy2Lower", 5, nulls=["src"])["outputs"] == {"dst": None}
    assert called("safe_atoi", nulls=["s"])["result"] == 0
    assert called("ozuutils_replaceSubstrInStr", "a-b", "-", 9, nulls=["replacement"])["outputs"] == {"str": "ab"}
    for parameter in ("num", "nothing"):
        done = tool("call", f"--null={parameter}", "ozuutils_num2decstr", 1)
        assert done.returncode == 2 and b"no null pointer" in done.stderr


def test_calendar_time():
    document = called("ozuutils_timegm_to_epoch", 2024, 13, 1, 0, 0, 0)
    assert document["result"] == 1735689600 and document["outputs"]["year"] == 2025 and document["outputs"]["month"] == 1
    assert called("ozuutils_timegm_to_epoch", 2147483647, 2147483647, *[2147483647] * 4)["result"] == -1


def test_files(tmp_path):
    (tmp_path / "file").write_bytes(b"\x00\xff")
    os.mkfifo(tmp_path / "fifo")
    assert called("allocFileToBuff", tmp_path / "file")["outputs"] == {"buffer": "00FF"}
    missing = called("allocFileToBuff", tmp_path / "none")
    assert missing["result"] == -1 and missing["outputs"] == {} and missing["lines"]
    for path in (tmp_path / "fifo", tmp_path, "/dev/zero"):
        done = tool("call", "allocFileToBuff", path)
        assert done.returncode == 2 and b"no plain file" in done.stderr, done


@pytest.mark.long
def test_queries_go_to_the_given_server_only(box):
    document = ozuctl.ask(box, "call", "call", "NgetHostByName", "host", "1", "127.0.0.1", "16")
    assert document["outputs"] == {"ipOut": ""} and document["lines"][-1]["level"] == 70000
    document = ozuctl.ask(box, "call", "call", "nslookup_ares", "host", "lo", "127.0.0.1", "")
    assert document["result"] == -1 and document["outputs"] == {"result": ""}


@pytest.mark.long
def test_what_changes_a_panel(box):
    for function in ("request_CP_reboot_from", "clear_ring_buffer"):
        assert tool("call", function).returncode == 5
    with box.capture() as bus:
        assert ozuctl.ask(box, "call", "call", "request_CP_reboot_from")["result"] is None
        assert bus.wait_for(topic="Process/MDL").hex == "0f010000000000"
    document = ozuctl.ask(box, "call", "call", "clear_ring_buffer")  # the kernel refuses it in a box
    assert document["result"] == 0 and document["lines"]
    assert ozuctl.ask(box, "call", "call", "get_ring_buffer_size")["result"] >= 0


@pytest.mark.parametrize("words, told", [
    ([], "FUNCTION is required"), (["nothing"], "no function 'nothing'"), (["ozuutils_strlcp", "a", "1"], "did you mean 'ozuutils_strlcpy'?"),
    (["ozuutils_strlcpy", "a"], "takes 2 arguments (src text or null, size 0..65536), not 1"),
    (["ozuutils_strlcpy", "a", "1", "2"], "not 3"), (["ozuutils_strlcpy", "a", "65537"], "0 to 65536"),
    (["ozuutils_strlcpy", "a", "18446744073709551616"], "0 to 65536"), (["_RTC_is_synched", "1"], "takes 0 arguments, not 1"),
    (["ozuutils_Ascii2Digit", "ab"], "one character"), (["ozuutils_Ascii2Digit", ""], "one character"),
    (["swap_ptr32", "0102"], "4 to 4 bytes, not 2"), (["swap_ptr32", "0g"], "hexadecimal"),
    (["ozuutils_searchInBuf", "00", ""], "1 to 65536 bytes"), (["ozuutils_num2hexstr", "18446744073709551616", "1"], "18446744073709551615"),
    (["ozuutils_num2hexstr", "0x", "1"], "18446744073709551615"), (["ozuutils_num2hexstr", "+1", "1"], "18446744073709551615"),
    (["ozuutils_replaceSubstrInStr", "a-b", "-", "x" * 20, "16"], "bufSize must hold the text before and after, 23 bytes, not 16"),
    (["ozuutils_replaceSubstrInStr", "a" * 20, "-", "x", "16"], "21 bytes, not 16"),
    (["ozuutils_Ascii2String", "01", "2"], "src must have 2 * n characters, 4, not 2"),
    (["WaitForUnsentData", "3601"], "3600"),
])
def test_what_is_refused(words, told):
    done = tool("call", "--", *words)
    assert done.returncode == 2 and told in done.stderr.decode() and done.stdout == b"", done
    failure = json.loads(tool("--json", "call", "--", *words).stdout)
    jsonschema.validate(failure, ozuctl.schema("failure"))


BOUNDS = {"text": [b"", b"x" * 70000, b"\xff\xfe\x80", b"%s%n%d", b",,,", b"\x1b[31m\n", b"0" * 65535],
          "bytes": [b"", b"ff" * 4, b"00" * 65535, b"ff" * 65535]}


def worst(word):
    """Arguments at the bounds of a parameter's type."""
    _, kind, *_ = word.split()
    if ".." in kind:
        low, high = kind.split("..")
        return [low.encode(), high.encode(), b"0", b"1"]
    return [b"x", b"\xff"] if kind == "character" else BOUNDS[kind]


@pytest.mark.long
def test_no_argument_ends_the_tool(rows):
    blocking = {"NgetHostByName", "nslookup_ares", "WaitForUnsentData", "clear_ring_buffer", "request_CP_reboot_from"}
    for row in rows:
        if not row["command"].startswith("call ") or row["function"] in blocking:
            continue
        choices = [worst(word) for word in row["arguments"].split(", ") if word]
        for turn in range(max((len(choice) for choice in choices), default=0)):
            words = [choice[(turn + place) % len(choice)] for place, choice in enumerate(choices)]
            done = subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), "--json", "call", "--", row["function"], *words],
                                  capture_output=True, stdin=subprocess.DEVNULL, timeout=120)
            assert done.returncode in (0, 2), (row["function"], [word[:40] for word in words], done.returncode, done.stderr[:400])
            json.loads(done.stdout)
