"""Every call of the library that can fail does fail in the injection test."""

import re

import tree

# Folders with sources; a room of headers only is compiled into the others.
ROOMS = sorted({path.parent.name for path in (tree.ROOT / "src").glob("*/*.cpp")})
OBJECTS = tree.BUILD / "src/CMakeFiles/utils_ozu_objects.dir"
INJECTION = tree.ROOT / "tests/unit/injection"

CANNOT_FAIL = {
    "computes or copies": """difftime inet_addr inet_ntoa inet_ntop inet_pton memchr memcmp memcpy mempcpy memmem
        memmove memset snprintf sscanf strchr strchrnul strcmp strlen strncmp strncpy strnlen strptime strstr
        strtok_r strtol strtoll tolower toupper ares_strerror""",
    "tells what is there": "dirfd sysconf errno_location h_errno_location getenv getpid strerror program_invocation_short_name time",
    "ends, frees or tells nobody": """abort _exit free perror printf tzset ares_cancel ares_destroy ares_library_cleanup
        ares_process_fd ares_set_local_dev ares_timeout mqttc_disconnect EVP_CIPHER_CTX_free EVP_CIPHER_CTX_reset
        OPENSSL_cleanse longjmp setjmp""",
    "answers, whatever the ciphers were asked": """ERR_pop_to_mark ERR_set_mark EVP_CIPHER_CTX_is_encrypting EVP_aes_128_cbc EVP_aes_128_ecb
        EVP_aes_192_cbc EVP_aes_256_cbc rand""",
    "fails by the decoder's hooks, which a damaged image and the validator's own test bring about": """
        jpeg_CreateDecompress jpeg_destroy_decompress jpeg_finish_decompress jpeg_mem_src jpeg_read_header
        jpeg_read_scanlines jpeg_start_decompress jpeg_std_error""",
    "does not fail for the names it is given": "putenv unsetenv",
    "runs in the child, where only the program's end shows": "dup2 execvp fcntl",
    "its result is not looked at": "ozulog_printf ozulog_printf_extend ozulog_printf_mqtt_transmission",
    "starts a lookup, which fails as the answer does": "ares_gethostbyname",
    "answers, whatever it is asked": "getProductCodename ozudb_isTagReader ozudb_isRfInput ozudb_isRfDetector",
    "writes to a stream, which fails as the stream does": "fprintf",
    "of the compiler and its tools": "stack_chk_fail popcountdi2",
}


def plain(name):
    """The function as it is written: without what versions, fortified builds and the C library make of it."""
    name = name.split("@")[0].replace("__getdelim", "getline")
    for change in (r"^__isoc\d+_", r"_chk$", r"^_{1,2}(?!exit)", r"64(_\w+)?$"):
        name = re.sub(change, "", name)
    return name


def called():
    """Functions that the rooms' objects want of others, with a room that wants them."""
    own, wanted = set(), {}
    for room in ROOMS:
        objects = sorted((OBJECTS / room).glob("*.o"))
        assert objects, f"build the target utils_ozu first: {OBJECTS / room}"
        for line in tree.run("nm", *objects).splitlines():
            kind, _, name = line.strip().rpartition(" ")
            if kind.endswith("U"):
                wanted.setdefault(name, room)
            elif kind:
                own.add(name)
    skipped = re.compile(r"_Z|_GLOBAL_OFFSET_TABLE_|__(a|t|ub)san|__gcov|__sanitizer|__aeabi|__gnu")
    return {plain(name): room for name, room in wanted.items() if name not in own and not skipped.match(name)}


def test_every_call_that_can_fail_is_injected():
    """The injection test itself sees to it that each of its failures is reached."""
    injected = re.findall(r'\{"(\w+)",\s*(?:k[A-Z]|\{)', (INJECTION / "injection.cpp").read_text())
    assert len(injected) > 40
    harmless = {name for names in CANNOT_FAIL.values() for name in names.split()}
    assert not harmless & set(injected)
    unknown = {name: room for name, room in called().items() if name not in harmless and name not in injected}
    assert not unknown, "neither harmless nor failing in tests/unit/injection"
