#!/usr/bin/env bash
# Sets up, builds and runs the benchmarks: medians of CPU times and their ratios.   scripts/bench.sh [--benchmark_filter=…]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh bench
cmake --preset default -DPASSBOOK_BENCH=ON >/dev/null
cmake --build --preset default --target passbook_bench passbook_scan_bench
build/default/bench/passbook_bench "$@"
build/default/bench/passbook_scan_bench
