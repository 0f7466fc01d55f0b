#!/usr/bin/env bash
# Who may include whom: each folder names the folders that its sources may include besides its own.
set -euo pipefail
cd "$1"
declare -A may=(
  [image]="" [device]="" [print]="device image" [status]="device" [stripe]="device"
  [scan]="print status stripe device image" [api]="scan print status stripe device image"
  [tools]="api" [wire]="" [sim]="wire"
)
bad=0
for folder in "${!may[@]}"; do
  [ -d "$folder" ] || continue
  while IFS=: read -r file line include; do
    target=$(sed -E 's/.*"([^"]*)".*/\1/' <<<"$include")
    [[ $target == */* ]] || target=$folder/$target
    case " $folder ${may[$folder]} " in
      *" ${target%%/*} "*) ;;
      *) echo "$file:$line: $folder may not include $target"; bad=1 ;;
    esac
  done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$folder")
done
[ $bad = 0 ] && echo "includes: all allowed"
exit $bad
