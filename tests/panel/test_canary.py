"""Nothing that runs in a panel box reaches the machine below it. Every test that reboots relies on this."""

import os
import pathlib
import subprocess
import time

import pytest

from pytest_ozu.box import PanelBox, REBOOTED
from pytest_ozu.build import CHECKOUT as ROOT, PANEL_BOX
from pytest_ozu.waiting import wait_until

# About the box alone: whoever changes it runs `./test long`.
pytestmark = pytest.mark.long

NAMESPACES = ("user", "mnt", "net", "pid", "ipc", "uts")
NAMES = ("reboot", "halt", "poweroff", "shutdown")
FOLDERS = ("/sbin", "/usr/sbin", "/bin", "/usr/bin")
STAND_IN = (PANEL_BOX.parent / "bin" / "reboot").read_bytes()
RAW_REBOOT = ("import ctypes; libc = ctypes.CDLL(None, use_errno=True);"
              "libc.reboot({}); print('still here', ctypes.get_errno())")


def uptime():
    return float(pathlib.Path("/proc/uptime").read_text().split()[0])


@pytest.fixture(autouse=True)
def machine_stays_up():
    before = uptime()
    yield
    assert uptime() >= before


@pytest.fixture
def box():
    """A panel without a broker; nobody here talks."""
    with PanelBox(broker=False) as panel:
        yield panel


@pytest.fixture(scope="module")
def looked_at():
    """One for all tests that only look."""
    with PanelBox(broker=False) as panel:
        yield panel


@pytest.mark.parametrize("namespace", NAMESPACES)
def test_namespaces_differ_from_the_machines(looked_at, namespace):
    inside = looked_at.run(["readlink", f"/proc/1/ns/{namespace}"], check=True).stdout.strip()
    assert inside.startswith(f"{namespace}:[")
    assert inside != os.readlink(f"/proc/self/ns/{namespace}")


@pytest.mark.parametrize("name", NAMES + ("systemctl", "telinit", "init", "kexec"))
def test_every_program_of_a_rebooting_name_is_the_stand_in(looked_at, name):
    box = looked_at
    listing = box.run(["bash", "-c", f"type -a -P {name}"]).stdout.split()
    absolute = [f"{folder}/{name}" for folder in FOLDERS]
    found = [path for path in listing + absolute if box.run(["test", "-e", path]).returncode == 0]
    assert found and found[0] == f"/panel-box/bin/{name}"
    for path in found:
        assert box.run(["cat", path], text=False).stdout == STAND_IN, path


@pytest.mark.parametrize("name", NAMES)
def test_reboot_by_path_variable_ends_only_the_box(box, name):
    box.run([name])
    assert box.wait_for_reboot() == [name]


@pytest.mark.parametrize("path", [f"{folder}/{name}" for folder in FOLDERS for name in NAMES
                                  if os.path.exists(f"{folder}/{name}")])
def test_reboot_by_absolute_path_ends_only_the_box(box, path):
    box.run([path])
    assert box.wait_for_reboot() == [os.path.basename(path)]


@pytest.mark.parametrize("command, requests", [("sync; reboot", ["reboot"]), ("reboot -idf", ["reboot -idf"])])
def test_commands_of_the_coordinated_reboot_end_only_the_box(box, command, requests):
    box.run(["/usr/bin/python3", "-c", f"import os; os.system({command!r})"])
    assert box.wait_for_reboot() == requests


def test_reboot_is_found_without_a_path_variable(box):
    box.run(["env", "-i", "/bin/sh", "-c", "reboot -f"])
    if os.path.exists("/sbin/reboot"):
        assert box.wait_for_reboot() == ["reboot -f"]
    else:
        assert box.running


@pytest.mark.parametrize("code, kind", [("0x01234567", "restart"), ("0x4321fedc", "halt")])
def test_bare_system_call_ends_only_the_box(box, code, kind):
    done = box.run(["/usr/bin/python3", "-c", RAW_REBOOT.format(code)])
    assert "still here" not in done.stdout
    assert box.wait_for_reboot() == [f"kernel {kind}"]


def test_reboot_tells_itself_by_the_exit_status():
    assert subprocess.run([PANEL_BOX, "run", "--no-broker", "--", "reboot"], timeout=30).returncode == REBOOTED
    for status in (0, 1, 77):
        command = [PANEL_BOX, "run", "--no-broker", "--", "sh", "-c", f"exit {status}"]
        assert subprocess.run(command, timeout=30).returncode == status


def test_ignored_reboots_are_noted(make_box):
    box = make_box(broker=False, reboot="ignore")
    box.run(["reboot"], check=True)
    box.run(["reboot", "-idf"], check=True)
    assert box.running
    assert box.reboots == ["reboot", "reboot -idf"]


def test_forced_mode_waits_for_force(make_box):
    box = make_box(broker=False, reboot="forced")
    box.run(["reboot"], check=True)
    time.sleep(0.1)
    assert box.running
    box.run(["reboot", "-idf"])
    assert box.wait_for_reboot() == ["reboot", "reboot -idf"]


