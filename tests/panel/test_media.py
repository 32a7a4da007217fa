"""Pictures and country codes, on a panel: ozuctl in a box."""

import json
import pathlib

import pytest

from box import PanelBox

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
    return done.returncode, [(row["found"], row["alpha2"], row["alpha3"], row["numeric"])
                             for row in json.loads(done.stdout)]


def test_pictures_with_verdict_size_and_reason(panel):
    for name in ("baseline", "progressive", "cut", "nothing"):
        (panel.tmp / name).write_bytes((PICTURES / name).read_bytes())
    done = ozuctl(panel, "--json", "jpeg", "/tmp/baseline", "/tmp/progressive")
    assert done.returncode == 0
    assert [(row["verdict"], row["size"], row["components"], row["reason"]) for row in json.loads(done.stdout)] == [
        ("valid", "16x16", 3, None)] * 2
    done = ozuctl(panel, "--json", "jpeg", "/tmp/baseline", "/tmp/cut", "/tmp/nothing")
    assert done.returncode == 1
    assert [(row["verdict"], row["size"], row["reason"]) for row in json.loads(done.stdout)] == [
        ("valid", "16x16", None), ("damaged", "16x16", "Premature end of JPEG file"),
        ("damaged", None, "Empty input file")]
    assert ozuctl(panel, "jpeg", "/tmp/none").returncode == 2
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
