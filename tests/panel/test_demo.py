"""./demo into a pipe: it ends, and with it everything that it started."""

import subprocess
import sys

import pytest

from pytest_ozu.build import CHECKOUT

# Processes that lose their parent become children of this program, so that none of them is overlooked.
WATCH = """
import ctypes, os, subprocess, sys, time
assert ctypes.CDLL(None, use_errno=True).prctl(36, 1, 0, 0, 0) == 0  # PR_SET_CHILD_SUBREAPER
done = subprocess.run(["bash", "-c", "set -o pipefail; ./demo | tail -1"], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
deadline = time.monotonic() + 20  # what ends by itself a moment later is not left behind
left = True
while left and time.monotonic() < deadline:
    try:
        while os.waitpid(-1, os.WNOHANG)[0]:
            pass
        time.sleep(0.1)
    except ChildProcessError:
        left = False
print(done.returncode, left, done.stdout.strip(), sep="\\n")
"""


@pytest.mark.long
def test_a_demo_in_a_pipe_ends_and_leaves_no_process():
    done = subprocess.run([sys.executable, "-c", WATCH], capture_output=True, text=True, cwd=CHECKOUT, timeout=1500)
    status, left, last = done.stdout.splitlines()
    assert last.split(",")[1].strip().startswith("0 wrong"), done
    assert (status, left) == ("0", "False"), done


@pytest.mark.long
def test_a_demo_whose_reader_goes_ends_too():
    watch = WATCH.replace("./demo | tail -1", "./demo | head -1").replace("set -o pipefail; ", "")
    done = subprocess.run([sys.executable, "-c", watch], capture_output=True, text=True, cwd=CHECKOUT, timeout=1500)
    assert done.stdout.splitlines()[1] == "False", done
