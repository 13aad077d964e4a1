#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# clang-tidy over the sources of the library, the tools and the simulator.
# Usage: tidy_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
cd "$1"

# Files that are no part of a batch are compiled, and read, alone.
sources() {
  python3 - "$1" "$2" <<'EOF'
import json, os, sys
source, build = sys.argv[1:]
for entry in json.load(open(f"{build}/compile_commands.json")):
    path = os.path.relpath(entry["file"], source)
    if "/Unity/" in path and not path.startswith(("tests", "fuzz", "bench")):
        print(entry["file"], end="\0")
    elif path.split("/")[0] in ("config", "http", "inventory", "logging",
                                "simulator", "support", "tools", "update"):
        print(entry["file"], end="\0")
EOF
}

# A batch includes sources.
sources "$1" "$2" |
  xargs -0 -P2 -n1 clang-tidy -p "$2" --quiet \
    --checks=-bugprone-suspicious-include
