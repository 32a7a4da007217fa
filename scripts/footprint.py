"""What the library costs a panel process: size, needs, relocations, memory, start-up. Prints it; fails over a limit.

usage: footprint.py [--junit FILE] BUILD

BUILD is a build folder, e.g. build/armhf or build/release. Limits: tests/abi/footprint.json. What can be counted is
held against them (sizes, symbols, sections, pages, instructions); times are only reported.
"""

import argparse
import json
import os
import pathlib
import re
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
LIMITS = json.loads((ROOT / "tests/abi/footprint.json").read_text())
REPETITIONS = 40
PAGE = 4096


def run(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, capture_output=True, text=True, **options).stdout


def page_up(address):
    return (address + PAGE - 1) // PAGE * PAGE


class Machine:
    """How to compile for and run on the machine that a build folder is for."""

    def __init__(self, build):
        self.build = build
        cache = (build / "CMakeCache.txt").read_text()
        self.arm = "toolchain-armhf" in cache
        self.prefix = "arm-linux-gnueabihf-" if self.arm else ""
        self.sysroot = ROOT / "build/sysroot-armhf" if self.arm else None

    def compile(self, *arguments):
        sysroot = [f"--sysroot={self.sysroot}"] if self.arm else []
        run(f"{self.prefix}gcc", "-O2", "-I", ROOT / "include", "-I", ROOT / "platform/include", *sysroot, *arguments)

    def command(self, program, library_path):
        if self.arm:
            emulator = shutil.which("qemu-arm-static") or shutil.which("qemu-arm")
            return [emulator, "-L", str(self.sysroot), "-E", f"LD_LIBRARY_PATH={library_path}", str(program)]
        return ["env", f"LD_LIBRARY_PATH={library_path}", str(program)]


class Elf:
    def __init__(self, path):
        self.path = path
        self.sections = {}
        for line in run("readelf", "-SW", path).splitlines():
            found = re.match(r"\s*\[\s*\d+\] (\S+)\s+\S+\s+([0-9a-f]+) [0-9a-f]+ ([0-9a-f]+)", line)
            if found:
                self.sections[found[1]] = (int(found[2], 16), int(found[3], 16))
        self.dynamic = run("readelf", "-dW", path)
        self.segments = run("readelf", "-lW", path)
        self.undefined = set(re.findall(r"UND (\w+)", run("readelf", "-W", "--dyn-syms", path)))

    def section_of(self, address):
        for name, (start, size) in self.sections.items():
            if start <= address < start + size:
                return name
        return "?"

    def relative_relocations(self):
        """Count by section of the relocations that only add the load address: pointers in data."""
        counts = {}
        for line in run("readelf", "-rW", self.path).splitlines():
            found = re.match(r"([0-9a-f]+)\s+[0-9a-f]+\s+R_\w+_RELATIVE", line)
            if found:
                name = self.section_of(int(found[1], 16))
                counts[name] = counts.get(name, 0) + 1
        return counts

    def loads(self):
        """Start, end and flags of the segments in memory."""
        pattern = r"\s+LOAD\s+\S+ (0x[0-9a-f]+) \S+ \S+ (0x[0-9a-f]+) (.{3}) "
        for start, size, flags in re.findall(pattern, self.segments):
            yield int(start, 16), int(start, 16) + int(size, 16), flags

    def room_left(self):
        """What the segments laid out for the panel's machine could still take without another page."""
        (_, front, _), (_, code, _), (data, _, _), _ = self.loads()
        return ("dynamic symbols", page_up(front) - front), ("code", (data - code) % PAGE)

    def writable_bytes(self):
        """Whole pages that a process may ever get a copy of."""
        return sum(page_up(end) - start // PAGE * PAGE for start, end, flags in self.loads() if "W" in flags)


class Report:
    def __init__(self):
        self.cases = []

    def check(self, name, value, holds, limit):
        print(f"{'ok  ' if holds else 'OVER'} {name}: {value} (limit: {limit})")
        self.cases.append((name, holds, f"{value}, limit {limit}"))

    def note(self, name, value):
        print(f"     {name}: {value}")

    def write(self, path):
        failures = sum(not holds for _, holds, _ in self.cases)
        suite = ElementTree.Element("testsuite", name="footprint", tests=str(len(self.cases)), failures=str(failures))
        for name, holds, message in self.cases:
            case = ElementTree.SubElement(suite, "testcase", classname="footprint", name=name.replace(" ", "_"))
            if not holds:
                ElementTree.SubElement(case, "failure", message=message)
        ElementTree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)

    def failed(self):
        return any(not holds for _, holds, _ in self.cases)


