#!/usr/bin/env bash
# Traces: what the tool writes of itself and of a host that knows nothing of it, what is masked, how it is shown, and what
# the virtual printer makes of it; and the verbs raw and stripe, by whose traces that is seen.
#     tool-trace.sh PASSBOOK PASSBOOK-SIM PRINT_PAGE SCAN
# shellcheck disable=SC2015,SC2016,SC2317  # wrong() always succeeds; other shells' variables; called through check
set -euo pipefail
tool=$1 sim=$2 page=$3 scan=$4 bad=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export PATH="${tool%/*}:$PATH"
unset PASSBOOK_PORT PASSBOOK_FAMILY PASSBOOK_OFFSET
wrong() { echo "tool-trace: line ${BASH_LINENO[1]}: $*"; bad=1; }
check() { "$@" || wrong "not so: $*"; }
hex() { printf %s "$1" | iconv -t GB18030 | od -An -v -tx1 | tr -d ' \n'; }

# expect STATUS OUTPUT ERRORS COMMAND...: how it ends, and patterns for all that it says
expect() {
  local status=0
  timeout 60 "${@:4}" >out 2>err </dev/null || status=$?
  [ "$status" = "$1" ] && [[ $(<out) =~ $2 ]] && [[ $(<err) =~ $3 ]] || wrong "${*:4}: status $status (not $1): $(cat out err)"
}
next=()  # what the printer's user does when a document is out
# printed FAMILY COMMAND...: on a printer of that family, whose port is {}
printed() {
  [ "$1" = oki ] && printer=(--family oki) || printer=(--stripe0 "$card")
  rm -f page.png
  expect 0 '' '^$' "$sim" "${printer[@]}" "${next[@]}" --page page.png --events events -- "${@:2}"
}
same() { diff <(sed 's/^{"ms":[0-9]*,//' "$1") <(sed 's/^{"ms":[0-9]*,//' "$2"); }
# replayed TRACE: gives the page and the events of the latest run
replayed() {
  rm -f again.png
  expect 0 '^$' '^$' "$sim" "${printer[@]}" --replay "$1" --page again.png --events events.again
  check same events events.again
  check cmp page.png again.png
}

name='林小姐 Deposit' card=6217000012345678
printf 'BM:\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\1\0\0\0\1\0\0\0\1\0\x18\0' >stamp.bmp
head -c 28 /dev/zero >>stamp.bmp

# A session in several runs, masked and not
session='for options in "--trace masked" "--trace whole --trace-unmasked"; do
  p="passbook --port {} --family $family $options"
  [ $family = oki ] || $p insert --wait 5 >/dev/null
  $p text --y 20 "$name" >/dev/null
  $p raw 0x0d:0A 41424344 >/dev/null
  [ $family = oki ] || $p --json stripe read >stripe
  $p eject >/dev/null
done'
export name family SIM=$sim
next=(--insert-after 0)
for family in oli oki; do
  rm -f masked whole
  printed $family bash -c "$session"
  check [ "$(stat -c %a masked whole | tr '\n' ' ')" = '600 600 ' ]
  for secret in "$name" ABCD "$card"; do
    check [ "$(grep -c "$(hex "$secret")" masked)" = 0 ]
    [ $family-"$secret" = "oki-$card" ] || check grep -q "$(hex "$secret")" whole
  done
  # Both hold the same but for that: lengths, commands, calls, results.
  shape() { passbook decode "$1" | sed -n 's/^ *[0-9.]* //p' | sed 's/ "[^/]*"$//; s/< 1b 5d .*/stripe/'; }
  check diff <(shape masked) <(shape whole)
  expect 0 'text "\*+"' '^$' passbook decode whole
  expect 0 "text \"$name" '^$' passbook decode --unmasked whole
  expect 0 '"trace": \[.*"name": "text"' '^$' passbook --json decode masked
  expect 0 '"text":"\*{14}"' '^$' "$sim" --replay masked --events -
done
check grep -q "\"data\": \"$card\"" stripe

# Hosts that know nothing of it
next=()
printed oli passbook run --trace day --trace-unmasked -- "$page" {} stamp.bmp
replayed day
check grep -q "$(hex '转账 林小姐')" day
printed oki passbook --family oki run --trace oki.day -- "$scan" {} oki front.bmp back.bmp
printed oli passbook run --trace oli.day -- "$scan" {} oli front.bmp back.bmp
for trace in oki.day oli.day; do
  check [ "$(grep -c '"kind":"read".*"bytes":"\(2a\)*"' $trace)" -gt 20 ]
  check [ "$(grep '"kind":"read"' $trace | grep -c '00000000000000\|ffffffff')" = 0 ]
done
while IFS='|' read -r status output errors command; do
  expect "$status" "$output" "$errors" bash -c "$command"
done <<'END'
7|^hello$|^passbook: nothing was traced|passbook run --trace t -- sh -c 'echo hello; exit 7'
143|^$|nothing is traced|passbook run -- sh -c 'kill -TERM $$'
143|^$|nothing is traced|passbook run -- sh -c 'kill -TERM $PPID; sleep 50'
127|^$|passbook: ./missing: No such file|passbook run -- ./missing
126|^$|passbook: /: Permission denied|passbook run -- /
2|^$|HOST is required|passbook run
2|^$|may read the file: chmod 600|touch open; chmod 644 open; passbook --trace open --port null raw 00
2|^$|symbolic link|ln -s t link; passbook --trace link --port null raw 00
2|^$|not a regular file|passbook --trace /dev/null --port null raw 00
2|^$|is no whole trace|(umask 77; echo x >other); passbook --trace other --port null raw 00
0|handed over|^passbook: the trace is not complete|head -c 65536 /dev/zero >big; "$SIM" -- bash -c 'ulimit -f 1; passbook --trace full --port {} raw --file big'
2|YARDO|day.cut: line [0-9]+: the line is cut short|head -c 3000 day >day.cut; passbook decode day.cut
1|^$|line 3: the line is damaged|{ head -n 2 day; echo '{]'; } >day.odd; "$SIM" --replay day.odd
2|^$|nothing to send|passbook --port null raw
2|^$|other characters|passbook --port null stripe write $'1\x1d\e\\'
3|^$|no such device|passbook --port none raw 00
END
expect 0 'read back' '^$' "$sim" -- passbook --port {} stripe write --track 1 42
exit $bad
