#!/usr/bin/env bash
# Builds the library and the zynet tool, then runs the tool's default job
# (a tour of the library on loopback). Extra arguments go to zynet.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/install-deps.sh >/dev/null
cmake --preset linux >/dev/null
cmake --build --preset linux --target zynet -j "$(nproc 2>/dev/null || echo 2)" >/dev/null
exec build/linux/bin/zynet "$@"
