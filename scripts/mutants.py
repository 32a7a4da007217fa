#!/usr/bin/python3
"""Changes the library's sources one place at a time and looks whether the unit tests notice.

A mutant is one source of src/ with one operator, constant or condition changed, or one call left out. It is compiled with the
build's own command, linked into the test programs of its module, the injected failures and the fuzz corpora, and these run in
a sandbox of their own (bubblewrap: no network, no process but theirs, nothing writable outside /tmp) until one fails.
A mutant that compiles to the same code as the original is none. One that no test can notice stands in
tests/unit/equivalent_mutants.txt with the reason.

Which mutants a run of --count takes depends on the seed, the sources and what is known already. Outcomes are kept in the build
folder; a run that was interrupted goes on where it ended, and a source that has changed starts over.
"""

import argparse
import collections
import concurrent.futures
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[1]
OBJECT = "src/CMakeFiles/utils_ozu_objects.dir/{}.o"
EQUIVALENT = ROOT / "tests/unit/equivalent_mutants.txt"
# Other programs that reach every module.
SHARED = ("injection_test", "fuzz_")
LONGEST = 120  # seconds for a program, or ten times what it takes unchanged

# What stands between spaces is an operator: the sources are formatted.
SWAPS = {
    "<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "+": "-", "-": "+", "*": "/", "/": "*", "%": "/",
    "&&": "||", "||": "&&", "&": "|", "|": "&", "<<": ">>", ">>": "<<", "+=": "-=", "-=": "+=", "|=": "&=", "&=": "|=",
}
OPERATOR = re.compile("(?<= )(" + "|".join(re.escape(key) for key in sorted(SWAPS, key=len, reverse=True)) + ")(?= )")
NUMBER = re.compile(r"(?<![\w.'])(0x[0-9A-Fa-f']+|\d[\d']*)(?=[uUlL]*\b(?![.']))")
TRUTH = re.compile(r"\b(true|false)\b")
NEGATION = re.compile(r"(?<=[( ])!(?=[\w(:])")
CONDITION = re.compile(r"\b(?:if|while) \((?!const |auto |int )(.*)\) \{$")
CALL = re.compile(r"^\s+(?!return\b|delete\b|co_)(?:\w+(?:::|\.|->))*\w+\(.*\);$")
STEP = re.compile(r"\+\+|--")
NOT_CODE = re.compile(r"^\s*(#|//|\*|namespace\b|using\b|template\b|static_assert\b|extern \"C\"|case .*:$|\[\[)")
QUOTED = re.compile(r'"(?:\\.|[^"\\])*"|\'(?:\\.|[^\'\\])\'|//.*')

Mutant = collections.namedtuple("Mutant", "source line column old new")


def changes(text):
    """Column, what stands there and what will, for one line of code."""
    if NOT_CODE.match(text):
        return
    code = QUOTED.sub(lambda found: "\0" * len(found[0]), text)
    for found in OPERATOR.finditer(code):
        if not re.search(r"\b(template|operator)\b", code):
            yield found.start(), found[0], SWAPS[found[0]]
    for found in NUMBER.finditer(code):
        value = int(found[1].replace("'", ""), 0)
        yield found.start(), found[1], str(value + 1)
    for found in TRUTH.finditer(code):
        yield found.start(), found[0], "false" if found[0] == "true" else "true"
    for found in NEGATION.finditer(code):
        yield found.start(), "!", ""
    for found in STEP.finditer(code):
        yield found.start(), found[0], "--" if found[0] == "++" else "++"
    for found in CONDITION.finditer(code):
        if code.count("(") == code.count(")") and ";" not in found[1]:
            yield found.start(1), text[found.start(1):found.end(1)], f"!({text[found.start(1):found.end(1)]})"
    if CALL.match(code):
        start = len(code) - len(code.lstrip())
        yield start, text[start:], ";"


def mutants_of(source):
    """Every mutant of a source; name tables and comments have none."""
    for number, text in enumerate((ROOT / source).read_text().splitlines(), 1):
        for column, old, new in changes(text):
            yield Mutant(source, number, column, old, new)


