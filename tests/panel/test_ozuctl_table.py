"""Every command and option of ozuctl, found in its own help: what fits a terminal, what is refused, what is printed."""

import json
import os
import pty
import re
import subprocess

import jsonschema
import pytest

from pytest_ozu.build import CHECKOUT as ROOT, build_dir, emulator
import pytest_ozu.box as boxes
from streams import drain

SCHEMAS = ROOT / "tools" / "ozuctl" / "schema"
KEY = "00" * 16


def tool(*arguments):
    return [*emulator(), str(build_dir() / "bin" / "ozuctl"), *map(str, arguments)]


def outside(*arguments, folder, **options):
    """Runs ozuctl on this machine with a data folder that does not exist."""
    environment = {**os.environ, "OZU_PLATFORM_DIR": str(folder)}
    environment.pop("PANEL_BOX", None)
    options.setdefault("stdin", subprocess.DEVNULL)
    return subprocess.run(tool(*arguments), capture_output=True, text=True, env=environment, timeout=60, **options)


def entries(text, title):
    """What the lists of a help name whose title begins so."""
    found = []
    for listed in re.findall(rf"^{title}.*:\n((?:  .*\n)+)", text, re.M):
        heads = [re.match(r"^  (\S.*?)(?:\s{2,}.*)?$", line) for line in listed.splitlines()]
        found += [head[1] for head in heads if head]
    return found


class Command:
    def __init__(self, path, text):
        self.path, self.help = path, text
        self.below = [name for name in entries(text, "Subcommands")]
        self.positionals = [entry.split() for entry in entries(text, "Positionals")]
        self.options = [entry.split() for entry in entries(text, "Options")]


def walk(path=()):
    text = subprocess.run(tool(*path, "--help"), capture_output=True, text=True, check=True, timeout=60).stdout
    command = Command(path, text)
    found = [command]
    for name in command.below:
        if path != ("box",):  # its verbs belong to a script
            found += walk((*path, name))
    return found


@pytest.fixture(scope="module")
def commands():
    return walk()


@pytest.mark.long
def test_names_of_arguments_are_words(commands):
    """Others end the program at its start from CLI11 2.4 on, whatever it was called for."""
    wrong = [(command.path, names[0]) for command in commands for names in command.positionals
             if not re.fullmatch(r"[A-Za-z][A-Za-z_]*", names[0])]
    assert wrong == []


# What a command needs to get as far as its number: the other arguments.
GOOD = {
    "state set": ["cpPlasticVersion=1"], "publish": ["Process/NOBODY", "00"],
    "crypt encrypt": ["/tmp/in", "/tmp/out"], "video decrypt": ["/tmp/video"],
    "random number": ["1", "2"], "dialer": ["1", "1", "1"], "keyfob": ["1"], "profiles": ["1"],
    "nxp uart": ["1"], "nxp send": ["00"], "gpio": ["1", "1"], "modem awake": ["1"],
    "events add command": ["1", "1", "m"], "events add event": ["1", "1", "m"],
    "events add http": ["GET", "server", "200"], "events add socket": ["127.0.0.1", "1883"],
    "net route add": ["10.0.0.1"], "net route del": ["10.0.0.1"], "net resolve": ["host"],
    "wait-for state": ["cpPlasticVersion=1"], "wait-for bus": ["a"], "wait-for process": ["X"], "replay": ["/tmp/recording"],
    "scenario run": ["a.feature"],
    "partition words": ["1"], "exec": ["true"], "names tarn1": ["1", "1"], "names tarnplus": ["1", "1"],
}
NUMBER = re.compile(r"^(-?\d+\.\.-?\d+|N|SECONDS)$")
BAD_NUMBERS = ["", " ", "x", "1x", "0x", "--1", "1 2", "1,5", "99999999999999999999", "-99999999999999999999",
               "0x1FFFFFFFFFFFFFFFF", "1e99", "nan", "\u0661"]


