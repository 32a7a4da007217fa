#!/usr/bin/python3
"""Draws the pictures of the pages: docs/figures/draw.py [--check] [NAME...]

Each picture is one SVG for light and dark. What it shows comes from a recording (docs/figures/record.py,
network_times.py measure) or straight from the sources. With --check nothing is written: a picture that
would come out differently is named, and the exit status is 1.
"""

import json
import math
import pathlib
import re
import sys
import textwrap

from picture import Picture

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]


def recording(name):
    return json.loads((HERE / f"{name}.json").read_text())


def made(name, recorded=True):
    return (f"docs/figures/record.py {name}, then " if recorded else "") + f"docs/figures/draw.py {name}"


def shortened(text, length):
    return text if len(text) <= length else text[:length - 1] + "…"


# ---- from the sources

def functions_of(header):
    text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
    return sorted(set(re.findall(r"^(?!typedef|#|static)[A-Za-z_][\w\s*]*?\b(\w+)\([^;{}]*\)[^;{}]*;", text, re.M)))


def modules():
    """Module of src -> headers of what it defines."""
    found = {}
    sources = {path: path.read_text() for path in (ROOT / "src").rglob("*.cpp")}
    for header in sorted((ROOT / "include/utils_ozu").glob("*.h")):
        names = functions_of(header)
        for path, text in sources.items():
            if any(re.search(rf"^\w.*?\b{name}\(", text, re.M) for name in names):
                found.setdefault(path.relative_to(ROOT / "src").parts[0], []).append(header.stem)
    return {module: list(dict.fromkeys(headers)) for module, headers in found.items()}


