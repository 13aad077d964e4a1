#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the commands in the documentation with simulated BMCs. The words after
the language of a block are its mark:

    ```sh run             the commands must succeed, in the order of the page
    ```sh serve           the command must run until the page is over
    ```text output        the command before prints this text, and others
                          where a line is `...`
    ```json rules file=F  the file F contains this text

A page without a server uses the BMC 192.0.2.7. Wherever an address stands in a
page, the test uses that of its simulated BMC.

Usage: commands_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor

TOOL, SOURCE = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
sys.path.insert(0, str(SOURCE / "tests/tools"))
from simulated import finish, wait_for  # noqa: E402

BLOCK = re.compile(r"^```\w+ ([^\n]+)\n(.*?)^```", re.M | re.S)
MARKS = {"sh": {"run", "serve"}, "text": {"output"}, "log": set(),
         "json": {"rules", "scenario", "result", "record"}}
ADDRESSES = re.compile(r"127\.0\.0\.1:8443|192\.0\.2\.7(?!\d)")
faults = []


class Page:
    """A page, the directory in which its commands run, and its servers."""

    def __init__(self, path, home):
        self.path, self.home = path, home
        self.servers, self.address, self.printed = [], "", ""
        self.blocks = [(mark.split(), text) for mark, text in
                       BLOCK.findall(path.read_text("utf-8"))]
        (home / "build/release").mkdir(parents=True)
        (home / "build/release/quorvane").symlink_to(TOOL)
        (home / "scripts").mkdir()
        rules = (SOURCE / "scripts/demo.rules.json").read_text()
        for name in ("scripts/demo.rules.json", "site.json"):
            (home / name).write_text(rules)
        (home / "password.txt").write_text("password\n")
        (home / "password.txt").chmod(0o600)
        (home / "firmware.bin").write_text("x" * 5000)
        for marks, text in self.blocks:
            for mark in marks:
                if mark.startswith("file="):
                    (home / mark.removeprefix("file=")).write_text(text)
        self.environment = {
            **os.environ, "NO_COLOR": "1",
            "PATH": f"{home}/build/release:{os.environ['PATH']}"}

    def run(self):
        marks = {mark for marks, _ in self.blocks for mark in marks}
        if "serve" not in marks and "run" in marks:
            self.serve("quorvane simulate --quiet --port 8443")
        for marks, text in self.blocks:
            if marks[0] == "serve":
                self.serve(text)
            elif marks[0] == "run":
                self.command(text)
            elif marks[0] == "output":
                self.compare(text)
        if any(server.poll() is not None for server in self.servers):
            self.fault("a server ended before the page")

    def serve(self, text):
        number = len(self.servers)
        ready = self.home / f"address{number}"
        text = text.replace("--port 8443", f"--port 0 --address-file {ready}")
        if ready.name not in text:
            ready = self.home / "hosts.yml"
        # Its own group, so that the shell and the server end together.
        self.servers.append(subprocess.Popen(
            ["bash", "-ec", text], cwd=self.home, env=self.environment,
            stdout=subprocess.DEVNULL, start_new_session=True))
        wait_for(lambda: ready.exists() or self.servers[-1].poll() is not None)
        if not ready.exists():
            self.fault(f"does not start: {text}")
        elif ready.name != "hosts.yml":
            self.address = ready.read_text().strip()

    def command(self, text):
        # Without a terminal, the key is not confirmed by a question.
        text = text.replace("quorvane trust", "quorvane trust --yes")
        (self.home / "commands").write_text(
            "stty cols 80\n" + ADDRESSES.sub(self.address, text))
        # On a terminal, as on the page: tables fit the width.
        run = subprocess.run(
            ["script", "-qec", "bash -e commands", "/dev/null"], cwd=self.home,
            env=self.environment, stdin=subprocess.DEVNULL, text=True,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=100,
            check=False)
        self.printed = run.stdout
        if run.returncode != 0:
            self.fault(f"exit code {run.returncode}: {text}\n{run.stdout}")
        self.shorten_waits()

    def compare(self, text):
        """Line breaks do not count, because the address has another length."""
        printed = "".join(self.printed.split())
        for part in ADDRESSES.sub(self.address, text).split("\n...\n"):
            if "".join(part.split()) not in printed:
                self.fault(f"the page shows\n{part}\nbut the command prints\n"
                           f"{self.printed[-2000:]}")

    def shorten_waits(self):
        """A test does not wait as long as a server needs."""
        rules = self.home / "site.json"
        changed = json.loads(rules.read_text())
        monitoring = changed["firmware_update"]["task_monitoring"]
        if monitoring.get("polling_interval") != 1:
            monitoring["polling_interval"] = 1
            rules.write_text(json.dumps(changed))

    def fault(self, text):
        faults.append(f"{self.path.relative_to(SOURCE)}: {text}")

    def end(self):
        for server in self.servers:
            if server.poll() is None:
                os.killpg(server.pid, 15)
                server.wait(20)


def check(path):
    with tempfile.TemporaryDirectory() as directory:
        page = Page(path, pathlib.Path(directory))
        try:
            page.run()
        finally:
            page.end()


pages = []
for one in [*SOURCE.glob("*.md"), *SOURCE.glob("*/README.md"),
            *(SOURCE / "docs").rglob("*.md")]:
    found = re.findall(r"^```(\w+) ([^\n]+)$", one.read_text("utf-8"), re.M)
    for kind, marks in found:
        for mark in marks.split():
            if mark not in MARKS.get(kind, ()) and not mark.startswith("file="):
                faults.append(f"{one.relative_to(SOURCE)}: unknown mark {mark}")
    if "sh" in dict(found):
        pages.append(one)
assert pages, "no page has marked commands"
with ThreadPoolExecutor(4) as pool:
    finish([pool.submit(check, page) for page in pages], faults)
