#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Opens the pages of reports in a browser, light and dark: nothing on the
console, no request, each phase on the timeline. The page of many logs sorts and
filters, and fits a narrow window.

Usage: page_test.py QUORVANE_PROGRAM CHROMIUM
"""
import base64
import hashlib
import json
import pathlib
import re
import subprocess
import sys
import tempfile
import urllib.parse
import zlib

from browser import FLAGS

TOOL, CHROMIUM = sys.argv[1:]
BASE = "https://192.0.2.7"
# Each phase and what makes it, a second between two lines.
PHASES = [
    ("Inventory", "[inventory] ========== INVENTORY FETCH START ==========",
     f"[inventory] GET collection: {BASE}/fw (URI 1/1)",
     "[inventory] Total items fetched: 3"),
    ("SimpleUpdate", "[update] SimpleUpdate (online share) -- 1 URI(s) to try",
     f"[update] Trying SimpleUpdate URI: {BASE}/su (1/1)",
     "[update] SimpleUpdate HTTP status: 405"),
    ("Download", "[update] Downloading from: http://192.0.2.9/fw"),
    ("Upload", "[update] Multipart upload -- 1 URI(s) to try",
     f"[update] Trying upload URI: {BASE}/up (1/1)",
     "[update] Upload HTTP status: 503",
     "[update] Upload response body: <img src='http://leak.invalid/x'>"),
    ("Binary upload", "[update] Binary upload fallback -- 1 URI(s) to try",
     f"[update] Trying binary upload URI: {BASE}/up (1/1)",
     "[update] Binary upload HTTP status: 202"),
    ("Task", "[update] [RF-UPDATE] Task created: /task/1",
     "[update] [RF-UPDATE] Polling interval: 1s",
     "[update] [RF-TASK] Polling task (attempt 1/2)",
     "[update] [RF-TASK] State: Running  PercentComplete: 40%",
     "[update] [RF-TASK] Polling task (attempt 2/2)",
     "[update] [RF-TASK] State: Completed  Result: Success"),
    ("Activation", "[update] Activation -- 1 URI(s) to try",
     f"[update] Trying activation URI: {BASE}/act (1/1)",
     "[update] Activation HTTP status: 202"),
    ("Activation task", "[update] [RF-UPDATE] Task created: /task/2",
     "[update] [RF-TASK] Polling task (attempt 1/2)",
     "[update] [RF-TASK] State: Completed  PercentComplete: 100%"),
    ("Reboot", "[update] Reboot -- 1 URI(s) to try",
     f"[update] Trying reboot URI: {BASE}/reset (1/1)",
     "[update] Reboot HTTP status: 202"),
]


def log():
    messages = ["[update] ========== FIRMWARE UPDATE START =========="]
    for _, *lines in PHASES:
        messages += lines
    return "".join(f"[2024-05-01 13:00:{second:02}.000] [INFO   ] {message}\n"
                   for second, message in enumerate(messages))


def browse(directory, page, *flags):
    """Output, console lines, and the URLs that the page requested."""
    (directory / "page.html").write_text(page)
    with tempfile.TemporaryDirectory(prefix="page-profile-") as profile:
        net_log = pathlib.Path(profile) / "net.json"
        done = subprocess.run(
            [CHROMIUM, *FLAGS, f"--user-data-dir={profile}", f"--log-net-log={net_log}",
             "--enable-logging=stderr", *flags, f"file://{directory}/page.html"],
            capture_output=True, text=True, timeout=100)
        net = json.loads(net_log.read_text())
    start = net["constants"]["logEventTypes"]["URL_REQUEST_START_JOB"]
    requested = [event["params"]["url"] for event in net["events"]
                 if event["type"] == start and "url" in event.get("params", {})
                 and event["params"]["initiator"] != "not an origin"]
    console = [line for line in done.stderr.splitlines() if ":CONSOLE" in line]
    return done.stdout, console, requested


def first_pixel(png):
    """Of a picture without interlacing; no filter changes its first pixel."""
    packed, at = b"", 8
    while at < len(png):
        length = int.from_bytes(png[at:at + 4], "big")
        if png[at + 4:at + 8] == b"IDAT":
            packed += png[at + 8:at + 8 + length]
        at += length + 12
    return zlib.decompressobj().decompress(packed, 4)[1:].hex()


def test(directory):
    (directory / "log").write_text(log())
    subprocess.run([TOOL, "report", "log", "--html", "made.html"], cwd=directory,
                   check=True, stdout=subprocess.DEVNULL)
    page = (directory / "made.html").read_text()
    for scheme, paper in (("1", "ffffff"), ("0", "12171f")):
        _, console, requested = browse(
            directory, page, f"--blink-settings=preferredColorScheme={scheme}",
            f"--screenshot={directory}/shot.png")
        assert not console and not requested, (console, requested)
        pixel = first_pixel((directory / "shot.png").read_bytes())
        assert pixel == paper, (scheme, pixel)

    document = browse(directory, page, "--dump-dom")[0]
    drawing = re.search("<svg.*</svg>", document, re.S)[0]
    rows = re.findall(r'<text x="0"[^>]*>([^<]*)</text>(.*?)(?=<text x="0"|$)',
                      drawing, re.S)
    drawn = [name for name, marks in rows if "<rect" in marks]
    assert drawn == [name for name, *_ in PHASES], drawn
    assert drawing.count("<polyline") == 2, "a percentage is missing"

    # A page with a request is noticed: by its policy, or by the request.
    leaky = page.replace("</body>", "<img src='http://leak.invalid/y'></body>")
    assert browse(directory, leaky, "--dump-dom")[1:] != ([], []), "policy"
    open_page = re.sub(r"<meta http-equiv[^>]*>", "", leaky)
    assert browse(directory, open_page, "--dump-dom")[2] == ["http://leak.invalid/y"]


EVIL = "<img src='http://leak.invalid/x'>\u202e\x1b[2J"
# Address, start, seconds, outcome, cause.
RUNS = [
    ("192.0.2.10", "13:00:00", 600, "updated", ""),
    ("192.0.2.9", "13:10:00", 90, "failed", "</td><script>x()</script>" + EVIL),
    ("192.0.2.100", "13:20:00", 7, "unreachable", "W" * 300),
    ("192.0.2.9", "12:00:00", 5, "updated", "the earlier run"),
    (EVIL + "x" * 200, "13:30:00", 60, "updated", ""),
]
# What a user does, and what the page shows then: machines in their order.
ACTIONS = [
    ("", ["192.0.2.9", "192.0.2.100", "192.0.2.10", EVIL]),
    ("sortBy('Machine')", [EVIL, "192.0.2.9", "192.0.2.10", "192.0.2.100"]),
    ("sortBy('Took')", ["192.0.2.100", EVIL, "192.0.2.9", "192.0.2.10"]),
    ("sortBy('Took')", ["192.0.2.10", "192.0.2.9", EVIL, "192.0.2.100"]),
    ("type('  192.0.2 FAIL ')", ["192.0.2.9"]),
    ("type('no such text')", []),
    ("type('')", ["192.0.2.10", "192.0.2.9", EVIL, "192.0.2.100"]),
    ("press('unreachable')", ["192.0.2.100"]),
    ("press('failed')", ["192.0.2.9", "192.0.2.100"]),
    ("press('unreachable')", ["192.0.2.9"]),
    ("press('failed')", ["192.0.2.10", "192.0.2.9", EVIL, "192.0.2.100"]),
    ("document.getElementById('earlier').click(); sortBy('Started')",
     ["192.0.2.9 (earlier)", "192.0.2.10", "192.0.2.9", "192.0.2.100", EVIL]),
]
ACT = """
const sortBy = name => [...document.querySelectorAll("th button")]
    .find(button => button.textContent.startsWith(name)).click();