def number_cases(commands):
    """Command lines with one bad number each, and the argument that it stands for."""
    for command in commands:
        path = " ".join(command.path)
        good = GOOD.get(path, [])
        for place, positional in enumerate(command.positionals):
            if len(positional) > 1 and NUMBER.match(positional[1]):
                for bad in BAD_NUMBERS + beyond(positional[1]):
                    words = [*good[:place], bad, *good[place + 1:]]
                    yield [*command.path, "--", *words], positional[0], bad
        for option in command.options:
            if NUMBER.match(option[-1]):
                name = option[0].split(",")[-1]
                for bad in BAD_NUMBERS + beyond(option[-1]):
                    yield [*command.path, f"{name}={bad}" if bad else name, *([""] if not bad else []), *good], name, bad


def beyond(kind):
    if kind == "SECONDS":
        return ["0", "-1", "inf"]
    if kind == "N":
        return []
    low, high = map(int, kind.split(".."))
    return [str(low - 1), str(high + 1), hex(high + 1)]


def test_help_fits_a_terminal(commands):
    assert len(commands) > 60
    for command in commands:
        for line in command.help.splitlines():
            assert len(line) <= 80, (command.path, line)
        assert command.help.splitlines()[0].strip(), command.path


def test_the_commands_are_listed_by_what_they_are_for(commands):
    """More than forty in one list are read by nobody."""
    groups = re.findall(r"^Subcommands .*:\n((?:  .*\n)+)", commands[0].help, re.M)
    assert len(groups) >= 5 and all(len(re.findall(r"^  \S", group, re.M)) <= 20 for group in groups)
    for name in ("status", "doctor", "completion", "call", "wait-for"):
        assert len([group for group in groups if re.search(rf"^  {name}\b", group, re.M)]) == 1, name


def test_every_argument_says_what_it_is(commands):
    for command in commands:
        text = command.help
        for entry in entries(text, "Positionals") + entries(text, "Options") + entries(text, "Subcommands"):
            described = re.search(rf"^  {re.escape(entry)}(\s{{2,}}|\n\s+)\S", text, re.M)
            assert described, (command.path, entry)


@pytest.mark.long
def test_bad_numbers_are_refused_with_the_word(commands, tmp_path):
    folder = tmp_path / "none"
    count = 0
    for words, what, bad in number_cases(commands):
        done = outside(*words, folder=folder)
        assert done.returncode == 2, (words, done)
        assert done.stdout == "" and what in done.stderr, (words, done.stderr)
        assert "number" in done.stderr or "SECONDS" in done.stderr or "required" in done.stderr, (words, done.stderr)
        count += 1
    assert count > 400
    assert not folder.exists()


