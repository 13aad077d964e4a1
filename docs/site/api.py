# SPDX-License-Identifier: Apache-2.0
"""Pages for the public headers, from the XML that Doxygen writes. Their text is
HTML, because the comments of the headers can contain any characters."""
import html
import itertools
import os
import re
import xml.etree.ElementTree as ElementTree

# In the order in which a program needs them.
HEADERS = ("update.h", "inventory.h", "http.h", "config.h", "logging.h",
           "version.h", "export.h")
LISTS = {"param": "Parameters", "exception": "Throws"}
SECTIONS = {"return": "Returns"}
BLOCKS = ("parameterlist", "simplesect", "itemizedlist", "verbatim")
LINE = 80


def page_of(header):
    return f"api/{'index' if header == 'quorvane.h' else header[:-2]}.md"


class Reader:
    def __init__(self, directory):
        self.compounds = {}
        self.places = {}  # of a Doxygen id: header, anchor
        self.summaries = {}  # of an anchor: the first sentence
        for file in sorted(directory.glob("*quorvane*.xml")) + sorted(
                directory.glob("*_8h.xml")):
            compound = ElementTree.parse(file).getroot().find("compounddef")
            self.compounds[compound.get("id")] = compound
            name = compound.find("compoundname").text.removeprefix("quorvane")
            name = name.removeprefix("::")
            if compound.get("kind") in ("class", "struct"):
                self.places[compound.get("id")] = header_of(compound), name
                self.summaries[name] = self.summary(compound)
            for member in compound.iter("memberdef"):
                anchor = member.find("name").text
                if compound.get("kind") in ("class", "struct"):
                    # A field is a row in the table of its type.
                    anchor = name if member.get("kind") == "variable" \
                        else f"{name}.{anchor}"
                self.places[member.get("id")] = header_of(member), anchor
                self.summaries.setdefault(anchor, self.summary(member))

    def summary(self, element):
        return html.escape(text_of(element.find("briefdescription")), quote=False)

    def html(self, element, header):
        """The content of a description; `header` is that of its page."""
        parts = [html.escape(element.text or "", quote=False)]
        for child in element:
            parts += [self.element(child, header),
                      html.escape(child.tail or "", quote=False)]
        return "".join(parts)

    def paragraph(self, element, header):
        """Doxygen's paragraphs contain lists and sections, those of HTML
        contain only text."""
        parts, text = [], html.escape(element.text or "", quote=False)
        for child in element:
            if child.tag in BLOCKS:
                parts += [f"<p>{text.strip()}</p>" if text.strip() else "",
                          self.element(child, header)]
                text = ""
            else:
                text += self.element(child, header)
            text += html.escape(child.tail or "", quote=False)
        return "".join(parts) + (f"<p>{text.strip()}</p>" if text.strip() else "")

    def element(self, element, header):
        tag = element.tag
        if tag == "parameterlist":
            rows = "".join(
                f"<dt><code>{self.html(item.find('*/parametername'), header)}"
                "</code></dt><dd>"
                f"{self.html(item.find('parameterdescription'), header)}</dd>"
                for item in element)
            return (f"<p class='api'>{LISTS[element.get('kind')]}</p>"
                    f"<dl>{rows}</dl>")
        if tag == "para":
            return self.paragraph(element, header)
        text = self.html(element, header)
        if tag == "verbatim":
            return f"<pre><code>{text}</code></pre>"
        if tag == "simplesect":
            return f"<p class='api'>{SECTIONS[element.get('kind')]}</p>{text}"
        if tag == "ref":
            place = self.places.get(element.get("refid"))
            if not place:
                return text
            page = os.path.basename(page_of(place[0]))[:-3]
            return (f"<a href='{page}.html#{place[1]}'>{text}</a>"
                    if place[0] != header else f"<a href='#{place[1]}'>{text}</a>")
        names = {"computeroutput": "code", "itemizedlist": "ul",
                 "listitem": "li", "bold": "b", "emphasis": "em"}
        # An element that no comment has used yet is an error, not lost text.
        return f"<{names[tag]}>{text}</{names[tag]}>"

    def description(self, element, header):
        return "".join(
            self.html(element.find(part), header).strip()
            for part in ("briefdescription", "detaileddescription"))


def header_of(element):
    return os.path.basename(element.find("location").get("file"))


def text_of(element):
    return "".join(element.itertext()).strip() if element is not None else ""


def signature(member):
    """The declaration, with a line for each parameter if it is long."""
    result = re.sub(r" ([&*])", r"\1", text_of(member.find("type")))
    arguments = re.sub(r" ([&*])(?=\w)", r"\1 ",
                       text_of(member.find("argsstring")))
    arguments = re.sub(r" ?=(default|delete)$", r" = \1", arguments)
    line = f"{result} {text_of(member.find('name'))}{arguments};".strip()
    if len(line) <= LINE:
        return line
    start, rest = line.split("(", 1)
    inside, end = rest.rsplit(")", 1)
    # A comma inside of <> is part of a type.
    inside = re.sub(r", (?![^<]*>)", ",\n    ", inside)
    return f"{start}(\n    {inside}){end}"


