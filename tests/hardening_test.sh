#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reads back from the ELF files that the hardening options took effect.
# Usage: hardening_test.sh BUILD_DIR yes|no (whether _FORTIFY_SOURCE is on)
set -euo pipefail
build=$1 fortified=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work" >/dev/null
status=0
fault() { echo "$1"; status=1; }

# FILE PATTERN WHAT, for `readelf` options in the rest
expect() {
  local file=$1 pattern=$2
  shift 2
  readelf -W "$@" "$file" | grep -E -- "$pattern" >/dev/null ||
    fault "${file#"$work/"}: readelf $* shows no $pattern"
}

library=$(find "$work" -name 'libQuorvaneLib.so.*.*')
for file in "$library" "$work"/bin/*; do
  expect "$file" 'Flags: NOW' -d
  expect "$file" GNU_RELRO -l
  expect "$file" 'GNU_STACK .* RW +0x' -l
  expect "$file" 'UND __stack_chk_fail' --dyn-syms
  [ "$fortified" = no ] || expect "$file" 'UND __[a-z]+_chk@' --dyn-syms
done
for program in "$work"/bin/*; do expect "$program" 'Flags: NOW PIE' -d; done

exit $status
