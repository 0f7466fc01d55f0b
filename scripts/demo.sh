#!/usr/bin/env bash
# Sets up, builds, and prints and scans on the virtual printer, both families.   scripts/demo.sh [OUTPUT-DIRECTORY]
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-out}
scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target passbook passbook_sim_program print_page print_oki scan make_pictures
bin=$PWD/build/default
mkdir -p "$out"
out=$(cd "$out" && pwd)
rm -f "$out"/*.png "$out"/*.jsonl "$out"/*.jpg "$out"/*.bmp
"$bin/examples/make_pictures" "$out"

printer=
trap '[ -z "$printer" ] || kill "$printer" 2>/dev/null || true' EXIT

# start NAME OPTION...: a virtual printer that logs to NAME.jsonl; its port is in $port
start() {
  : >"$out/port"
  "$bin/sim/passbook-sim" --events "$out/$1.jsonl" "${@:2}" >"$out/port" &
  printer=$!
  port=
  for _ in $(seq 200); do
    read -r _ port <"$out/port" && break || sleep 0.1
  done
  [ -n "$port" ] || { echo "demo: the virtual printer did not start" >&2; exit 1; }
}
stop() { kill "$printer"; wait "$printer" || true; printer=; rm -f "$out/port"; }
count() { grep -c "\"event\":\"$2\"" "$out/$1.jsonl" || true; }
clock() { date +%s%N; }
seconds() { local ms=$((($(clock) - $1) / 1000000)); printf '%d.%03d s' $((ms / 1000)) $((ms % 1000)); }
# report NAME START: what was printed since
report() { echo "  $(count "$1" text) texts, $(count "$1" bitmap) bitmap runs, $(count "$1" unknown) unknown sequences in $(seconds "$2")"; }

echo "An OLI printer prints a passbook page:"
start oli --page "$out/oli.png"
began=$(clock)
"$bin/examples/print_page" "$port" "$out/stamp.bmp" | sed 's/^/  /'
report oli "$began"
stop

echo "An OKI printer prints a statement:"
start oki --family oki --page "$out/oki.png"
began=$(clock)
"$bin/examples/print_oki" "$port" "$out"
report oki "$began"
stop

echo "Both scan what was printed:"
for family in oki oli; do
  suffix=$([ $family = oki ] && echo jpg || echo bmp)
  start "scan-$family" --family $family --scan-front "$out/oli.png" --scan-back "$out/oki.png"
  began=$(clock)
  "$bin/examples/scan" "$port" $family "$out/front-$family.$suffix" "$out/back-$family.$suffix" >/dev/null
  echo "  $family: front-$family.$suffix, $(stat -c %s "$out/front-$family.$suffix") bytes," \
    "back-$family.$suffix, $(stat -c %s "$out/back-$family.$suffix") bytes, in $(seconds "$began")"
  stop
done

echo "The pages are $out/oli.png and $out/oki.png, their scans lie beside them; every command is in $out/*.jsonl"
