#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reads back from the ELF files that the hardening options took effect, and that
# the loader never searches the current directory.
# Usage: hardening_test.sh BUILD_DIR|PREFIX yes|no (whether _FORTIFY_SOURCE is on)
set -euo pipefail
directory=$1 fortified=$2
if [ -f "$directory/CMakeCache.txt" ]; then
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  cmake --install "$directory" --prefix "$work" >/dev/null
  searched=("$directory" "$work") minimum=6
else  # the library and two programs, installed
  work=$directory
  searched=("$work") minimum=3
fi
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

# An empty element of a run path means the current directory.
files=0
while IFS= read -r -d '' file; do
  paths=$(readelf -Wd "$file" 2>&1 | sed -n 's/.*R\(UN\)\?PATH.*\[\(.*\)\]/\2/p')
  files=$((files + 1))
  case :$paths: in
    ::) ;;
    *::*) fault "$file: empty element in the run path \"$paths\"" ;;
  esac
done < <(find "${searched[@]}" -type f -not -path '*/CMakeFiles/*' \
  \( -perm -u+x -o -name '*.so*' \) -not -name '*.sh' -print0)
[ "$files" -ge "$minimum" ] || fault "Only $files programs and libraries found"
exit $status
