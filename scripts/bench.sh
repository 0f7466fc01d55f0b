#!/usr/bin/env bash
# Sets up, builds and runs the benchmarks: kernels, scans, and whole jobs against what else does them on this machine. Prints
# medians and ratios of processor time and memory, and draws docs/performance.svg.
#     scripts/bench.sh [--benchmark_filter=…]      with a filter, these kernels alone
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh bench
cmake --preset default -DPASSBOOK_BENCH=ON >/dev/null
cmake --build --preset default
build/default/bench/passbook_bench "$@"
[ $# = 0 ] || exit 0
build/default/bench/passbook_scan_bench

# CUPS's filter for the printer comes with its server, which nobody needs here: it is unpacked, not installed.
cups=$PWD/build/cups
if [ ! -e /usr/lib/cups/filter/rastertoepson ] && [ -e /usr/lib/cups/filter/imagetoraster ]; then
  mkdir -p "$cups"
  (cd "$cups" && { [ -e usr/lib/cups/filter/rastertoepson ] || { apt-get -qq download cups 2>/dev/null && dpkg -x cups_*.deb .; }; } &&
    ln -sf /usr/lib/cups/filter/imagetoraster usr/lib/cups/filter/) &&
    export CUPS_SERVERBIN=$cups/usr/lib/cups || echo "bench: going on without CUPS's filter for the printer"
fi
python3 bench/jobs.py build/default/bench docs/performance.svg
