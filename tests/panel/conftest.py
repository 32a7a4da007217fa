import pathlib
import subprocess
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import box as boxes  # noqa: E402
from panel_process import PanelProcess  # noqa: E402

_obstacle = boxes.obstacle()


def pytest_collection_modifyitems(items):
    if _obstacle is None:
        return
    for item in items:
        item.add_marker(pytest.mark.skip(reason=_obstacle))


@pytest.fixture(scope="session", autouse=True)
def no_folders_of_killed_boxes():
    """What an earlier run left behind when it was killed."""
    subprocess.run([boxes.PANEL_BOX, "sweep"], check=True, timeout=120)


@pytest.fixture(scope="session")
def build_dir():
    """Folder of the build under test."""
    path = boxes.build_dir()
    assert path.is_dir(), f"{path} does not exist; build it first: cmake --preset dev && cmake --build --preset dev"
    return path


@pytest.fixture
def box():
    """A freshly booted panel."""
    with boxes.PanelBox() as panel:
        yield panel


@pytest.fixture
def ordinary_user():
    """The number of a user without rights who can reach this tree."""
    user = 65534
    why = boxes.obstacle_of_user(user)
    if why:
        pytest.skip(why)
    return user


@pytest.fixture
def make_box():
    """Boots panels with options: make_box(cmdline="..."), all ended with the test."""
    made = []

    def make(*arguments, **options):
        panel = boxes.PanelBox(*arguments, **options)
        made.append(panel)
        return panel.start()

    yield make
    for panel in made:
        panel.stop()


@pytest.fixture
def start():
    """start(box, name): a panel process, ended with the test."""
    started = []

    def begin(box, name="TEST_PROCESS"):
        started.append(PanelProcess(box, name))
        return started[-1]

    yield begin
    for process in started:
        if not process.process.stdin.closed:
            process.end()
