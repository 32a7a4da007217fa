"""Root of a box is nobody outside of it, also when root of this machine runs the box: a canary for each way out."""

import os
import pathlib
import stat
import subprocess

import pytest

from pytest_ozu.box import PanelBox

# About the box alone: whoever changes it runs `./test long`.
pytestmark = pytest.mark.long

# Writing to these changes this machine, or did where a kernel has them.
SETTINGS = ["/proc/sys/vm/swappiness", "/proc/sys/kernel/hostname", "/proc/sys/kernel/core_pattern",
            "/proc/sys/kernel/sysrq", "/proc/sys/user/max_user_namespaces", "/proc/sys/net/ipv4/ip_forward",
            "/proc/sys/fs/file-max", "/proc/sysrq-trigger", "/proc/mtrr", "/proc/irq/default_smp_affinity",
            "/proc/timer_list", "/proc/acpi/wakeup", "/proc/scsi/scsi", "/proc/pressure/memory",
            "/sys/kernel/profiling", "/sys/kernel/mm/transparent_hugepage/enabled", "/sys/power/state",
            "/sys/fs/cgroup/cgroup.procs", "/sys/fs/cgroup/memory/memory.limit_in_bytes", "/sys/fs/cgroup/cgroup.freeze",
            "/sys/class/net/lo/mtu", "/etc/../usr/box-was-here", "/usr/bin/env", "/panel-box/box/box-init",
            "/panel-box/host-etc/passwd"]
MOUNTS = ["/proc/sys", "/proc/irq", "/proc/bus", "/sys", "/usr", "/panel-box/box", "/panel-box/host-etc"]
DEVICES = ["/dev/null", "/dev/zero", "/dev/full", "/dev/random", "/dev/urandom", "/dev/tty"]
# What root of a machine mounts to get at the rest of it.
FILE_SYSTEMS = ["proc", "sysfs", "cgroup2", "cgroup -o pids", "cgroup -o memory", "debugfs", "tracefs", "securityfs",
                "devtmpfs", "bpf", "configfs", "efivarfs"]


@pytest.fixture(scope="module")
def box():
    with PanelBox(broker=False, folder="/") as panel:
        yield panel


def sh(box, script):
    return box.run(["sh", "-c", script])


@pytest.mark.parametrize("path", SETTINGS)
def test_setting_of_the_machine_cannot_be_written(box, path):
    outside = pathlib.Path(path)
    before = outside.read_bytes() if outside.is_file() and path.startswith(("/proc/sys/", "/usr")) else None
    # What was read is written back, so that a hole in the fence does no harm.
    done = sh(box, f"value=$(cat {path} 2>/dev/null) || value=0; printf %s \"$value\" 2>/dev/null >>{path}")
    assert done.returncode != 0
    assert before is None or outside.read_bytes() == before


@pytest.mark.parametrize("path", MOUNTS)
@pytest.mark.parametrize("command", ["mount -o remount,bind,rw {}", "mount -o remount,rw {}", "umount {}", "umount -l {}",
                                     "mkdir -p /x && mount --move {} /x",
                                     "unshare --user --map-root-user --mount mount -o remount,bind,rw {}",
                                     "unshare --user --map-root-user --mount umount -l {}"])
def test_mount_of_the_machine_stays(box, path, command):
    if not box.run(["test", "-e", path]).returncode == 0:
        pytest.skip(f"this kernel has no {path}")
    assert sh(box, command.format(path)).returncode != 0
    assert sh(box, f"touch {path}/box-was-here").returncode != 0


@pytest.mark.parametrize("path", ["/proc", "/proc/sys", "/sys"])
def test_bound_elsewhere_it_is_as_closed(box, path):
    done = sh(box, f"mkdir -p /y && mount --rbind {path} /y || mount --bind {path} /y; mount -o remount,bind,rw /y; "
                   "for file in /y/sys/vm/swappiness /y/vm/swappiness /y/kernel/profiling; do "
                   "[ ! -e $file ] || (cat $file >/tmp/value; cat /tmp/value >>$file) 2>/dev/null && [ -e $file ] && echo open; "
                   "done; umount -l /y")
    assert "open" not in done.stdout


