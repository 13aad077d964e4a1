# SPDX-License-Identifier: Apache-2.0
# Shared by the other scripts: the packages that they need, and the working
# directory. Source it, do not run it.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

build_packages=(g++ cmake ninja-build libcurl4-openssl-dev libcjson-dev
  zlib1g-dev libcpp-httplib-dev nlohmann-json3-dev libcli11-dev libfmt-dev
  libutf8proc-dev libbsd-dev libmd-dev libssl-dev)
test_packages=(pandoc clang clang-format clang-tidy libclang-rt-14-dev libgtest-dev
  libgmock-dev pkg-config python3-jsonschema binutils git codespell chromium
  prometheus ansible-core ansible-lint yamllint python3-voluptuous pycodestyle)
fleet_packages=(ansible-core)
package_packages=(build-essential debhelper dpkg-dev lintian pandoc ansible-core
  python3 mmdebstrap pkg-config)
site_packages=(mkdocs mkdocs-material doxygen)
screenshot_packages=(python3-pyte)

# "1.2.3", from the header in which the version is written.
version_in_header() {
  sed -nE 's/^#define QUORVANE_VERSION_(MAJOR|MINOR|PATCH) //p' \
    include/quorvane/version.h | paste -sd.
}

print_heading() { printf '\n== %s\n' "$*"; }

# Installs the packages that are missing.
install_missing() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${db:Status-Status}\n' "$package" 2>/dev/null |
      grep -qx installed || missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return
  print_heading "Installing ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
  "${as_root[@]}" apt-get update -q
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -qy --no-install-recommends "${missing[@]}"
}