def sources(module):
    found = sorted(path.relative_to(ROOT).as_posix() for path in (ROOT / "src").glob(f"{module or '*'}/*.cpp"))
    return [name for name in found if not name.endswith("_rows.cpp")]


class Build:
    """A configured and built folder: how a source is compiled, how a program is linked."""

    def __init__(self, folder, shared=SHARED):
        self.folder, self.shared = folder, shared
        entries = json.loads((folder / "compile_commands.json").read_text())
        self.compile = {os.path.relpath(entry["file"], ROOT): shlex.split(entry["command"]) for entry in entries
                        if "utils_ozu_objects" in entry["command"]}
        # The same code has the same bytes.
        for command in self.compile.values():
            command[:] = [word for word in command if not re.fullmatch(r"-g\d?", word)]
        self.links, self.baseline, self.times = {}, {}, {}

    def programs(self, source):
        module = source.split("/")[1]
        names = sorted(path.name for path in (self.folder / "bin").glob("*_test"))
        own = [name for name in names if name == f"{module}_test" or name.startswith(f"{module}_")]
        own.sort(key=lambda name: pathlib.Path(source).stem not in name)  # the source's own program finds most
        return [*own, *(name for name in names if name.startswith(self.shared))]

    def link(self, program):
        if program not in self.links:
            shown = subprocess.run(["ninja", "-C", str(self.folder), "-t", "commands", "-s", f"bin/{program}"],
                                   capture_output=True, text=True, check=True).stdout.splitlines()[-1]
            self.links[program] = re.sub(r"^: && (.*) && :$", r"\1", shown.strip())
        return self.links[program]

    def object_of(self, source, text, folder):
        """Compiles a source with this text; None when it does not compile."""
        copy = folder / "src" / source
        copy.parent.mkdir(parents=True, exist_ok=True)
        copy.write_text(text)
        made = folder / "mutant.o"
        command = list(self.compile[source])
        command[command.index("-c") + 1] = str(copy)
        command[command.index("-o") + 1] = str(made)
        command += ["-w", "-iquote", str((ROOT / source).parent), f"-ffile-prefix-map={folder / 'src'}={ROOT}"]
        done = subprocess.run(command, cwd=self.folder, capture_output=True)
        return made if done.returncode == 0 else None

    def unchanged(self, source):
        """The digest of the object of the source as it stands."""
        if source not in self.baseline:
            with tempfile.TemporaryDirectory(prefix="mutant-", dir=self.folder) as name:
                made = self.object_of(source, (ROOT / source).read_text(), pathlib.Path(name))
                self.baseline[source] = hashlib.sha1(made.read_bytes()).digest()
        return self.baseline[source]

    def program(self, name, source, made, folder):
        """Links a test program with another object for this source."""
        output = folder / name
        command = self.link(name).replace(OBJECT.format(source.removeprefix("src/")), str(made), 1)
        command = command.replace(f"-o bin/{name}", f"-o {output}")
        subprocess.run(command, shell=True, cwd=self.folder, check=True, capture_output=True)
        return output


FAILED = re.compile(r"^\[  FAILED  \] (\w+\.\w+)(?:,.*)? \(\d+ ms\)$", re.M)
BEGUN = re.compile(r"\[ RUN      \] (\w+\.\w+)$", re.M)


def failing_case(program, folder, limit, only="*"):
    """The first case that fails, or the one in which the program ends or hangs; None when all pass."""
    command = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc", "--tmpfs", "/tmp", "--tmpfs", "/dev/shm",
               "--ro-bind", str(folder), str(folder), "--unshare-all", "--die-with-parent", "--chdir", "/tmp", str(program),
               "--gtest_fail_fast", f"--gtest_filter={only}"]
    with tempfile.TemporaryFile() as shown:
        with subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=shown, stderr=subprocess.DEVNULL,
                              start_new_session=True) as process:
            try:
                if process.wait(timeout=limit) == 0:
                    return None
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
        shown.seek(0)
        output = shown.read().decode(errors="replace")
    return (FAILED.findall(output) or BEGUN.findall(output)[-1:] or ["*"])[0]


