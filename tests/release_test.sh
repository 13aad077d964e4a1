#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What stops scripts/release before it builds, in a copy of the repository.
# Usage: release_test.sh SOURCE_DIRECTORY
set -euo pipefail
copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
cd "$1"
git ls-files -z | tar --create --null --files-from=- | tar -xC "$copy"
cd "$copy"
export GIT_AUTHOR_NAME=a GIT_AUTHOR_EMAIL=a GIT_COMMITTER_NAME=a GIT_COMMITTER_EMAIL=a
git init --quiet
git add --all
git commit --quiet --message all
failed=0

# refuses STATUS TEXT [ARGUMENT...]
refuses() {
  local status=0 printed
  printed=$(scripts/release "${@:3}" 2>&1) || status=$?
  if [ "$status" -ne "$1" ] || [[ $printed != *"$2"* ]]; then
    echo "release ${*:3}: exit code $status, expected $1 and \"$2\": $printed"
    failed=1
  fi
}

refuses 2 Usage
refuses 2 Usage 1.0
refuses 2 Usage 1.00.0
refuses 2 Usage 1.0.0 --fast
refuses 1 "0.9.12 is older than" 0.9.12
refuses 1 "The soname changes" 10.0.0
git branch release-1.90.0
refuses 1 "git branch -D release-1.90.0" 1.90.0
git tag v1.90.1
refuses 1 "is released already" 1.90.1
touch new
refuses 1 "Commit them first" 1.90.2
rm new
sed -i 's/^## Unreleased$/&\n\n## 1.0.0, 2026-11-25/' CHANGELOG.md
git commit --quiet --all --message closed
refuses 1 'no entry below "Unreleased"' 1.90.2
[ "$(git worktree list | wc -l)" -eq 1 ] || failed=1
exit "$failed"
