#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Checks a built site: every link and anchor, every exported function, and each
page in a browser that opens it as a file, on a phone and on a desktop, light and
dark.

Usage: site_test.py SITE_DIRECTORY SOURCE_DIRECTORY CHROMIUM
"""
import html.parser
import pathlib
import re
import sys
import urllib.parse

SITE, SOURCE = (pathlib.Path(name).resolve() for name in sys.argv[1:3])
CHROMIUM = sys.argv[3]
sys.path.insert(0, str(SOURCE / "tests/tools"))
from browser import Browser  # noqa: E402

PAGES = sorted(SITE.rglob("*.html"))
PAPER = {"light": "rgb(255, 255, 255)", "dark": "rgb(46, 48, 62)"}
# A word, and the page that must be among the results.
SEARCHES = (("proceed_to_activation", "rules.html"),
            ("PerformUpdate", "api/update.html"),
            ("known-hosts", "man/quorvane.1.html"),
            ("Rehearse", "guides/rehearse-an-update.html"))
SEARCH = """(async () => {
  const input = document.querySelector(".md-search__input");
  const links = () => [...document.querySelectorAll("a.md-search-result__link")]
      .map(link => link.href);
  const end = Date.now() + 10000;
  input.focus();
  input.value = WORD;
  input.dispatchEvent(new KeyboardEvent("keyup", {key: "e"}));
  while (!links().length && Date.now() < end)
    await new Promise(resolve => setTimeout(resolve, 50));
  return links();
})()"""
faults = []


class Links(html.parser.HTMLParser):
    """What a page refers to, and the anchors that it has."""

    def __init__(self, file):
        super().__init__()
        self.links, self.anchors, self.loaded = [], set(), []
        self.feed(file.read_text("utf-8"))

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.anchors |= {values.get("id"), values.get("name")}
        if "href" in values:
            (self.links if tag == "a" else self.loaded).append(values["href"])
        if "src" in values:
            self.loaded.append(values["src"])


def check_links():
    read = {file: Links(file) for file in PAGES}
    reached = {SITE / "index.html"}
    for file, page in read.items():
        for link in page.links + page.loaded:
            parts = urllib.parse.urlsplit(link)
            if parts.scheme or parts.netloc:
                if link in page.loaded:
                    faults.append(f"{file}: loads {link}")
                continue
            target = (file.parent / urllib.parse.unquote(parts.path)).resolve() \
                if parts.path else file
            if not target.is_file():
                faults.append(f"{file}: the link {link} leads nowhere")
                continue
            reached.add(target)
            anchor = urllib.parse.unquote(parts.fragment)
            # The script of the theme handles this one.
            if anchor and target in read and anchor != "__skip" \
                    and anchor not in read[target].anchors:
                faults.append(f"{file}: the anchor {link} leads nowhere")
    for file in read.keys() - reached:
        faults.append(f"{file}: no page links to it")
    for file in SITE.rglob("*.svg"):
        for url in re.findall(r"(?:href=\"|url\(|@import )[^#\"')]*[\"')]?",
                              file.read_text("utf-8")):
            if "http" in url:
                faults.append(f"{file}: loads {url}")


def check_api():
    """Each exported function has an entry, to which the overview links."""
    index = Links(SITE / "api/index.html").links
    for line in (SOURCE / "tests/surface.txt").read_text().splitlines():
        name = re.match(r"quorvane::([\w:~]+)", line)[1].replace("::", ".")
        type_name, _, member = name.partition(".")
        # The declaration of a class contains what has no comment.
        anchor = type_name if member.lstrip("~") == type_name else name
        pages = [link for link in index if link.endswith("#" + anchor)]
        if len(pages) != 1:
            faults.append(f"api/index.html: {pages} for {line}")
            continue
        page = (SITE / "api" / pages[0].split("#")[0]).read_text("utf-8")
        text = re.sub(r"<[^>]*>", "", page)
        if f"{name.rpartition('.')[2]}(" not in text:
            faults.append(f"{pages[0]}: no declaration of {line}")


def look(browser, file, width, scheme):
    """Opens one page and looks at it."""
    browser.open(file.as_uri())
    seen = browser.run("""({
        width: innerWidth, needed: document.documentElement.scrollWidth,
        paper: getComputedStyle(document.body).backgroundColor,
        broken: [...document.images].filter(image => !image.naturalWidth)
            .map(image => image.src)})""")
    where = f"{file}, {width} pixels, {scheme}"
    # On a phone, a page that is too wide makes the window wider.
    if seen["width"] != width or seen["needed"] > width:
        faults.append(f"{where}: scrolls sideways: {seen}")
    if seen["paper"] != PAPER[scheme] or seen["broken"]:
        faults.append(f"{where}: {seen}")
    if browser.complaints:
        faults.append(f"{where}: {browser.complaints}")
    away = [url for url in browser.requested
            if not url.startswith(("file:", "data:", "blob:"))]
    if away:
        faults.append(f"{where}: requests {away}")


def check_search(browser, width):
    """Enters each word at once, even before the search has started."""
    for word, page in SEARCHES:
        browser.open((SITE / "index.html").as_uri())
        found = browser.run(SEARCH.replace("WORD", repr(word)))
        wanted = (SITE / page).as_uri()
        if not any(link.startswith(wanted) for link in found) \
                or browser.complaints:
            faults.append(f"search for {word}, {width} pixels: {found[:5]}, "
                          f"{browser.complaints}")


def check_choice(browser):
    """The page follows the system, until the user chooses."""
    def scheme():
        # The page hears of another scheme when it is drawn.
        return browser.run("""new Promise(resolve =>
          requestAnimationFrame(() => requestAnimationFrame(() =>
            resolve(document.body.dataset.mdColorScheme))))""")
    browser.window(1280, scheme="dark")
    browser.open((SITE / "index.html").as_uri())
    shown = [scheme()]
    browser.window(1280, scheme="light")
    shown.append(scheme())
    browser.run("document.querySelector('label[for=__palette_2]').click()")
    shown.append(scheme())
    browser.window(1280, scheme="dark")
    browser.window(1280, scheme="light")
    browser.open((SITE / "rules.html").as_uri())
    shown.append(scheme())
    if shown != ["slate", "default", "slate", "slate"]:
        faults.append(f"the color schemes are {shown}")


check_links()
check_api()
with Browser(CHROMIUM) as window:
    for pixels, color in ((400, "light"), (1280, "dark")):
        window.window(pixels, scheme=color)
        for one in PAGES:
            look(window, one, pixels, color)
        check_search(window, pixels)
    # The other two combinations, on pages with every kind of content.
    for pixels, color in ((400, "dark"), (1280, "light")):
        window.window(pixels, scheme=color)
        for one in ("index.html", "quick-start.html", "api/http.html"):
            look(window, SITE / one, pixels, color)
    check_choice(window)
print("\n".join(faults))
sys.exit(1 if faults else 0)