def notices(program, changed, folder, limit):
    """True when the changed program fails twice and the unchanged one, beside it, does not.

    What fails now and then on a busy machine has noticed nothing. Only the case that failed runs again, unless it fails
    after others only.
    """
    case = failing_case(changed, folder, limit)
    if case is None:
        return False
    if failing_case(changed, folder, limit, case) is None:
        case = "*"
        if failing_case(changed, folder, limit) is None:
            return False
    return failing_case(program, folder, limit, case) is None


def mutated(mutant):
    lines = (ROOT / mutant.source).read_text().splitlines(keepends=True)
    line = lines[mutant.line - 1]
    end = mutant.column + len(mutant.old)
    if line[mutant.column:end] != mutant.old:
        raise ValueError(f"{mutant} is not there")
    lines[mutant.line - 1] = line[:mutant.column] + mutant.new + line[end:]
    return "".join(lines)


def judge(build, mutant):
    """killed by PROGRAM, survived, same (the same code) or broken (does not compile)."""
    with tempfile.TemporaryDirectory(prefix="mutant-", dir=build.folder) as name:
        folder = pathlib.Path(name)
        made = build.object_of(mutant.source, mutated(mutant), folder)
        if made is None:
            return "broken"
        if hashlib.sha1(made.read_bytes()).digest() == build.unchanged(mutant.source):
            return "same"
        for program in build.programs(mutant.source):
            limit = min(max(10, 10 * build.times[program]), LONGEST)
            linked = build.program(program, mutant.source, made, folder)
            if notices(build.folder / "bin" / program, linked, folder, limit):
                return f"killed by {program}"
        return "survived"


def prepare(build, chosen, jobs):
    """How long the unchanged programs take; those that do not pass in the sandbox are out."""
    wanted = sorted({program for mutant in chosen for program in build.programs(mutant.source)})
    subprocess.run(["ninja", "-C", str(build.folder), *(f"bin/{name}" for name in wanted)], check=True,
                   stdout=subprocess.DEVNULL)

    def tried(program):
        started = time.monotonic()
        passed = failing_case(build.folder / "bin" / program, build.folder, LONGEST) is None
        return program, time.monotonic() - started if passed else None

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        build.times = dict(pool.map(tried, wanted))
    for program in [name for name, taken in build.times.items() if taken is None]:
        print(f"{program} does not pass unchanged in the sandbox and is left out", flush=True)
    build.programs = lambda source, usual=build.programs: [name for name in usual(source) if build.times[name] is not None]


def place_of(mutant, seed):
    """Where the mutant stands in the order of a run; a change elsewhere does not move it."""
    return hashlib.sha1(repr((seed, *mutant)).encode()).digest()


def key_of(mutant):
    content = hashlib.sha1((ROOT / mutant.source).read_bytes()).hexdigest()[:12]
    return "\t".join(map(str, [content, *mutant]))


def equivalent():
    """Source, line of code, old and new of what no test can notice."""
    rows = [line.split(" | ") for line in EQUIVALENT.read_text().splitlines() if not line.startswith("#")]
    return {(source, code, *change.split(" -> ")) for source, code, change, _ in rows}


def code_of(lines, number):
    """A line of code as the list of equivalent mutants has it: a return, which many lines are, with the line before it."""
    code = lines[number - 1].strip()
    return f"{lines[number - 2].strip()} {code}" if code.startswith("return ") else code


def explained(mutant, known):
    code = code_of((ROOT / mutant.source).read_text().splitlines(), mutant.line)
    return (mutant.source, code, mutant.old, mutant.new) in known


def report(outcomes):
    """The score, and what survived without an explanation."""
    known = equivalent()
    counts = collections.Counter(outcome.split()[0] for outcome in outcomes.values())
    judged = counts["killed"] + counts["survived"]
    alive = [mutant for mutant, outcome in sorted(outcomes.items()) if outcome == "survived" and not explained(mutant, known)]
    return [f"{judged} mutants, {counts['killed']} killed ({100 * counts['killed'] / max(judged, 1):.1f} %), "
            f"{counts['survived'] - len(alive)} equivalent, {len(alive)} survived; "
            f"{counts['same']} compile to the same code, {counts['broken']} do not compile",
            *(f"{mutant.source}:{mutant.line}:{mutant.column + 1}: {mutant.old} -> {mutant.new}" for mutant in alive)]


