"""The commands of a page: its indented lines, as they stand there."""

import pathlib
import re

PAGES = pathlib.Path(__file__).resolve().parents[2] / "docs"


def lines(text):
    """The commands of a page, with their comments."""
    return re.findall(r"^    (\S.*|    .*)$", re.sub(r"```.*?```", "", text, flags=re.S), re.M)


def script(commands):
    """A bash script that ends at the first command whose exit status is not 0, or not what its comment says."""
    made = ["set -e"]
    for command in commands:
        words, _, comment = command.partition("  #")
        status = re.search(r"exit status (\d+)", comment)
        made.append(f'echo "$ {words.strip()}"')
        made.append(f"status=0; {words.strip()} || status=$?; [ $status = {status[1]} ]" if status else words.strip())
    return "\n".join(made) + "\necho 'the guide ends'\n"


def test_your_process(*, without):
    """The commands of "test your process" but for those that begin with certain words."""
    found = lines((PAGES / "test_your_process.md").read_text())
    left = [line for line in found if not line.startswith(without)]
    assert len(left) >= 10 and len(found) - len(left) >= len(without), found
    return left
