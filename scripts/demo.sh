#!/usr/bin/env bash
# Sets up, builds, and prints and scans on the virtual printer, both families.   scripts/demo.sh [OUTPUT-DIRECTORY]
set -euo pipefail
cd "$(dirname "$0")/.."
out=${1:-out}
scripts/setup.sh
cmake --preset default >/dev/null
cmake --build --preset default --target passbook passbook_program passbook_sim_program print_page print_oki scan make_pictures
bin=$PWD/build/default
mkdir -p "$out"
out=$(cd "$out" && pwd)
rm -f "$out"/*.png "$out"/*.jsonl "$out"/*.jpg "$out"/*.bmp
"$bin/examples/make_pictures" "$out"

# with NAME OPTION... -- HOST...: the host on a virtual printer of its own that logs to NAME.jsonl
with() { "$bin/sim/passbook-sim" --events "$out/$1.jsonl" "${@:2}"; }
count() { grep -c "\"event\":\"$2\"" "$out/$1.jsonl" || true; }
clock() { date +%s%N; }
seconds() { local ms=$((($(clock) - $1) / 1000000)); printf '%d.%03d s' $((ms / 1000)) $((ms % 1000)); }
# report NAME START: what was printed since
report() { echo "  $(count "$1" text) texts, $(count "$1" bitmap) bitmap runs, $(count "$1" unknown) unknown sequences in $(seconds "$2")"; }

cp examples/page.json "$out"

echo "passbook prints the page that page.json describes, on an OLI printer:"
began=$(clock)
with oli --page-size 140x180 --page "$out/oli.png" -- "$bin/tools/passbook" --port {} page "$out/page.json" | sed 's/^/  /'
report oli "$began"

echo "The same over USB, on an emulated bus:"
began=$(clock)
with usb --usb --page-size 140x180 --page "$out/usb.png" -- "$bin/tools/passbook" --port USB page "$out/page.json" | sed 's/^/  /'
report usb "$began"
without_time() { sed 's/"ms":[0-9]*,//' "$out/$1.jsonl"; }
if diff <(without_time oli) <(without_time usb) >/dev/null; then
  echo "  every command and answer as on the serial line"
else
  echo "demo: the page over USB differs, see $out/oli.jsonl and $out/usb.jsonl" >&2
  exit 1
fi

echo "A preview needs no printer:"
began=$(clock)
"$bin/tools/passbook" preview --page-file "$out/preview.png" page "$out/page.json" >/dev/null
if cmp -s "$out/oli.png" "$out/preview.png"; then
  echo "  the same picture as the printed page, in $(seconds "$began")"
else
  echo "demo: the preview differs, see $out/oli.png and $out/preview.png" >&2
  exit 1
fi

echo "A host in C. A single transfer is lost, and a line would stand at the height of the line before, with result 0:"
with fault --usb --usb-fault stall:23 -- "$bin/examples/print_page" {} "$out/stamp.bmp" 2>&1 | sed 's/^/  /' || true

echo "An OKI printer prints a statement:"
began=$(clock)
with oki --family oki --page "$out/oki.png" -- "$bin/examples/print_oki" {} "$out"
report oki "$began"

echo "Both scan what was printed:"
for family in oki oli; do
  suffix=$([ $family = oki ] && echo jpg || echo bmp)
  began=$(clock)
  with "scan-$family" --family $family --scan-front "$out/oli.png" --scan-back "$out/oki.png" -- \
    "$bin/examples/scan" {} $family "$out/front-$family.$suffix" "$out/back-$family.$suffix" >/dev/null
  echo "  $family: front-$family.$suffix, $(stat -c %s "$out/front-$family.$suffix") bytes," \
    "back-$family.$suffix, $(stat -c %s "$out/back-$family.$suffix") bytes, in $(seconds "$began")"
done

echo "The pages are $out/oli.png and $out/oki.png, their scans lie beside them; every command is in $out/*.jsonl"