@pytest.mark.parametrize("kind", FILE_SYSTEMS)
@pytest.mark.parametrize("way", ["", "unshare --cgroup ", "unshare --user --map-root-user --mount --pid --fork --cgroup "])
def test_file_system_of_the_kernel_cannot_be_mounted_anew(box, kind, way):
    assert sh(box, f"mkdir -p /z && {way}mount -t {kind} none /z").returncode != 0


@pytest.mark.parametrize("path", DEVICES)
@pytest.mark.parametrize("command", ["chmod 600", "chown 1", "touch -d 2001-01-01", "rm -f", "mount -o remount,bind,rw"])
def test_device_keeps_owner_and_rights(box, path, command):
    if not os.path.exists(path):
        pytest.skip(f"this machine has no {path}")
    before = os.stat(path)
    assert sh(box, f"{command} {path}").returncode != 0
    after = os.stat(path)
    assert (before.st_mode, before.st_uid, before.st_mtime) == (after.st_mode, after.st_uid, after.st_mtime)


def test_another_view_of_the_kernels_objects_is_read_only_for_good(box):
    sh(box, "mkdir -p /v && mount -t sysfs -o ro none /v")
    assert sh(box, "mount -o remount,bind,rw /v").returncode != 0
    assert sh(box, "echo 0 >/v/kernel/profiling").returncode != 0


def test_devices_work(box):
    assert sh(box, "echo x >/dev/null && head -c 4 /dev/zero && head -c 1 /dev/urandom >/dev/null").returncode == 0


@pytest.mark.parametrize("numbers", ["b 254 0", "b 8 0", "c 1 1", "c 1 2", "c 10 200"])
def test_device_cannot_be_made(box, numbers):
    assert sh(box, f"rm -f /tmp/device; mknod /tmp/device {numbers}").returncode != 0


def test_memory_of_the_machine_cannot_be_read(box):
    for path in ("/proc/kcore", "/proc/kmsg", "/dev/mem", "/dev/kmsg", "/dev/core"):
        assert box.run(["head", "-c", "1", path]).stdout == "", path


def test_control_groups_are_out_of_sight(box):
    assert sh(box, "ls /sys/fs/cgroup").stdout == ""
    assert sh(box, "unshare --cgroup true").returncode != 0


def test_clock_and_modules_stay(box):
    assert sh(box, "date -s @0").returncode != 0
    assert sh(box, "python3 -c 'import ctypes,sys; sys.exit(ctypes.CDLL(None).syscall(313,0,b\"\",0) == 0)'").returncode == 0


def test_own_mounts_are_the_boxs_to_make(box):
    script = "mkdir -p /own && mount -t tmpfs -o size=64k none /own && ! head -c 100k /dev/zero >/own/file && umount /own"
    assert sh(box, script).returncode == 0


def test_own_host_name_is_the_boxs(box):
    before = os.uname().nodename
    assert sh(box, "hostname elsewhere && hostname").stdout == "elsewhere\n"
    assert os.uname().nodename == before


def test_descriptors_of_the_caller_stay_outside(box, tmp_path):
    (tmp_path / "secret").write_text("secret")
    folder = os.open(tmp_path, os.O_RDONLY)
    try:
        done = subprocess.run([*box._enter(["sh", "-c", "ls /proc/self/fd; ls /proc/self/fd/9/"])], pass_fds=[folder],
                              capture_output=True, text=True, cwd="/")
        assert "secret" not in done.stdout and str(folder) not in done.stdout.split("\n")[3:]
    finally:
        os.close(folder)


def test_programs_that_enter_the_box_are_not_seen_by_it(box):
    """What enters the box for its caller still knows folders of this machine."""
    process = box.popen(["sleep", "60"])
    try:
        names = sh(box, "sleep 0.2; cat /proc/[0-9]*/comm").stdout.split()
        assert "sleep" in names and not {"nsenter", "box-exec"} & set(names)
        assert sh(box, "readlink /proc/[0-9]*/cwd").stdout.split() and "(unreachable)" not in sh(
            box, "readlink /proc/[0-9]*/cwd").stdout
    finally:
        process.kill()
        process.wait()


def test_null_device_is_still_one():
    assert stat.S_ISCHR(os.stat("/dev/null").st_mode) and stat.S_IMODE(os.stat("/dev/null").st_mode) == 0o666
