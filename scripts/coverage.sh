#!/usr/bin/env bash
# Line and branch coverage of the library (ZyNetwork/ and ZyUtils/) by the
# Linux tests: builds the `coverage` preset (gcc --coverage, Debug, in
# build/coverage), runs every Linux test with ctest and reports with gcovr.
#
#   bash scripts/coverage.sh            # build, run all tests, report
#   bash scripts/coverage.sh -R Ping    # only the tests ctest -R selects
#
# Arguments are passed to ctest. Counters are reset before the run, so the
# figures are those of this run only. Branch figures leave out the branches
# gcc adds for exceptions and those it proves unreachable, which no test
# can take. The summary is printed; the per-file table is written to
# build/coverage/coverage.txt and a browsable report to
# build/coverage/coverage-html/index.html.
set -euo pipefail
cd "$(dirname "$0")/.."

jobs=${ZYNET_JOBS:-$(nproc 2>/dev/null || echo 2)}
build=build/coverage

echo "=== [coverage] configure and build"
cmake --preset coverage >/dev/null
cmake --build --preset coverage -j "$jobs"

echo "=== [coverage] test"
find "$build" -name '*.gcda' -delete
rc=0
ctest --preset coverage -j "$jobs" "$@" || rc=$?

echo "=== [coverage] report (library: ZyNetwork/, ZyUtils/)"
mkdir -p "$build/coverage-html"
gcovr --root . "$build" \
  --filter 'ZyNetwork/' --filter 'ZyUtils/' \
  --exclude-unreachable-branches --exclude-throw-branches \
  -j "$jobs" \
  --txt "$build/coverage.txt" \
  --html-details "$build/coverage-html/index.html" \
  --print-summary
if [ "$rc" -ne 0 ]; then
  echo "coverage: some tests failed (ctest exit $rc); the figures above include only what ran" >&2
fi
exit "$rc"
