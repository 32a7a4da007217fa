"""The site and the manual pages: complete, no dead link, readable on a phone, without a network."""

import functools
import html.parser
import http.server
import json
import pathlib
import re
import shutil
import subprocess
import threading

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BROWSER = shutil.which("chromium-headless-shell") or shutil.which("chromium")
VERSION = (ROOT / "VERSION").read_text().strip()


def exported_names():
    lines = (ROOT / "tests/abi/exported_names.txt").read_text().splitlines()
    return [line for line in lines if line and not line.startswith("#")]


@pytest.fixture(scope="module")
def made(tmp_path_factory):
    """A folder of this run's own, with site and man."""
    folder = tmp_path_factory.mktemp("docs")
    done = subprocess.run([ROOT / "docs/build", "--to", folder], capture_output=True, text=True)
    assert (done.returncode, done.stderr) == (0, ""), done.stderr
    return folder


@pytest.fixture(scope="module")
def site(made):
    return made / "site"


def test_two_runs_do_not_disturb_each_other():
    """Both make the whole, in the same place, beside what an earlier run left there."""
    runs = [subprocess.Popen([ROOT / "docs/build"], cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) for _ in range(2)]
    assert [(*run.communicate(timeout=600), run.returncode) for run in runs] == [("build/site/index.html\n", "", 0)] * 2
    assert (ROOT / "build/site/search-index.js").is_file() and (ROOT / "build/man/man3/exec_cmd.3").is_file()
    assert not list((ROOT / "build").glob("docs.*/"))


class Links(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.targets, self.ids = [], set()

    def handle_starttag(self, tag, attributes):
        for name, value in attributes:
            if name in ("href", "src"):
                self.targets.append(value)
            elif name == "id":
                self.ids.add(value)


def parsed(site):
    found = {}
    for path in site.rglob("*.html"):
        found[path] = Links()
        found[path].feed(path.read_text())
    return found


def dead(links):
    """Links that lead nowhere; whatever leaves the site counts, too: it has to work offline."""
    found = []
    for path, page in links.items():
        for target in page.targets:
            where, _, anchor = target.partition("#")
            file = (path.parent / where).resolve() if where else path
            if re.match(r"[a-z]+:", target) or not file.is_file() or (anchor and anchor not in links[file].ids):
                found.append(f"{path.name}: {target}")
    return found


def test_no_dead_link(site):
    links = parsed(site)
    assert len(links) > 200 and sum(len(page.targets) for page in links.values()) > 5000
    assert dead(links) == []


def test_a_dead_link_is_seen(tmp_path):
    (tmp_path / "a.html").write_text('<p id="x"><a href="#x"></a><a href="b.html"></a><a href="#y"></a><img src="https://z/">')
    assert dead(parsed(tmp_path)) == ["a.html: b.html", "a.html: #y", "a.html: https://z/"]


def test_every_function_has_a_section_with_its_manual_page(site):
    text = "".join(path.read_text() for path in (site / "api").glob("*.html"))
    missing = [name for name in exported_names() if f'id="{name}"' not in text]
    unlinked = [name for name in exported_names() if name != "ARES_MAX_RETRY" and f'href="../man/{name}.3.html"' not in text]
    assert (missing, unlinked) == ([], [])


def test_a_function_leads_to_its_page_and_its_example(site):
    text = (site / "api/utils_ozu-resolver.html").read_text()
    section = text[text.index('<section id="nslookup_ares">'):].split("</section>")[0]
    assert 'href="../network.html"' in section
    start = (site / "api/utils_ozu-process.html").read_text()
    assert 'href="../examples/arm_lamp.c.html"' in start and 'href="../guides/write_a_process.html"' in start
    assert '<a href="../api/utils_ozu-process.html#ozuutils_processInit">' in (site / "examples/arm_lamp.c.html").read_text()


def test_every_page_tells_the_version(site):
    assert [path.name for path in site.rglob("*.html") if f'class="version">{VERSION}<' not in path.read_text()] == []


def test_every_page_is_in_the_menu(site):
    menu = (site / "index.html").read_text().split("<nav>")[1].split("</nav>")[0]
    pages = [str(path.relative_to(site)) for path in [*site.glob("*.html"), *site.glob("guides/*.html"), *site.glob("api/*.html")]]
    assert [page for page in pages if f'href="{page}"' not in menu] == []


@pytest.mark.parametrize("name", exported_names())
def test_man_finds_the_name_and_never_breaks_it(made, name):
    done = subprocess.run(["man", "--warnings=w", "-M", made / "man", "3", name], capture_output=True, text=True,
                          env={"PATH": "/usr/bin:/bin", "MANWIDTH": "60", "LC_ALL": "C.UTF-8"})
    assert (done.returncode, done.stderr) == (0, "")
    assert re.search(rf"\b{name}\b", done.stdout) and "SYNOPSIS" in done.stdout and "\u2010\n" not in done.stdout


# ---- in a browser

PROBE = """<!doctype html><iframe id="frame" style="width: 360px; height: 740px; border: 0"></iframe><pre id="answer"></pre><script>
const pages = PAGES, rows = [];
const frame = document.getElementById("frame");
function load(page) { return new Promise(done => { frame.onload = () => done(frame.contentDocument); frame.src = page; }); }
(async () => {
    for (const page of pages) {
        const inside = await load(page);
        const root = inside.documentElement;
        rows.push({ page, wide: root.scrollWidth - root.clientWidth, title: inside.title,
                    broken: [...inside.images].filter(image => !image.naturalWidth).map(image => image.src),
                    paper: getComputedStyle(inside.body).backgroundColor, ink: getComputedStyle(inside.body).color });
    }
    const inside = await load("guides/write_a_process.html");
    const field = inside.getElementById("search"), found = {};
    for (const words of ["nslookup_ares", "bypass expiry", "co-processor", "zzzz"]) {
        field.value = words;
        field.dispatchEvent(new Event("input"));
        found[words] = [...inside.querySelectorAll("#found li")].slice(0, 3).map(line => line.querySelector("a")?.href ?? line.textContent);
    }
    document.getElementById("answer").textContent = JSON.stringify({ rows, found });
    document.title = "done";
})();
</script>"""


class Quiet(http.server.SimpleHTTPRequestHandler):
    def log_message(self, *_):
        pass


def look(site, dark):
    """What a browser of a phone's width says about every page."""
    pages = sorted(str(path.relative_to(site)) for path in site.rglob("*.html") if path.name != "probe.html")
    (site / "probe.html").write_text(PROBE.replace("PAGES", json.dumps(pages)))
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), functools.partial(Quiet, directory=site))
    threading.Thread(target=server.serve_forever, daemon=True).start()
    try:
        done = subprocess.run([BROWSER, "--headless", "--no-sandbox", "--disable-gpu", "--hide-scrollbars", "--timeout=240000",
                               "--virtual-time-budget=2000000", f"--blink-settings=preferredColorScheme={0 if dark else 1}",
                               "--dump-dom", f"http://127.0.0.1:{server.server_address[1]}/probe.html"],
                              capture_output=True, text=True, timeout=300)
    finally:
        server.shutdown()
        (site / "probe.html").unlink()
    answer = re.search(r'<pre id="answer">(.+?)</pre>', done.stdout, re.S)
    assert answer, done.stderr[-2000:]
    return json.loads(html.unescape(answer[1])), len(pages)