def rooms(machine):
    """Bytes of code, constants and variables by folder of src/, before the linker drops what is not used."""
    totals = {}
    objects = machine.build / "src/CMakeFiles/utils_ozu_objects.dir"
    for line in run("size", *sorted(objects.rglob("*.o"))).splitlines()[1:]:
        text, data, bss, _, _, path = line.split(maxsplit=5)
        room = pathlib.Path(path).relative_to(objects).parts[0]
        row = totals.setdefault(room, [0, 0, 0])
        for index, field in enumerate((text, data, bss)):
            row[index] += int(field)
    return sorted(totals.items(), key=lambda entry: -sum(entry[1]))


def check_sizes(report, elf, limited):
    """Held on the panel's machine, shown elsewhere."""
    used = sum(size for name, (_, size) in elf.sections.items() if re.match(r"\.(text|rodata)\b", name))
    sizes = {
        "size of the stripped library": (elf.path.stat().st_size, LIMITS["library_bytes"]),
        "code and constants": (used, LIMITS["code_and_constants_bytes"]),
    }
    for name, (size, limit) in sizes.items():
        if limited:
            report.check(name, f"{size} bytes", size <= limit, limit)
        else:
            report.note(name, f"{size} bytes")
    if limited:
        for segment, room in elf.room_left():
            report.note(f"room in the pages of {segment}", f"{room} bytes")
        library, limit = sizes["size of the stripped library"]
        report.note("room behind the constants", f"{limit - library} bytes")


def check_file(report, elf):
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", elf.dynamic))
    # The stack protector's guard of ARM lives in the dynamic linker.
    extra = {name for name in needed if not name.startswith("ld-linux")} - set(LIMITS["needed"])
    report.check("libraries needed", ", ".join(sorted(needed)), not extra, "no other than the listed ones")
    relative = elf.relative_relocations()
    # The destructor, the object's handle, functions whose address is handed out.
    holds = set(relative) <= {".fini_array", ".data.rel.ro", ".got"} and relative.get(".data.rel.ro", 0) <= 1
    report.check("pointers that the loader patches", relative, holds, "none in tables")
    constructors = {".init_array", ".init", ".ctors"} & set(elf.sections)
    report.check("constructors", sorted(constructors), not constructors, "none")
    report.check("relocations read-only after start", "GNU_RELRO" in elf.segments, "GNU_RELRO" in elf.segments, True)
    now = re.search(r"BIND_NOW|\(FLAGS_1\).*NOW", elf.dynamic) is not None
    report.check("symbols bound at start", now, now, True)
    stack = re.search(r"GNU_STACK\s.*\s(R.?.?) +0x", elf.segments)
    report.check("stack not executable", stack and stack[1], bool(stack) and "E" not in stack[1], "RW")
    both = re.search(r"LOAD\s.*\sRWE\s", elf.segments) is not None
    report.check("memory both writable and executable", both, not both, False)
    report.check("text relocations", "TEXTREL" in elf.dynamic, "TEXTREL" not in elf.dynamic, False)
    canary = "__stack_chk_fail" in elf.undefined
    report.check("stack canaries", canary, canary, True)
    fortified = sorted(name for name in elf.undefined if name.endswith("_chk"))
    report.check("fortified calls", len(fortified), len(fortified) > 0, "some")
    runtime = sorted(name for name in elf.undefined if name.startswith(("_Z", "__cxa_", "__gxx", "_Unwind")))
    # What atexit() and unloading use; both are the C library's.
    runtime = [name for name in runtime if name not in ("__cxa_finalize", "__cxa_atexit")]
    report.check("names of the C++ run time", runtime, not runtime, "none")
    writable = elf.writable_bytes()
    report.check("writable memory", f"{writable} bytes", writable <= LIMITS["writable_bytes"], LIMITS["writable_bytes"])


