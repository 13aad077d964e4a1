#!/usr/bin/python3 -SE
# SPDX-License-Identifier: Apache-2.0
"""Stands in for quorvane: records how it was called, and prints the reply in
$STUB_DIR/reply.json."""
import json
import os
import sys

home = os.environ["STUB_DIR"]
inherited = {}
for argument in sys.argv[1:]:
    name, _, value = argument.partition("=")
    if value.startswith("/dev/fd/"):
        with open(value, encoding="utf-8", errors="surrogateescape") as file:
            inherited[name] = {"text": file.read(),
                               "mode": os.fstat(file.fileno()).st_mode & 0o777}
with open(os.path.join(home, "call.json"), "w", encoding="utf-8") as call:
    json.dump({"arguments": sys.argv[1:], "inherited": inherited,
               "stdin": sys.stdin.buffer.read().decode("latin-1")}, call)
with open(os.path.join(home, "reply.json"), encoding="utf-8") as file:
    reply = json.load(file)
sys.stdout.write(reply["output"])
sys.stderr.write(reply["errors"])
sys.stdout.flush()
if "signal" in reply:
    os.kill(os.getpid(), reply["signal"])
sys.exit(reply["exit_code"])
