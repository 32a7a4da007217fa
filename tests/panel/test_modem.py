"""Modem versions from the real version file, codes of a SIM."""

import pytest

from ozuctl import ask, run


@pytest.fixture(scope="module")
def box(shared_box):
    return shared_box


@pytest.mark.long
def test_version_file(box):
    run(box, "modem", "version", status=1)
    file = box.run_folder / "version"
    file.write_text("25.30.226-A0F.123456-B7\nsecond line\n")
    assert ask(box, "modem-version", "modem", "version") == {"version": "25.30.226-A0F.123456-B7"}
    assert ask(box, "modem-app", "modem", "app")["application"] == "123456"
    assert ask(box, "modem-beta", "modem", "beta")["beta"] == "7"
    file.write_text("")
    run(box, "modem", "version", status=1)
    file.unlink()
    file.mkdir()
    run(box, "modem", "version", status=1)
    file.rmdir()


def test_version_texts(box):
    assert ask(box, "modem-app", "modem", "app", "A0F.12345 ", status=1)["application"] is None
    assert ask(box, "modem-app", "modem", "app", "A0F.1234", "--digits", 4)["application"] == "1234"
    assert ask(box, "modem-beta", "modem", "beta", "A0F.1-B07", "--digits", 2)["beta"] == "07"
    assert ask(box, "modem-beta", "modem", "beta", "A0F.1-Bx", status=1)["beta"] is None


def test_power(box):
    run(box, "state", "set", "cBankModeActive=0")
    assert ask(box, "modem-awake", "modem", "awake", 4) == {"psm": 4, "awake": True}
    assert ask(box, "modem-awake", "modem", "awake", 2, status=1)["awake"] is False
    run(box, "state", "set", "cBankModeActive=1")
    assert ask(box, "modem-awake", "modem", "awake", 0, status=1)["awake"] is False


def test_imsi(box):
    assert ask(box, "imsi", "imsi", "310590123456789") == {"mcc": "310", "mnc": "590", "mncLength": 3}
    assert ask(box, "imsi", "imsi", "310591123456789") == {"mcc": "310", "mnc": "59", "mncLength": 2}
    assert "Unknown MCC code 999" in run(box, "imsi", "999011", ).stderr
    run(box, "imsi", "31059", status=2)
