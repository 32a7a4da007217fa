#!/usr/bin/python3
"""What the library costs a panel process: size, needs, relocations, memory, start-up. Prints it; fails over a limit.

usage: footprint.py [--junit FILE | --record] BUILD

BUILD is a build folder, e.g. build/armhf or build/release. tests/abi/footprint.json has the limits and, for the
panel's machine, the sizes that were accepted last; --record writes those of a build there. What can be counted is held
(sizes, symbols, sections, pages, instructions); times are only reported.
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
LIMITS_FILE = ROOT / "tests/abi/footprint.json"
LIMITS = json.loads(LIMITS_FILE.read_text())
FAKE_PLATFORM = (ROOT / "testkit/fake_platform/fake_platform.c", "-I", ROOT / "testkit/fake_platform")
REPETITIONS = 40
PAGE = 4096
GROWTH = 1.03
HOW_TO_ACCEPT = """
     A size grew. If what it buys is worth it to every panel process:
         scripts/footprint.py --record build/armhf
     writes the new sizes to tests/abi/footprint.json. Commit that alone ("footprint: ...") and say in the message
     what the growth is for. A limit ("sizes_at_most") is raised in the same way, by hand."""


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
        run(f"{self.prefix}gcc", "-O2", "-D_GNU_SOURCE", "-I", ROOT / "include", "-I", ROOT / "platform/include", *sysroot, *arguments)

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


def modules(machine):
    """Bytes of code, constants and variables by folder of src/, before the linker drops what is not used."""
    totals = {}
    objects = machine.build / "src/CMakeFiles/utils_ozu_objects.dir"
    for line in run("size", *sorted(objects.rglob("*.o"))).splitlines()[1:]:
        text, data, bss, _, _, path = line.split(maxsplit=5)
        module = pathlib.Path(path).relative_to(objects).parts[0]
        row = totals.setdefault(module, [0, 0, 0])
        for index, field in enumerate((text, data, bss)):
            row[index] += int(field)
    return sorted(totals.items(), key=lambda entry: -sum(entry[1]))


def sizes_of(elf):
    used = sum(size for name, (_, size) in elf.sections.items() if re.match(r"\.(text|rodata)\b", name))
    return {"stripped_library": elf.path.stat().st_size, "code_and_constants": used}


def check_sizes(report, sizes, limited):
    """Held on the panel's machine, shown elsewhere."""
    held = True
    for name, size in sizes.items():
        what = f"size of {name.replace('_', ' ')}"
        if not limited:
            report.note(what, f"{size} bytes")
            continue
        recorded, most = LIMITS["sizes_recorded"][name], LIMITS["sizes_at_most"][name]
        limit = min(most, int(recorded * GROWTH))
        report.check(what, f"{size} bytes, {size / recorded - 1:+.1%} of what is recorded", size <= limit, limit)
        held = held and size <= limit
    if not held:
        print(HOW_TO_ACCEPT)


def check_file(report, machine, elf):
    needed = set(re.findall(r"\(NEEDED\).*\[(.+)\]", elf.dynamic))
    # The stack protector's guard of ARM lives in the dynamic linker.
    extra = {name for name in needed if not name.startswith("ld-linux")} - set(LIMITS["needed"])
    report.check("libraries needed", ", ".join(sorted(needed)), not extra, "no other than the listed ones")
    relative = elf.relative_relocations()
    # The compiler's start files bring two functions and the object's handle; functions whose address is handed out
    # stand in .got.
    allowed = {".init_array": 1, ".fini_array": 1, ".data": 1, ".got": relative.get(".got", 0)}
    holds = all(count <= allowed.get(section, 0) for section, count in relative.items())
    report.check("pointers that the loader patches", relative, holds, "none in tables")
    pointer = 4 if machine.arm else 8
    init = elf.sections.get(".init_array", (0, 0))[1]
    others = sorted({".preinit_array", ".ctors", ".tdata", ".tbss"} & set(elf.sections))
    report.check("constructors and thread-local data", f"{init // pointer} {others}", init <= pointer and not others,
                 "the compiler's own constructor")
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
    machine.compile(ROOT / "tests/footprint/started.c", *FAKE_PLATFORM, elf.path, f"-Wl,-rpath-link,{folder}",
                    "-Wl,--export-dynamic", "-o", program)
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
    """The library and the fake platform against the three libraries alone."""
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


def record(machine, sizes):
    if not machine.arm:
        sys.exit("only the sizes on the panel's machine are recorded: build/armhf")
    LIMITS_FILE.write_text(json.dumps({**LIMITS, "sizes_recorded": sizes}, indent=2) + "\n")
    print(f"recorded in {LIMITS_FILE.relative_to(ROOT)}: {sizes}")
    return 0


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--junit")
    parser.add_argument("--record", action="store_true")
    parser.add_argument("build")
    options = parser.parse_args()
    if not (pathlib.Path(options.build) / "lib/libutils_ozu.so.0").exists():
        sys.exit(f"footprint.py: no library in {options.build}; run ./test footprint, or build it first")
    machine = Machine(pathlib.Path(options.build).resolve())
    report = Report()
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        library = folder / "libutils_ozu.so.0"
        run(f"{machine.prefix}strip", "--strip-unneeded", "-o", library, machine.build / "lib/libutils_ozu.so.0")
        machine.compile(*FAKE_PLATFORM, "-shared", "-fPIC", "-Wl,-soname,libozu_platform.so.0", "-o",
                        folder / "libozu_platform.so.0")
        print(f"{machine.build.name}, bytes by module before linking (code and constants, data, zeroed):")
        for module, row in modules(machine):
            print(f"     {module:<10}{row[0]:>8}{row[1]:>8}{row[2]:>8}")
        elf = Elf(library)
        sizes = sizes_of(elf)
        if options.record:
            return record(machine, sizes)
        check_sizes(report, sizes, machine.arm)
        check_file(report, machine, elf)
        check_memory(report, machine, elf, folder)
        check_startup(report, machine, library, folder)
    if options.junit:
        report.write(options.junit)
    return 1 if report.failed() else 0


if __name__ == "__main__":
    sys.exit(main())
