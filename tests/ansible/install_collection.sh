#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the collection and installs the tarball, both without a network. Its
# version is that of the project.
# Usage: install_collection.sh SOURCE_DIRECTORY COLLECTIONS_DIRECTORY VERSION
set -euo pipefail
rm -rf "$2"
ansible-galaxy collection build --output-path "$2" "$1"
# Any other version has another file name.
ansible-galaxy collection install --no-deps --collections-path "$2" \
  "$2/quorvane-firmware-$3.tar.gz"
