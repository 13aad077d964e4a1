#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Records the pictures of the documentation again. They must show the same text,
apart from numbers, and nothing of the machine on which they were recorded.

Usage: pictures_test.py QUORVANE_PROGRAM SOURCE_DIRECTORY
"""
import pathlib
import re
import subprocess
import sys
import tempfile

TOOL, SOURCE = sys.argv[1], pathlib.Path(sys.argv[2])


def shown(picture):
    """Its lines, from the texts and their places."""
    lines = {}
    for line, text in re.findall(r'<text [^>]*y="(\d+)"[^>]*>([^<]*)</text>',
                                 picture):
        lines.setdefault(int(line), []).append(text)
    return [re.sub(r"[\d.]+", "0", " ".join(words))
            for _, words in sorted(lines.items())]


faults = []
with tempfile.TemporaryDirectory() as directory:
    subprocess.run([SOURCE / "docs/site/record.py", TOOL, directory], check=True)
    for new in pathlib.Path(directory).iterdir():
        old = (SOURCE / "docs/images" / new.name).read_text("utf-8")
        if shown(old) != shown(new.read_text("utf-8")):
            faults.append(f"{new.name} is out of date, run scripts/screenshots: "
                          f"{shown(old)}\n{shown(new.read_text('utf-8'))}")
        for trace in ("/home", "/tmp", "/root", str(SOURCE), "href"):
            if trace in old:
                faults.append(f"{new.name} contains {trace}")
    assert len(list(pathlib.Path(directory).iterdir())) == 3
print("\n".join(faults))
sys.exit(1 if faults else 0)
