#!/usr/bin/env bash
# passbook image, scan, grid and preview: one picture in many kinds of files, which must always be the same dots.
#     tool-pictures.sh PASSBOOK PASSBOOK-SIM
# shellcheck disable=SC2015  # wrong() always succeeds
set -euo pipefail
export LC_ALL=C.UTF-8
tool=$1 sim=$2 bad=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
export TMPDIR=$work/tmp
mkdir "$TMPDIR" dir.png
wrong() { echo "tool-pictures: line ${BASH_LINENO[1]}: $*"; bad=1; }

# expect STATUS PATTERN COMMAND...: how it ends, and a pattern for all that it says
expect() {
  local status=0
  timeout 60 "${@:3}" >out 2>&1 || status=$?
  [ "$status" = "$1" ] && [[ $(<out) =~ $2 ]] || wrong "${*:3}: status $status (not $1): $(<out)"
  [ -z "$(ls -A "$TMPDIR")" ] || wrong "${*:3}: left behind: $(ls -A "$TMPDIR")"
}
quiet='^the page is in p.png$'
preview=("$tool" preview --page-file p.png --paper 105x148)
# shows FILE OPTION...: it prints as the picture that all are compared with
shows() {
  local each
  for each in oli oki; do
    expect 0 "$quiet" "${preview[@]}" --family $each image --x 10 --y 5 "${@:2}" "$1"
    cmp -s p.png reference.png || wrong "$each $*: other dots"
  done
}

# 24 x 16: an L of squares of eight dots. The lower row comes first.
little() { printf "\\x$(printf %02x $(($1 & 255)))\\x$(printf %02x $(($1 >> 8)))"; }
bmp() {  # BITS COMPRESSION COLOURS ROWS
  printf BM && little 999 && printf '\0\0\0\0\0\0' && little 62 && printf '\0\0' && little 40 && printf '\0\0\x18\0\0\0\x10\0\0\0\1\0'
  little "$1" && little "$2" && printf '\0\0' && little 0 && printf '%010d' 0 | tr 0 '\0' && printf '\2\0\0\0\0\0\0\0' && printf "$3$4"
}
times() { for _ in {1..8}; do printf %s "$1"; done; }
bmp 1 0 '\0\0\0\0\377\377\377\0' "$(times '\0\0\377\0')$(times '\0\377\377\0')" >plain.bmp
bmp 8 1 '\377\377\377\0\60\0\200\0' "$(times '\x10\1\10\0\0\0')$(times '\10\1\x10\0\0\0')\0\1" >rle.bmp
while read -r file text; do base64 -d <<<"$text" >"$file"; done <<'END'
16-bit.png iVBORw0KGgoAAAANSUhEUgAAABgAAAAQEAAAAAB53zwKAAAAHUlEQVR42mNg+I8KTzLghwyjGuiigZABoxpoogEAFv1WEKUmrEQAAAAASUVORK5CYII=
palette.png iVBORw0KGgoAAAANSUhEUgAAABgAAAAQAQMAAAA26i3WAAAABlBMVEX///DIHh68UwZsAAAAEUlEQVR42mP4z8DAgBf/x4sBjc4X6UGOf3cAAAAASUVORK5CYII=
transparent.png iVBORw0KGgoAAAANSUhEUgAAABgAAAAQCAQAAACmLXceAAAAGklEQVR42mNg+I8GCYJRDXTRQNCAUQ000AAAtSW/QQOeqc0AAAAASUVORK5CYII=
turned.jpg /9j/4QAiRXhpZgAASUkqAAgAAAABABIBAwABAAAABgAAAAAAAAD/2wBDABALDA4MChAODQ4SERATGCgaGBYWGDEjJR0oOjM9PDkzODdASFxOQERXRTc4UG1RV19iZ2hnPk1xeXBkeFxlZ2P/wAALCAAYABABAREA/8QAFgABAQEAAAAAAAAAAAAAAAAAAAcI/8QAFBABAAAAAAAAAAAAAAAAAAAAAP/aAAgBAQAAPwCgAz+D/9k=
END
for family in oli oki; do
  expect 0 'handed over' "$sim" --family $family --events events --page reference.png --page-size 105x148 -- \
    "$tool" --port {} --family $family image --x 10 --y 5 plain.bmp
  grep -Eq '"columns":(16,.*"xDots":71|24,.*"xDots":63),.*"yDots":33' events || wrong "$family: not there: $(grep bitmap events)"
  for file in plain.bmp rle.bmp 16-bit.png palette.png transparent.png turned.jpg; do shows $file; done
