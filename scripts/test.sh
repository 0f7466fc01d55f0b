#!/usr/bin/env bash
# Sets up, builds and runs all tests.   scripts/test.sh [default|asan|debug]
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-default}
scripts/setup.sh
scripts/format.sh --check
cmake --preset "$preset" -DPASSBOOK_TESTS=ON >/dev/null
cmake --build --preset "$preset"
ctest --preset "$preset" -j "$(nproc)"
