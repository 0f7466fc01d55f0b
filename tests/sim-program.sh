#!/usr/bin/env bash
# passbook-sim as its users have it: by itself, and with a host that it runs, on a pseudo-terminal and with --usb.
#     sim-program.sh PASSBOOK-SIM PRINT_PAGE
# shellcheck disable=SC2015,SC2016,SC2317  # wrong() always succeeds; other shells' variables; called through check
set -euo pipefail
export LC_ALL=C  # the host counts bytes
sim=$1 host=$2 printer='' bad=0
work=$(mktemp -d)
export TMPDIR=$work/tmp
mkdir "${kept:=$work/kept}" "$TMPDIR"
trap '[ -z "$printer" ] || kill -KILL "$printer" 2>/dev/null || true; rm -rf "$work"' EXIT
wrong() { echo "sim-program: line ${BASH_LINENO[1]}: $*"; bad=1; }
check() { "$@" || wrong "not so: $*"; }
eventually() { for _ in {1..2000}; do ! "$@" || return 0; sleep 0.01; done; return 1; }

# expect STATUS OUTPUT ERRORS ARGUMENT...: how passbook-sim ends, and patterns for all that it and its host say
expect() {
  local status=0
  timeout 30 "$sim" "${@:4}" >"$work/out" 2>"$work/err" || status=$?
  [ "$status" = "$1" ] && [[ $(<"$work/out") =~ $2 ]] && [[ $(<"$work/err") =~ $3 ]] ||
    wrong "passbook-sim ${*:4}: status $status (not $1): $(cat "$work/out" "$work/err")"
}

