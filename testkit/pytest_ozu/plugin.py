"""The pytest plugin: fixtures, options, artefacts of failed tests."""

import subprocess

import pytest

from .box import PanelBox
from .build import PANEL_BOX, obstacle


@pytest.fixture(scope="session")
def boxes_are_possible():
    """Skips where they are not, with the reason; takes away what an earlier run left behind when it was killed."""
    why = obstacle()
    if why:
        pytest.skip(why)
    subprocess.run([PANEL_BOX, "sweep"], check=True, timeout=120, stdout=subprocess.DEVNULL)


@pytest.fixture
def box(make_box):
    """A freshly booted box."""
    return make_box()


@pytest.fixture
def make_box(boxes_are_possible):
    """Boots boxes with options: make_box(cmdline="..."), all ended with the test."""
    made = []

    def make(*arguments, **options):
        made.append(PanelBox(*arguments, **options))
        return made[-1].start()

    yield make
    for one in made:
        one.stop()
