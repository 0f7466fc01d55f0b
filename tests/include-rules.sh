#!/usr/bin/env bash
# Who may include whom: each line names a folder, and the folders that its sources may include besides it.
set -euo pipefail
cd "$1"
bad=0
while read -r folder may; do
  grep -nsE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"]*/' "$folder"/*.* /dev/null |
    grep -vE "\"(${folder}${may:+|}${may// /|})/[^/]*\"" && bad=1
done <<'END'
base
image base
device base
command base device
print base command device image
status base command device
stripe base command device
scan base command print status stripe device image
api base scan print status stripe device image
tools api sim sim/program tools/page wire
tools/doctor api tools
tools/page api json tools
tools/verbs api sim tools tools/doctor tools/page wire
json
wire
sim json wire
sim/usb sim
sim/program json sim sim/usb wire
END
# The virtual printer itself has no descriptor, no thread and no clock.
grep -nE '<(fcntl|poll|unistd)\.h>|<thread>|_clock\b' sim/*.* && bad=1
exit $bad
