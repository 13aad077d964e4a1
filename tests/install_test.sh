#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs a build into a new prefix and uses it there as a stranger would.
# Usage: install_test.sh BUILD_DIR CXX
set -euo pipefail
build=$1 cxx=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" >"$work/install.txt"
libdir=$(dirname "$(find "$prefix" -name libQuorvaneLib.so.1)")
rules=$libdir/brindle.config.json
test -f "$rules"

# A later installation, here below DESTDIR, keeps the administrator's rules.
fail() { echo "$1"; cat "$work/again.txt"; exit 1; }
install_again() {
  DESTDIR=$work/stage cmake --install "$build" --prefix /opt/q \
    >"$work/again.txt"
}
staged=$work/stage/opt/q${libdir#"$prefix"}/brindle.config.json
install_again
install_again
cmp "$rules" "$staged"
[ ! -e "$staged.new" ] || fail "The same default was installed as .new"
echo '{"mine": 1}' >"$staged"
chmod 600 "$staged"
install_again
[ "$(stat -c %a "$staged") $(cat "$staged")" = '600 {"mine": 1}' ] ||
  fail "The rules file was replaced"
cmp "$rules" "$staged.new"
grep -q "Kept $staged: .* $staged.new" "$work/again.txt" ||
  fail "The kept rules file was not reported"

mkdir "$work/user"
cat >"$work/user/user.cc" <<'CC'
#include <quorvane/quorvane.h>

#include <cstdio>

int main() {
  const quorvane::Config config = quorvane::LoadConfigAuto();
  std::printf("%s\n%s\n%s\n", quorvane::ResolveConfigPath().c_str(),
              config.ip.c_str(), QUORVANE_VERSION_STRING);
  return config.task_states.size() == 13 ? 0 : 1;
}
CC
cat >"$work/user/CMakeLists.txt" <<'CMAKE'
cmake_minimum_required(VERSION 3.25)
project(user CXX)
find_package(Quorvane 1 REQUIRED)
add_executable(user user.cc)
target_link_libraries(user PRIVATE Quorvane::quorvane)
CMAKE

export PKG_CONFIG_PATH=$libdir/pkgconfig
version=$(pkg-config --modversion quorvane)
expect() {
  [ "$1" = "$rules"$'\n'"192.0.2.1"$'\n'"$version" ] ||
    { echo "$2 gave: $1"; exit 1; }
}

# shellcheck disable=SC2207
flags=(-std=c++17 -Wall -Wextra -Wpedantic -Werror
  $(pkg-config --cflags quorvane))
# shellcheck disable=SC2046
"$cxx" "$work/user/user.cc" "${flags[@]}" $(pkg-config --libs quorvane) \
  -o "$work/by-pkg-config"
expect "$(LD_LIBRARY_PATH=$libdir "$work/by-pkg-config")" pkg-config

# Macros that programs define, and options that change the binary interface.
cat >"$work/macros.cc" <<'CC'
#include <quorvane/quorvane.h>
static_assert(DEBUG + WARNING + ERROR INFO == 6);
CC
macros=(-DDEBUG -DINFO= -DWARNING=2 -DERROR=3)
"$cxx" "$work/macros.cc" "${macros[@]}" "${flags[@]}" -fsyntax-only
for option in -D_GLIBCXX_DEBUG -D_GLIBCXX_USE_CXX11_ABI=0; do
  if "$cxx" "$work/user/user.cc" "$option" "${flags[@]}" -fsyntax-only \
    2>"$work/error.txt"; then
    echo "$option is accepted"
    exit 1
  fi
  grep -q '"Quorvane: compile with' "$work/error.txt" ||
    { cat "$work/error.txt"; exit 1; }
done

cmake -S "$work/user" -B "$work/by-cmake" -G Ninja \
  -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
  >"$work/configure.txt"
cmake --build "$work/by-cmake" >"$work/build.txt"
expect "$("$work/by-cmake/user")" find_package

"$prefix/bin/quorvane" --help >"$work/help.txt"
