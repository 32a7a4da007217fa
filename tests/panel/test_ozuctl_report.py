"""ozuctl report: what the archive for support holds, and what it does not."""

import io
import json
import os
import stat
import subprocess
import tarfile

import ozuctl
import pytest
from pytest_ozu.build import build_dir, emulator

SECRETS = ["hunter2", "s3cr3tvalue", "00112233445566778899aabbccddeeff", "310590123456789", "bob:pw", "dGhlIGtleQ"]
LINES = ["2026-01-01T00:00:00.000Z 40000 N CORE[1] - - dbKey=hunter2 and more", "2026-01-01T00:00:00.000Z 40000 N CORE[1] - - token: \"s3cr3tvalue x\"",
         "2026-01-01T00:00:00.000Z 40000 N CORE[1] - - raw 00112233445566778899aabbccddeeff done", "2026-01-01T00:00:00.000Z 40000 N CORE[1] - - IMSI : 310590123456789",
         "2026-01-01T00:00:00.000Z 40000 N CORE[1] - - http://bob:pw@server/x", "2026-01-01T00:00:00.000Z 40000 N CORE[1] - - Authorization: Bearer dGhlIGtleQ",
         '2026-01-01T00:00:00.000Z 40000 N CORE[1] - - {"password":"hunter2","door":"open"}']


def outside(folder, *arguments):
    environment = {**os.environ, "OZU_PLATFORM_DIR": str(folder)}
    environment.pop("PANEL_BOX", None)
    return subprocess.run([*emulator(), str(build_dir() / "bin" / "ozuctl"), *map(str, arguments)], capture_output=True, env=environment,
                          stdin=subprocess.DEVNULL, timeout=120)


def files_of(archive):
    with tarfile.open(fileobj=io.BytesIO(archive)) as tar:
        members = tar.getmembers()
        assert all(member.isreg() and member.mode == 0o600 for member in members)
        return {member.name: tar.extractfile(member).read() for member in members}


@pytest.mark.long
def test_what_it_takes(box):
    ozuctl.run(box, "state", "set", "cpPlasticVersion=2")
    ozuctl.run(box, "severity", "CORE", "DEBUG")
    ozuctl.run(box, "events", "add", "http", "GET", "server", "200")
    listed = ozuctl.ask(box, "report", "report")
    assert listed["file"] is None
    document = ozuctl.ask(box, "report", "report", "-o", "/tmp/report.tar")
    assert document["file"] == "/tmp/report.tar"
    archive = box.run(["cat", "/tmp/report.tar"], text=False).stdout
    assert len(archive) == document["bytes"]
    files = files_of(archive)
    assert sorted(files) == sorted("ozu-report/" + row["name"] for row in document["contents"])
    assert [len(files["ozu-report/" + row["name"]]) for row in document["contents"]] == [row["bytes"] for row in document["contents"]]
    assert json.loads(files["ozu-report/state.json"])["cpPlasticVersion"] == 2
    assert {"process": "CORE", "severity": "DEBUG"} in json.loads(files["ozu-report/severities.json"])
    assert json.loads(files["ozu-report/events.json"])[-1]["text"].startswith("HTTP: Action [ GET ]")
    assert json.loads(files["ozu-report/doctor.json"])
    assert box.run(["tar", "tf", "/tmp/report.tar"]).stdout.split() == list(files)
    assert box.run(["stat", "-c", "%a", "/tmp/report.tar"]).stdout.strip() == "600"
    text = ozuctl.run(box, "report", "-o", "/tmp/again.tar").stdout.splitlines()
    assert text[0].startswith("takes doctor.json") and text[-1].startswith("/tmp/again.tar: ")
    assert any(line.startswith("leaves out the database") for line in text)


@pytest.mark.long
def test_secrets_stay_here(box):
    ozuctl.run(box, "settings", "service.token", "hunter2")
    ozuctl.run(box, "settings", "service.url", "http://bob:pw@server/")
    ozuctl.run(box, "publish", "Process/NOBODY", "00")
    box.run(["sh", "-c", "cat >>/var/lib/ozu/log/CORE.log"], input="\n".join(LINES) + "\n", check=True)
    ozuctl.run(box, "events", "add", "http", "password=hunter2", "http://bob:pw@server", "200")
    document = ozuctl.ask(box, "report", "report", "-o", "/tmp/report.tar")
    files = files_of(box.run(["cat", "/tmp/report.tar"], text=False).stdout)
    for secret in SECRETS:
        for name, content in files.items():
            assert secret.encode() not in content, (secret, name)
        assert secret not in json.dumps(document)
    log = files["ozu-report/log/CORE.log"].decode()
    assert "dbKey=<left-out> and more" in log and '"door":"open"' in log and "http://<left-out>@server/x" in log
    assert json.loads(files["ozu-report/settings.json"])["service.token"] == "<left-out>"
    passphrase = ozuctl.ask(box, "db-key", "db-key", "--show")
    assert len(passphrase) >= 16 and not any(passphrase.encode() in content for content in files.values())


def test_hostile_folders(tmp_path):
    folder = tmp_path / "log"
    folder.mkdir()
    (folder / "..\x1b[2J\nX.log").write_text("hostile name\n")
    (folder / "-rf.log").write_text("option\n")
    (folder / ("x" * 200 + ".log")).write_text("long\n")
    (folder / "BIG.log").write_bytes(b"old line\n" * 200000 + b"\xff\x1b[2J newest\n")
    (folder / "LINK.log").symlink_to("/etc/passwd")
    os.mkfifo(folder / "FIFO.log")
    (folder / "FOLDER.log").mkdir()
    (folder / "LOOP.log").symlink_to("LOOP.log")
    for number in range(100):
        (folder / f"many-{number:03}.log").write_text("x\n")
    done = outside(tmp_path, "--json", "report", "-o", tmp_path / "report.tar")
    assert done.returncode == 0, done
    document = json.loads(done.stdout)
    ozuctl.validate("report", document)
    files = files_of((tmp_path / "report.tar").read_bytes())
    names = [name for name in files if "/log/" in name]
    assert len(names) == 64 and all(name.startswith("ozu-report/log/") and len(name) < 100 for name in names)
    assert len(set(files)) == len(files) and not any("passwd" in name or "root:" in content.decode() for name, content in files.items())
    big = files["ozu-report/log/BIG.log"].decode()
    assert len(big) < 600_000 and big.startswith("old line\n") and big.endswith("\\xFF\\x1B[2J newest\n")
    assert next(row for row in document["contents"] if row["name"] == "log/BIG.log")["cut"] is True
    assert sum("no plain file" in words for words in document["leftOut"]) == 4
    assert b"\x1b" not in done.stdout and b"\x1b" not in outside(tmp_path, "report").stdout
    assert stat.S_IMODE((tmp_path / "report.tar").stat().st_mode) == 0o600


def test_a_panel_that_is_not_there(tmp_path):
    done = outside(tmp_path / "none", "--json", "report", "-o", tmp_path / "report.tar")
    assert done.returncode == 0 and not (tmp_path / "none").exists()
    files = files_of((tmp_path / "report.tar").read_bytes())
    assert "unreadable" in json.loads(files["ozu-report/settings.json"])


def test_what_is_refused(tmp_path):
    for path, told in [("no/report.tar", "No such file"), ("", "No such file"), (".", "Is a directory")]:
        done = outside(tmp_path / "none", "report", "-o", tmp_path / path if path else "")
        assert done.returncode == 4 and told in done.stderr.decode(), done
    os.symlink("/dev/full", tmp_path / "full")
    assert outside(tmp_path / "none", "report", "-o", tmp_path / "full").returncode == 4
