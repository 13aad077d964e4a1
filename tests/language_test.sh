#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Spelling (codespell, American English) and words that the project does not
# use. Usage: language_test.sh SOURCE_DIR
set -euo pipefail
cd "$1"
# Not our text: inputs of the fuzz targets, a binary dump, the license.
texts=(. ':!fuzz/corpus' ':!*.xz' ':!LICENSE' ':!tests/banned_words.txt')
status=0
# Misspelled on purpose: adress, fro, runing, udpate, uplaod. Redfish spells
# Cancelled; a message of the library, initialised. Names: kno, PlanText.
git ls-files -z -- "${texts[@]}" |
  xargs -0 codespell --builtin clear,rare,en-GB_to_en-US \
    --ignore-words-list adress,fro,runing,udpate,uplaod,kno,plantext,cancelled,cancelling,initialised || status=1
while IFS=$'\t' read -r words instead; do
  case $words in '#'* | '') continue ;; esac
  if git grep -nPi "$words" -- "${texts[@]}"; then
    echo "^ write instead: $instead"
    status=1
  fi
done <tests/banned_words.txt
exit "$status"
