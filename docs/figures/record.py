#!/usr/bin/python3
"""Records what the pictures show, from real runs: docs/figures/record.py [NAME...]

    monitor   a terminal with ozuctl monitor, while a panel is armed and a door opens     monitor.json
    start     the platform calls of a process's start and end, in order                   start.json
    reboot    what happens on a panel during a coordinated reboot, by ozuctl monitor      reboot.json
    box       the mounts of a panel box, by the kernel                                    box.json
    demo      when each scene of ./demo happened                                          demo.json

All of them run in a panel box or against the fake platform, and need the build build/dev.
docs/figures/draw.py draws the pictures from the files.
"""

import ctypes
import json
import os
import pathlib
import re
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
BUILD = ROOT / os.environ.get("OZU_TEST_BUILD", "build/dev")


def boxes():
    sys.path.insert(0, str(ROOT / "testkit"))
    os.environ.setdefault("OZU_TEST_BUILD", "build/dev")
    from pytest_ozu.box import PanelBox
    return PanelBox


def ozuctl(box, *words):
    return box.run([BUILD / "bin/ozuctl", "--yes", *words], check=True).stdout


def waits(box, *words):
    ozuctl(box, "wait-for", *words, "--for", "20")


def monitor():
    lines = []
    with boxes()() as box:
        ozuctl(box, "state", "set", "devices[1].deviceType=W3", "devices[1].active=1", "devices[1].tableIndex=1")
        core = box.popen([BUILD / "bin/alarm_core"], stderr=subprocess.DEVNULL)
        waits(box, "log", "alarm core is up", "--since", "1m")
        shown = box.popen([BUILD / "bin/ozuctl", "monitor", "--times", "relative"], stdout=subprocess.PIPE, text=True)
        time.sleep(1.5)  # time for a reader, not for the machine
        ozuctl(box, "publish", "Process/ALARM_CORE", "00", "--label", "KEYPAD", "--class", "1", "--command", "0")
        waits(box, "state", "partitions[0].partitionState=ARMED_2")
        time.sleep(1.2)
        ozuctl(box, "state", "set", "devices[1].openState=1")
        waits(box, "state", "partitions[0].partitionState=ALARM")
        time.sleep(1)
        shown.terminate()
        lines = shown.communicate(timeout=20)[0].splitlines()
        core.terminate()
        core.wait(20)
    return {"command": "ozuctl monitor --times relative", "lines": lines}


class Entry(ctypes.Structure):
    """OzuFakeEntry, as far as it is needed."""
    _fields_ = [("function", ctypes.c_char_p), ("arguments", ctypes.c_char_p), ("result", ctypes.c_int)]


def start():
    """In a process of its own: the fake platform's functions come before the real ones."""
    if "LD_PRELOAD" not in os.environ:
        preload = {**os.environ, "LD_PRELOAD": str(BUILD / "lib/libozu_fake_platform.so")}
        code = "import record, json; print(json.dumps(record.start()))"
        return json.loads(subprocess.run([sys.executable, "-c", code], env=preload, cwd=HERE, check=True,
                                         capture_output=True, text=True).stdout)
    fake = ctypes.CDLL(None)
    library = ctypes.CDLL(str(BUILD / "lib/libutils_ozu.so.0"))
    fake.ozu_fake_entry.restype = ctypes.POINTER(Entry)
    fake.ozu_fake_entry.argtypes = [ctypes.c_size_t]
    fake.ozu_fake_count.restype = ctypes.c_size_t
    rows = []

    def call(name, *arguments):
        before = fake.ozu_fake_count()
        result = getattr(library, name)(*arguments)
        shown = ", ".join("null" if one is None else f'"{one.decode()}"' for one in arguments)
        rows.append({"call": f"{name}({shown})", "platform": [
            {"function": entry.function.decode(), "arguments": entry.arguments.decode().replace(str(os.getpid()), "getpid()"), "result": entry.result}
            for entry in (fake.ozu_fake_entry(index)[0] for index in range(before, fake.ozu_fake_count()))],
            "result": result})

    fake.ozu_fake_reset()
    call("ozuutils_processInit", b"ALARM_CORE", None)
    library.cleanup.restype = None
    call("cleanup")
    return rows


