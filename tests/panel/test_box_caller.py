"""What a box has of its caller: the folder he is in, a few variables, nothing else."""

import os
import pathlib
import shutil
import subprocess
import tempfile

import pytest

import pytest_ozu.box as boxes
from pytest_ozu.build import PANEL_BOX

# About the box alone: whoever changes it runs `./test long`.
pytestmark = pytest.mark.long

USER = 65534


@pytest.fixture
def open_folder():
    """A folder that every user may enter; its name holds a space."""
    path = pathlib.Path(tempfile.mkdtemp(prefix="of a caller "))
    path.chmod(0o755)
    yield path
    shutil.rmtree(path)


def run(*command, cwd, env=None, user=None, options=("--no-broker",), box=PANEL_BOX, status=0):
    start = boxes.as_user(user) if user is not None else []
    done = subprocess.run([*start, box, "run", *options, "--", *command], cwd=cwd, capture_output=True, text=True, timeout=120,
                          env={**os.environ, **(env or {})}, stdin=subprocess.DEVNULL)
    assert done.returncode == status, done.stderr
    return done


def program_in(folder):
    path = folder / "hello"
    path.write_text("#!/bin/sh\necho hello from $(pwd)\n")
    path.chmod(0o755)
    return path


def test_program_of_the_callers_folder_starts(open_folder):
    program_in(open_folder)
    assert run("./hello", cwd=open_folder).stdout == f"hello from {open_folder}\n"
    assert run(str(open_folder / "hello"), cwd=open_folder).stdout == f"hello from {open_folder}\n"


@pytest.mark.parametrize("parent", ["/tmp", "/var/tmp", "/root", "/mnt", "/opt", "/srv", "/home", "/dev/shm"])
def test_folder_is_there_wherever_it_lies(parent):
    if not os.access(parent, os.W_OK):
        pytest.skip(f"{parent} cannot be written to")
    folder = pathlib.Path(tempfile.mkdtemp(prefix="caller ", dir=parent))
    try:
        program_in(folder)
        assert run("sh", "-c", "./hello && touch made", cwd=folder).stdout == \
            f"hello from {str(folder).replace('/var/tmp', '/tmp')}\n"
        assert (folder / "made").exists()
    finally:
        shutil.rmtree(folder)


def test_folder_of_somebody_else_can_only_be_read(open_folder):
    if os.getuid() != 0:
        pytest.skip("only root can give a folder away")
    program_in(open_folder)
    os.chown(open_folder, USER, USER)
    assert run("sh", "-c", "./hello; touch made || echo refused", cwd=open_folder).stdout.endswith("refused\n")
    assert not (open_folder / "made").exists()


@pytest.mark.parametrize("folder", ["/usr", "/usr/bin", "/usr/local", "/var/lib/dpkg", "/boot", "/lib"])
def test_folders_of_the_machine_can_only_be_read(folder):
    if not os.path.isdir(folder):
        pytest.skip(f"there is no {folder}")
    path = pathlib.Path(folder).resolve() / "box-was-here"
    run("touch", path, cwd=folder, status=1)
    assert not path.exists()


@pytest.mark.parametrize("folder", ["/tmp", "/run", "/var", "/etc", "/proc", "/dev", "/var/lib", "/"])
def test_folders_that_a_panel_has_itself_stay_its_own(folder, tmp_path):
    marks = [pathlib.Path(folder) / "box-was-here", pathlib.Path("/tmp/box-was-here")]
    done = run("sh", "-c", "pwd; touch /tmp/box-was-here box-was-here 2>/dev/null; true", cwd=folder)
    assert done.stdout.strip() == folder
    assert not any(mark.exists() for mark in marks)


def test_running_box_is_entered_in_the_callers_folder(make_box, open_folder, tmp_path):
    program_in(open_folder)
    box = make_box(broker=False, folder=open_folder)
    assert box.run(["./hello"]).stdout == f"hello from {open_folder}\n"
    done = box.run(["pwd"], cwd=tmp_path)
    assert done.stdout == "/\n" and str(tmp_path) in done.stderr


# --- variables ---

