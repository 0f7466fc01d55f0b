#!/usr/bin/env bash
# Formats the sources; with --check only says which are not formatted. Needs clang-format 14: other versions format
# otherwise. Without it a check is skipped, and says so.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(-i)
[ "${1:-}" != --check ] || mode=(--dry-run --Werror)
for formatter in clang-format-14 clang-format ''; do
  [[ $("$formatter" --version 2>/dev/null) != *' version 14.'* ]] || break
done
if [ -z "$formatter" ]; then
  [ "${1:-}" = --check ] || { echo "format: clang-format 14 is not here" >&2; exit 1; }
  echo "format: SKIPPED, the formatting is not checked: clang-format 14 is not here"
  exit 0
fi
# The sources lie in folders; what lies beside those, a host program to try out say, is not ours.
find . \( -path './build*' -o -path ./out -o -path './.*' \) -prune -o \
  -path './*/*' \( -name '*.c' -o -name '*.cpp' -o -name '*.h' \) -print0 | xargs -0 "$formatter" "${mode[@]}"
