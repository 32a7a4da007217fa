#!/usr/bin/python3
"""Writes the COMMANDS section of docs/man/ozuctl.1.scd from the tool's own help."""

import argparse
import pathlib
import re
import shutil
import subprocess
import sys

PAGE = pathlib.Path(__file__).resolve().parents[1] / "docs/man/ozuctl.1.scd"
BEGIN, END = "; commands, written by scripts/manual_commands.py", "; end of the commands"


def help_of(tool, *path):
    # The verbs of "box" go to a script, which has one help for all of them.
    done = subprocess.run([tool, *path, "--help"], capture_output=True, text=True)
    return done.stdout if done.returncode == 0 else ""


def entries(text, title):
    """Pairs of name and description of the lists whose title begins so; descriptions go on in indented lines."""
    found = []
    listed = False
    for line in text.splitlines():
        head = re.match(r"^  (\S.*?)(?:\s{2,}(.*))?$", line)
        if not line.startswith(" "):
            listed = line.startswith(title) and line.endswith(":")
        elif not listed:
            pass
        elif head:
            found.append([head[1], [head[2] or ""]])
        elif found:
            found[-1][1].append(line.strip())
    return [(name, " ".join(filter(None, lines))) for name, lines in found]


def escape(text):
    return re.sub(r"([_*\\<>#`~])", r"\\\1", text)


def usage(text, path):
    line = re.search(r"^Usage: \S+ (.*)$", text, re.M)
    words = line[1].split() if line else []
    words = [word for word in words if word not in ("[OPTIONS]", "SUBCOMMAND", "[SUBCOMMAND]") and word not in path]
    return " ".join(words)


def section(tool, *path):
    text = help_of(tool, *path)
    lines = []
    for name, description in entries(text, "Subcommands"):
        full = (*path, name)
        below = help_of(tool, *full)
        arguments = usage(below, full)
        lines += [f"*{' '.join(full)}*" + (f" {escape(arguments)}" if arguments else ""), f"\t{escape(description)}", ""]
        options = [(option, meaning) for option, meaning in entries(below, "Options") if not option.startswith("-h,")]
        for option, meaning in options:
            lines += [f"\t*{escape(option)}*: {escape(meaning)}", ""]
        lines += section(tool, *full)
    return lines


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--check", action="store_true", help="write nothing; fail when the section is out of date")
    parser.add_argument("ozuctl", help="the tool, e.g. build/dev/bin/ozuctl")
    options = parser.parse_args()
    check, tool = options.check, options.ozuctl
    if not shutil.which(tool):
        sys.exit(f"manual_commands.py: {tool} is no program; build it first")
    text = PAGE.read_text()
    before, _, rest = text.partition(BEGIN)
    _, _, after = rest.partition(END)
    written = "\n".join([BEGIN, "", *section(tool), END])
    updated = f"{before}{written}{after}"
    if check:
        if updated != text:
            print(f"{PAGE.name} is out of date; run scripts/manual_commands.py {tool}")
        return 0 if updated == text else 1
    PAGE.write_text(updated)
    return 0


if __name__ == "__main__":
    sys.exit(main())
