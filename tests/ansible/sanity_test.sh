#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The checks of Ansible for the installed collection that need no network:
# ansible-test sanity, ansible-lint, ansible-doc, yamllint and pycodestyle.
# Usage: sanity_test.sh COLLECTIONS_DIRECTORY
set -euo pipefail
export ANSIBLE_COLLECTIONS_PATH=$1 LC_ALL=C.UTF-8
collection=ansible_collections/quorvane/firmware
cd "$1/$collection"
sanity=/usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity
status=0

# The other tests download their requirements. Those that matter run below,
# with the packages of the distribution and as ansible-test starts them.
offline=(action-plugin-docs changelog compile empty-init ignores line-endings
  no-assert no-get-exception no-illegal-filenames no-main-display no-smart-quotes
  shebang symlinks use-argspec-type-path)
for test in "${offline[@]}"; do options+=(--test "$test"); done
ansible-test sanity --python 3.11 "${options[@]}" || status=1

# Compares the documentation of each module with its options.
found=$(PYTHONPATH=$1 /usr/bin/python3 "$sanity/validate-modules/validate.py" \
  --format plain --arg-spec --collection "$collection" plugins/modules/*.py ||
  true)
# The collection has another license: one finding for each module, and no other.
modules=(plugins/modules/*.py)
[ "$(grep -c missing-gplv3-license <<<"$found")" -eq ${#modules[@]} ] || status=1
grep -v missing-gplv3-license <<<"$found" && status=1

pycodestyle --max-line-length 100 --ignore E402,W503,W504 plugins || status=1
yamllint --strict -d "{extends: default, rules: {document-start: disable}}" . ||
  status=1
ansible-lint --offline --profile production || status=1

for module in "${modules[@]}"; do
  name=quorvane.firmware.$(basename "$module" .py)
  ansible-doc "$name" | grep -q 'RETURN VALUES' || status=1
done
ansible-doc -t lookup quorvane.firmware.run_state | grep -q 'RETURN VALUES' ||
  status=1
ansible-doc -t role quorvane.firmware.rolling_update |
  grep -q quorvane_max_blocked || status=1
exit "$status"
