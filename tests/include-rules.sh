#!/usr/bin/env bash
# Who may include whom: each line names a folder, and the folders that its sources may include besides it.
set -euo pipefail
cd "$1"
bad=0
while read -r folder may; do
  grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"[^"]*/' "$folder" |
    grep -vE "\"(${folder}${may:+|}${may// /|})/" && bad=1
done <<'END'
image
device
print device image
status device
stripe device
scan print status stripe device image
api scan print status stripe device image
wire
sim wire
END
exit $bad
