"""The shared object as the loader and an attacker see it, and what it may keep in memory."""

import json
import re

import tree
from tree import library  # noqa: F401 (fixture)

NEEDED_ALWAYS = {"libc.so.6", "libozu_platform.so.0"}
NEEDED_AT_MOST = NEEDED_ALWAYS | {"libcares.so.2", "libcrypto.so.3", "libjpeg.so.62"}


def dynamic(path):
    return tree.run("readelf", "-dW", path)


def test_name(library):  # noqa: F811
    assert re.search(r"\(SONAME\).*\[libutils_ozu\.so\.0\]", dynamic(library))


def test_needs_only_the_permitted_libraries(library):  # noqa: F811
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", dynamic(library)))
    assert NEEDED_ALWAYS <= needed <= NEEDED_AT_MOST


def test_takes_nothing_from_the_cpp_run_time(library):  # noqa: F811
    undefined = [line.split()[-1] for line in tree.run("nm", "-D", "--undefined-only", library).splitlines()]
    allowed = {"__cxa_finalize", "__cxa_atexit"}  # of the C library
    wrong = [name for name in undefined
             if name.split("@")[0] not in allowed and name.startswith(("_Z", "__cxa", "__gxx", "_Unwind"))]
    assert not wrong


def test_has_no_constructors_of_ours(library):  # noqa: F811
    """Nor thread-local data. The compiler's start files bring one entry of their own."""
    sections = tree.run("readelf", "-SW", library)
    arrays = re.findall(r"\.init_array +INIT_ARRAY +[0-9a-f]+ [0-9a-f]+ ([0-9a-f]+)", sections)
    assert [int(size, 16) for size in arrays] in ([4], [8])
    for path in objects():
        found = re.findall(r"\] (\S+)", tree.run("readelf", "-SW", path))
        costly = [name for name in found if re.match(r"\.(preinit_array|init_array|ctors|tdata|tbss)", name)]
        assert not costly, path.name


def test_is_hardened(library):  # noqa: F811
    segments = tree.run("readelf", "-lW", library)
    assert "GNU_RELRO" in segments
    stack = re.search(r"GNU_STACK.*", segments).group(0)
    assert " RW " in stack and "E" not in stack.split()[6]
    assert not re.search(r"LOAD.* RWE ", segments)
    flags = dynamic(library)
    assert "BIND_NOW" in flags
    assert re.search(r"\(FLAGS_1\).*NOW", flags)
    assert "TEXTREL" not in flags


def test_reaches_the_platform_and_libc_through_the_dynamic_linker(library):  # noqa: F811
    undefined = {line.split()[-1].split("@")[0]
                 for line in tree.run("nm", "-D", "--undefined-only", library).splitlines()}
    platform = {"mqttc_connect", "mqttc_disconnect", "ozudb_getSharedMemory", "ozulog_printf_extend"}
    assert platform | {"time"} <= undefined


def objects():
    """The library's object files of this build."""
    commands = json.loads((tree.BUILD / "compile_commands.json").read_text())
    outputs = [re.search(r" -o (\S+)", command["command"]).group(1) for command in commands]
    return [tree.BUILD / output for output in outputs if "/utils_ozu_objects.dir/" in output]


def writable_data():
    """(symbol, file) of everything our sources keep in writable memory."""
    found = set()
    for path in objects():
        for line in tree.run("objdump", "-t", "--demangle", path).splitlines():
            match = re.match(r"[0-9a-f]+ .{7} (\S+)\t[0-9a-f]+ +(?:\.hidden )?(.+)", line)
            if not match or match.group(1) == match.group(2):
                continue
            section, name = match.groups()
            if re.match(r"\.(data|bss|tdata|tbss)(?!\.rel\.ro)|\*COM\*", section):
                found.add((re.sub(r"\(anonymous namespace\)::", "", name), path.name.removesuffix(".o")))
    return found


def test_keeps_no_state_but_what_is_listed():
    lines = (tree.ROOT / "tests/abi/writable_data.txt").read_text().splitlines()
    listed = {tuple(line.split(": ", 1)[::-1]) for line in lines if line and not line.startswith("#")}
    found = writable_data()
    assert found - listed == set(), "new writable data: is it wanted? Then add it to tests/abi/writable_data.txt"
    assert listed - found == set(), "gone: take it out of tests/abi/writable_data.txt"


def test_conversions_use_neither_heap_nor_log():
    texts = [path for path in objects() if path.parent.name == "text"]
    assert len(texts) >= 7
    forbidden = re.compile(r"(malloc|calloc|realloc|reallocarray|free|aligned_alloc|posix_memalign|memalign|valloc|strn?dup"
                           r"|v?asprintf|getline|open_memstream|_Zn[aw].*|_Zd[al].*"
                           r"|ozulog.*|ozudb.*|ozumqttc.*|mqttc.*|LOG_.*|limited_.*|MESSENGER.*)")
    for path in texts:
        names = {line.split()[-1] for line in tree.run("nm", "--undefined-only", path).splitlines()}
        assert not [name for name in names if forbidden.fullmatch(name)], path.name


def test_conversions_share_one_table_each(library):  # noqa: F811
    symbols = [line.split() for line in tree.run("readelf", "-sW", library).splitlines()]
    for table, size in (("kHexPairs", 2 * 256), ("kDecimalPairs", 2 * 100), ("kDigitValues", 256),
                        ("kHexHighValues", 2 * 256), ("kHexLowValues", 2 * 256)):
        assert [int(fields[2]) for fields in symbols if len(fields) == 8 and table in fields[7]] == [size], table
