#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the search of a built site work from a directory of files. There, a
browser allows neither to load the index nor to start a worker from a file, so a script
holds both.

Usage: search.py SITE_DIRECTORY
"""
import json
import pathlib
import sys

# The theme reads the variable. It sends an empty query first, and holds back only
# the last message until the worker answers: if a user typed in that time, the
# index would be lost. So it gets the index with the first answer.
TEMPLATE = """var __search = (() => {
  let give;
  const index = new Promise(resolve => give = resolve);
  window.Worker = class extends Worker {
    constructor(url) {
      super(url);
      this.addEventListener("message", () => give(%(index)s), {once: true});
    }
  };
  const worker = URL.createObjectURL(new Blob([%(code)s], {type: "text/javascript"}));
  return {index, worker};
})();
"""
SITE = pathlib.Path(sys.argv[1])
index = json.loads((SITE / "search/search_index.json").read_text("utf-8"))
[worker] = (SITE / "assets/javascripts/workers").glob("search.*.min.js")
code = worker.read_text("utf-8").split("//# sourceMappingURL")[0]
(SITE / "search/offline.js").write_text(
    TEMPLATE % {"index": json.dumps(index), "code": json.dumps(code)}, "utf-8")
