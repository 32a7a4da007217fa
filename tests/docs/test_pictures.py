"""The pictures show what is there now."""

import json
import os
import pathlib
import re
import subprocess
import xml.etree.ElementTree as ElementTree

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
FIGURES = ROOT / "docs/figures"
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")
DRAWN = sorted(path for path in FIGURES.glob("*.svg") if "docs/figures/draw.py" in path.read_text()[:600])


def test_every_picture_is_what_would_be_drawn_now():
    done = subprocess.run(["/usr/bin/python3", FIGURES / "draw.py", "--check"], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr


def test_a_changed_source_is_noticed(tmp_path):
    for name in ("docs/figures/draw.py", "docs/figures/picture.py", "docs/figures/record.svg", "platform/include/ozudb.h"):
        copy = tmp_path / name
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text((ROOT / name).read_text().replace("OZUDB_DIALERS 16", "OZUDB_DIALERS 17"))
    done = subprocess.run(["/usr/bin/python3", tmp_path / "docs/figures/draw.py", "--check", "record"], capture_output=True, text=True)
    assert done.returncode == 1 and "record" in done.stderr


@pytest.mark.parametrize("path", DRAWN, ids=lambda path: path.stem)
def test_picture_is_whole_and_says_how_to_make_it_again(path):
    text = path.read_text()
    assert ElementTree.fromstring(text).find("{http://www.w3.org/2000/svg}title").text
    assert re.search(r"<!-- Made by docs/figures/\w+\.py .*; content [0-9a-f]{16}\. -->", text)
    assert "prefers-color-scheme: dark" in text


def test_there_are_nine_and_each_is_on_a_page():
    assert len(DRAWN) >= 9
    pages = "".join(path.read_text() for path in [ROOT / "README.md", *ROOT.glob("docs/**/*.md")])
    assert [path.name for path in DRAWN if f"figures/{path.name})" not in pages] == []


def test_the_recorded_start_is_what_the_library_does():
    assert (BUILD / "lib/libozu_fake_platform.so").exists(), "build the target ozu_fake_platform first"
    code = "import json, record; print(json.dumps(record.start()))"
    done = subprocess.run(["/usr/bin/python3", "-c", code], cwd=FIGURES, capture_output=True, text=True, check=True)
    assert json.loads(done.stdout) == json.loads((FIGURES / "start.json").read_text())


def test_the_recorded_demo_has_the_scenes_of_the_demo():
    recorded = json.loads((FIGURES / "demo.json").read_text())
    script = (ROOT / "demo").read_text()
    assert [scene["heading"] for scene in recorded["scenes"]] == re.findall(r'^step "([^"]+)"', script, re.M)
