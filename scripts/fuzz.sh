#!/usr/bin/env bash
# Fuzzes: sets up, builds, replays what inputs begin with, and runs every target on that and on new inputs for a while.
#     scripts/fuzz.sh [MINUTES [TARGET...]]      MINUTES in all; without it 20 seconds a target
# What it finds is kept in fuzz/findings, the inputs that led somewhere new in build/fuzz/corpus. The exit status is 1
# when there was a find. A find is run again with
#     build/fuzz/fuzz/passbook_fuzz TARGET fuzz/findings/FILE
# When it is mended, its file becomes one of fuzz/seeds/TARGET.
set -euo pipefail
cd "$(dirname "$0")/.."
minutes=${1:-}
[[ $minutes =~ ^[0-9]*$ ]] || { sed -n '2,7s/^# //p' "$0"; exit 2; }
shift $(($# > 0 ? 1 : 0))
scripts/setup.sh fuzz
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

fuzzer=$PWD/build/fuzz/fuzz/passbook_fuzz
work=$PWD/build/fuzz findings=$PWD/fuzz/findings
mkdir -p "$findings" "$work/corpus" "$work/logs" "$work/counts"
rm -f "$work"/counts/*
# The files that the driver prints, scans to and converts: in memory where there is a place for it.
TMPDIR=$(mktemp -d -p "$([ -w /dev/shm ] && echo /dev/shm || echo "${TMPDIR:-/tmp}")" passbook-fuzz-XXXXXX)
export TMPDIR ASAN_OPTIONS=malloc_context_size=6:quarantine_size_mb=16 LSAN_OPTIONS=suppressions=$PWD/tests/lsan.supp:print_suppressions=0
trap 'rm -rf "$TMPDIR"' EXIT

mapfile -t targets < <("$fuzzer" --list)
if [ $# -gt 0 ]; then
  wanted=" $* "
  mapfile -t targets < <(printf '%s\n' "${targets[@]}" | while read -r name rest; do
    [[ $wanted != *" $name "* ]] || echo "$name $rest"
  done)
fi
[ ${#targets[@]} -gt 0 ] || { echo "fuzz: no such target; there are: $("$fuzzer" --list | cut -d' ' -f1 | xargs)" >&2; exit 2; }
cores=$(nproc)
seconds=$([ -n "$minutes" ] && echo $((minutes * 60 * cores / ${#targets[@]})) || echo 20)
echo "fuzz: ${#targets[@]} targets, $seconds s each, $cores at a time"
row='%-10s %12s %9s %9s %6s\n'

fuzz() {  # NAME LONGEST WORDS
  local name=$1 most=$2 dictionary=fuzz/words/$3.dict
  local seeds=fuzz/seeds/$name corpus=$work/corpus/$name log=$work/logs/$name
  mkdir -p "$corpus"
  local executions=0 edges=0 finds=0 begin=$SECONDS left status
  # A find ends a run; there may be more behind it.
  while left=$((begin + seconds - SECONDS)) && [ "$left" -gt 0 ] && [ "$finds" -lt 5 ]; do
    status=0
    "$fuzzer" "$name" "$corpus" "$seeds" -dict="$dictionary" -max_len="$most" -max_total_time="$left" -timeout=60 \
      -rss_limit_mb=2048 -malloc_limit_mb=2200 -close_fd_mask=3 -handle_xfsz=0 -print_final_stats=1 \
      -artifact_prefix="$findings/$name-" </dev/null >"$log" 2>&1 || status=$?
    executions=$((executions + $(sed -n 's/^stat::number_of_executed_units: //p' "$log" | grep . || echo 0)))
    edges=$(grep -oE 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2 || echo "$edges")
    [ $status -eq 0 ] && break
    finds=$((finds + 1))
    cp "$log" "$findings/$name.log.$finds"
    grep -m1 -E 'does not hold|ERROR|runtime error' "$log" >&2 || tail -3 "$log" >&2
  done
  # shellcheck disable=SC2059  # the format is a row's
  printf "$row" "$name" "$executions" $((executions / (SECONDS - begin > 0 ? SECONDS - begin : 1))) "${edges:-0}" \
    "$finds" | tee "$work/counts/$name"
}

for target in "${targets[@]}"; do
  while [ "$(jobs -pr | wc -l)" -ge "$cores" ]; do wait -n || true; done
  # shellcheck disable=SC2086  # three words
  fuzz $target &
done
wait
# shellcheck disable=SC2059
{ echo; printf "$row" target executions exec/s edges finds; }
for target in "${targets[@]}"; do cat "$work/counts/${target%% *}"; done
all=$(cat "$work"/counts/* | awk '{ finds += $5 } END { print finds + 0 }')
[ "$all" -eq 0 ] || { echo "fuzz: $all finds in fuzz/findings" >&2; exit 1; }
