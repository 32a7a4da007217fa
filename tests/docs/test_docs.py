"""The documentation is complete where that can be counted, and its links lead somewhere."""

import os
import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "docs/site"))
import model  # noqa: E402

BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")
PAGES = sorted([ROOT / "README.md", ROOT / "CONTRIBUTING.md", ROOT / "CHANGELOG.md", *ROOT.glob("docs/**/*.md")])
MANUALS = sorted(ROOT.glob("docs/man/*.scd"))


def exported_names():
    lines = (ROOT / "tests/abi/exported_names.txt").read_text().splitlines()
    return [line for line in lines if line and not line.startswith("#")]


@pytest.fixture(scope="module")
def xml(tmp_path_factory):
    """What Doxygen makes of the headers; a warning is an error of every test that asks for it."""
    return model.run_doxygen(tmp_path_factory.mktemp("doxygen"))


def test_every_exported_name_has_its_place_in_the_pages(xml):
    headers = model.read(xml)
    listed = {function.name for header in headers for function in header.functions}
    listed |= {member.findtext("name") for header in headers for member in header.others}
    assert [name for name in exported_names() if name not in listed] == []


def manual(path):
    done = subprocess.run(["scdoc"], stdin=path.open(), capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return done.stdout


@pytest.mark.parametrize("path", MANUALS, ids=lambda path: path.stem)
def test_manual_page_renders(path):
    text = manual(path)
    name, section = path.stem.rsplit(".", 1)
    assert re.search(rf'^\.TH "{re.escape(name)}" "{section}"', text, re.M)
    assert '.SH NAME' in text and '.SH SEE ALSO' in text


def test_the_three_manual_pages_are_there():
    assert [path.stem for path in MANUALS] == ["libutils_ozu.7", "ozu-platform.7", "ozuctl.1"]


def test_library_manual_names_every_function():
    text = (ROOT / "docs/man/libutils_ozu.7.scd").read_text().replace("\\_", "_")
    assert [name for name in exported_names() if not re.search(rf"\b{name}\b", text)] == []


def test_platform_manual_names_every_function():
    text = (ROOT / "docs/man/ozu-platform.7.scd").read_text().replace("\\_", "_")
    declared = set()
    for header in (ROOT / "platform/include").glob("*.h"):
        declared |= set(re.findall(r"^\w[\w\s*]*?\b(\w+)\(", re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S), re.M))
    declared = {name for name in declared if name.startswith(("ozu", "mqttc_", "LOG_", "limited_", "MESSENGER_", "getProduct"))}
    assert declared and sorted(name for name in declared if name not in text) == []


def commands(*path):
    """The commands below a command of ozuctl, from its own help."""
    done = subprocess.run([BUILD / "bin/ozuctl", *path, "--help"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    return re.findall(r"^  ([a-z][\w-]*)", done.stdout[done.stdout.find("\nSubcommands"):], re.M)


def test_tool_manual_names_every_command():
    text = re.sub(r"\\(.)", r"\1", (ROOT / "docs/man/ozuctl.1.scd").read_text())
    missing = []
    for name in commands():
        if not re.search(rf"\*{name}\b", text):
            missing.append(name)
            continue
        missing += [f"{name} {below}" for below in commands(name) if not re.search(rf"\*{name} [^*]*\b{below}\b", text)]
    assert missing == []


def test_tool_manual_is_the_tools_own_help():
    done = subprocess.run(["/usr/bin/python3", ROOT / "scripts/manual_commands.py", "--check", BUILD / "bin/ozuctl"],
                          capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr


@pytest.mark.parametrize("path", PAGES, ids=lambda path: str(path.relative_to(ROOT)))
def test_links_lead_somewhere(path):
    text = re.sub(r"```.*?```", "", path.read_text(), flags=re.S)
    for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", text) + re.findall(r'(?:src|href)="([^"#]+)"', text):
        if not re.match(r"[a-z]+:", target):
            assert (path.parent / target).exists(), f"{path.name} links to {target}"


@pytest.mark.parametrize("path", sorted(ROOT.glob("docs/**/*.svg")), ids=lambda path: path.name)
def test_pictures_are_whole(path):
    assert ElementTree.parse(path).getroot().tag.endswith("svg")


def test_the_page_shows_what_the_demo_still_asks():
    text = (ROOT / "docs/demo.md").read_text()
    transcript = re.search(r"<!-- transcript: ./demo -->\n```text\n(.*?)```", text, re.S)[1]
    script = (ROOT / "demo").read_text()
    asked = re.findall(r'^check "([^"]+)"', script, re.M)
    headings = re.findall(r'^step "([^"]+)"', script, re.M)
    assert set(re.findall(r"^== (.*)", transcript, re.M)) <= set(headings)
    table = transcript[transcript.index("\nasked "):]
    rows = [row[:52].rstrip() for row in table.splitlines() if row.endswith(" ok")]
    assert rows == asked[:len(rows)] and len(rows) > 5
    assert re.search(r"^\d+ answers, 0 wrong", table, re.M)
