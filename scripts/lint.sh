#!/usr/bin/env bash
# Holds the sources against .clang-tidy, with clang's own warnings: all of them, or those that are named.
#     scripts/lint.sh [FILE.cpp...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh lint
cmake --preset default -DPASSBOOK_TESTS=ON -DPASSBOOK_BENCH=ON >/dev/null
files=("$@")
[ $# -gt 0 ] || mapfile -t files < <(sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/default/compile_commands.json | sort -u)
# It tells how much it held back in other people's headers; that is nobody's concern here.
printf '%s\0' "${files[@]}" | xargs -0 -P "$(nproc)" -n 1 clang-tidy-14 -p build/default --quiet 2> >(grep -v 'warnings\? generated' >&2)
echo "lint: ${#files[@]} files are clean"
