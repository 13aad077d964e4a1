#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Writes the pages of the site, and the configuration of MkDocs, into a
directory. docs/README.md is the start page; its headings and links are the
navigation. Links between files of the source tree become links between pages.

Usage: pages.py SOURCE_DIRECTORY DOXYGEN_XML_DIRECTORY DIRECTORY
"""
import os
import pathlib
import re
import shutil
import sys

import api

SOURCE = pathlib.Path(sys.argv[1]).resolve()
XML, OUT = map(pathlib.Path, sys.argv[2:])
INDEX = "docs/README.md"
# Pages from other directories, and their names on the site.
OTHERS = {
    INDEX: "index.md",
    "README.md": "index.md",
    "CHANGELOG.md": "changelog.md",
    "CONTRIBUTING.md": "contributing.md",
    "ansible/README.md": "ansible.md",
    "simulator/README.md": "simulator.md",
    "tools/quorvane/README.md": "tool-modules.md",
}
CODE = re.compile(r"(^```.*?^```|`[^`\n]+`)", re.M | re.S)
LINK = re.compile(r"(\]\()([^)\s#:]+)(#[^)\s]*)?(\))")


def place(name):
    """Where a file of the source tree is on the site."""
    if name in OTHERS:
        return OTHERS[name]
    if name.startswith("include/quorvane/"):
        return api.page_of(pathlib.Path(name).name)
    return name.removeprefix("docs/") if name.startswith("docs/") \
        else "files/" + name


def resolve(page, link):
    """The file of the source tree to which a page links."""
    return os.path.normpath(os.path.join(os.path.dirname(page), link))


def with_links(page, text):
    def moved(link):
        target = resolve(page, link[2])
        if not (SOURCE / target).is_file():
            sys.exit(f"{page}: the link {link[2]} leads nowhere")
        if not target.endswith((".md", ".h")):
            copy = OUT / "pages" / place(target)
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(SOURCE / target, copy)
        to = os.path.relpath(place(target), os.path.dirname(place(page)) or ".")
        return link[1] + to + (link[3] or "") + link[4]

    # A split by one group: every second part is code.
    parts = CODE.split(text)
    parts[::2] = [LINK.sub(moved, part) for part in parts[::2]]
    return "".join(parts)


def from_manual(name, text):
    """A manual page is written for pandoc: its title is in the front matter, and
    each line of a line block ends with a line break."""
    title = "# {}({})".format(*name.removesuffix(".md").rsplit(".", 1))
    text = re.sub(r"\A---\n.*?\n---\n", "", text, flags=re.S)
    text = re.sub(r"^(#+ )", r"#\1", text, flags=re.M)
    text = re.sub(r"^\| (?=\*\*)(.*)$", r"\1  ", text, flags=re.M)
    return title + "\n" + text


def write(name, text):
    file = OUT / "pages" / name
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(text, "utf-8")


def navigation(text):
    """Groups of pages: each heading of the index with the pages that follow it.
    A part of a page, such as page.md#part, is not a page of its own."""
    lines = ["nav:", "  - Overview: index.md"]
    pages = []
    for heading, body in re.findall(r"^## ([^\n]*)\n(.*?)(?=^## |\Z)", text,
                                    re.M | re.S):
        lines.append(f"  - {heading}:")
        for label, link in re.findall(r"\[([^]]+)\]\(([^)#\s]+)\)", body):
            page = place(resolve(INDEX, link))
            pages.append(page)
            if page != api.page_of("quorvane.h"):
                lines.append(f'    - "{label}": {page}')
                continue
            lines += [f'    - "{label}":', f"      - {page}"]
            lines += [f"      - {header}: {api.page_of(header)}"
                      for header in api.HEADERS]
    return lines, pages


shutil.rmtree(OUT / "pages", ignore_errors=True)
sources = [name for name in OTHERS if name != "README.md"]
sources += [file.relative_to(SOURCE).as_posix()
            for file in sorted((SOURCE / "docs").rglob("*.md"))]
for source in dict.fromkeys(sources):
    content = (SOURCE / source).read_text("utf-8")
    if source.startswith("docs/man/"):
        content = from_manual(pathlib.Path(source).name, content)
    # Words after the language, such as `sh run`, are for the tests.
    content = re.sub(r"^(```\w+) .*$", r"\1", content, flags=re.M)
    # On a phone, the text in a picture is readable only in its own window.
    content = re.sub(r"(!\[[^]]*\]\(([^)]*)\))", r"[\1](\2)", content)
    write(place(source), with_links(source, content))
for header, content in api.pages(XML):
    write(api.page_of(header), content)

settings = (SOURCE / "docs/site/mkdocs.yml").read_text("utf-8")
groups, listed = navigation((SOURCE / INDEX).read_text("utf-8"))
missing = {place(source) for source in sources} - {"index.md", *listed}
if missing:
    sys.exit(f"{INDEX} has no link to {', '.join(sorted(missing))}")
settings += "\n".join(groups) + "\n"
(OUT / "mkdocs.yml").write_text(settings, "utf-8")
