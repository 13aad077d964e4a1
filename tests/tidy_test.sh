#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# clang-tidy over the sources of the library, the tools and the simulator.
# Usage: tidy_test.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
cd "$1"
git ls-files -z -- 'config/*.cc' 'http/*.cc' 'inventory/*.cc' 'logging/*.cc' \
  'support/*.cc' 'update/*.cc' 'simulator/*.cc' 'tools/*.cc' |
  xargs -0 -P2 -n4 clang-tidy -p "$2" --quiet
