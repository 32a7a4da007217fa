"""What headers and pages say in numbers and names is what the sources have."""

import re

import tree


def text_of(name):
    return (tree.ROOT / name).read_text()


def declarations(folder="include"):
    """Name -> (result type, arguments) of every exported function."""
    found = {}
    for where, header in tree.public_headers():
        if where == folder:
            text = re.sub(r"/\*.*?\*/", "", text_of(f"{where}/{header}"), flags=re.S)
            for result, name, arguments in re.findall(r"OZU_API\s+([\w\s*]*?)(\w+)\(([^;]*)\)\s*OZU_NOEXCEPT", text):
                found[name] = (result, arguments)
    assert len(found) > 100
    return found


def test_page_of_the_interface_names_every_function_with_a_wide_type():
    wide = re.compile(r"\b(size_t|ssize_t|time_t|(?<!long )long(?! long))\b")
    assert wide.search("long offset") and wide.search("unsigned long size") and not wide.search("long long *out")
    functions = declarations()
    assert [name for name, (result, _) in functions.items() if wide.search(result)] == []
    rule = re.search(r"^4\. \*\*Panel widths\.\*\*(.*?)^5\.", text_of("docs/abi.md"), re.S | re.M).group(1)
    named = {name for name in re.findall(r"`(\w+)`", rule) if name in functions}
    assert named == {name for name, (_, arguments) in functions.items() if wide.search(arguments)}
    assert len(named) == 7 and "Seven functions" in rule
    assert not any("time_t" in arguments for _, arguments in functions.values())


def log_formats():
    """(function or macro, format) of every log line that the library can write, as one text of joined literals."""
    formats = []
    for path in (tree.ROOT / "src").rglob("*.cpp"):
        for call in re.findall(r"OZU_LOG\w*\((.*?)\);", path.read_text(), re.S):
            formats.append("".join(re.findall(r'"((?:[^"\\]|\\.)*)"', call)))
    return formats


def test_sample_lines_of_the_page_about_logging_are_ones_that_the_library_writes():
    samples = re.findall(r"^    \d{4}-\S+Z \d+ \w \w+\[\d+\] (\S+ \S+) (.*)$", text_of("docs/logging.md"), re.M)
    assert len(samples) >= 2
    formats = [re.compile(re.sub(r"%(?:\\\.\d+)?[sdu]", ".*", re.escape(one).replace("\\%", "%"))) for one in log_formats()]
    names = set(declarations()) | {"-"}
    for where, text in samples:
        source, function = where.split()
        assert source in ("src/utils", "src/ares_dns", "-") and function.split(":")[0] in names
        assert any(one.fullmatch(text) for one in formats), text


def test_shared_record_has_no_place_for_the_tamper_state():
    header = " ".join(text_of("include/utils_ozu/coprocessor.h").replace("\n *", " ").split())
    assert "tamper switch (request 10). The state is neither returned here nor stored in PanelSharedState." in header
    record = re.sub(r"/\*.*?\*/", "", text_of("platform/include/ozudb.h"), flags=re.S)
    assert "cpPlasticVersion" in record and not re.search("tamper", record, re.I)


def seconds(name, source):
    """A constant of milliseconds or seconds, in seconds."""
    unit, value = re.search(rf"(milliseconds|int|seconds) {name}\s*(?:\{{|= )(\d+)", text_of(source)).groups()
    return int(value) // (1000 if unit == "milliseconds" or "Milliseconds" in name else 1)


def test_blocking_times_of_start_and_end_are_the_reference_platforms():
    header = " ".join(text_of("include/utils_ozu/process.h").replace("\n *", " ").split())
    session = "platform/reference/mqtt_session.h"
    assert (f"up to {seconds('kConnectTimeout', session)} s for the connection, {seconds('kSubscribeTimeout', session)} s "
            f"for the broker's answer to the subscription, and "
            f"{seconds('kBusyMilliseconds', 'platform/reference/database_file.cpp')} s in each database call") in header
    # Leaving is given the same time once more.
    assert text_of("platform/reference/mqtt_connection.cpp").count("kDrainTimeout") == 1
    assert f"up to {seconds('kDrainTimeout', session)} s for the last acknowledgements, and up to " \
           f"{seconds('kDrainTimeout', session)} s more to disconnect from the broker" in header
    assert f"Another session of the same name adds up to {seconds('kRivalPatience', session)} s." in header


def test_patience_without_a_broker_is_the_reference_platforms():
    patience = seconds("kDefaultPatience", "platform/reference/mqtt_connection.cpp")
    for name in ("include/utils_ozu/reboot.h", "platform/include/ozudb.h"):
        words = " ".join(text_of(name).replace("\n *", " ").split())
        assert re.search(rf"bus\.patience_s \({patience} s unless set\)|bus\.patience_s, {patience} s unless set", words), name
    assert f"| `bus.patience_s` | {patience} |" in text_of("docs/platform.md")
