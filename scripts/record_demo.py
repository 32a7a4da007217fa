#!/usr/bin/python3
"""Puts what ./demo printed into the transcript of docs/demo.md, shortened:  ./demo | scripts/record_demo.py"""

import argparse
import pathlib
import re
import sys

PAGE = pathlib.Path(__file__).resolve().parents[1] / "docs/demo.md"
BLOCK = re.compile(r"(<!-- transcript: ./demo -->\n```text\n).*?(```\n)", re.S)
# Lines of each scene, chosen by the heading's first words; what repeats every half a second is left out.
SCENES = {"Three panel": 2, "FULL is armed": 3, "The window is bypassed": 4, "The front door": 7, "Smoke": 6}
REPEATED = "Safety alarm is running"
ROWS = 12


def scenes(printed):
    """Headings with their lines."""
    for part in re.split(r"^== ", printed, flags=re.M)[1:]:
        heading, *lines = part.splitlines()
        yield heading, [line.rstrip() for line in lines if line.strip()]


def shortened(printed):
    shown = []
    for heading, lines in scenes(printed):
        count = next((count for words, count in SCENES.items() if heading.startswith(words)), 0)
        if count:
            shown.append("\n".join([f"== {heading}", *[line for line in lines if REPEATED not in line][:count]]))
    last = list(scenes(printed))[-1:]
    heading, table = last[0] if last else ("", [""])
    if not re.match(r"\d+ answers, 0 wrong, ", table[-1]):
        sys.exit("record_demo.py: that run did not end well; nothing is recorded")
    return "\n\n".join([*shown, "\n".join(["...", f"== {heading}", *table[:ROWS], "...", table[-1]])])


def main():
    argparse.ArgumentParser(description=__doc__).parse_args()
    text = PAGE.read_text()
    recorded = shortened(sys.stdin.read())
    PAGE.write_text(BLOCK.sub(lambda found: found[1] + recorded + "\n" + found[2], text))


if __name__ == "__main__":
    main()
