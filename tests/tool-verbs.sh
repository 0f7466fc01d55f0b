#!/usr/bin/env bash
# Every verb of the tool as a process, on the virtual printer of both families: what it brings, and nonsense, to which the
# answer is one clear line, and of which the printer hears nothing.
#     tool-verbs.sh PASSBOOK PASSBOOK-SIM
set -euo pipefail
tool=$1 sim=$2 bad=0
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
wrong() { echo "tool-verbs: $*"; bad=1; }

cat >picture.pbm <<'END'
P1
8 4
1 0 1 0 1 0 1 1
0 1 0 1 0 1 0 1
1 0 1 0 1 0 1 1
1 1 1 1 1 1 1 1
END
page='{"text": "one", "x": 10, "y": 10}, {"image": "picture.pbm", "x": 10, "y": 20}'
printf '{"steps": [%s]}' "$page" >page.json
printf '{"insert": {"wait": 1}, "initialise": {"wait": 1}, "eject": {"wait": 1}, "steps": [%s]}' "$page" >quick-oli.json
printf '{"steps": [%s]}' "$page" >quick-oki.json
printf '{"steps": [\n%s,\n{"text": "far", "x": 500, "y": 9, "z": 1}]}' "$page" >beyond.json
printf '{"steps": [{"lines": ["a", "b"], "x": 1, "y": 1, "spacing": 1}]}' >overlap.json
printf '{"steps": [' >half.json

# Columns: the families, and behind a colon the printer's options, with _ for spaces; the exit status; a pattern for
# standard error, or - for silence; the arguments. Status 2 is nonsense: one line, and nothing sent. A printer without
# paper gets no ink, and a silent one is no success.
while IFS=' ' read -r families status pattern arguments; do
  IFS=: read -r families options <<<"$families"
  [ -n "$families" ] || continue
  for family in ${families//,/ }; do
    eval "set -- $arguments"
    read -ra printer <<<"${options//_/ }"
    got=0
    timeout 60 "$sim" --family "$family" "${printer[@]}" --events events -- "$tool" --port {} --family "$family" --json "$@" \
      >out 2>err </dev/null || got=$?
    said=$(<err)
    what="$family: $arguments: status $got (not $status), said: $said"
    [ "$got" = "$status" ] || wrong "$what"
    if [ "$pattern" = - ]; then
      [ -z "$said" ] || wrong "$what"
    else
      [[ $said =~ ${pattern//_/ } ]] || wrong "$what"
    fi
    [ "$got" != 2 ] || [ "$(wc -l <err)" = 1 ] || wrong "more than a line: $what"
    [ "$got" != 2 ] || ! grep -E '"event":"(command|text|bitmap|unknown|malformed)"' events || wrong "sent: $what"
    for key in verb result name ink inPlace message; do
      grep -q "^  \"$key\": " out || wrong "no $key: $what: $(<out)"
    done
  done
done <<'END'
oli,oki 0 -                             text --x 20 --y 30.5 "存入 100.00"
oli,oki 0 -                             text --raw $'a\tb'
oli,oki 0 -                             image --x 10 --y 20 --width 20 --dither picture.pbm
oli,oki 0 -                             page --journal "journal-$family" page.json
oli,oki 0 -                             grid --width 30 --height 20
oli,oki 0 -                             scan --front "$family.png" --back "$family.jpg" --type colour
oli,oki 0 -                             status
oli,oki 0 -                             raw 0D 0x0D 0d0D
oli,oki 0 -                             eject
oli,oki 0 -                             doctor
oli,oki 0 -                             preview --page-file p.png text abc
oli,oki 0 -                             explain YARDO_PR2_OpenPort -- -1
oli     0 -                             init --reset all
oli     0 -                             insert --wait 1
oli     0 -                             firmware
oli     0 -                             stripe write --track 1 6222=4912
oli     0 -                             stripe read --track both
oli     0 -                             eject --wait 5
oki     2 family_oki_cannot_do_this     init
oki     2 family_oki_cannot_do_this     insert
oki     2 family_oki_cannot_do_this     firmware
oki     2 family_oki_cannot_do_this     stripe read
oki     2 do_not_tell                   eject --wait 5

oli,oki:--paper_out 4 no_document       text a
oli,oki:--paper_out 4 no_document       image picture.pbm
oli,oki:--paper_out 4 no_document       grid
oki:--paper_out 4 no_document           page quick-oki.json
oli:--paper_out 4 no_document           stripe read
oli:--printer-status_9 4 not_ready      text a
oli:--printer-status_9 4 .              init --wait 1
oki:--silent 1 Next:_passbook           text a
oli:--silent 1 Next:_passbook           eject
oli,oki:--silent 1 Next:_passbook       page "quick-$family.json"

oli,oki 2 beyond_where                  text --x 205 "DEPOSIT 100.00"
oli,oki 2 no_whole_number               page --journal j --resume --skip 0 page.json
oli,oki 2 control_characters            text $'a\x1bl'
oli,oki 2 not_UTF-8                     text $'a\xff'
oli,oki 2 the_printer_has_not           text "a😀"
oli,oki 2 from_0_to_211                 text --x 212 a
oli,oki 2 nan_is_no_number              text --y nan a
oli,oki 2 TEXT_is_required              text
oli,oki 2 no_verb                       nonsense
oli,oki 2 no_verb                       --nonsense
oli,oki 2 not_expected                  status nonsense
oli,oki 2 is_none_of_oli,_oki           --family other status
oli,oki 2 tenths_of_a_millimetre        --offset 1 text a
oli,oki 2 begin_outside                --offset-x -500 image picture.pbm
oli,oki 2 is_none_of_error              init --reset nonsense
oli,oki 2 not_in_range                  insert --wait -1
oli,oki 2 No_such_file                  image nosuch.png
oli,oki 2 known_kind                    image page.json
oli,oki 2 not_a_regular_file            image .
oli,oki 2 must_end_in                   scan --front a.gif
oli,oki 2 no_file                       scan
oli,oki 2 hexadecimal                   raw 1B 6
oli,oki 2 No_such_file                  raw --file nosuch
oli     2 DATA_is_required              stripe write
oli     2 other_characters              stripe write $'1\n'
oli,oki 2 no_result                     explain nonsense 5
oli,oki 2 No_such_file                  decode nosuch
oli,oki 2 this_is_no_trace              decode page.json
oli,oki 2 cannot_be_opened              page nosuch.json
oli,oki 2 line_1                        page half.json
oli,oki 2 overlaps./steps/0             page overlap.json
oli,oki 2 --journal                     page --resume page.json
oli,oki 2 cannot                        --trace nosuch/trace status
END

# A page that is out is not ejected again: it would be the next customer's.
# shellcheck disable=SC2016  # the other shell's arguments
"$sim" --taken-after never --events events -- bash -c 'page="$1 --port $2 page --journal ejected quick-oli.json"
  $page; [ $? = 4 ] && $page; [ $? = 2 ] && $page --resume' - "$tool" {} >out 2>&1 || wrong "the page that is out: $(<out)"
[[ $(<out) =~ nobody.has.taken.*is.there.already.*complete ]] || wrong "the page that is out: $(<out)"
[ "$(grep -c '"event":"command","name":"eject"' events)" = 1 ] || wrong 'ejected twice'

# What is wrong with a description is told all at once, a line each.
"$tool" --port null page beyond.json 2>err && wrong 'beyond.json is printed'
[ "$(grep -cE '^passbook: beyond.json:3: /steps/2(/x must be a number from 0 to 211|/z is not known here)$' err)" = 2 ] ||
  wrong "beyond.json: $(<err)"
exit $bad
