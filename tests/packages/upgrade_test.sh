#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs in_system.sh in a new chroot. Where none can be made, such as in a container
# that may not mount, and QUORVANE_INSTALL_PACKAGES=1 is set, on the machine itself.
# Usage: upgrade_test.sh PACKAGES_DIR SOURCE_DIR   (as root, or with sudo)
set -euo pipefail
if [ "$(id -u)" -ne 0 ]; then
  if sudo -n true; then
    exec sudo -n QUORVANE_INSTALL_PACKAGES="${QUORVANE_INSTALL_PACKAGES:-}" \
      "$0" "$@"
  fi
  echo "Skipped: not root, and sudo needs a password."
  [ -n "${QUORVANE_INSTALL_PACKAGES:-}" ] && exit 1
  exit 77
fi
packages=$1 source=$2
version=$(cd "$source" && dpkg-parsechangelog -S Version)
# /tmp may be mounted without exec or dev.
work=$(mktemp -d -p /var/tmp)
trap 'rm -rf --one-file-system "$work"' EXIT

# The same build as another version with other default rules: an upgrade differs
# only in these, and a second compilation takes minutes.
repack() { # VERSION RULES_ADDRESS
  local package tree=$work/tree
  mkdir "$input/$1"
  for package in "$input/$version"/*.deb; do
    dpkg-deb --raw-extract "$package" "$tree"
    sed -i -E "s/^Version: .*/Version: $1/; s/\((>?=) $version\)/(\1 $1)/g" \
      "$tree/DEBIAN/control"
    find "$tree" -name brindle.config.json \
      -exec sed -i "s/192\.0\.2\.1/$2/" {} +
    dpkg-deb -Znone --build "$tree" "$input/$1" >>"$work/repack.txt"
    rm -rf "$tree"
  done
}
input=$work/input
mkdir -p "$input/$version"
for package in "$packages"/*.deb; do
  [[ $package == *-dbgsym_* ]] || cp "$package" "$input/$version"
done
repack "$version+1" 192.0.2.2
repack "$version+2" 192.0.2.3
cp "$source/tests/packages/in_system.sh" "$source/debian/tests/update" "$input"
# apt reads packages as another user.
chmod -R a+rX "$work"

# The package sources of this machine, and how it reaches them. The lists stay, so
# that in_system.sh needs only the packages.
make_chroot() {
  local sources=() options=() file
  mapfile -t options < <(apt-config dump |
    sed -nE 's/^Acquire::(https?::|Check-Valid-Until|Retries).*/--aptopt=&/p')
  for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.{list,sources}; do
    [ -s "$file" ] && sources+=("$file")
  done
  mkdir "$work/proc"
  unshare --mount mount --rbind /proc "$work/proc" || return
  mmdebstrap --mode=root --variant=apt --include=ca-certificates --quiet \
    --skip=cleanup/apt/lists "${options[@]}" \
    "$(. /etc/os-release && echo "$VERSION_CODENAME")" \
    "$work/chroot" "${sources[@]}" || return
  cp /etc/resolv.conf "$work/chroot/etc/resolv.conf"
  cp -r "$input" "$work/chroot/packages"
}

if make_chroot; then
  echo "Testing in a chroot"
  mkdir -p "$work/chroot/proc" "$work/chroot/dev"
  # The mounts end with the program.
  unshare --mount sh -euc '
    mount --rbind /proc "$1/proc"
    mount --rbind /dev "$1/dev"
    exec chroot "$1" /packages/in_system.sh /packages "$2"
  ' sh "$work/chroot" "$version"
elif [ -n "${QUORVANE_INSTALL_PACKAGES:-}" ]; then
  echo "Testing on this machine"
  apt-get update -q
  "$input/in_system.sh" "$input" "$version"
else
  echo "Skipped: no chroot can be made here. QUORVANE_INSTALL_PACKAGES=1 installs" \
    "the packages on this machine, and purges them."
  exit 77
fi
