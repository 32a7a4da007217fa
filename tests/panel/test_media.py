"""Pictures and country codes, on a panel: ozuctl in a box."""

import json
import os
import pathlib

import pytest

import ozuctl as tool
from pytest_ozu.box import PanelBox
from pytest_ozu.build import emulator

PICTURES = pathlib.Path(__file__).resolve().parents[1] / "fuzz" / "corpus" / "picture"


@pytest.fixture(scope="module")
def panel():
    with PanelBox(broker=False) as box:
        yield box


def ozuctl(box, *arguments):
    return box.run(box.program("ozuctl", *arguments))


def country_file(box, content):
    folder = box.data / "ozu" / "etc"
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "countries_codes.csv").write_bytes(content)


def countries(box, *names):
    done = ozuctl(box, "--json", "country", "--", *names)
    rows = json.loads(done.stdout)
    tool.validate("country", rows)
    return done.returncode, [(row["found"], row["alpha2"], row["alpha3"], row["numeric"]) for row in rows]


def pictures(box, *files, status):
    rows = tool.ask(box, "jpeg", "jpeg", *files, status=status)
    assert [row["file"] for row in rows] == [str(file) for file in files]
    return [(row["verdict"], row["size"], row["components"], row["reason"]) for row in rows]


@pytest.mark.long
def test_pictures_with_verdict_size_and_reason(panel):
    for name in ("baseline", "progressive", "cut", "nothing"):
        (panel.tmp / name).write_bytes((PICTURES / name).read_bytes())
    assert pictures(panel, "/tmp/baseline", "/tmp/progressive", status=0) == [("valid", "16x16", 3, None)] * 2
    assert pictures(panel, "/tmp/baseline", "/tmp/cut", "/tmp/nothing", status=1) == [
        ("valid", "16x16", 3, None), ("damaged", "16x16", 3, "Premature end of JPEG file"),
        ("damaged", None, None, "Empty input file")]
    (panel.tmp / "text").write_text("GIF89a")
    assert pictures(panel, "/tmp/text", status=1) == [
        ("damaged", None, None, "Not a JPEG file: starts with 0x47 0x49")]
    assert ozuctl(panel, "jpeg", "/tmp/none").returncode == 1
    assert ozuctl(panel, "jpeg").returncode == 2


def test_countries_without_a_file(panel):
    assert countries(panel, "spain", " United Kingdom\n") == (0, [(True, "ES", "ESP", "724"), (True, "GB", "GBR", "826")])
    assert countries(panel, "Peru", "Atlantis", "") == (
        1, [(True, "PE", "PER", "604"), (False, "ES", "ESP", "724"), (False, "ES", "ESP", "724")])


def test_countries_of_the_panels_file(panel):
    country_file(panel, b"# names\r\n\"Great Britain,UK\",GB,GBR,826\r\nFrance,FX,FXX,32\r\n")
    assert countries(panel, "Great Britain,UK", "GreatBritain", "france", "italy") == (
        0, [(True, "GB", "GBR", "826")] * 2 + [(True, "FX", "FXX", "032"), (True, "IT", "ITA", "380")])
    assert countries(panel, "UK")[0] == 1


def test_country_file_that_is_a_folder_or_large(panel):
    country_file(panel, b"x" * 5_000_000 + b"\nUtopia,UT,UTO,7\n")
    assert countries(panel, "Utopia") == (0, [(True, "UT", "UTO", "007")])
    file = panel.data / "ozu" / "etc" / "countries_codes.csv"
    file.unlink()
    file.mkdir()
    assert countries(panel, "France") == (0, [(True, "FR", "FRA", "250")])
    file.rmdir()
    file.symlink_to("missing")
    assert countries(panel, "France") == (0, [(True, "FR", "FRA", "250")])
    file.unlink()


def test_country_file_of_a_hundred_megabytes(panel):
    country_file(panel, b"Utopia,UT,UTO,7\n")
    file = panel.data / "ozu" / "etc" / "countries_codes.csv"
    os.truncate(file, 100_000_000)
    with file.open("ab") as end:
        end.write(b"\nAtlantis,AT,ATL,8\n")
    assert countries(panel, "Utopia", "Atlantis", "France") == (
        0, [(True, "UT", "UTO", "007"), (True, "AT", "ATL", "008"), (True, "FR", "FRA", "250")])
    file.unlink()


def test_picture_larger_than_the_address_space_left(panel):
    picture = bytearray((PICTURES / "baseline").read_bytes())
    frame = picture.index(b"\xff\xc0")
    picture[frame + 5:frame + 9] = (32768).to_bytes(2, "big") + (43691).to_bytes(2, "big")
    (panel.tmp / "bomb").write_bytes(picture)
    # An emulator needs the address space itself; on the 32-bit panel the size fits none anyway.
    limit = "" if emulator() else "ulimit -v 262144; "
    done = panel.run(["sh", "-c", limit + 'exec "$@"', "sh", *panel.program("ozuctl", "jpeg", "/tmp/bomb")])
    assert done.returncode == 1 and "no memory for an image of this size" in done.stdout
