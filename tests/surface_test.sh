#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Holds the names that the built library exports against the list of those that
# it means to export: a new one is a line that someone wrote.
# Usage: surface_test.sh LIBRARY LIST
set -euo pipefail
diff <(nm -D --defined-only -C "$1" | cut -d' ' -f3- | LC_ALL=C sort -u) "$2" ||
  { echo "The exported names (left) are not those of $2 (right)."; exit 1; }
