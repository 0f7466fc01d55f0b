#!/usr/bin/env bash
# Counts which of the driver's lines and branches the tests run, and lists what they do not. About six minutes.
#     scripts/coverage.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
scripts/setup.sh coverage
cmake --preset coverage -DPASSBOOK_TESTS=ON >/dev/null
cmake --build --preset coverage
find build/coverage -name '*.gcda' -delete
# tool_trace lets a program find no room for its files, and the counts are files.
ctest --preset coverage -j "$(nproc)" -E tool_trace
# Branches that only an exception takes are left out: the driver throws none, and what may throw in the library does not
# show in its source.
gcovr --root . --filter '(api|base|command|device|image|print|scan|status|stripe)/' --exclude-throw-branches \
  --exclude-unreachable-branches --print-summary "$@" build/coverage/{api,command,device,image,print,scan,status,stripe,tests}