@pytest.mark.parametrize("words, told", [
    (["statsu"], "'statsu'; did you mean 'status'?"), (["state", "gte"], "'gte'; did you mean 'get'?"),
    (["get"], "'ozuctl state get'"), (["state"], "get, set or watch"), ([], "needs a command"),
    (["status", "--jsno"], "did you mean '--json'?"), (["publish", "a", "--lable", "x"], "did you mean '--label'?"),
    (["ask", "IsMagnetOpne", "1"], "did you mean 'IsMagnetOpen'?"), (["ask", "isMagnetOpen", "1"], "'IsMagnetOpen'"),
    (["status", "extra"], "'extra' is one argument too many for 'ozuctl status'"),
    (["net", "resolve", "x", "--via", "raww"], "ares, raw or system"),
    (["time", "parse", "--format", "dat", "x"], "did you mean 'date'?"),
    (["monitor", "--topic", "a/#/b"], "'#' in the middle"), (["monitor", "--topic", "a+/b"], "'+' beside"),
    (["monitor", "--topic", ""], "topic is empty"), (["publish", "--yes", ""], "topic is empty"),
    (["publish", "a/#"], "wildcard"), (["publish", "$SYS/x"], "broker's own"), (["publish", "a", "0g"], "hexadecimal"),
    (["severity", "X", "DEBUGG"], "did you mean 'DEBUG'?"), (["monitor", "--for", "0"], "above 0"),
    (["state", "watch", "--for", "-1"], "above 0"), (["events", "--category", "ARMM"], "did you mean 'ARM'?"),
    (["state", "set", "partitions[0].partitionState=ARMED"], "did you mean 'ARMED_2'?"),
    (["state", "set", "partitions[99999999999999999999].forcedArm=1"], "0 to 7"),
    (["state", "set", "partitions[18446744073709551616].forcedArm=1"], "0 to 7"),
    (["state", "set", "devices[1].deviceType=W33"], "did you mean 'W3'?"),
    (["names", "device", "W33"], "did you mean 'W3'?"),
    (["net", "route", "add", "10.2.0.0/33"], "0 to 32"), (["net", "route", "add", "10.2.0.0/ 8"], "0 to 32"),
    (["statsu", "--help"], "did you mean 'status'?"), (["-h", "statsu"], "did you mean 'status'?"),
    (["help", "statsu"], "did you mean 'status'?"), (["state", "gte", "--help"], "did you mean 'get'?"),
    (["severity", "../x"], "no name of a process"), (["severity", "../x", "INFO"], "no name of a process"),
    (["--yes", "severity", "../x", "INFO"], "no name of a process"), (["severity", "../x", "--unset"], "no name of a process"),
    (["--yes", "severity", "../x", "--unset"], "no name of a process"),
    (["publish", "a\x01b"], "control"), (["publish", "a\x85b"], "control"), (["publish", "/" * 200], "200 levels"),
    (["publish", "a\ufffe"], "no character"), (["monitor", "--topic", "a\nb"], "control"),
    (["monitor", "--topic", "$share/+/a"], "group"), (["wait-for", "bus", "$share/x"], "group"),
])
def test_usage_names_what_was_meant(words, told, tmp_path):
    done = outside(*words, folder=tmp_path / "none")
    assert done.returncode == 2 and told in done.stderr, done
    failure = json.loads(outside("--json", *words, folder=tmp_path / "none").stdout)
    jsonschema.validate(failure, json.loads((SCHEMAS / "failure.json").read_text()))
    assert failure["exit"]["code"] == 2 and told in failure["message"] + (failure["hint"] or "")
    assert not (tmp_path / "none").exists()


@pytest.mark.parametrize("words, told", [
    (["state", "get", "partitons"], "did you mean 'partitions'?"),
    (["state", "set", "devices[3].openstate=1"], "did you mean 'devices[3].openState'?"),
    (["device-type", "TAGREADER"], "did you mean 'TAG READER'?"), (["partition", "find", "Main", "full"], "did you mean 'main'?"),
    (["partition", "find", "main", "ful"], "did you mean 'full'?"), (["partition", "alarm-type", "smok"], "did you mean 'smoke'?"),
    (["rsu", "list", "FOGG"], "did you mean 'FOG'?"), (["jpeg", "/none"], "no file '/none'"),
    (["crypt", "encrypt", "--key", KEY, "/none", "/tmp/out"], "no file '/none'"),
    (["video", "decrypt", "--key", KEY, "/none"], "no file '/none'"),
    (["crypt", "encrypt", "--key-file", "/none", "/none", "/tmp/out"], "no file '/none'"),
    (["net", "address", "nosuch0"], "'nosuch0'"), (["error", "4711"], "4711"),
])
def test_what_is_not_found_is_named(words, told, tmp_path):
    done = outside(*words, folder=tmp_path / "none")
    assert done.returncode == 1 and told in done.stderr and done.stdout == "", done
    assert not (tmp_path / "none").exists()


def test_unset_makes_nothing(tmp_path):
    done = outside("--yes", "severity", "X", "--unset", folder=tmp_path / "none")
    assert done.returncode == 3 and "no panel process has used" in done.stderr, done
    assert not (tmp_path / "none").exists()


@pytest.mark.parametrize("words", [["jpeg", "/tmp"], ["crypt", "encrypt", "--key", KEY, "/tmp", "/tmp/out"],
                                   ["video", "decrypt", "--key", KEY, "/tmp"],
                                   ["crypt", "encrypt", "--key-file", "/tmp", "/etc/hostname", "/tmp/out"]])
def test_a_folder_is_no_file(words, tmp_path):
    done = outside(*words, folder=tmp_path / "none")
    assert done.returncode == 4 and "Is a directory" in done.stderr, done


