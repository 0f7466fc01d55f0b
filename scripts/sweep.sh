#!/usr/bin/env bash
# Sets up, builds, and tries every fault: with every transfer and every call to the system that a day makes, on every port;
# the 10,000 jobs of the long run, under the sanitizers as well; and hosts that are killed at every point. Prints what was
# tried as a table.     scripts/sweep.sh [SEED]
# Takes about four minutes on two processors that others use too, without the building. A sample of the same is among the tests.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh
export PASSBOOK_SWEEP=1 PASSBOOK_SEED=${1:-1} LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

# run PRESET FILTER: the tests of such names, in a build of such a kind
run() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" --target sweep_tests >/dev/null
  if ! "build/$1/tests/sweep_tests" --gtest_filter="$2" >"$out/$1" 2>&1; then
    grep -vE '^(tried,|can|libpng|read bmp|wd=|req=)' "$out/$1" >&2
    echo "sweep: FAILED, see above" >&2
    exit 1
  fi
  grep -E '^\[ +OK|^seed|jobs' "$out/$1" | sed "s/^/  /"
}

echo "Every fault, and a long run:"
run default '*'
echo "A long run under the sanitizers:"
run asan 'Sweep.*'

awk -F, '
  /^tried,/ {
    if (!($2 in faults)) order[++n] = $2
    faults[$2]; days[$2, $3] += $5; all += $5
    if (!(($2, $4) in met)) { met[$2, $4]; functions[$2]++ }
    if (!($4 in every)) { every[$4]; total++ }
  }
  END {
    print "\n| fault | serial | parallel | USB | functions |\n|---|---:|---:|---:|---:|"
    for (i = 1; i <= n; ++i)
      printf "| %s | %d | %d | %d | %d |\n", order[i], days[order[i], "line"], days[order[i], "LPT1"], days[order[i], "USB"],
             functions[order[i]]
    printf "\n%d calls of %d functions met a fault.\n", all, total
  }' "$out/default"
