#!/usr/bin/env bash
# Builds the library and the zynet tool, then runs the tool's default job
# (a tour of the library on loopback). Extra arguments go to zynet, e.g.
# `bash scripts/tour.sh --json` or `bash scripts/tour.sh cidr 10.1.2.3 10.0.0.0/8`.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh >/dev/null
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# The build is quiet unless it fails.
if ! { cmake --preset linux && cmake --build --preset linux --target zynet -j "$(nproc 2>/dev/null || echo 2)"; } >"$log" 2>&1; then
  cat "$log" >&2
  echo "tour.sh: the build failed" >&2
  exit 1
fi
build/linux/bin/zynet "$@"
