#!/usr/bin/env bash
# Sets up, builds, and prints a passbook page on the virtual printer.   scripts/demo.sh [OUTPUT-DIRECTORY]
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-out}
scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target passbook passbook_sim_program print_page make_pictures
bin=build/default
mkdir -p "$out"
rm -f "$out"/page.png "$out"/events.jsonl
"$bin/examples/make_pictures" "$out"

coproc PRINTER { exec "$bin/sim/passbook-sim" --page "$out/page.png" --events "$out/events.jsonl"; }
printer=$PRINTER_PID
trap 'kill "$printer" 2>/dev/null || true' EXIT
read -r -t 20 _ port <&"${PRINTER[0]}" || { echo "demo: the virtual printer did not start" >&2; exit 1; }

echo "printing on the virtual printer at $port"
start=$(date +%s%N)
"$bin/examples/print_page" "$port" "$out/stamp.bmp"
took=$((($(date +%s%N) - start) / 1000000))
kill "$printer"
wait "$printer" 2>/dev/null || true

count() { grep -c "\"event\":\"$1\"" "$out/events.jsonl" || true; }
echo "printed    $(count text) texts and $(count bitmap) bitmap runs in $((took / 1000)).$(printf %03d $((took % 1000))) s"
echo "unknown    $(count unknown) sequences"
echo "page       $out/page.png   (events: $out/events.jsonl)"
