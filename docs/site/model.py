"""What the headers say, from Doxygen's XML: headers with their functions, types and constants."""

import dataclasses
import pathlib
import re
import subprocess
import xml.etree.ElementTree as ElementTree

ROOT = pathlib.Path(__file__).resolve().parents[2]


@dataclasses.dataclass
class Function:
    name: str
    header: "Header"
    declaration: str
    element: ElementTree.Element
    pages: list = dataclasses.field(default_factory=list)     # (address, title) that name it
    examples: list = dataclasses.field(default_factory=list)  # names of example files

    @property
    def brief(self):
        return plain(self.element.find("briefdescription"))


@dataclasses.dataclass
class Header:
    include: str        # as it is included: utils_ozu/text.h
    element: ElementTree.Element
    functions: list
    others: list        # member definitions that are not functions
    records: list       # compounds of structures

    @property
    def address(self):
        return "api/" + self.include.replace("/", "-").removesuffix(".h") + ".html"

    @property
    def brief(self):
        return plain(self.element.find("briefdescription")).rstrip(".")

    @property
    def owner(self):
        if self.include == "ozu_fake_platform.h":
            return "Test kit"
        return "Library" if "utils_ozu" in self.include or "inc_ozu" in self.include else "Platform"


def plain(element):
    return " ".join("".join(element.itertext()).split()) if element is not None else ""


def run_doxygen(folder):
    """Writes the XML into the folder and returns where it is there; ends with Doxygen's words when it warns."""
    settings = (ROOT / "docs/Doxyfile").read_text() + f'OUTPUT_DIRECTORY = "{folder}"\n'
    done = subprocess.run(["doxygen", "-"], cwd=ROOT, input=settings, capture_output=True, text=True)
    if done.returncode != 0 or done.stderr:
        raise SystemExit(f"doxygen: {done.stderr}")
    return pathlib.Path(folder) / "xml"


def declaration(member):
    """In the words of the header: one parameter a line when it is long."""
    result = re.sub(r"\s+\*", " *", plain(member.find("type"))).replace("static inline ", "static inline ")
    parameters = []
    for parameter in member.findall("param"):
        kind, name = plain(parameter.find("type")), plain(parameter.find("declname"))
        parameters.append(kind + ("" if kind.endswith("*") or not name else " ") + name + plain(parameter.find("array")))
    head = result + ("" if result.endswith("*") else " ") + member.findtext("name")
    joined = f"{head}({', '.join(parameters) or 'void'});"
    if "(*" in plain(member.find("type")) or len(joined) <= 76:
        return joined
    return head + "(\n    " + ",\n    ".join(parameters) + ");"


def read(xml):
    """All headers, the library's first."""
    headers = []
    for path in sorted(xml.glob("*_8h.xml")):
        element = ElementTree.parse(path).getroot().find("compounddef")
        include = element.find("location").get("file")
        include = re.sub(r"^.*/(?=ozu_fake_platform\.h)", "", include)
        header = Header(include, element, [], [], [])
        for member in element.iter("memberdef"):
            if member.get("kind") == "function":
                header.functions.append(Function(member.findtext("name"), header, declaration(member), member))
            elif plain(member.find("briefdescription")) or member.get("kind") == "enum":
                header.others.append(member)
        for inner in element.findall("innerclass"):
            header.records.append(ElementTree.parse(xml / f"{inner.get('refid')}.xml").getroot().find("compounddef"))
        headers.append(header)
    order = {"Library": 0, "Platform": 1, "Test kit": 2}
    return sorted(headers, key=lambda header: (order[header.owner], header.include != "utils_ozu.h", header.include))
