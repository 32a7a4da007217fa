"""The pytest plugin: fixtures, options, artefacts of failed tests, feature files."""

import argparse
import os
import pathlib
import re
import subprocess
import types

import pytest

from .box import PanelBox
from .build import PANEL_BOX, obstacle
from .panel import Panel

KEPT = pytest.StashKey()
FAILED = pytest.StashKey()


def pytest_addoption(parser):
    group = parser.getgroup("ozu", "panels under test")
    group.addoption("--ozu-artefacts", metavar="DIR", default="ozu-artefacts", help="where failed tests leave timeline, logs and state")
    group.addoption("--ozu-keep", action="store_true", help="keep these of tests that pass, too")
    group.addoption("--ozu-programs", metavar="DIR", type=folder, action="append", default=[],
                    help="folder of programs under test; may be given again")
    group.addoption("--ozu-features", action="store_true", help="collect feature files as tests")
    group.addoption("--ozu-shard", metavar="I/N", type=shard, help="every N-th test only, beginning with the I-th")


def folder(text):
    if not os.path.isdir(text):
        raise argparse.ArgumentTypeError(f"there is no folder '{text}'")
    return text


def shard(text):
    match = re.fullmatch(r"([1-9]\d*)/([1-9]\d*)", text)
    if not match or int(match[1]) > int(match[2]):
        raise ValueError(text)
    return int(match[1]), int(match[2])


def pytest_configure(config):
    config.addinivalue_line("markers", "shared: uses a panel that other such tests have used; sets what it reads")
    config.addinivalue_line("markers", "process(program, *arguments): a process that the fixture `panel` starts; may be given again")
    folders = [str(pathlib.Path(folder).absolute()) for folder in config.getoption("--ozu-programs")]
    if folders:
        os.environ["OZU_PROGRAMS"] = ":".join(folders)
    if config.pluginmanager.hasplugin("pytest-bdd") or config.pluginmanager.hasplugin("pytest_bdd.plugin"):
        from . import steps
        config.pluginmanager.register(steps, "pytest_ozu.steps")


def pytest_collection_modifyitems(config, items):
    """A shard: every N-th in the order of names, the same on every machine."""
    if config.getoption("--ozu-shard"):
        number, of = config.getoption("--ozu-shard")
        mine = {item.nodeid for item in sorted(items, key=lambda item: item.nodeid)[number - 1::of]}
        config.hook.pytest_deselected(items=[item for item in items if item.nodeid not in mine])
        items[:] = [item for item in items if item.nodeid in mine]


# --- feature files ---


class FeatureFile(pytest.Module):
    """A feature file as if it were a module with one test for each scenario."""

    def _getobj(self):
        module = types.ModuleType(re.sub(r"\W", "_", self.path.stem))
        module.__file__ = str(self.path)
        code = "from pytest_bdd import scenarios\nscenarios(__file__)\ndel scenarios\n"
        try:
            exec(compile(code, str(self.path), "exec"), module.__dict__)  # scenarios() writes into its caller's names
        except Exception as error:
            if type(error).__name__ != "NoScenariosFound":
                raise
        return module


def pytest_collect_file(file_path, parent):
    if file_path.suffix == ".feature" and parent.config.getoption("--ozu-features"):
        return FeatureFile.from_parent(parent, path=file_path)
    return None


# --- what is left of a test ---


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    report = outcome.get_result()
    if report.when in ("setup", "call") and report.failed:
        item.stash[FAILED] = True
        step = getattr(item, "_ozu_step", None)
        if step and call.excinfo.type.__name__ in ("NotSeen", "StepDefinitionNotFoundError"):
            report.longrepr = f"{call.excinfo.value}\n\n{item.path.name}:{step.line_number}: {step.keyword} {step.name}"
    if report.when == "teardown" and item.stash.get(KEPT, None):
        report.sections.append(("kept of the panel", "\n".join(item.stash[KEPT])))


def keep(request, panels):
    """Puts what tells about a test into its own folder of the artefacts."""
    config = request.config
    if not (request.node.stash.get(FAILED, False) or config.getoption("--ozu-keep")):
        return
    folder = pathlib.Path(config.getoption("--ozu-artefacts")).absolute() / re.sub(r"[^\w.-]+", "_", request.node.nodeid)[-150:]
    for number, panel in enumerate(panels, 1):
        place = folder if len(panels) == 1 else folder / str(number)
        panel.timeline.look()
        panel.keep(place)
        request.node.stash.setdefault(KEPT, []).append(str(place))
        print(f"\nkept: {place}")


# --- fixtures ---


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


@pytest.fixture
def make_panel(request, make_box):
    """Boots panels: make_panel(cmdline="..."), with a recording each."""
    panels = []

    def make(**options):
        panels.append(Panel(make_box(**options)))
        return panels[-1]

    yield make
    keep(request, panels)
    for one in panels:
        one.end()


@pytest.fixture(scope="session")
def shared_panel(boxes_are_possible):
    with PanelBox() as box:
        found = Panel(box)
        yield found
        found.end()


@pytest.fixture
def panel(request):
    """A booted panel with the processes that the marks `process` name."""
    shared = request.node.get_closest_marker("shared")
    found = request.getfixturevalue("shared_panel").renew() if shared else request.getfixturevalue("make_panel")()
    for mark in reversed(list(request.node.iter_markers("process"))):
        found.start(*mark.args)
    yield found
    if shared:
        keep(request, [found])


@pytest.fixture
def bus(panel):
    """Messages of the panel: publish, wait_for, never."""
    return panel.bus


@pytest.fixture
def state(panel):
    """The shared record: get, set, ask, wait_for."""
    return panel.state


@pytest.fixture
def log(panel):
    """Log lines: wait_for, never."""
    return panel.log


@pytest.fixture
def events(panel):
    """System events: wait_for, never."""
    return panel.events


@pytest.fixture
def clock(panel):
    """The time of the panel's processes: now, advance, set, run_at."""
    return panel.clock


@pytest.fixture
def dns(panel):
    """The DNS server that the panel asks: behave, queries, wait_for_query."""
    return panel.dns


@pytest.fixture
def faults(panel):
    """Faults of the panel, each undone at the end of the test at the latest."""
    return panel.faults
