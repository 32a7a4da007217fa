"""Processes of two releases on one panel: the later one is refused the record, and told what to do."""

import re

from pytest_ozu.waiting import wait_until

ADVICE = re.compile(r"shared segment (\S+) has layout version 7, this process needs version 1: "
                    r"stop all panel processes, remove (\S+) and start processes of one release")


def test_process_of_another_release_is_refused(box, start):
    first = start(box, "FIRST")
    assert first.ask("init") == 0
    (own,) = re.findall(r"ozu-v1-\w+", box.run(["ls", "/dev/shm"], check=True).stdout)
    # As if the running processes were of a release with another layout.
    other = f"/dev/shm/{own.replace('-v1-', '-v7-')}"
    box.run(["mv", f"/dev/shm/{own}", other], check=True)

    second = start(box, "SECOND")
    second.ask("init")
    wait_until(lambda: second.logged("layout version"), what="the refusal")
    ((level, text),) = second.logged("has layout version 7")
    assert level == 80000 and ADVICE.search(text).groups() == (other, other)
    status = box.run(box.program("ozuctl", "status"))
    assert status.returncode == 3 and ADVICE.search(status.stderr), status

    # The first one's panel is as it was.
    assert first.ask("publish Process/ALL 1") == 0
    wait_until(lambda: first.ask("inflight") == 0, what="the acknowledgement")

    # What the message says helps.
    assert first.end() == second.end() == 0
    box.run(["rm", other], check=True)
    assert start(box, "THIRD").ask("init") == 0
    assert box.run(box.program("ozuctl", "status")).returncode == 0
