"""The headers as HTML: one page a header, one section a function."""

import html
import re

from model import plain


def text(words):
    """Escaped; a page of docs becomes a link."""
    return re.sub(r"\bdocs/(\w+)\.md\b", r'<a href="../\1.html">docs/\1.md</a>', html.escape(words or "", quote=False))


class Renderer:
    def __init__(self, addresses):
        self.addresses = addresses  # name of a function or type -> address from the site's root

    def name(self, words, up="../"):
        where = self.addresses.get(words.rstrip("()"))
        return f'<a href="{up}{where}"><code>{text(words)}</code></a>' if where else f"<code>{text(words)}</code>"

    def inline(self, element):
        parts = [text(element.text)]
        for child in element:
            if child.tag == "ref":
                parts.append(self.name("".join(child.itertext())))
            elif child.tag == "computeroutput":
                parts.append(f"<code>{text(''.join(child.itertext()))}</code>")
            elif child.tag == "bold":
                parts.append(f"<strong>{self.inline(child)}</strong>")
            elif child.tag not in ("itemizedlist", "parameterlist", "simplesect", "programlisting", "verbatim"):
                parts.append(self.inline(child))
            parts.append(text(child.tail))
        return "".join(parts)

    def blocks(self, element):
        parts = []
        for para in element:
            words = [text(para.text)]

            def flush():
                joined = "".join(words).strip()
                if joined:
                    parts.append(f"<p>{joined}</p>")
                words.clear()

            for child in para:
                if child.tag == "itemizedlist":
                    flush()
                    parts.append("<ul>" + "".join(f"<li>{' '.join(self.inline(one) for one in item)}</li>" for item in child) + "</ul>")
                elif child.tag in ("programlisting", "verbatim"):
                    flush()
                    parts.append(f"<pre>{text(''.join(child.itertext()))}</pre>")
                elif child.tag in ("parameterlist", "simplesect"):
                    flush()
                elif child.tag == "ref":
                    words.append(self.name("".join(child.itertext())))
                elif child.tag == "computeroutput":
                    words.append(f"<code>{text(''.join(child.itertext()))}</code>")
                elif child.tag == "bold":
                    words.append(f"<strong>{self.inline(child)}</strong>")
                else:
                    words.append(self.inline(child))
                words.append(text(child.tail))
            flush()
        return "".join(parts)

    def function(self, function):
        detailed = function.element.find("detaileddescription")
        parts = [f'<section id="{function.name}"><h2><a class="self" href="#{function.name}"><code>{text(function.name)}</code></a></h2>',
                 f"<pre class=declaration>{text(function.declaration)}</pre>",
                 self.blocks(function.element.find("briefdescription"))]
        items = detailed.findall(".//parameteritem")
        if items:
            parts.append("<dl>")
            for item in items:
                names = ", ".join("".join(name.itertext()) for name in item.findall(".//parametername"))
                parts.append(f"<dt><code>{text(names)}</code></dt><dd>{self.inline(item.find('parameterdescription'))}</dd>")
            parts.append("</dl>")
        for section in detailed.findall(".//simplesect[@kind='return']"):
            parts.append("<p><strong>Returns</strong> " + " ".join(self.inline(para) for para in section) + "</p>")
        parts.append(self.blocks(detailed))
        links = [f'<a href="../man/{function.name}.3.html">{text(function.name)}(3)</a>']
        links += [f'<a href="../{address}">{text(title)}</a>' for address, title in function.pages]
        links += [f'<a href="../examples/{name}.html">{text(name)}</a>' for name in function.examples]
        parts.append(f"<p class=links>See also: {', '.join(links)}</p></section>")
        return "\n".join(parts)

    def constants(self, header):
        parts = []
        for member in header.others:
            name, kind = member.findtext("name"), member.get("kind")
            if kind == "typedef" and member.find("type/ref") is not None and not plain(member.find("briefdescription")):
                continue
            value = plain(member.find("initializer")) if kind in ("define", "variable") else ""
            parts.append(f'<h3 id="{name}"><code>{text(name)}{" " + text(value) if value and len(value) < 60 else ""}</code></h3>')
            parts.append(self.blocks(member.find("briefdescription")) + self.blocks(member.find("detaileddescription")))
            rows = [f"<tr><td><code>{text(one.findtext('name'))}</code></td><td><code>{text(plain(one.find('initializer')).lstrip('= '))}</code>"
                    f"</td><td>{text(plain(one.find('briefdescription')) or plain(one.find('detaileddescription')))}</td></tr>"
                    for one in member.findall("enumvalue")]
            if rows:
                parts.append(f"<div class=wide><table>{''.join(rows)}</table></div>")
        for record in header.records:
            name = record.findtext("compoundname")
            parts.append(f'<h3 id="{name}"><code>struct {text(name)}</code></h3>')
            parts.append(self.blocks(record.find("briefdescription")) + self.blocks(record.find("detaileddescription")))
            rows = []
            for member in record.iter("memberdef"):
                shape = f"{plain(member.find('type'))} {member.findtext('name')}{plain(member.find('argsstring'))}"
                about = plain(member.find("briefdescription")) or plain(member.find("detaileddescription"))
                rows.append(f"<tr><td><code>{text(re.sub(r' +', ' ', shape))}</code></td><td>{text(about)}</td></tr>")
            parts.append(f"<div class=wide><table>{''.join(rows)}</table></div>")
        return "\n".join(parts)

    def header(self, header):
        listed = "".join(f'<tr><td><a href="#{one.name}"><code>{text(one.name)}</code></a></td><td>{text(one.brief)}</td></tr>'
                         for one in header.functions)
        return "\n".join([
            f"<h1>{text(header.brief)}</h1>", f"<pre class=declaration>#include &lt;{header.include}&gt;</pre>",
            self.blocks(header.element.find("detaileddescription")),
            f"<div class=wide><table>{listed}</table></div>" if listed else "",
            *(self.function(one) for one in header.functions),
            "<h2>Types and constants</h2>" + self.constants(header) if header.others or header.records else ""])
