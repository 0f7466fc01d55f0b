#!/usr/bin/env bash
# Formats the sources; with --check only says which are not formatted.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=-i
[ "${1:-}" = --check ] && mode="--dry-run --Werror"
git ls-files -z -co --exclude-standard -- '*.c' '*.cpp' '*.h' | xargs -0 clang-format-14 $mode