def test_words_for_codes(tmp_path):
    done = outside("error", "21", folder=tmp_path)
    assert done.returncode == 0 and "the broker does not answer" in done.stdout
    rows = json.loads(outside("--json", "error", folder=tmp_path).stdout)
    jsonschema.validate(rows, json.loads((SCHEMAS / "error.json").read_text()))
    exits = {row["code"] for row in rows if row["of"] == "exit status"}
    assert exits == {0, 1, 2, 3, 4, 5, 90, 91, 124}
    page = (ROOT / "docs/man/ozuctl.1.scd").read_text()
    for row in rows:
        if row["of"] == "exit status":
            assert f"*{row['code']}*" in page and row["words"] in page, row


# --- looking and changing ---

LOOKING = [["names", "device"], ["names", "tarn1", "1"], ["names", "tarnplus", "3", "4"], ["device-type", "W3"],
           ["partition", "list"], ["partition", "words", "FULL"], ["identity"], ["status"], ["state", "get"],
           ["ask"], ["ask", "IsPanelInAlarm"], ["events"], ["processes"], ["severity"], ["severity", "X"], ["uptime"],
           ["imsi", "310590123456789"], ["modem", "version"], ["rsu", "list"], ["country", "Spain"], ["net", "valid", "10.0.0.1"],
           ["net", "gateway", "x"], ["dialer", "1", "1", "1"], ["keyfob", "1"], ["profiles", "1"], ["error"],
           ["random", "bytes"], ["time", "parse", "x"], ["ps", "init"], ["monitor", "--no-bus", "--for", "0.1"],
           ["state", "watch", "--for", "0.1"], ["partition", "find", "main"], ["partition", "disarmed", "main"],
           ["log"], ["doctor"], ["settings"], ["settings", "log.files"], ["completion", "bash"],
           ["wait-for", "process", "X", "--gone"], ["call", "--list"], ["call", "_RTC_is_synched"],
           ["call", "ozuutils_isSystemTimeOk", "1"], ["call", "WaitForUnsentData", "0"], ["report"], ["draw", "/none", "-o", "/tmp/none.svg"]]
CHANGING = [["state", "set", "cpPlasticVersion=1"], ["publish", "Process/NOBODY", "00"], ["severity", "X", "DEBUG"],
            ["events", "add", "command", "1", "1", "m"], ["events", "add", "http", "GET", "s", "200"],
            ["events", "add", "socket", "127.0.0.1", "1"], ["nxp", "serial"], ["nxp", "uart", "1"], ["nxp", "send", "00"],
            ["gpio", "1", "1"], ["net", "route", "add", "10.9.8.7"], ["net", "route", "del", "10.9.8.7"],
            ["time", "zone", "UTC"], ["reboot"], ["call", "clear_ring_buffer"], ["call", "request_CP_reboot_from"], ["settings", "log.files", "3"]]


def segments():
    return sorted(name for name in os.listdir("/dev/shm") if name.startswith("ozu-"))


@pytest.mark.parametrize("words", LOOKING, ids=" ".join)
def test_looking_makes_nothing(words, tmp_path):
    folder = tmp_path / "none"
    done = outside(*words, folder=folder)
    assert done.returncode in (0, 1, 3, 4), done
    assert not folder.exists()
    assert "no panel process has used" not in done.stderr or done.returncode == 3


@pytest.mark.long
def test_looking_leaves_an_empty_folder_empty(tmp_path):
    for words in LOOKING:
        outside(*words, folder=tmp_path)
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("words", CHANGING, ids=" ".join)
def test_changing_takes_consent(words, tmp_path):
    done = outside(*words, folder=tmp_path / "none")
    assert done.returncode == 5 and "--yes" in done.stderr, done
    failure = json.loads(outside("--json", *words, folder=tmp_path / "none").stdout)
    assert failure["exit"]["code"] == 5
    assert not (tmp_path / "none").exists()


@pytest.mark.long
@pytest.mark.parametrize("answer, status", [("n", 5), ("", 5), ("yep", 5), ("y", 0), ("yes", 0)])
def test_a_terminal_is_asked(box, answer, status):
    ours, theirs = pty.openpty()
    os.write(ours, answer.encode() + b"\n")
    command = ["env", "-u", "PANEL_BOX", *box.program("ozuctl", "state", "set", "cpPlasticVersion=1")]
    done = box.run(command, stdin=theirs, stdout=subprocess.PIPE, stderr=theirs)
    os.close(theirs)
    assert done.returncode == status and "Go on? [y/N]" in drain(ours).decode()


