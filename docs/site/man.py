"""Manual pages of section 3, one for each function, from the headers."""

import re


def escaped(text):
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def inline(element):
    """The text of an element; references to functions are bold."""
    parts = [escaped(element.text or "")]
    for child in element:
        if child.tag in ("itemizedlist", "parameterlist", "simplesect", "programlisting", "verbatim"):
            parts.append("")
        elif child.tag in ("ref", "computeroutput", "bold"):
            parts.append(f"\\fB{inline(child)}\\fR")
        else:
            parts.append(inline(child))
        parts.append(escaped(child.tail or ""))
    return re.sub(r"\s+", " ", "".join(parts))


def blocks(element, skip=()):
    """Lines of roff for the paragraphs and lists of a description."""
    lines = []
    for para in element:
        text = [escaped(para.text or "")]

        def flush():
            joined = re.sub(r"\s+", " ", "".join(text)).strip()
            if joined:
                lines.extend([".PP", joined])
            text.clear()

        for child in para:
            if child.tag == "itemizedlist":
                flush()
                for item in child:
                    lines.extend([".IP \\(bu 2", re.sub(r"\s+", " ", " ".join(inline(part) for part in item)).strip()])
            elif child.tag in ("programlisting", "verbatim"):
                flush()
                lines.extend([".PP", ".nf", escaped("".join(child.itertext())), ".fi"])
            elif child.tag in ("parameterlist", "simplesect"):
                flush()
            elif child.tag in ("ref", "computeroutput", "bold"):
                text.append(f"\\fB{inline(child)}\\fR")
            else:
                text.append(inline(child))
            text.append(escaped(child.tail or ""))
        flush()
    return lines


def page(function, version, date, related):
    """The page of one function; related are names for SEE ALSO."""
    detailed = function.element.find("detaileddescription")
    family = {"Library": "utils_ozu", "Platform": "utils_ozu", "Test kit": "ozu_fake_platform utils_ozu"}[function.header.owner]
    lines = [f'.TH "{function.name}" 3 "{date}" "libutils_ozu {version}" "libutils_ozu"', ".nh", ".ad l",
             ".SH NAME", f"{escaped(function.name)} \\- {escaped(function.brief.rstrip('.'))}",
             ".SH SYNOPSIS", ".nf", f"\\fB#include <{function.header.include}>\\fR", ".PP",
             f"\\fB{escaped(function.declaration)}\\fR", ".PP",
             f"\\fBcc\\fR \\fIprogram.c\\fR \\fB$(pkg\\-config \\-\\-cflags \\-\\-libs {escaped(family)})\\fR", ".fi",
             ".SH DESCRIPTION", escaped(function.brief)]
    lines += blocks(detailed)
    parameters = detailed.findall(".//parameteritem")
    if parameters:
        lines.append(".SH PARAMETERS")
        for item in parameters:
            names = ", ".join("".join(name.itertext()) for name in item.findall(".//parametername"))
            lines += [".TP", f"\\fI{escaped(names)}\\fR", inline(item.find("parameterdescription")).strip()]
    for section, heading in (("return", "RETURN VALUE"), ("note", "NOTES")):
        found = detailed.findall(f".//simplesect[@kind='{section}']")
        if found:
            lines += [f".SH {heading}", *(" ".join(inline(para) for para in one).strip() for one in found)]
    if function.examples:
        lines += [".SH EXAMPLES", ".br\n".join(f"/usr/share/doc/utils_ozu/examples/{escaped(name)}\n" for name in function.examples).rstrip()]
    others = [f"\\fB{escaped(name)}\\fR(3)" for name in related]
    general = "\\fBozu\\-platform\\fR(7)" if function.header.owner == "Platform" else "\\fBlibutils_ozu\\fR(7)"
    lines += [".SH SEE ALSO", ", ".join([*others, general])]
    return "\n".join(lines) + "\n"
