#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Draws what the tool shows on a terminal as SVG pictures: the live display of
an update, the plan before it and the report after it. The tool runs in a pseudo
terminal and updates a simulated BMC.

Usage: record.py QUORVANE_PROGRAM DIRECTORY
"""
import fcntl
import html
import itertools
import json
import os
import pathlib
import pty
import re
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time

import pyte

TOOL, OUT = pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2])
SOURCE = pathlib.Path(__file__).resolve().parents[2]
# What differs from run to run: the time of day, the key and the port of the
# simulated BMC. The pictures show these instead.
VARYING = ((re.compile(r"127\.0\.0\.1:\d{4}"), "127.0.0.1:8443"),
           (re.compile(r"\d{4}-\d\d-\d\d"), "2026-05-01"),
           (re.compile(r"\d\d:\d\d:\d\d"), "13:07:20"),
           (re.compile(r"sha256//[\w+/]{43}="),
            "sha256//3q2+7wAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAA="))
COLUMNS, ROWS = 88, 60
WIDTH, HEIGHT, SIZE, MARGIN = 8.4, 19, 14, 14
FONT = "ui-monospace,'DejaVu Sans Mono',Menlo,Consolas,monospace"
PAPER, INK = "#12171f", "#d7dde6"
COLORS = {"default": INK, "red": "#ff7b72", "green": "#56d364",
          "brown": "#e3b341", "blue": "#79c0ff", "magenta": "#d2a8ff",
          "cyan": "#56d4dd", "black": "#8b949e", "white": INK}
BMC = ["--bmc", "127.0.0.1:PORT", "--user", "admin", "--password-file",
       "password.txt", "--known-hosts", "known_hosts"]
IMAGE = ["--rules", "site.json", "--file", "firmware.bin"]
# Picture, command, and the text that the screen shows at that moment; without
# one, the picture shows the last screen.
PICTURES = (
    ("plan", ["plan", *BMC, *IMAGE], None),
    ("update", ["update", *BMC, *IMAGE, "--log", "update.log"], "75 %"),
    ("report", ["report", "update.log"], None),
)


def record(home, command, moment):
    """The screen of a terminal at a moment, or after the command."""
    ours, terminal = pty.openpty()
    fcntl.ioctl(terminal, termios.TIOCSWINSZ,
                struct.pack("HHHH", ROWS, COLUMNS, 0, 0))
    # CI and NO_COLOR change the display.
    environment = {"PATH": os.environ["PATH"], "TERM": "xterm-256color",
                   "LANG": "C.UTF-8", "TZ": "UTC"}
    process = subprocess.Popen([TOOL, *command], cwd=home, env=environment,
                               stdin=terminal, stdout=terminal,
                               stderr=terminal)
    os.close(terminal)
    screen = pyte.Screen(COLUMNS, ROWS)
    stream, kept = pyte.ByteStream(screen), None
    while True:
        try:
            stream.feed(os.read(ours, 65536))
        except OSError:  # the last process closed the terminal
            break
        # The last lines of the display are drawn with the ones above.
        if not kept and moment and moment in "\n".join(screen.display):
            kept = cells(screen)
    os.close(ours)
    if process.wait() != 0:
        sys.exit("\n".join(screen.display).rstrip() + f"\n{command} failed")
    if moment and not kept:
        sys.exit(f"{command} never showed {moment!r}")
    return kept or cells(screen)


def cells(screen):
    rows = [[screen.buffer[row][column] for column in range(COLUMNS)]
            for row in range(ROWS)]
    while rows and not "".join(cell.data for cell in rows[-1]).strip():
        rows.pop()
    return rows


def steady(rows):
    for row in rows:
        text = "".join(cell.data for cell in row)
        for pattern, instead in VARYING:
            for match in pattern.finditer(text):
                for at, letter in enumerate(instead, match.start()):
                    row[at] = row[at]._replace(data=letter)
    return rows


def prompt(command):
    """The command as it is typed, in lines that fit."""
    lines = ["$ quorvane"]
    for word in command:
        if len(lines[-1]) + len(word) > COLUMNS - 4:
            lines[-1] += " \\"
            lines.append("   ")
        lines[-1] += " " + word
    style = pyte.screens.Char(" ", fg="default", bold=True)
    return [[style._replace(data=letter) for letter in line] for line in lines]


def draw(rows, title):
    texts = []
    for number, row in enumerate(rows):
        column = 0
        for style, run in itertools.groupby(
                row, lambda cell: (cell.fg, cell.bold, cell.reverse)):
            text = "".join(cell.data for cell in run)
            color, bold, _ = style
            attributes = (f' fill="{COLORS.get(color, color)}"'
                          if color != "default" else "")
            attributes += ' font-weight="bold"' if bold else ""
            # A text in SVG has no two spaces in a row. The length keeps the
            # columns in line, whatever font is used.
            for words in re.finditer(r"\S+(?: \S+)*", text):
                texts.append(
                    f'<text x="{MARGIN + (column + words.start()) * WIDTH:.1f}" '
                    f'y="{MARGIN + number * HEIGHT + SIZE}" '
                    f'textLength="{len(words[0]) * WIDTH:.1f}" '
                    f'lengthAdjust="spacingAndGlyphs"{attributes}>'
                    f"{html.escape(words[0], quote=False)}</text>")
            column += len(text)
    width = round(COLUMNS * WIDTH + 2 * MARGIN)
    height = len(rows) * HEIGHT + 2 * MARGIN
    return (f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" '
            f'height="{height}" viewBox="0 0 {width} {height}" role="img" '
            f'font-family="{FONT}" font-size="{SIZE}" fill="{INK}">'
            f'\n<title>{title}</title>\n'
            f'<rect width="100%" height="100%" rx="6" fill="{PAPER}"/>\n'
            + "\n".join(texts) + "\n</svg>\n")


def free_port():
    """One with the four digits that the pictures show."""
    for port in range(8443, 10000):
        with socket.socket() as one:
            try:
                one.bind(("127.0.0.1", port))
                return str(port)
            except OSError:
                continue
    sys.exit("No port between 8443 and 9999 is free.")


def prepare(home):
    (home / "firmware.bin").write_bytes(bytes(4 << 20))
    (home / "password.txt").write_text("password\n")
    (home / "password.txt").chmod(0o600)
    rules = json.loads((SOURCE / "scripts/demo.rules.json").read_text())
    update = rules["firmware_update"]
    update["task_monitoring"]["polling_interval"] = 3
    update["multipart_update"]["upload_uri"][3:] = []
    update["reboot"]["reboot_uri"][1:] = []
    (home / "site.json").write_text(json.dumps(rules))


def main():
    with tempfile.TemporaryDirectory() as directory:
        home = pathlib.Path(directory)
        prepare(home)
        port = free_port()
        bmc = subprocess.Popen(
            [TOOL, "simulate", "--scenario", "clean", "--quiet", "--port",
             port, "--address-file", home / "address"],
            stdout=subprocess.DEVNULL)
        try:
            while not (home / "address").exists():
                if bmc.poll() is not None:
                    sys.exit("The simulated BMC did not start.")
                time.sleep(0.05)
            subprocess.run([TOOL, "trust", "--bmc", f"127.0.0.1:{port}", "--yes",
                            "--known-hosts", "known_hosts"], cwd=home,
                           check=True, stdout=subprocess.DEVNULL)
            OUT.mkdir(parents=True, exist_ok=True)
            for name, arguments, moment in PICTURES:
                command = [word.replace("PORT", port) for word in arguments]
                rows = steady(prompt(command) + record(home, command, moment))
                (OUT / f"{name}.svg").write_text(
                    draw(rows, "quorvane " + command[0]), "utf-8")
        finally:
            bmc.terminate()
            bmc.wait()


main()
