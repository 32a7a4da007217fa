"""Tests of this tree use the test kit of this tree."""

import pathlib
import shutil
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "testkit"))
pytest_plugins = ["pytest_ozu.plugin"]


@pytest.hookimpl(trylast=True)
def pytest_sessionfinish(session, exitstatus):
    """Removes what the tests wrote unless one failed: pytest keeps that of three runs, and it may be memory."""
    written = session.config._tmp_path_factory._basetemp
    if exitstatus == pytest.ExitCode.OK and written is not None and not hasattr(session.config, "workerinput"):
        shutil.rmtree(written, ignore_errors=True)