def write_junit(path, outcomes):
    """One test a source: all its mutants are noticed."""
    suite = ElementTree.Element("testsuite", name="mutants")
    for source in sorted({mutant.source for mutant in outcomes}):
        case = ElementTree.SubElement(suite, "testcase", classname="mutants", name=source)
        alive = [row for row in report({one: told for one, told in outcomes.items() if one.source == source})[1:]]
        if alive:
            ElementTree.SubElement(case, "failure", message=f"{len(alive)} survived").text = "\n".join(alive)
    ElementTree.ElementTree(suite).write(path, encoding="utf-8", xml_declaration=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--count", type=int, default=600, help="mutants that compile to other code (600)")
    parser.add_argument("--seed", type=int, default=1, help="chooses them (1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="side by side (number of processors)")
    parser.add_argument("--module", help="only this folder of src/")
    parser.add_argument("--at", metavar="FILE:LINE", action="append", default=[], help="only mutants of this line, e.g. src/network/raw_dns.cpp:68")
    parser.add_argument("--own", action="store_true", help="run the module's own programs only")
    parser.add_argument("--minutes", type=float, help="start no mutant after this time")
    parser.add_argument("--junit", help="write the outcome of each source to this file")
    parser.add_argument("--list", action="store_true", help="print the mutants and run none")
    parser.add_argument("build", nargs="?", default="build/dev", help="a configured build folder with tests (build/dev)")
    options = parser.parse_args()
    every = [mutant for source in sources(options.module) for mutant in mutants_of(source)]
    if options.at:
        every = [mutant for mutant in every if f"{mutant.source}:{mutant.line}" in options.at]
    every.sort(key=lambda mutant: place_of(mutant, options.seed))
    if options.list:
        print("\n".join(f"{mutant.source}:{mutant.line}:{mutant.column + 1}: {mutant.old} -> {mutant.new}" for mutant in every))
        return 0
    folder = pathlib.Path(options.build).resolve()
    if not (folder / "compile_commands.json").exists():
        sys.exit(f"mutants.py: {options.build} is not configured; run cmake --preset dev first")
    if not every or not shutil.which("bwrap"):
        sys.exit("mutants.py: bubblewrap is missing" if every else "mutants.py: no such place in src/")
    build = Build(folder, () if options.own else SHARED)
    every = [mutant for mutant in every if mutant.source in build.compile]
    prepare(build, every, options.jobs)
    kept = folder / "mutants.tsv"
    known = dict(line.rsplit("\t", 1) for line in kept.read_text().splitlines()) if kept.exists() else {}
    every.sort(key=lambda mutant: key_of(mutant) not in known)  # what is known counts, and costs nothing
    end = time.monotonic() + 60 * options.minutes if options.minutes else None
    outcomes, queue, running = {}, iter(every), {}

    def enough():
        judged = sum(not outcome.startswith(("same", "broken")) for outcome in outcomes.values())
        return judged + len(running) >= options.count or (end is not None and time.monotonic() > end)

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool, kept.open("a") as results:
        exhausted = False
        while running or not (exhausted or enough()):
            while len(running) < options.jobs and not exhausted and not enough():
                mutant = next(queue, None)
                if mutant is None:
                    exhausted = True
                elif key_of(mutant) in known:
                    outcomes[mutant] = known[key_of(mutant)]
                else:
                    running[pool.submit(judge, build, mutant)] = mutant
            if not running:
                continue
            done, _ = concurrent.futures.wait(running, return_when=concurrent.futures.FIRST_COMPLETED)
            for future in done:
                mutant = running.pop(future)
                outcomes[mutant] = future.result()
                results.write(f"{key_of(mutant)}\t{outcomes[mutant]}\n")
                results.flush()
                print(f"{len(outcomes):5} {mutant.source}:{mutant.line} {mutant.old} -> {mutant.new}: {outcomes[mutant]}",
                      flush=True)
    print("\n".join(report(outcomes)))
    if options.junit:
        write_junit(options.junit, outcomes)
    return 0 if outcomes else 1


if __name__ == "__main__":
    sys.exit(main())