named() { read -r _ port <"$work/out"; }
gone() { ! kill -0 "$printer" 2>/dev/null; }
start() {
  : >"$work/out"
  "$sim" "$@" >"$work/out" 2>"$work/err" &
  printer=$!
  eventually named || { wrong "no port: $(<"$work/err")"; exit 1; }
}
stop() {
  local status=0
  kill -s "$1" "$printer"
  eventually gone || kill -KILL "$printer"
  wait "$printer" || status=$?
  printer=
  [ $status = 0 ] && [[ $(<"$work/out") =~ ^port:\ pts/[0-9]+($'\n'\{.*)?$ ]] && [ ! -s "$work/err" ] ||
    wrong "status $status after $1: $(cat "$work/out" "$work/err")"
}

# ask BYTES ANSWER: of the host that has the port open as 3
ask() {
  local answer
  answer=$(printf %s "$1" >&3 && timeout 20 head -c ${#2} <&3) || true
  [ "$answer" = "$2" ] || wrong "$(printf '%q is answered %q, not %q' "$1" "$answer" "$2")"
}
logged() { grep -q "\"event\":\"$1\"" "$kept/events"; }
clean() { [ -z "$(ls -A "$TMPDIR")" ]; }
whole() { tail -c 8 "$1" 2>/dev/null | cmp -s - <(printf 'IEND\xAE\x42\x60\x82'); }

ln -s kept/../kept/page.png "$work/alias"
for option in '--family wobble' '--page-size 150x1073' '--taken-after -1' '--split 0' '--scan-break -1' '--printer-status 0x5' \
  '--paper-width 5' '--paper-length 5' '--configuration-result 1' '--stripe0=4 --family=oki' '--stripe1=4 --family=oki' \
  '--printer-status=1 --family=oki' '--scan-rows-error=1 --family=oki' '--usb-busy 1' '--usb-fault short:1' '--events ' '--link '; do
  expect 2 '^$' "^passbook-sim: ${option%%[= ]*}: " --page "$kept/page.png" "${option% *}" "${option#* }"
done
for path in "$kept/page.png" "$work/kept/../kept/page.png" "$work/alias"; do
  expect 2 '^$' 'same file' --page "$kept/page.png" --events "$path"
done
for path in '' -; do expect 2 '^$' '^passbook-sim: --page: ' --page "$path"; done
expect 1 '^$' 'no/page.png: No such file or directory' --page "$kept/no/page.png"
expect 1 '^$' 'not a regular file' --page /dev/full
expect 1 '^$' 'no/log: No such file or directory' --events "$kept/no/log" -- true
expect 1 '^$' '/dev/full: No space left on device' --events /dev/full -- sh -c 'printf money >/dev/{}'
check [ -z "$(ls -A "$kept")" ]

start --page "$kept/page.png" --events "$kept/events" --stripe1 42
exec 3<>"/dev/$port"
ask $'\033l\033YEA@\033]' $'\033]42\x1C'
exec 3>&- 3<>"/dev/$port"
ask $'\033|A010\xB4\xE6\r\033 B' $'\033B5C\033Z'
check [ ! -e "$kept/page.png" ]
printf 'money\xB4' >&3  # a text that goes on
kill -USR1 "$printer"
check eventually whole "$kept/page.png"
check logged text
ln "$kept/page.png" "$kept/first.png"
ask $'\033O\033j' $'\033rP'
check whole "$kept/page.png"
check [ ! "$kept/page.png" -ef "$kept/first.png" ]  # written over, it would be half a page for a while
cp "$kept/page.png" "$work/printed.png"
exec 3>&- 3<>"/dev/$port"
ask $'\033L000\033 B' $'\033B5C\033Z'
kill -USR1 "$printer"  # the next document is still empty: it must not take the printed one's place
printf '\033j' >&3
exec 3>&-
check eventually logged unread
exec 3<>"/dev/$port"
ask $'\033l\033]' $'\033]42\x1C'
stop TERM
exec 3>&-
start --page "$kept/page.png"
stop HUP
check cmp "$kept/page.png" "$work/printed.png"
check [ "$(cd "$kept" && echo *)" = 'events first.png page.png' ]

# Thousands of pages that nobody sees, and what they end with
start --family oki --page "$kept/page.png" --events "$kept/events"
check timeout 20 bash -c 'printf "money\f%.0s" {1..5000} >"/dev/$1"; printf last >"/dev/$1"' - "$port"
stop INT
check [ "$(grep -c '"text":"money"' "$kept/events")" = 5000 ]
check grep -q '"text":"last"' "$kept/events"

start --events "$kept/events"
for _ in 1 2; do  # hosts that never read: what is kept for them has a bound
  check timeout 20 bash -c 'printf "\033 b%.0s" {1..20000} >"/dev/$1"' - "$port"
done
check logged answer-lost
stop TERM

start --paper out --insert-after 0 --taken-after never --split 1 --printer-status 010 --page-size 50.8x25.4 --events - \
  --page "$kept/new.png"
exec 3<>"/dev/$port"
printf '\033 B\033j' >&3
check [ "$(timeout 20 dd bs=9 count=1 status=none <&3)" = $'\033' ]
ask '' $'B5B\033Z\033r2'
ask $'\033L000\033O\033 B' $'\033B5A\033Z'
check [ "$(head -c 24 "$kept/new.png" | tail -c 8 | od -An -tx1)" = ' 00 00 01 68 00 00 00 b4' ]  # 360 x 180
stop INT
exec 3>&-

# A stamp of one black pixel.
{ printf 'BM:\0\0\0\0\0\0\0\x36\0\0\0\x28\0\0\0\1\0\0\0\1\0\0\0\1\0\x18\0' && head -c 28 /dev/zero; } >"$work/stamp.bmp"
job=("$host" {} "$work/stamp.bmp")
for bus in --usb "--link=$work/link"; do
  rm -f "$kept"/*
  ln -sf /dev/pts/123456 "$work/link"  # left by a run that was killed
  expect 0 '^printer +PASSBOOKSIM10' '^$' --events "$kept/events" --page "$kept/page.png" "$bus" -- "${job[@]}"
  check whole "$kept/page.png"
  check logged text
  expect 0 '^\[a,b\]\|\|--help$' '^$' "$bus" -- sh -c 'echo "$1|$2|$3"' sh '[a,b]' '' --help
  expect 7 '^$' '^$' "$bus" -- sh -c 'exit 7'
  expect 143 '^$' '' "$bus" -- sh -c 'kill -TERM $PPID; while :; do :; done'
  expect 127 '^$' "$work/missing: No such file" "$bus" -- "$work/missing"
  expect 126 '^$' 'Permission denied' "$bus" -- "$work"
  expect 2 '^$' PROGRAM "$bus" --
done
check [ ! -L "$work/link" ]
expect 0 '^/dev/(pts/[0-9]+) \1.*"event":"text"' '^$' --events - --link "$work/link" -- \
  sh -c 'echo "$(readlink "$1") {}"; printf money >"$1"' - "$work/link"
expect 1 '^$' 'alias: File exists' --link "$work/alias" -- true
check [ -L "$work/alias" ]
expect 0 '^printer' '^$' --usb-busy 1 --usb -- "${job[@]}"
expect 1 '' 'result -' --usb-fault unplug:5 --usb -- "${job[@]}"
expect 0 '^printer' 'result -3.*once more' --usb-fault stall:20 --usb -- "${job[@]}"
expect 1 '^printer' 'result 0.*look at the page' --usb-fault stall:23 --usb -- "${job[@]}"
expect 2 '^$' PROGRAM --usb
"$sim" --usb -- sh -c 'kill -KILL $PPID' &
wait $! 2>/dev/null || check eventually clean
for fault in short short: :3 short:0 short:x jam:1; do
  expect 2 '^$' 'no KIND:N' --usb-fault "$fault" --usb -- true
done
exit $bad
