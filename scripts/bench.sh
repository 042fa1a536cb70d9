#!/usr/bin/env bash
# Builds the benchmarks (the `bench` configure preset: optimised, Linux),
# runs every benchmark program with repeated, randomly interleaved runs and
# JSON output, and rewrites docs/PERFORMANCE.md with the ratios of the
# library to the raw OS calls. Takes a few minutes; not part of the tests.
#
#   bash scripts/bench.sh                 # the full run
#   ZYNET_BENCH_REPETITIONS=7 bash scripts/bench.sh
#   ZYNET_BENCH_FILTER='selector' bash scripts/bench.sh   # a subset (the report marks the rest as not measured)
#   ZYNET_BENCH_SIZE_MB=256 ZYNET_BENCH_TRANSFER_ROUNDS=4 bash scripts/bench.sh   # smaller transfers
#   ZYNET_BENCH_TRANSFER=0 bash scripts/bench.sh          # without the transfers against other tools
#
# The transfer benchmark needs root (vsftpd's anonymous chroot, sshd) and
# the peer tools: apt-get install vsftpd lftp wget openssh-client
# openssh-server time (scripts/install-deps.sh installs them).
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions="${ZYNET_BENCH_REPETITIONS:-5}"
filter="${ZYNET_BENCH_FILTER:-.}"
if [ "$repetitions" -lt 5 ]; then
  echo "bench: at least 5 repetitions are needed for a median with its range" >&2
  exit 2
fi
command="bash scripts/bench.sh"
started=$(date +%s)

echo "=== [bench] configure and build"
cmake --preset bench >/dev/null
cmake --build --preset bench -j "$(nproc 2>/dev/null || echo 2)" --target benchmarks zynet

export PYTHONDONTWRITEBYTECODE=1
echo "=== [bench] check the report arithmetic"
python3 bench/test_report.py >/dev/null 2>&1 || python3 bench/test_report.py

bin=build/bench/bin
results=build/bench/results
rm -rf "$results"
mkdir -p "$results"

# The selector benchmarks hold 8192 sockets at once.
ulimit -n "$(ulimit -Hn)" 2>/dev/null || true

for program in bench_fdset bench_resolve bench_selector bench_stream; do
  echo "=== [bench] $program"
  "$bin/$program" \
    --benchmark_filter="$filter" \
    --benchmark_repetitions="$repetitions" \
    --benchmark_enable_random_interleaving=true \
    --benchmark_out="$results/$program.json" \
    --benchmark_out_format=json
done

elapsed=$(( $(date +%s) - started ))
compiler=$(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' build/bench/CMakeCache.txt)
python3 bench/report.py \
  --results "$results" \
  --output docs/PERFORMANCE.md \
  --command "$command" \
  --repetitions "$repetitions" \
  --notes bench/notes.md \
  --elapsed "$elapsed" \
  --extra "compiler=$("${compiler:-c++}" --version | head -n1)" \
  --extra "commit=$(git rev-parse --short HEAD 2>/dev/null || echo unknown)$(git diff --quiet HEAD -- ZyNetwork ZyUtils 2>/dev/null || echo ' (library sources modified)')"
# The HTTP download against the curl tool (its own section of the report,
# written after the report above). ZYNET_BENCH_HTTP=0 leaves it out.
if [ "${ZYNET_BENCH_HTTP:-1}" = 1 ]; then
  echo "=== [bench] HTTP download against the curl tool"
  /usr/bin/python3 scripts/bench_http.py "$bin/bench_http" docs/PERFORMANCE.md "$repetitions"
fi
# Whole transfers of the zynet tool against the curl tool, wget, lftp and
# OpenSSH's sftp, and many small files (its own section, after the above).
# ZYNET_BENCH_SIZE_MB sets the large file (default 1024), the rounds come
# from ZYNET_BENCH_TRANSFER_ROUNDS (default 10); ZYNET_BENCH_TRANSFER=0 leaves
# it out.
if [ "${ZYNET_BENCH_TRANSFER:-1}" = 1 ]; then
  echo "=== [bench] transfers against the tools users pick"
  /usr/bin/python3 scripts/bench_transfer.py "$bin/zynet" docs/PERFORMANCE.md "${ZYNET_BENCH_TRANSFER_ROUNDS:-10}"
fi
echo "=== [bench] done in ${elapsed}s: docs/PERFORMANCE.md"
