#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the packages, updates a simulated BMC, edits the rules, upgrades twice,
# and removes everything.
# Usage: in_system.sh DIRECTORY VERSION
# DIRECTORY has the packages of the versions VERSION, VERSION+1 and VERSION+2 in
# directories of these names, and debian/tests/update.
set -euo pipefail
directory=$1 version=$2
export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
fail() { echo "in_system.sh: $*"; exit 1; }

names=()
for package in "$directory/$version"/*.deb; do
  names+=("$(dpkg-deb --field "$package" Package)")
done
[ ${#names[@]} -eq 5 ] || fail "expected 5 packages: ${names[*]}"
# This test purges them.
for name in "${names[@]}"; do
  ! dpkg-query -W "$name" 2>/dev/null || fail "$name is installed already"
done
work=$(mktemp -d)
clean_up() {
  local outcome=$?
  dpkg --purge "${names[@]}" >"$work/purge.txt" 2>&1 || true
  rm -rf "$work"
  exit "$outcome"
}
trap clean_up EXIT
quietly() { "$@" >"$work/output.txt" 2>&1 || { cat "$work/output.txt"; exit 1; }; }
edited='"polling_interval": 1, "note": "mine",'
require_edited() {
  grep -qF "$edited" "$rules" || fail "$1: the edited rules were replaced"
  [ "$(stat -c %a "$rules")" = 600 ] || fail "$1: the rules have another mode"
}

echo "Installing what the packages depend on"
apt-get install --simulate --no-install-recommends "$directory/$version"/*.deb \
  >"$work/plan.txt" || { cat "$work/plan.txt"; exit 1; }
mapfile -t needed < <(sed -n 's/^Inst \([^ ]*\) .*/\1/p' "$work/plan.txt" |
  grep -vxF -f <(printf '%s\n' "${names[@]}"))
[ ${#needed[@]} -eq 0 ] ||
  quietly apt-get install -qy --no-install-recommends "${needed[@]}"

# Packages and files, except for what programs keep in order to be faster.
snapshot() {
  dpkg-query -W -f='${Package} ${db:Status-Status}\n'
  find /etc /opt /root /srv /usr /var -xdev \( -path /var/cache -o -path /var/log \
    -o -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/tmp \
    -o -name __pycache__ -o -name .cache \) -prune -o -print | sort
}
snapshot >"$work/before.txt"

echo "Installing version $version"
quietly apt-get install -qy --no-install-recommends "$directory/$version"/*.deb
rules=$(dpkg-query -W -f='${Conffiles}' libquorvane1 |
  sed -n 's|^ \(/.*/brindle.config.json\) .*|\1|p')
[ -f "$rules" ] || fail "the rules are not a configuration file of libquorvane1"
cp "$rules" "$work/default.json"

echo "Upgrading with unchanged rules"
quietly dpkg --install "$directory/$version+1"/*.deb </dev/null
grep -q 192.0.2.2 "$rules" || fail "the unchanged rules are not the new default"
quietly apt-get install -qy --allow-downgrades --no-install-recommends \
  "$directory/$version"/*.deb
cmp "$work/default.json" "$rules"

echo "Updating a simulated BMC with edited rules"
sed -i "s/\"polling_interval\": 30,/$edited/" "$rules"
chmod 600 "$rules"
require_edited "edit"
quietly "$directory/update" --installed-rules

echo "Upgrading with the question, whose default keeps the edited rules"
dpkg --install "$directory/$version+1"/*.deb <<<"" >"$work/output.txt" 2>&1 ||
  { cat "$work/output.txt"; exit 1; }
grep -qF "Configuration file '$rules'" "$work/output.txt" ||
  { cat "$work/output.txt"; fail "dpkg did not ask about the rules"; }
require_edited "upgrade with the question"
grep -q 192.0.2.2 "$rules.dpkg-dist" || fail "the new default is not .dpkg-dist"

echo "Upgrading with --force-confold"
quietly dpkg --force-confold --install "$directory/$version+2"/*.deb </dev/null
require_edited "upgrade with --force-confold"
grep -q 192.0.2.3 "$rules.dpkg-dist" || fail "the new default is not .dpkg-dist"
quietly "$directory/update" --installed-rules

echo "Removing, which keeps the rules, and purging"
quietly dpkg --remove "${names[@]}"
require_edited "remove"
quietly dpkg --purge "${names[@]}"
snapshot >"$work/after.txt"
diff "$work/before.txt" "$work/after.txt" ||
  fail "the packages left something behind (>) or removed something (<)"
echo "Nothing is left behind"
