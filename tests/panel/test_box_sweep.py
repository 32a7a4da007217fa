"""What boxes leave behind when they are killed, and who takes it away."""

import os
import signal
import subprocess

import pytest

from pytest_ozu.build import PANEL_BOX
from pytest_ozu.waiting import wait_until


@pytest.fixture
def temporary(tmp_path):
    """The environment of a panel-box whose temporary boxes have a folder of their own."""
    return {**os.environ, "TMPDIR": str(tmp_path)}


def boxes(folder):
    return sorted(path.name for path in folder.iterdir())


def sweep(environment):
    subprocess.run([PANEL_BOX, "sweep"], env=environment, check=True, timeout=60)


def test_killed_box_is_swept_and_a_running_one_is_not(tmp_path, temporary):
    keepers = [subprocess.Popen([PANEL_BOX, "run", "--no-broker", "--", "sleep", "300"], env=temporary,
                                stdin=subprocess.DEVNULL, start_new_session=True) for _ in range(2)]
    killed, running = (wait_until(lambda: next(iter(tmp_path.glob(f"panel-box.{keeper.pid}.*/control/ready")), None), 60)
                       .parents[1] for keeper in keepers)
    keepers[0].kill()
    keepers[0].wait()
    sweep(temporary)
    assert boxes(tmp_path) == [running.name]
    assert killed.name.startswith(f"panel-box.{keepers[0].pid}.")
    keepers[1].send_signal(signal.SIGTERM)
    keepers[1].wait(30)
    assert boxes(tmp_path) == []


def test_box_in_the_background_outlives_who_started_it(tmp_path, temporary):
    folder = subprocess.run([PANEL_BOX, "start", "--no-broker"], env=temporary, check=True, timeout=120,
                            stdout=subprocess.PIPE, text=True).stdout.strip()
    sweep(temporary)
    assert os.path.exists(f"{folder}/control/ready")
    subprocess.run([PANEL_BOX, "stop", folder], check=True, timeout=60)
    wait_until(lambda: boxes(tmp_path) == [], what="the end of the box")


def test_only_folders_of_dead_processes_go(tmp_path, temporary):
    dead = subprocess.Popen(["true"])
    dead.wait()
    for name in (f"panel-box.{dead.pid}.abc", f"panel-box.{os.getpid()}.abc", "panel-box.abcdef", "panel-box.x.y"):
        (tmp_path / name / "data").mkdir(parents=True)
    (tmp_path / f"panel-box.{dead.pid}.link").symlink_to(tmp_path / "panel-box.abcdef")
    sweep(temporary)
    assert boxes(tmp_path) == sorted([f"panel-box.{os.getpid()}.abc", f"panel-box.{dead.pid}.link", "panel-box.abcdef",
                                      "panel-box.x.y"])
    assert (tmp_path / "panel-box.abcdef" / "data").is_dir()


def test_next_temporary_box_sweeps(tmp_path, temporary):
    dead = subprocess.Popen(["true"])
    dead.wait()
    (tmp_path / f"panel-box.{dead.pid}.abc").mkdir()
    subprocess.run([PANEL_BOX, "run", "--no-broker", "--", "true"], env=temporary, check=True, timeout=120)
    assert boxes(tmp_path) == []


def test_sweeps_at_a_time_share_the_work(tmp_path, temporary):
    dead = subprocess.Popen(["true"])
    dead.wait()
    names = [str(tmp_path / f"panel-box.{dead.pid}.{number}") for number in range(10)]
    for name in names:
        for number in range(100):
            os.makedirs(f"{name}/data/{number}/deeper")
    sweeps = [subprocess.Popen([PANEL_BOX, "sweep"], env=temporary, stdout=subprocess.PIPE, text=True) for _ in range(4)]
    said = [run.communicate(timeout=120)[0] for run in sweeps]
    assert [run.returncode for run in sweeps] == [0] * 4
    assert sorted("".join(said).splitlines()) == sorted(names)
    assert boxes(tmp_path) == []
