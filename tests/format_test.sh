#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Every source as clang-format lays it out. Usage: format_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"
git ls-files -z -- '*.h' '*.cc' | xargs -0 clang-format --dry-run -Werror
