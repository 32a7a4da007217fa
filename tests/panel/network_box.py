"""The probe program, through which the network tests call the library's functions in a box."""

import json
import pathlib
import subprocess

# What the DNS servers of pytest_ozu answer, byte by byte.
CASES = f"cases:{pathlib.Path(__file__).resolve().with_name('dns_replies.py')}"


def probe(box, command, *arguments, timeout=60, env=None):
    """Calls one function through network_probe: a dictionary with result, outputs, log and times."""
    return start_probe(box, command, *arguments, env=env)(timeout)


def start_probe(box, command, *arguments, env=None):
    """Starts such a call; what comes back waits for its end."""
    process = box.popen(box.program("network_probe", command, *arguments), env=env, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)

    def finish(timeout=60):
        output, _ = process.communicate(timeout=timeout)
        assert process.returncode == 0, f"network_probe {command} gave {process.returncode}"
        answer = json.loads(output)
        assert answer["descriptors"] == 0, "descriptors left open"
        return answer

    return finish


def lines(answer, level=None, function=None):
    """The texts of the log lines of an answer."""
    return [entry["text"] for entry in answer["log"]
            if (level is None or entry["level"] == level) and (function is None or entry["function"] == function)]
