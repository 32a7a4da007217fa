import pathlib
import sys

import pytest

from pytest_ozu import box as boxes
from pytest_ozu.build import build_dir as build_folder, obstacle

sys.path.insert(0, str(pathlib.Path(__file__).parent))

from panel_process import PanelProcess  # noqa: E402

_obstacle = obstacle()


def pytest_collection_modifyitems(items):
    if _obstacle is None:
        return
    for item in items:
        item.add_marker(pytest.mark.skip(reason=_obstacle))


@pytest.fixture(scope="session")
def build_dir():
    """Folder of the build under test."""
    path = build_folder()
    assert path.is_dir(), f"{path} does not exist; build it first: cmake --preset dev && cmake --build --preset dev"
    return path


@pytest.fixture
def ordinary_user():
    """The number of a user without rights who can reach this tree."""
    user = 65534
    why = boxes.obstacle_of_user(user)
    if why:
        pytest.skip(why)
    return user


@pytest.fixture(scope="module")
def shared_box(boxes_are_possible):
    """One box for the tests of a file that set all they ask for and leave the rest as it was."""
    with boxes.PanelBox() as box:
        yield box


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
