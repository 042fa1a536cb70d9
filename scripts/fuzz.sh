#!/usr/bin/env bash
# Builds the libFuzzer targets (the `fuzz` preset: clang with ASan + UBSan)
# and runs them from their seed corpora.
#
#   bash scripts/fuzz.sh                      # every target, 20 s each
#   bash scripts/fuzz.sh ftp_list 600         # one target, 600 s
#   ZYNET_FUZZ_RUNS=1000000 bash scripts/fuzz.sh ftp_list   # a fixed number of executions
#
# New inputs found during a run go to a scratch corpus under build/fuzz/, not
# into the seeds kept in the repository. A crash leaves its input in
# build/fuzz/artifacts/ and makes the script fail.
set -euo pipefail
cd "$(dirname "$0")/.."

target="${1:-all}"
seconds="${2:-20}"
runs="${ZYNET_FUZZ_RUNS:--1}"

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc 2>/dev/null || echo 2)" --target fuzzers

bin=build/fuzz/bin
artifacts=build/fuzz/artifacts
mkdir -p "$artifacts"
if [ "$target" = all ]; then
  targets=$(cd fuzz && ls fuzz_*.cpp | sed 's/^fuzz_//; s/\.cpp$//')
else
  targets=$target
fi

export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
for name in $targets; do
  scratch=build/fuzz/corpus/$name
  mkdir -p "$scratch"
  seeds=fuzz/corpus/$name
  [ -d "$seeds" ] || seeds=
  echo "=== [fuzz] $name: ${seconds} s, runs ${runs}"
  # Targets whose inputs can reach the resolver run without a network, so
  # that no look-up leaves the machine (root only; elsewhere they are skipped).
  isolate=
  if [ "$name" = blacklist ]; then
    if [ "$(id -u)" -ne 0 ] || ! unshare -n true 2>/dev/null; then
      echo "fuzz: $name skipped: needs root for a network namespace of its own"
      continue
    fi
    isolate="unshare -n"
  fi
  $isolate "$bin/fuzz_$name" -max_total_time="$seconds" -runs="$runs" -timeout=10 -rss_limit_mb=2048 \
    -artifact_prefix="$artifacts/$name-" -print_final_stats=1 "$scratch" $seeds 2>&1 |
    grep -E "^(#[0-9]+ +DONE|Done|stat::number_of_executed_units|stat::peak_rss_mb|==[0-9]+==ERROR|SUMMARY)" || true
  # libFuzzer's exit status is lost in the pipe: a crash leaves an artifact.
  if ls "$artifacts/$name-"* >/dev/null 2>&1; then
    echo "fuzz: $name failed; inputs in $artifacts" >&2
    exit 1
  fi
done