def test_kernel_log_cannot_be_cleared(looked_at):
    done = looked_at.run(["/usr/bin/python3", "-c",
                    "import ctypes; l = ctypes.CDLL(None, use_errno=True); print(l.klogctl(5, None, 0))"])
    assert done.stdout.strip() == "-1"


def test_machine_is_read_only(make_box):
    box = make_box(broker=False, folder="/")
    for path in ("/usr/bin/box-was-here", "/sys/box-was-here", str(PANEL_BOX.parents[2] / "box-was-here")):
        done = box.run(["touch", path])
        assert done.returncode != 0 and not os.path.exists(path)


def test_network_is_the_boxs_own(box):
    def machine():
        return [subprocess.run(["ip", what], capture_output=True, text=True).stdout for what in ("link", "route")]

    before = machine()
    assert box.run(["ls", "/sys/class/net"], check=True).stdout.split() == ["lo"]
    script = ("ip link add eth0 type veth peer name far && ip addr add 198.51.100.2/24 dev eth0 && "
              "ip link set eth0 up && ip route add default via 198.51.100.1 && ip route")
    assert "default via 198.51.100.1" in box.run(["sh", "-c", script], check=True).stdout
    assert machine() == before


def test_folders_outlive_a_reboot_and_the_rest_does_not(tmp_path):
    box = PanelBox(tmp_path / "panel", cmdline="first")
    with box:
        assert box.boots == 1
        script = "echo kept | tee /data/a /customapps/b /var/lib/ozu/c; echo gone | tee /run/d /tmp/e /dev/shm/f"
        box.run(["sh", "-c", script], check=True)
        box.run(["reboot"])
        box.wait_for_reboot()
        box.start()
        assert box.boots == 2
        assert box.run(["cat", "/data/a", "/customapps/b", "/var/lib/ozu/c"], check=True).stdout == "kept\n" * 3
        for path in ("/run/d", "/tmp/e", "/dev/shm/f"):
            assert box.run(["test", "-e", path]).returncode == 1
        assert box.run(["cat", "/proc/cmdline"]).stdout == "first\n"
        box.cmdline = b"second"
        assert box.run(["cat", "/proc/cmdline"]).stdout == "second"


def test_nothing_of_a_box_is_left(tmp_path):
    with PanelBox(tmp_path / "panel") as box:
        script = "(setsid sleep 1000 & setsid setsid sleep 1000 &) </dev/null >/dev/null 2>&1"
        box.run(["sh", "-c", script], check=True)
        namespace = box.run(["readlink", "/proc/self/ns/pid"], check=True).stdout.strip()
        assert members(namespace)
    assert not members(namespace)


def test_box_ends_with_the_process_that_keeps_it(tmp_path):
    script = f"import sys; sys.path.insert(0, {str(ROOT / 'testkit')!r})\n" \
             f"import os; from pytest_ozu import box; b = box.PanelBox({str(tmp_path / 'panel')!r}).start()\n" \
             "print(b.run(['readlink', '/proc/self/ns/pid']).stdout, flush=True)\nos.kill(os.getpid(), 9)"
    done = subprocess.run(["/usr/bin/python3", "-c", script], capture_output=True, text=True, timeout=30)
    namespace = done.stdout.strip()
    assert namespace.startswith("pid:[")
    wait_until(lambda: not members(namespace), what="the end of the orphaned box")


def test_one_folder_runs_one_box(tmp_path):
    with PanelBox(tmp_path / "panel", broker=False):
        command = [PANEL_BOX, "run", "--state", tmp_path / "panel", "--", "true"]
        second = subprocess.run(command, capture_output=True, text=True, timeout=30)
        assert second.returncode == 91 and "already running" in second.stderr


def test_boxes_run_side_by_side(make_box):
    panels = [make_box() for _ in range(4)]
    with panels[0].capture() as bus:
        for number, panel in enumerate(panels):
            panel.publish("who", str(number).encode())
            (panel.data / "who").write_text(str(number))
        assert [m.payload for m in bus.settle()] == [b"0"]
    assert [p.run(["cat", "/data/who"]).stdout for p in panels] == ["0", "1", "2", "3"]


def test_ordinary_user_gets_the_same_box(ordinary_user):
    with PanelBox(user=ordinary_user) as box:
        assert box.run(["id", "-u"], check=True).stdout == "0\n"
        box.publish("works")
        box.run(["sh", "-c", "ip link add eth0 type veth peer name far && touch /data/x /var/lib/ozu/y"], check=True)
        assert (box.data / "x").stat().st_uid == ordinary_user
        box.run(["sh", "-c", "sync; reboot"])
        assert box.wait_for_reboot() == ["reboot"]


def members(namespace):
    """Processes of this machine that live in a pid namespace."""
    found = []
    for entry in pathlib.Path("/proc").iterdir():
        if entry.name.isdigit():
            try:
                if os.readlink(entry / "ns" / "pid") == namespace:
                    found.append(entry.name)
            except OSError:
                continue
    return found
