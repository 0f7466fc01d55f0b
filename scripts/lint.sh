#!/usr/bin/env bash
# Holds the sources against cppcheck, and against .clang-tidy with clang's own warnings, which are errors: all sources, or
# those that are named.
#     scripts/lint.sh [FILE.cpp...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh lint
cmake --preset default -DPASSBOOK_TESTS=ON -DPASSBOOK_BENCH=ON >/dev/null
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/default/compile_commands.json | sort -u)
# Quick, and first therefore. Its matters of style are left out: most of them ask for an algorithm in the place of a loop.
false_alarms=(
  containerOutOfBounds:print/print_oli.cpp         # the array's size is a sum, of which it takes the last term
  constStatement:print/print_oki.cpp               # a loop with two counters
  wrongPrintfScanfArgNum:tools/verbs/preview.cpp   # patterns of one number and of two go through one function
  danglingTempReference:sim/rules.cpp              # it is the list's element that is referred to
  passedByValue:tests/convert_test.cpp             # a text that is used up
  passedByValue:fuzz/*                             # all targets have one signature
  danglingTemporaryLifetime:tests/convert_test.cpp # a table of function pointers
  useInitializationList:tests/system.cpp           # two variables get the same value
)
command -v cppcheck >/dev/null || { echo "lint: cppcheck is not here" >&2; exit 1; }
printf '%s\n' "${files[@]}" | sed "s#^$PWD/##" | cppcheck --file-list=- --quiet -j "$(nproc)" --error-exitcode=1 --std=c++20 -I. \
  --enable=warning,performance,portability --inline-suppr --library=posix --library=gtk --library=googletest \
  "${false_alarms[@]/#/--suppress=}"
# What a host loads is looked at for mistakes, too. Left out:
driver_checks=(
  bugprone-* cert-* performance-*
  -bugprone-easily-swappable-parameters                  # x and y, width and height: the interface is so
  -bugprone-implicit-widening-of-multiplication-result   # of constants, or of what a row's bound keeps in an int
  -cert-dcl50-cpp                                        # one variadic function, checked as printf is
  -cert-err34-c                                          # one sscanf, whose count is looked at
  -cert-err52-cpp                                        # the codecs report errors by a long jump
)
look() {  # CHECKS, on the files that come
  # It tells how much it held back in other people's headers; that is nobody's concern here.
  xargs -r -d '\n' -P "$(nproc)" -n 1 clang-tidy-14 -p build/default --quiet --checks="$1" 2> >(grep -v 'warnings\? generated' >&2)
}
driver="^($PWD/)?(api|base|command|device|image|print|scan|status|stripe)/"
printf '%s\n' "${files[@]}" | { grep -E "$driver" || true; } | look "$(IFS=,; echo "${driver_checks[*]}")"
printf '%s\n' "${files[@]}" | { grep -vE "$driver" || true; } | look ''
echo "lint: ${#files[@]} files are clean"