def private_dirty(pid, elf):
    """Bytes of an image in memory that a process has copies of its own of, zeroed variables included.

    Counted as pages with changed contents (Anonymous). The kernel's Private_Dirty would add pages of the file
    itself when it was written a moment ago, as here.
    """
    size = page_up(max(end for _, end, _ in elf.loads()))
    total, base, room = 0, None, 0
    for line in pathlib.Path(f"/proc/{pid}/smaps").read_text().splitlines():
        head = re.match(r"([0-9a-f]+)-([0-9a-f]+) \S+ \S+ \S+ \d+\s*(.*)", line)
        if head:
            start, end = int(head[1], 16), int(head[2], 16)
            if base is None and head[3].endswith(f"/{elf.path.name}"):
                base = start
            room = 0 if base is None else max(0, min(end, base + size) - start)
        elif line.startswith("Anonymous:"):
            total += min(room, int(line.split()[1]) * 1024)
    return total


def check_memory(report, machine, elf, folder):
    program = folder / "started"
    machine.compile(ROOT / "tests/footprint/started.c", elf.path, f"-Wl,-rpath-link,{folder}", "-Wl,--export-dynamic",
                    "-o", program)
    process = subprocess.Popen(machine.command(program, folder), stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        started = process.stdout.readline()
        dirty = private_dirty(process.pid, elf)
    finally:
        process.communicate()
    report.check("process started for the measurement", started.strip(), started == "0\n", 0)
    report.check("private dirty memory", f"{dirty} bytes", 0 < dirty <= LIMITS["private_dirty_bytes"],
                 LIMITS["private_dirty_bytes"])


def cpu_time(command):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def instructions(program, library_path, folder):
    run("valgrind", "--tool=callgrind", f"--callgrind-out-file={folder}/callgrind.out", program,
        env={**os.environ, "LD_LIBRARY_PATH": str(library_path)})
    return int(re.search(r"^(?:summary|totals): (\d+)", (folder / "callgrind.out").read_text(), re.M)[1])


def check_startup(report, machine, library, folder):
    """The library and a platform without contents against the three libraries alone."""
    ours, theirs = folder / "with", folder / "without"
    source = ROOT / "tests/footprint/empty.c"
    machine.compile(source, "-Wl,--no-as-needed", library, f"-Wl,-rpath-link,{folder}", "-o", ours)
    machine.compile(source, "-Wl,--no-as-needed", "-lcares", "-lcrypto", "-ljpeg", "-o", theirs)
    times = {ours: [], theirs: []}
    for _ in range(REPETITIONS):
        for program, found in times.items():
            found.append(cpu_time(machine.command(program, folder)))
    median = {program: statistics.median(found) for program, found in times.items()}
    report.note("start-up, processor time", f"{median[ours] * 1e3:.2f} ms, without us {median[theirs] * 1e3:.2f} ms, "
                f"ratio {median[ours] / median[theirs]:.3f} (medians of {REPETITIONS}, alternated)")
    if machine.arm:
        return
    count = {program: instructions(program, folder, folder) for program in times}
    ratio = count[ours] / count[theirs]
    report.check("start-up, instructions", f"{count[ours]}, without us {count[theirs]}, ratio {ratio:.3f}",
                 ratio <= LIMITS["startup_ratio"], LIMITS["startup_ratio"])


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--junit")
    parser.add_argument("build")
    options = parser.parse_args()
    machine = Machine(pathlib.Path(options.build).resolve())
    report = Report()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        library = folder / "libutils_ozu.so.0"
        run(f"{machine.prefix}strip", "--strip-unneeded", "-o", library, machine.build / "lib/libutils_ozu.so.0")
        machine.compile(ROOT / "tests/footprint/no_platform.c", "-shared", "-fPIC", "-fno-builtin",
                        "-Wl,-soname,libozu_platform.so.0", "-o", folder / "libozu_platform.so.0")
        print(f"{machine.build.name}, bytes by room before linking (code and constants, data, zeroed):")
        for room, row in rooms(machine):
            print(f"     {room:<10}{row[0]:>8}{row[1]:>8}{row[2]:>8}")
        elf = Elf(library)
        check_sizes(report, elf, machine.arm)
        check_file(report, elf)
        check_memory(report, machine, elf, folder)
        check_startup(report, machine, library, folder)
    if options.junit:
        report.write(options.junit)
    return 1 if report.failed() else 0


if __name__ == "__main__":
    sys.exit(main())