const press = name =>
    document.querySelector(`button[data-outcome=${name}]`).click();
const type = text => {
  filter.value = text;
  filter.dispatchEvent(new Event("input"));
};
const seen = ACTIONS.map(action => {
  action();
  return rows.filter(row => row.checkVisibility())
      .sort((one, other) => one.rowIndex - other.rowIndex)
      .map(row => row.cells[0].innerText.split("\\n")[0]);
});
parent.postMessage({seen, bars: document.querySelectorAll(".lane i").length,
    links: [...document.links].map(link => link.href),
    width: innerWidth, needed: document.documentElement.scrollWidth}, "*");
"""


def run_log(bmc, start, seconds, outcome, cause):
    messages = [("Run: update of ", bmc), ("Started: 2024-05-01T" + start, "+0000"),
                ("BMC: ", bmc),
                ('Firmware before: {"name":"', EVIL[:25] + '","uri":"/b","version":"1"}'),
                ('Firmware after: {"name":"', EVIL[:25] + '","uri":"/b","version":"2"}'),
                (f"Elapsed: {seconds}.000 s", ""), ("Finished.", ""),
                (f"Outcome: {outcome}. It ended.", cause), ("Cause: ", cause)]
    return "".join(f"[2024-05-01 {start}.000] [INFO   ] [tool] {one}{two}\n"
                   for one, two in messages)


def test_fleet(directory):
    logs = directory / "logs #1"
    logs.mkdir()
    for number, run in enumerate(RUNS):
        (logs / f"{number}.log").write_text(run_log(*run))
    subprocess.run([TOOL, "report", logs, "--html", "a: b#%.html"],
                   cwd=directory, check=True, stdout=subprocess.DEVNULL)
    page = (directory / "a: b#%.html").read_text()
    actions = "[" + ",".join(f"() => {{{act}}}" for act, _ in ACTIONS) + "]"
    script = ACT.replace("ACTIONS", actions)
    digest = base64.b64encode(hashlib.sha256(script.encode()).digest()).decode()
    driven = page.replace("script-src ", f"script-src 'sha256-{digest}' ")
    driven = driven.replace("</body>", f"<script>{script}</script></body>")
    (directory / "driven.html").write_text(driven)
    for width in (400, 1280):
        frame = ("<script>onmessage = event => document.body.textContent = "
                 "JSON.stringify(event.data)</script>"
                 f"<iframe src='driven.html' width={width} height=900></iframe>")
        document, console, requested = browse(
            directory, frame, "--window-size=1400,1000",
            "--virtual-time-budget=5000", "--dump-dom")
        assert not console and not requested, (console, requested)
        result = json.loads(re.search("<body>(.*)</body>", document, re.S)[1]
                            .replace("&lt;", "<").replace("&gt;", ">"))
        for (action, expected), seen in zip(ACTIONS, result["seen"], strict=True):
            names = [EVIL if name.startswith("<img") else name for name in seen]
            assert names == expected, (action, names)
        # The earlier run is before the time axis.
        assert result["bars"] == len(RUNS) - 1, result["bars"]
        assert result["width"] == width >= result["needed"], result
        for link in result["links"]:
            target = pathlib.Path(urllib.parse.unquote(link.removeprefix("file://")))
            assert target.is_file(), link
        assert len(set(result["links"])) == len(RUNS), result["links"]
    assert "\x1b" not in page and "\u202e" not in page


with tempfile.TemporaryDirectory(prefix="page-") as directory:
    test(pathlib.Path(directory))
    test_fleet(pathlib.Path(directory))
