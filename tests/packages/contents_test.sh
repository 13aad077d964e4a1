#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Reads back from the packages that the hardening options took effect, and builds
# programs with the development files.
# Usage: contents_test.sh PACKAGES_DIR SOURCE_DIR
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for package in "$1"/*.deb; do
  case $package in
    *-dbgsym_*) ;;
    *) dpkg-deb --extract "$package" "$work" ;;
  esac
done
"$2/tests/hardening_test.sh" "$work/usr" yes

libraries=$(dirname "$(find "$work" -name libQuorvaneLib.so.1)")
CMAKE_PREFIX_PATH=$work/usr LD_LIBRARY_PATH=$libraries \
  PKG_CONFIG_PATH=$libraries/pkgconfig "$2/debian/tests/link"
