#!/usr/bin/env bash
# Installs a built tree into a temporary prefix and builds and runs programs
# against it the two ways users do: find_package(ZyNetwork CONFIG) and
# pkg-config. Also runs the installed tool. Exits non-zero on any failure.
#
#   check.sh BUILD_DIR [CMAKE [GENERATOR]]
set -euo pipefail
build=$(cd "$1" && pwd)
cmake=${2:-cmake}
generator=${3:-}
here=$(cd "$(dirname "$0")" && pwd)
source_dir=$(cd "$here/../.." && pwd)

work=$(mktemp -d "${TMPDIR:-/tmp}/zynet-consumer.XXXXXX")
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

echo "-- installing into $prefix"
"$cmake" --install "$build" --prefix "$prefix" >/dev/null

echo "-- find_package(ZyNetwork CONFIG)"
gen_args=()
if [ -n "$generator" ]; then gen_args=(-G "$generator"); fi
"$cmake" -S "$here" -B "$work/cmake-build" "${gen_args[@]}" \
  -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$prefix" \
  -DZYNET_EXAMPLES_DIR="$source_dir/examples" >/dev/null
"$cmake" --build "$work/cmake-build" >/dev/null
"$work/cmake-build/consumer"
for example in echo_server echo_client selector_server ping_callback; do
  test -x "$work/cmake-build/$example" || { echo "example $example was not built"; exit 1; }
done

echo "-- pkg-config zynetwork"
pc=$(find "$prefix" -name zynetwork.pc -print -quit)
test -n "$pc" || { echo "zynetwork.pc was not installed"; exit 1; }
export PKG_CONFIG_PATH=$(dirname "$pc")
libdir=$(pkg-config --variable=libdir zynetwork)
# shellcheck disable=SC2046
${CXX:-c++} -std=c++17 "$here/consumer.cpp" -o "$work/consumer-pc" \
  $(pkg-config --cflags --libs zynetwork) -Wl,-rpath,"$libdir"
"$work/consumer-pc"

echo "-- installed zynet"
"$prefix/bin/zynet" cidr 10.1.2.3 10.0.0.0/8 | grep -q "is within"
echo "consumer check: ok"
