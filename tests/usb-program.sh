#!/usr/bin/env bash
# passbook-sim --usb from the outside: a host under it prints what it prints over a serial line, and what becomes of the
# host is told.   usb-program.sh PASSBOOK-SIM HOST
set -euo pipefail
sim=$1 host=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
bad=0

expect() {  # STATUS OUTPUT-PATTERN ARGUMENT... : of passbook-sim
  local status=0 wanted=$1 pattern=$2
  shift 2
  "$sim" "$@" >"$work/output" 2>&1 || status=$?
  if [ "$status" != "$wanted" ] || { [ -n "$pattern" ] && ! grep -qE -- "$pattern" "$work/output"; }; then
    echo "passbook-sim $*: status $status (not $wanted), output:"
    cat "$work/output"
    bad=1
  fi
}

expect 0 '^printed 0, PASSBOOKSIM10$' --events "$work/usb" --page "$work/usb.png" --usb -- "$host" USB
coproc PRINTER { exec "$sim" --events "$work/serial" --page "$work/serial.png"; }
printer=$PRINTER_PID
read -r -t 20 _ port <&"${PRINTER[0]}"
"$host" "$port" >/dev/null
kill "$printer"
wait "$printer" || true
untimed() { sed 's/"ms":[0-9]*,//' "$1"; }
diff <(untimed "$work/serial") <(untimed "$work/usb") || bad=1
cmp "$work/serial.png" "$work/usb.png" || bad=1
grep -q '"event":"text"' "$work/usb" || { echo "no text was printed"; bad=1; }

expect 0 '^printed 0' --usb-busy 1 --usb -- "$host"
expect 1 '^printed -3' --usb-fault unplug:5 --usb -- "$host"
expect 1 '^printed -3' --usb-fault stall:3 --usb -- "$host"
expect 0 '^\[a,b\]\|\|--help$' --usb -- sh -c 'echo "$1|$2|$3"' sh '[a,b]' '' --help
expect 7 '' --usb -- sh -c 'exit 7'
expect 143 '' --usb -- sh -c 'kill -TERM $PPID; while :; do :; done'
expect 127 "$work/missing: No such file" --usb -- "$work/missing"
expect 126 'Permission denied' --usb -- "$work"
expect 1 "can't be written" --events "$work/missing/log" --usb -- true
expect 2 'PROGRAM' --usb
expect 2 'PROGRAM' --usb --
expect 2 'PROGRAM' -- true
expect 2 'for --usb' --usb-fault short:1
for fault in short short: :3 short:0 short:x jam:1; do
  expect 2 'no KIND:N' --usb-fault "$fault" --usb -- true
done
exit $bad