def functions(reader, members, header, level, scope):
    """Functions with one comment are one entry; those without are left out."""
    lines = []
    for text, same in itertools.groupby(
            members, lambda member: reader.description(member, header)):
        same = list(same)
        anchors = [reader.places[member.get("id")][1] for member in same]
        names = [scope + text_of(member.find("name")) for member in same]
        if not text:
            continue
        lines += [f"{level} {', '.join(dict.fromkeys(names))} "
                  f"{{: #{anchors[0]} }}", ""]
        lines += [f"<span id='{anchor}'></span>"
                  for anchor in dict.fromkeys(anchors[1:])
                  if anchor != anchors[0]]
        lines += ["", "```cpp", *map(signature, same), "```", "",
                  f"<div>{text}</div>", ""]
    return lines


def table(head, rows):
    head = "".join(f"<th>{one}</th>" for one in head)
    rows = "".join("<tr>" + "".join(f"<td>{one}</td>" for one in row) + "</tr>"
                   for row in rows)
    return ["<div class='api-table'><table>", f"<thead><tr>{head}</tr></thead>",
            f"<tbody>{rows}</tbody></table></div>", ""]


def code(text):
    return f"<code>{html.escape(text, quote=False)}</code>"


def by_line(elements):
    return sorted(elements, key=lambda one: int(
        one.find("location").get("line")))


def type_section(reader, compound, header):
    name = reader.places[compound.get("id")][1]
    lines = [f"## {name} {{: #{name} }}", "", "```cpp",
             f"{compound.get('kind')} {name};", "```", "",
             f"<div>{reader.description(compound, header)}</div>", ""]
    members = by_line(member for member in compound.iter("memberdef")
                      if member.get("prot") == "public")
    fields = [member for member in members if member.get("kind") == "variable"]
    if fields:
        lines += table(("field", "meaning"), (
            (f"{code(text_of(field.find('name')))}<br><small>"
             + html.escape(f"{text_of(field.find('type'))} "
                           f"{text_of(field.find('initializer'))}") + "</small>",
             reader.description(field, header)) for field in fields))
    methods = [member for member in members if member.get("kind") == "function"]
    plain = [signature(method) for method in methods
             if not reader.description(method, header)]
    if plain:
        lines += ["```cpp", *plain, "```", ""]
    return lines + functions(reader, methods, header, "###", name + "::")


def header_page(reader, header):
    file = reader.compounds[header.replace(".h", "_8h")]
    lines = [f"# {header}", "", "```cpp", f"#include <quorvane/{header}>", "```",
             "", f"<div>{reader.description(file, header)}</div>", ""]
    members = by_line(
        member for member in reader.compounds["namespacequorvane"].iter("memberdef")
        if header_of(member) == header)
    for kind in members:
        if kind.get("kind") == "enum":
            name = text_of(kind.find("name"))
            lines += [f"## {name} {{: #{name} }}", "",
                      f"<div>{reader.description(kind, header)}</div>", ""]
            lines += table(("enumerator", "number", "meaning"), (
                (code(text_of(value.find("name"))),
                 text_of(value.find("initializer")).removeprefix("= "),
                 reader.description(value, header))
                for value in kind.iter("enumvalue")))
        elif kind.get("kind") == "typedef":
            name = text_of(kind.find("name"))
            lines += [f"## {name} {{: #{name} }}", "", "```cpp",
                      text_of(kind.find("definition")).replace(
                          "quorvane::", "").replace("typedef ", "") + ";", "```", "",
                      f"<div>{reader.description(kind, header)}</div>", ""]
    for inner in file.iter("innerclass"):
        lines += type_section(reader, reader.compounds[inner.get("refid")], header)
    lines += functions(reader, [member for member in members
                                if member.get("kind") == "function"],
                       header, "##", "")
    macros = [member for member in file.iter("memberdef")
              if member.get("kind") == "define" and member.find("param") is None]
    if macros:
        lines += ["## Macros", ""]
        lines += table(("macro", "value", "meaning"), (
            (code(text_of(macro.find("name"))),
             code(re.sub(r"\s+", " ", text_of(macro.find("initializer")))),
             reader.description(macro, header)) for macro in macros))
    return "\n".join(lines)


def index_page(reader):
    """Every exported function, and where it is documented."""
    file = reader.compounds["quorvane_8h"]
    lines = ["# Library API", "", "```cpp", "#include <quorvane/quorvane.h>",
             "```", "", f"<div>{reader.description(file, 'quorvane.h')}</div>", "",
             "[Install and link the library](../guides/link-the-library.md) shows "
             "how to build a program with it.", "",
             "Everything is in the namespace `quorvane`.", ""]
    for header in HEADERS:
        page = os.path.basename(page_of(header))[:-3] + ".html"
        rows = [(f"<a href='{page}#{anchor}'>{code(anchor.replace('.', '::'))}</a>",
                 reader.summaries[anchor]) for anchor in re.findall(
                     r"(?:\{: #|<span id=')([\w.~]+)", header_page(reader, header))
                if anchor in reader.summaries]
        lines += [f"## {header}", ""]
        lines += [f"[{header}]({page_of(header).removeprefix('api/')}): "
                  + text_of(reader.compounds[header.replace(".h", "_8h")].find(
                      "briefdescription")), ""]
        if rows:
            lines += table(("name", "what it is or does"), rows)
    return "\n".join(lines)


def pages(directory):
    reader = Reader(directory)
    yield "quorvane.h", index_page(reader)
    for header in HEADERS:
        yield header, header_page(reader, header)