@pytest.fixture(scope="module", params=["light", "dark"])
def looked(site, request):
    if not BROWSER:
        pytest.skip("no chromium on this machine")
    return request.param, *look(site, request.param == "dark")


def test_every_page_fits_a_phone_and_shows_its_pictures(looked):
    scheme, answer, count = looked
    assert len(answer["rows"]) == count
    assert [row["page"] for row in answer["rows"] if row["wide"] > 0] == []
    assert [row["broken"] for row in answer["rows"] if row["broken"]] == []
    assert {row["paper"] for row in answer["rows"]} == {"rgb(255, 255, 255)" if scheme == "light" else "rgb(20, 25, 31)"}


def test_a_page_that_is_too_wide_is_seen(site, tmp_path):
    if not BROWSER:
        pytest.skip("no chromium on this machine")
    shutil.copytree(site / "guides", tmp_path / "guides")
    shutil.copytree(site / "figures", tmp_path / "figures")
    for name in ("style.css", "search.js", "search-index.js"):
        shutil.copy(site / name, tmp_path)
    (tmp_path / "wide.html").write_text("<title>x</title><body><div style='width: 500px'>x</div><img src='missing.svg'>")
    answer, _ = look(tmp_path, False)
    assert [(row["page"], row["wide"] > 100, len(row["broken"])) for row in answer["rows"] if row["wide"] or row["broken"]] == \
        [("wide.html", True, 1)]


def test_search_finds(looked):
    found = looked[1]["found"]
    assert found["nslookup_ares"][0].endswith("/api/utils_ozu-resolver.html#nslookup_ares")
    assert any("glossary" in one for one in found["co-processor"]) or any("coprocessor" in one for one in found["co-processor"])
    assert found["bypass expiry"][0].startswith("http") and found["zzzz"] == ["Nothing found."]