def reboot():
    """The bus and the record as the monitor shows them, the log as it was written: the monitor ends with the panel."""
    kept = ROOT / "build/reboot.jsonl"
    with boxes()() as panel, kept.open("w") as stream:
        ozuctl(panel, "state", "set", "powerManagerMode=1", "safetyEvents[0].deviceType=SMOKE", "safetyEvents[0].startTime=now")
        siren = panel.popen([BUILD / "bin/safety_siren"], stderr=subprocess.DEVNULL)  # publishes every second
        waits(panel, "bus", "Process/ALL", "--label", "SAFETY_SIREN")
        shown = panel.popen([BUILD / "bin/ozuctl", "--json", "monitor", "--no-log"], stdout=stream)
        time.sleep(1)  # time for the monitor's first look
        caller = panel.popen([BUILD / "bin/ozuctl", "--yes", "reboot", "--delay", "1", "--reason", "17", "--wait", "20",
                              "--text", "firmware update"], stderr=subprocess.DEVNULL)
        waits(panel, "bus", "Process/ALL", "--label", "LTE")
        panel.broker.pause()
        broker = panel.popen(["sh", "-c", "sleep 4; box-broker resume"])
        requests = panel.wait_for_reboot(timeout=60)
        for one in (shown, caller, siren, broker):
            one.wait(30)
        logs = [path.read_text() for path in sorted((panel.platform / "log").glob("OZUCTL*.log"))]
    rows = [json.loads(line) for line in kept.read_text().splitlines() if line.startswith("{") and line.endswith("}")]
    kept.unlink()
    rows = [{"time": row["time"], "kind": "bus", "what": row["topic"], "meaning": row["meaning"]["message"]}
            if row["kind"] == "bus" else
            {"time": row["time"], "kind": "state", "what": row["field"], "meaning": f"{row['old']} -> {row['new']}"}
            for row in rows if (row["kind"] == "bus" and "REBOOT" in str(row.get("meaning"))) or
            (row["kind"] == "state" and row["field"].startswith("modemStatistics"))]
    lines = [line.split(" ", 6) for line in "".join(logs).splitlines() if "ozuctl" in line.lower()]
    rows += [{"time": line[0], "kind": "log", "what": line[1], "meaning": line[-1].strip()} for line in lines]
    return {"rows": sorted(rows, key=lambda row: row["time"]), "requests": requests}


def box():
    """What differs from the machine; its own folders, read-only, are left out, and so are the kernel's."""
    with boxes()() as panel:
        lines = panel.run(["cat", "/proc/self/mountinfo"], check=True).stdout.splitlines()
        state = str(panel.state)
    rows = []
    for line in lines:
        before, after = line.split(" - ")
        fields, kind = before.split(), after.split()[0]
        at, root = (text.replace(state, "STATE").replace(str(ROOT), "PROJECT") for text in (fields[4], fields[3]))
        if at != root and at != "/" and not at.startswith(("/sys/", "/panel-box", "/dev/")) and not re.search(r"PROJECT|\\0", at) \
                and (not at.startswith("/proc/") or root.startswith("STATE")):
            rows.append({"at": at, "from": re.sub(r"^/(?=$)", kind, root), "writable": fields[5].split(",")[0] == "rw"})
    return sorted({row["at"]: row for row in rows}.values(), key=lambda row: row["at"])


def demo():
    script = (ROOT / "demo").read_text().replace('source "$(dirname "$0")/', 'source "./')
    script = re.sub(r"^configure_and_build .*$", "", script, flags=re.M).replace("$PWD/build/release", str(BUILD))
    done = subprocess.run(["bash", "-c", script, "demo"], capture_output=True, text=True, cwd=ROOT)
    assert done.returncode == 0, done.stdout[-2000:] + done.stderr
    scenes = []
    for part in re.split(r"^== ", done.stdout, flags=re.M)[1:]:
        heading, *lines = part.splitlines()
        found = [re.match(r"\s+\| (\d+):(\d+):([\d.]+)Z (\w+)\s+(.*)", line) for line in lines]
        scenes.append({"heading": heading, "lines": [
            {"at": int(one[1]) * 3600 + int(one[2]) * 60 + float(one[3]), "kind": one[4], "text": one[5]}
            for one in found if one]})
    last = re.search(r"^(\d+) answers, (\d+) wrong, ([\d.]+) s$", done.stdout, re.M)
    return {"scenes": scenes, "answers": int(last[1]), "seconds": float(last[3])}


KINDS = {"monitor": monitor, "start": start, "reboot": reboot, "box": box, "demo": demo}


def main():
    names = sys.argv[1:] or list(KINDS)
    if any(name not in KINDS for name in names):
        sys.exit(__doc__)
    for name in names:
        (HERE / f"{name}.json").write_text(json.dumps(KINDS[name](), indent=1, ensure_ascii=False) + "\n")
        print(f"docs/figures/{name}.json")


if __name__ == "__main__":
    main()
