"""Tests of this tree use the test kit of this tree."""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "testkit"))
pytest_plugins = ["pytest_ozu.plugin"]