def parts():
    data = {"modules": modules(),
            "platform": [header.name for header in sorted((ROOT / "platform/include").glob("*.h")) if functions_of(header)],
            "needs": json.loads((ROOT / "tests/abi/footprint.json").read_text())["needed"]}
    p = Picture(900, "Panel processes load the library; it uses the platform, the kernel and three system libraries",
                made("parts", False), data)
    for index, (name, what) in enumerate([("alarm process", "C or C++"), ("network process", "C or C++"),
                                          ("your process", "see examples/"), ("ozuctl", "a panel process, too")]):
        x = 20 + index * 165
        p.rect(x, 16, 150, 50, "ours" if name == "ozuctl" else "box", 6)
        p.text(x + 75, 37, name, "mid head")
        p.text(x + 75, 55, what, "mid small soft")
        p.down(x + 75, 66, 92)
    columns = 3
    rows = -(-len(data["modules"]) // columns)
    inside = {name: textwrap.wrap(", ".join(headers), 30) for name, headers in data["modules"].items()}
    card = 35 + 15 * max(map(len, inside.values()))
    height = 44 + rows * (card + 8)
    p.rect(20, 92, 645, height, "ours", 6)
    p.text(36, 117, "libutils_ozu.so.0: plain C at the border, no thread", "head")
    for index, (name, lines) in enumerate(sorted(inside.items())):
        x, y = 32 + index % columns * 209, 130 + index // columns * (card + 8)
        p.rect(x, y, 203, card, "box")
        p.text(x + 101, y + 20, name, "mid head")
        for number, line in enumerate(lines):
            p.text(x + 101, y + 37 + number * 15, line, "mid small soft")
    y = 92 + height
    p.down(180, y, y + 26)
    p.down(505, y, y + 26)
    p.rect(20, y + 26, 320, 116, "box", 6)
    p.text(36, y + 50, "platform: the panel's, or ours", "head")
    for index, name in enumerate(data["platform"]):
        p.text(36 + index % 2 * 155, y + 74 + index // 2 * 20, name, "small")
    p.rect(355, y + 26, 310, 116, "box", 6)
    p.text(371, y + 50, "system libraries and kernel", "head")
    for index, name in enumerate([name for name in data["needs"] if "ozu" not in name] + ["/proc, sockets, netlink"]):
        p.text(371 + index % 2 * 150, y + 74 + index // 2 * 20, name, "small")
    p.rect(700, 92, 180, y - 92 + 142, "box", 6)
    p.text(716, 117, "the panel", "head")
    for index, line in enumerate(["shared record", "database", "message broker", "log files", "co-processor", "radio", "modem"]):
        p.text(716, 147 + index * 24, line, "small")
    p.arrow(665, 700, 92 + height // 2)
    return p.svg(y + 158)


def record():
    text = (ROOT / "platform/include/ozudb.h").read_text()
    sizes = dict(re.findall(r"sizeof\((\w+)\) == (\d+)", text))
    offsets = [(name, int(at)) for name, at in re.findall(r"OZUDB_ASSERT_OFFSET\((\w+), (\d+)\);", text)]
    counts = {name: int(count) for name, count in re.findall(r"#define (OZUDB_\w+) (\d+) ", text)}
    body = re.search(r"typedef struct PanelSharedState \{(.*?)\} PanelSharedState;", text, re.S)[1]
    types = {name: (kind, counts.get(count, 1)) for kind, name, count in re.findall(r"^\s+(\w+) (\w+)(?:\[(\w+)\])?;", body, re.M)}
    total = int(sizes["PanelSharedState"])
    rows = []
    for (name, at), (_, end) in zip(offsets, offsets[1:] + [("", total)]):
        kind, count = types[name]
        rows.append((at, end - at, name, kind, count))
    p = Picture(900, f"PanelSharedState: {total} bytes, the same on 32-bit and 64-bit machines", made("record", False), rows)
    p.text(16, 26, p.title, "head")
    for x, heading, kind in ((66, "offset", "end soft"), (126, "bytes", "end soft"), (146, "field", "soft"), (610, "share of the record", "soft")):
        p.text(x, 50, heading, kind)
    for index, (at, size, name, kind, count) in enumerate(rows):
        y = 72 + index * 21
        p.text(66, y, str(at), "end mono small")
        p.text(126, y, str(size), "end mono small")
        p.text(146, y, name + (f"[{count}]" if count > 1 else ""), "mono")
        p.text(352, y, kind + (f", {sizes[kind]} bytes each" if kind in sizes else ""), "small soft")
        p.rect(610, y - 11, max(size / total * 280, 1.5), 13, "ours", 2)
    return p.svg(72 + len(rows) * 21)


def size():
    kept = json.loads((ROOT / "tests/abi/footprint.json").read_text())
    data = [("stripped library", kept["sizes_recorded"]["stripped_library"], kept["sizes_at_most"]["stripped_library"]),
            ("code and constants", kept["sizes_recorded"]["code_and_constants"], kept["sizes_at_most"]["code_and_constants"]),
            ("private memory of a process", None, kept["private_dirty_bytes"])]
    most = max(limit for _, _, limit in data)
    p = Picture(760, "What the library costs on the panel's machine, in bytes", "docs/figures/draw.py size, from tests/abi/footprint.json", data)
    p.text(16, 26, p.title, "head")
    for index, (name, now, limit) in enumerate(data):
        y = 44 + index * 46
        p.text(16, y + 14, name)
        width = limit / most * 470
        p.rect(250, y, width, 20, "box", 2)
        if now:
            p.rect(250, y, now / most * 470, 20, "ours", 2)
        p.text(250, y + 35, (f"{now:,} of " if now else "") + f"{limit:,} at most", "small soft")
    return p.svg(44 + len(data) * 46 + 6)


# ---- from recordings

def monitor():
    data = recording("monitor")
    lines = [line for line in data["lines"] if not re.search(r"partitions\[[1-7]\]|au1t", line)]
    p = Picture(980, "ozuctl monitor: a panel is armed, a door opens, the alarm is raised", made("monitor"), data)
    p.rect(0, 0, 980, 34, "box", 0)
    for index, colour in enumerate(("bad", "event", "good")):
        p.add("circle", cx=20 + index * 18, cy=17, r=5, class_=colour)
    p.text(84, 22, f"panel:~# {data['command']}", "mono small")
    kinds = {"bus": "accent", "log": "", "event": "event", "state": "good"}
    for index, line in enumerate(lines):
        y = 58 + index * 20
        found = re.match(r"(\s+\+[\d.]+) (\w+)(\s*)(.*)", line)
        if found:
            p.text(16, y, found[1].strip(), "mono small soft")
            alarm = "ALARM" in found[4] and "ALARM_CORE" not in found[4] or "ALARM:" in found[4]
            p.text(84, y, found[2], f"mono small {kinds.get(found[2], 'soft')}".strip())
            p.text(140, y, shortened(found[4], 112), "mono small" + (" bad" if alarm else ""))
        else:
            p.text(84, y, line.strip(), "mono small soft")
    return p.svg(58 + len(lines) * 20)


class Sequence:
    """Lanes from left to right, steps from top to bottom."""

    def __init__(self, picture, lanes, left, step, top=60):
        self.p, self.lanes, self.y = picture, {}, top
        self.top = top
        for index, (name, under) in enumerate(lanes):
            x = left + index * step
            self.lanes[name] = x
            picture.rect(x - step // 2 + 8, 14, step - 16, 36, "ours" if name == "libutils_ozu" else "box")
            picture.text(x, 30, name, "mid head")
            picture.text(x, 44, under, "mid small soft")

    def step(self, source, target, text, when="", back=False):
        self.y += 32
        a, b = self.lanes[source], self.lanes[target]
        if when:
            self.p.text(12, self.y + 4, when, "mono small soft")
        if a == b:
            self.p.add("circle", cx=a, cy=self.y, r=4, class_="tip")
            self.p.text(a + 10, self.y + 4, text, "small")
        else:
            self.p.arrow(a, b, self.y, "back" if back else "line")
            if b > a:
                self.p.text(a + 8, self.y - 6, text, "small" + (" soft" if back else ""))
            else:
                self.p.text(a - 8, self.y - 6, text, "small end" + (" soft" if back else ""))

    def close(self):
        lines = []
        for x in self.lanes.values():
            lines.append(f'<line x1="{x}" y1="50" x2="{x}" y2="{self.y + 24}" class="rule"/>')
        self.p.parts[0:0] = lines
        return self.p.svg(self.y + 40)


def start():
    data = recording("start")
    p = Picture(1060, "Start and end of a panel process: the calls of the platform, in order", made("start"), data)
    where = {name: header.stem for header in (ROOT / "platform/include").glob("*.h") for name in functions_of(header)}
    lanes = [("process", "yours"), ("libutils_ozu", "the library"), ("ozudb", "database"), ("ozulog", "log"), ("mqttc", "message bus")]
    s = Sequence(p, lanes, 110, 200)
    for row in data:
        s.step("process", "libutils_ozu", row["call"])
        for call in row["platform"]:
            lane = where[call["function"]]
            text = f"{call['function']}({call['arguments']})"
            if call["function"].startswith("ozulog_printf"):
                text = "a log line"
            s.step("libutils_ozu", lane, shortened(text, 92))
        s.step("libutils_ozu", "process", "returns" if row["call"].startswith("cleanup") else str(row["result"]), back=True)
    return s.close()


def reboot():
    data = recording("reboot")
    p = Picture(1060, "A coordinated reboot while the broker is silent for four seconds", made("reboot"), data)

    def at(row):
        hours, minutes, seconds = row["time"][11:-1].split(":")
        return int(hours) * 3600 + int(minutes) * 60 + float(seconds)

    first = at(data["rows"][0])
    lanes = [("caller", "ozuutils_RebootSystem"), ("power manager", "Process/…"), ("all processes", "Process/ALL"),
             ("shared record", "modem statistics"), ("system", "PATH")]
    s = Sequence(p, lanes, 170, 195)
    for row in data["rows"]:
        when = f"+{at(row) - first:.2f} s"
        if row["kind"] == "log":
            s.step("caller", "caller", f"logs {row['what']}: {row['meaning']}", when)
        elif row["kind"] == "bus":
            s.step("caller", "power manager" if "POWER" in row["what"] else "all processes", row["meaning"], when)
        else:
            s.step("caller", "shared record", f"{row['what']} {row['meaning']}", when)
    for request in data["requests"]:
        s.step("caller", "system", f"sync; {request}", "then")
    return s.close()


def box():
    data = recording("box")
    p = Picture(860, "What a panel box lays over the machine's file tree", made("box"), data)
    p.text(16, 26, p.title, "head")
    p.text(16, 48, "in the box", "soft")
    p.text(330, 48, "comes from", "soft")
    names = {"STATE": "the box's folder", "PROJECT": "the project"}
    y = 56
    for row in data:
        p.rect(16, y, 290, 24, "ours" if row["writable"] else "box")
        p.text(26, y + 16, row["at"], "mono small")
        p.arrow(324, 308, y + 12)
        source = re.sub(r"^(STATE|PROJECT)", lambda found: names[found[1]], row["from"])
        p.text(330, y + 16, source, "mono small")
        p.text(700, y + 16, "writable" if row["writable"] else "read-only", "small " + ("accent" if row["writable"] else "soft"))
        y += 28
    p.rect(16, y + 8, 290, 34, "box")
    p.text(26, y + 29, "everything else, except your folder", "small")
    p.arrow(324, 308, y + 25)
    p.text(330, y + 29, "the machine", "small")
    p.text(700, y + 29, "read-only", "small soft")
    return p.svg(y + 56)


def demo():
    data = recording("demo")
    scenes = [scene for scene in data["scenes"] if scene["lines"]]
    first = min(line["at"] for scene in scenes for line in scene["lines"])
    last = max(line["at"] for scene in scenes for line in scene["lines"])
    left, width = 430, 480
    scale = width / (last - first)
    p = Picture(960, f"The demo's timeline: {data['answers']} answers in {data['seconds']:.0f} seconds", made("demo"), data)
    p.text(16, 26, p.title, "head")
    for second in range(0, int(last - first) + 1, 5):
        x = left + second * scale
        p.line(x, 52, x, 62 + len(scenes) * 34)
        p.text(x, 46, f"{second} s", "mid small soft")
    colours = {"bus": "accent", "log": "tip", "event": "event", "state": "good", "process": "backtip"}
    for index, scene in enumerate(scenes):
        y = 62 + index * 34
        start_at, end_at = (left + (edge(line["at"] for line in scene["lines"]) - first) * scale for edge in (min, max))
        p.text(16, y + 16, shortened(scene["heading"], 64), "small")
        p.rect(start_at - 3, y, max(end_at - start_at + 6, 6), 24, "box")
        for line in scene["lines"]:
            if line["kind"] in colours:
                p.add("circle", cx=left + (line["at"] - first) * scale, cy=y + 12, r=3, class_=colours[line["kind"]])
    y = 62 + len(scenes) * 34 + 18
    for index, (kind, colour) in enumerate(colours.items()):
        p.add("circle", cx=left + index * 100, cy=y, r=4, class_=colour)
        p.text(left + 10 + index * 100, y + 4, kind, "small")
    return p.svg(y + 20)


def network_times():
    rows = recording("network_times")
    left, bar, step = 330, 14, 22
    scale = (900 - left - 130) / 40
    p = Picture(900, "Time until each call returns", "docs/figures/network_times.py measure, then docs/figures/draw.py network_times", rows)
    height = 46 + len(rows) * step + len({row["function"] for row in rows}) * (step + 8) + 12
    for seconds in range(0, 41, 5):
        x = left + seconds * scale
        p.line(x, 34, x, height - 10)
        p.text(x, 28, f"{seconds} s", "mid small soft")
    y, last = 46, None
    for row in rows:
        if row["function"] != last:
            last = row["function"]
            y += 8
            p.text(10, y + 11, last, "head")
            y += step
        length = max(row["seconds"] * scale, 1.5)
        time = f'{row["seconds"] * 1000:.0f} ms' if row["seconds"] < 0.1 else f'{row["seconds"]:.1f} s'
        p.text(left - 8, y + 11, row["case"], "end small")
        p.rect(left, y, length, bar, "good" if row["success"] else "bad", 2)
        p.text(left + length + 6, y + 11, f'{time}, {"done" if row["success"] else "failed"}', "small")
        y += step
    return p.svg(height)


def performance():
    lines = (ROOT / "docs/performance.md").read_text().splitlines()
    table = [[cell.strip() for cell in line[2:].removesuffix("|").split("|")] for line in lines if line.startswith("| ")]
    rows = [row for row in table if row[0] not in ("family", "---")]
    left, right, step = 430, 840, 19
    lowest, highest = 0.01, 3.0

    def place(ratio):
        share = math.log(min(max(float(ratio), lowest), highest) / lowest) / math.log(highest / lowest)
        return left + share * (right - left)

    p = Picture(900, "What the library takes of what each peer takes: left of 1 it is faster", made("performance", False), rows)
    height = 52 + len(rows) * step + len({row[0] for row in rows}) * (step + 8) + 12
    p.text(16, 22, p.title, "head")
    for ratio in (0.01, 0.03, 0.1, 0.3, 1, 3):
        p.line(place(ratio), 48, place(ratio), height - 10, "line" if ratio == 1 else "rule")
        p.text(place(ratio), 43, f"{ratio:g}", "mid small soft")
    y, last = 52, None
    for family, what, unit, _, peer, _, ratio, most, verdict in rows:
        if family != last:
            last = family
            y += 8
            p.text(16, y + 12, family, "head")
            y += step
        p.text(left - 10, y + 12, shortened(f"{what} / {peer}, {unit}", 66), "end small")
        if most:
            p.line(place(most), y + 2, place(most), y + 14, "line")
        p.add("circle", cx=place(ratio), cy=y + 8, r=4, class_={"met": "good", "missed": "bad"}.get(verdict, "backtip"))
        p.text(right + 10, y + 12, ratio, "small")
        y += step
    return p.svg(height)


PICTURES = {"parts": parts, "record": record, "size": size, "monitor": monitor, "start": start, "reboot": reboot,
            "box": box, "demo": demo, "network_times": network_times, "performance": performance}


def main():
    check = "--check" in sys.argv
    names = [name for name in sys.argv[1:] if name != "--check"] or list(PICTURES)
    if any(name not in PICTURES for name in names):
        sys.exit(__doc__)
    stale = []
    for name in names:
        path, drawn = HERE / f"{name}.svg", PICTURES[name]()
        if not check:
            path.write_text(drawn)
        elif not path.exists() or path.read_text() != drawn:
            stale.append(name)
    if stale:
        sys.exit(f"these pictures no longer show what they are of: {', '.join(stale)}; docs/figures/draw.py draws them")


if __name__ == "__main__":
    main()