done
shows plain.bmp --dither
shows plain.bmp --width 3.3867 --fit 100x2.2578 --threshold 100
expect 0 "$quiet" "${preview[@]}" image --turn 90 turned.jpg
mv p.png other.png
expect 0 "$quiet" "${preview[@]}" image --turn 270 turned.jpg
! cmp -s p.png other.png || wrong 'a turn is no turn'
expect 0 'no dot of the picture is ink.*the page is in' "${preview[@]}" image --threshold 1 palette.png

# Nothing may be sent of what is wrong: the port does not even exist.
head -c 120 plain.bmp >cut.bmp && head -c 180 turned.jpg >cut.jpg && head -c 60 palette.png >cut.png
(head -c 18 plain.bmp && printf '\0\0\1\0\0\0\1\0' && tail -c +27 plain.bmp) >huge.bmp && mkfifo pipe.png
while IFS='|' read -r pattern arguments; do
  read -ra words <<<"$arguments"
  for family in oli oki; do expect 2 "^passbook: [^$]*$pattern[^$]*$" "$tool" --family $family --port no/such "${words[@]}"; done
done <<'END'
not whole|image cut.bmp
not whole|image cut.jpg
cut.png|image cut.png
65536 x 65536|image huge.bmp
regular file|image pipe.png
105x74|image --fit 7 plain.bmp
not in range|image --threshold 0 plain.bmp
larger than the paper|grid --offset-y -3000
same file|scan --front a.png --back ./a.png
No such file|scan --back no/a.png
directory|scan --front dir.png
10x10 to|preview --paper 5x5 text a
regular file|preview --page-file /dev/full text a
cut.jpg: .*whole|preview image cut.jpg
END
expect 2 'to the right' "$tool" --port no/such image --x 210 plain.bmp

while read -r family broken; do
  for file in f.png f.jpg f.bmp; do
    for type in bw grey16 grey256 colour; do
      expect 0 '^the front side is whole: f[^$]*the back side is whole: b.png$' "$sim" --family $family --scan-front plain.bmp -- \
        "$tool" --port {} --family $family scan --type $type --front $file --back b.png
      shows $file
    done
    rm $file
  done
  echo old >b.bmp
  expect 1 'no whole image of the back side; b.bmp is an older.*front side is whole: f.png' \
    "$sim" --family $family --scan-front plain.bmp --scan-break $broken -- "$tool" --port {} --family $family scan --front f.png --back b.bmp
  shows f.png
  grep -q old b.bmp || wrong 'half a side has replaced a file'
done <<<$'oli 500\noki 2000'
expect 4 'not ready to scan' "$sim" --printer-status 3 -- "$tool" --port {} scan --front g.png
expect 1 'number of rows.*is whole: g.png' "$sim" --scan-rows-error 1 -- "$tool" --port {} scan --front g.png

# The printer gets a second of pause a strip: sixty of them, if the preview's printer got them too.
for family in oli oki; do
  expect 0 "$quiet" "${preview[@]}" --family $family --offset -15,-12 grid --width 90 --height 140
  expect 0 "$quiet" "${preview[@]}" --family $family text --x 20 --y 5 '存折 100.00'
  expect 0 'handed over' "$sim" --family $family --page page.png --page-size 105x148 -- \
    "$tool" --port {} --family $family text --x 20 --y 5 '存折 100.00'
  cmp -s p.png page.png || wrong "$family: the preview is not what is printed"
done
expect 2 'reaches 6\.8 mm beyond the right.*across the fold' "${preview[@]}" --strict --fold 21 text --x 99 --y 20 12.34
expect 0 'have the character "😀"' "${preview[@]}" text --raw 😀
expect 0 'beyond the lower.*ink on the fold' "${preview[@]}" --fold 147 image --y 146 plain.bmp
expect 0 'does not know the bytes 1B 7A' "${preview[@]}" text --raw $'\ez1'
exit $bad