HOSTILE = {"LD_PRELOAD": "/nowhere.so", "LD_LIBRARY_PATH": "/nowhere", "LD_AUDIT": "/nowhere.so", "LOCALDOMAIN": "bad.test",
           "RES_OPTIONS": "ndots:9", "HOSTALIASES": "/nowhere", "OZU_TEST_BUILD": "x", "OZU_TEST_EMULATOR": "x",
           "OZU_TEST_OTHER": "x", "OZU_PLATFORM_DIR": "/nowhere", "BASH_ENV": "/nowhere", "ENV": "/nowhere", "PS1": "x",
           "PROMPT_COMMAND": "x", "CDPATH": "/nowhere", "IFS": "x", "PYTHONPATH": "/nowhere", "TZ": "Asia/Tokyo",
           "MALLOC_PERTURB_": "1", "GCONV_PATH": "/nowhere", "HOME": "/nowhere", "SHELLOPTS": "braceexpand", "EDITOR": "x",
           "BASH_FUNC_ls%%": "() { echo caught; }", "SSH_AUTH_SOCK": "x", "http_proxy": "x", "XDG_RUNTIME_DIR": "/nowhere"}
HARMLESS = {"TERM": "vt100", "LANG": "C.UTF-8", "LC_TIME": "C", "NO_COLOR": "1", "COLORTERM": "truecolor"}
OWN = {"PATH", "HOME", "USER", "LOGNAME", "TMPDIR", "PANEL_BOX", "TZDIR", "PWD"}


def variables(text):
    return dict(line.split("=", 1) for line in text.splitlines())


def check_variables(found):
    assert set(found) <= OWN | set(HARMLESS) | {name for name in found if name == "LANGUAGE" or name.startswith("LC_")}
    assert found["HOME"] == "/root" and {name: found[name] for name in HARMLESS} == HARMLESS


def test_only_listed_variables_come_along(make_box):
    hostile = {name: value for name, value in HOSTILE.items() if name not in ("LD_PRELOAD", "LD_AUDIT")}
    check_variables(variables(run("env", cwd="/", env={**hostile, **HARMLESS}).stdout))
    box = make_box(broker=False)
    done = subprocess.run(box._enter(["env"]), env={**os.environ, **hostile, **HARMLESS}, capture_output=True, text=True)
    check_variables(variables(done.stdout))


@pytest.mark.parametrize("name", ["LD_PRELOAD", "LD_AUDIT"])
def test_loader_of_the_box_is_told_nothing(name, tmp_path):
    found = variables(run("env", cwd=tmp_path, env={name: "/nowhere.so"}).stdout)
    assert name not in found
    assert not list(tmp_path.iterdir())  # what the caller's own loader says was no name of a folder


def test_variables_that_are_set_arrive_everywhere(make_box):
    value = "two\nlines and 'quotes' \""
    box = make_box(broker=False, env={"GREETING": value, "LC_ALL": "C"})
    assert box.run(["printenv", "GREETING"]).stdout == value + "\n"
    assert box.run(["printenv", "GREETING"], env={"GREETING": "other"}).stdout == "other\n"


@pytest.mark.parametrize("word", ["noequals", "=x", "1a=b", "a b=c"])
def test_variable_that_is_none_is_refused(word):
    done = run("true", cwd="/", options=("--setenv", word), status=2)
    assert word in done.stderr


# --- the tree the box comes from ---

@pytest.fixture
def copied_box(open_folder):
    """The box's programs alone, in a folder whose name holds a space, for every user to run."""
    shutil.copytree(PANEL_BOX.parent, open_folder / "tools" / "box", symlinks=True)
    subprocess.run(["chmod", "-R", "a+rX", open_folder], check=True)
    return open_folder / "tools" / "box" / "panel-box"


@pytest.mark.parametrize("user", [None, USER])
def test_read_only_tree_with_a_space_in_its_path(copied_box, user):
    if user is not None and os.getuid() != 0:
        pytest.skip("runs as an ordinary user already")
    subprocess.run(["chmod", "-R", "a-w", copied_box.parents[2]], check=True)
    folder = copied_box.parents[2]
    try:
        assert run("id", "-u", cwd=folder, user=user, box=copied_box).stdout == "0\n"
        done = run("sh", "-c", f"cd '{folder}' && ls tools/box && ! touch new", cwd="/", user=user, box=copied_box)
        assert "panel-box" in done.stdout
    finally:
        subprocess.run(["chmod", "-R", "u+w", folder], check=True)


def test_ordinary_user_has_his_folder_and_a_broker(copied_box):
    if os.getuid() != 0:
        pytest.skip("runs as an ordinary user already")
    mine = copied_box.parents[2] / "mine"
    mine.mkdir()
    os.chown(mine, USER, USER)
    script = "mosquitto_pub -t a -m b -q 1 && ip link add eth0 type veth peer name far && touch made && ! touch /usr/made"
    run("sh", "-c", script, cwd=mine, user=USER, box=copied_box, options=())
    assert (mine / "made").stat().st_uid == USER
