"""A small SVG canvas: one picture for both colour schemes, the same bytes for the same content."""

import hashlib
import html
import json

STYLE = """
svg { --paper: #ffffff; --ink: #1c2733; --soft: #5a6977; --rule: #ccd5dd; --fill: #f3f6f9; --ours: #dbeaf8;
      --good: #2b7a4b; --bad: #b5462f; --accent: #2364a8; --event: #7a4fa3; }
@media (prefers-color-scheme: dark) {
  svg { --paper: #14191f; --ink: #e4eaf0; --soft: #9aa8b5; --rule: #36424e; --fill: #1d252d; --ours: #1b3752;
        --good: #6cc28e; --bad: #ef8a72; --accent: #7db8f2; --event: #c7a2ea; }
}
text { fill: var(--ink); } .soft { fill: var(--soft); } .head { font-weight: 600; } .mono { font-family: ui-monospace, "DejaVu Sans Mono", monospace; }
.end { text-anchor: end; } .mid { text-anchor: middle; } .small { font-size: 11.5px; }
.good { fill: var(--good); } .bad { fill: var(--bad); } .accent { fill: var(--accent); } .event { fill: var(--event); }
.box { fill: var(--fill); stroke: var(--rule); } .ours { fill: var(--ours); stroke: var(--accent); } .paper { fill: var(--paper); }
.rule { stroke: var(--rule); } .line { stroke: var(--ink); fill: none; } .back { stroke: var(--soft); stroke-dasharray: 4 3; fill: none; }
.tip { fill: var(--ink); } .backtip { fill: var(--soft); }
"""


class Picture:
    def __init__(self, width, title, made, data):
        """made: how to make it again; data: what it shows."""
        digest = hashlib.sha256(json.dumps(data, sort_keys=True).encode()).hexdigest()[:16]
        self.width, self.title, self.made, self.digest = width, title, made, digest
        self.parts = []

    def add(self, name, text=None, **attributes):
        words = "".join(f' {key.rstrip("_").replace("_", "-")}="{html.escape(self.number(value))}"'
                        for key, value in attributes.items())
        self.parts.append(f"<{name}{words}/>" if text is None else f"<{name}{words}>{html.escape(text)}</{name}>")

    @staticmethod
    def number(value):
        return f"{value:.1f}".rstrip("0").rstrip(".") if isinstance(value, float) else str(value)

    def text(self, x, y, text, kind="", **more):
        self.add("text", text, x=x, y=y, **({"class_": kind} if kind else {}), **more)

    def rect(self, x, y, width, height, kind, radius=4):
        self.add("rect", x=x, y=y, width=width, height=height, rx=radius, class_=kind)

    def line(self, x1, y1, x2, y2, kind="rule"):
        self.add("line", x1=x1, y1=y1, x2=x2, y2=y2, class_=kind)

    def arrow(self, x1, x2, y, kind="line"):
        self.line(x1, y, x2, y, kind)
        back = 7 if x2 > x1 else -7
        self.add("path", d=f"M{x2} {y} l{-back} -4 v8 z", class_="tip" if kind == "line" else "backtip")

    def down(self, x, y1, y2):
        self.line(x, y1, x, y2, "line")
        self.add("path", d=f"M{x} {y2} l-4 -7 h8 z", class_="tip")

    def svg(self, height):
        body = "\n".join(self.parts)
        return (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {self.width} {height}" width="{self.width}" '
                f'height="{height}" role="img" font-family="system-ui, sans-serif" font-size="13">\n'
                f"<!-- Made by {self.made}; content {self.digest}. -->\n<title>{html.escape(self.title)}</title>\n"
                f'<style>{STYLE}</style>\n<rect width="{self.width}" height="{height}" class="paper"/>\n{body}\n</svg>\n')
