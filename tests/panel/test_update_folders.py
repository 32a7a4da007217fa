"""Update folders emptied for real: deep trees, symbolic links, entries that cannot be read or removed."""

import pytest

from ozuctl import ask, coded, run

VERSIONS = "versions"


@pytest.fixture
def folder(box):
    path = box.customapps / VERSIONS / "fog"
    path.mkdir(parents=True)
    return path


def remove(box, *, status=0):
    return run(box, "rsu", "remove", "FOG", status=status)


def assert_emptied(folder):
    assert folder.is_dir() and list(folder.iterdir()) == []


@pytest.mark.long
def test_folder_is_emptied_and_kept(box, folder):
    (folder / "image.bin").write_bytes(b"x" * 1000)
    (folder / "empty").mkdir()
    (folder / "ümläut \n file").write_text("")
    (folder / ".hidden").write_text("")
    other = box.customapps / VERSIONS / "pz"
    other.mkdir()
    (other / "image.bin").write_bytes(b"x")
    before = folder.stat().st_ino
    remove(box)
    assert_emptied(folder)
    assert folder.stat().st_ino == before
    assert (other / "image.bin").exists()
    remove(box)  # nothing left to do


@pytest.mark.long
def test_deep_and_wide_tree(box, folder):
    # Deeper than the walk may hold folders open.
    deep = folder
    for _ in range(200):
        deep = deep / "deeper"
        deep.mkdir()
        (deep / "image").write_text("x")
    wide = folder / "wide"
    wide.mkdir()
    for number in range(2000):
        (wide / f"{number}").write_text("")
    remove(box)
    assert_emptied(folder)


def test_links_are_removed_not_followed(box, folder):
    outside = box.customapps / "outside"
    (outside / "inner").mkdir(parents=True)
    (outside / "inner" / "kept").write_text("kept")
    (outside / "file").write_text("kept")
    (folder / "to-folder").symlink_to("/customapps/outside")
    (folder / "to-file").symlink_to("/customapps/outside/file")
    (folder / "to-itself").symlink_to("to-itself")
    (folder / "to-nowhere").symlink_to("/nowhere")
    (folder / "up").symlink_to("..")
    remove(box)
    assert_emptied(folder)
    assert (outside / "inner" / "kept").read_text() == "kept"
    assert (outside / "file").read_text() == "kept"


@pytest.mark.long
def test_folder_that_is_a_link_is_not_followed(box):
    outside = box.customapps / "outside"
    (outside / "inner").mkdir(parents=True)
    (outside / "file").write_text("kept")
    link = box.customapps / VERSIONS / "fog"
    link.parent.mkdir(exist_ok=True)
    link.symlink_to("/customapps/outside")
    remove(box)  # a success that removed nothing
    assert link.is_symlink()
    assert {entry.name for entry in outside.iterdir()} == {"inner", "file"}
    link.unlink()
    link.symlink_to("/nowhere")
    remove(box)
    assert link.is_symlink()


def test_folder_that_is_a_file_stays(box):
    path = box.customapps / VERSIONS / "fog"
    path.parent.mkdir(exist_ok=True)
    path.write_text("kept")
    remove(box)
    assert path.read_text() == "kept"


def test_missing_folder(box):
    done = remove(box, status=4)
    assert "code -1" in done.stderr
    lines = [line for line in done.stderr.splitlines() if "src/utils" in line]
    assert len(lines) == 1 and lines[0].endswith("ozuutils_removeRsuFile")


@pytest.mark.long
def test_entry_that_cannot_be_removed_ends_the_walk(box, folder):
    box.run(["mkdir", "-p", "/customapps/versions/fog/mount"], check=True)
    box.run(["mount", "-t", "tmpfs", "none", "/customapps/versions/fog/mount"], check=True)
    done = remove(box, status=4)
    assert "unlink_cb" in done.stderr
    assert "Can't delete /customapps/versions/fog//mount : error Device or resource busy" in done.stderr \
        or "Can't delete /customapps/versions/fog/mount : error Device or resource busy" in done.stderr
    box.run(["umount", "/customapps/versions/fog/mount"], check=True)
    remove(box)
    assert_emptied(folder)


# Root without the right to look into everything.
PLAIN = ["setpriv", "--bounding-set", "-dac_override,-dac_read_search", "--inh-caps", "-dac_override,-dac_read_search"]


@pytest.mark.long
def test_folder_that_cannot_be_read_keeps_its_entries(box, folder):
    (folder / "image").write_text("kept")
    folder.chmod(0)
    try:
        look = box.run([*PLAIN, "ls", "/customapps/versions/fog"])
        assert look.returncode != 0, "the folder can be read: the test would prove nothing"
        done = box.run([*PLAIN, *box.program("ozuctl", "rsu", "remove", "FOG")])
    finally:
        folder.chmod(0o700)
    assert done.returncode == 0, done.stderr
    assert (folder / "image").read_text() == "kept"


def test_unreadable_entries(box, folder):
    (folder / "file").write_text("x")
    (folder / "file").chmod(0)
    (folder / "empty").mkdir()
    (folder / "empty").chmod(0)
    full = folder / "full"
    full.mkdir()
    (full / "image").write_text("x")
    full.chmod(0)
    look = box.run([*PLAIN, "ls", "/customapps/versions/fog/full"])
    assert look.returncode != 0, "the folder can be read: the test would prove nothing"
    done = box.run([*PLAIN, *box.program("ozuctl", "rsu", "remove", "FOG")])
    assert done.returncode == 4
    assert "/full : error Directory not empty" in done.stderr
    remaining = {entry.name for entry in folder.iterdir()}
    assert "full" in remaining
    full.chmod(0o700)
    remove(box)
    assert_emptied(folder)


def test_type_without_a_name_and_types_without_a_folder(box):
    yx = box.customapps / VERSIONS / "yx"
    yx.mkdir(parents=True)
    (yx / "image").write_text("x")
    run(box, "rsu", "remove", 146)
    assert_emptied(yx)
    for word in ("UMK", "134", "nonsense"):
        run(box, "rsu", "remove", word, status=1)


@pytest.mark.long
def test_list(box, folder):
    (folder / "a").mkdir()
    (folder / "a" / "image").write_bytes(b"x" * 1234)
    (folder / "link").symlink_to("/data")
    rows = ask(box, "rsu-list", "rsu", "list")
    assert len(rows) == 15
    assert ask(box, "rsu-list", "rsu", "list", "FOG") == [{
        "type": coded(70, "FOG"), "folder": "/customapps/versions/fog/", "exists": True, "files": 2, "bytes": 1234}]


def test_needs_consent_outside_of_a_box(box):
    done = box.run(["env", "-u", "PANEL_BOX", *box.program("ozuctl", "rsu", "remove", "FOG")])
    assert done.returncode == 5 and "--yes" in done.stderr