# --- output ---

SHOWN = [["error"], ["names", "device"], ["--json", "names", "device"], ["--help"], ["--version"], ["status", "--help"],
         ["ask"], ["device-type", "W3"], ["net", "valid", "10.0.0.1"], ["random", "bytes"], ["--json", "device-type", "NONE"]]


@pytest.mark.parametrize("words", SHOWN, ids=" ".join)
def test_output_that_cannot_be_written(words, tmp_path):
    plain = outside(*words, folder=tmp_path).returncode
    for target in (">/dev/full", ">&-", "| sleep 0"):
        line = " ".join(["exec", *(f"'{word}'" for word in tool(*words))])
        if target.startswith("|"):
            reading, writing = os.pipe()
            os.close(reading)
            done = subprocess.run(tool(*words), stdout=writing, stderr=subprocess.PIPE, timeout=60)
            os.close(writing)
        else:
            done = subprocess.run(["sh", "-c", f"{line} {target}"], stderr=subprocess.PIPE, timeout=60)
        if plain == 0 or plain == 1 and words[0] == "net":
            assert done.returncode == 4, (words, target, done)
            assert b"output" in done.stderr
        else:
            assert done.returncode != 0


@pytest.mark.long
def test_streams_end_with_their_reader(box):
    box.run(box.program("ozuctl", "state", "set", "cpPlasticVersion=1"), check=True)
    for words in (["monitor"], ["--json", "monitor", "--no-bus"], ["state", "watch"], ["events", "-f"], ["log", "-f"]):
        stream = box.popen(box.program("ozuctl", *words), stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        stream.stdout.close()
        assert stream.wait(20) == 4, words
        assert b"nobody reads" in stream.stderr.read()
        stream.stderr.close()


# --- one document ---

DOCUMENTS = [  # arguments, exit status, schema
    (["publish", "Process/NOBODY", "00"], 0, "publish"), (["state", "set", "cpPlasticVersion=1"], 0, "done"),
    (["state", "get"], 0, "state"), (["state", "get", "nothing"], 1, "failure"), (["status"], 0, "status"),
    (["ask"], 0, "ask-list"), (["ask", "IsPanelInAlarm"], 1, "ask"), (["ask", "Nothing"], 2, "failure"),
    (["settings", "log.files", "3"], 0, "done"), (["settings", "log.files"], 0, "settings"), (["settings"], 0, "settings-list"),
    (["settings", "nothing"], 1, "failure"), (["log"], 0, "log"), (["wait-for", "process", "X", "--gone"], 0, "wait-for"),
    (["wait-for", "state", "cpPlasticVersion=9", "--for", "0.1"], 124, "failure"), (["doctor"], 0, "doctor"),
    (["replay", "/none"], 1, "failure"), (["call", "safe_atoi", "7"], 0, "call"), (["call", "x"], 2, "failure"),
    (["draw", "/none", "-o", "/tmp/a.svg"], 1, "failure"), (["report"], 0, "report"), (["report", "-o", "/tmp"], 4, "failure"), (["completion", "fish"], 2, "failure"),
    (["severity", "X", "DEBUG"], 0, "done"), (["severity", "X"], 0, "severity"), (["severity"], 0, "severity-list"),
    (["severity", "X", "LOUD"], 2, "failure"), (["processes"], 0, "processes"), (["events"], 0, "events"),
    (["events", "add", "command", "DISARM", "0", "m"], 2, "failure"),
    (["events", "add", "command", "SEC_CMD_DISARM", "PARTITION_FULL", "m"], 0, "done"),
    (["events", "add", "http", "GET", "s", "200"], 0, "done"), (["events", "add", "socket", "127.0.0.1", "1883"], 0, "done"),
    (["events", "add", "socket", "127.0.0.1", "9"], 1, "failure"), (["names", "device", "85"], 0, "names"),
    (["names", "device", "W3"], 0, "names"), (["names", "device", "255"], 1, "names"), (["device-type", "W3"], 0, "device-type"),
    (["device-type", "NONE"], 1, "failure"), (["partition", "list"], 0, "partition-list"),
    (["partition", "words", "PARTITION_FULL"], 0, "partition-words"), (["partition", "words", "ANNEX"], 1, "failure"),
    (["partition", "find", "main", "full"], 0, "partition-find"), (["partition", "find", "0", "full"], 0, "partition-find"),
    (["partition", "find", "main"], 1, "failure"), (["partition", "disarmed", "main"], 0, "partition-disarmed"),
    (["partition", "alarm-type", "smoke"], 0, "partition-alarm-type"), (["partition", "alarm-type", "x"], 1, "failure"),
    (["keyfob", "1"], 1, "keyfob"), (["dialer", "1", "1", "1"], 1, "dialer"), (["profiles", "1"], 1, "profiles"),
    (["gpio", "1", "1"], 0, "gpio"), (["nxp", "serial"], 0, "nxp"), (["nxp", "uart", "1"], 0, "nxp"),
    (["modem", "version"], 1, "failure"), (["modem", "app", "x"], 1, "modem-app"), (["modem", "awake", "4"], 0, "modem-awake"),
    (["imsi", "310590123456789"], 0, "imsi"), (["imsi", "3"], 2, "failure"), (["rsu", "list"], 0, "rsu-list"),
    (["rsu", "remove", "FOG"], 4, "failure"), (["uptime"], 0, "uptime"), (["ps", "nobody"], 1, "ps"),
    (["exec", "--timeout", "1", "--", "echo", "one"], 124, "exec"), (["time", "parse", "x"], 4, "failure"),
    (["time", "zone", "Nowhere"], 1, "failure"), (["net", "valid", "10.0.0.1"], 1, "net-valid"),
    (["net", "address", "nosuch0"], 1, "failure"), (["net", "gateway", "x"], 1, "failure"),
    (["net", "host-of", "scheme:///x"], 1, "failure"), (["net", "route", "add", "10.9.8.7", "--dev", "nosuch0"], 4, "failure"),
    (["net", "dns-file", "write"], 0, "net-dns-file"), (["random", "bytes"], 0, "random-bytes"),
    (["random", "number", "1", "2"], 0, "random-number"), (["random", "number", "2", "1"], 2, "failure"),
    (["db-key"], 0, "db-key"), (["db-key", "--show"], 0, "db-key"), (["country", "Nowhere"], 1, "country"),
    (["jpeg", "/etc/hostname"], 1, "jpeg"), (["jpeg", "/none"], 1, "failure"), (["error", "21"], 0, "error"),
    (["error", "4711"], 1, "error"), (["crypt", "encrypt", "--key", KEY, "/etc/hostname", "/tmp/out"], 0, "crypt"),
    (["crypt", "decrypt", "--key", KEY, "/etc/hostname", "/tmp/out2"], 4, "failure"),
    (["video", "decrypt", "--key", KEY, "/tmp/out"], 4, "failure"),
    (["video", "decrypt", "--key", KEY, "--offset", "4711", "/tmp/out"], 2, "failure"),
]


@pytest.mark.long
def test_json_is_one_document_that_is_as_promised():
    with boxes.PanelBox() as panel:
        for words, status, name in DOCUMENTS:
            done = panel.run(panel.program("ozuctl", "--json", *words))
            assert done.returncode == status, (words, done)
            schema = json.loads((SCHEMAS / f"{name}.json").read_text())
            jsonschema.Draft202012Validator(schema).validate(json.loads(done.stdout))
            text = panel.run(panel.program("ozuctl", *words))
            assert text.returncode == status, (words, text)
            assert "null" not in text.stdout and not re.search(r'[{}"]|\["', text.stdout), (words, text.stdout)


def test_every_schema_is_used():
    text = "".join(path.read_text() for path in (ROOT / "tests/panel").glob("*.py"))
    for path in SCHEMAS.glob("*.json"):
        assert f'"{path.stem}"' in text or path.stem.startswith("net-") or path.stem == "klog-find", path  # no kernel log in a box
