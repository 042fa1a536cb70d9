#!/usr/bin/env bash
# Builds the Debian packages of a build tree with CPack into a temporary
# directory and checks that there are three, each holding what it should.
#
#   check-debs.sh BUILD_DIR [CPACK]
set -euo pipefail
build=$(cd "$1" && pwd)
cpack=${2:-cpack}
if ! command -v dpkg-deb >/dev/null; then
  echo "dpkg-deb is not installed; skipping"
  exit 77
fi
out=$(mktemp -d "${TMPDIR:-/tmp}/zynet-debs.XXXXXX")
trap 'rm -rf "$out"' EXIT
# The API reference goes into the dev package when it has been built; build
# it first wherever doxygen is installed.
api=0
if command -v doxygen >/dev/null && [ -f "$build/docs/api/Doxyfile" ]; then
  cmake=$(dirname "$(command -v "$cpack")")/cmake
  [ -x "$cmake" ] || cmake=cmake
  "$cmake" --build "$build" --target docs >/dev/null
  api=1
fi
(cd "$build" && "$cpack" -G DEB -B "$out" >/dev/null)

fail() { echo "check-debs: $*"; exit 1; }
shopt -s nullglob
debs=("$out"/*.deb)
[ ${#debs[@]} -eq 3 ] || fail "expected 3 packages, got: ${debs[*]##*/}"

# Every check reads its listing whole (grep without -q, output thrown away):
# `grep -q` stops reading at the first match, and under pipefail the writer's
# broken pipe would fail a check that found what it looked for.
contents() { local list; list=$(dpkg-deb -c "$1" | awk '{print $6}'); printf '%s\n' "$list"; }
find_deb() { for d in "${debs[@]}"; do [ "$(dpkg-deb -f "$d" Package)" = "$1" ] && { echo "$d"; return; }; done; fail "no package $1"; }

runtime=$(find_deb libzynetwork1)
dev=$(find_deb libzynetwork-dev)
tool=$(find_deb zynet)
contents "$runtime" | grep 'libZyNetwork\.so\.1$' >/dev/null || fail "runtime lacks libZyNetwork.so.1"
contents "$runtime" | grep 'include/' >/dev/null && fail "runtime carries headers"
contents "$dev" | grep 'include/ZyNetwork/ZySocket\.h$' >/dev/null || fail "dev lacks headers"
contents "$dev" | grep 'cmake/ZyNetwork/ZyNetworkConfig\.cmake$' >/dev/null || fail "dev lacks the CMake package"
contents "$dev" | grep 'pkgconfig/zynetwork\.pc$' >/dev/null || fail "dev lacks the pkg-config file"
contents "$dev" | grep 'libZyNetwork\.so$' >/dev/null || fail "dev lacks the link library"
contents "$dev" | grep -E '/(Internal|Posix|Windows)/|Os[A-Za-z]*\.h$' >/dev/null && fail "dev carries internal headers"
if [ $api = 1 ]; then
  contents "$dev" | grep 'share/doc/zynetwork/api/index\.html$' >/dev/null || fail "dev lacks the API reference"
fi
contents "$tool" | grep 'bin/zynet$' >/dev/null || fail "tool package lacks zynet"
contents "$tool" | grep 'share/man/man1/zynet\.1' >/dev/null || fail "tool package lacks the manual page"
contents "$tool" | grep 'share/bash-completion/completions/zynet$' >/dev/null || fail "tool package lacks the bash completion"
dpkg-deb -f "$tool" Depends | grep 'libzynetwork1' >/dev/null && fail "tool depends on the library it carries"
dpkg-deb -f "$tool" Depends | grep 'libc6' >/dev/null || fail "tool does not depend on libc6"
dpkg-deb -f "$tool" Recommends | grep 'libcurl4' >/dev/null || fail "tool does not recommend libcurl4"
dpkg-deb -f "$dev" Depends | grep 'libzynetwork1 (= ' >/dev/null || fail "dev does not depend on the library"
echo "check-debs: ok (${debs[*]##*/})"
