#!/usr/bin/env bash
# Fuzzes: sets up, builds, and runs every target in turn on the inputs that it has, and on new ones for a while.
#     scripts/fuzz.sh [MINUTES [TARGET...]]      MINUTES in all; without it 20 seconds a target
# What it finds is kept in fuzz/findings, the inputs that led somewhere new in build/fuzz/corpus. The exit status is 1
# when there was a find. A find is run again with
#     build/fuzz/fuzz/passbook_fuzz TARGET fuzz/findings/FILE
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-}
[[ $minutes =~ ^[0-9]*$ ]] || { sed -n '2,6s/^# //p' "$0"; exit 2; }
shift $(($# > 0 ? 1 : 0))
scripts/setup.sh fuzz
fuzzer_library() { ls "$(clang++-14 -print-resource-dir 2>/dev/null)"/lib/*/libclang_rt.fuzzer*; }
fuzzer_library >/dev/null 2>&1 || { echo "fuzz: clang-14 with libFuzzer is not here (clang-14, libclang-rt-14-dev)" >&2; exit 1; }
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

fuzzer=$PWD/build/fuzz/fuzz/passbook_fuzz
work=$PWD/build/fuzz findings=$PWD/fuzz/findings
mkdir -p "$findings" "$work/corpus" "$work/logs"
# The files that the driver prints, scans to and converts: in memory where there is a place for it.
TMPDIR=$(mktemp -d -p "$([ -w /dev/shm ] && echo /dev/shm || echo "${TMPDIR:-/tmp}")" passbook-fuzz-XXXXXX)
export TMPDIR LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
trap 'rm -rf "$TMPDIR"' EXIT

mapfile -t targets < <("$fuzzer" --list)
if [ $# -gt 0 ]; then
  wanted=" $* "
  mapfile -t targets < <(printf '%s\n' "${targets[@]}" | while read -r name most; do
    [[ $wanted != *" $name "* ]] || echo "$name $most"
  done)
fi
[ ${#targets[@]} -gt 0 ] || { echo "fuzz: no such target; there are: $("$fuzzer" --list | cut -d' ' -f1 | xargs)" >&2; exit 2; }
seconds=$([ -n "$minutes" ] && echo $((minutes * 60 / ${#targets[@]})) || echo 20)
echo "fuzz: ${#targets[@]} targets, $seconds s each"

row='%-10s %12s %9s %9s %6s\n'
# shellcheck disable=SC2059  # the format is a row's
table=$(printf "$row" target executions exec/s edges finds)
all=0
for target in "${targets[@]}"; do
  read -r name most <<<"$target"
  seeds=$work/seeds/$name corpus=$work/corpus/$name log=$work/logs/$name
  rm -rf "$seeds" && mkdir -p "$seeds" "$corpus"
  "$fuzzer" "$name" --seeds "$seeds" >/dev/null
  "$fuzzer" "$name" --dictionary "$work/$name.dict"
  executions=0 edges=0 finds=0 begin=$SECONDS
  # A find ends a run; there may be more behind it.
  while left=$((begin + seconds - SECONDS)) && [ "$left" -gt 0 ] && [ "$finds" -lt 5 ]; do
    status=0
    # Inputs are small, but a picture can say that it is large.
    "$fuzzer" "$name" "$corpus" "$seeds" -dict="$work/$name.dict" -max_len="$most" -max_total_time="$left" -timeout=25 \
      -rss_limit_mb=2048 -malloc_limit_mb=256 -close_fd_mask=3 -handle_xfsz=0 -print_final_stats=1 \
      -artifact_prefix="$findings/$name-" >"$log" 2>&1 || status=$?
    executions=$((executions + $(sed -n 's/^stat::number_of_executed_units: //p' "$log" | grep . || echo 0)))
    edges=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2 || echo "$edges")
    [ $status -eq 0 ] && break
    finds=$((finds + 1))
    cp "$log" "$findings/$name.log.$finds"
    grep -m1 -E 'does not hold|ERROR|runtime error' "$log" >&2 || tail -3 "$log" >&2
  done
  all=$((all + finds))
  # shellcheck disable=SC2059
  line=$(printf "$row" "$name" "$executions" $((executions / (SECONDS - begin > 0 ? SECONDS - begin : 1))) "${edges:-0}" "$finds")
  echo "fuzz: $line"
  table+=$'\n'$line
done
printf '\n%s\n' "$table"
[ "$all" -eq 0 ] || { echo "fuzz: $all finds in fuzz/findings" >&2; exit 1; }
