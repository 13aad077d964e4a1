#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the search of a built site work from a folder of files. There, a browser
allows neither to load the index nor to start a worker from a file, so a script
holds both.

Usage: search.py SITE_DIRECTORY
"""
import json
import pathlib
import sys

SITE = pathlib.Path(sys.argv[1])
index = json.loads((SITE / "search/search_index.json").read_text("utf-8"))
[worker] = (SITE / "assets/javascripts/workers").glob("search.*.min.js")
code = worker.read_text("utf-8").split("//# sourceMappingURL")[0]
(SITE / "search/offline.js").write_text(
    "// The theme reads this variable.\n"
    "var __search = {\n"
    f"  index: Promise.resolve({json.dumps(index)}),\n"
    "  worker: URL.createObjectURL(new Blob([\n"
    f"    {json.dumps(code)}\n"
    "  ], {type: 'text/javascript'})),\n"
    "};\n", "utf-8")
