#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Checks the layers: each directory includes only what the table allows.

An entry is a directory, or one header of a directory that is otherwise not
allowed. Every directory may include its own headers and those of the system.

Usage: include_test.py SOURCE_DIR
"""
import pathlib
import re
import sys

PUBLIC = "include/quorvane"


def api(*names):
    return {f"{PUBLIC}/{name}.h" for name in names}


ALLOWED = {
    PUBLIC: set(),
    "support": set(),
    "logging": api("logging") | {"support"},
    "config": api("config", "logging") | {"logging", "support"},
    "http": api("http", "logging") | {"logging", "support"},
    "inventory": api("config", "http", "inventory", "logging")
    | {"config", "http", "logging", "support"},
    "update": api("config", "http", "inventory", "logging", "update")
    | {"config", "http", "logging", "support"},
    "simulator": set(),
    # The tool links only the public library, the simulator, and the redaction.
    "tools/quorvane": {PUBLIC, "simulator", "config/limits.h",
                       "logging/redact.h", "support/text.h"},
}
# These use everything.
UNRESTRICTED = {"bench", "fuzz", "tests", "tests/support", "tests/tools"}

root = pathlib.Path(sys.argv[1])
errors = []
checked = set()
for source in [*root.rglob("*.h"), *root.rglob("*.cc")]:
    directory = source.parent.relative_to(root).as_posix()
    if directory in UNRESTRICTED or directory.startswith("build/"):
        continue
    if directory not in ALLOWED:
        errors.append(f"{directory}: add this directory to the table")
        continue
    checked.add(directory)
    for name in re.findall(r'^#include "([^"]+)"', source.read_text("utf-8"),
                           re.M):
        header = f"include/{name}" if name.startswith("quorvane/") else name
        module = header.rpartition("/")[0]
        if not {module, header} & (ALLOWED[directory] | {directory}):
            errors.append(f"{source.relative_to(root)}: must not include "
                          f"{name}")
errors += [f"{name}: no such directory" for name in ALLOWED.keys() - checked]
print("\n".join(sorted(set(errors))))
sys.exit(1 if errors else 0)
