#!/usr/bin/env bash
# Installs what is missing, checks the layout rules, then builds and runs
# every test: Linux, Linux under ASan + UBSan, and Windows (mingw-w64) under
# Wine. Exits non-zero on the first failure.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh

# Layout rules first: they need no build and fail in seconds.
bash scripts/check-layout.sh

jobs=$(nproc 2>/dev/null || echo 2)

run_linux() {
  local preset=$1
  echo "=== [$preset] configure and build"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j "$jobs"
  echo "=== [$preset] test"
  ctest --preset "$preset" -j "$jobs"
}

run_windows() {
  echo "=== [windows] libcurl for Windows (RKCurl.dll with SFTP; cached in /var/cache/zynetwork/win-deps)"
  local win_curl
  win_curl=$(bash scripts/build-win-curl.sh | tail -1)
  echo "=== [windows] configure and build"
  cmake --preset windows -DZYNET_WIN_CURL_DLL="$win_curl" >/dev/null
  cmake --build --preset windows -j "$jobs"
  echo "=== [windows] test under Wine"
  export WINEDEBUG=-all
  export WINEPREFIX="${WINEPREFIX:-$HOME/.wine-zynet}"
  # A warm-up start keeps Wine's background services off ctest's output
  # pipe; the persistent server keeps each test's start-up fast.
  # Debian keeps wineserver beside wine64, off PATH.
  local wineserver=/usr/lib/wine/wineserver
  command -v wineserver >/dev/null 2>&1 && wineserver=$(command -v wineserver)
  /usr/lib/wine/wine64 cmd /c exit </dev/null >/dev/null 2>&1 || true
  "$wineserver" -p || true
  local rc=0
  # A test that fails is run once more: under Wine a program now and then
  # fails to start at all (no output, 0.00 s), which says nothing about the
  # library. A test that fails twice fails the run.
  ctest --preset windows -j "$jobs" --repeat until-pass:2 || rc=$?
  "$wineserver" -k || true
  return $rc
}

# The benchmarks are only built here, so that they keep compiling; they run
# with `bash scripts/bench.sh`.
build_bench() {
  echo "=== [bench] configure and build (not run)"
  cmake --preset bench >/dev/null
  cmake --build --preset bench -j "$jobs" --target benchmarks
}

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

run_linux linux
build_bench
run_linux linux-sanitize
# Every fuzz target for a short, bounded time from its seeds (clang,
# libFuzzer, ASan + UBSan); long runs are made by hand (docs/RELIABILITY.md).
echo "=== [fuzz] every target, ${ZYNET_CI_FUZZ_SECONDS:-10} s each"
bash scripts/fuzz.sh all "${ZYNET_CI_FUZZ_SECONDS:-10}"
run_windows
echo "=== all test runs passed"
