#!/usr/bin/env bash
# passbook doctor, as somebody at the telephone has it: broken ports, lines and printers.
#     tool-doctor.sh PASSBOOK PASSBOOK-SIM
# shellcheck disable=SC2015  # wrong() always succeeds
set -euo pipefail
tool=$1 sim=$2 bad=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
wrong() { echo "tool-doctor: line ${BASH_LINENO[1]}: $*"; bad=1; }

# expect STATUS PATTERN COMMAND...: how the doctor ends, and a pattern for all that it says
expect() {
  local status=0
  timeout 60 "${@:3}" >"$work/out" 2>&1 || status=$?
  [ "$status" = "$1" ] && [[ $(<"$work/out") =~ $2 ]] || wrong "${*:3}: status $status (not $1): $(cat "$work/out")"
}
# printer STATUS PATTERN OPTIONS COMMAND...: the same on a virtual printer, where no ink may come out
printer() {
  local options
  read -ra options <<<"$3"
  expect "$1" "$2" "$sim" --events "$work/events" "${options[@]}" -- "${@:4}"
  ! grep -E '"event":"(text|bitmap|no-paper|malformed)"' "$work/events" || wrong "${*:3}: that was printed"
}
oli=("$tool" --port {} doctor) oki=("$tool" --port {} --family oki doctor)

expect 2 'no port: give --port' env -u PASSBOOK_PORT "$tool" doctor
expect 3 'problem  There is no /dev/no/such\..*> See to the cable' "$tool" --port no/such doctor
expect 3 'problem  There is no /dev/COM2.*is ttyS1 here' "$tool" --port COM2 doctor
expect 3 'There is no /dev/usb\..*--port USB' umockdev-run -- "$tool" --port usb doctor
expect 1 'problem  /dev/null is no serial line' "$tool" --port null doctor
expect 1 'no device of a printer' "$tool" --port shm doctor

printer 0 'ready.*no document' '--paper out' "${oli[@]}"
printer 0 '"findings": .*"kind": "answer".*"level": "ok"' '' "$tool" --json --port {} doctor
printer 0 'family OKI answers.*1500 wide' '--family oki' "${oki[@]}"
[[ $(<"$work/out") != *@(warning|problem)* ]] || wrong "not well: $(<"$work/out")"
printer 4 'not ready: status byte 32' '--printer-status 10' "${oli[@]}"
printer 1 'no answer of the family OKI: [0-9A-F]{2} ' '--family oki --garble' "${oki[@]}"
printer 1 'No printer of the family OKI answers.*online.*9600.*--family oki doctor --ask-other' '--family oki --silent' "${oki[@]}"
printer 1 'family OLI \(PR2\) answers, .*--family oli' '' "${oki[@]}" --ask-other
printer 1 'family OKI answers, .*--family oki' '--family oki' "${oli[@]}" --ask-other

# shellcheck disable=SC2016  # the other shells' arguments
{
  stty=(bash -c 'stty -F "/dev/$1" "$2" ixon && exec "${@:3}"' - {})
  printer 1 'icrnl.*ixon.*> +stty -F /dev/pts/[0-9]+ -icrnl -ixon' '' "${stty[@]}" icrnl "${oli[@]}"
  printer 1 'istrip.*highest bit' '--family oki' "${stty[@]}" istrip "${oki[@]}"
  hold=(bash -c 'exec 3<>"/dev/$1" && "${@:2}"; exit $?' -)
  printer 1 'problem  bash \(process [0-9]+\) has /dev/pts/[0-9]+ open.*> .*kill [0-9]' '' "${hold[@]}" {} "${oli[@]}"
  ! grep -q '"event":"command"' "$work/events" || wrong 'a printer was asked that another program works with'
  printer 3 'problem  flock \(process' '' flock /dev/{} "${oli[@]}"
  printer 1 'problem  bash .* has /dev/bus/usb/001/002 open' --usb "${hold[@]}" bus/usb/001/002 "${oli[@]}"
}
expect 3 'None of the known printers is on USB' umockdev-run -- "$tool" --port USB doctor
printer 0 '0b3c:0001 is on USB, as /dev/bus/usb/001/002.*OLI \(PR2\) answers' --usb "${oli[@]}"

nobody=(setpriv --reuid=65534 --regid=60 --clear-groups)
if [ "$(id -u)" = 0 ] && "${nobody[@]}" "$tool" --version >/dev/null 2>&1; then
  # shellcheck disable=SC2016
  while read -r group mode pattern; do
    printer 3 "problem  User nobody may not open it.*$pattern" '' bash -c 'chgrp "$1" "/dev/$3" && chmod "$2" "/dev/$3" &&
      "${@:4}"; exit $?' - "$group" "$mode" {} "${nobody[@]}" "${oli[@]}"
  done <<'END'
dialout 0660 sudo usermod -aG dialout nobody
dialout 0600 rw-------.*sudo chgrp dialout /dev/pts/
root 0660 sudo chgrp dialout /dev/pts/
nogroup 0660 this login is older
END
else
  echo 'tool-doctor: not root: rights are not tried'
fi
exit $bad
